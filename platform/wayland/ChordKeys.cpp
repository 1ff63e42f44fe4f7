#include "platform/wayland/ChordKeys.h"

#include <algorithm>
#include <memory>
#include <string>

#include <xkbcommon/xkbcommon.h>

namespace zettly {

namespace {

// xkbcommon numbers keys as X does: the evdev code plus 8.
constexpr std::uint32_t kEvdevOffset = 8;

// evdev codes of linux/input-event-codes.h.
constexpr std::uint32_t kKeyLeftCtrl = 29;
constexpr std::uint32_t kKeyLeftShift = 42;
constexpr std::uint32_t kKeyV = 47;
constexpr std::uint32_t kKeyInsert = 110;
constexpr std::uint32_t kKeyRightShift = 54;
constexpr std::uint32_t kKeyLeftAlt = 56;
constexpr std::uint32_t kKeyRightCtrl = 97;
constexpr std::uint32_t kKeyRightAlt = 100;
constexpr std::uint32_t kKeyLeftMeta = 125;
constexpr std::uint32_t kKeyRightMeta = 126;

constexpr xkb_keysym_t kModifierKeysyms[] = {
    XKB_KEY_Shift_L, XKB_KEY_Shift_R, XKB_KEY_Control_L,        XKB_KEY_Control_R,
    XKB_KEY_Alt_L,   XKB_KEY_Alt_R,   XKB_KEY_Super_L,          XKB_KEY_Super_R,
    XKB_KEY_Meta_L,  XKB_KEY_Meta_R,  XKB_KEY_ISO_Level3_Shift,
};

// The first key (lowest code) that gives `keysym` in the first layout group
// at any shift level; a key reached by Shift still has the keysym's place.
std::optional<std::uint32_t> evdevCodeOf(xkb_keymap* keymap, xkb_keysym_t keysym) {
    for (xkb_keycode_t key = xkb_keymap_min_keycode(keymap); key <= xkb_keymap_max_keycode(keymap);
         ++key) {
        if (key < kEvdevOffset)
            continue;
        const xkb_level_index_t levels = xkb_keymap_num_levels_for_key(keymap, key, 0);
        for (xkb_level_index_t level = 0; level < levels; ++level) {
            const xkb_keysym_t* syms = nullptr;
            int count = xkb_keymap_key_get_syms_by_level(keymap, key, 0, level, &syms);
            for (int i = 0; i < count; ++i)
                if (syms[i] == keysym)
                    return key - kEvdevOffset;
        }
    }
    return std::nullopt;
}

std::uint32_t maskOf(xkb_keymap* keymap, const char* name, std::uint32_t fallback) {
    xkb_mod_index_t index = xkb_keymap_mod_get_index(keymap, name);
    return index == XKB_MOD_INVALID ? fallback : (1u << index);
}

}  // namespace

ChordKeys ChordKeys::pc105() {
    // Shift and Control are the core modifiers 0 and 2 in every XKB keymap.
    return ChordKeys{kKeyLeftCtrl,
                     kKeyLeftShift,
                     kKeyV,
                     kKeyInsert,
                     1u << 2,
                     1u << 0,
                     {kKeyLeftCtrl, kKeyRightCtrl, kKeyLeftShift, kKeyRightShift, kKeyLeftAlt,
                      kKeyRightAlt, kKeyLeftMeta, kKeyRightMeta}};
}

ChordKeys ChordKeys::of(xkb_keymap* keymap) {
    ChordKeys keys = pc105();
    if (!keymap)
        return keys;
    keys.control = evdevCodeOf(keymap, XKB_KEY_Control_L).value_or(keys.control);
    keys.shift = evdevCodeOf(keymap, XKB_KEY_Shift_L).value_or(keys.shift);
    keys.v = evdevCodeOf(keymap, XKB_KEY_v).value_or(keys.v);
    keys.insert = evdevCodeOf(keymap, XKB_KEY_Insert).value_or(keys.insert);
    keys.controlMask = maskOf(keymap, XKB_MOD_NAME_CTRL, keys.controlMask);
    keys.shiftMask = maskOf(keymap, XKB_MOD_NAME_SHIFT, keys.shiftMask);
    keys.modifierKeys.clear();
    for (xkb_keysym_t keysym : kModifierKeysyms)
        if (auto code = evdevCodeOf(keymap, keysym);
            code && std::find(keys.modifierKeys.begin(), keys.modifierKeys.end(), *code) ==
                        keys.modifierKeys.end())
            keys.modifierKeys.push_back(*code);
    return keys;
}

ChordKeys::Press ChordKeys::press(PasteChord chord) const {
    switch (chord) {
        case PasteChord::ctrlV:
            return {{control}, v, controlMask};
        case PasteChord::ctrlShiftV:
            return {{control, shift}, v, controlMask | shiftMask};
        case PasteChord::shiftInsert:
            return {{shift}, insert, shiftMask};
    }
    return {{control}, v, controlMask};
}

void XkbKeymapDeleter::operator()(xkb_keymap* keymap) const {
    xkb_keymap_unref(keymap);
}

namespace {

std::unique_ptr<xkb_context, decltype(&xkb_context_unref)> newContext() {
    return {xkb_context_new(XKB_CONTEXT_NO_FLAGS), xkb_context_unref};
}

}  // namespace

XkbKeymapPtr compileKeymap(std::string_view layout, std::string_view variant) {
    auto context = newContext();
    if (!context)
        return nullptr;
    const std::string layoutName(layout), variantName(variant);
    const xkb_rule_names names{"evdev", "pc105", layoutName.c_str(), variantName.c_str(), ""};
    return XkbKeymapPtr(
        xkb_keymap_new_from_names(context.get(), &names, XKB_KEYMAP_COMPILE_NO_FLAGS));
}

XkbKeymapPtr keymapFromString(std::string_view text) {
    // wl_keyboard counts the terminating NUL in the keymap's size.
    while (!text.empty() && text.back() == '\0')
        text.remove_suffix(1);
    auto context = newContext();
    if (!context)
        return nullptr;
    return XkbKeymapPtr(xkb_keymap_new_from_buffer(context.get(), text.data(), text.size(),
                                                   XKB_KEYMAP_FORMAT_TEXT_V1,
                                                   XKB_KEYMAP_COMPILE_NO_FLAGS));
}

}  // namespace zettly
