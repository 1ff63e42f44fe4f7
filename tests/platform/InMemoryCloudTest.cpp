#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/InMemoryCloud.h"

namespace zettly {
namespace {

using namespace std::string_literals;
using Code = CloudErrorCode;
using Names = std::vector<std::string>;
const std::string zoneName = "Clipboard";

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

    static CloudModifyResults modify(
        CloudDatabase& db, const std::vector<CloudRecord>& saves, const Names& deletes = {},
        CloudSavePolicy policy = CloudSavePolicy::ifServerRecordUnchanged, bool atomic = false) {
        std::vector<CloudRecordID> ids;
        for (const auto& name : deletes)
            ids.push_back(idOf(name));
        auto result = db.modifyRecords(saves, ids, policy, atomic);
        EXPECT_TRUE(result.ok()) << (result ? std::string() : result.error().description);
        return result ? result.value() : CloudModifyResults{};
    }
    static CloudResult<CloudRecord> saveOne(
        CloudDatabase& db, const CloudRecord& record,
        CloudSavePolicy policy = CloudSavePolicy::ifServerRecordUnchanged) {
        auto results = modify(db, {record}, {}, policy);
        return results.saved.empty() ? CloudError() : results.saved.front().result;
    }
    // `base` with its system fields and a new text.
    static CloudRecord edited(const CloudRecord& base, const std::string& text) {
        CloudRecord record = *CloudRecord::fromSystemFields(base.systemFields);
        record.encryptedFields["text"] = text;
        return record;
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

TEST_F(InMemoryCloudTest, EverySaveGivesANewChangeTagAndOnlyTheCurrentOneMaySaveOver) {
    auto first = saveOne(dbA, item("r1", "one"));
    ASSERT_TRUE(first);
    auto seenByB = dbB.fetchRecord(idOf("r1"));
    ASSERT_TRUE(seenByB);
    EXPECT_EQ(seenByB.value(), first.value());

    auto second = saveOne(dbA, edited(first.value(), "two"));
    ASSERT_TRUE(second);
    EXPECT_NE(second.value().systemFields, first.value().systemFields);

    auto stale = saveOne(dbB, edited(seenByB.value(), "three"));
    ASSERT_EQ(codeOf(stale), Code::serverRecordChanged);
    ASSERT_TRUE(stale.error().serverRecord);
    EXPECT_EQ(*stale.error().serverRecord, second.value());

    EXPECT_TRUE(saveOne(dbB, edited(*stale.error().serverRecord, "three")));
    EXPECT_EQ(textOf(cloud.records("ann", zoneName).at(0)), "three");
}

TEST_F(InMemoryCloudTest, ANewRecordUnderATakenNameConflictsUnlessThePolicyOverwrites) {
    CloudRecord original = item("r1", "from A");
    original.encryptedFields["label"] = std::string("work");
    ASSERT_TRUE(saveOne(dbA, original));

    auto conflict = saveOne(dbB, item("r1", "from B"));
    ASSERT_EQ(codeOf(conflict), Code::serverRecordChanged);
    EXPECT_EQ(textOf(*conflict.error().serverRecord), "from A");

    auto merged = saveOne(dbB, item("r1", "from B"), CloudSavePolicy::changedKeys);
    ASSERT_TRUE(merged);
    EXPECT_EQ(textOf(merged.value()), "from B");
    EXPECT_TRUE(merged.value().encryptedFields.contains("label"));

    auto replaced = saveOne(dbB, item("r1", "from B"), CloudSavePolicy::allKeys);
    ASSERT_TRUE(replaced);
    EXPECT_FALSE(replaced.value().encryptedFields.contains("label"));
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

    auto atomic = modify(dbB, {item("fresh", "x"), item("taken", "y")}, {"missing"},
                         CloudSavePolicy::ifServerRecordUnchanged, true);
    EXPECT_EQ(codeOf(atomic.saved.at(0).result), Code::batchRequestFailed);
    EXPECT_EQ(codeOf(atomic.saved.at(1).result), Code::serverRecordChanged);
    EXPECT_EQ(codeOf(atomic.deleted.at(0).result), Code::unknownItem);
    EXPECT_EQ(serverNames(), Names{"taken"});
    EXPECT_EQ(textOf(cloud.records("ann", zoneName).at(0)), "server");

    auto each = modify(dbB, {item("fresh", "x"), item("taken", "y")});
    EXPECT_EQ(each.saved.at(0).id, idOf("fresh"));
    EXPECT_TRUE(each.saved.at(0).result);
    EXPECT_EQ(codeOf(each.saved.at(1).result), Code::serverRecordChanged);
    EXPECT_EQ(serverNames(), (Names{"fresh", "taken"}));
}

TEST_F(InMemoryCloudTest, MalformedRequestsAndOversizedRecordsAreRefused) {
    auto twice = dbA.modifyRecords({item("r1", "x")}, {idOf("r1")},
                                   CloudSavePolicy::ifServerRecordUnchanged, false);
    EXPECT_EQ(codeOf(twice), Code::invalidArguments);

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

TEST_F(InMemoryCloudTest, FetchingByNameGivesOnlyTheDesiredKeys) {
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
}

TEST_F(InMemoryCloudTest, TheChangeFeedPagesThroughEveryChangeOnceInOrder) {
    cloud.setPageSize(2);
    for (const char* name : {"r1", "r2", "r3", "r4", "r5"}) {
        CloudRecord record = item(name, name);
        record.encryptedFields["data"] = CloudBytes{9};
        ASSERT_TRUE(saveOne(dbA, record));
    }

    CloudBytes token;
    Names seen;
    std::vector<bool> more;
    do {
        auto page = dbB.zoneChanges(zoneName, token, Names{"text"});
        ASSERT_TRUE(page);
        for (const auto& [id, record] : page.value().modified) {
            seen.push_back(id.recordName);
            EXPECT_FALSE(record.value().encryptedFields.contains("data"));
        }
        more.push_back(page.value().moreComing);
        token = page.value().token;
    } while (more.back());
    EXPECT_EQ(seen, (Names{"r1", "r2", "r3", "r4", "r5"}));
    EXPECT_EQ(more, (std::vector<bool>{true, true, false}));

    auto quiet = dbB.zoneChanges(zoneName, token, std::nullopt);
    ASSERT_TRUE(quiet);
    EXPECT_TRUE(quiet.value().modified.empty());
    EXPECT_FALSE(quiet.value().moreComing);

    ASSERT_TRUE(saveOne(dbA, edited(dbA.fetchRecord(idOf("r2")).value(), "new")));
    cloud.setPageSize(10);
    auto everything = dbB.zoneChanges(zoneName, {}, std::nullopt);
    ASSERT_TRUE(everything);
    Names order;
    for (const auto& change : everything.value().modified)
        order.push_back(change.id.recordName);
    EXPECT_EQ(order, (Names{"r1", "r3", "r4", "r5", "r2"}));
    auto limited = dbB.zoneChanges(zoneName, {}, std::nullopt, 1);
    ASSERT_TRUE(limited);
    EXPECT_EQ(limited.value().modified.size(), 1u);
    EXPECT_TRUE(limited.value().moreComing);
    auto after = dbB.zoneChanges(zoneName, quiet.value().token, std::nullopt);
    ASSERT_TRUE(after);
    ASSERT_EQ(after.value().modified.size(), 1u);
    EXPECT_EQ(textOf(after.value().modified[0].result.value()), "new");
}

TEST_F(InMemoryCloudTest, DeletionsInTheFeedCarryTheirRecordType) {
    CloudRecord category{.recordType = "ClipCategory", .zoneName = zoneName, .recordName = "cat_1"};
    ASSERT_TRUE(saveOne(dbA, category));
    auto start = dbB.zoneChanges(zoneName, {}, std::nullopt);
    ASSERT_TRUE(start);

    ASSERT_TRUE(saveOne(dbA, item("brief", "saved then deleted")));
    modify(dbA, {}, {"cat_1", "brief"});
    auto changes = dbB.zoneChanges(zoneName, start.value().token, std::nullopt);
    ASSERT_TRUE(changes);
    EXPECT_TRUE(changes.value().modified.empty());
    ASSERT_EQ(changes.value().deleted.size(), 2u);
    EXPECT_EQ(changes.value().deleted[0].id, idOf("cat_1"));
    EXPECT_EQ(changes.value().deleted[0].recordType, "ClipCategory");
    EXPECT_EQ(changes.value().deleted[1].recordType, "ClipItem");
}

TEST_F(InMemoryCloudTest, AMissingZoneSaysWhetherTheUserDeletedIt) {
    ASSERT_TRUE(saveOne(dbA, item("r1", "x")));
    ASSERT_TRUE(dbA.deleteZones({zoneName}));
    EXPECT_EQ(codeOf(dbB.zoneChanges(zoneName, {}, std::nullopt)), Code::zoneNotFound);
    EXPECT_EQ(codeOf(dbB.modifyRecords({item("r2", "y")}, {},
                                       CloudSavePolicy::ifServerRecordUnchanged, false)),
              Code::zoneNotFound);
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

TEST_F(InMemoryCloudTest, ATokenFromBeforeTheZoneWasRecreatedHasExpired) {
    ASSERT_TRUE(saveOne(dbA, item("r1", "x")));
    auto before = dbB.zoneChanges(zoneName, {}, std::nullopt);
    ASSERT_TRUE(before);
    ASSERT_TRUE(dbA.deleteZones({zoneName}));
    ASSERT_TRUE(dbA.saveZones({zoneName}));
    modify(dbA, {item("r1", "y"), item("r2", "z")});

    EXPECT_EQ(codeOf(dbB.zoneChanges(zoneName, before.value().token, std::nullopt)),
              Code::changeTokenExpired);
    EXPECT_EQ(codeOf(dbB.zoneChanges(zoneName, CloudBytes{1, 2, 3}, std::nullopt)),
              Code::changeTokenExpired);
    auto fresh = dbB.zoneChanges(zoneName, {}, std::nullopt);
    ASSERT_TRUE(fresh);
    EXPECT_EQ(fresh.value().modified.size(), 2u);
}

TEST_F(InMemoryCloudTest, ASaveIsPushedToTheUsersOtherOnlineDevicesThatSubscribed) {
    auto c = cloud.container("ann");
    auto otherUser = cloud.container("bob");
    std::vector<std::string> pushes;
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

TEST_F(InMemoryCloudTest, InjectedFaultsHitOnlyTheirDeviceAndCall) {
    a->failNext(CloudOperation::modifyRecords, CloudError(Code::requestRateLimited));
    a->failNext(CloudOperation::any, CloudError(Code::serviceUnavailable));
    EXPECT_TRUE(dbB.modifyRecords({item("r0", "x")}, {}, CloudSavePolicy::allKeys, false));
    EXPECT_EQ(codeOf(dbA.zoneChanges(zoneName, {}, std::nullopt)), Code::serviceUnavailable);
    EXPECT_EQ(codeOf(dbA.modifyRecords({}, {}, CloudSavePolicy::allKeys, false)),
              Code::requestRateLimited);
    EXPECT_TRUE(dbA.modifyRecords({}, {}, CloudSavePolicy::allKeys, false));

    a->failRecord("bad", CloudError(Code::serverRejectedRequest));
    auto batch = modify(dbA, {item("good", "x"), item("bad", "y")});
    EXPECT_TRUE(batch.saved.at(0).result);
    EXPECT_EQ(codeOf(batch.saved.at(1).result), Code::serverRejectedRequest);
    a->failRecord("bad", std::nullopt);
    EXPECT_TRUE(saveOne(dbA, item("bad", "y")));

    a->setNetworkDown(true);
    EXPECT_EQ(codeOf(dbA.fetchRecord(idOf("good"))), Code::networkFailure);
    EXPECT_EQ(codeOf(a->userRecordName()), Code::networkFailure);
    EXPECT_EQ(a->accountStatus().value(), CloudAccountStatus::available);
    a->setNetworkDown(false);

    a->setAccountStatus(CloudAccountStatus::noAccount);
    EXPECT_EQ(a->accountStatus().value(), CloudAccountStatus::noAccount);
    EXPECT_EQ(codeOf(dbA.saveZones({zoneName})), Code::notAuthenticated);
    a->setAccountStatus(CloudAccountStatus::available);

    a->signIn("bob");
    EXPECT_EQ(a->userRecordName().value(), "bob");
    EXPECT_EQ(codeOf(dbA.fetchRecord(idOf("good"))), Code::zoneNotFound);
    EXPECT_EQ(b->userRecordName().value(), "ann");
}

}  // namespace
}  // namespace zettly
