// The history window's key table: what each key does while it is open.
#include <cctype>
#include <limits>
#include <string_view>
#include <utility>

#include "platform/Unicode.h"
#include "popup/PopupController.h"

namespace zettly {

namespace {

using Entry = PopupModel::Entry;

// The digit row by position: a layout whose digit row types other
// characters unshifted (French AZERTY types "&é\"'(" there) still reaches
// the rows with Ctrl and the key that is labelled with the digit.
int digitAtPosition(std::uint32_t keyCode) {
    constexpr std::pair<std::uint32_t, int> row[] = {{18, 1}, {19, 2}, {20, 3}, {21, 4}, {23, 5},
                                                     {22, 6}, {26, 7}, {28, 8}, {25, 9}};
    for (const auto& [code, digit] : row)
        if (code == keyCode)
            return digit;
    return 0;
}

// The shortcut letter a key press stands for. Layouts that type no Latin
// letters (Cyrillic, Greek, Hebrew) fall back to the key's position on a US
// keyboard, the way desktop shortcuts work for their users.
char shortcutCharacter(const KeyPress& key) {
    std::string typed = unicode::lowercased(key.characters);
    if (typed.size() == 1 && static_cast<unsigned char>(typed[0]) < 0x80)
        return typed[0];
    constexpr std::pair<std::uint32_t, char> positions[] = {
        {keycode::e, 'e'}, {keycode::n, 'n'}, {keycode::k, 'k'},
        {keycode::q, 'q'}, {keycode::y, 'y'}, {keycode::comma, ','},
    };
    if (!typed.empty() && static_cast<unsigned char>(typed[0]) >= 0x80)
        for (const auto& [code, c] : positions)
            if (code == key.keyCode)
                return c;
    return 0;
}

}  // namespace

// ---- keys -----------------------------------------------------------------

bool PopupController::handle(const KeyPress& key) {
    if (!keyMonitorActive() || !deps_.view.isPanelVisible())
        return false;
    const std::uint32_t mods = key.modifiers & modifier::all;
    const bool optionHeld = (mods & modifier::option) != 0;
    std::optional<Entry> selected = model_.selectedEntry();

    switch (key.keyCode) {
        case keycode::downArrow:
            model_.move(1);
            return true;
        case keycode::upArrow:
            model_.move(-1);
            return true;
        case keycode::pageDown:
            model_.move(deps_.view.rowsPerPage());
            return true;
        case keycode::pageUp:
            model_.move(-deps_.view.rowsPerPage());
            return true;
        case keycode::home:
        case keycode::end:
            // Alone they move the search field's cursor while it has text
            // to move in; with Ctrl they always go to the ends of the list.
            if (mods != modifier::command && (mods != 0 || !model_.query().empty()))
                return false;
            model_.move(key.keyCode == keycode::home ? std::numeric_limits<int>::min()
                                                     : std::numeric_limits<int>::max());
            return true;
        case keycode::returnKey:
        case keycode::keypadEnter:
            if (selected)
                pick(*selected, optionHeld);
            return true;
        case keycode::tab:
            if (!model_.filters().empty())
                model_.cycleFilter((mods & modifier::shift) ? -1 : 1);
            return true;
        case keycode::escape:
            if (deps_.view.isPreviewVisible()) {
                ++previewGeneration_;
                deps_.view.hidePreview();
            } else {
                close();
            }
            return true;
        case keycode::p:
            if (mods != modifier::option)
                return false;  // typed into the search field
            if (selected)
                togglePin(*selected);
            return true;
        case keycode::deleteKey:
            if (mods != modifier::option)
                return false;  // edits the search text
            if (selected)
                deleteEntry(*selected);
            return true;
        case keycode::space:
            if (mods != modifier::control)
                return false;
            togglePreview();
            return true;
        default:
            break;
    }

    if (mods != modifier::command)
        return false;
    char command = shortcutCharacter(key);
    int digit = command >= '1' && command <= '9' ? command - '0' : 0;
    if (!digit && !std::isalpha(static_cast<unsigned char>(command)) && command != ',')
        digit = digitAtPosition(key.keyCode);
    if (digit) {
        // Consumed even when the row does not exist, so Ctrl+digit never
        // reaches the search field.
        if (std::optional<Entry> row = model_.entry(digit - 1))
            pick(*row, false);
        return true;
    }
    switch (command) {
        case 'e':
            if (!selected)
                return false;
            editText(*selected);
            return true;
        case 'n':
            if (!selected)
                return false;
            editLabel(*selected);
            return true;
        case 'k':
            if (!selected)
                return false;
            showCategoryMenu(*selected);
            return true;
        case 'y':
            // Desktops commonly take Super+Space for switching input
            // sources; Ctrl+Y is the second way to the preview.
            togglePreview();
            return true;
        case ',':
            close();
            if (onOpenSettings)
                onOpenSettings();
            return true;
        case 'q':
            if (onQuit)
                onQuit();
            return true;
        default:
            return false;
    }
}

}  // namespace zettly
