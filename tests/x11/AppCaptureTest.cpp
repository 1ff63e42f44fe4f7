// The real app under Xvfb, fed by real X clients: what reaches its databases.
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/support/AppTestSupport.h"
#include "tests/x11/SelectionOwner.h"

namespace zettly::test {
namespace {

class AppCaptureTest : public AppTest {};

TEST_F(AppCaptureTest, APasswordManagersCopyIsSkippedAndTheNextTextIsStored) {
    {
        SelectionOwner keepass({{"UTF8_STRING", "hunter2-secret"},
                                {"text/plain;charset=utf-8", "hunter2-secret"},
                                {"x-kde-passwordManagerHint", "secret"}});
        ASSERT_TRUE(keepass.waitUntilAsked()) << "the app never looked at the copy";
        copyText("after the password ✓");
        ASSERT_TRUE(waitUntil([&] { return texts("after the password ✓") == 1; }));
    }
    EXPECT_EQ(texts("hunter2-secret"), 0);
}

TEST_F(AppCaptureTest, AFileCopyOfferingAnIconIsSkippedAndAPngCopyIsStoredAsAnImage) {
    Bytes icon = png(40, 30, noise(2));
    {
        SelectionOwner files({{"text/uri-list", "file:///tmp/holiday.png\r\n"},
                              {"image/png", std::string(icon.begin(), icon.end())}});
        ASSERT_TRUE(files.waitUntilAsked()) << "the app never looked at the copy";
        // The serial image queue would store a wrongly taken icon before this.
        copyPng(64, 48, 3);
        ASSERT_TRUE(waitUntil([&] { return images() >= 1; }));
    }
    auto stored = rows(library_ / "clipmedia.sqlite", "SELECT w, h, file FROM media");
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(stored[0][0] + "x" + stored[0][1], "64x48");
    EXPECT_TRUE(fs::exists(stored[0][2])) << stored[0][2];
    EXPECT_EQ(fs::path(stored[0][2]).parent_path(), library_ / "clipmedia");
}

TEST_F(AppCaptureTest, ASlowOwnerIsWaitedForAndOneThatNeverAnswersHoldsUpNeitherHotKeyNorNextCopy) {
    {
        // Three seconds of converting, as an application rendering a large
        // selection on request takes: well within the silence a read allows.
        SelectionOwner slow({{"UTF8_STRING", "answered after 3 s"}},
                            SelectionOwner::answeringAfter(3s));
        ASSERT_TRUE(waitUntil([&] { return texts("answered after 3 s") == 1; }));
    }
    {
        SelectionOwner silent({{"UTF8_STRING", "never answered"}},
                              SelectionOwner::neverAnswering({"TARGETS"}));
        ASSERT_TRUE(silent.waitUntilAsked()) << "the app never looked at the copy";
        // The app waits for that answer now; the history window must not.
        auto pressed = SteadyClock::now();
        run("xdotool key alt+v");
        ASSERT_TRUE(waitUntil([] { return !visibleWindow("Zettly").empty(); }))
            << "Alt+V opened nothing";
        auto took = since(pressed);
        EXPECT_LT(took, 1s) << "the history window took " << took.count() << " ms to open";

        // The new copy ends that wait, long before the silence a read allows.
        auto copied = SteadyClock::now();
        copyText("copied after the silent owner");
        ASSERT_TRUE(waitUntil([&] { return texts("copied after the silent owner") == 1; }));
        took = since(copied);
        EXPECT_LT(took, 2s) << "the next copy was stored after " << took.count() << " ms";
    }
    EXPECT_EQ(texts("never answered"), 0);
}

TEST_F(AppCaptureTest, QuickCopiesAreAllKeptWhileAGrowingSelectionLeavesOnlyItsLongestStep) {
    // Copies made before the app watches the clipboard are not its to take,
    // and its first capture creates the database: the burst starts once one
    // copy has arrived.
    copyText("first copy");
    ASSERT_TRUE(waitUntil([&] { return texts("first copy") == 1; }));

    // One after another, 50 ms apart, each by another application, as
    // quick Ctrl+C presses across windows make them.
    std::vector<std::unique_ptr<SelectionOwner>> owners;
    std::vector<std::string> made;
    auto start = SteadyClock::now();
    for (int i = 1; i <= 30; ++i) {
        std::this_thread::sleep_until(start + (i - 1) * 50ms);
        made.push_back("quick copy " + std::to_string(i) + " of 30");
        owners.push_back(std::make_unique<SelectionOwner>(
            SelectionOwner::Targets{{"UTF8_STRING", made.back()}}));
    }
    // Copies are read in the order they were made.
    ASSERT_TRUE(waitUntil([&] { return texts(made.back()) == 1; }));
    for (const std::string& text : made)
        EXPECT_EQ(texts(text), 1) << text;

    // A terminal that copies on select: each step of the drag is a copy.
    std::string selection;
    for (char letter : std::string("abcdefgh")) {
        selection += letter;
        owners.push_back(
            std::make_unique<SelectionOwner>(SelectionOwner::Targets{{"UTF8_STRING", selection}}));
        ASSERT_TRUE(waitUntil([&] { return texts(selection) == 1; })) << selection;
    }
    EXPECT_EQ(countRows(library_ / "clipboard.sqlite", "items", "? LIKE text || '%'", selection), 1)
        << "a step of the selection kept a row of its own";
    EXPECT_EQ(countRows(library_ / "clipboard.sqlite", "items", "1"), 1 + 30 + 1);
}

TEST_F(AppCaptureTest, LoggingOutWithClearOnQuitKeepsOnlyPinnedTexts) {
    for (const char* text : {"keep me", "forget me"}) {
        copyText(text);
        ASSERT_TRUE(waitUntil([&] { return texts(text) == 1; }));
    }
    rows(library_ / "clipboard.sqlite", "UPDATE items SET pinned = 1 WHERE text = 'keep me'");
    // Set while the app runs: it reads the preference when it quits.
    setDefaults(R"({"clearOnQuit": true})");

    stop(app_);  // SIGTERM, as a session logout sends
    app_ = -1;
    EXPECT_EQ(texts("keep me"), 1);
    EXPECT_EQ(texts("forget me"), 0);
}

}  // namespace
}  // namespace zettly::test
