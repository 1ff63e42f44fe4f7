#pragma once

#include <memory>

#include "platform/Keyboard.h"
#include "platform/x11/XcbConnection.h"

struct xkb_context;

namespace zettly {

// What the keys type in the layout the user has selected right now. The
// keymap and the layout group are read from the X server on every call, so
// a layout switch (or setxkbmap) shows in the next answer.
class XkbKeyboardLayout final : public KeyboardLayout {
public:
    explicit XkbKeyboardLayout(XcbConnection& connection);
    ~XkbKeyboardLayout() override;
    XkbKeyboardLayout(const XkbKeyboardLayout&) = delete;
    XkbKeyboardLayout& operator=(const XkbKeyboardLayout&) = delete;

    // None for keys that type nothing, a dead key, or a control character
    // (Return, Tab, Escape, Backspace).
    std::optional<std::string> character(std::uint32_t macKeyCode) override;

private:
    xcb_connection_t* connection_;
    xkb_context* context_ = nullptr;
    bool usable_ = false;  // the server speaks XKB
};

}  // namespace zettly
