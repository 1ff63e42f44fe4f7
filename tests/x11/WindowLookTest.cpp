// The history window, the tray menu and the Settings window as a user sees
// them: the real app under Openbox with a tint2 panel holding its tray icon,
// driven with xdotool. Each test leaves a screenshot in the build folder for
// a person to look at; what can be checked from outside (where windows are,
// how big, what a pick copied) is checked.
#include <QApplication>
#include <QImage>
#include <QPixmap>
#include <QScreen>
#include <cstring>
#include <sstream>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/support/AppTestSupport.h"
#include "tests/support/QtWait.h"

namespace zettly::test {
namespace {

struct Geometry {
    int x = 0, y = 0, width = 0, height = 0;
    int right() const { return x + width; }
    int bottom() const { return y + height; }
};

// Where the X server says a window is, frame excluded.
Geometry geometryOf(const std::string& window) {
    std::istringstream shell(output("xdotool getwindowgeometry --shell " + window));
    Geometry g;
    for (std::string line; std::getline(shell, line);) {
        auto value = [&](const char* name) {
            return line.rfind(name, 0) == 0 ? std::stoi(line.substr(std::strlen(name))) : -1;
        };
        if (int v = value("X="); v >= 0)
            g.x = v;
        if (int v = value("Y="); v >= 0)
            g.y = v;
        if (int v = value("WIDTH="); v >= 0)
            g.width = v;
        if (int v = value("HEIGHT="); v >= 0)
            g.height = v;
    }
    return g;
}

void saveWindow(const std::string& window, const char* file) {
    QGuiApplication::primaryScreen()->grabWindow(std::stoul(window)).save(file);
}

void saveScreen(const char* file) {
    QGuiApplication::primaryScreen()->grabWindow(0).save(file);
}

constexpr const char* longCategory = "Quarterly reports for the Brno office and the auditors";
constexpr const char* wrapped =
    "sudo journalctl -u NetworkManager --since today --until \"10 minutes ago\" --no-pager";

// A window manager and a panel with a tray, as a user's session has, once
// for all tests: the app finds the tray when it starts.
class Session : public ::testing::Environment {
public:
    void SetUp() override {
        // tint2 writes its default configuration into the first folder it may.
        ::setenv("XDG_CONFIG_HOME", (dir_ / "config").c_str(), 1);
        wm_ = spawn({"openbox", "--sm-disable"}, -1, {}, dir_ / "openbox.log");
        ASSERT_GT(wm_, 0) << "openbox is missing (scripts/setup)";
        // Desktops are an EWMH window manager's to count.
        ASSERT_TRUE(waitUntil([] {
            return !output("xdotool get_num_desktops 2>/dev/null").empty();
        })) << "openbox did not start";
        panel_ = spawn({"tint2"}, -1, {}, dir_ / "tint2.log");
        ASSERT_GT(panel_, 0) << "tint2 is missing (scripts/setup)";
        ASSERT_TRUE(waitUntil([this] {
            return readFile(dir_ / "tint2.log").find("systray started") != std::string::npos;
        })) << "tint2 started no tray:\n"
            << readFile(dir_ / "tint2.log");
    }
    void TearDown() override {
        stop(panel_);
        stop(wm_);
    }

private:
    TempDir dir_;
    pid_t wm_ = -1, panel_ = -1;
};

class WindowLookTest : public AppTest {
protected:
    std::string defaults() const override { return R"({"pasteAutomatically": false})"; }

    void copy(const std::string& text) {
        copyText(text);
        ASSERT_TRUE(waitUntil([&] { return texts(text) == 1; })) << text;
    }

    // The app's icon in the panel, once the app has set it up: the app's
    // only small window.
    std::string trayIcon() {
        std::string icon;
        waitProcessingEvents(kDeadline, [&] {
            std::istringstream ids(
                output("xdotool search --onlyvisible --class zettly 2>/dev/null"));
            for (std::string id; std::getline(ids, id);)
                if (const Geometry g = geometryOf(id); g.width > 0 && g.width <= 64)
                    icon = id;
            return !icon.empty();
        });
        return icon;
    }

    std::string openHistory() {
        run("xdotool mousemove 700 140 key alt+v");
        EXPECT_TRUE(waitProcessingEvents(kDeadline, [] {
            return !visibleWindow("Zettly").empty();
        })) << "Alt+V opened nothing";
        settle(700ms);  // thumbnails arrive from their loader thread
        return visibleWindow("Zettly");
    }
};

TEST_F(WindowLookTest, AWrappedRowALongCategoryChipAndThePreviewAfterAnImage) {
    copyPng(1600, 900, 3);
    ASSERT_TRUE(waitUntil([&] { return images() == 1; }));
    copy("Kind regards,\nJana Nováková\nAccounts, Brno office\nMasarykova 12\n602 00 Brno");
    copy("short one");
    copy(wrapped);
    copy("short two");
    fs::path db = library_ / "clipboard.sqlite";
    rows(db, "INSERT INTO categories(id, name, sort, created) VALUES('C1', '" +
                 std::string(longCategory) + "', 1, 0)");
    rows(db,
         "UPDATE items SET label = 'Signature', category = 'C1', pinned = 1 "
         "WHERE text LIKE 'Kind regards%'");

    const std::string window = openHistory();
    ASSERT_FALSE(window.empty());
    saveWindow(window, "look-history-rows.png");
    const Geometry panel = geometryOf(window);

    // The image is the oldest entry; End reaches it from the search field.
    run("xdotool key ctrl+End ctrl+y");
    ASSERT_TRUE(waitProcessingEvents(kDeadline, [] {
        return !visibleWindow("Zettly Preview").empty();
    })) << "Ctrl+Y showed no preview of the image";
    settle(300ms);
    const Geometry ofImage = geometryOf(visibleWindow("Zettly Preview"));
    // Up to the text above it: the preview follows the selection.
    run("xdotool key Up");
    settle(500ms);
    const std::string preview = visibleWindow("Zettly Preview");
    ASSERT_FALSE(preview.empty()) << "the preview closed when the selection moved";
    const Geometry ofText = geometryOf(preview);
    saveScreen("look-preview-after-image.png");

    const QSize screen = QGuiApplication::primaryScreen()->size();
    for (const Geometry& g : {ofImage, ofText}) {
        EXPECT_GE(g.x, 0);
        EXPECT_GE(g.y, 0);
        EXPECT_LE(g.right(), screen.width());
        EXPECT_LE(g.bottom(), screen.height());
        EXPECT_TRUE(g.right() <= panel.x || g.x >= panel.right())
            << "the preview covers the history window";
    }
    EXPECT_NE(ofImage.width * 10000 + ofImage.height, ofText.width * 10000 + ofText.height)
        << "the text's preview kept the image's size";
    run("xdotool key Escape Escape");
}

TEST_F(WindowLookTest, TheTrayMenuListsTheNewestEntriesAndPicksOne) {
    for (const char* text :
         {"first copy", "second copy", "third copy", "fourth copy", "fifth copy", "sixth copy"})
        copy(text);
    const std::string icon = trayIcon();
    ASSERT_FALSE(icon.empty()) << "no tray icon in the panel";
    run("xdotool mousemove --window " + icon + " 4 4 click 3");
    settle(800ms);
    saveScreen("look-tray-menu.png");
    // Show History, then the newest first: the second entry is "fifth copy".
    run("xdotool key Down Down Down Return");
    EXPECT_TRUE(waitProcessingEvents(
        kDeadline,
        [] { return output("xclip -o -selection clipboard 2>/dev/null") == "fifth copy"; }))
        << "the clipboard holds \"" << output("xclip -o -selection clipboard") << "\"";
    EXPECT_TRUE(visibleWindow("Zettly").empty()) << "picking from the tray opened the window";
}

// The Settings window in German at twice the scale, where the tab texts are
// longest and the screen smallest.
class GermanAtTwiceTest : public WindowLookTest {
protected:
    void beforeStart() override {
        ::setenv("LANGUAGE", "de", 1);
        ::setenv("LANG", "de_DE.UTF-8", 1);
        ::setenv("QT_SCALE_FACTOR", "2", 1);
    }
    void TearDown() override {
        WindowLookTest::TearDown();
        for (const char* name : {"LANGUAGE", "LANG", "QT_SCALE_FACTOR"})
            ::unsetenv(name);
    }
};

TEST_F(GermanAtTwiceTest, TheSettingsWindowFitsAHighDensityLaptopScreen) {
    // Started with nothing to copy first: its icon says it is ready for keys.
    ASSERT_FALSE(trayIcon().empty()) << "no tray icon in the panel";
    ASSERT_FALSE(openHistory().empty());
    run("xdotool mousemove 300 200 key ctrl+comma");
    ASSERT_TRUE(waitProcessingEvents(kDeadline,
                                     [] { return !visibleWindow("Zettly-Einstellungen").empty(); }))
        << "no German Settings window; windows: "
        << output("xdotool search --onlyvisible --name .");
    settle(800ms);
    const std::string settings = visibleWindow("Zettly-Einstellungen");
    saveWindow(settings, "look-settings-german-2x.png");

    // On 1280 × 720 device pixels at 2× the window has 640 × 360 points,
    // less the panel.
    const Geometry g = geometryOf(settings);
    const QSize screen = QGuiApplication::primaryScreen()->size();
    EXPECT_GE(g.x, 0);
    EXPECT_GE(g.y, 0);
    EXPECT_LE(g.right(), screen.width());
    EXPECT_LE(g.bottom(), screen.height());
    EXPECT_NEAR(g.x + g.width / 2, screen.width() / 2, 80) << "not centred";
    EXPECT_NEAR(g.y + g.height / 2, screen.height() / 2, 80) << "not centred";
}

}  // namespace
}  // namespace zettly::test

int main(int argc, char** argv) {
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new zettly::test::Session);
    return RUN_ALL_TESTS();
}
