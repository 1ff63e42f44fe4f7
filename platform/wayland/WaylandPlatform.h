#pragma once

#include <memory>
#include <vector>

#include "platform/AppFolders.h"
#include "platform/Autostart.h"
#include "platform/Platform.h"
#include "platform/UsKeyboardLayout.h"
#include "platform/linux/QtMainQueue.h"

namespace zettly {

class DataControlPasteboard;
class ForeignToplevels;
class KeyTyper;
class WaylandConnection;
class WaylandDesktop;

// A Wayland compositor with a data-control protocol (KWin, Sway and the
// other wlroots compositors, Hyprland, COSMIC, niri): the clipboard through
// data control on a connection of our own, the window in front through the
// foreign-toplevel list, the paste through a virtual keyboard, KWin's fake
// input or the RemoteDesktop portal, the shortcut through the
// GlobalShortcuts portal or a line in the compositor's configuration. Needs
// the Qt application on the wayland platform plugin.
class WaylandPlatform final : public Platform {
public:
    // None when no compositor answers or it offers no data control (GNOME):
    // the caller falls back.
    static std::unique_ptr<WaylandPlatform> open(Log& log);
    ~WaylandPlatform() override;

    std::string_view name() const override { return "wayland"; }
    Pasteboard& pasteboard() override;
    Workspace& workspace() override;
    Desktop& desktop() override;
    GlobalHotKey& hotKey() override { return *hotKey_; }
    KeyboardLayout& keyboardLayout() override { return layout_; }
    MainQueue& mainQueue() override { return mainQueue_; }
    AppFolders& folders() override { return folders_; }
    Autostart& autostart() override { return autostart_; }
    WindowHints& windowHints() override { return *hints_; }
    std::unique_ptr<SecretStore> openSecretStore(Log& log) override;
    std::vector<Limitation> limitations() override;

private:
    explicit WaylandPlatform(Log& log);

    Log& log_;
    QtMainQueue mainQueue_;
    XdgAppFolders folders_;
    XdgAutostart autostart_;
    UsKeyboardLayout layout_;
    // The clipboard and the window list share one connection; each way of
    // typing has its own, since a compositor that refuses one answers with
    // a protocol error that ends the connection it came on.
    std::unique_ptr<WaylandConnection> wayland_;
    std::vector<std::unique_ptr<WaylandConnection>> typingConnections_;
    std::unique_ptr<DataControlPasteboard> pasteboard_;
    std::unique_ptr<ForeignToplevels> toplevels_;
    std::vector<std::unique_ptr<KeyTyper>> typers_;
    std::unique_ptr<WaylandDesktop> desktop_;
    std::unique_ptr<GlobalHotKey> hotKey_;
    std::unique_ptr<WindowHints> hints_;
    bool portalShortcuts_ = false;
};

}  // namespace zettly
