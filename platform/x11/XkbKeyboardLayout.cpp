#include "platform/x11/XkbKeyboardLayout.h"

#include <array>

#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace zettly {

XkbKeyboardLayout::XkbKeyboardLayout(XcbConnection& connection) : connection_(connection.get()) {
    usable_ = xkb_x11_setup_xkb_extension(
                  connection_, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                  XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr) == 1;
    // The keymap comes whole from the server; no rule files are looked up.
    context_ = xkb_context_new(static_cast<xkb_context_flags>(XKB_CONTEXT_NO_DEFAULT_INCLUDES |
                                                              XKB_CONTEXT_NO_ENVIRONMENT_NAMES));
}

XkbKeyboardLayout::~XkbKeyboardLayout() {
    xkb_context_unref(context_);
}

std::optional<std::string> XkbKeyboardLayout::character(std::uint32_t macKeyCode) {
    auto evdev = evdevFromMacKeyCode(macKeyCode);
    if (!usable_ || !context_ || !evdev)
        return std::nullopt;
    std::int32_t device = xkb_x11_get_core_keyboard_device_id(connection_);
    if (device < 0)
        return std::nullopt;
    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap(
        xkb_x11_keymap_new_from_device(context_, connection_, device, XKB_KEYMAP_COMPILE_NO_FLAGS),
        xkb_keymap_unref);
    if (!keymap)
        return std::nullopt;
    std::unique_ptr<xkb_state, decltype(&xkb_state_unref)> state(
        xkb_x11_state_new_from_device(keymap.get(), connection_, device), xkb_state_unref);
    if (!state)
        return std::nullopt;
    // Keep the layout group the user is in, drop every modifier (a held or
    // locked Shift or Caps Lock must not turn "v" into "V").
    xkb_layout_index_t group = xkb_state_serialize_layout(state.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    xkb_state_update_mask(state.get(), 0, 0, 0, 0, 0, group);

    std::array<char, 64> text{};
    int length = xkb_state_key_get_utf8(state.get(), *evdev + 8, text.data(), text.size());
    if (length <= 0 || static_cast<std::size_t>(length) >= text.size())
        return std::nullopt;
    auto first = static_cast<unsigned char>(text[0]);
    if (length == 1 && (first < 0x20 || first == 0x7f))
        return std::nullopt;
    return std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace zettly
