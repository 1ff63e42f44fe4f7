#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "platform/PasteChord.h"

namespace zettly {

// A top-level window of some application, as the history window remembers
// the one that was in front before it opened.
struct AppWindow {
    std::uint64_t id = 0;              // the X11 window; 0 where windows have no id we can use
    std::optional<std::string> appId;  // as Workspace::frontmostApplicationId
    bool operator==(const AppWindow&) const = default;
};

// What the history window needs from the desktop besides its own windows:
// screens, the pointer, the window in front and the paste into it.
// Main thread.
class Desktop {
public:
    virtual ~Desktop() = default;

    // Every screen; the first is the main one. Empty when none is known.
    virtual std::vector<ScreenInfo> screens() = 0;
    virtual Point mouseLocation() = 0;

    virtual std::optional<AppWindow> frontmostWindow() = 0;
    // Brings the window to the front and gives it the keyboard.
    virtual void activate(const AppWindow& window) = 0;

    // Whether this session lets us type into other applications.
    virtual bool canPaste() = 0;
    // Types the paste shortcut into `target`, which is in front by now: the
    // one the user chose for its application in `chosen`, else the one its
    // kind of application takes (see pasteChordFor). The keys go out once
    // the user has let go of the modifiers still held from picking (Alt of
    // Alt+Return), so that the target never sees Ctrl+Alt+V.
    virtual void paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) = 0;
};

}  // namespace zettly
