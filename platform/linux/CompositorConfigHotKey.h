#pragma once

#include <string>
#include <string_view>

#include "platform/GlobalHotKey.h"
#include "platform/Log.h"

namespace zettly {

// Where a compositor that gives applications no shortcuts takes the user's
// own: the line that runs `zettly --toggle` on the stored combination, in
// the compositor's own syntax, and the file it goes into.
struct CompositorBinding {
    std::string line;        // one line, or two for Wayfire
    std::string configFile;  // as the user writes it ("~/.config/sway/config"); empty: unknown
    std::string section;     // the part of configFile it belongs in; empty: anywhere
    bool operator==(const CompositorBinding&) const = default;
};

// For the desktops named in `desktopNames` (XDG_CURRENT_DESKTOP's
// colon-separated list, then XDG_SESSION_DESKTOP): Sway, Hyprland, river,
// niri, labwc and Wayfire get their line; any other desktop, or a key the
// syntax cannot name, gets the plain command and no file. `configHome` is
// the configuration folder as the user writes it.
CompositorBinding compositorBindingFor(std::string_view desktopNames, HotKeyCombo combo,
                                       KeyboardLayout& layout,
                                       std::string_view configHome = "~/.config");

// The desktop names and the configuration folder of this session, from the
// environment ("~/.config" unless XDG_CONFIG_HOME says otherwise).
std::string sessionDesktopNames();
std::string sessionConfigHome();

// The shortcut where the compositor binds keys only in its configuration
// file: answers at once, inDesktopSettings with the line for the stored
// combination and the file it goes into.
class CompositorConfigHotKey final : public GlobalHotKey {
public:
    CompositorConfigHotKey(KeyboardLayout& layout, Log& log,
                           std::string desktopNames = sessionDesktopNames(),
                           std::string configHome = sessionConfigHome());

    void bind(HotKeyCombo combo, std::function<void()> pressed,
              std::function<void(const HotKeyState&)> answered) override;
    void release() override {}

private:
    KeyboardLayout& layout_;
    Log& log_;
    std::string desktopNames_;
    std::string configHome_;
};

}  // namespace zettly
