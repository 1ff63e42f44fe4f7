#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ImageClipStore.h"
#include "store/ImageCodec.h"
#include "tests/fakes/ImageHistoryFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Apply = ImageClipStore::ApplyResult;
using SyncImage = ImageClipStore::SyncImage;
using test::Bytes;
using test::contents;
using test::numbered;
using test::Row;

// As the sender's store computes it for its own file.
Bytes fingerprint(const Bytes& picture) {
    auto reduced = ImageCodec::reduce(picture, ImageClipStore::fullPixels, std::nullopt, true);
    const auto& hash = reduced.value().fingerprint.value();
    return {hash.begin(), hash.end()};
}
std::string whole(double t) {
    return std::to_string(static_cast<std::int64_t>(t));
}
SyncImage remote(const std::string& rid, double created) {
    return {.rid = rid, .created = created, .modified = created, .width = 40, .height = 30};
}

class ImageSync : public test::ImageHistoryFixture {
protected:
    Row row(const std::string& rid, const std::string& columns) {
        auto found = sql("SELECT " + columns + " FROM media WHERE rid = '" + rid + "'");
        return found.empty() ? Row{} : found[0];
    }
    // Captures a picture a second after the last one and gives it as it would be uploaded.
    SyncImage capture(const Bytes& picture) {
        env.clock.advance(1);
        EXPECT_EQ(store.save(picture), ImageClipStore::SaveResult::saved);
        return store.syncPending(1).images.at(0);
    }
};

TEST_F(ImageSync, ARemoteImageWaitsForItsBytesPinnedFirstAndThenBecomesACleanRowOfItsRecord) {
    double t = env.clock.now();
    SyncImage photo = remote("i_photo", t - 10);
    photo.pinned = true;
    photo.label = "receipt";
    photo.mm = t - 3;
    photo.fp = Bytes(32, 0xAA);
    photo.ck = Bytes{1, 2, 3};
    SyncImage plain = remote("i_plain", t - 5);  // from a client that sent no size or fingerprint
    plain.width = plain.height = 0;
    for (const SyncImage& record : {photo, plain, remote("i_dropped", t - 1)})
        EXPECT_EQ(store.syncApply(record), Apply::needsData) << record.rid;
    EXPECT_THAT(store.syncPendingDownloads(24), ElementsAre("i_photo", "i_dropped", "i_plain"));
    EXPECT_THAT(store.syncPendingDownloads(1), ElementsAre("i_photo"));
    store.syncDropPending("i_dropped");

    // Sent reduced: the row keeps the size and fingerprint of the sender's file.
    Bytes jpeg = test::jpeg(48, 36, test::gradient(48));
    EXPECT_FALSE(store.syncStoreDownloaded("i_photo", Bytes(5000, 0x5A)));
    EXPECT_FALSE(store.syncStoreDownloaded("i_unknown", jpeg));
    EXPECT_EQ(files(), 0u);
    ASSERT_TRUE(store.syncStoreDownloaded("i_photo", jpeg));
    EXPECT_EQ(row("i_photo",
                  "w, h, CAST(created AS INTEGER), pinned, label, dirty, hex(ck), hex(fp), "
                  "CAST(mm AS INTEGER)"),
              (Row{"40", "30", whole(t - 10), "1", "receipt", "0", "010203", std::string(64, 'A'),
                   whole(t - 3)}));
    auto item = store.fetchAll().at(0);
    EXPECT_EQ(item.bytes, static_cast<std::int64_t>(fs::file_size(item.file)));
    EXPECT_FALSE(store.syncStoreDownloaded("i_photo", jpeg));  // no longer pending
    ASSERT_TRUE(store.syncStoreDownloaded("i_plain", jpeg));
    EXPECT_EQ(row("i_plain", "w, h, length(fp)"), (Row{"48", "36", "32"}));
    EXPECT_THAT(store.syncPendingDownloads(24), IsEmpty());
}

TEST_F(ImageSync, ALaterVersionWithAnotherPictureIsDownloadedIntoItsRowWhichKeepsItsMetadata) {
    Bytes before = test::png(64, 48, test::gradient(64));
    Bytes after = test::png(64, 48, test::noise(5));
    SyncImage local = capture(before);
    store.syncMarkSent(local.rid, local.modified, Bytes{1});
    std::string id = store.fetchAll().at(0).id;
    Row oldFiles = row(local.rid, "file, thumb");
    env.clock.advance(1);
    store.setLabel(id, "mine");  // newer than the sender's metadata, so the merge keeps it

    // The sender copied a changed screenshot of that window; each version comes a second later.
    auto version = [&](const Bytes& fp, std::uint8_t ck) {
        env.clock.advance(1);
        SyncImage v = local;
        v.file.clear();
        v.created = v.modified = env.clock.now();
        v.fp = fp;
        v.ck = Bytes{ck};
        return v;
    };
    SyncImage changed = version(fingerprint(after), 2);
    EXPECT_EQ(store.syncApply(changed), Apply::changed);  // moved up at once
    EXPECT_THAT(store.syncPendingDownloads(8), ElementsAre(local.rid));
    // Sent now, the old picture would replace the newer one on the server.
    EXPECT_THAT(store.syncPending(8).images, IsEmpty());
    env.clock.advance(2);
    store.setPinned(id, true);  // an edit meanwhile brings no picture of its own

    ASSERT_TRUE(store.syncStoreDownloaded(local.rid, after));
    EXPECT_THAT(sql("SELECT id, label, pinned, dirty, hex(ck) FROM media"),
                ElementsAre(Row{id, "mine", "1", "1", "02"}));
    EXPECT_TRUE(!fs::exists(oldFiles.at(0)) && !fs::exists(oldFiles.at(1)));
    EXPECT_EQ(files(), 2u);
    // The merged metadata goes up with the new picture.
    auto up = store.syncPending(8).images;
    ASSERT_EQ(up.size(), 1u);
    EXPECT_EQ(up[0].label, "mine");
    EXPECT_EQ(up[0].fp, changed.fp);
    auto stored = ImageCodec::fingerprint(contents(up[0].file)).value();
    EXPECT_EQ(Bytes(stored.begin(), stored.end()), changed.fp);

    // A later version with the row's own picture leaves nothing to download.
    store.syncApply(version(Bytes(32, 0x33), 3));
    store.syncApply(version(changed.fp.value(), 4));
    EXPECT_THAT(store.syncPendingDownloads(8), IsEmpty());
    // Nor does one that the same picture copied here again came after.
    store.syncApply(version(Bytes(32, 0x33), 5));
    env.clock.advance(10);
    ASSERT_EQ(store.save(after), ImageClipStore::SaveResult::saved);
    Row copiedHere = row(local.rid, "id, file");
    EXPECT_THAT(store.syncPendingDownloads(8), IsEmpty());
    EXPECT_FALSE(store.syncStoreDownloaded(local.rid, before));
    EXPECT_EQ(row(local.rid, "id, file"), copiedHere);
    EXPECT_EQ(copiedHere.at(0), id);
}

TEST_F(ImageSync, TheSamePictureFromTwoDevicesEndsUpAsOneRowUnderTheNameThatSortsFirst) {
    env.defaults.setData("clipSyncKey", Bytes(32, 7));
    SyncImage local = capture(test::png(170, 160, test::gradient(170)));
    ASSERT_TRUE(local.fp && local.ck == std::nullopt);
    auto copy = [&](const std::string& rid, int flippedBits, double later) {
        SyncImage other = local;
        other.rid = rid;
        other.created += later;
        other.modified = other.created;
        other.file.clear();
        for (int bit = 0; bit < flippedBits; ++bit)
            (*other.fp)[bit / 8] ^= std::uint8_t(1 << (bit % 8));
        return other;
    };
    // Too different, or captured too far apart: another picture.
    EXPECT_EQ(store.syncApply(copy("i_-far", 17, 0)), Apply::needsData);
    EXPECT_EQ(store.syncApply(copy("i_-late", 0, 1800)), Apply::needsData);

    // Not uploaded yet, the local name gives way even to one that sorts later.
    SyncImage phone = copy("i_zy", 16, -1799);
    phone.label = "from phone";
    phone.mm = phone.modified;
    phone.ck = Bytes{9};
    EXPECT_EQ(store.syncApply(phone), Apply::changed);
    EXPECT_THAT(sql("SELECT rid, label, hex(ck), dirty FROM media"),
                ElementsAre(Row{"i_zy", "from phone", "09", "1"}));
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones"), ElementsAre(Row{local.rid}));

    // Now uploaded, the local name wins over one that sorts later, but not over one before it.
    EXPECT_EQ(store.syncApply(copy("i_zz", 0, 0)), Apply::unchanged);
    EXPECT_EQ(row("i_zy", "label"), Row{"from phone"});
    EXPECT_EQ(store.syncApply(copy("i_-a", 0, 0)), Apply::changed);  // '-' sorts before hex digits
    EXPECT_THAT(sql("SELECT rid FROM media"), ElementsAre(Row{"i_-a"}));
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones ORDER BY key"),
                ElementsAre(Row{local.rid}, Row{"i_zy"}, Row{"i_zz"}));
}

TEST_F(ImageSync, ARemoteEditOfAKnownImageIsMergedAndTheRowAlwaysTakesTheServersTag) {
    SyncImage record = capture(numbered(1));  // not yet uploaded
    record.label = "invoice";
    record.mm = record.modified + 5;
    record.ck = Bytes{2};
    EXPECT_EQ(store.syncApply(record), Apply::changed);
    EXPECT_EQ(row(record.rid, "label, dirty, hex(ck)"), (Row{"invoice", "0", "02"}));

    // Pinned here after an older remote relabelling: ours wins and still has to go up.
    env.clock.advance(10);
    store.setPinned(store.fetchAll().at(0).id, true);
    record.label = "old";
    record.mm += 1;
    record.ck = Bytes{3};
    EXPECT_EQ(store.syncApply(record), Apply::unchanged);
    EXPECT_EQ(row(record.rid, "label, pinned, dirty, hex(ck)"), (Row{"invoice", "1", "1", "03"}));
}

TEST_F(ImageSync, DeletedExpiredAndCrowdedOutRecordsAreLeftOutAndDeletedNowhere) {
    double t = env.clock.now();
    std::string at = whole(t);
    ASSERT_THAT(store.syncPendingDownloads(1), IsEmpty());  // opens the database
    sql("INSERT INTO sync_tombstones VALUES('i_gone', " + at + ")");
    SyncImage gone = remote("i_gone", t - 100);
    gone.modified = t;
    EXPECT_EQ(store.syncApply(gone), Apply::unchanged);
    gone.modified = t + 1;  // saved again after our deletion
    EXPECT_EQ(store.syncApply(gone), Apply::needsData);

    env.defaults.setInteger("clipboardRetentionMinutes", 60);
    SyncImage old = remote("i_old", t - 3601);
    old.label = "kept";
    EXPECT_EQ(store.syncApply(old), Apply::needsData);
    old.label.reset();
    EXPECT_EQ(store.syncApply(old), Apply::unchanged);
    EXPECT_THAT(store.syncPendingDownloads(24), ElementsAre("i_gone"));
    // A clock that disagrees with the server's has no say in what is old.
    store.syncSetClockTrusted(false);
    EXPECT_EQ(store.syncApply(old), Apply::needsData);
    store.syncSetClockTrusted(true);
    store.syncDropPending(old.rid);

    // Fifteen unpinned images, and an older pinned one that does not count.
    for (int n = 1; n <= 16; ++n)
        sql("INSERT INTO media(id, file, thumb, w, h, bytes, created, pinned) VALUES('r" +
            std::to_string(n) + "', '', '', 1, 1, 1, " + whole(t - 3000 + n) + ", " +
            (n == 1 ? "1" : "0") + ")");
    double oldest = t - 3000 + 2;
    EXPECT_EQ(store.syncApply(remote("i_crowded", oldest)), Apply::unchanged);
    EXPECT_EQ(store.syncApply(remote("i_newer", oldest + 0.5)), Apply::needsData);
    SyncImage pinned = remote("i_pinned", oldest - 100);
    pinned.pinned = true;
    SyncImage filed = remote("i_filed", oldest - 100);
    filed.category = "work";
    for (const SyncImage& kept : {pinned, filed})
        EXPECT_EQ(store.syncApply(kept), Apply::needsData) << kept.rid;
    // Left out here only: the other devices keep them by their own rules.
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones"), IsEmpty());
}

TEST_F(ImageSync, ARemoteDeletionRemovesCleanRowsButSparesOnesWithUnsentEdits) {
    SyncImage clean = capture(numbered(1));
    SyncImage edited = capture(numbered(2));
    for (const SyncImage& image : {clean, edited}) {
        store.syncMarkSent(image.rid, image.modified, Bytes{1});
        sql("INSERT INTO sync_pending(rid, created, modified, pinned, w, h) VALUES('" + image.rid +
            "', 1, 1, 0, 1, 1); INSERT INTO sync_tombstones VALUES('" + image.rid + "', 1)");
    }
    store.setLabel(store.fetchAll().at(0).id, "mine");

    EXPECT_TRUE(store.syncApplyDeletion(clean.rid));
    EXPECT_FALSE(fs::exists(clean.file));
    EXPECT_FALSE(store.syncApplyDeletion(edited.rid));
    EXPECT_FALSE(store.syncApplyDeletion("i_unknown"));
    EXPECT_THAT(sql("SELECT rid, label FROM media"), ElementsAre(Row{edited.rid, "mine"}));
    EXPECT_EQ(files(), 2u);
    EXPECT_THAT(sql("SELECT rid FROM sync_pending UNION ALL SELECT key FROM sync_tombstones"),
                IsEmpty());
}

TEST_F(ImageSync, UploadsListDirtyRowsNewestFirstAndARowEditedDuringItsUploadStaysDirty) {
    env.defaults.setData("clipSyncKey", Bytes(32, 7));
    SyncImage a = capture(numbered(1));
    SyncImage b = capture(numbered(2));
    store.deleteItem(store.fetchAll().at(0).id);  // b
    SyncImage c = capture(numbered(3));
    sql("INSERT INTO sync_tombstones VALUES('i_ancient', " +
        whole(env.clock.now() - ImageClipStore::tombstoneLifetime - 1) + ")");

    auto batch = store.syncPending(8);
    ASSERT_EQ(batch.images.size(), 2u);
    EXPECT_EQ(batch.images[0], c);
    EXPECT_EQ(batch.images[1].rid, a.rid);
    EXPECT_THAT(batch.tombstones, ElementsAre(b.rid));
    EXPECT_EQ(store.syncPending(1).images.size(), 1u);

    store.syncMarkSent(a.rid, a.modified, Bytes{1});
    env.clock.advance(1);
    store.setLabel(store.fetchAll().at(0).id, "edited meanwhile");  // c
    store.syncMarkSent(c.rid, c.modified, Bytes{2});
    store.syncMarkSent(a.rid, a.modified, std::nullopt);
    EXPECT_THAT(sql("SELECT rid, dirty, hex(ck) FROM media ORDER BY created"),
                ElementsAre(Row{a.rid, "0", "01"}, Row{c.rid, "1", "02"}));

    // Both resets make every row a dirty, untagged row again and forget pending downloads.
    for (auto reset :
         {&ImageClipStore::syncPrepareFullUpload, &ImageClipStore::syncForgetServerState}) {
        store.syncMarkSent(a.rid, a.modified, Bytes{1});
        store.syncApply(remote("i_pending", env.clock.now()));
        (store.*reset)();
        EXPECT_THAT(sql("SELECT dirty, ck FROM media"),
                    ElementsAre(Row{"1", "NULL"}, Row{"1", "NULL"}));
        EXPECT_THAT(store.syncPendingDownloads(8), IsEmpty());
    }
}

}  // namespace
}  // namespace zettly
