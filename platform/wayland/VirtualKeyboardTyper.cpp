#include "platform/wayland/VirtualKeyboardTyper.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include "platform/Log.h"
#include "platform/wayland/ChordKeys.h"
#include "platform/wayland/WaylandConnection.h"
#include "wayland/virtual-keyboard-unstable-v1-client-protocol.h"

namespace zettly {

namespace {

// wl_keyboard.key_state
constexpr std::uint32_t kReleased = 0;
constexpr std::uint32_t kPressed = 1;

// The keymap in a sealed memory file: the compositor maps it, and the seals
// promise that it never changes under the mapping. The size counts the
// terminating NUL, as wl_keyboard.keymap does.
int keymapFile(const std::string& text, Log& log) {
    int fd = ::memfd_create("zettly-keymap", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0) {
        log.line(std::string("[Zettly] cannot make the virtual keyboard's keymap file: ") +
                 std::strerror(errno));
        return -1;
    }
    const char* data = text.c_str();
    std::size_t left = text.size() + 1;
    while (left > 0) {
        ssize_t written = ::write(fd, data, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            log.line(std::string("[Zettly] cannot write the virtual keyboard's keymap: ") +
                     std::strerror(errno));
            ::close(fd);
            return -1;
        }
        data += written;
        left -= static_cast<std::size_t>(written);
    }
    ::fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    return fd;
}

std::uint32_t milliseconds() {
    using namespace std::chrono;
    return static_cast<std::uint32_t>(
        duration_cast<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace

struct VirtualKeyboardTyper::Keyboard {
    zwp_virtual_keyboard_manager_v1* manager = nullptr;
    zwp_virtual_keyboard_v1* keyboard = nullptr;
    ChordKeys keys;

    void destroy() {
        if (keyboard)
            zwp_virtual_keyboard_v1_destroy(keyboard);
        if (manager)
            zwp_virtual_keyboard_manager_v1_destroy(manager);
        keyboard = nullptr;
        manager = nullptr;
    }
};

bool VirtualKeyboardTyper::offeredBy(const WaylandConnection& connection) {
    return connection.offers(zwp_virtual_keyboard_manager_v1_interface.name);
}

VirtualKeyboardTyper::VirtualKeyboardTyper(WaylandConnection& connection, Log& log)
    : connection_(connection), keyboard_(std::make_shared<Keyboard>()) {
    if (!connection.seat())
        return;
    keyboard_->manager = static_cast<zwp_virtual_keyboard_manager_v1*>(
        connection.bind(zwp_virtual_keyboard_manager_v1_interface, 1));
    if (!keyboard_->manager)
        return;

    XkbKeymapPtr keymap = compileKeymap("us");
    char* text =
        keymap ? xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1) : nullptr;
    if (!text) {
        log.line(
            "[Zettly] cannot compile a US keymap for the virtual keyboard (is xkeyboard-config "
            "installed?); Zettly cannot paste");
        return;
    }
    const std::string keymapText(text);
    std::free(text);
    int fd = keymapFile(keymapText, log);
    if (fd < 0)
        return;
    keyboard_->keys = ChordKeys::of(keymap.get());
    keyboard_->keyboard = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(
        keyboard_->manager, connection.seat());
    zwp_virtual_keyboard_v1_keymap(keyboard_->keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                   static_cast<std::uint32_t>(keymapText.size() + 1));
    ::close(fd);
    // A compositor that refuses answers with a protocol error: know now.
    connection.roundtrip();
    if (!connection.alive())
        log.line(
            "[Zettly] the compositor refused Zettly a virtual keyboard; Zettly cannot type the "
            "paste shortcut through it");
}

VirtualKeyboardTyper::~VirtualKeyboardTyper() {
    connection_.post([keyboard = keyboard_] { keyboard->destroy(); });
}

bool VirtualKeyboardTyper::ready() {
    return keyboard_->keyboard && connection_.alive();
}

// The user may still hold Alt from Alt+Return when the chord goes out. That
// Alt never reaches the target with it: a wlroots compositor keeps one XKB
// state per keyboard device and hands the focused client the keymap and
// modifiers of the keyboard whose key it forwards (wlr_seat_set_keyboard).
// Our virtual keyboard is a device of its own, so the target sees exactly
// the modifiers set here; the physical keyboard's state comes back with its
// next key. tests/wayland checks this on Sway with Alt held on a second
// virtual keyboard.
void VirtualKeyboardTyper::type(PasteChord chord) {
    if (!ready())
        return;
    connection_.post([keyboard = keyboard_, chord] {
        zwp_virtual_keyboard_v1* vk = keyboard->keyboard;
        if (!vk)
            return;
        const ChordKeys::Press press = keyboard->keys.press(chord);
        const std::uint32_t time = milliseconds();
        for (std::uint32_t key : press.modifiers)
            zwp_virtual_keyboard_v1_key(vk, time, key, kPressed);
        zwp_virtual_keyboard_v1_modifiers(vk, press.modifierMask, 0, 0, 0);
        zwp_virtual_keyboard_v1_key(vk, time, press.key, kPressed);
        zwp_virtual_keyboard_v1_key(vk, time, press.key, kReleased);
        for (auto key = press.modifiers.rbegin(); key != press.modifiers.rend(); ++key)
            zwp_virtual_keyboard_v1_key(vk, time, *key, kReleased);
        zwp_virtual_keyboard_v1_modifiers(vk, 0, 0, 0, 0);
    });
}

}  // namespace zettly
