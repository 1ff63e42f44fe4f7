#pragma once

#include <QKeyEvent>

#include "platform/Keyboard.h"

namespace zettly {

// The key press as the history window's key table reads it: the physical
// key by its Mac key code, the modifiers as Carbon bits (Ctrl = command,
// Alt = option, Super = control) and the text the key types without
// modifiers in the user's layout. Events without a scan code (synthesised
// ones) are named by their Qt key instead.
KeyPress keyPressFrom(const QKeyEvent& event, KeyboardLayout* layout);

// Key code of a key that maps to no Mac key; matches nothing in the table.
inline constexpr std::uint32_t unknownKeyCode = 0xFFFF;

}  // namespace zettly
