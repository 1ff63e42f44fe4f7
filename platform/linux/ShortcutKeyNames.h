#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/HotKeyCombo.h"

namespace zettly {

// How the shortcut's key is written where a desktop reads it. Most
// compositors and the shortcut portal name keys by XKB keysym, so the name
// is what the key types in the user's layout; Wayfire names the key's
// position by its kernel code. Only keys every such syntax can name are
// named: letters and digits as ASCII, US punctuation, Space, Return, Tab,
// Escape, Backspace, the editing and arrow keys and F1 to F12. None for
// any other key (a letter outside ASCII, a keypad key).
namespace keynames {

// The XKB keysym name without its prefix: "v", "1", "comma", "space",
// "Return", "F5".
std::optional<std::string> xkbName(std::uint32_t macKeyCode, KeyboardLayout& layout);

// The Linux input event name of the key's position: "KEY_V", "KEY_ENTER".
std::optional<std::string> evdevName(std::uint32_t macKeyCode);

// The trigger as the freedesktop shortcuts format writes it for the
// shortcut portal: CTRL, ALT, SHIFT, LOGO and the keysym, joined by "+"
// ("CTRL+ALT+v").
std::optional<std::string> portalTrigger(HotKeyCombo combo, KeyboardLayout& layout);
// The accelerator as GTK and GNOME Shell write it: "<Control>", "<Alt>",
// "<Shift>", "<Super>" and the keysym ("<Control><Alt>v").
std::optional<std::string> gtkAccelerator(HotKeyCombo combo, KeyboardLayout& layout);

}  // namespace keynames

}  // namespace zettly
