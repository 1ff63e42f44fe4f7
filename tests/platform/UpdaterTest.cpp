#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/Updater.h"
#include "tests/fakes/FakeClock.h"
#include "tests/fakes/ManualMainQueue.h"
#include "tests/fakes/RecordingLog.h"

namespace zettly {
namespace {

using Kind = UpdateCheckResult::Kind;

TEST(CompareVersions, OrdersReleasesNumericallyPutsPreReleasesFirstAndIgnoresZeros) {
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
    for (const auto& [a, b] : std::vector<std::pair<std::string, std::string>>{
             {"1.0", "1.0.0"}, {"1.0.0", "1"}, {"1.01", "1.1"}, {"2.3b1", "2.3b1"}})
        EXPECT_EQ(compareVersions(a, b), 0) << a << " = " << b;
}

// An updater whose fetch waits until the test answers it.
struct ScriptedUpdater final : Updater {
    using Updater::Updater;
    bool configured() const override { return feed; }
    bool automaticallyChecks() const override { return automatic; }
    void setAutomaticallyChecks(bool on) override { automatic = on; }
    void fetch(std::function<void(UpdateCheckResult)> done) override {
        ++fetches;
        pending = std::move(done);
    }

    bool feed = true;
    bool automatic = true;
    int fetches = 0;
    std::function<void(UpdateCheckResult)> pending;
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
        ASSERT_TRUE(updater.pending);
        std::exchange(updater.pending, nullptr)(std::move(result));
        queue.runPending();
    }
};

TEST_F(UpdaterTest, ABackgroundFindSetsTheNoticeUntilTheSessionEndsAndAUserCheckNeverDoes) {
    updater.checkInBackground();
    EXPECT_FALSE(updater.canCheckForUpdates());
    answer(newer("1.2.3"));
    EXPECT_EQ(updater.notice().version(), "1.2.3");
    EXPECT_TRUE(shown.empty());
    EXPECT_TRUE(updater.canCheckForUpdates());
    updater.finishUpdateSession();
    EXPECT_EQ(updater.notice().version(), std::nullopt);
    EXPECT_EQ(noticeChanges, 2);

    updater.checkForUpdates();
    answer(newer("1.2.4"));
    updater.checkForUpdates();
    answer({.kind = Kind::failed, .error = "offline"});
    // Asked for during a background check, it takes over that check's result.
    updater.checkInBackground();
    updater.checkForUpdates();
    updater.checkInBackground();
    answer(newer("2.0"));
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_EQ(shown[0].kind, Kind::newer);
    EXPECT_EQ(shown[0].version, "1.2.4");
    EXPECT_EQ(shown[1].error, "offline");
    EXPECT_EQ(shown[2].version, "2.0");
    EXPECT_EQ(updater.fetches, 4);
    EXPECT_EQ(noticeChanges, 2);
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

TEST_F(UpdaterTest, ChecksRunFiveSecondsAfterLaunchThenDailyOnlyWhenAutomaticAndConfigured) {
    ScriptedUpdater manual{queue, clock, log}, unconfigured{queue, clock, log};
    manual.automatic = false;
    unconfigured.feed = false;
    for (ScriptedUpdater* each : {&manual, &unconfigured, &updater})
        each->start();
    queue.advance(Updater::launchDelay - 0.1);
    EXPECT_EQ(updater.fetches, 0);
    queue.advance(0.1);
    EXPECT_EQ(updater.fetches, 1);
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

    std::optional<Kind> told;
    unconfigured.onUserCheckResult = [&](const UpdateCheckResult& r) { told = r.kind; };
    unconfigured.checkInBackground();
    unconfigured.checkForUpdates();
    EXPECT_EQ(manual.fetches + unconfigured.fetches, 0);
    EXPECT_EQ(told, Kind::notConfigured);
}

}  // namespace
}  // namespace zettly
