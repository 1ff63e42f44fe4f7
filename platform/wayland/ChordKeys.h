#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "platform/PasteChord.h"

struct xkb_keymap;

namespace zettly {

// Where the keys of the paste chords sit in one keymap, as evdev codes (the
// numbers the Wayland key requests take). A layout that moves V (Dvorak
// puts it on the key of US '.') moves it here too.
struct ChordKeys {
    std::uint32_t control = 0;
    std::uint32_t shift = 0;
    std::uint32_t v = 0;
    std::uint32_t insert = 0;
    // The keymap's own masks for Ctrl and Shift, as wl_keyboard.modifiers
    // and the virtual keyboard's modifiers request carry them.
    std::uint32_t controlMask = 0;
    std::uint32_t shiftMask = 0;
    // The keys that hold a modifier the user may still have down (Shift,
    // Ctrl, Alt, Super, AltGr, left and right).
    std::vector<std::uint32_t> modifierKeys;

    // Reads them from a keymap; a key the keymap lacks keeps its standard PC
    // position, so a layout with no Latin group still pastes where the
    // application reads the key's position.
    static ChordKeys of(xkb_keymap* keymap);
    // The standard PC positions, for a session whose keymap is unknown.
    static ChordKeys pc105();

    // The chord's keys: modifiers in the order they go down, then the key.
    struct Press {
        std::vector<std::uint32_t> modifiers;
        std::uint32_t key = 0;
        std::uint32_t modifierMask = 0;
    };
    Press press(PasteChord chord) const;
};

// A keymap compiled from RMLVO names ("us", "de", with a variant such as
// "dvorak"), with a context of its own; null when xkeyboard-config lacks
// the layout.
struct XkbKeymapDeleter {
    void operator()(xkb_keymap* keymap) const;
};
using XkbKeymapPtr = std::unique_ptr<xkb_keymap, XkbKeymapDeleter>;
XkbKeymapPtr compileKeymap(std::string_view layout, std::string_view variant = {});
// A keymap in the text format, as wl_keyboard.keymap hands it over.
XkbKeymapPtr keymapFromString(std::string_view text);

}  // namespace zettly
