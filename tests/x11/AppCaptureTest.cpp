// The real app under Xvfb, fed by real X clients: what reaches its databases.
#include <string>

#include <gtest/gtest.h>

#include "tests/fakes/SqlRows.h"
#include "tests/x11/SelectionOwner.h"
#include "tests/x11/X11TestSupport.h"

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
