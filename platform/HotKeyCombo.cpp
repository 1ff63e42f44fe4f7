#include "platform/HotKeyCombo.h"

#include <memory>
#include <utility>

#include "platform/Unicode.h"

namespace zettly {

namespace {

// Keys that type nothing, or whitespace, are named rather than shown.
constexpr std::pair<std::uint32_t, const char*> namedKeys[] = {
    {36, "Return"},     {51, "Backspace"}, {53, "Esc"},   {76, "Enter"}, {123, "Left"},
    {124, "Right"},     {125, "Down"},     {126, "Up"},   {122, "F1"},   {120, "F2"},
    {99, "F3"},         {118, "F4"},       {96, "F5"},    {97, "F6"},    {98, "F7"},
    {100, "F8"},        {101, "F9"},       {109, "F10"},  {103, "F11"},  {111, "F12"},
    {48, "Tab"},        {117, "Delete"},   {115, "Home"}, {119, "End"},  {116, "Page Up"},
    {121, "Page Down"}, {114, "Insert"},
};

}  // namespace

std::uint32_t HotKeyCombo::carbon(ModifierKeys keys) {
    std::uint32_t mask = 0;
    if (keys.ctrl)
        mask |= command;
    if (keys.alt)
        mask |= option;
    if (keys.shift)
        mask |= shift;
    if (keys.super)
        mask |= control;
    return mask;
}

std::string HotKeyCombo::display(KeyboardLayout& layout, std::string_view spaceName) const {
    std::string text;
    if (modifiers & command)
        text += "Ctrl+";
    if (modifiers & option)
        text += "Alt+";
    if (modifiers & shift)
        text += "Shift+";
    if (modifiers & control)
        text += "Super+";
    return text + keyName(keyCode, layout, spaceName);
}

std::string HotKeyCombo::keyName(std::uint32_t keyCode, KeyboardLayout& layout,
                                 std::string_view spaceName) {
    if (keyCode == keycode::space)
        return std::string(spaceName);
    for (const auto& [code, name] : namedKeys)
        if (code == keyCode)
            return name;
    std::optional<std::string> typed = layout.character(keyCode);
    if (!typed || typed->empty())
        return "?";
    return unicode::uppercased(*typed);
}

HotKeyCombo::Recording HotKeyCombo::record(std::uint32_t keyCode, std::uint32_t modifiers) {
    if (keyCode == keycode::escape)
        return Recording::cancel;
    // A shortcut without Ctrl, Alt or Super would swallow plain typing in
    // every application.
    if (modifiers & (command | option | control))
        return Recording::save;
    return Recording::ignore;
}

}  // namespace zettly
