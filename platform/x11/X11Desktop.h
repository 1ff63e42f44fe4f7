#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <xcb/xcb.h>

#include "platform/Desktop.h"
#include "platform/MainQueue.h"
#include "platform/x11/XcbConnection.h"

namespace zettly {

// Screens and the pointer come from Qt; the window in front, activation and
// the synthetic paste go through our own X connection (EWMH and XTEST).
class X11Desktop final : public Desktop {
public:
    // How long a paste waits for the user to let go of the modifiers still
    // held from picking; after that they are lifted for the paste itself.
    static constexpr std::chrono::milliseconds modifierWait{2000};

    // `ownAppId` is what our own windows report: Qt does not always label
    // them with the desktop file name the rest of the program uses.
    // `fillPrimary` puts the clipboard's contents on the primary selection,
    // which Shift+Insert pastes.
    X11Desktop(XcbConnection& connection, std::string ownAppId, MainQueue& mainQueue,
               std::function<void()> fillPrimary = {});
    ~X11Desktop() override;

    std::vector<ScreenInfo> screens() override;
    Point mouseLocation() override;

    std::optional<AppWindow> frontmostWindow() override;
    void activate(const AppWindow& window) override;

    bool canPaste() override;
    void paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) override;

    // Presses and releases the chord at once: with `held` modifier keys
    // released around it when the user still holds them.
    void typeChord(PasteChord chord, const std::vector<xcb_keycode_t>& held = {});
    // The modifier keys (Shift, Ctrl, Alt, Super, AltGr) that are down now.
    std::vector<xcb_keycode_t> heldModifierKeys();

private:
    using SteadyClock = std::chrono::steady_clock;
    // Whether a window manager runs that takes _NET_ACTIVE_WINDOW requests.
    bool windowManagerActivates();
    void typeWhenModifiersUp(PasteChord chord, SteadyClock::time_point giveUpAt);

    XcbConnection& connection_;
    std::string ownAppId_;
    MainQueue& mainQueue_;
    std::function<void()> fillPrimary_;
    std::optional<bool> hasXTest_;
    // Lets a wait still queued on the main loop notice that we are gone.
    std::shared_ptr<X11Desktop*> self_;
};

}  // namespace zettly
