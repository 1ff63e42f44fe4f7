#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace zettly {

// A top-level window of some application, as the history window remembers
// the one that was in front before it opened.
struct AppWindow {
    std::uint64_t id = 0;              // the X11 window on Linux
    std::optional<std::string> appId;  // as Workspace::frontmostApplicationId
    bool operator==(const AppWindow&) const = default;
};

// What the history window needs from the desktop besides its own windows:
// screens, the pointer, the window in front and synthetic key presses.
class Desktop {
public:
    virtual ~Desktop() = default;

    // Every screen; the first is the main one. Empty when none is known.
    virtual std::vector<ScreenInfo> screens() = 0;
    virtual Point mouseLocation() = 0;

    virtual std::optional<AppWindow> frontmostWindow() = 0;
    // Brings the window to the front and gives it the keyboard.
    virtual void activate(const AppWindow& window) = 0;

    // Whether this process may type into other applications (on X11: the
    // XTEST extension is there).
    virtual bool canSendKeys() = 0;
    // Presses and releases the paste shortcut in the window in front:
    // Ctrl+V, or Ctrl+Shift+V for terminal emulators.
    virtual void sendPasteKeystroke(bool withShift) = 0;
};

}  // namespace zettly
