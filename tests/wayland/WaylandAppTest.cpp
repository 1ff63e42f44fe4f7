// The real app as a native Wayland client under a real compositor (headless
// Sway, started by run-in-compositor.sh): copies made by Wayland clients
// are saved or refused, and `zettly --toggle` opens the history window
// floating in front and closes it, giving the keyboard back.
#include "tests/support/WaylandAppTest.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace zettly::test {
namespace {

// What `swaymsg -t get_tree` says of the window with this app id: "focused",
// "shown" or "" when there is none.
std::string swayWindow(const std::string& appId) {
    std::string tree = output("swaymsg -t get_tree 2>/dev/null");
    auto at = tree.find("\"app_id\": \"" + appId + "\"");
    if (at == std::string::npos)
        return "";
    // Each node's fields are printed before its own "app_id"; the focus flag
    // of this node is the last one before it.
    auto focused = tree.rfind("\"focused\": ", at);
    if (focused != std::string::npos && tree.compare(focused + 11, 4, "true") == 0)
        return "focused";
    return "shown";
}

class WaylandApp : public WaylandAppTest {
protected:
    void prepareSession() override {
        WaylandAppTest::prepareSession();
        if (HasFatalFailure())
            return;
        if (!::getenv("SWAYSOCK"))
            for (const auto& entry : fs::directory_iterator(::getenv("XDG_RUNTIME_DIR")))
                if (entry.path().filename().string().starts_with("sway-ipc."))
                    ::setenv("SWAYSOCK", entry.path().c_str(), 1);
    }

    // Owns the clipboard with several formats at once.
    void offer(std::vector<std::string> args) {
        args.insert(args.begin(), program(ZETTLY_TEST_OFFER_PATH));
        pid_t pid = spawn(args, -1, {}, dir_ / "offer.log");
        ASSERT_GT(pid, 0);
        children_.push_back(pid);
        ASSERT_TRUE(waitUntil(
            [&] { return readFile(dir_ / "offer.log").find("ready") != std::string::npos; }));
        fs::remove(dir_ / "offer.log");
    }

    void toggle() {
        pid_t pid = spawn({program(ZETTLY_APP_PATH), "--toggle"});
        int status = 0;
        ASSERT_EQ(::waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
};

TEST_F(WaylandApp, SavesWaylandClientsCopiesButNeitherPasswordsNorThePrimarySelection) {
    ASSERT_TRUE(waitUntil([&] {
        return appLog().find("desktop backend: wayland") != std::string::npos;
    })) << appLog();

    wlCopy({}, "copied in a Wayland app");
    EXPECT_TRUE(waitUntil([&] { return texts("copied in a Wayland app") == 1; }));

    offer({"text/plain;charset=utf-8=hunter2", "x-kde-passwordManagerHint=secret"});
    // Primary is what a mouse selection makes: never history.
    offer({"--primary", "text/plain;charset=utf-8=only selected"});
    Bytes picture = png(64, 48, noise(7));
    fs::path file = dir_ / "copy.png";
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(picture.data()), std::streamsize(picture.size()));
    wlCopy({"--type", "image/png"}, readFile(file));
    // The image behind the password proves the password's turn has passed.
    EXPECT_TRUE(waitUntil([&] { return images() == 1; }));
    EXPECT_EQ(texts("hunter2"), 0);
    EXPECT_EQ(texts("only selected"), 0);
}

TEST_F(WaylandApp, TheToggleOpensTheWindowFloatingInFrontAndClosesItGivingFocusBack) {
    // The app listens for --toggle before it watches the clipboard, and a
    // copy made before that is not its to take: copied again until one is.
    bool stored = false;
    for (int attempt = 0; attempt < 5 && !stored; ++attempt) {
        wlCopy({}, "an entry to show");
        const auto until = SteadyClock::now() + 2s;
        while (!(stored = texts("an entry to show") == 1) && SteadyClock::now() < until)
            std::this_thread::sleep_for(50ms);
    }
    ASSERT_TRUE(stored);
    fs::path typed = dir_ / "typed.txt";
    pid_t target =
        spawn({program(ZETTLY_PASTE_TARGET_PATH), typed.string()}, -1, {}, dir_ / "target.log");
    ASSERT_GT(target, 0);
    children_.push_back(target);
    ASSERT_TRUE(waitUntil([] { return swayWindow("zettly-paste-target") == "focused"; }));

    toggle();
    ASSERT_TRUE(waitUntil([] { return swayWindow("org.zettly.Zettly") == "focused"; }))
        << output("swaymsg -t get_tree");
    // Never tiled: a tiled window would take half the screen from the target.
    EXPECT_NE(output("swaymsg -t get_tree").find("\"type\": \"floating_con\""), std::string::npos);
    // Beside the build's other screenshots, where the test user may write.
    const char* shots = ::getenv("ZETTLY_SCREENSHOTS");
    if (shots && ::access(shots, W_OK) == 0)
        run("grim " + (fs::path(shots) / "history-window-sway.png").string());

    toggle();
    EXPECT_TRUE(waitUntil([] { return swayWindow("org.zettly.Zettly").empty(); }));
    EXPECT_TRUE(waitUntil([] { return swayWindow("zettly-paste-target") == "focused"; }));
}

}  // namespace
}  // namespace zettly::test
