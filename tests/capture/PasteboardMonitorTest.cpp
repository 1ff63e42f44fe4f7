#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "capture/PasteboardMonitor.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/FakePasteboard.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"

namespace zettly {
namespace {

using test::Bytes;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

const std::string plainText = "text/plain;charset=utf-8";

Bytes bytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

// The stored width tells which of several offered pictures was decoded.
Bytes picture(int width, const char* suffix = ".png") {
    return test::encode(test::image(width, 20, test::gradient(width)).get(), suffix);
}

class Capture : public ::testing::Test {
protected:
    Capture() {
        monitor.onNewItem = [this] { ++announced; };
        monitor.onSkipConsumed = [this] { ++skipsConsumed; };
    }

    PasteboardMonitor::Dependencies deps() {
        return {pasteboard, workspace, queue,        reader,    executor,
                texts,      images,    env.defaults, env.clock, env.log};
    }
    // The work the examinations queued: reads, then stores and decodes.
    void drain() {
        reader.runAll();
        executor.runAll();
    }
    // One examination: on the main thread, then what it queued.
    void examine(PasteboardMonitor& which) {
        which.poll();
        drain();
    }
    void examine() { examine(monitor); }
    // Another application copies; the clock moves so that history order is defined.
    void copyAndPoll(const std::string& text) {
        env.clock.advance(1);
        pasteboard.copyText(text);
        examine();
    }
    std::vector<std::string> history() {
        std::vector<std::string> out;
        for (const auto& item : texts.fetch(100, 0))
            out.push_back(item.text);
        return out;
    }
    std::vector<std::int64_t> imageWidths() {
        std::vector<std::int64_t> out;
        for (const auto& item : images.fetchAll())
            out.push_back(item.width);
        return out;
    }
    // A change already examined must not be examined again: a pending skip
    // survives a poll that has nothing new to look at.
    void expectChangeConsumed() {
        monitor.skipNext = true;
        examine();
        EXPECT_TRUE(monitor.skipNext) << "the refused change was examined a second time";
        monitor.skipNext = false;
    }

    test::StoreEnvironment env;
    test::FakePasteboard pasteboard;
    // Copied before the monitor existed, so no test may ever find it in the history.
    bool copiedBefore = (pasteboard.copyText("copied before the monitor started"), true);
    test::FakeWorkspace workspace;
    test::ManualMainQueue queue{env.clock};
    test::ManualExecutor reader;
    test::ManualExecutor executor;
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};
    PasteboardMonitor monitor{deps()};
    int announced = 0;
    int skipsConsumed = 0;
};

TEST_F(Capture, TextIsStoredWithItsBlanksAndEachNewOrRepeatedCopyIsAnnouncedOnce) {
    examine();  // what was copied before the monitor existed is not new to it
    copyAndPoll("  padded note \n");
    examine();
    queue.runPending();
    EXPECT_EQ(announced, 1) << "an unchanged clipboard was captured again";
    copyAndPoll("other");
    copyAndPoll("  padded note \n");
    queue.runPending();
    EXPECT_THAT(history(), ElementsAre("  padded note \n", "other"));
    EXPECT_EQ(announced, 3);
}

TEST_F(Capture, AClipboardThatSignalsIsExaminedOnTheNextTurnOfTheMainLoopWithoutPolling) {
    pasteboard.signals = true;
    monitor.start();
    pasteboard.copyText("first");
    EXPECT_EQ(reader.pendingCount(), 0u) << "examined inside the change notice";
    queue.runPending();
    reader.runAll();
    // A write that waits for the disk must not keep the reader from the
    // next copy: texts are stored behind it.
    EXPECT_THAT(history(), IsEmpty()) << "stored on the reader";
    executor.runAll();
    EXPECT_THAT(history(), ElementsAre("first"));

    // Notices that arrive together are one examination of the newest copy.
    env.clock.advance(1);
    pasteboard.copyText("gone before anyone looked");
    pasteboard.copyText("second");
    queue.runPending();
    EXPECT_EQ(reader.pendingCount(), 1u);
    drain();
    EXPECT_THAT(history(), ElementsAre("second", "first"));

    // Our own copy-back raises the count twice before it records it as ours.
    monitor.copyTextFromHistory("first");
    queue.runPending();
    EXPECT_EQ(reader.pendingCount(), 0u);
    // Nothing ticks: an idle app is never woken.
    const int readsBefore = pasteboard.reads;
    queue.advance(60);
    drain();
    EXPECT_EQ(pasteboard.reads, readsBefore);
}

TEST_F(Capture, ACopyReplacedBeforeItsTurnIsLeftToTheNewerOneAndTheFrontAppIsTheOneAtTheChange) {
    workspace.frontmost = "KeePassXC";
    pasteboard.copyText("typed in the vault");
    monitor.poll();
    workspace.frontmost = "org.gnome.TextEditor";
    pasteboard.copyText("newer");
    monitor.poll();
    drain();
    // The first read found the clipboard moved on, and the second was taken
    // while the editor was in front.
    EXPECT_THAT(history(), ElementsAre("newer"));
}

TEST_F(Capture, TextThatCannotBeReadDropsTheCopyWithoutTakingItsImageAndSaysSoOnce) {
    pasteboard.failing = {{"text/plain;charset=utf-8", ReadStatus::noAnswer}};
    pasteboard.copy({{plainText, bytes("slow")}, {"image/png", picture(30)}});
    examine();
    EXPECT_THAT(imageWidths(), IsEmpty()) << "the image of a text was taken for the copy";
    ASSERT_EQ(env.log.lines().size(), 1u);
    EXPECT_THAT(env.log.lines()[0], HasSubstr("stopped answering"));

    // An owner that does not even list its types is the same.
    pasteboard.failing = {{"TARGETS", ReadStatus::noAnswer}};
    copyAndPoll("unlisted");
    EXPECT_EQ(env.log.lines().size(), 2u);
    // The clipboard changing under a read is no fault of anyone's.
    pasteboard.failing = {{"TARGETS", ReadStatus::superseded}};
    copyAndPoll("replaced");
    EXPECT_EQ(env.log.lines().size(), 2u);

    pasteboard.failing.clear();
    copyAndPoll("answered");
    EXPECT_THAT(history(), ElementsAre("answered"));
}

TEST_F(Capture, ASelectionGrowingOnTheClipboardKeepsOneRowUntilItPausesOrSomethingElseComes) {
    // Another application copies `text` this long after the last copy.
    auto copyAfter = [&](double seconds, const std::string& text) {
        env.clock.advance(seconds);
        pasteboard.copyText(text);
        examine();
    };
    // A copy-on-select terminal re-copies every step of a mouse drag.
    for (const char* step : {"ls", "ls -l", "ls -la", "sudo ls -la"})
        copyAfter(0.2, step);
    EXPECT_THAT(history(), ElementsAre("sudo ls -la"));

    // A shorter selection, a pause, or a pick in between each start a row.
    copyAfter(0.2, "ls");
    copyAfter(1.5, "ls -a");
    monitor.copyTextFromHistory("sudo ls -la");
    copyAfter(0.2, "sudo ls -la | less");
    EXPECT_THAT(history(), ElementsAre("sudo ls -la | less", "sudo ls -la", "ls -a", "ls"));

    // A step that reaches a text already in the history moves that one up
    // and takes its own row away; the older row is never given up later.
    copyAfter(1.5, "l");
    copyAfter(0.2, "ls -a");
    copyAfter(0.2, "ls -al");
    EXPECT_THAT(history(),
                ElementsAre("ls -al", "ls -a", "sudo ls -la | less", "sudo ls -la", "ls"));
}

TEST_F(Capture, WithoutChangeNoticesStartingTwiceStillPollsOnceEveryHalfSecond) {
    const double t0 = env.clock.now();
    monitor.start();
    queue.runUntil(t0 + 0.25);
    monitor.start();  // a second timer would tick at 0.75, 1.25, ...

    pasteboard.copyText("lost");
    pasteboard.copyText("a");
    queue.runUntil(t0 + 0.45);
    drain();
    EXPECT_THAT(history(), IsEmpty());
    queue.runUntil(t0 + 0.5);
    drain();
    EXPECT_THAT(history(), ElementsAre("a"));

    pasteboard.copyText("b");
    queue.runUntil(t0 + 0.8);
    drain();
    EXPECT_EQ(history().size(), 1u);
    queue.runUntil(t0 + 1.0);
    drain();
    EXPECT_EQ(history().size(), 2u);
}

TEST_F(Capture, OwnWritesAreNotCapturedAndATextPickMovesItsEntryToTheTop) {
    copyAndPoll("first");
    copyAndPoll("second");
    env.clock.advance(1);
    monitor.copyTextFromHistory("first");
    EXPECT_EQ(pasteboard.text(), "first");
    EXPECT_THAT(history(), ElementsAre("first", "second"));
    expectChangeConsumed();
    EXPECT_TRUE(monitor.copyImageFromHistory(test::jpeg(30, 20, test::gradient(30)), pbtype::jpeg));
    expectChangeConsumed();
    // Bytes that are no image leave the clipboard empty, and that emptying is ours too.
    EXPECT_FALSE(monitor.copyImageFromHistory(bytes("not an image at all"), pbtype::png));
    EXPECT_TRUE(pasteboard.empty());
    expectChangeConsumed();
    copyAndPoll("third");
    EXPECT_THAT(history(), ElementsAre("third", "first", "second"));
}

TEST_F(Capture, OnlyAnExaminedCopyUsesUpASkipAndPausedCopiesStayUncapturedAfterResuming) {
    monitor.skipNext = true;
    monitor.copyTextFromHistory("picked");
    examine();
    monitor.paused = true;
    copyAndPoll("while paused");
    monitor.paused = false;
    examine();
    EXPECT_THAT(history(), ElementsAre("picked"));
    EXPECT_TRUE(monitor.skipNext);
    EXPECT_EQ(skipsConsumed, 0);

    copyAndPoll("skipped");
    EXPECT_FALSE(monitor.skipNext);
    EXPECT_EQ(skipsConsumed, 1);
    copyAndPoll("captured");
    EXPECT_THAT(history(), ElementsAre("captured", "picked"));
    EXPECT_EQ(skipsConsumed, 1);
}

TEST_F(Capture, EachIgnoredTypeRefusesTheCopyEvenWithTextPresent) {
    for (const char* type : {"org.nspasteboard.ConcealedType", "org.nspasteboard.TransientType",
                             "org.nspasteboard.AutoGeneratedType", "com.agilebits.onepassword",
                             "x-kde-passwordManagerHint", "text/x-kde-passwordManagerHint"}) {
        SCOPED_TRACE(type);
        pasteboard.copy({{plainText, bytes("hunter2")}, {type, bytes("secret")}});
        examine();
        EXPECT_THAT(history(), IsEmpty());
        expectChangeConsumed();
    }
}

TEST_F(Capture, TheBuiltInAppListAppliesOnlyWhileNoListIsStoredAndAStoredOneIsExact) {
    workspace.frontmost = "KeePassXC";
    copyAndPoll("from keepassxc");
    expectChangeConsumed();
    workspace.frontmost = std::nullopt;
    copyAndPoll("no frontmost app");
    EXPECT_THAT(history(), ElementsAre("no frontmost app"));

    // An empty stored list switches the built-in one off rather than falling back to it.
    workspace.frontmost = "org.keepassxc.KeePassXC";
    env.defaults.setStringArray(prefkey::ignoredApps, {});
    copyAndPoll("allowed by empty list");

    // A stored list is matched exactly and never merged with the built-in one.
    env.defaults.setStringArray(prefkey::ignoredApps, {"org.example.Vault"});
    for (const char* app : {"org.example.Vault", "org.example.vault", "com.bitwarden.desktop"}) {
        workspace.frontmost = app;
        copyAndPoll(std::string("from ") + app);
    }
    EXPECT_THAT(history(), ElementsAre("from com.bitwarden.desktop", "from org.example.vault",
                                       "allowed by empty list", "no frontmost app"));
}

TEST_F(Capture, AnImageIsSavedOnTheExecutorAndAnnouncedLaterByAMonitorStillAlive) {
    // Blank text does not count as text, so the image on the same clipboard is taken.
    pasteboard.copy({{plainText, bytes(" \n\t ")}, {"image/png", picture(30)}});
    monitor.poll();
    reader.runAll();
    EXPECT_THAT(imageWidths(), IsEmpty()) << "decoded on the reader";
    executor.runAll();
    EXPECT_THAT(imageWidths(), ElementsAre(30));
    EXPECT_EQ(announced, 0) << "announced off the main queue";
    queue.runPending();
    EXPECT_EQ(announced, 1);
    EXPECT_THAT(history(), IsEmpty());

    pasteboard.copy({{"image/png", picture(40)}, {plainText, bytes("caption")}});
    examine();
    EXPECT_THAT(history(), ElementsAre("caption"));
    EXPECT_THAT(imageWidths(), ElementsAre(30));

    // One read and decoded after its monitor is gone is still stored, but
    // announced to no one.
    {
        PasteboardMonitor shortLived(deps());
        shortLived.onNewItem = [this] { announced += 10; };
        env.clock.advance(1);
        pasteboard.copy({{"image/png", picture(50)}});
        shortLived.poll();
    }
    drain();
    queue.runPending();
    EXPECT_EQ(announced, 2);
    EXPECT_THAT(imageWidths(), ElementsAre(50, 30));
}

TEST_F(Capture, TheMostPreferredImageFormatOnOfferIsDecoded) {
    // Widths grow with falling preference, so the narrowest offer is the one to
    // decode. Offered in an order where neither first nor last decides.
    using Offer = std::tuple<std::string_view, const char*, int>;
    const Offer offers[] = {{pbtype::tiff, ".tif", 48},
                            {pbtype::png, ".png", 24},
                            {pbtype::jpeg, ".jpg", 32},
                            {pbtype::heic, ".heic", 40}};
    std::vector<std::int64_t> stored;
    for (int narrowest : {24, 32, 40}) {
        std::vector<std::pair<std::string, Bytes>> entries;
        for (auto [type, suffix, width] : offers)
            if (width >= narrowest)
                entries.emplace_back(type, picture(width, suffix));
        env.clock.advance(1);
        pasteboard.copy(std::move(entries));
        examine();
        stored.insert(stored.begin(), narrowest);
        EXPECT_EQ(imageWidths(), stored);
    }
}

TEST_F(Capture, NeitherACopyOfFilesNorAnyImageWhileImagesAreSwitchedOffIsCaptured) {
    for (std::string_view marker : {pbtype::uriList, pbtype::gnomeCopiedFiles}) {
        SCOPED_TRACE(marker);
        pasteboard.copy({{std::string(marker), bytes("file:///home/u/photo.png\r\n")},
                         {"image/png", picture(30)}});
        examine();
    }
    EXPECT_THAT(history(), IsEmpty());
    EXPECT_THAT(imageWidths(), IsEmpty());

    env.defaults.setBool(prefkey::saveImages, false);
    pasteboard.copy({{"image/png", picture(30)}});
    examine();
    env.defaults.setBool(prefkey::saveImages, true);
    expectChangeConsumed();
    EXPECT_THAT(imageWidths(), IsEmpty());
}

TEST_F(Capture, APatternBlocksACaseSensitiveWholeTextMatchAndABadOneIsSkippedOrLoggedOnce) {
    // "(a+)+$" backtracks 2^40 steps, far beyond any time limit, and so counts as a match.
    env.defaults.setStringArray(prefkey::ignoredPatterns, {"[", "secret", "(a+)+$"});
    copyAndPoll("my secret note");
    copyAndPoll(std::string(40, 'a') + "b");
    copyAndPoll("Secret");
    EXPECT_THAT(history(), ElementsAre("Secret"));
    ASSERT_EQ(env.log.lines().size(), 1u);
    EXPECT_THAT(env.log.lines()[0], HasSubstr("(a+)+$"));

    // Anchors hold at the ends of the whole text, not of each line.
    env.defaults.setStringArray(prefkey::ignoredPatterns, {"^note$"});
    copyAndPoll("first line\nnote\nlast line");
    copyAndPoll("note");
    EXPECT_THAT(history(), ElementsAre("first line\nnote\nlast line", "Secret"));
}

TEST_F(Capture, ATextTooLargeForTheHistoryIsRefusedBeforeAnyPatternRunsAndSaysSo) {
    // "(a+)+$" does not finish on such a text, and says so when it runs.
    env.defaults.setStringArray(prefkey::ignoredPatterns, {"(a+)+$"});
    const std::string atLimit = std::string(ClipboardStore::maxTextBytes - 1, 'a') + "b";
    copyAndPoll(atLimit);
    ASSERT_EQ(env.log.lines().size(), 1u);
    EXPECT_THAT(env.log.lines()[0], HasSubstr("(a+)+$"));

    copyAndPoll("a" + atLimit);
    ASSERT_EQ(env.log.lines().size(), 2u);
    EXPECT_THAT(env.log.lines()[1], HasSubstr("too large for the history"));
    EXPECT_THAT(history(), IsEmpty());

    env.defaults.remove(prefkey::ignoredPatterns);
    copyAndPoll(atLimit);
    copyAndPoll(atLimit + "!");
    EXPECT_THAT(history(), ElementsAre(atLimit));
    EXPECT_EQ(env.log.lines().size(), 3u);
}

}  // namespace
}  // namespace zettly
