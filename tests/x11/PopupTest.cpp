// The history window end to end under Xvfb: the real app, its hot key
// pressed with xdotool, and a window of this process that receives the paste.
#include <QApplication>
#include <QLineEdit>
#include <QPixmap>
#include <QScreen>
#include <QWindow>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "store/ClipPrefs.h"
#include "tests/fakes/SqlRows.h"
#include "tests/support/AppTestSupport.h"
#include "tests/support/QtWait.h"

namespace zettly::test {
namespace {

class PopupTest : public AppTest {
protected:
    std::string defaults() const override { return R"({"pasteAutomatically": true})"; }

    void SetUp() override {
        AppTest::SetUp();
        if (HasFatalFailure())
            return;
        copyPng(320, 200, 7);
        ASSERT_TRUE(waitUntil([&] { return images() == 1; }));
        for (const char* text :
             {"Kind regards,\nJana Nováková\nAccounts, Brno office",
              "https://www.debian.org/releases/",
              "Meeting notes: ship the history window on Friday, then review sync with the team.",
              "4242 4242 4242 4242", "alpha one", "beta two", "gamma three"}) {
            copyText(text);
            ASSERT_TRUE(waitUntil([&] { return texts(text) == 1; })) << text;
        }
        // The window the user works in: it has the keyboard when the hot key
        // is pressed and should receive the paste.
        target_.setWindowTitle("paste target");
        target_.setGeometry(60, 60, 360, 40);
        target_.show();
        target_.activateWindow();
        ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return target_.hasFocus(); }));
    }

    QLineEdit target_;
};

bool panelVisible() {
    return !visibleWindow("Zettly").empty();
}

void saveScreenshot(const std::string& windowId, const char* file) {
    QGuiApplication::primaryScreen()->grabWindow(std::stoul(windowId)).save(file);
}

TEST_F(PopupTest, HotKeyOpensTheWindowAndTypingThenReturnPastesTheMatch) {
    // A name and a category, as the row menu would give them.
    fs::path db = library_ / "clipboard.sqlite";
    rows(db, "INSERT INTO categories(id, name, sort, created) VALUES('C1', 'Work', 1, 0)");
    rows(db, "UPDATE items SET label = 'Signature' WHERE text LIKE 'Kind regards%'");
    rows(db, "UPDATE items SET category = 'C1', pinned = 1 WHERE text LIKE 'Meeting%'");

    run("xdotool mousemove 420 120 key alt+v");
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }))
        << "Alt+V opened nothing";
    settle(700ms);  // thumbnails arrive from their loader thread
    saveScreenshot(visibleWindow("Zettly"), "history-window.png");

    // Without the filter, Return would pick "gamma three", the newest.
    run("xdotool type --delay 30 beta");
    settle(300ms);

    run("xdotool key Return");
    EXPECT_TRUE(waitProcessingEvents(kDeadline, [&] { return target_.text() == "beta two"; }))
        << "the target received \"" << target_.text().toStdString() << "\"";
    EXPECT_EQ(output("xclip -o -selection clipboard"), "beta two");
    EXPECT_FALSE(panelVisible());
}

TEST_F(PopupTest, AnAbsurdStoredSizeOpensClampedAndEscapeClosesWithoutTouchingTheClipboard) {
    // Edited by hand: far too wide reads as the widest, a height below 0 as
    // the default. The pointer leaves room for the whole window below it.
    setDefaults(R"({"pasteAutomatically": true, "popupWidth": 1e308, "popupHeight": -3})");
    run("xdotool mousemove 420 120 key alt+v");
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }));
    EXPECT_EQ(output("xdotool getwindowgeometry --shell " + visibleWindow("Zettly") +
                     " | grep -E '^(WIDTH|HEIGHT)='"),
              "WIDTH=" + std::to_string(int(ClipPrefs::maxPopupSize.width)) +
                  "\nHEIGHT=" + std::to_string(int(ClipPrefs::defaultPopupSize.height)) + "\n");
    run("xdotool key Escape");
    EXPECT_TRUE(waitProcessingEvents(kDeadline, [&] { return !panelVisible(); }));
    EXPECT_EQ(output("xclip -o -selection clipboard"), "gamma three");
    EXPECT_TRUE(target_.text().isEmpty());
}

TEST_F(PopupTest, CtrlCommaInTheWindowOpensTheSettings) {
    run("xdotool mousemove 420 120 key alt+v");
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }));
    run("xdotool key ctrl+comma");
    ASSERT_TRUE(
        waitProcessingEvents(kDeadline, [&] { return !visibleWindow("Zettly Settings").empty(); }));
    EXPECT_FALSE(panelVisible());
    settle(500ms);
    saveScreenshot(visibleWindow("Zettly Settings"), "settings-window.png");
}

TEST_F(PopupTest, WithoutAutomaticPasteAltReturnPastesOnceAltIsUpAndIntoXtermThroughPrimary) {
    setDefaults(R"({"pasteAutomatically": false})");
    run("xdotool mousemove 420 120 key alt+v");
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }));
    // The finger that pressed Alt+Return rests on Alt a little longer.
    run("xdotool keydown alt key Return");
    settle(500ms);
    EXPECT_TRUE(target_.text().isEmpty()) << "pasted while Alt was still down";
    run("xdotool keyup alt");
    EXPECT_TRUE(waitProcessingEvents(kDeadline, [&] { return target_.text() == "gamma three"; }))
        << "the target received \"" << target_.text().toStdString() << "\"";

    // Stock xterm binds neither Ctrl+V nor Ctrl+Shift+V; Shift+Insert pastes
    // the primary selection. The shell reads the paste byte by byte.
    const std::string picked = "beta two";
    fs::path ready = dir_ / "xterm-ready", received = dir_ / "xterm-received";
    pid_t xterm =
        spawn({"xterm", "-title", "paste into xterm", "-geometry", "60x8+500+300", "-e", "sh", "-c",
               "stty raw -echo; touch '" + ready.string() + "'; head -c " +
                   std::to_string(picked.size()) + " > '" + received.string() + "'"});
    ASSERT_GT(xterm, 0) << "xterm is missing";
    children_.push_back(xterm);
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return fs::exists(ready); }))
        << "xterm did not start";
    run("xdotool search --name '^paste into xterm$' windowfocus --sync");
    run("xdotool key alt+v");
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }));
    run("xdotool key Down alt+Return");
    EXPECT_TRUE(waitProcessingEvents(kDeadline, [&] { return readFile(received) == picked; }))
        << "xterm received \"" << readFile(received) << "\"";
}

// The backend for sessions Zettly has none for: no shortcut of its own,
// `zettly --toggle` opens the history instead.
class FallbackTest : public AppTest {
protected:
    std::vector<std::string> arguments() const override { return {"--platform", "fallback"}; }
};

TEST_F(FallbackTest, ACopyIsSavedAndToggleOpensTheHistoryFromWhichCtrlCommaOpensTheSettings) {
    copyText("copied with the fallback backend");
    ASSERT_TRUE(waitUntil([&] { return texts("copied with the fallback backend") == 1; }));
    EXPECT_NE(appLog().find("desktop backend: fallback"), std::string::npos) << appLog();

    auto toggle = [] {
        pid_t second = spawn({ZETTLY_APP_PATH, "--toggle"});
        int status = -1;
        ASSERT_EQ(::waitpid(second, &status, 0), second);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "zettly --toggle failed";
    };
    toggle();
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }))
        << "--toggle opened nothing";
    toggle();
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return !panelVisible(); }))
        << "--toggle left it open";
    toggle();
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [&] { return panelVisible(); }));
    // Shown is not yet focused: the key goes wherever the keyboard is.
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [] {
        return output("xdotool getwindowfocus getwindowname 2>/dev/null") == "Zettly\n";
    }));

    run("xdotool key ctrl+comma");
    ASSERT_TRUE(
        waitProcessingEvents(kDeadline, [&] { return !visibleWindow("Zettly Settings").empty(); }));
    EXPECT_FALSE(panelVisible());
    settle(500ms);
    saveScreenshot(visibleWindow("Zettly Settings"), "settings-fallback.png");
}

}  // namespace
}  // namespace zettly::test

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
