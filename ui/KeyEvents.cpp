#include "ui/KeyEvents.h"

#include <array>
#include <optional>

namespace zettly {
namespace {

// Mac key codes of the letters A–Z and the digits 0–9 (ANSI positions).
constexpr std::array<std::uint32_t, 26> letterCodes = {
    0, 11, 8, 2, 14, 3, 5, 4, 34, 38, 40, 37, 46, 45, 31, 35, 12, 15, 1, 17, 32, 9, 13, 7, 16, 6};
constexpr std::array<std::uint32_t, 10> digitCodes = {29, 18, 19, 20, 21, 23, 22, 26, 28, 25};

std::optional<std::uint32_t> codeFromQtKey(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return letterCodes[std::size_t(key - Qt::Key_A)];
    if (key >= Qt::Key_0 && key <= Qt::Key_9)
        return digitCodes[std::size_t(key - Qt::Key_0)];
    switch (key) {
        case Qt::Key_Return:
            return keycode::returnKey;
        case Qt::Key_Enter:
            return keycode::keypadEnter;
        case Qt::Key_Tab:
        case Qt::Key_Backtab:
            return keycode::tab;
        case Qt::Key_Space:
            return keycode::space;
        case Qt::Key_Backspace:
            return keycode::deleteKey;
        case Qt::Key_Escape:
            return keycode::escape;
        case Qt::Key_Up:
            return keycode::upArrow;
        case Qt::Key_Down:
            return keycode::downArrow;
        case Qt::Key_Comma:
            return keycode::comma;
        case Qt::Key_Home:
            return keycode::home;
        case Qt::Key_End:
            return keycode::end;
        case Qt::Key_PageUp:
            return keycode::pageUp;
        case Qt::Key_PageDown:
            return keycode::pageDown;
        default:
            return std::nullopt;
    }
}

std::string charactersFromQtKey(int key) {
    if (key >= Qt::Key_A && key <= Qt::Key_Z)
        return std::string(1, char('a' + (key - Qt::Key_A)));
    if ((key >= Qt::Key_0 && key <= Qt::Key_9) || key == Qt::Key_Comma)
        return std::string(1, char(key));
    return {};
}

}  // namespace

KeyPress keyPressFrom(const QKeyEvent& event, KeyboardLayout* layout) {
    KeyPress press;
    std::optional<std::uint32_t> code;
    // X11 key codes are the kernel's evdev codes plus 8.
    if (event.nativeScanCode() > 8)
        code = macKeyCodeFromEvdev(event.nativeScanCode() - 8);
    if (!code)
        code = codeFromQtKey(event.key());
    press.keyCode = code.value_or(unknownKeyCode);

    const Qt::KeyboardModifiers held = event.modifiers();
    if (held & Qt::ControlModifier)
        press.modifiers |= modifier::command;
    if (held & Qt::AltModifier)
        press.modifiers |= modifier::option;
    if (held & Qt::MetaModifier)
        press.modifiers |= modifier::control;
    if ((held & Qt::ShiftModifier) || event.key() == Qt::Key_Backtab)
        press.modifiers |= modifier::shift;

    if (layout && code)
        press.characters = layout->character(*code).value_or(std::string());
    else
        press.characters = charactersFromQtKey(event.key());
    return press;
}

}  // namespace zettly
