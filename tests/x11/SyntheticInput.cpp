#include "tests/x11/SyntheticInput.h"

#include <QGuiApplication>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include "platform/Keyboard.h"

namespace zettly::test {

struct SyntheticInput::Connection {
    xcb_connection_t* c = nullptr;
    xcb_keycode_t alt = 0;
    xcb_keycode_t v = 0;
    ~Connection() {
        if (c)
            xcb_disconnect(c);
    }
};

SyntheticInput::SyntheticInput() : x11_(std::make_unique<Connection>()) {
    x11_->c = xcb_connect(nullptr, nullptr);
    if (!x11_->c || xcb_connection_has_error(x11_->c))
        throw std::runtime_error("no connection to the X server");
    const xcb_query_extension_reply_t* xtest = xcb_get_extension_data(x11_->c, &xcb_test_id);
    if (!xtest || !xtest->present)
        throw std::runtime_error("the X server has no XTEST extension");
    // The left Alt key as the keymap has it; Alt_L is Mod1 on every common
    // keymap, Xvfb's included.
    constexpr xcb_keysym_t altL = 0xffe9;
    xcb_key_symbols_t* symbols = xcb_key_symbols_alloc(x11_->c);
    xcb_keycode_t* codes = symbols ? xcb_key_symbols_get_keycode(symbols, altL) : nullptr;
    if (codes && codes[0] != XCB_NO_SYMBOL)
        x11_->alt = codes[0];
    std::free(codes);
    if (symbols)
        xcb_key_symbols_free(symbols);
    if (!x11_->alt)
        throw std::runtime_error("the keymap has no Alt_L key");
    auto v = evdevFromMacKeyCode(keycode::v);
    if (!v)
        throw std::runtime_error("no key code for V");
    x11_->v = xcb_keycode_t(*v + 8);
}

SyntheticInput::~SyntheticInput() = default;

void SyntheticInput::pressAltV() {
    xcb_connection_t* c = x11_->c;
    for (auto [type, key] : {std::pair{XCB_KEY_PRESS, x11_->alt},
                             {XCB_KEY_PRESS, x11_->v},
                             {XCB_KEY_RELEASE, x11_->v},
                             {XCB_KEY_RELEASE, x11_->alt}})
        xcb_test_fake_input(c, std::uint8_t(type), key, XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
    xcb_flush(c);
}

void SyntheticInput::qtRoundTrip() {
    auto* gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    auto* x11 = gui ? gui->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return;
    std::free(xcb_get_input_focus_reply(x11->connection(), xcb_get_input_focus(x11->connection()),
                                        nullptr));
}

}  // namespace zettly::test
