// Copies on a disk that fills up or turns read-only: every failure is said
// once, with its cause, and saving resumes by itself once the cause is gone.
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/StoreHealth.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"
#include "tests/fakes/TestImages.h"
#include "tests/support/SmallDisk.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Problem = StoreHealth::Problem;
using Result = ClipboardStore::InsertResult;
using SaveResult = ImageClipStore::SaveResult;

struct SmallLibrary : ::testing::Test {
    test::StoreEnvironment env;
    test::SmallDisk disk{env.library(), 512 * 1024};
    ClipboardStore texts{env.context()};
    ImageClipStore images{env.context()};

    void SetUp() override {
        if (!disk.mounted())
            GTEST_SKIP() << "no private tmpfs here: " << disk.why();
    }
    int lines(const std::string& part) {
        auto all = env.log.lines();
        return int(std::count_if(all.begin(), all.end(), [&](const std::string& line) {
            return line.find(part) != std::string::npos;
        }));
    }
    std::vector<test::Row> stored() {
        return test::rows(env.library() / "clipboard.sqlite",
                          "SELECT text FROM items ORDER BY "
                          "created");
    }
};

TEST_F(SmallLibrary, AFullDiskIsReportedOnceAndSavingResumesWhenThereIsRoomAgain) {
    ASSERT_EQ(texts.insert("before"), Result::inserted);
    ASSERT_EQ(images.save(test::png(64, 48, test::noise(1))), SaveResult::saved);
    EXPECT_EQ(env.health.status().problem, Problem::none);

    disk.fill();
    for (int i = 0; i < 5; ++i) {
        env.clock.advance(1);
        EXPECT_EQ(texts.insert("while full " + std::to_string(i) + std::string(3000, '.')),
                  Result::failed);
    }
    EXPECT_EQ(images.save(test::png(80, 60, test::noise(2))), SaveResult::failed);
    EXPECT_EQ(env.health.status().problem, Problem::diskFull);
    EXPECT_EQ(lines("the disk is full"), 2);  // once for each file, not once per copy

    disk.release();
    env.clock.advance(1);
    EXPECT_EQ(texts.insert("after"), Result::inserted);
    EXPECT_EQ(images.save(test::png(80, 60, test::noise(2))), SaveResult::saved);
    EXPECT_EQ(env.health.status().problem, Problem::none);
    EXPECT_EQ(lines(" again"), 2);
    EXPECT_THAT(stored(), ElementsAre(test::Row{"before"}, test::Row{"after"}));
    EXPECT_EQ(images.fetchAll().size(), 2u);
}

TEST_F(SmallLibrary, AReadOnlyFolderIsReportedAndTheStoreOpensAgainOnceItCanBeWritten) {
    ASSERT_EQ(texts.insert("before"), Result::inserted);
    ASSERT_TRUE(disk.setReadOnly(true));
    env.clock.advance(1);
    EXPECT_NE(texts.insert("while read-only"), Result::inserted);
    EXPECT_NE(texts.insert("still read-only"), Result::inserted);
    EXPECT_EQ(env.health.status().problem, Problem::readOnly);
    EXPECT_EQ(env.health.status().file, env.library() / "clipboard.sqlite");
    EXPECT_EQ(lines("the folder cannot be written"), 1);
    // The history stays readable meanwhile.
    EXPECT_EQ(texts.fetch(10, 0).size(), 1u);

    // A store that starts while the folder is read-only is in the same state.
    ClipboardStore late(env.context());
    EXPECT_NE(late.insert("from a new start"), Result::inserted);
    EXPECT_EQ(env.health.status().problem, Problem::readOnly);

    ASSERT_TRUE(disk.setReadOnly(false));
    env.clock.advance(1);
    EXPECT_EQ(texts.insert("after"), Result::inserted);
    EXPECT_EQ(env.health.status().problem, Problem::none);
    env.clock.advance(1);
    EXPECT_EQ(late.insert("late too"), Result::inserted);
    EXPECT_THAT(stored(),
                ElementsAre(test::Row{"before"}, test::Row{"after"}, test::Row{"late too"}));
}

}  // namespace
}  // namespace zettly

int main(int argc, char** argv) {
    // Before any thread exists: a user namespace cannot be entered later.
    zettly::test::SmallDisk::enterPrivateMounts();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
