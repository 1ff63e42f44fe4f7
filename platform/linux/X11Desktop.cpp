#include "platform/linux/X11Desktop.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <unistd.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include "platform/linux/QtGeometry.h"
#include "platform/linux/X11Workspace.h"

namespace zettly {

namespace {

// Standard PC positions (evdev code + 8) for the rare keymap that lacks a
// keysym, e.g. a layout with no Latin group at all for 'v'.
constexpr xcb_keycode_t kControlLFallback = 29 + 8;
constexpr xcb_keycode_t kShiftLFallback = 42 + 8;
constexpr xcb_keycode_t kVFallback = 47 + 8;

xcb_keycode_t keycodeFor(xcb_key_symbols_t* symbols, xcb_keysym_t keysym, xcb_keycode_t fallback) {
    if (!symbols)
        return fallback;
    std::unique_ptr<xcb_keycode_t, decltype(&std::free)> codes(
        xcb_key_symbols_get_keycode(symbols, keysym), std::free);
    if (!codes || *codes == XCB_NO_SYMBOL)
        return fallback;
    return *codes;
}

// Errors of requests without replies would otherwise land in the event
// queue that the selection reader shares; the window may be gone by now.
void discardError(xcb_connection_t* c, xcb_void_cookie_t cookie) {
    std::free(xcb_request_check(c, cookie));
}

}  // namespace

X11Desktop::X11Desktop(XcbConnection& connection, std::string ownAppId)
    : connection_(connection), ownAppId_(std::move(ownAppId)) {}

std::vector<ScreenInfo> X11Desktop::screens() {
    std::vector<ScreenInfo> out;
    QScreen* primary = QGuiApplication::primaryScreen();
    auto add = [&](QScreen* screen) {
        out.push_back(ScreenInfo{qtgeometry::fromQt(screen->geometry()),
                                 qtgeometry::fromQt(screen->availableGeometry())});
    };
    if (primary)
        add(primary);
    for (QScreen* screen : QGuiApplication::screens())
        if (screen != primary)
            add(screen);
    return out;
}

Point X11Desktop::mouseLocation() {
    return qtgeometry::fromQt(QCursor::pos());
}

std::optional<AppWindow> X11Desktop::frontmostWindow() {
    auto window = X11Workspace::activeWindow(connection_);
    if (!window)
        return std::nullopt;
    AppWindow out{*window, std::nullopt};
    auto pid = connection_.property32(*window, connection_.atom("_NET_WM_PID"), XCB_ATOM_CARDINAL);
    if (pid && *pid == static_cast<std::uint32_t>(::getpid()))
        out.appId = ownAppId_;
    else
        out.appId = X11Workspace::applicationId(connection_, *window);
    return out;
}

bool X11Desktop::windowManagerActivates() {
    XcbConnection& x = connection_;
    if (!x.property32(x.root(), x.atom("_NET_SUPPORTING_WM_CHECK"), XCB_ATOM_WINDOW))
        return false;
    auto supported = x.property(x.root(), x.atom("_NET_SUPPORTED"), XCB_ATOM_ATOM);
    if (!supported)
        return false;
    xcb_atom_t wanted = x.atom("_NET_ACTIVE_WINDOW");
    for (std::size_t at = 0; at + 4 <= supported->size(); at += 4) {
        xcb_atom_t atom = 0;
        std::memcpy(&atom, supported->data() + at, 4);
        if (atom == wanted)
            return true;
    }
    return false;
}

void X11Desktop::activate(const AppWindow& window) {
    xcb_connection_t* c = connection_.get();
    auto target = static_cast<xcb_window_t>(window.id);
    if (target == XCB_WINDOW_NONE)
        return;
    if (windowManagerActivates()) {
        xcb_client_message_event_t event{};
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = target;
        event.type = connection_.atom("_NET_ACTIVE_WINDOW");
        // Source 2 ("pager") asks as the user's agent; window managers' focus
        // stealing prevention refuses requests from plain applications.
        event.data.data32[0] = 2;
        event.data.data32[1] = XCB_CURRENT_TIME;
        xcb_send_event(c, 0, connection_.root(),
                       XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT,
                       reinterpret_cast<const char*>(&event));
    } else {
        // No window manager (or one without EWMH) to ask: do its job.
        const std::uint32_t above = XCB_STACK_MODE_ABOVE;
        discardError(c,
                     xcb_configure_window_checked(c, target, XCB_CONFIG_WINDOW_STACK_MODE, &above));
        discardError(
            c, xcb_set_input_focus_checked(c, XCB_INPUT_FOCUS_PARENT, target, XCB_CURRENT_TIME));
    }
    xcb_flush(c);
}

bool X11Desktop::canSendKeys() {
    if (!hasXTest_) {
        const xcb_query_extension_reply_t* xtest =
            xcb_get_extension_data(connection_.get(), &xcb_test_id);
        hasXTest_ = xtest && xtest->present;
    }
    return *hasXTest_;
}

void X11Desktop::sendPasteKeystroke(bool withShift) {
    if (!canSendKeys())
        return;
    xcb_connection_t* c = connection_.get();
    // Read afresh each time: the user may have switched layouts since.
    std::unique_ptr<xcb_key_symbols_t, decltype(&xcb_key_symbols_free)> symbols(
        xcb_key_symbols_alloc(c), xcb_key_symbols_free);
    std::vector<xcb_keycode_t> keys{
        keycodeFor(symbols.get(), XKB_KEY_Control_L, kControlLFallback)};
    if (withShift)
        keys.push_back(keycodeFor(symbols.get(), XKB_KEY_Shift_L, kShiftLFallback));
    keys.push_back(keycodeFor(symbols.get(), XKB_KEY_v, kVFallback));

    auto fake = [&](std::uint8_t type, xcb_keycode_t key) {
        xcb_test_fake_input(c, type, key, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    };
    for (xcb_keycode_t key : keys)
        fake(XCB_KEY_PRESS, key);
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        fake(XCB_KEY_RELEASE, *key);
    xcb_flush(c);
}

}  // namespace zettly
