#pragma once

#include "platform/PasteChord.h"

namespace zettly {

// One way of pressing keys in whatever window has the keyboard, as a
// Wayland session offers several (a virtual keyboard, KWin's fake input, the
// RemoteDesktop portal) and a backend takes the first that works. Main
// thread.
class KeyTyper {
public:
    virtual ~KeyTyper() = default;
    // Whether type() can reach other applications now (a way the compositor
    // refused, or a portal the user declined, is not).
    virtual bool ready() = 0;
    // Presses and releases the chord. Only the chord's own modifiers are
    // down while it is typed, whatever the user still holds.
    virtual void type(PasteChord chord) = 0;
};

}  // namespace zettly
