#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Pasteboard.h"
#include "store/ClipPrefs.h"
#include "store/ImageClipStore.h"
#include "store/ImageCodec.h"
#include "store/PrefKeys.h"
#include "tests/fakes/ImageHistoryFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Original = ImageClipStore::Original;
using Result = ImageClipStore::SaveResult;
using test::Bytes;
using test::contents;
using test::numbered;
using test::Row;

class ImageOriginals : public test::ImageHistoryFixture {
protected:
    // Saves a second after the last save; the id of the row now at the top.
    std::string save(const Bytes& data, std::string_view type = pbtype::png) {
        env.clock.advance(1);
        EXPECT_EQ(store.save(data, type), Result::saved);
        auto top = sql("SELECT id FROM media ORDER BY created DESC LIMIT 1");
        return top.empty() ? "" : top[0][0];
    }
    // The row's `orig`, "" when NULL (or no such row).
    std::string original(const std::string& id) {
        auto found = sql("SELECT COALESCE(orig, '') FROM media WHERE id = '" + id + "'");
        return found.empty() ? "" : found[0][0];
    }
    std::size_t logged(const std::string& part) const {
        std::size_t n = 0;
        for (const auto& line : env.log.lines())
            n += line.find(part) != std::string::npos;
        return n;
    }
};

TEST_F(ImageOriginals, AFullSizePictureIsKeptAsCopiedBesideTheReducedJpegThatSyncStillSends) {
    const Bytes photo = test::png(4000, 3000, test::gradient(4000));
    ASSERT_LT(photo.size(), std::size_t(ClipPrefs::defaultImageOriginalLimitMB) << 20);
    const std::string id = save(photo);

    auto items = store.fetchAll();
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].width, 1280);
    EXPECT_EQ(items[0].height, 960);
    const Bytes jpeg = store.fileData(id).value();
    ASSERT_GT(jpeg.size(), 2u);
    EXPECT_TRUE(jpeg[0] == 0xFF && jpeg[1] == 0xD8) << "the history's copy is a JPEG";
    EXPECT_EQ(store.originalData(id), (Original{photo, "image/png"}));
    // Named after the picture's own files, so that it is plainly one of them.
    const fs::path kept = original(id);
    EXPECT_EQ(kept, folder() / (fs::path(items[0].file).stem().string() + ".orig.png"));
    EXPECT_EQ(contents(kept), photo);
    EXPECT_EQ(files(), 3u);

    // What sync sends is the reduced file; the original is nowhere in the record.
    auto up = store.syncPending(8).images;
    ASSERT_EQ(up.size(), 1u);
    EXPECT_EQ(up[0].file, items[0].file);

    // Each format capture reads keeps its own bytes and type.
    const Bytes photoJpeg = test::jpeg(300, 200, test::gradient(300));
    const std::string jpegId = save(photoJpeg, pbtype::jpeg);
    EXPECT_EQ(store.originalData(jpegId), (Original{photoJpeg, "image/jpeg"}));
    EXPECT_THAT(original(jpegId), ::testing::EndsWith(".orig.jpg"));
    // Without a type, or with one whose bytes are not kept, only the JPEG stays.
    for (std::string_view type : {std::string_view(), std::string_view("image/bmp")}) {
        const std::string plain = save(numbered(int(type.size())), type);
        EXPECT_EQ(original(plain), "");
        EXPECT_EQ(store.originalData(plain), std::nullopt);
        EXPECT_TRUE(store.fileData(plain));
    }
}

TEST_F(ImageOriginals, OverTheLimitOrWithTheLimitOffOnlyTheJpegIsKeptAndAnOverflowIsLogged) {
    const Bytes big = test::png(800, 800, test::noise(3));
    ASSERT_GT(big.size(), std::size_t(1) << 20);
    ClipPrefs(env.defaults).setImageOriginalLimitMB(1);
    const std::string over = save(big);
    EXPECT_EQ(original(over), "");
    EXPECT_EQ(files(), 2u);
    EXPECT_EQ(logged("kept only reduced"), 1u);
    EXPECT_EQ(store.originalData(over), std::nullopt);

    ClipPrefs(env.defaults).setImageOriginalLimitMB(0);
    EXPECT_EQ(original(save(numbered(1))), "");
    EXPECT_EQ(files(), 4u);
    EXPECT_EQ(logged("kept only reduced"), 1u) << "turned off is no overflow";

    ClipPrefs(env.defaults).setImageOriginalLimitMB(2);
    const std::string within = save(test::png(800, 800, test::noise(4)));
    EXPECT_NE(original(within), "");
    EXPECT_EQ(logged("kept only reduced"), 1u);
}

TEST_F(ImageOriginals, DeletingTrimmingExpiringClearingAndANewerEqualCopyRemoveTheOriginal) {
    auto kept = [&](const std::string& id) {
        std::string path = original(id);
        EXPECT_NE(path, "") << "no original for " << id;
        return path;
    };
    const std::string deleted = save(numbered(1));
    const std::string deletedFile = kept(deleted);
    store.deleteItem(deleted);
    EXPECT_FALSE(fs::exists(deletedFile));

    // An equal picture copied again takes the row with its own original.
    const Bytes screen = test::png(170, 160, test::blocks(0));
    const std::string same = save(screen);
    const std::string before = kept(same);
    const Bytes again = test::png(170, 160, test::blocks(2));
    EXPECT_EQ(save(again), same);
    EXPECT_FALSE(fs::exists(before));
    EXPECT_EQ(store.originalData(same), (Original{again, "image/png"}));
    const std::string againFile = kept(same);

    // Trimmed: the sixteenth picture pushes out the oldest.
    std::vector<std::string> paths;
    for (int n = 2; n < 17; ++n)
        paths.push_back(kept(save(numbered(n))));
    EXPECT_EQ(sql("SELECT COUNT(*) FROM media WHERE id = '" + same + "'")[0][0], "0");
    EXPECT_FALSE(fs::exists(againFile));

    // Expired: an old unpinned picture goes at the next save.
    const std::string pinned = save(numbered(30));
    const std::string pinnedFile = kept(pinned);
    store.setPinned(pinned, true);
    env.clock.advance(double(ClipPrefs::defaultRetentionMinutes) * 60 + 10);
    const std::string fresh = save(numbered(31));
    for (const std::string& path : paths)
        EXPECT_FALSE(fs::exists(path)) << path;
    EXPECT_TRUE(fs::exists(pinnedFile));

    // Cleared: pinned pictures keep theirs.
    const std::string freshFile = kept(fresh);
    store.clear(true);
    EXPECT_FALSE(fs::exists(freshFile));
    EXPECT_TRUE(fs::exists(pinnedFile));
    store.clear(false);
    EXPECT_FALSE(fs::exists(pinnedFile));
    EXPECT_EQ(files(), 0u);
}

TEST_F(ImageOriginals, TheStartupSweepKeepsOriginalsRowsNameAndAMissingOneFallsBackLoudly) {
    const std::string id = save(numbered(1));
    const fs::path kept = original(id);
    const fs::path stray = folder() / "0A0A0A0A-0000-0000-0000-000000000000.orig.png";
    std::ofstream(stray) << "left by a crash";

    ImageClipStore restarted{env.context()};
    ASSERT_TRUE(restarted.open());
    EXPECT_TRUE(fs::exists(kept));
    EXPECT_FALSE(fs::exists(stray));
    EXPECT_EQ(restarted.originalData(id)->bytes, contents(kept));

    fs::remove(kept);
    EXPECT_EQ(restarted.originalData(id), std::nullopt);
    EXPECT_EQ(logged("could not be read; its reduced copy is used"), 1u);
    EXPECT_TRUE(restarted.fileData(id));
}

TEST_F(ImageOriginals, APictureFromAnotherDeviceHasNoOriginalAndReplacesTheOneKeptHere) {
    using SyncImage = ImageClipStore::SyncImage;
    const Bytes sent = test::jpeg(64, 48, test::gradient(64));
    const SyncImage received{.rid = "i_remote",
                             .created = env.clock.now(),
                             .modified = env.clock.now(),
                             .width = 64,
                             .height = 48};
    ASSERT_EQ(store.syncApply(received), ImageClipStore::ApplyResult::needsData);
    ASSERT_TRUE(store.syncStoreDownloaded("i_remote", sent));
    const std::string remoteId = sql("SELECT id FROM media WHERE rid = 'i_remote'").at(0).at(0);
    EXPECT_EQ(original(remoteId), "");
    EXPECT_EQ(store.originalData(remoteId), std::nullopt);

    // A later version of a picture captured here brings another picture: the
    // original kept here is of the old one, and goes with it.
    const std::string id = save(test::png(64, 48, test::gradient(64)));
    const std::string keptFile = original(id);
    SyncImage local = store.syncPending(8).images.at(0);
    ASSERT_NE(keptFile, "");
    env.clock.advance(5);
    local.file.clear();
    local.created = local.modified = env.clock.now();
    local.fp = Bytes(32, 0x33);
    local.ck = Bytes{2};
    ASSERT_EQ(store.syncApply(local), ImageClipStore::ApplyResult::changed);
    ASSERT_TRUE(store.syncStoreDownloaded(local.rid, test::png(64, 48, test::noise(9))));
    EXPECT_EQ(original(id), "");
    EXPECT_FALSE(fs::exists(keptFile));

    // A deletion from another device takes the original too.
    const std::string gone = save(numbered(40));
    const std::string goneFile = original(gone);
    const std::string rid = sql("SELECT rid FROM media WHERE id = '" + gone + "'").at(0).at(0);
    sql("UPDATE media SET dirty = 0 WHERE id = '" + gone + "'");
    EXPECT_TRUE(store.syncApplyDeletion(rid));
    EXPECT_FALSE(fs::exists(goneFile));
}

TEST_F(ImageOriginals, AHistoryFromBeforeOriginalsGainsTheColumnAndIsNeitherForeignNorLost) {
    fs::create_directories(env.library());
    test::rows(env.library() / "clipmedia.sqlite",
               "CREATE TABLE media(id TEXT PRIMARY KEY, file TEXT NOT NULL, thumb TEXT NOT NULL, "
               "w INTEGER NOT NULL, h INTEGER NOT NULL, bytes INTEGER NOT NULL, created REAL NOT "
               "NULL, pinned INTEGER NOT NULL DEFAULT 0); INSERT INTO media VALUES('OLD', "
               "'/nowhere/OLD.jpg', '/nowhere/OLD_t.jpg', 10, 10, 100, 1, 1)");
    ASSERT_TRUE(store.open());
    EXPECT_THAT(sql("SELECT id, orig IS NULL FROM media"), ElementsAre(Row{"OLD", "1"}));
    for (const auto& entry : fs::directory_iterator(env.library()))
        EXPECT_THAT(entry.path().filename().string(), ::testing::Not(HasSubstr("foreign")));
    EXPECT_EQ(store.originalData("OLD"), std::nullopt);
    EXPECT_THAT(env.log.lines(), IsEmpty());
}

}  // namespace
}  // namespace zettly
