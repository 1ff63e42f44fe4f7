// The engine against a server that is not trusted with integrity and a
// computer whose clock is not trusted: whatever the server forges or the
// local database refuses, no device loses history, and the status says why.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sync/ClipRecords.h"
#include "tests/fakes/TestImages.h"
#include "tests/sync/SyncDevice.h"

namespace zettly {
namespace {

using test::SyncDevice;
using ::testing::Contains;
using ::testing::Each;
using ::testing::Not;

constexpr double kDay = 86400;

struct Distrust : ::testing::Test {
    std::vector<CloudRecord> records(const std::string& type) {
        auto all = server.records("ann", "Clipboard");
        std::erase_if(all, [&](const CloudRecord& r) { return r.recordType != type; });
        return all;
    }
    std::string ridOf(SyncDevice& device, const std::string& text) {
        auto name = ClipboardStore::recordName(text, *device.key());
        return name.value_or("");
    }
    void syncBoth() {
        a.sync();
        b.sync();
    }
    static std::string status(SyncDevice& device) { return device.lastError().value_or(""); }

    InMemoryCloud server;
    SyncDevice a{server, "ann"};
    SyncDevice b{server, "ann"};
};

TEST_F(Distrust, ForgedRecordsAndDeletionsAreWrittenOverAndNothingIsLostAnywhere) {
    for (const std::string text : {"alpha", "beta", "gamma"})
        a.copy(text);
    a.texts.setPinned(a.idOf("alpha"), true);
    a.texts.setLabel(a.idOf("beta"), "kept");
    auto work = a.texts.createCategory("Work");
    a.texts.setCategory(a.idOf("gamma"), work->id);
    syncBoth();
    const auto before = a.contents();
    ASSERT_EQ(b.contents(), before);

    // The server flips one record and deletes everything else without the key.
    ASSERT_TRUE(server.tamper("ann", "Clipboard", ridOf(a, "alpha")));
    for (const std::string text : {"beta", "gamma"})
        ASSERT_TRUE(server.forgeDeletion("ann", "Clipboard", ridOf(a, text)));
    ASSERT_TRUE(server.forgeDeletion("ann", "Clipboard", "cat_" + work->id));
    b.sync();
    EXPECT_EQ(b.contents(), before);
    EXPECT_EQ(status(b), ClipCloudSync::untrustedStatus);
    // B's copies went up over the forgeries, so A takes in nothing strange.
    a.sync();
    EXPECT_EQ(a.contents(), before);
    EXPECT_EQ(records("ClipItem").size(), 3u);
    EXPECT_EQ(records("ClipCategory").size(), 1u);
    EXPECT_FALSE(a.lastError());
    b.sync();
    EXPECT_FALSE(b.lastError()) << "a clean pass clears the status";
}

TEST_F(Distrust, AReplayedOldVersionAndAForgedKeyRollNothingBack) {
    std::string id = a.copy("note");
    a.texts.setLabel(id, "first");
    syncBoth();
    a.env.clock.advance(10);
    a.texts.setLabel(id, "second");
    syncBoth();
    const auto key = a.key();

    ASSERT_TRUE(server.replay("ann", "Clipboard", ridOf(a, "note")));
    ASSERT_TRUE(server.tamper("ann", "Clipboard", "ClipKey"));
    syncBoth();
    syncBoth();
    EXPECT_THAT(a.contents(), Contains("note @second"));
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_EQ(a.key(), key);
    EXPECT_EQ(b.key(), key);
    // Both the item and the key record are ours again on the server.
    auto keys = records("ClipKey");
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(keys[0].encryptedFields.at("k"), CloudValue(*key));
    auto notes = records("ClipItem");
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].encryptedFields.at("label"), CloudValue(std::string("second")));
}

TEST_F(Distrust, AClockFarFromTheServersExpiresNothingAndHoldsDeletionsBack) {
    for (int n = 0; n < 20; ++n)
        a.copy("text " + std::to_string(n));
    a.sync();
    // B runs 31 days ahead of everyone; its retention is 30 days.
    b.env.clock.advance(31 * kDay);
    b.cloud.inner->setClockSkew(31 * kDay);
    b.sync();
    EXPECT_EQ(b.contents().size(), 20u) << "nothing received is expired by a wrong clock";
    EXPECT_EQ(status(b), "Your computer's clock is 744 hours off");
    b.copy("new on b");  // a capture expires nothing here either
    b.texts.deleteItem(b.idOf("text 3"));
    b.sync();
    EXPECT_EQ(b.contents().size(), 20u);
    a.sync();
    EXPECT_EQ(a.contents().size(), 21u) << "the deletion waits for the clock";
    EXPECT_EQ(records("ClipItem").size(), 21u);

    // Set right again, the deletion made by the wrong clock is dropped
    // rather than sent (it is dated ahead of the server).
    b.env.clock.advance(-31 * kDay);
    b.cloud.inner->setClockSkew(0.5);
    b.sync();
    a.sync();
    EXPECT_EQ(records("ClipItem").size(), 21u);
    EXPECT_FALSE(b.lastError());
    EXPECT_EQ(a.contents().size(), 21u);
}

TEST_F(Distrust, APageTheDatabaseRefusesIsFetchedAgainAndAStuckRecordIsSetAside) {
    syncBoth();  // B holds the key before its history is taken
    for (int n = 0; n < 300; ++n)
        a.copy("entry " + std::to_string(n));
    a.sync();

    // Another program holds B's history while B fetches.
    b.texts.open();
    const auto file = b.env.library() / "clipboard.sqlite";
    test::HeldDatabase holder(file);
    ASSERT_TRUE(holder.held());
    b.sync();
    EXPECT_EQ(status(b), ClipCloudSync::applyHeldStatus);
    holder.release();
    b.sync();
    EXPECT_EQ(b.contents().size(), 300u);
    EXPECT_FALSE(b.lastError());

    // One record this database refuses every time, among ones it takes.
    test::rows(file,
               "CREATE TRIGGER refuse BEFORE INSERT ON items WHEN NEW.text = 'poison' "
               "BEGIN SELECT RAISE(ABORT, 'refused'); END");
    a.copy("poison");
    a.copy("fine");
    a.sync();
    for (int pass = 1; pass < ClipCloudSync::maxApplyAttempts; ++pass) {
        b.sync();
        EXPECT_EQ(status(b), ClipCloudSync::applyHeldStatus) << "the page is held, pass " << pass;
    }
    b.sync();
    EXPECT_THAT(b.contents(), Contains("fine"));
    EXPECT_THAT(b.contents(), Not(Contains("poison")));
    EXPECT_EQ(status(b), ClipCloudSync::setAsideStatus);

    test::rows(file, "DROP TRIGGER refuse");
    b.sync();
    EXPECT_THAT(b.contents(), Contains("poison"));
    EXPECT_FALSE(b.lastError());
    EXPECT_EQ(a.contents(), b.contents());
}

TEST_F(Distrust, APictureThatCannotBeHadWaitsLongerBeforeEachTry) {
    ASSERT_EQ(a.images.save(test::png(40, 30, test::gradient(40))),
              ImageClipStore::SaveResult::saved);
    a.sync();
    // The record now carries bytes that are no picture: B takes in its
    // metadata but cannot keep the bytes.
    CloudRecord record = records("ClipImage").at(0);
    const std::string rid = record.recordName;
    record.encryptedFields["data"] = CloudBytes(5000, 0x42);
    auto saved =
        a.cloud.privateDatabase().modifyRecords({record}, {}, CloudSavePolicy::allKeys, false);
    ASSERT_TRUE(saved && saved.value().saved.at(0).result);
    auto tries = [&] {
        return std::count(b.cloud.fetchedRecords.begin(), b.cloud.fetchedRecords.end(), rid);
    };
    b.sync();
    b.sync();
    EXPECT_EQ(tries(), 1) << "the second pass waits";
    b.env.clock.advance(61);
    b.sync();
    EXPECT_EQ(tries(), 2);
    EXPECT_EQ(status(b), ClipCloudSync::downloadsStatus);
    b.env.clock.advance(61);
    b.sync();
    EXPECT_EQ(tries(), 2) << "the wait doubles";
    EXPECT_THAT(b.contents(), Each(Not(::testing::HasSubstr("image"))));
}

}  // namespace
}  // namespace zettly
