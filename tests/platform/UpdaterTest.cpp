#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Updater.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/RecordingLog.h"

namespace zettly {
namespace {

using Kind = UpdateCheckResult::Kind;

TEST(CompareVersions, OrdersReleasesNumericallyAndPreReleasesBeforeTheirRelease) {
    // Each pair is older, newer.
    const std::vector<std::pair<std::string, std::string>> ordered = {
        {"1.9", "1.10"},     {"1.0", "1.0.1"},
        {"0.9.9", "1.0"},    {"1.0b2", "1.0"},
        {"1.0b1", "1.0b2"},  {"1.0a3", "1.0b1"},
        {"1.0.0rc1", "1.0"}, {"1.0-beta", "1.0"},
        {"1.0b", "1.0.1"},   {"1.9", "1.20240115093000123456"},  // longer than 64 bits
        {"", "0.1"},
    };
    for (const auto& [older, newer] : ordered) {
        EXPECT_LT(compareVersions(older, newer), 0) << older << " < " << newer;
        EXPECT_GT(compareVersions(newer, older), 0) << newer << " > " << older;
    }
}

TEST(CompareVersions, TrailingZerosAndLeadingZerosDoNotMakeADifference) {
    EXPECT_EQ(compareVersions("1.0", "1.0.0"), 0);
    EXPECT_EQ(compareVersions("1.0.0", "1"), 0);
    EXPECT_EQ(compareVersions("1.01", "1.1"), 0);
    EXPECT_EQ(compareVersions("2.3b1", "2.3b1"), 0);
}

// An updater whose fetch waits until the test answers it.
class ScriptedUpdater final : public Updater {
public:
    using Updater::Updater;
    bool configured() const override { return feed; }
    bool automaticallyChecks() const override { return automatic; }
    void setAutomaticallyChecks(bool on) override { automatic = on; }

    void answer(UpdateCheckResult result) {
        ASSERT_TRUE(pending);
        auto done = std::move(pending);
        pending = nullptr;
        done(std::move(result));
    }

    bool feed = true;
    bool automatic = true;
    int fetches = 0;
    std::function<void(UpdateCheckResult)> pending;

protected:
    void fetch(std::function<void(UpdateCheckResult)> done) override {
        ++fetches;
        pending = std::move(done);
    }
};

UpdateCheckResult newer(std::string version) {
    return {.kind = Kind::newer, .version = std::move(version)};
}

struct UpdaterTest : ::testing::Test {
    test::FakeClock clock;
    test::ManualMainQueue queue{clock};
    test::RecordingLog log;
    ScriptedUpdater updater{queue, clock, log};
    int noticeChanges = 0;
    std::vector<UpdateCheckResult> shown;

    void SetUp() override {
        updater.notice().onChange = [this] { ++noticeChanges; };
        updater.onUserCheckResult = [this](const UpdateCheckResult& r) { shown.push_back(r); };
    }
    void answer(UpdateCheckResult result) {
        updater.answer(std::move(result));
        queue.runPending();
    }
};

TEST_F(UpdaterTest, ABackgroundFindSetsTheNoticeUntilTheUpdateSessionEnds) {
    updater.checkInBackground();
    EXPECT_FALSE(updater.canCheckForUpdates());
    answer(newer("1.2.3"));
    EXPECT_EQ(updater.notice().version(), "1.2.3");
    EXPECT_EQ(noticeChanges, 1);
    EXPECT_TRUE(shown.empty());
    EXPECT_TRUE(updater.canCheckForUpdates());

    updater.finishUpdateSession();
    EXPECT_EQ(updater.notice().version(), std::nullopt);
    EXPECT_EQ(noticeChanges, 2);
}

TEST_F(UpdaterTest, AUserCheckReportsItsResultAndNeverSetsTheNotice) {
    updater.checkForUpdates();
    answer(newer("1.2.3"));
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].kind, Kind::newer);
    EXPECT_EQ(shown[0].version, "1.2.3");
    EXPECT_EQ(updater.notice().version(), std::nullopt);

    updater.checkForUpdates();
    answer({.kind = Kind::failed, .error = "offline"});
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[1].error, "offline");
    EXPECT_EQ(noticeChanges, 0);
}

TEST_F(UpdaterTest, AUserCheckDuringABackgroundOneTakesOverItsResult) {
    updater.checkInBackground();
    updater.checkForUpdates();
    updater.checkInBackground();
    EXPECT_EQ(updater.fetches, 1);
    answer(newer("2.0"));
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(updater.notice().version(), std::nullopt);
}

TEST_F(UpdaterTest, BackgroundFailuresAreLoggedAndUpToDateWithdrawsAnOlderNotice) {
    updater.checkInBackground();
    answer(newer("1.1"));
    updater.checkInBackground();
    answer({.kind = Kind::failed, .error = "Connection refused"});
    EXPECT_EQ(updater.notice().version(), "1.1");
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"[Zettly] update check failed: Connection refused"});

    updater.checkInBackground();
    answer({.kind = Kind::upToDate});
    EXPECT_EQ(updater.notice().version(), std::nullopt);
    EXPECT_TRUE(shown.empty());
}

TEST_F(UpdaterTest, WithoutAFeedNothingIsFetchedAndTheUserIsToldSo) {
    updater.feed = false;
    updater.start();
    queue.advance(Updater::launchDelay + 2 * Updater::recheckInterval);
    updater.checkInBackground();
    updater.checkForUpdates();
    EXPECT_EQ(updater.fetches, 0);
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].kind, Kind::notConfigured);
}

TEST_F(UpdaterTest, TheLaunchCheckComesAfterFiveSecondsOnlyWhenCheckingAutomatically) {
    updater.start();
    queue.advance(Updater::launchDelay - 0.1);
    EXPECT_EQ(updater.fetches, 0);
    queue.advance(0.1);
    EXPECT_EQ(updater.fetches, 1);
    answer(newer("1.2.3"));
    EXPECT_EQ(updater.notice().version(), "1.2.3");

    test::FakeClock otherClock;
    test::ManualMainQueue otherQueue{otherClock};
    ScriptedUpdater manual{otherQueue, otherClock, log};
    manual.automatic = false;
    manual.start();
    otherQueue.advance(2 * Updater::recheckInterval);
    EXPECT_EQ(manual.fetches, 0);
}

TEST_F(UpdaterTest, ALongRunningSessionChecksAgainWithinAnHourOfADayAfterTheLastCheck) {
    updater.start();
    queue.advance(Updater::launchDelay);
    answer({.kind = Kind::upToDate});
    queue.advance(Updater::recheckInterval - 1);
    EXPECT_EQ(updater.fetches, 1);

    // The user's own check counts: the next one is a day after it.
    updater.checkForUpdates();
    answer({.kind = Kind::upToDate});
    queue.advance(Updater::recheckInterval - 1);
    EXPECT_EQ(updater.fetches, 2);
    queue.advance(Updater::recheckTick + 1);
    EXPECT_EQ(updater.fetches, 3);
}

}  // namespace
}  // namespace zettly
