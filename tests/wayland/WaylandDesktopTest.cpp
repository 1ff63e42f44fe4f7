// The Wayland desktop pieces against real compositors, run by
// run-in-compositor.sh: under headless Sway the window list (windows of
// helper processes with app ids of their own), activation, and the chords
// typed by the virtual keyboard into a window of this test; under KWin's
// virtual backend the chords typed by fake input. Both also hold a modifier
// on another input device, as the user still holds Alt from Alt+Return, and
// check that it stays out of the chord.
#include <QApplication>
#include <QKeyEvent>
#include <QProcess>
#include <QWidget>
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

#include <gtest/gtest.h>

#include "platform/linux/KeyTyper.h"
#include "platform/wayland/ChordKeys.h"
#include "platform/wayland/ForeignToplevels.h"
#include "platform/wayland/KWinFakeInputTyper.h"
#include "platform/wayland/VirtualKeyboardTyper.h"
#include "platform/wayland/WaylandConnection.h"
#include "platform/wayland/WaylandDesktop.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/support/QtWait.h"
#include "wayland/fake-input-client-protocol.h"
#include "wayland/virtual-keyboard-unstable-v1-client-protocol.h"

namespace zettly::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kDeadline = 10s;
// The test's own windows, as Zettly's would be.
constexpr const char* kOwnAppId = "org.zettly.WaylandDesktopTest";
constexpr std::uint32_t kKeyLeftAlt = 56;

template <typename Ready>
bool waitUntil(Ready ready, std::chrono::milliseconds time = kDeadline) {
    return zettly::test::waitProcessingEvents(time, ready);
}

// A window of ours that notes the keys it is given (not the modifier keys
// themselves) with the modifiers Qt saw with them.
class KeyRecorder final : public QWidget {
public:
    struct Press {
        int key = 0;
        Qt::KeyboardModifiers modifiers;
        bool operator==(const Press&) const = default;
    };

    KeyRecorder() {
        setWindowTitle(QStringLiteral("key recorder"));
        resize(400, 300);
    }
    std::vector<Press> presses;

protected:
    void keyPressEvent(QKeyEvent* event) override {
        switch (event->key()) {
            case Qt::Key_Control:
            case Qt::Key_Shift:
            case Qt::Key_Alt:
            case Qt::Key_Meta:
                return;
            default:
                presses.push_back(
                    {event->key(), event->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier |
                                                         Qt::AltModifier | Qt::MetaModifier)});
        }
    }
};

void PrintTo(const KeyRecorder::Press& press, std::ostream* out) {
    *out << "key 0x" << std::hex << press.key << " modifiers 0x" << press.modifiers.toInt();
}

// Another application's window: this executable started again with
// --window APPID TITLE (see main).
class HelperWindow {
public:
    HelperWindow(const QString& appId, const QString& title) {
        process_.setProcessChannelMode(QProcess::ForwardedChannels);
        process_.start(QCoreApplication::applicationFilePath(),
                       {QStringLiteral("--window"), appId, title});
    }
    ~HelperWindow() { close(); }
    void close() {
        if (process_.state() == QProcess::NotRunning)
            return;
        process_.kill();
        process_.waitForFinished();
    }

private:
    QProcess process_;
};

struct Chord {
    PasteChord chord;
    KeyRecorder::Press expected;
};
const Chord kChords[] = {
    {PasteChord::ctrlV, {Qt::Key_V, Qt::ControlModifier}},
    {PasteChord::ctrlShiftV, {Qt::Key_V, Qt::ControlModifier | Qt::ShiftModifier}},
    {PasteChord::shiftInsert, {Qt::Key_Insert, Qt::ShiftModifier}},
};

// A typer that never is: the desktop must pass over it.
class RefusedTyper final : public KeyTyper {
public:
    bool ready() override { return false; }
    void type(PasteChord) override { ++typed; }
    int typed = 0;
};

// Types the chord and waits for the recorder to see a key.
KeyRecorder::Press typedInto(KeyRecorder& recorder, const std::function<void()>& type) {
    recorder.presses.clear();
    type();
    waitUntil([&] { return !recorder.presses.empty(); });
    return recorder.presses.empty() ? KeyRecorder::Press{} : recorder.presses.front();
}

// ---- key positions (no compositor) ---------------------------------------

TEST(ChordKeys, FollowTheLayoutAndKeepThePcPositionsItLacks) {
    XkbKeymapPtr us = compileKeymap("us");
    ASSERT_TRUE(us);
    const ChordKeys keys = ChordKeys::of(us.get());
    const ChordKeys pc = ChordKeys::pc105();
    EXPECT_EQ(keys.control, pc.control);
    EXPECT_EQ(keys.v, pc.v);
    EXPECT_EQ(keys.insert, pc.insert);
    EXPECT_EQ(keys.controlMask, pc.controlMask);
    EXPECT_EQ(keys.shiftMask, pc.shiftMask);
    EXPECT_NE(std::find(keys.modifierKeys.begin(), keys.modifierKeys.end(), kKeyLeftAlt),
              keys.modifierKeys.end());

    // Dvorak has V where US has the full stop (evdev KEY_DOT).
    XkbKeymapPtr dvorak = compileKeymap("us", "dvorak");
    ASSERT_TRUE(dvorak);
    EXPECT_EQ(ChordKeys::of(dvorak.get()).v, 52u);
    EXPECT_EQ(ChordKeys::of(dvorak.get()).control, pc.control);

    // A Cyrillic layout has no V at all: the key keeps its PC place.
    XkbKeymapPtr ru = compileKeymap("ru");
    ASSERT_TRUE(ru);
    EXPECT_EQ(ChordKeys::of(ru.get()).v, pc.v);

    const ChordKeys::Press both = keys.press(PasteChord::ctrlShiftV);
    EXPECT_EQ(both.modifiers, (std::vector<std::uint32_t>{keys.control, keys.shift}));
    EXPECT_EQ(both.key, keys.v);
    EXPECT_EQ(both.modifierMask, keys.controlMask | keys.shiftMask);
    const ChordKeys::Press insert = keys.press(PasteChord::shiftInsert);
    EXPECT_EQ(insert.modifiers, std::vector<std::uint32_t>{keys.shift});
    EXPECT_EQ(insert.key, keys.insert);
}

// ---- Sway ------------------------------------------------------------------

class Sway : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(QGuiApplication::platformName(), QStringLiteral("wayland"));
        windowList_ = WaylandConnection::open(log_);
        ASSERT_TRUE(windowList_);
        ASSERT_TRUE(ForeignToplevels::offeredBy(*windowList_));
        toplevels_ = std::make_unique<ForeignToplevels>(*windowList_, kOwnAppId, log_);
        windowList_->start();
    }

    // Our recorder, in front.
    void showRecorder() {
        recorder_.show();
        ASSERT_TRUE(waitUntil([&] { return ownWindow().has_value(); }));
        toplevels_->activate(*ownWindow());
        ASSERT_TRUE(waitUntil([&] { return recorder_.isActiveWindow(); }));
    }
    std::optional<AppWindow> ownWindow() {
        for (const auto& window : toplevels_->windows())
            if (window.appId == kOwnAppId)
                return AppWindow{window.id, window.appId};
        return std::nullopt;
    }
    bool inFront(const std::string& appId) { return toplevels_->frontmostApplicationId() == appId; }

    RecordingLog log_;
    std::unique_ptr<WaylandConnection> windowList_;
    std::unique_ptr<ForeignToplevels> toplevels_;
    KeyRecorder recorder_;
};

TEST_F(Sway, WindowListFollowsOpeningClosingAndActivation) {
    EXPECT_TRUE(toplevels_->available());
    showRecorder();
    EXPECT_TRUE(inFront(kOwnAppId)) << "our own window in front is ours, as on X11";
    EXPECT_EQ(toplevels_->frontmostWindow()->appId, kOwnAppId);

    HelperWindow first(QStringLiteral("org.example.First"), QStringLiteral("first window"));
    ASSERT_TRUE(waitUntil([&] { return inFront("org.example.First"); }));
    const AppWindow firstWindow = *toplevels_->frontmostWindow();
    EXPECT_NE(firstWindow.id, 0u);
    EXPECT_NE(firstWindow, *ownWindow());

    HelperWindow second(QStringLiteral("org.example.Second"), QStringLiteral("second window"));
    ASSERT_TRUE(waitUntil([&] { return inFront("org.example.Second"); }));
    EXPECT_NE(toplevels_->frontmostWindow()->id, firstWindow.id);

    // Ours stays out of the list; the others come oldest first.
    std::vector<RunningApp> running = toplevels_->runningApplications();
    ASSERT_EQ(running.size(), 2u);
    EXPECT_EQ(running[0].appId, "org.example.First");
    EXPECT_EQ(running[0].title, "first window");
    EXPECT_EQ(running[1].appId, "org.example.Second");
    EXPECT_EQ(running[1].title, "second window");

    toplevels_->activate(firstWindow);
    ASSERT_TRUE(waitUntil([&] { return inFront("org.example.First"); }));
    EXPECT_EQ(toplevels_->frontmostWindow()->id, firstWindow.id) << "the number stays the window's";

    first.close();
    ASSERT_TRUE(waitUntil([&] { return toplevels_->runningApplications().size() == 1; }));
    EXPECT_EQ(toplevels_->runningApplications()[0].appId, "org.example.Second");
    // A window closed since it was in front is activated no more: its
    // handle is gone, and nothing touches it.
    toplevels_->activate(firstWindow);
    std::promise<void> passed;
    windowList_->post([&] { passed.set_value(); });
    passed.get_future().wait();
    EXPECT_TRUE(windowList_->alive());
    EXPECT_TRUE(inFront("org.example.Second"));
}

TEST_F(Sway, VirtualKeyboardTypesEachChordWithOnlyItsModifiers) {
    auto connection = WaylandConnection::open(log_);
    ASSERT_TRUE(connection);
    ASSERT_TRUE(VirtualKeyboardTyper::offeredBy(*connection));
    VirtualKeyboardTyper typer(*connection, log_);
    connection->start();
    ASSERT_TRUE(typer.ready());
    showRecorder();

    for (const Chord& chord : kChords)
        EXPECT_EQ(typedInto(recorder_, [&] { typer.type(chord.chord); }), chord.expected)
            << chordName(chord.chord);
}

// The user's keyboard holding Alt: another virtual keyboard, a device of its
// own to the compositor as a physical one is.
class HeldVirtualKey {
public:
    HeldVirtualKey(WaylandConnection& connection, std::uint32_t key) : connection_(connection) {
        manager_ = static_cast<zwp_virtual_keyboard_manager_v1*>(
            connection.bind(zwp_virtual_keyboard_manager_v1_interface, 1));
        keyboard_ =
            zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager_, connection.seat());
        XkbKeymapPtr keymap = compileKeymap("us");
        char* text = xkb_keymap_get_as_string(keymap.get(), XKB_KEYMAP_FORMAT_TEXT_V1);
        const std::size_t size = std::strlen(text) + 1;
        int fd = ::memfd_create("held-key-keymap", MFD_CLOEXEC);
        EXPECT_EQ(::write(fd, text, size), static_cast<ssize_t>(size));
        std::free(text);
        zwp_virtual_keyboard_v1_keymap(keyboard_, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd,
                                       static_cast<std::uint32_t>(size));
        ::close(fd);
        zwp_virtual_keyboard_v1_key(keyboard_, 0, key, 1);
        zwp_virtual_keyboard_v1_modifiers(
            keyboard_, 1u << xkb_keymap_mod_get_index(keymap.get(), XKB_MOD_NAME_ALT), 0, 0, 0);
        connection.roundtrip();
    }
    ~HeldVirtualKey() {
        zwp_virtual_keyboard_v1_destroy(keyboard_);
        zwp_virtual_keyboard_manager_v1_destroy(manager_);
        connection_.roundtrip();
    }

private:
    WaylandConnection& connection_;
    zwp_virtual_keyboard_manager_v1* manager_ = nullptr;
    zwp_virtual_keyboard_v1* keyboard_ = nullptr;
};

TEST_F(Sway, AltHeldOnAnotherKeyboardStaysOutOfTheChord) {
    auto connection = WaylandConnection::open(log_);
    ASSERT_TRUE(connection);
    VirtualKeyboardTyper typer(*connection, log_);
    connection->start();
    showRecorder();

    auto userConnection = WaylandConnection::open(log_);
    ASSERT_TRUE(userConnection);
    HeldVirtualKey alt(*userConnection, kKeyLeftAlt);
    ASSERT_TRUE(waitUntil([] {
        return QGuiApplication::queryKeyboardModifiers() & Qt::AltModifier;
    })) << "the window never saw the held Alt";

    EXPECT_EQ(typedInto(recorder_, [&] { typer.type(PasteChord::ctrlV); }),
              (KeyRecorder::Press{Qt::Key_V, Qt::ControlModifier}));
}

TEST_F(Sway, DesktopPastesTheChosenChordThroughTheFirstReadyTyper) {
    auto connection = WaylandConnection::open(log_);
    ASSERT_TRUE(connection);
    VirtualKeyboardTyper typer(*connection, log_);
    connection->start();
    RefusedTyper refused;
    WaylandDesktop desktop(toplevels_.get(), {&refused, &typer});
    WaylandDesktop without(nullptr, {&refused});
    EXPECT_TRUE(desktop.canPaste());
    EXPECT_FALSE(without.canPaste());
    EXPECT_FALSE(without.frontmostWindow());
    showRecorder();
    EXPECT_EQ(desktop.frontmostWindow(), ownWindow());

    const std::vector<PasteChordChoice> chosen{{"org.example.editor", PasteChord::shiftInsert}};
    EXPECT_EQ(typedInto(recorder_,
                        [&] {
                            desktop.paste(AppWindow{1, "org.example.Editor"}, chosen);
                        }),
              (KeyRecorder::Press{Qt::Key_Insert, Qt::ShiftModifier}));
    EXPECT_EQ(typedInto(recorder_,
                        [&] {
                            desktop.paste(AppWindow{1, std::nullopt}, chosen);
                        }),
              (KeyRecorder::Press{Qt::Key_V, Qt::ControlModifier}));
    EXPECT_EQ(refused.typed, 0);

    // Where the pointer never crossed our windows, the main screen's centre.
    const std::vector<ScreenInfo> screens = desktop.screens();
    ASSERT_FALSE(screens.empty());
    EXPECT_TRUE(screens.front().frame.contains(desktop.mouseLocation()));
}

// ---- KWin ------------------------------------------------------------------

class KWin : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(QGuiApplication::platformName(), QStringLiteral("wayland"));
        connection_ = WaylandConnection::open(log_);
        ASSERT_TRUE(connection_);
        if (!KWinFakeInputTyper::offeredBy(*connection_))
            GTEST_SKIP() << "this compositor offers no org_kde_kwin_fake_input";
        typer_ = std::make_unique<KWinFakeInputTyper>(*connection_, log_);
        connection_->start();
        ASSERT_TRUE(typer_->ready()) << (log_.lines().empty() ? "" : log_.lines().front());
        recorder_.show();
        // KWin gives a new window the keyboard; there is no window list to ask.
        ASSERT_TRUE(waitUntil([&] { return recorder_.isActiveWindow(); }));
    }

    RecordingLog log_;
    std::unique_ptr<WaylandConnection> connection_;
    std::unique_ptr<KWinFakeInputTyper> typer_;
    KeyRecorder recorder_;
};

TEST_F(KWin, FakeInputTypesEachChordWithOnlyItsModifiers) {
    for (const Chord& chord : kChords)
        EXPECT_EQ(typedInto(recorder_, [&] { typer_->type(chord.chord); }), chord.expected)
            << chordName(chord.chord);
}

TEST_F(KWin, AltHeldOnAnotherDeviceStaysOutOfTheChord) {
    // The user's Alt: a fake input device of another client.
    auto userConnection = WaylandConnection::open(log_);
    ASSERT_TRUE(userConnection);
    auto* fake = static_cast<org_kde_kwin_fake_input*>(
        userConnection->bind(org_kde_kwin_fake_input_interface, 4));
    ASSERT_TRUE(fake);
    org_kde_kwin_fake_input_authenticate(fake, "test", "holds Alt");
    org_kde_kwin_fake_input_keyboard_key(fake, kKeyLeftAlt, 1);
    userConnection->roundtrip();
    ASSERT_TRUE(waitUntil([] {
        return QGuiApplication::queryKeyboardModifiers() & Qt::AltModifier;
    })) << "the window never saw the held Alt";

    EXPECT_EQ(typedInto(recorder_, [&] { typer_->type(PasteChord::ctrlV); }),
              (KeyRecorder::Press{Qt::Key_V, Qt::ControlModifier}));

    // The user lets go of Alt, already up for KWin: nothing is left down.
    org_kde_kwin_fake_input_keyboard_key(fake, kKeyLeftAlt, 0);
    org_kde_kwin_fake_input_destroy(fake);
    userConnection->roundtrip();
    EXPECT_EQ(typedInto(recorder_, [&] { typer_->type(PasteChord::shiftInsert); }),
              (KeyRecorder::Press{Qt::Key_Insert, Qt::ShiftModifier}));
}

}  // namespace
}  // namespace zettly::test

// `--window APPID TITLE` shows one window as another application would (the
// Sway tests start this executable again for it); anything else runs the
// tests, in a QApplication on the compositor the harness started.
int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "wayland");
    if (argc == 4 && std::strcmp(argv[1], "--window") == 0) {
        QApplication app(argc, argv);
        QGuiApplication::setDesktopFileName(QString::fromUtf8(argv[2]));
        QWidget window;
        window.setWindowTitle(QString::fromUtf8(argv[3]));
        window.resize(300, 200);
        window.show();
        return app.exec();
    }
    QApplication app(argc, argv);
    QGuiApplication::setDesktopFileName(QString::fromUtf8(zettly::test::kOwnAppId));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
