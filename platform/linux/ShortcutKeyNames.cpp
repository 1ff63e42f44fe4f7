#include "platform/linux/ShortcutKeyNames.h"

#include <utility>

namespace zettly::keynames {

namespace {

struct NamedKey {
    std::uint32_t macKeyCode;
    const char* xkb;
    const char* evdev;
};

// Keys that type nothing, or whitespace.
constexpr NamedKey namedKeys[] = {
    {36, "Return", "KEY_ENTER"},
    {48, "Tab", "KEY_TAB"},
    {49, "space", "KEY_SPACE"},
    {51, "BackSpace", "KEY_BACKSPACE"},
    {53, "Escape", "KEY_ESC"},
    {114, "Insert", "KEY_INSERT"},
    {115, "Home", "KEY_HOME"},
    {116, "Page_Up", "KEY_PAGEUP"},
    {117, "Delete", "KEY_DELETE"},
    {119, "End", "KEY_END"},
    {121, "Page_Down", "KEY_PAGEDOWN"},
    {123, "Left", "KEY_LEFT"},
    {124, "Right", "KEY_RIGHT"},
    {125, "Down", "KEY_DOWN"},
    {126, "Up", "KEY_UP"},
    {122, "F1", "KEY_F1"},
    {120, "F2", "KEY_F2"},
    {99, "F3", "KEY_F3"},
    {118, "F4", "KEY_F4"},
    {96, "F5", "KEY_F5"},
    {97, "F6", "KEY_F6"},
    {98, "F7", "KEY_F7"},
    {100, "F8", "KEY_F8"},
    {101, "F9", "KEY_F9"},
    {109, "F10", "KEY_F10"},
    {103, "F11", "KEY_F11"},
    {111, "F12", "KEY_F12"},
};

// ASCII punctuation by the keysym and the US key position that types it.
constexpr std::pair<char, const char*> punctuation[] = {
    {'-', "minus"},     {'=', "equal"},       {'[', "bracketleft"}, {']', "bracketright"},
    {';', "semicolon"}, {'\'', "apostrophe"}, {'`', "grave"},       {'\\', "backslash"},
    {',', "comma"},     {'.', "period"},      {'/', "slash"},       {'<', "less"},
};
constexpr std::pair<std::uint32_t, const char*> punctuationKeys[] = {
    {12, "KEY_MINUS"},     {13, "KEY_EQUAL"},      {26, "KEY_LEFTBRACE"}, {27, "KEY_RIGHTBRACE"},
    {39, "KEY_SEMICOLON"}, {40, "KEY_APOSTROPHE"}, {41, "KEY_GRAVE"},     {43, "KEY_BACKSLASH"},
    {51, "KEY_COMMA"},     {52, "KEY_DOT"},        {53, "KEY_SLASH"},     {86, "KEY_102ND"},
};

const NamedKey* namedKey(std::uint32_t macKeyCode) {
    for (const NamedKey& key : namedKeys)
        if (key.macKeyCode == macKeyCode)
            return &key;
    return nullptr;
}

// The evdev code of a key in the typing block (digits, letters,
// punctuation): the keypad types digits too, but under other names.
std::optional<std::uint32_t> typingKey(std::uint32_t macKeyCode) {
    auto evdev = evdevFromMacKeyCode(macKeyCode);
    if (!evdev)
        return std::nullopt;
    const std::uint32_t code = *evdev;
    bool typing = (code >= 2 && code <= 13) || (code >= 16 && code <= 27) ||
                  (code >= 30 && code <= 41) || (code >= 43 && code <= 53) || code == 86;
    return typing ? evdev : std::nullopt;
}

bool asciiLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::optional<std::string> xkbName(std::uint32_t macKeyCode, KeyboardLayout& layout) {
    if (const NamedKey* key = namedKey(macKeyCode))
        return key->xkb;
    if (!typingKey(macKeyCode))
        return std::nullopt;
    std::optional<std::string> typed = layout.character(macKeyCode);
    if (!typed || typed->size() != 1)
        return std::nullopt;
    const char c = (*typed)[0];
    if (asciiLetterOrDigit(c))
        return std::string(1, lower(c));
    for (const auto& [character, name] : punctuation)
        if (character == c)
            return name;
    return std::nullopt;
}

std::optional<std::string> evdevName(std::uint32_t macKeyCode) {
    if (const NamedKey* key = namedKey(macKeyCode))
        return key->evdev;
    auto evdev = typingKey(macKeyCode);
    if (!evdev)
        return std::nullopt;
    for (const auto& [code, name] : punctuationKeys)
        if (code == *evdev)
            return name;
    // Letters and digits are named after the US key at the same position.
    static const char* const rows[] = {"1234567890", "QWERTYUIOP", "ASDFGHJKL", "ZXCVBNM"};
    static constexpr std::uint32_t rowStarts[] = {2, 16, 30, 44};
    for (std::size_t row = 0; row < 4; ++row) {
        const std::string keys = rows[row];
        if (*evdev >= rowStarts[row] && *evdev < rowStarts[row] + keys.size())
            return std::string("KEY_") + keys[*evdev - rowStarts[row]];
    }
    return std::nullopt;
}

std::optional<std::string> portalTrigger(HotKeyCombo combo, KeyboardLayout& layout) {
    auto key = xkbName(combo.keyCode, layout);
    if (!key)
        return std::nullopt;
    std::string trigger;
    if (combo.modifiers & HotKeyCombo::command)
        trigger += "CTRL+";
    if (combo.modifiers & HotKeyCombo::option)
        trigger += "ALT+";
    if (combo.modifiers & HotKeyCombo::shift)
        trigger += "SHIFT+";
    if (combo.modifiers & HotKeyCombo::control)
        trigger += "LOGO+";
    return trigger + *key;
}

std::optional<std::string> gtkAccelerator(HotKeyCombo combo, KeyboardLayout& layout) {
    auto key = xkbName(combo.keyCode, layout);
    if (!key)
        return std::nullopt;
    std::string accelerator;
    if (combo.modifiers & HotKeyCombo::command)
        accelerator += "<Control>";
    if (combo.modifiers & HotKeyCombo::option)
        accelerator += "<Alt>";
    if (combo.modifiers & HotKeyCombo::shift)
        accelerator += "<Shift>";
    if (combo.modifiers & HotKeyCombo::control)
        accelerator += "<Super>";
    return accelerator + *key;
}

}  // namespace zettly::keynames
