#include <algorithm>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sync/ClipRecords.h"
#include "tests/fakes/TestImages.h"
#include "tests/sync/SyncDevice.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using Code = CloudErrorCode;
using test::SyncDevice;

struct CloudSync : ::testing::Test {
    std::vector<CloudRecord> records(const std::string& type, const std::string& user = "ann") {
        auto all = server.records(user, "Clipboard");
        std::erase_if(all, [&](const CloudRecord& r) { return r.recordType != type; });
        return all;
    }
    std::size_t count(const std::string& type) { return records(type).size(); }
    // The device holds a key, and it is the one key record on the server.
    void expectKeyOnServer(SyncDevice& device, const std::string& user = "ann") {
        ASSERT_TRUE(device.key());
        auto keys = records("ClipKey", user);
        ASSERT_EQ(keys.size(), 1u);
        EXPECT_EQ(keys[0].encryptedFields.at("k"), CloudValue(*device.key()));
    }
    // A stale change token makes the same call fetch again from the start.
    static void expectRefetchFromScratch(SyncDevice& device) {
        device.cloud.fetchedSince.clear();
        device.sync();
        ASSERT_EQ(device.cloud.fetchedSince.size(), 2u);
        EXPECT_FALSE(device.cloud.fetchedSince[0].empty());
        EXPECT_TRUE(device.cloud.fetchedSince[1].empty());
        EXPECT_FALSE(device.lastError());
    }
    void syncBoth() {
        a.sync();
        b.sync();
    }
    void advance(double seconds) {
        a.env.clock.advance(seconds);
        b.env.clock.advance(seconds);
    }
    static std::vector<std::string> chipOrder(SyncDevice& device) {
        return device.env.defaults.stringArray(prefkey::clipboardChipOrder)
            .value_or(std::vector<std::string>{});
    }

    // Whatever a scenario did, two more rounds leave both devices with the
    // same history, metadata and chip order.
    void TearDown() override {
        if (!expectConvergence || HasFatalFailure())
            return;
        syncBoth();
        syncBoth();
        EXPECT_EQ(a.contents(), b.contents()) << "the devices did not converge";
        EXPECT_EQ(chipOrder(a), chipOrder(b));
    }

    InMemoryCloud server;
    SyncDevice a{server, "ann"};
    SyncDevice b{server, "ann"};
    bool expectConvergence = true;
};

TEST_F(CloudSync, TheFirstDeviceMakesTheKeyTheSecondAdoptsItAndEditsConvergeBothWays) {
    a.copy("hello");
    auto work = a.texts.createCategory("Work");
    std::string link = a.copy("https://zettly.org");
    a.texts.setCategory(link, work->id);
    a.texts.setLabel(link, "site");
    a.texts.setPinned(a.idOf("hello"), true);
    a.texts.saveChipOrder({"pinned", work->id});
    b.copy("hello");
    b.copy("only on b");

    EXPECT_FALSE(a.sync());
    expectKeyOnServer(a);
    EXPECT_EQ(a.key()->size(), 32u);
    EXPECT_EQ(count("ClipItem"), 2u);
    EXPECT_EQ(count("ClipCategory"), 1u);
    EXPECT_EQ(count("ClipPrefs"), 1u);
    EXPECT_FALSE(a.lastError());
    EXPECT_EQ(a.env.defaults.doubleValue(prefkey::clipSyncLastAt), a.env.clock.now());

    EXPECT_TRUE(b.sync());
    EXPECT_EQ(b.key(), a.key());
    EXPECT_EQ(b.posted(), 1);
    EXPECT_EQ(count("ClipItem"), 3u) << "the same text copied on both devices is one record";
    a.sync();
    EXPECT_THAT(b.contents(),
                ElementsAre("hello [pinned]", "https://zettly.org [pinned] #Work @site",
                            "only on b", "category Work"));
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_EQ(chipOrder(b), chipOrder(a));

    advance(60);
    b.texts.deleteItem(b.idOf("only on b"));
    b.texts.setLabel(b.idOf("hello"), "greeting");
    b.sync();
    advance(60);
    a.texts.setCategory(link, std::nullopt);
    a.texts.deleteCategory(work->id);
    a.texts.saveChipOrder({"pinned", "url"});
    syncBoth();
    EXPECT_THAT(a.contents(),
                ElementsAre("hello [pinned] @greeting", "https://zettly.org [pinned] @site"));
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_THAT(chipOrder(b), ElementsAre("pinned", "url"));

    const int posted = b.posted();
    EXPECT_FALSE(b.sync()) << "nothing new arrived";
    EXPECT_EQ(b.posted(), posted);
}

TEST_F(CloudSync, TheLaterMetadataChangeWinsWhicheverDeviceSyncsFirst) {
    std::string id = a.copy("shared");
    syncBoth();
    advance(10);
    a.texts.setPinned(id, true);
    a.texts.saveChipOrder({"url", "pinned"});
    advance(10);
    b.texts.setLabel(b.idOf("shared"), "later");
    b.texts.saveChipOrder({"pinned", "image"});
    b.sync();
    syncBoth();
    // Pin, category and label travel as one stamped block: b's later block
    // replaces a's pin along with everything else.
    EXPECT_THAT(a.contents(), ElementsAre("shared @later"));
    EXPECT_THAT(chipOrder(a), ElementsAre("pinned", "image"));

    advance(10);
    a.texts.setPinned(id, true);
    syncBoth();
    EXPECT_THAT(b.contents(), ElementsAre("shared [pinned] @later"));
}

TEST_F(CloudSync, ADeletionRemovesTheRowElsewhereUnlessItWasChangedThereSince) {
    a.copy("gone");
    a.copy("edited on b");
    syncBoth();
    advance(5);
    a.texts.deleteItem(a.idOf("gone"));
    a.texts.deleteItem(a.idOf("edited on b"));
    advance(5);
    b.texts.setLabel(b.idOf("edited on b"), "keep");
    syncBoth();
    EXPECT_THAT(b.contents(), ElementsAre("edited on b @keep"));
    a.sync();
    EXPECT_THAT(a.contents(), ElementsAre("edited on b @keep")) << "b's edit brought it back";
    EXPECT_EQ(count("ClipItem"), 1u);
}

TEST_F(CloudSync, TheSameScreenshotOnBothDevicesEndsAsOneImageUnderOneName) {
    const auto shot = test::png(64, 48, test::gradient(64));
    ASSERT_EQ(a.images.save(shot), ImageClipStore::SaveResult::saved);
    advance(3);
    ASSERT_EQ(b.images.save(shot), ImageClipStore::SaveResult::saved);
    b.images.setLabel(b.images.fetchAll().at(0).id, "dashboard");
    syncBoth();
    a.sync();
    EXPECT_THAT(b.contents(), ElementsAre(EndsWith(" 64x48 @dashboard")));
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_EQ(count("ClipImage"), 1u);
}

TEST_F(CloudSync, AChangedScreenshotBecomesTheNewPictureOfItsEntryOnTheOtherDeviceToo) {
    // Block (2, 1) is 60 in the first screenshot and 20 in the second.
    auto brightness = [](ImageClipStore& images, const std::string& id) {
        return int(test::pixel(test::decode(images.fileData(id).value()).get(), 25, 15).r);
    };
    ASSERT_EQ(a.images.save(test::png(170, 160, test::blocks(0))),
              ImageClipStore::SaveResult::saved);
    std::string id = a.images.fetchAll().at(0).id;
    a.images.setLabel(id, "terminal");
    syncBoth();
    ASSERT_EQ(b.images.fetchAll().size(), 1u);
    EXPECT_NEAR(brightness(b.images, b.images.fetchAll()[0].id), 60, 8);

    advance(60);
    ASSERT_EQ(a.images.save(test::png(170, 160, test::blocks(4))),
              ImageClipStore::SaveResult::saved);
    ASSERT_EQ(a.images.fetchAll().at(0).id, id);
    a.sync();
    auto uploaded = records("ClipImage");
    ASSERT_EQ(uploaded.size(), 1u);
    EXPECT_EQ(uploaded[0].encryptedFields.at("data"), CloudValue(*a.images.fileData(id)));
    EXPECT_TRUE(b.sync());
    auto shown = b.images.fetchAll();
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0].label, "terminal");
    EXPECT_NEAR(brightness(b.images, shown[0].id), 20, 8);
}

TEST_F(CloudSync, TwoDevicesMakingTheKeyAtOnceBothEndWithTheOneSavedFirst) {
    a.copy("from a");
    b.copy("from b");
    b.cloud.beforeNextSave = [&] { a.sync(); };  // between b's key lookup and its save
    b.sync();
    a.sync();
    expectKeyOnServer(a);
    EXPECT_EQ(b.key(), a.key());
    EXPECT_THAT(a.contents(), ElementsAre("from a", "from b"));
    EXPECT_EQ(a.contents(), b.contents());
}

TEST_F(CloudSync, ASaveConflictMergesTheServerCopyAndTheRestOfTheBatchStillGoesUp) {
    syncBoth();
    a.copy("both");
    advance(30);
    b.copy("both");
    b.texts.setLabel(b.idOf("both"), "mine");
    b.copy("only b");
    b.cloud.passes = 0;
    b.cloud.beforeNextSave = [&] { a.sync(); };
    b.sync();
    EXPECT_FALSE(b.lastError());
    EXPECT_EQ(b.cloud.passes, 2) << "the merged copy goes up over the server's at once";
    a.sync();
    EXPECT_THAT(a.contents(), ElementsAre("both @mine", "only b"));
    EXPECT_EQ(a.contents(), b.contents());
}

TEST_F(CloudSync, ABacklogGoesUpInBatchesOf150AndOneCallStopsAfterFourPasses) {
    for (int i = 0; i < 151; ++i)
        a.copy("item " + std::to_string(i));
    a.sync();
    EXPECT_EQ(a.cloud.passes, 2);
    EXPECT_EQ(count("ClipItem"), 151u);

    // Sent again on every pass, as if its server copy kept vanishing.
    a.copy("stubborn");
    const std::string rid = *ClipboardStore::recordName("stubborn", a.key());
    a.cloud.inner->failRecord(rid, CloudError(Code::unknownItem));
    a.cloud.passes = 0;
    a.sync();
    EXPECT_EQ(a.cloud.passes, 4);
    EXPECT_EQ(a.background.pendingCount(), 0u) << "passes that move nothing do not go on";

    // A request while a pass runs is one more pass of the running call.
    a.cloud.inner->failRecord(rid, std::nullopt);
    a.cloud.passes = 0;
    a.cloud.beforeNextSave = [&] { EXPECT_FALSE(a.sync()); };
    a.sync();
    EXPECT_EQ(a.cloud.passes, 2);
    EXPECT_EQ(count("ClipItem"), 152u);
}

TEST_F(CloudSync, ABacklogDrainsInBackToBackCallsWithoutATickOrAnotherTrigger) {
    const std::size_t backlog = 1'050;
    a.env.defaults.setInteger(prefkey::clipboardLimit, 2'000);
    b.env.defaults.setInteger(prefkey::clipboardLimit, 2'000);
    for (std::size_t i = 0; i < backlog; ++i)
        a.copy("item " + std::to_string(i));

    // One trigger; the main queue (debounces, the cadence timer) never runs,
    // and the executor runs what the calls queue themselves.
    a.engine.syncInBackground("launch");
    a.background.runAll();
    EXPECT_GT(a.cloud.passes, ClipCloudSync::maxPasses) << "more than one call's worth";
    EXPECT_EQ(count("ClipItem"), backlog);
    EXPECT_TRUE(a.texts.syncPending(1).empty());
    EXPECT_EQ(a.background.pendingCount(), 0u);

    b.engine.syncInBackground("launch");
    b.background.runAll();
    EXPECT_EQ(b.texts.fetch(2'000, 0).size(), backlog);
}

TEST_F(CloudSync, AFailureEndsTheDrainingUntilTheNextTrigger) {
    for (int i = 0; i < 700; ++i)
        a.copy("item " + std::to_string(i));
    a.sync();
    ASSERT_EQ(a.background.pendingCount(), 1u) << "work is left: the next call is queued";
    const auto sent = count("ClipItem");

    a.cloud.inner->failNext(CloudOperation::modifyRecords, CloudError(Code::networkFailure));
    a.background.runAll();
    EXPECT_EQ(a.background.pendingCount(), 0u) << "a failure is not retried at once";
    EXPECT_EQ(count("ClipItem"), sent);
    EXPECT_EQ(a.lastError(), "CloudKit 4");

    a.engine.syncInBackground("timer");
    a.background.runAll();
    EXPECT_EQ(count("ClipItem"), 700u);
    EXPECT_FALSE(a.lastError());
}

TEST_F(CloudSync, ChangesArriveInPagesAFailedFetchResumesAndAnExpiredTokenStartsOver) {
    for (int i = 0; i < 6; ++i)
        a.copy("item " + std::to_string(i));
    a.sync();
    server.setPageSize(2);
    int fetches = 0;
    b.cloud.beforeFetch = [&]() -> std::optional<CloudError> {
        if (++fetches == 3)
            return CloudError(Code::networkFailure);
        return std::nullopt;
    };

    EXPECT_TRUE(b.sync()) << "the pages that arrived changed the history";
    EXPECT_EQ(b.lastError(), "CloudKit 4");
    EXPECT_EQ(b.cloud.passes, 1) << "a network failure waits for the next trigger";
    EXPECT_THAT(b.env.log.lines(),
                ElementsAre("[Ovrin] ClipSync: sync failed (mac): The network request failed"));
    EXPECT_EQ(b.texts.fetch(100, 0).size(), 3u);  // two pages: the key and three items
    EXPECT_FALSE(b.env.defaults.contains(prefkey::clipSyncLastAt));

    b.sync();
    ASSERT_EQ(b.cloud.fetchedSince.size(), 5u);
    EXPECT_FALSE(b.cloud.fetchedSince[3].empty());
    EXPECT_EQ(b.cloud.fetchedSince[3], b.cloud.fetchedSince[2]);
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_FALSE(b.lastError());
    EXPECT_EQ(b.env.defaults.doubleValue(prefkey::clipSyncLastAt), b.env.clock.now());

    server.setPageSize(100);
    b.cloud.inner->failNext(CloudOperation::zoneChanges, CloudError(Code::changeTokenExpired));
    expectRefetchFromScratch(b);
    EXPECT_EQ(a.contents(), b.contents());
}

TEST_F(CloudSync, AZoneTheUserDeletedIsRecreatedAndRefilledWithinOneSyncCall) {
    a.copy("kept");
    syncBoth();
    const auto oldKey = a.key();
    ASSERT_TRUE(server.deleteZoneByUser("ann", "Clipboard"));

    b.sync();
    EXPECT_THAT(b.env.log.lines(),
                ElementsAre("[Ovrin] ClipSync: zone missing (user deleted), recreating"));
    EXPECT_FALSE(b.lastError());
    expectKeyOnServer(b);
    EXPECT_NE(b.key(), oldKey);
    EXPECT_EQ(count("ClipItem"), 1u);

    // The other device's token belongs to the zone's earlier life.
    expectRefetchFromScratch(a);
    EXPECT_EQ(a.key(), b.key());
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_EQ(count("ClipItem"), 1u);
}

TEST_F(CloudSync, WithoutAnAccountABackendOrTheSwitchNothingButTheStatusHappens) {
    expectConvergence = false;
    a.copy("private");
    a.cloud.inner->setAccountStatus(CloudAccountStatus::noAccount);
    EXPECT_FALSE(a.sync());
    EXPECT_EQ(a.lastError(), "Sync is not set up");
    EXPECT_EQ(a.cloud.userChecks, 0);
    EXPECT_THAT(a.env.log.lines(), IsEmpty());
    EXPECT_THAT(server.records("ann", "Clipboard"), IsEmpty());

    ClipCloudSync unconfigured(
        {nullptr, b.texts, b.images, b.env.defaults, b.env.clock, b.env.log, b.main, b.background});
    EXPECT_FALSE(unconfigured.sync("launch"));
    EXPECT_EQ(b.lastError(), "Sync is not set up");
    EXPECT_FALSE(unconfigured.deleteCloudCopy());

    b.env.defaults.remove(prefkey::clipSyncLastError);
    b.env.defaults.setBool(prefkey::clipboardCloudSync, false);
    b.engine.syncSoon("local", 0);
    b.main.runPending();
    EXPECT_EQ(b.background.pendingCount(), 0u);
    EXPECT_FALSE(b.sync());
    EXPECT_EQ(b.cloud.passes, 0);
    EXPECT_FALSE(b.lastError());
}

TEST_F(CloudSync, AnotherAccountOnTheDeviceGetsTheWholeHistoryUnderItsOwnKey) {
    a.copy("mine");
    a.sync();
    a.sync();
    EXPECT_EQ(a.cloud.userChecks, 1) << "the user is checked at most every 600 s";
    const auto annKey = a.key();

    a.cloud.inner->signIn("bob");
    a.env.clock.advance(601);
    a.sync();
    EXPECT_THAT(a.env.log.lines(),
                ElementsAre("[Ovrin] ClipSync: iCloud account changed, re-uploading history"));
    EXPECT_EQ(a.env.defaults.string(prefkey::clipSyncUser), "bob");
    expectKeyOnServer(a, "bob");
    EXPECT_NE(a.key(), annKey);
    EXPECT_EQ(records("ClipItem", "bob").size(), 1u);
    EXPECT_FALSE(a.lastError());

    // Pointed at another server in the settings: checked at the next pass.
    a.cloud.inner->signIn("carol");
    a.engine.accountMayHaveChanged();
    a.sync();
    EXPECT_EQ(a.env.defaults.string(prefkey::clipSyncUser), "carol");
    EXPECT_EQ(records("ClipItem", "carol").size(), 1u);

    // A backend that can say what is wrong says it in the status.
    CloudError wrongPassphrase(Code::notAuthenticated);
    wrongPassphrase.userMessage = "The passphrase does not match the data on the sync server";
    a.cloud.inner->failNext(CloudOperation::accountStatus, wrongPassphrase);
    a.sync();
    EXPECT_EQ(a.lastError(), wrongPassphrase.userMessage);
}

TEST_F(CloudSync, BurstsOfLocalChangesLeadToOneSyncAfterTheLastOne) {
    a.copy("typed");
    for (int i = 0; i < 10; ++i) {
        a.engine.syncSoon("local", 1.5);
        a.main.advance(0.1);
    }
    a.main.advance(1.39);  // the last request was 1.1 s ago
    EXPECT_EQ(a.background.pendingCount(), 0u);
    a.main.advance(0.02);
    EXPECT_EQ(a.background.pendingCount(), 1u);
    a.background.runAll();
    EXPECT_EQ(a.cloud.passes, 1);
    EXPECT_EQ(count("ClipItem"), 1u);
}

TEST_F(CloudSync, ARecordTheServerRefusesIsReportedWhileTheOthersGoThrough) {
    a.sync();
    const double lastAt = a.env.defaults.doubleValue(prefkey::clipSyncLastAt);
    a.copy("refused");
    a.copy("accepted");
    const std::string rid = *ClipboardStore::recordName("refused", a.key());
    a.cloud.inner->failRecord(rid, CloudError(Code::serverRejectedRequest));
    a.env.clock.advance(5);

    a.sync();
    EXPECT_EQ(a.lastError(), "CloudKit 15");
    EXPECT_EQ(a.env.defaults.doubleValue(prefkey::clipSyncLastAt), lastAt);
    EXPECT_THAT(a.env.log.lines(),
                ElementsAre("[Ovrin] ClipSync: save failed " + rid.substr(0, 10) +
                            ": The server rejected the request"));
    EXPECT_EQ(count("ClipItem"), 1u);

    a.cloud.inner->failRecord(rid, std::nullopt);
    a.sync();
    EXPECT_FALSE(a.lastError());
    EXPECT_EQ(count("ClipItem"), 2u);
}

TEST_F(CloudSync, DeletingTheCloudCopyKeepsTheHistoryAndTheNextSyncStartsAfresh) {
    a.copy("stays");
    a.sync();
    const auto key = a.key();
    a.cloud.inner->setNetworkDown(true);
    auto failed = a.engine.deleteCloudCopy();
    ASSERT_FALSE(failed);
    EXPECT_EQ(failed.error().code, Code::networkFailure);
    EXPECT_EQ(a.key(), key);
    EXPECT_TRUE(a.env.defaults.boolValue(prefkey::syncZoneReady));

    a.cloud.inner->setNetworkDown(false);
    ASSERT_TRUE(a.engine.deleteCloudCopy());
    EXPECT_THAT(server.records("ann", "Clipboard"), IsEmpty());
    EXPECT_FALSE(a.key());
    EXPECT_THAT(a.contents(), ElementsAre("stays"));
    a.sync();
    EXPECT_NE(a.key(), key);
    EXPECT_EQ(count("ClipItem"), 1u);
}

TEST_F(CloudSync, ImagesTravelWithTheirBytesAndOnesAboveTheRecordLimitGoUpReduced) {
    ASSERT_EQ(a.images.save(test::png(40, 30, test::gradient(40))),
              ImageClipStore::SaveResult::saved);
    auto captured = a.images.fetchAll().at(0);
    a.images.setLabel(captured.id, "chart");
    a.sync();
    auto uploaded = records("ClipImage");
    ASSERT_EQ(uploaded.size(), 1u);
    EXPECT_EQ(uploaded[0].encryptedFields.at("data"), CloudValue(*a.images.fileData(captured.id)));
    EXPECT_TRUE(b.sync());
    EXPECT_EQ(b.posted(), 1);
    EXPECT_THAT(b.contents(), ElementsAre(EndsWith(" 40x30 @chart")));

    a.env.clock.advance(1);
    ASSERT_EQ(a.images.save(test::png(1280, 1280, test::noise(7))),
              ImageClipStore::SaveResult::saved);
    ASSERT_GT(a.images.fetchAll().at(0).bytes, 900'000);
    a.sync();
    std::vector<std::int64_t> sides;
    for (const auto& record : records("ClipImage")) {
        const auto& data = std::get<test::Bytes>(record.encryptedFields.at("data"));
        EXPECT_LE(data.size(), 900'000u);
        auto decoded = test::decode(data);
        sides.push_back(std::max(decoded->Xsize, decoded->Ysize));
    }
    std::sort(sides.begin(), sides.end());
    EXPECT_THAT(sides, ElementsAre(40, ::testing::AnyOf(800, 1024)));
    b.sync();
    EXPECT_EQ(b.images.fetchAll().size(), 2u);
}

}  // namespace
}  // namespace zettly
