#include <gtest/gtest.h>

#include "sync/SyncPace.h"

namespace zettly {
namespace {

// Which of the ticks from `from` up to (not including) `to` start a sync.
int syncsBetween(SyncCadence& cadence, const SyncPace& pace, double from, double to) {
    int count = 0;
    for (double t = from; t < to; t += SyncCadence::tickInterval)
        count += cadence.due(pace, t);
    return count;
}

TEST(SyncCadence, IdleSyncsEverySixthTickAfterSyncingOnTheFirst) {
    SyncPace pace;
    SyncCadence cadence;
    EXPECT_TRUE(cadence.due(pace, 1000));
    EXPECT_EQ(syncsBetween(cadence, pace, 1005, 1060), 1);  // at 1030 only
    EXPECT_TRUE(cadence.due(pace, 1060));                   // the sixth tick after 1030
}

TEST(SyncCadence, RecentLocalChangeOrOpenWindowSyncsEveryTick) {
    SyncPace pace;
    SyncCadence cadence;
    cadence.due(pace, 1000);
    pace.fastUntil = 1000 + SyncPace::fastWindow;
    EXPECT_EQ(syncsBetween(cadence, pace, 1005, 1120), 23);
    EXPECT_EQ(syncsBetween(cadence, pace, 1120, 1150), 1);  // slow again after two minutes

    pace.menuOpen = true;
    EXPECT_EQ(syncsBetween(cadence, pace, 1150, 1175), 5);
}

}  // namespace
}  // namespace zettly
