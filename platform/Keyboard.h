#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zettly {

// Keys are named by their Mac virtual key codes (positions on the keyboard,
// not characters) and modifiers by Carbon's mask bits, so that stored
// shortcuts and the key tables read the same on every system. The Linux
// layer maps them: Command = Ctrl, Option = Alt, Control = Super.
namespace keycode {
inline constexpr std::uint32_t a = 0;
inline constexpr std::uint32_t v = 9;
inline constexpr std::uint32_t q = 12;
inline constexpr std::uint32_t e = 14;
inline constexpr std::uint32_t y = 16;
inline constexpr std::uint32_t one = 18;
inline constexpr std::uint32_t p = 35;
inline constexpr std::uint32_t returnKey = 36;
inline constexpr std::uint32_t k = 40;
inline constexpr std::uint32_t comma = 43;
inline constexpr std::uint32_t n = 45;
inline constexpr std::uint32_t tab = 48;
inline constexpr std::uint32_t space = 49;
inline constexpr std::uint32_t deleteKey = 51;  // Backspace
inline constexpr std::uint32_t escape = 53;
inline constexpr std::uint32_t keypadEnter = 76;
inline constexpr std::uint32_t home = 115;
inline constexpr std::uint32_t pageUp = 116;
inline constexpr std::uint32_t end = 119;
inline constexpr std::uint32_t pageDown = 121;
inline constexpr std::uint32_t downArrow = 125;
inline constexpr std::uint32_t upArrow = 126;
}  // namespace keycode

namespace modifier {
inline constexpr std::uint32_t command = 256;  // Ctrl on Linux
inline constexpr std::uint32_t shift = 512;
inline constexpr std::uint32_t option = 2048;   // Alt
inline constexpr std::uint32_t control = 4096;  // Super
inline constexpr std::uint32_t all = command | shift | option | control;
}  // namespace modifier

// One key press as the history window's key table sees it.
struct KeyPress {
    std::uint32_t keyCode = 0;
    std::uint32_t modifiers = 0;  // Carbon mask
    // What the key types in the current layout without modifiers
    // ("1" for the 1 key even with Ctrl held); may be empty.
    std::string characters;
};

// The physical keys of a Linux keyboard, as the kernel's evdev codes (the
// X11 key code is this + 8), and the Mac key code at the same position.
std::optional<std::uint32_t> evdevFromMacKeyCode(std::uint32_t macKeyCode);
std::optional<std::uint32_t> macKeyCodeFromEvdev(std::uint32_t evdevCode);

// The user's current keyboard layout.
class KeyboardLayout {
public:
    virtual ~KeyboardLayout() = default;
    // The text the key at this position types without modifiers (UTF-8),
    // none for keys that type nothing.
    virtual std::optional<std::string> character(std::uint32_t macKeyCode) = 0;
};

}  // namespace zettly
