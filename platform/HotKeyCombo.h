#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Keyboard.h"

namespace zettly {

// A global shortcut as stored: the Mac virtual key code (a key position, not
// a character) and the Carbon modifier mask, so that preferences written on
// any system read the same. The Linux layer maps both to X11 when it grabs.
struct HotKeyCombo {
    static constexpr std::uint32_t command = modifier::command;
    static constexpr std::uint32_t shift = modifier::shift;
    static constexpr std::uint32_t option = modifier::option;
    static constexpr std::uint32_t control = modifier::control;

    std::uint32_t keyCode = keycode::v;
    std::uint32_t modifiers = option;

    bool operator==(const HotKeyCombo&) const = default;

    // The modifier keys a key event carries, by their Linux names.
    struct ModifierKeys {
        bool ctrl = false;
        bool alt = false;
        bool shift = false;
        bool super = false;
    };
    // Ctrl → command, Alt → option, Super → control, Shift → shift.
    static std::uint32_t carbon(ModifierKeys keys);

    // As the user reads it on Linux: "Ctrl+", "Alt+", "Shift+", "Super+" for
    // the bits that are set, in that order, then the key's name ("Alt+V").
    std::string display(KeyboardLayout& layout, std::string_view spaceName = "Space") const;
    // Return, Space, Backspace and Esc by name; any other key as the
    // character it types in the current layout, upper-cased; "?" when the
    // key types nothing.
    static std::string keyName(std::uint32_t keyCode, KeyboardLayout& layout,
                               std::string_view spaceName = "Space");

    // One key press while the settings record a new shortcut.
    enum class Recording {
        ignore,  // no modifier, or Shift alone: keep waiting
        cancel,  // Escape: stop without a change
        save,    // Ctrl, Alt or Super held: store {keyCode, modifiers}
    };
    static Recording record(std::uint32_t keyCode, std::uint32_t modifiers);
};

}  // namespace zettly
