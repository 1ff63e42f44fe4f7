#include "platform/x11/X11Desktop.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <unistd.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include "platform/linux/QtScreens.h"
#include "platform/x11/X11Workspace.h"

namespace zettly {

namespace {

// Standard PC positions (evdev code + 8) for the rare keymap that lacks a
// keysym, e.g. a layout with no Latin group at all for 'v'.
constexpr xcb_keycode_t kControlLFallback = 29 + 8;
constexpr xcb_keycode_t kShiftLFallback = 42 + 8;
constexpr xcb_keycode_t kVFallback = 47 + 8;
constexpr xcb_keycode_t kInsertFallback = 110 + 8;

// The modifiers a held key would add to the chord: Shift, Control, Mod1
// (Alt), Mod3, Mod4 (Super) and Mod5 (AltGr). Lock and Mod2 (NumLock) are
// toggled, not held.
constexpr int kHeldModifierRows[] = {0, 2, 3, 5, 6, 7};
constexpr double kModifierPoll = 0.02;

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

X11Desktop::X11Desktop(XcbConnection& connection, std::string ownAppId, MainQueue& mainQueue,
                       std::function<void()> fillPrimary)
    : connection_(connection),
      ownAppId_(std::move(ownAppId)),
      mainQueue_(mainQueue),
      fillPrimary_(std::move(fillPrimary)),
      self_(std::make_shared<X11Desktop*>(this)) {}

X11Desktop::~X11Desktop() {
    *self_ = nullptr;
}

std::vector<ScreenInfo> X11Desktop::screens() {
    return qtscreens::screens();
}

Point X11Desktop::mouseLocation() {
    return qtscreens::pointer();
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

bool X11Desktop::canPaste() {
    if (!hasXTest_) {
        const xcb_query_extension_reply_t* xtest =
            xcb_get_extension_data(connection_.get(), &xcb_test_id);
        hasXTest_ = xtest && xtest->present;
    }
    return *hasXTest_;
}

void X11Desktop::paste(const AppWindow& target, const std::vector<PasteChordChoice>& chosen) {
    if (!canPaste())
        return;
    PasteChord chord = pasteChordFor(target.appId, chosen);
    if (chord == PasteChord::shiftInsert && fillPrimary_)
        fillPrimary_();
    typeWhenModifiersUp(chord, SteadyClock::now() + modifierWait);
}

void X11Desktop::typeWhenModifiersUp(PasteChord chord, SteadyClock::time_point giveUpAt) {
    std::vector<xcb_keycode_t> held = heldModifierKeys();
    if (held.empty() || SteadyClock::now() >= giveUpAt) {
        // Still held after the wait: the user rests a finger on Alt. The
        // target must not see Ctrl+Alt+V all the same.
        typeChord(chord, held);
        return;
    }
    std::weak_ptr<X11Desktop*> weak = self_;
    mainQueue_.postAfter(kModifierPoll, [weak, chord, giveUpAt] {
        if (auto self = weak.lock(); self && *self)
            (*self)->typeWhenModifiersUp(chord, giveUpAt);
    });
}

std::vector<xcb_keycode_t> X11Desktop::heldModifierKeys() {
    xcb_connection_t* c = connection_.get();
    auto keymapCookie = xcb_query_keymap(c);
    auto mappingCookie = xcb_get_modifier_mapping(c);
    std::unique_ptr<xcb_query_keymap_reply_t, decltype(&std::free)> keymap(
        xcb_query_keymap_reply(c, keymapCookie, nullptr), std::free);
    std::unique_ptr<xcb_get_modifier_mapping_reply_t, decltype(&std::free)> mapping(
        xcb_get_modifier_mapping_reply(c, mappingCookie, nullptr), std::free);
    std::vector<xcb_keycode_t> held;
    if (!keymap || !mapping)
        return held;
    const xcb_keycode_t* codes = xcb_get_modifier_mapping_keycodes(mapping.get());
    const int perModifier = mapping->keycodes_per_modifier;
    for (int row : kHeldModifierRows) {
        for (int i = 0; i < perModifier; ++i) {
            xcb_keycode_t key = codes[row * perModifier + i];
            bool down = key && (keymap->keys[key / 8] & (1 << (key % 8)));
            if (down && std::find(held.begin(), held.end(), key) == held.end())
                held.push_back(key);
        }
    }
    return held;
}

void X11Desktop::typeChord(PasteChord chord, const std::vector<xcb_keycode_t>& held) {
    xcb_connection_t* c = connection_.get();
    // Read afresh each time: the user may have switched layouts since.
    std::unique_ptr<xcb_key_symbols_t, decltype(&xcb_key_symbols_free)> symbols(
        xcb_key_symbols_alloc(c), xcb_key_symbols_free);
    auto key = [&](xcb_keysym_t keysym, xcb_keycode_t fallback) {
        return keycodeFor(symbols.get(), keysym, fallback);
    };
    std::vector<xcb_keycode_t> keys;
    switch (chord) {
        case PasteChord::ctrlV:
            keys = {key(XKB_KEY_Control_L, kControlLFallback), key(XKB_KEY_v, kVFallback)};
            break;
        case PasteChord::ctrlShiftV:
            keys = {key(XKB_KEY_Control_L, kControlLFallback),
                    key(XKB_KEY_Shift_L, kShiftLFallback), key(XKB_KEY_v, kVFallback)};
            break;
        case PasteChord::shiftInsert:
            keys = {key(XKB_KEY_Shift_L, kShiftLFallback), key(XKB_KEY_Insert, kInsertFallback)};
            break;
    }

    auto fake = [&](std::uint8_t type, xcb_keycode_t code) {
        xcb_test_fake_input(c, type, code, XCB_CURRENT_TIME, XCB_WINDOW_NONE, 0, 0, 0);
    };
    for (xcb_keycode_t code : held)
        fake(XCB_KEY_RELEASE, code);
    for (xcb_keycode_t code : keys)
        fake(XCB_KEY_PRESS, code);
    for (auto code = keys.rbegin(); code != keys.rend(); ++code)
        fake(XCB_KEY_RELEASE, *code);
    // The server's state follows the keys the user still holds.
    for (xcb_keycode_t code : held)
        fake(XCB_KEY_PRESS, code);
    xcb_flush(c);
}

}  // namespace zettly
