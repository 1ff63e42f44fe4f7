#include "platform/x11/X11HotKey.h"

#include <QAbstractNativeEventFilter>
#include <QByteArray>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QPointer>
#include <array>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <xcb/xcb.h>

namespace zettly {

namespace {

// NumLock (Mod2 on every common keymap) and Caps Lock must not stop the
// shortcut, so each one is grabbed once per combination of the two.
constexpr std::uint16_t kLockMasks = XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2;
constexpr std::array<std::uint16_t, 4> kLockVariants{0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2,
                                                     kLockMasks};
// The eight core modifiers; the bits above hold the XKB layout group, which
// must not matter either.
constexpr std::uint16_t kCoreModifiers = 0xff;

struct Grab {
    xcb_keycode_t key = 0;
    std::uint16_t modifiers = 0;
    bool operator==(const Grab&) const = default;
};

struct Registration {
    Grab grab;
    std::function<void()> handler;
};

std::uint16_t xModifiers(std::uint32_t carbon) {
    std::uint16_t mask = 0;
    if (carbon & HotKeyCombo::command)
        mask |= XCB_MOD_MASK_CONTROL;
    if (carbon & HotKeyCombo::option)
        mask |= XCB_MOD_MASK_1;
    if (carbon & HotKeyCombo::control)
        mask |= XCB_MOD_MASK_4;
    if (carbon & HotKeyCombo::shift)
        mask |= XCB_MOD_MASK_SHIFT;
    return mask;
}

// What every X11HotKey shares: the registrations by id, the grabs on Qt's
// connection and the filter that sees their presses. Lives as long as the
// process, like the grabs' event handler it stands for.
class Dispatcher final : public QAbstractNativeEventFilter {
public:
    std::uint32_t nextId = 1;
    std::map<std::uint32_t, Registration> registrations;  // live grabs only

    // Qt's connection, or none outside an X11 session.
    xcb_connection_t* connection() {
        if (!app_ || app_ != QCoreApplication::instance())
            attach();
        return connection_;
    }

    bool heldByUs(const Grab& grab) const {
        for (const auto& [id, registration] : registrations)
            if (registration.grab == grab)
                return true;
        return false;
    }

    // The X error code when any variant was refused (nothing stays grabbed
    // then), 0 when all are held.
    std::uint8_t grab(const Grab& grab) {
        std::array<xcb_void_cookie_t, kLockVariants.size()> cookies{};
        for (std::size_t i = 0; i < kLockVariants.size(); ++i)
            cookies[i] =
                xcb_grab_key_checked(connection_, 0, root_, grab.modifiers | kLockVariants[i],
                                     grab.key, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        std::uint8_t refused = 0;
        std::array<bool, kLockVariants.size()> held{};
        for (std::size_t i = 0; i < kLockVariants.size(); ++i) {
            xcb_generic_error_t* error = xcb_request_check(connection_, cookies[i]);
            held[i] = !error;
            if (error && !refused)
                refused = error->error_code;
            std::free(error);
        }
        if (refused) {
            for (std::size_t i = 0; i < kLockVariants.size(); ++i)
                if (held[i])
                    xcb_ungrab_key(connection_, grab.key, root_, grab.modifiers | kLockVariants[i]);
            xcb_flush(connection_);
        }
        return refused;
    }

    void ungrab(const Grab& grab) {
        if (!connection())
            return;
        for (std::uint16_t variant : kLockVariants)
            xcb_ungrab_key(connection_, grab.key, root_, grab.modifiers | variant);
        xcb_flush(connection_);
    }

    bool nativeEventFilter(const QByteArray& type, void* message, qintptr*) override {
        if (type != "xcb_generic_event_t")
            return false;
        auto* event = static_cast<xcb_generic_event_t*>(message);
        auto kind = event->response_type & 0x7f;
        if (kind == XCB_KEY_RELEASE) {
            auto* release = reinterpret_cast<xcb_key_release_event_t*>(event);
            if (down_.erase(release->detail))
                releasedAt_[release->detail] = release->time;
            return false;
        }
        if (kind != XCB_KEY_PRESS)
            return false;
        auto* press = reinterpret_cast<xcb_key_press_event_t*>(event);
        if (press->event != root_)
            return false;
        Grab pressed{press->detail,
                     static_cast<std::uint16_t>(press->state & kCoreModifiers & ~kLockMasks)};
        std::uint32_t id = 0;
        for (const auto& [candidate, registration] : registrations)
            if (registration.grab == pressed)
                id = candidate;  // the newest one wins
        if (!id)
            return false;
        // Holding the keys repeats the press: with detectable auto-repeat as
        // presses without a release, without it as a release and a press
        // carrying the same time stamp.
        auto released = releasedAt_.find(pressed.key);
        bool repeat = down_.contains(pressed.key) ||
                      (released != releasedAt_.end() && released->second == press->time);
        down_.insert(pressed.key);
        if (!repeat)
            QMetaObject::invokeMethod(
                QCoreApplication::instance(), [this, id] { run(id); }, Qt::QueuedConnection);
        return true;
    }

private:
    void attach() {
        app_ = QCoreApplication::instance();
        connection_ = nullptr;
        auto* gui = qobject_cast<QGuiApplication*>(app_.data());
        auto* x11 = gui ? gui->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
        if (!x11 || !x11->connection())
            return;
        connection_ = x11->connection();
        char* host = nullptr;
        int display = 0, screen = 0;
        if (xcb_parse_display(nullptr, &host, &display, &screen))
            std::free(host);
        else
            screen = 0;
        xcb_screen_iterator_t roots = xcb_setup_roots_iterator(xcb_get_setup(connection_));
        for (int i = 0; i < screen && roots.rem > 1; ++i)
            xcb_screen_next(&roots);
        root_ = roots.data->root;
        app_->installNativeEventFilter(this);
    }

    void run(std::uint32_t id) {
        auto found = registrations.find(id);
        if (found == registrations.end())
            return;                            // unregistered while the press was queued
        auto handler = found->second.handler;  // the handler may replace this hot key
        handler();
    }

    QPointer<QCoreApplication> app_;
    xcb_connection_t* connection_ = nullptr;
    xcb_window_t root_ = XCB_WINDOW_NONE;
    std::set<xcb_keycode_t> down_;
    std::map<xcb_keycode_t, xcb_timestamp_t> releasedAt_;
};

Dispatcher& dispatcher() {
    // Never destroyed: Qt may still hold the filter while static objects go.
    static auto* instance = new Dispatcher;
    return *instance;
}

}  // namespace

// One grab held for one wish; the grab goes when the last holder does.
class X11HotKey::Holder {
public:
    Holder(HotKeyCombo combo, std::function<void()> pressed, KeyboardLayout& layout, Log& log) {
        Dispatcher& d = dispatcher();
        id_ = d.nextId++;
        auto off = [&](HotKeyState::Kind kind, const std::string& why,
                       const std::string& until = "; it stays off until it is changed") {
            state_ = HotKeyState{kind, why, {}};
            log.line("[Zettly] the shortcut " + combo.display(layout) + " " + why + until);
        };
        if (!d.connection()) {
            off(HotKeyState::Kind::failed, "needs an X11 session", "; it stays off");
            return;
        }
        auto evdev = evdevFromMacKeyCode(combo.keyCode);
        if (!evdev) {
            off(HotKeyState::Kind::noSuchKey, "has no key on this keyboard");
            return;
        }
        Grab grab{static_cast<xcb_keycode_t>(*evdev + 8), xModifiers(combo.modifiers)};
        // A new wish for the same combination usually replaces an old one
        // that is still alive: the grab we hold already serves both.
        if (!d.heldByUs(grab)) {
            if (std::uint8_t error = d.grab(grab)) {
                if (error == XCB_ACCESS)
                    off(HotKeyState::Kind::taken, "is taken by another application");
                else
                    off(HotKeyState::Kind::failed,
                        "cannot be registered (X error " + std::to_string(error) + ")");
                return;
            }
        }
        d.registrations.emplace(id_, Registration{grab, std::move(pressed)});
        state_ = HotKeyState{HotKeyState::Kind::bound, {}, {}};
    }

    ~Holder() {
        if (state_.kind != HotKeyState::Kind::bound)
            return;
        Dispatcher& d = dispatcher();
        auto found = d.registrations.find(id_);
        Grab grab = found->second.grab;
        d.registrations.erase(found);
        if (!d.heldByUs(grab))
            d.ungrab(grab);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;

    const HotKeyState& state() const { return state_; }

private:
    std::uint32_t id_ = 0;
    HotKeyState state_;
};

X11HotKey::X11HotKey(KeyboardLayout& layout, Log& log) : layout_(layout), log_(log) {}

X11HotKey::~X11HotKey() = default;

void X11HotKey::bind(HotKeyCombo combo, std::function<void()> pressed,
                     std::function<void(const HotKeyState&)> answered) {
    // Made before the old one goes, so an unchanged shortcut never lapses.
    auto holder = std::make_unique<Holder>(combo, std::move(pressed), layout_, log_);
    holder_ = std::move(holder);
    if (answered)
        answered(holder_->state());
}

void X11HotKey::release() {
    holder_.reset();
}

const HotKeyState& X11HotKey::state() const {
    static const HotKeyState none;
    return holder_ ? holder_->state() : none;
}

}  // namespace zettly
