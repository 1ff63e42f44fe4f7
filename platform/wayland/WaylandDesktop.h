#pragma once

#include <optional>
#include <vector>

#include "platform/Desktop.h"

namespace zettly {

class ForeignToplevels;
class KeyTyper;

// The desktop of a Wayland session. Screens come from Qt. The pointer does
// too, but Wayland tells a client where the pointer is only while it is over
// one of its own surfaces: mouseLocation() is where Qt last saw it over a
// Zettly window (the centre of the first screen before it ever was), so the
// history window opens where the user last used Zettly, not under the
// pointer.
//
// The window in front and its activation come from the compositor's window
// list where it offers one (ForeignToplevels); without it there is neither.
// The paste goes through the first of the typers that is ready, in the
// order given, so a backend puts the quiet ways (a virtual keyboard) before
// the one that asks the user (the RemoteDesktop portal).
class WaylandDesktop final : public Desktop {
public:
    // `toplevels` may be null; the typers are not owned and outlive us.
    WaylandDesktop(ForeignToplevels* toplevels, std::vector<KeyTyper*> typers);

    std::vector<ScreenInfo> screens() override;
    Point mouseLocation() override;

    std::optional<AppWindow> frontmostWindow() override;
    void activate(const AppWindow& window) override;

    bool canPaste() override;
    void paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) override;

private:
    KeyTyper* readyTyper();

    ForeignToplevels* toplevels_;
    std::vector<KeyTyper*> typers_;
};

}  // namespace zettly
