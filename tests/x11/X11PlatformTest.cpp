// The X11 platform layer against a real X server with no window manager:
// the global hot key, key names, the window in front and the synthetic paste.
#include <QCoreApplication>
#include <QGuiApplication>
#include <algorithm>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>
#include <xcb/xcb.h>

#include <gtest/gtest.h>

#include "platform/linux/QtMainQueue.h"
#include "platform/x11/X11Desktop.h"
#include "platform/x11/X11HotKey.h"
#include "platform/x11/X11Pasteboard.h"
#include "platform/x11/X11Workspace.h"
#include "platform/x11/XkbKeyboardLayout.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/support/QtWait.h"
#include "tests/x11/SelectionOwner.h"

namespace zettly::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kDeadline = 10s;

// Runs Qt's event loop meanwhile: hot-key presses and delayed pastes
// arrive through it.
template <typename Ready>
bool waitUntil(std::chrono::milliseconds time, Ready ready) {
    return zettly::test::waitProcessingEvents(time, ready);
}
template <typename Ready>
bool waitUntil(Ready ready) {
    return waitUntil(kDeadline, ready);
}

void shell(const std::string& command) {
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

xcb_keycode_t xKey(std::uint32_t macKeyCode) {
    return static_cast<xcb_keycode_t>(*evdevFromMacKeyCode(macKeyCode) + 8);
}

// Another X client: the other applications on the desktop.
class OtherClient {
public:
    OtherClient() : c_(xcb_connect(nullptr, nullptr)) {
        root_ = xcb_setup_roots_iterator(xcb_get_setup(c_)).data->root;
    }
    ~OtherClient() { xcb_disconnect(c_); }

    xcb_window_t window(xcb_window_t parent = XCB_WINDOW_NONE) {
        xcb_window_t id = xcb_generate_id(c_);
        const std::uint32_t events = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE;
        xcb_create_window(c_, XCB_COPY_FROM_PARENT, id, parent ? parent : root_, 0, 0, 200, 200, 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                          &events);
        xcb_map_window(c_, id);
        sync();
        return id;
    }
    void setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, int format,
                     const void* data, std::uint32_t length) {
        xcb_change_property(c_, XCB_PROP_MODE_REPLACE, window, property, type,
                            static_cast<std::uint8_t>(format), length, data);
        sync();
    }
    xcb_atom_t atom(const char* name) {
        auto* reply = xcb_intern_atom_reply(
            c_, xcb_intern_atom(c_, 0, static_cast<std::uint16_t>(std::strlen(name)), name),
            nullptr);
        xcb_atom_t atom = reply->atom;
        std::free(reply);
        return atom;
    }
    void focus(xcb_window_t window) {
        xcb_set_input_focus(c_, XCB_INPUT_FOCUS_PARENT, window, XCB_CURRENT_TIME);
        sync();
    }
    bool grabKey(xcb_keycode_t key, std::uint16_t modifiers) {
        auto cookie = xcb_grab_key_checked(c_, 1, root_, modifiers, key, XCB_GRAB_MODE_ASYNC,
                                           XCB_GRAB_MODE_ASYNC);
        xcb_generic_error_t* error = xcb_request_check(c_, cookie);
        std::free(error);
        return !error;
    }
    // Key presses and releases reaching our windows, until `enough` or the
    // time is up.
    template <typename Enough>
    std::vector<xcb_key_press_event_t> keyEvents(Enough enough,
                                                 std::chrono::milliseconds time = kDeadline) {
        std::vector<xcb_key_press_event_t> seen;
        waitUntil(time, [&] {
            while (xcb_generic_event_t* event = xcb_poll_for_event(c_)) {
                auto kind = event->response_type & 0x7f;
                if (kind == XCB_KEY_PRESS || kind == XCB_KEY_RELEASE)
                    seen.push_back(*reinterpret_cast<xcb_key_press_event_t*>(event));
                std::free(event);
            }
            return enough(seen);
        });
        return seen;
    }

private:
    void sync() { std::free(xcb_get_input_focus_reply(c_, xcb_get_input_focus(c_), nullptr)); }

    xcb_connection_t* c_;
    xcb_window_t root_;
};

class X11PlatformTest : public ::testing::Test {
protected:
    void SetUp() override {
        x11_ = XcbConnection::open();
        ASSERT_TRUE(x11_);
        layout_ = std::make_unique<XkbKeyboardLayout>(*x11_);
    }
    std::unique_ptr<XcbConnection> x11_;
    std::unique_ptr<XkbKeyboardLayout> layout_;
    QtMainQueue queue_;
    RecordingLog log_;
};

TEST_F(X11PlatformTest, APressRunsOnlyTheNewestLiveRegistrationOfItsShortcutWithNumLockOnOrOff) {
    int first = 0, other = 0, replacement = 0;
    std::vector<HotKeyState> answers;
    auto answered = [&](const HotKeyState& state) { answers.push_back(state); };
    auto firstKey = std::make_unique<X11HotKey>(*layout_, log_);
    firstKey->bind(
        {keycode::v, modifier::option}, [&] { ++first; }, answered);
    auto otherKey = std::make_unique<X11HotKey>(*layout_, log_);
    otherKey->bind(
        {keycode::e, modifier::option}, [&] { ++other; }, answered);
    // X11 answers before bind() returns.
    ASSERT_EQ(answers,
              (std::vector<HotKeyState>(2, HotKeyState{HotKeyState::Kind::bound, {}, {}})));
    shell("xdotool key alt+e key alt+v key Num_Lock key alt+v key Num_Lock");
    ASSERT_TRUE(waitUntil([&] { return first == 2; }));
    EXPECT_EQ(other, 1);

    // The settings make the new hot key before the old one goes.
    X11HotKey replacing(*layout_, log_);
    replacing.bind(
        {keycode::v, modifier::option}, [&] { ++replacement; }, answered);
    ASSERT_EQ(replacing.state().kind, HotKeyState::Kind::bound);
    shell("xdotool key alt+v");
    ASSERT_TRUE(waitUntil([&] { return replacement == 1; }));
    firstKey.reset();
    otherKey.reset();
    shell("xdotool key alt+e key alt+v");
    ASSERT_TRUE(waitUntil([&] { return replacement == 2; }));
    // Handlers run in the order of the presses, so Alt+E has been handled.
    EXPECT_EQ(first, 2);
    EXPECT_EQ(other, 1);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(X11PlatformTest, AShortcutHeldByAnotherClientStaysOffWithOneLogLine) {
    OtherClient other;
    // Held only with NumLock on: the variants granted before the refusal must be given back.
    ASSERT_TRUE(other.grabKey(xKey(keycode::q), XCB_MOD_MASK_1 | XCB_MOD_MASK_2));

    X11HotKey hotKey(*layout_, log_);
    HotKeyState answer;
    hotKey.bind(
        {keycode::q, modifier::option}, [] {}, [&](const HotKeyState& state) { answer = state; });
    EXPECT_EQ(answer.kind, HotKeyState::Kind::taken);
    ASSERT_EQ(log_.lines().size(), 1u);
    EXPECT_NE(log_.lines()[0].find("Alt+Q is taken by another application"), std::string::npos)
        << log_.lines()[0];

    OtherClient third;
    EXPECT_TRUE(third.grabKey(xKey(keycode::q), XCB_MOD_MASK_1));
    EXPECT_TRUE(third.grabKey(xKey(keycode::q), XCB_MOD_MASK_1 | XCB_MOD_MASK_LOCK));
}

TEST_F(X11PlatformTest, TheActivatedWindowIsInFrontAndEachKindOfAppGetsItsPasteChord) {
    OtherClient other;
    xcb_window_t browser = other.window();
    const char wmClass[] = "navigator\0Firefox\0";
    other.setProperty(browser, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8, wmClass, sizeof wmClass - 1);
    xcb_window_t ours = other.window();
    auto pid = static_cast<std::uint32_t>(::getpid());
    other.setProperty(ours, other.atom("_NET_WM_PID"), XCB_ATOM_CARDINAL, 32, &pid, 1);

    int primaryFilled = 0;
    X11Desktop desktop(*x11_, "org.zettly.Zettly", queue_, [&] { ++primaryFilled; });
    desktop.activate(AppWindow{browser, std::nullopt});
    EXPECT_EQ(desktop.frontmostWindow(), (AppWindow{browser, "Firefox"}));
    EXPECT_EQ(X11Workspace(*x11_).frontmostApplicationId(), "Firefox");
    desktop.activate(AppWindow{ours, std::nullopt});
    EXPECT_EQ(desktop.frontmostWindow(), (AppWindow{ours, "org.zettly.Zettly"}));
    // Focus on an inner window still names the application's window.
    other.focus(other.window(browser));
    EXPECT_EQ(desktop.frontmostWindow(), (AppWindow{browser, "Firefox"}));

    xcb_window_t target = other.window();
    desktop.activate(AppWindow{target, std::nullopt});
    ASSERT_TRUE(desktop.canPaste());
    struct Case {
        const char* appId;
        std::vector<PasteChordChoice> chosen;
        xcb_keycode_t key;
        std::uint16_t modifiers;
    };
    const xcb_keycode_t insert = 110 + 8;
    const Case cases[] = {
        {"Firefox", {}, xKey(keycode::v), XCB_MOD_MASK_CONTROL},
        {"konsole", {}, xKey(keycode::v), XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT},
        {"XTerm", {}, insert, XCB_MOD_MASK_SHIFT},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.appId);
        desktop.paste(AppWindow{target, c.appId}, c.chosen);
        std::size_t keys = std::popcount(c.modifiers) + 1u;
        auto events = other.keyEvents([&](const auto& seen) { return seen.size() >= 2 * keys; });
        ASSERT_EQ(events.size(), 2 * keys) << "every key pressed is released";
        const auto& last = events[keys - 1];
        EXPECT_EQ(last.response_type & 0x7f, XCB_KEY_PRESS);
        EXPECT_EQ(last.detail, c.key);
        EXPECT_EQ(last.state & (XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_1),
                  c.modifiers);
        for (std::size_t i = keys; i < events.size(); ++i)
            EXPECT_EQ(events[i].response_type & 0x7f, XCB_KEY_RELEASE);
    }
    EXPECT_EQ(primaryFilled, 1) << "Shift+Insert pastes the primary selection";
}

TEST_F(X11PlatformTest, APasteWaitsForTheAltStillHeldFromPickingAndLiftsItAfterTheWait) {
    OtherClient other;
    xcb_window_t target = other.window();
    X11Desktop desktop(*x11_, "org.zettly.Zettly", queue_);
    desktop.activate(AppWindow{target, std::nullopt});
    auto v = [](const auto& seen) {
        return std::any_of(seen.begin(), seen.end(), [](const xcb_key_press_event_t& e) {
            return (e.response_type & 0x7f) == XCB_KEY_PRESS && e.detail == xKey(keycode::v);
        });
    };

    shell("xdotool keydown alt");
    desktop.paste(AppWindow{target, "Firefox"}, {});
    auto early = other.keyEvents([&](const auto&) { return false; }, 400ms);
    EXPECT_FALSE(v(early)) << "Ctrl+V went out while Alt was down";
    shell("xdotool keyup alt");
    auto events = other.keyEvents(v);
    ASSERT_TRUE(v(events));
    for (const auto& e : events) {
        if (e.detail == xKey(keycode::v)) {
            EXPECT_EQ(e.state & XCB_MOD_MASK_1, 0) << "the target saw Ctrl+Alt+V";
        }
    }

    // A finger resting on Alt past the wait: Alt is lifted around the paste.
    shell("xdotool keydown alt");
    desktop.paste(AppWindow{target, "Firefox"}, {});
    events = other.keyEvents(v, X11Desktop::modifierWait + 3s);
    shell("xdotool keyup alt");
    ASSERT_TRUE(v(events));
    for (const auto& e : events) {
        if (e.detail == xKey(keycode::v) && (e.response_type & 0x7f) == XCB_KEY_PRESS) {
            EXPECT_EQ(e.state & XCB_MOD_MASK_1, 0);
        }
    }
}

TEST_F(X11PlatformTest, TextComesFromAFormatTheOwnerAnswersAndANewCopyEndsAReadLeftWaiting) {
    X11Pasteboard pasteboard(XcbConnection::open());
    // Changes arrive through Qt's events on this thread, so the reads, which
    // block, run on another.
    auto readText = [&] {
        return std::async(std::launch::async, [&] { return pasteboard.string(); });
    };
    auto done = [](const auto& read) { return read.wait_for(0s) == std::future_status::ready; };
    auto newOwner = [&](const SelectionOwner::Targets& targets,
                        const SelectionOwner::Behaviour& behaviour) {
        std::int64_t before = pasteboard.changeCount();
        auto owner = std::make_unique<SelectionOwner>(targets, behaviour);
        EXPECT_TRUE(waitUntil([&] { return pasteboard.changeCount() != before; }));
        return owner;
    };

    auto picky = newOwner({{"UTF8_STRING", "not given"}, {"text/plain", "plain text ✓"}},
                          SelectionOwner::refusing({"UTF8_STRING"}));
    auto read = readText();
    ASSERT_TRUE(waitUntil([&] { return done(read); }));
    auto text = read.get();
    EXPECT_TRUE(picky->wasAsked("UTF8_STRING"));
    EXPECT_EQ(text.status, ReadStatus::ok);
    EXPECT_EQ(text.value, "plain text ✓");

    auto silent =
        newOwner({{"UTF8_STRING", "never given"}}, SelectionOwner::neverAnswering({"UTF8_STRING"}));
    double waitingCpu = -1;
    read = std::async(std::launch::async, [&] {
        timespec start{}, end{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &start);
        auto result = pasteboard.string();
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &end);
        waitingCpu = double(end.tv_sec - start.tv_sec) + double(end.tv_nsec - start.tv_nsec) / 1e9;
        return result;
    });
    ASSERT_TRUE(silent->waitUntilAsked("UTF8_STRING"));
    std::this_thread::sleep_for(500ms);  // the owner keeps the read waiting
    auto copied = Clock::now();
    auto next = newOwner({{"UTF8_STRING", "the next copy"}}, {});
    ASSERT_TRUE(waitUntil([&] { return done(read); }));
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - copied);
    EXPECT_EQ(read.get().status, ReadStatus::superseded);
    EXPECT_LT(took, 1s) << "the read ended " << took.count() << " ms after the next copy";
    EXPECT_LT(waitingCpu, 0.1) << "the waiting read kept a core busy";
    EXPECT_EQ(pasteboard.string().value, "the next copy");
}

TEST_F(X11PlatformTest, KeysAreNamedByWhatTheyTypeWithoutModifiersAndScreensMeasuredUpwards) {
    EXPECT_EQ(layout_->character(keycode::v), "v");
    EXPECT_EQ(layout_->character(keycode::one), "1");
    EXPECT_EQ(layout_->character(keycode::returnKey), std::nullopt);
    EXPECT_EQ(layout_->character(keycode::escape), std::nullopt);
    shell("xdotool key Caps_Lock");
    EXPECT_EQ(layout_->character(keycode::y), "y") << "a locked Caps Lock upper-cased the name";
    shell("xdotool key Caps_Lock");

    X11Desktop desktop(*x11_, "org.zettly.Zettly", queue_);
    Rect screen{0, 0, 1280, 800};
    EXPECT_EQ(desktop.screens(), (std::vector<ScreenInfo>{{screen, screen}}));
    shell("xdotool mousemove 100 200");
    EXPECT_EQ(desktop.mouseLocation(), (Point{100, 600}));
}

}  // namespace
}  // namespace zettly::test

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
