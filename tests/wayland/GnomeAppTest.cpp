// The real app under a real GNOME Shell (headless, started by
// tests/wayland/run-in-compositor.sh gnome with Zettly's extension loaded):
// a Wayland client's copy is saved and a password manager's is not, the
// shortcut opens the history window at the pointer, and a pick is pasted
// into the window that was in front.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QString>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/WaylandAppTest.h"

namespace zettly::test {
namespace {

// Keys and pointer moves as a person makes them, through mutter's remote
// desktop interface (the headless Shell has no input devices). The session
// lives as long as this object's bus connection.
class RemoteInput {
public:
    RemoteInput()
        : bus_(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                             QStringLiteral("zettly-test-input"))) {}
    ~RemoteInput() {
        if (!session_.isEmpty())
            call(session_, "org.gnome.Mutter.RemoteDesktop.Session", "Stop", {});
        QDBusConnection::disconnectFromBus(QStringLiteral("zettly-test-input"));
    }

    bool start() {
        QDBusMessage reply = call(QStringLiteral("/org/gnome/Mutter/RemoteDesktop"),
                                  "org.gnome.Mutter.RemoteDesktop", "CreateSession", {});
        if (reply.type() != QDBusMessage::ReplyMessage)
            return false;
        session_ = reply.arguments().at(0).value<QDBusObjectPath>().path();
        return call(session_, "org.gnome.Mutter.RemoteDesktop.Session", "Start", {}).type() ==
               QDBusMessage::ReplyMessage;
    }
    void key(std::uint32_t keysym, bool down) {
        call(session_, "org.gnome.Mutter.RemoteDesktop.Session", "NotifyKeyboardKeysym",
             {keysym, down});
    }
    void press(std::uint32_t keysym) {
        key(keysym, true);
        key(keysym, false);
    }
    void move(double dx, double dy) {
        call(session_, "org.gnome.Mutter.RemoteDesktop.Session", "NotifyPointerMotionRelative",
             {dx, dy});
    }
    std::string error() const { return error_; }

private:
    QDBusMessage call(const QString& path, const char* interface, const char* method,
                      const QList<QVariant>& args) {
        QDBusMessage message = QDBusMessage::createMethodCall(
            QStringLiteral("org.gnome.Mutter.RemoteDesktop"), path, QString::fromLatin1(interface),
            QString::fromLatin1(method));
        message.setArguments(args);
        QDBusMessage reply = bus_.call(message, QDBus::Block, 5000);
        if (reply.type() != QDBusMessage::ReplyMessage)
            error_ = reply.errorMessage().toStdString();
        return reply;
    }

    QDBusConnection bus_;
    QString session_;
    std::string error_;
};

// What the Shell answers to `js`, through its Eval interface (the harness
// runs the Shell in unsafe mode for tests).
std::string shellEval(const std::string& js) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.Shell"), QStringLiteral("/org/gnome/Shell"),
        QStringLiteral("org.gnome.Shell"), QStringLiteral("Eval"));
    message << QString::fromStdString(js);
    QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2 ||
        !reply.arguments().at(0).toBool())
        return "error: " + reply.errorMessage().toStdString();
    // A JSON value: strings come quoted.
    std::string json = reply.arguments().at(1).toString().toStdString();
    if (json.size() >= 2 && json.front() == '"' && json.back() == '"')
        return json.substr(1, json.size() - 2);
    return json;
}

std::string focusedTitle() {
    return shellEval("global.display.focus_window ? global.display.focus_window.get_title() : ''");
}

class GnomeApp : public WaylandAppTest {
protected:
    std::string defaults() const override { return R"({"pasteAutomatically": true})"; }

    void qtCopy(std::vector<std::string> args) {
        args.insert(args.begin(), program(ZETTLY_TEST_QT_COPY_PATH));
        pid_t pid = spawn(args, -1, {}, dir_ / "copy.log");
        ASSERT_GT(pid, 0);
        children_.push_back(pid);
        ASSERT_TRUE(waitUntil([&] {
            return readFile(dir_ / "copy.log").find("ready") != std::string::npos;
        })) << readFile(dir_ / "copy.log");
    }
};

TEST_F(GnomeApp, SavesWaylandClientsCopiesThroughTheExtensionButNotPasswords) {
    ASSERT_TRUE(waitUntil([&] {
        return appLog().find("desktop backend: gnome") != std::string::npos;
    })) << appLog();

    wlCopy({}, "copied under GNOME");
    EXPECT_TRUE(waitUntil([&] { return texts("copied under GNOME") == 1; }));

    qtCopy({"text/plain;charset=utf-8=hunter2", "x-kde-passwordManagerHint=secret"});
    Bytes picture = png(64, 48, noise(7));
    fs::path file = dir_ / "copy.png";
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(picture.data()), std::streamsize(picture.size()));
    wlCopy({"--type", "image/png"}, readFile(file));
    // The image behind the password proves the password's turn has passed.
    EXPECT_TRUE(waitUntil([&] { return images() == 1; }));
    EXPECT_EQ(texts("hunter2"), 0);
}

TEST_F(GnomeApp, TheShortcutOpensTheWindowAtThePointerAndThePickIsPastedWhereTheUserWas) {
    wlCopy({}, "the entry to paste");
    ASSERT_TRUE(waitUntil([&] { return texts("the entry to paste") == 1; }));
    fs::path typed = dir_ / "typed.txt";
    pid_t target =
        spawn({program(ZETTLY_PASTE_TARGET_PATH), typed.string()}, -1, {}, dir_ / "target.log");
    ASSERT_GT(target, 0);
    children_.push_back(target);
    ASSERT_TRUE(waitUntil([] { return focusedTitle() == "Paste target"; })) << focusedTitle();

    RemoteInput input;
    ASSERT_TRUE(input.start()) << input.error();
    // Far from the middle, where the Shell would put a window by itself.
    input.move(-10000, -10000);
    input.move(200, 150);
    ASSERT_TRUE(waitUntil([] {
        return shellEval("global.get_pointer().slice(0, 2).join()") == "200,150";
    })) << shellEval("global.get_pointer().slice(0, 2).join()");

    // Alt+V: GNOME 43 has no shortcuts portal, so the extension holds it.
    input.key(0xffe9, true);
    input.press('v');
    input.key(0xffe9, false);
    ASSERT_TRUE(waitUntil([] { return focusedTitle() == "Zettly"; })) << focusedTitle();
    // Its top-left corner near the pointer (the window keeps its shadow and
    // the screen's edge clear), not centred.
    auto at = [] {
        return shellEval(
            "(() => { const w = global.display.focus_window; const r = w.get_frame_rect(); "
            "return `${r.x},${r.y}`; })()");
    };
    ASSERT_TRUE(waitUntil([&] {
        int x = -1, y = -1;
        return std::sscanf(at().c_str(), "%d,%d", &x, &y) == 2 && x >= 150 && x <= 260 &&
               y >= 100 && y <= 210;
    })) << at();
    const char* shots = ::getenv("ZETTLY_SCREENSHOTS");
    const char* screenshot = ::getenv("ZETTLY_SCREENSHOT_CMD");
    if (shots && screenshot && ::access(shots, W_OK) == 0)
        run(std::string(screenshot) + " " +
            (fs::path(shots) / "history-window-gnome.png").string());

    // Return picks the newest entry: it is pasted where the user was.
    input.press(0xff0d);
    EXPECT_TRUE(waitUntil([&] { return readFile(typed) == "the entry to paste"; }))
        << "typed: " << readFile(typed);
    EXPECT_EQ(focusedTitle(), "Paste target");
}

}  // namespace
}  // namespace zettly::test

// The bus calls want a Qt application; none of them needs its event loop.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
