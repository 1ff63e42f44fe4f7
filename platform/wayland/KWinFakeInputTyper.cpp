#include "platform/wayland/KWinFakeInputTyper.h"

#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>

#include "platform/Log.h"
#include "platform/wayland/ChordKeys.h"
#include "platform/wayland/WaylandConnection.h"
#include "wayland/fake-input-client-protocol.h"

namespace zettly {

namespace {

// keyboard_key arrived in version 4 (Plasma 5.23).
constexpr std::uint32_t kKeysVersion = 4;
// wl_keyboard.key_state
constexpr std::uint32_t kReleased = 0;
constexpr std::uint32_t kPressed = 1;

}  // namespace

struct KWinFakeInputTyper::Input {
    explicit Input(Log& log) : log(log) {}

    Log& log;
    org_kde_kwin_fake_input* fake = nullptr;
    // A seat of our own, to hear its capabilities: asking a seat without a
    // keyboard for one is a protocol error.
    wl_seat* seat = nullptr;
    wl_keyboard* keyboard = nullptr;
    // The standard positions until KWin has sent its keymap.
    ChordKeys keys = ChordKeys::pc105();

    void destroy() {
        // The release requests need wl_seat 3 and 5; older seats only forget.
        if (keyboard && wl_keyboard_get_version(keyboard) >= WL_KEYBOARD_RELEASE_SINCE_VERSION)
            wl_keyboard_release(keyboard);
        else if (keyboard)
            wl_keyboard_destroy(keyboard);
        if (seat && wl_seat_get_version(seat) >= WL_SEAT_RELEASE_SINCE_VERSION)
            wl_seat_release(seat);
        else if (seat)
            wl_seat_destroy(seat);
        if (fake)
            org_kde_kwin_fake_input_destroy(fake);
        keyboard = nullptr;
        seat = nullptr;
        fake = nullptr;
    }
};

namespace {

using Input = KWinFakeInputTyper::Input;

void onKeymap(void* data, wl_keyboard*, std::uint32_t format, int fd, std::uint32_t size) {
    auto* input = static_cast<Input*>(data);
    if (format != WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1) {
        ::close(fd);
        return;
    }
    void* map = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    ::close(fd);
    if (map == MAP_FAILED) {
        input->log.line("[Zettly] cannot read KWin's keymap; the paste uses the US key positions");
        return;
    }
    XkbKeymapPtr keymap = keymapFromString(std::string_view(static_cast<const char*>(map), size));
    ::munmap(map, size);
    if (!keymap) {
        input->log.line(
            "[Zettly] cannot compile KWin's keymap; the paste uses the US key positions");
        return;
    }
    input->keys = ChordKeys::of(keymap.get());
}

void onEnter(void*, wl_keyboard*, std::uint32_t, wl_surface*, wl_array*) {}
void onLeave(void*, wl_keyboard*, std::uint32_t, wl_surface*) {}
void onKey(void*, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t) {}
void onModifiers(void*, wl_keyboard*, std::uint32_t, std::uint32_t, std::uint32_t, std::uint32_t,
                 std::uint32_t) {}
void onRepeatInfo(void*, wl_keyboard*, std::int32_t, std::int32_t) {}

const wl_keyboard_listener kKeyboardListener = {
    .keymap = onKeymap,
    .enter = onEnter,
    .leave = onLeave,
    .key = onKey,
    .modifiers = onModifiers,
    .repeat_info = onRepeatInfo,
};

void onCapabilities(void* data, wl_seat* seat, std::uint32_t capabilities) {
    auto* input = static_cast<Input*>(data);
    if ((capabilities & WL_SEAT_CAPABILITY_KEYBOARD) && !input->keyboard) {
        input->keyboard = wl_seat_get_keyboard(seat);
        wl_keyboard_add_listener(input->keyboard, &kKeyboardListener, input);
    }
}

void onSeatName(void*, wl_seat*, const char*) {}

const wl_seat_listener kSeatListener = {
    .capabilities = onCapabilities,
    .name = onSeatName,
};

}  // namespace

bool KWinFakeInputTyper::offeredBy(const WaylandConnection& connection) {
    return connection.offers(org_kde_kwin_fake_input_interface.name);
}

KWinFakeInputTyper::KWinFakeInputTyper(WaylandConnection& connection, Log& log)
    : connection_(connection), input_(std::make_shared<Input>(log)) {
    input_->fake = static_cast<org_kde_kwin_fake_input*>(
        connection.bind(org_kde_kwin_fake_input_interface, kKeysVersion));
    if (!input_->fake)
        return;
    if (org_kde_kwin_fake_input_get_version(input_->fake) < kKeysVersion) {
        log.line(
            "[Zettly] this KWin's fake input cannot press keys (Plasma 5.23 or later can); "
            "Zettly cannot paste through it");
        org_kde_kwin_fake_input_destroy(input_->fake);
        input_->fake = nullptr;
        return;
    }
    // KWin asks nobody: the desktop file's grant is the permission.
    org_kde_kwin_fake_input_authenticate(input_->fake, "Zettly",
                                         "Pastes the entry picked in the clipboard history");
    input_->seat = static_cast<wl_seat*>(connection.bind(wl_seat_interface, 5));
    if (input_->seat) {
        wl_seat_add_listener(input_->seat, &kSeatListener, input_.get());
        // The capabilities, then the keyboard's keymap.
        connection.roundtrip();
        connection.roundtrip();
    }
}

KWinFakeInputTyper::~KWinFakeInputTyper() {
    connection_.post([input = input_] { input->destroy(); });
}

bool KWinFakeInputTyper::ready() {
    return input_->fake && connection_.alive();
}

void KWinFakeInputTyper::type(PasteChord chord) {
    if (!ready())
        return;
    connection_.post([input = input_, chord] {
        org_kde_kwin_fake_input* fake = input->fake;
        if (!fake)
            return;
        // KWin keeps one keyboard state for all its devices, so a modifier
        // the user still holds would join the chord, and nothing tells a
        // client which keys are down elsewhere. Letting go of every
        // modifier key first ends it: KWin forgets a key released by any
        // device, ignores releases of keys that are up, and takes the
        // user's own release later for one of a key already up.
        for (std::uint32_t key : input->keys.modifierKeys)
            org_kde_kwin_fake_input_keyboard_key(fake, key, kReleased);
        const ChordKeys::Press press = input->keys.press(chord);
        for (std::uint32_t key : press.modifiers)
            org_kde_kwin_fake_input_keyboard_key(fake, key, kPressed);
        org_kde_kwin_fake_input_keyboard_key(fake, press.key, kPressed);
        org_kde_kwin_fake_input_keyboard_key(fake, press.key, kReleased);
        for (auto key = press.modifiers.rbegin(); key != press.modifiers.rend(); ++key)
            org_kde_kwin_fake_input_keyboard_key(fake, *key, kReleased);
    });
}

}  // namespace zettly
