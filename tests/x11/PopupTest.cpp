// The history window end to end under Xvfb: the real app, its hot key
// pressed with xdotool, and a window of this process that receives the paste.
#include <QApplication>
#include <QLineEdit>
#include <QPixmap>
#include <QScreen>
#include <QWindow>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/x11/X11TestSupport.h"

namespace zettly::test {
namespace {

// Runs Qt's events while waiting, so the paste target can take its paste.
template <typename Ready>
bool waitProcessing(Ready ready) {
    return waitUntil([&] {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        return ready();
    });
}

void settle(std::chrono::milliseconds time) {
    for (auto end = SteadyClock::now() + time; SteadyClock::now() < end;)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

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
        ASSERT_TRUE(waitProcessing([&] { return target_.hasFocus(); }));
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
    ASSERT_TRUE(waitProcessing([&] { return panelVisible(); })) << "Alt+V opened nothing";
    settle(700ms);  // thumbnails arrive from their loader thread
    saveScreenshot(visibleWindow("Zettly"), "history-window.png");

    // Without the filter, Return would pick "gamma three", the newest.
    run("xdotool type --delay 30 beta");
    settle(300ms);

    run("xdotool key Return");
    EXPECT_TRUE(waitProcessing([&] { return target_.text() == "beta two"; }))
        << "the target received \"" << target_.text().toStdString() << "\"";
    EXPECT_EQ(output("xclip -o -selection clipboard"), "beta two");
    EXPECT_FALSE(panelVisible());
}

TEST_F(PopupTest, EscapeClosesTheWindowWithoutTouchingTheClipboard) {
    run("xdotool key alt+v");
    ASSERT_TRUE(waitProcessing([&] { return panelVisible(); }));
    run("xdotool key Escape");
    EXPECT_TRUE(waitProcessing([&] { return !panelVisible(); }));
    EXPECT_EQ(output("xclip -o -selection clipboard"), "gamma three");
    EXPECT_TRUE(target_.text().isEmpty());
}

TEST_F(PopupTest, CtrlCommaInTheWindowOpensTheSettings) {
    run("xdotool mousemove 420 120 key alt+v");
    ASSERT_TRUE(waitProcessing([&] { return panelVisible(); }));
    run("xdotool key ctrl+comma");
    ASSERT_TRUE(waitProcessing([&] { return !visibleWindow("Zettly Settings").empty(); }));
    EXPECT_FALSE(panelVisible());
    settle(500ms);
    saveScreenshot(visibleWindow("Zettly Settings"), "settings-window.png");
}

}  // namespace
}  // namespace zettly::test

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
