#include <cmath>

#include <gtest/gtest.h>

#include "store/ClipMerge.h"

namespace zettly {
namespace {

using Side = ClipMerge::Side;
using Text = std::optional<std::string>;

// Pinned, filed in "C" and labelled "L" unless told otherwise.
Side side(double modified, double created, double mm, Text label = "L", bool pinned = true,
          Text category = "C") {
    return Side{modified, created, mm, pinned, std::move(category), std::move(label)};
}

void expectMerge(const Side& local, const Side& remote, const Side& merged, bool needsUpload,
                 bool localChanged) {
    ClipMerge::Result result = ClipMerge::merge(local, remote);
    EXPECT_EQ(result.side, merged);
    EXPECT_EQ(result.needsUpload, needsUpload);
    EXPECT_EQ(result.localChanged, localChanged);
}

const Side kBase = side(200, 100, 50);

TEST(ClipMerge, IdenticalSidesMergeToThemselvesAndRaiseNoFlag) {
    expectMerge(kBase, kBase, kBase, false, false);
}

TEST(ClipMerge, TheLaterMetadataClockBringsTheWholeBlock) {
    Side relabelled = side(200, 100, 60, "R", false);
    expectMerge(kBase, relabelled, relabelled, false, true);
    expectMerge(relabelled, kBase, relabelled, true, false);
}

TEST(ClipMerge, OnEqualClocksTheLaterModifiedDecidesAndAFullTieKeepsLocal) {
    expectMerge(kBase, side(201, 100, 50, "R"), side(201, 100, 50, "R"), false, true);
    expectMerge(kBase, side(200, 100, 50, "R"), kBase, true, false);
    // Never edited on either side: the local pin of the later entry wins.
    Side pinned = side(200, 100, 0, {}, true, {});
    expectMerge(pinned, side(150, 100, 0, {}, false, {}), pinned, true, false);
}

TEST(ClipMerge, EachTimeTakesTheLaterValueOnItsOwn) {
    Side recopied = side(300, 300, 50);
    expectMerge(kBase, recopied, recopied, false, true);
    expectMerge(recopied, kBase, recopied, true, false);

    // A later `modified` alone is carried along but is nobody's news.
    expectMerge(side(250, 100, 50), kBase, side(250, 100, 50), false, false);
    expectMerge(kBase, side(250, 100, 50), side(250, 100, 50), false, false);

    // Re-copied here, relabelled there: both devices have something to learn.
    expectMerge(recopied, side(200, 100, 60, "R"), side(300, 300, 60, "R"), true, true);
}

TEST(ClipMerge, AnAbsentCategoryDiffersFromAPresentOneButTwoAbsentOnesAgree) {
    Side unfiledLater = side(300, 100, 50, "L", true, {});
    expectMerge(kBase, unfiledLater, unfiledLater, false, true);
    expectMerge(side(200, 100, 50, "L", true, {}), unfiledLater, unfiledLater, false, false);
}

TEST(ClipMerge, ADamagedTimeNeverDisplacesTheLocalCopy) {
    const double nan = std::nan("");
    ClipMerge::Result result = ClipMerge::merge(kBase, side(200, nan, nan, "R"));
    EXPECT_EQ(result.side, kBase);
    EXPECT_TRUE(result.needsUpload);
    EXPECT_FALSE(result.localChanged);
    EXPECT_EQ(ClipMerge::merge(kBase, side(nan, 100, 50, "R")).side, kBase);
}

}  // namespace
}  // namespace zettly
