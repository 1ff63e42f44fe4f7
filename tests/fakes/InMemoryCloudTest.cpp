#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/InMemoryCloud.h"

namespace zettly {
namespace {

using namespace std::string_literals;
using Code = CloudErrorCode;
using Names = std::vector<std::string>;
const std::string zoneName = "Clipboard";
constexpr auto unchanged = CloudSavePolicy::ifServerRecordUnchanged;

CloudRecord item(const std::string& name, const std::string& text) {
    CloudRecord record{.recordType = "ClipItem", .zoneName = zoneName, .recordName = name};
    record.encryptedFields["text"] = text;
    record.fields["modified"] = 1.5;
    return record;
}
CloudRecordID idOf(const std::string& name) {
    return {zoneName, name};
}
std::string textOf(const CloudRecord& record) {
    return std::get<std::string>(record.encryptedFields.at("text"));
}
// `base` with its system fields and a new text.
CloudRecord edited(const CloudRecord& base, const std::string& text) {
    CloudRecord record = *CloudRecord::fromSystemFields(base.systemFields);
    record.encryptedFields["text"] = text;
    return record;
}
Names namesIn(const std::vector<CloudPerRecord<CloudRecord>>& records) {
    Names names;
    for (const auto& change : records)
        names.push_back(change.id.recordName);
    return names;
}
template <typename T>
Code codeOf(const CloudResult<T>& result) {
    EXPECT_FALSE(result.ok());
    return result.ok() ? Code::internalError : result.error().code;
}

struct InMemoryCloudTest : ::testing::Test {
    InMemoryCloud cloud;
    std::unique_ptr<InMemoryContainer> a = cloud.container("ann");
    std::unique_ptr<InMemoryContainer> b = cloud.container("ann");
    CloudDatabase& dbA = a->privateDatabase();
    CloudDatabase& dbB = b->privateDatabase();

    void SetUp() override { ASSERT_TRUE(dbA.saveZones({zoneName})); }

    static CloudModifyResults modify(CloudDatabase& db, const std::vector<CloudRecord>& saves,
                                     const Names& deletes = {}, bool atomic = false) {
        std::vector<CloudRecordID> ids;
        for (const auto& name : deletes)
            ids.push_back(idOf(name));
        auto result = db.modifyRecords(saves, ids, unchanged, atomic);
        EXPECT_TRUE(result.ok()) << (result ? std::string() : result.error().description);
        return result ? result.value() : CloudModifyResults{};
    }
    static CloudResult<CloudRecord> saveOne(CloudDatabase& db, const CloudRecord& record,
                                            CloudSavePolicy policy = unchanged) {
        auto results = db.modifyRecords({record}, {}, policy, false);
        if (!results)
            return results.error();
        return results.value().saved.empty() ? CloudError() : results.value().saved.front().result;
    }
    Names serverNames() const {
        Names names;
        for (const auto& record : cloud.records("ann", zoneName))
            names.push_back(record.recordName);
        return names;
    }
};

TEST(CloudSystemFields, RoundTripAndDamagedBytesDecodeToNothing) {
    const CloudSystemFields fields{"Clipboard", "ClipItem", "r\0x"s, "7"};
    const CloudBytes bytes = encodeSystemFields(fields);
    EXPECT_EQ(decodeSystemFields(bytes), fields);
    auto record = CloudRecord::fromSystemFields(bytes);
    ASSERT_TRUE(record);
    EXPECT_EQ(record->id(), (CloudRecordID{"Clipboard", "r\0x"s}));
    EXPECT_EQ(record->systemFields, bytes);

    CloudBytes truncated(bytes.begin(), bytes.end() - 1), longer = bytes, wrongMagic = bytes;
    longer.push_back(0);
    wrongMagic[0] = 'X';
    for (const auto& bad : {truncated, longer, wrongMagic, CloudBytes{}})
        EXPECT_FALSE(CloudRecord::fromSystemFields(bad));
}

// Merging after a conflict (the server copy it carries, saved over) is what
// the two-device sync scenarios exercise; these are the rules underneath.
TEST_F(InMemoryCloudTest, OnlyTheCurrentChangeTagSavesOverARecordUnlessThePolicyOverwrites) {
    CloudRecord original = item("r1", "from A");
    original.encryptedFields["label"] = "work"s;
    auto first = saveOne(dbA, original);
    ASSERT_TRUE(first);
    auto merged = saveOne(dbB, item("r1", "from B"), CloudSavePolicy::changedKeys);
    ASSERT_TRUE(merged);
    EXPECT_EQ(textOf(merged.value()), "from B");
    EXPECT_TRUE(merged.value().encryptedFields.contains("label"));
    auto replaced = saveOne(dbB, item("r1", "from B"), CloudSavePolicy::allKeys);
    ASSERT_TRUE(replaced);
    EXPECT_FALSE(replaced.value().encryptedFields.contains("label"));
    EXPECT_NE(replaced.value().systemFields, merged.value().systemFields);

    for (const CloudRecord& stale : {edited(first.value(), "two"), item("r1", "new")}) {
        auto conflict = saveOne(dbA, stale);
        ASSERT_EQ(codeOf(conflict), Code::serverRecordChanged);
        EXPECT_EQ(conflict.error().serverRecord, replaced.value());
    }
}

TEST_F(InMemoryCloudTest, StaleSystemFieldsOfADeletedRecordAreAnUnknownItem) {
    auto saved = saveOne(dbA, item("r1", "one"));
    ASSERT_TRUE(saved);
    ASSERT_TRUE(modify(dbB, {}, {"r1"}).deleted.at(0).result);

    EXPECT_EQ(codeOf(saveOne(dbA, edited(saved.value(), "two"))), Code::unknownItem);
    EXPECT_EQ(codeOf(modify(dbA, {}, {"r1"}).deleted.at(0).result), Code::unknownItem);
    EXPECT_EQ(codeOf(dbA.fetchRecord(idOf("r1"))), Code::unknownItem);
    EXPECT_TRUE(saveOne(dbA, item("r1", "again")));
}

TEST_F(InMemoryCloudTest, AnAtomicBatchFailsWhollyWhileOtherBatchesFailPerRecord) {
    ASSERT_TRUE(saveOne(dbA, item("taken", "server")));

    auto atomic = modify(dbB, {item("fresh", "x"), item("taken", "y")}, {"missing"}, true);
    EXPECT_EQ(codeOf(atomic.saved.at(0).result), Code::batchRequestFailed);
    EXPECT_EQ(codeOf(atomic.saved.at(1).result), Code::serverRecordChanged);
    EXPECT_EQ(codeOf(atomic.deleted.at(0).result), Code::unknownItem);
    EXPECT_EQ(serverNames(), Names{"taken"});

    auto each = modify(dbB, {item("fresh", "x"), item("taken", "y")});
    EXPECT_EQ(each.saved.at(0).id, idOf("fresh"));
    EXPECT_TRUE(each.saved.at(0).result);
    EXPECT_EQ(codeOf(each.saved.at(1).result), Code::serverRecordChanged);
    EXPECT_EQ(serverNames(), (Names{"fresh", "taken"}));
}

TEST_F(InMemoryCloudTest, MalformedRequestsAndOversizedRecordsAreRefused) {
    EXPECT_EQ(codeOf(dbA.modifyRecords({item("r1", "x")}, {idOf("r1")}, unchanged, false)),
              Code::invalidArguments);
    auto saved = saveOne(dbA, item("r1", "x"));
    ASSERT_TRUE(saved);
    CloudRecord misnamed = edited(saved.value(), "y");
    misnamed.recordName = "r2";
    EXPECT_EQ(codeOf(saveOne(dbA, misnamed)), Code::invalidArguments);

    CloudRecord image{.recordType = "ClipImage", .zoneName = zoneName, .recordName = "img"};
    image.encryptedFields["data"] = CloudBytes(1'100'000);
    EXPECT_EQ(codeOf(saveOne(dbA, image)), Code::limitExceeded);
    image.encryptedFields["data"] = CloudBytes(900'000);
    EXPECT_TRUE(saveOne(dbA, image));
}

TEST_F(InMemoryCloudTest, FeedsAndFetchesByNameGiveOnlyTheDesiredKeys) {
    CloudRecord image{.recordType = "ClipImage", .zoneName = zoneName, .recordName = "img"};
    image.encryptedFields["data"] = CloudBytes{1, 2, 3};
    image.encryptedFields["w"] = std::int64_t{640};
    image.fields["created"] = 2.0;
    ASSERT_TRUE(saveOne(dbA, image));

    auto fetched = dbB.fetchRecords({idOf("img"), idOf("gone")}, Names{"data"});
    ASSERT_TRUE(fetched);
    ASSERT_EQ(fetched.value().size(), 2u);
    const CloudRecord& got = fetched.value()[0].result.value();
    EXPECT_EQ(got.encryptedFields, (CloudFields{{"data", CloudBytes{1, 2, 3}}}));
    EXPECT_TRUE(got.fields.empty());
    EXPECT_EQ(codeOf(fetched.value()[1].result), Code::unknownItem);

    auto feed = dbB.zoneChanges(zoneName, {}, Names{"w"});
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed.value().modified.at(0).result.value().encryptedFields,
              (CloudFields{{"w", std::int64_t{640}}}));
}

// Paging through a long feed and resuming after a failed page is covered by
// the sync scenario ChangesArriveInPagesAndAFailedFetchResumesAfterTheLastStoredPage.
TEST_F(InMemoryCloudTest, TheFeedListsEachRecordOnceAtItsLatestChangeAndDeletionsWithTheirType) {
    for (const char* name : {"r1", "r2", "r3"})
        ASSERT_TRUE(saveOne(dbA, item(name, name)));
    CloudRecord category{.recordType = "ClipCategory", .zoneName = zoneName, .recordName = "cat"};
    ASSERT_TRUE(saveOne(dbA, category));
    auto start = dbB.zoneChanges(zoneName, {}, std::nullopt);
    ASSERT_TRUE(start);
    auto quiet = dbB.zoneChanges(zoneName, start.value().token, std::nullopt);
    ASSERT_TRUE(quiet);
    EXPECT_TRUE(quiet.value().modified.empty());
    EXPECT_FALSE(quiet.value().moreComing);

    ASSERT_TRUE(saveOne(dbA, edited(dbA.fetchRecord(idOf("r1")).value(), "new")));
    ASSERT_TRUE(saveOne(dbA, item("brief", "saved then deleted")));
    modify(dbA, {}, {"cat", "brief"});
    auto everything = dbB.zoneChanges(zoneName, {}, std::nullopt);
    ASSERT_TRUE(everything);
    EXPECT_EQ(namesIn(everything.value().modified), (Names{"r2", "r3", "r1"}));
    auto limited = dbB.zoneChanges(zoneName, {}, std::nullopt, 1);
    ASSERT_TRUE(limited);
    EXPECT_EQ(namesIn(limited.value().modified), Names{"r2"});
    EXPECT_TRUE(limited.value().moreComing);

    auto since = dbB.zoneChanges(zoneName, start.value().token, std::nullopt);
    ASSERT_TRUE(since);
    ASSERT_EQ(namesIn(since.value().modified), Names{"r1"});
    EXPECT_EQ(textOf(since.value().modified[0].result.value()), "new");
    ASSERT_EQ(since.value().deleted.size(), 2u);
    EXPECT_EQ(since.value().deleted[0].id, idOf("cat"));
    EXPECT_EQ(since.value().deleted[0].recordType, "ClipCategory");
    EXPECT_EQ(since.value().deleted[1].recordType, "ClipItem");
}

// A user deletion, its recovery and the other device's expired token are the
// sync scenario AZoneTheUserDeletedIsRecreatedAndRefilledWithinOneSyncCall.
TEST_F(InMemoryCloudTest, AMissingZoneSaysWhetherTheUserDeletedItAndForeignTokensHaveExpired) {
    ASSERT_TRUE(saveOne(dbA, item("r1", "x")));
    EXPECT_EQ(codeOf(dbB.zoneChanges(zoneName, CloudBytes{1, 2, 3}, std::nullopt)),
              Code::changeTokenExpired);
    ASSERT_TRUE(dbA.deleteZones({zoneName}));
    EXPECT_EQ(codeOf(dbB.zoneChanges(zoneName, {}, std::nullopt)), Code::zoneNotFound);
    EXPECT_EQ(codeOf(saveOne(dbB, item("r2", "y"))), Code::zoneNotFound);
    EXPECT_EQ(codeOf(dbB.deleteZones({zoneName})), Code::zoneNotFound);

    ASSERT_TRUE(dbB.saveZones({zoneName}));
    EXPECT_TRUE(serverNames().empty());
    EXPECT_TRUE(cloud.deleteZoneByUser("ann", zoneName));
    EXPECT_FALSE(cloud.deleteZoneByUser("ann", zoneName));
    EXPECT_EQ(codeOf(dbA.fetchRecord(idOf("r1"))), Code::userDeletedZone);
    EXPECT_EQ(codeOf(dbA.saveSubscription({"clipboard-zone", zoneName})), Code::userDeletedZone);
    ASSERT_TRUE(dbA.saveZones({zoneName}));
    EXPECT_TRUE(dbA.zoneChanges(zoneName, {}, std::nullopt));
}

TEST_F(InMemoryCloudTest, ASaveIsPushedToTheUsersOtherOnlineDevicesThatSubscribed) {
    auto c = cloud.container("ann");
    auto otherUser = cloud.container("bob");
    Names pushes;
    auto record = [&](const std::string& who) {
        return [&pushes, who](const std::string& id) { pushes.push_back(who + ":" + id); };
    };
    a->setPushHandler(record("a"));
    // A push handler may call the server right away (the server is not locked).
    bool bSawTheSave = false;
    b->setPushHandler([&, push = record("b")](const std::string& id) {
        push(id);
        bSawTheSave = dbB.fetchRecord(idOf("r2")).ok();
    });
    c->setPushHandler(record("c"));
    otherUser->setPushHandler(record("bob"));

    ASSERT_TRUE(saveOne(dbA, item("r1", "before subscribing")));
    EXPECT_TRUE(pushes.empty());
    ASSERT_TRUE(dbA.saveSubscription({"clipboard-zone", zoneName}));
    c->setNetworkDown(true);
    ASSERT_TRUE(saveOne(dbA, item("r2", "x")));
    EXPECT_EQ(pushes, Names{"b:clipboard-zone"});
    EXPECT_TRUE(bSawTheSave);

    pushes.clear();
    ASSERT_TRUE(dbA.deleteZones({zoneName}));
    ASSERT_TRUE(dbA.saveZones({zoneName}));
    ASSERT_TRUE(saveOne(dbA, item("r3", "the subscription went with the zone")));
    EXPECT_TRUE(pushes.empty());
}

// Refused records, another user signing in and a network that is down are
// met by the sync scenarios ARecordTheServerRefuses..., AnotherAccountOnTheDevice...
// and DeletingTheCloudCopy...; this is what they do not show.
TEST_F(InMemoryCloudTest, InjectedFaultsHitOnlyTheirDeviceAndCallInTheOrderQueued) {
    a->failNext(CloudOperation::modifyRecords, CloudError(Code::requestRateLimited));
    a->failNext(CloudOperation::any, CloudError(Code::serviceUnavailable));
    EXPECT_TRUE(dbB.modifyRecords({item("r0", "x")}, {}, CloudSavePolicy::allKeys, false));
    EXPECT_EQ(codeOf(dbA.zoneChanges(zoneName, {}, std::nullopt)), Code::serviceUnavailable);
    EXPECT_EQ(codeOf(dbA.modifyRecords({}, {}, CloudSavePolicy::allKeys, false)),
              Code::requestRateLimited);
    EXPECT_TRUE(dbA.modifyRecords({}, {}, CloudSavePolicy::allKeys, false));

    a->setNetworkDown(true);
    EXPECT_EQ(codeOf(a->userRecordName()), Code::networkFailure);
    EXPECT_EQ(a->accountStatus().value(), CloudAccountStatus::available);
    a->setNetworkDown(false);
    a->setAccountStatus(CloudAccountStatus::noAccount);
    EXPECT_EQ(codeOf(dbA.saveZones({zoneName})), Code::notAuthenticated);
    a->signIn("bob");
    EXPECT_EQ(b->userRecordName().value(), "ann");
}

}  // namespace
}  // namespace zettly
