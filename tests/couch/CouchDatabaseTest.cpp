#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/couch/CouchContainer.h"
#include "tests/fakes/PouchServer.h"
#include "tests/fakes/RecordingLog.h"

namespace zettly {
namespace {

using Code = CloudErrorCode;
using Json = nlohmann::json;
const std::string zone = "Clipboard";
constexpr auto unchanged = CloudSavePolicy::ifServerRecordUnchanged;
const std::vector<std::string> changeKeys{"text", "label", "created", "pinned", "w", "name", "k"};

CloudRecord item(const std::string& name, const std::string& text) {
    CloudRecord record{.recordType = "ClipItem", .zoneName = zone, .recordName = name};
    record.encryptedFields["text"] = text;
    record.fields["created"] = 1700000000.25;
    record.fields["pinned"] = std::int64_t{1};
    return record;
}
CloudRecord over(const CloudRecord& base, const std::string& text) {
    CloudRecord record = *CloudRecord::fromSystemFields(base.systemFields);
    record.encryptedFields["text"] = text;
    return record;
}
CloudRecordID idOf(const std::string& name) {
    return {zone, name};
}
std::string textOf(const CloudRecord& record) {
    return std::get<std::string>(record.encryptedFields.at("text"));
}
template <typename T>
Code codeOf(const CloudResult<T>& result) {
    EXPECT_FALSE(result.ok());
    return result.ok() ? Code::internalError : result.error().code;
}
std::string named(const std::vector<CloudPerRecord<CloudRecord>>& records) {
    std::string names;
    for (const auto& change : records)
        names += change.id.recordName + " ";
    return names;
}

struct CouchDatabaseTest : ::testing::Test {
    test::PouchServer server{ZETTLY_POUCHDB_SERVER};
    test::RecordingLog log;

    void SetUp() override { ASSERT_TRUE(server.start()) << server.output(); }

    CouchSettings settings(const std::string& passphrase = "correct horse battery") {
        return CouchSettings{.databaseUrl = server.url() + "/zettly",
                             .user = test::PouchServer::user,
                             .password = test::PouchServer::password,
                             .passphrase = passphrase,
                             .kdf = synccrypto::KdfStrength::interactive,
                             .requestTimeoutSeconds = 10,
                             .longPollSeconds = 5};
    }
    std::unique_ptr<CouchContainer> device(CouchSettings with) {
        return std::make_unique<CouchContainer>(std::move(with), log);
    }
    std::unique_ptr<CouchContainer> device() { return device(settings()); }

    static CloudRecord saved(CloudDatabase& db, const CloudRecord& record) {
        auto answer = db.modifyRecords({record}, {}, unchanged, false);
        EXPECT_TRUE(answer.ok()) << answer.error().description;
        EXPECT_TRUE(answer.value().saved.at(0).result.ok())
            << answer.value().saved.at(0).result.error().description;
        return answer.value().saved.at(0).result.value();
    }
    static CloudResult<> deletion(CloudDatabase& db, const std::string& name) {
        auto answer = db.modifyRecords({}, {idOf(name)}, unchanged, false);
        if (!answer)
            return answer.error();
        return answer.value().deleted.at(0).result;
    }
};

TEST_F(CouchDatabaseTest, RecordsComeBackWithTheirFieldsAndImageBytesOnlyWhenAskedFor) {
    CouchSettings first = settings();
    std::optional<synccrypto::MasterKey> derived;
    synccrypto::Bytes salt;
    first.keyDerived = [&](const synccrypto::Bytes& s, const synccrypto::MasterKey& key) {
        salt = s;
        derived = key;
    };
    auto a = device(first);
    EXPECT_EQ(a->accountStatus().value(), CloudAccountStatus::available);  // before set-up
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    ASSERT_TRUE(derived.has_value());
    EXPECT_EQ(a->userRecordName().value(), test::PouchServer::user);

    CloudRecord image{.recordType = "ClipImage", .zoneName = zone, .recordName = "img1"};
    image.fields = {{"created", 3.0}, {"pinned", std::int64_t{0}}, {"mm", -2.5e-3}};
    image.encryptedFields = {{"label", "Beach"},
                             {"w", std::int64_t{640}},
                             {"fp", CloudBytes{0, 1, 2}},
                             {"data", CloudBytes(300'000, 0xAB)}};
    CloudRecord stored = saved(a->privateDatabase(), image);
    CloudRecord withTag = image;
    withTag.systemFields = stored.systemFields;
    EXPECT_EQ(stored, withTag);

    // Another device: the cached key serves it, so nothing is derived again.
    CouchSettings second = settings();
    second.cachedKey = derived;
    second.cachedKeySalt = salt;
    bool derivedAgain = false;
    second.keyDerived = [&](const auto&, const auto&) { derivedAgain = true; };
    auto b = device(second);
    ASSERT_EQ(b->accountStatus().value(), CloudAccountStatus::available);
    auto full = b->privateDatabase().fetchRecord(idOf("img1"));
    ASSERT_TRUE(full.ok()) << full.error().description;
    EXPECT_EQ(full.value(), withTag);
    EXPECT_FALSE(derivedAgain);

    auto changes = b->privateDatabase().zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(changes.ok()) << changes.error().description;
    ASSERT_EQ(changes.value().modified.size(), 1u);
    const CloudRecord& listed = changes.value().modified[0].result.value();
    EXPECT_EQ(listed.fields, (CloudFields{{"created", 3.0}, {"pinned", std::int64_t{0}}}));
    EXPECT_EQ(listed.encryptedFields, (CloudFields{{"label", "Beach"}, {"w", std::int64_t{640}}}));

    auto bytes = b->privateDatabase().fetchRecord(idOf("img1"), std::vector<std::string>{"data"});
    ASSERT_TRUE(bytes.ok());
    EXPECT_EQ(bytes.value().encryptedFields, (CloudFields{{"data", CloudBytes(300'000, 0xAB)}}));
    EXPECT_TRUE(bytes.value().fields.empty());
    EXPECT_EQ(codeOf(b->privateDatabase().fetchRecord(idOf("nothing"))), Code::unknownItem);
}

TEST_F(CouchDatabaseTest, ASaveOverAnotherDevicesVersionMeetsTheServersCopy) {
    auto a = device();
    auto b = device();
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    CloudDatabase& dbA = a->privateDatabase();
    CloudDatabase& dbB = b->privateDatabase();
    CloudRecord first = saved(dbA, item("r1", "one"));
    CloudRecord theirs = saved(dbB, over(first, "B's edit"));

    auto stale =
        dbA.modifyRecords({over(first, "A's edit"), item("r1x", "fresh")}, {}, unchanged, false);
    ASSERT_TRUE(stale.ok());
    const auto& conflict = stale.value().saved[0].result;
    EXPECT_EQ(codeOf(conflict), Code::serverRecordChanged);
    ASSERT_TRUE(conflict.error().serverRecord.has_value());
    EXPECT_EQ(*conflict.error().serverRecord, theirs);
    EXPECT_TRUE(stale.value().saved[1].result.ok());

    // A new record under a taken name, and the same atomically with another.
    auto fresh = dbB.modifyRecords({item("r1", "new"), item("r2", "other")}, {}, unchanged, true);
    ASSERT_TRUE(fresh.ok());
    EXPECT_EQ(codeOf(fresh.value().saved[0].result), Code::serverRecordChanged);
    EXPECT_EQ(textOf(*fresh.value().saved[0].result.error().serverRecord), "B's edit");
    EXPECT_EQ(codeOf(fresh.value().saved[1].result), Code::batchRequestFailed);
    EXPECT_EQ(codeOf(dbA.fetchRecord(idOf("r2"))), Code::unknownItem);

    // The other policies overwrite whatever version the server has.
    CloudRecord label = item("r1", "ignored");
    label.encryptedFields = {{"label", "work"}};
    label.fields = {{"modified", 9.0}};
    auto merged = dbA.modifyRecords({label}, {}, CloudSavePolicy::changedKeys, false);
    ASSERT_TRUE(merged.ok() && merged.value().saved[0].result.ok());
    auto now = dbB.fetchRecord(idOf("r1")).value();
    EXPECT_EQ(textOf(now), "B's edit");
    EXPECT_EQ(now.encryptedFields.at("label"), CloudValue("work"));
    EXPECT_EQ(now.fields, (CloudFields{{"modified", 9.0}}));
    auto replaced = dbA.modifyRecords({label}, {}, CloudSavePolicy::allKeys, false);
    ASSERT_TRUE(replaced.ok() && replaced.value().saved[0].result.ok());
    EXPECT_FALSE(dbB.fetchRecord(idOf("r1")).value().encryptedFields.contains("text"));
}

TEST_F(CouchDatabaseTest, DeletionsKeepTheTypeForTheFeedAndLeaveStaleCopiesUnknown) {
    auto a = device();
    auto b = device();
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    CloudDatabase& dbA = a->privateDatabase();
    CloudRecord kept = saved(dbA, item("r1", "one"));
    auto start = dbA.zoneChanges(zone, {}, changeKeys).value().token;

    EXPECT_TRUE(deletion(b->privateDatabase(), "r1"));
    EXPECT_EQ(codeOf(deletion(b->privateDatabase(), "r1")), Code::unknownItem);
    auto stale = dbA.modifyRecords({over(kept, "late edit")}, {}, unchanged, false);
    ASSERT_TRUE(stale.ok());
    EXPECT_EQ(codeOf(stale.value().saved[0].result), Code::unknownItem);

    auto changes = dbA.zoneChanges(zone, start, changeKeys);
    ASSERT_TRUE(changes.ok());
    EXPECT_TRUE(changes.value().modified.empty());
    ASSERT_EQ(changes.value().deleted.size(), 1u);
    EXPECT_EQ(changes.value().deleted[0].id, idOf("r1"));
    EXPECT_EQ(changes.value().deleted[0].recordType, "ClipItem");
    // The name is free again for a new record.
    EXPECT_EQ(textOf(saved(dbA, item("r1", "again"))), "again");
}

TEST_F(CouchDatabaseTest, ChangesComeInPagesThatResumeFromTheirToken) {
    auto a = device();
    CloudDatabase& db = a->privateDatabase();
    ASSERT_TRUE(db.saveZones({zone}));
    for (const char* name : {"p1", "p2", "p3", "p4", "p5"})
        saved(db, item(name, name));

    CloudBytes token;
    std::string seen;
    int pages = 0;
    for (bool more = true; more; ++pages) {
        auto page = db.zoneChanges(zone, token, changeKeys, 2);
        ASSERT_TRUE(page.ok()) << page.error().description;
        EXPECT_LE(page.value().modified.size(), 2u);
        seen += named(page.value().modified);
        token = page.value().token;
        more = page.value().moreComing;
        ASSERT_LT(pages, 5);
    }
    EXPECT_EQ(seen, "p1 p2 p3 p4 p5 ");
    EXPECT_GE(pages, 3);

    saved(db, item("p6", "later"));
    auto next = db.zoneChanges(zone, token, changeKeys);
    ASSERT_TRUE(next.ok());
    EXPECT_EQ(named(next.value().modified), "p6 ");
    EXPECT_FALSE(next.value().moreComing);
    EXPECT_EQ(codeOf(db.zoneChanges(zone, CloudBytes{1, 2, 3}, changeKeys)),
              Code::changeTokenExpired);
}

TEST_F(CouchDatabaseTest, ARecordThatDoesNotOpenIsSkippedAndLoggedOnce) {
    auto a = device();
    CloudDatabase& db = a->privateDatabase();
    ASSERT_TRUE(db.saveZones({zone}));
    saved(db, item("good", "fine"));
    const Json forged = {
        {"recordType", "ClipItem"}, {"fields", Json::object()}, {"sealed", "AAAA"}};
    ASSERT_EQ(server.request("PUT", "/zettly/forged", forged.dump()).status, 201);

    for (int round = 0; round < 2; ++round) {
        auto changes = db.zoneChanges(zone, {}, changeKeys);
        ASSERT_TRUE(changes.ok());
        ASSERT_EQ(named(changes.value().modified), "good forged ");
        EXPECT_TRUE(changes.value().modified[0].result.ok());
        EXPECT_FALSE(changes.value().modified[1].result.ok());
        EXPECT_TRUE(changes.value().deleted.empty());
    }
    EXPECT_EQ(log.lines().size(), 1u);
}

TEST_F(CouchDatabaseTest, DeletingTheZoneSendsOtherDevicesBackToTheStart) {
    auto a = device();
    auto b = device();
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    saved(a->privateDatabase(), item("r1", "one"));
    auto token = b->privateDatabase().zoneChanges(zone, {}, changeKeys).value().token;

    ASSERT_TRUE(a->privateDatabase().deleteZones({zone}));
    EXPECT_EQ(codeOf(b->privateDatabase().zoneChanges(zone, token, changeKeys)),
              Code::userDeletedZone);
    // Starting afresh shows no deletions: the wipe is not the user's.
    auto fresh = b->privateDatabase().zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(fresh.ok());
    EXPECT_TRUE(fresh.value().modified.empty());
    EXPECT_TRUE(fresh.value().deleted.empty());
    EXPECT_EQ(codeOf(b->privateDatabase().fetchRecord(idOf("r1"))), Code::unknownItem);

    ASSERT_EQ(server.request("DELETE", "/zettly").status, 200);
    EXPECT_EQ(codeOf(b->privateDatabase().zoneChanges(zone, {}, changeKeys)), Code::zoneNotFound);
    EXPECT_EQ(codeOf(b->privateDatabase().modifyRecords({item("r2", "x")}, {}, unchanged, false)),
              Code::zoneNotFound);
    EXPECT_EQ(codeOf(b->privateDatabase().deleteZones({zone})), Code::zoneNotFound);
    ASSERT_TRUE(b->privateDatabase().saveZones({zone}));
    EXPECT_TRUE(b->privateDatabase().zoneChanges(zone, {}, changeKeys).ok());
}

TEST_F(CouchDatabaseTest, AWrongPassphraseIsToldBeforeAnythingElseIsReadOrWritten) {
    auto a = device();
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    saved(a->privateDatabase(), item("r1", "one"));
    const auto before = server.request("GET", "/zettly/_all_docs").body;
    server.settle();
    const auto logged = server.requests().size();

    auto wrong = device(settings("wrong horse battery"));
    auto status = wrong->accountStatus();
    ASSERT_FALSE(status.ok());
    EXPECT_EQ(status.error().code, Code::notAuthenticated);
    EXPECT_EQ(status.error().userMessage,
              "The passphrase does not match the data on the sync server");
    CloudDatabase& db = wrong->privateDatabase();
    EXPECT_EQ(codeOf(db.zoneChanges(zone, {}, changeKeys)), Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.fetchRecords({idOf("r1")}, std::nullopt)), Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.modifyRecords({item("r2", "x")}, {idOf("r1")}, unchanged, false)),
              Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.saveZones({zone})), Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.deleteZones({zone})), Code::notAuthenticated);
    EXPECT_FALSE(wrong->testConnection().ok);

    server.settle();
    auto requests = server.requests();
    requests.erase(requests.begin(), requests.begin() + static_cast<std::ptrdiff_t>(logged));
    for (const auto& request : requests)
        EXPECT_TRUE(request == "GET /_session" || request == "GET /zettly/zettly-marker" ||
                    request == "GET /zettly" || request == "GET /")
            << request;
    EXPECT_EQ(server.request("GET", "/zettly/_all_docs").body, before);
}

TEST_F(CouchDatabaseTest, TheServerSeesNoUserTextLabelNameOrKey) {
    CouchSettings with = settings();
    std::optional<synccrypto::MasterKey> master;
    with.keyDerived = [&](const auto&, const synccrypto::MasterKey& key) { master = key; };
    auto a = device(with);
    CloudDatabase& db = a->privateDatabase();
    ASSERT_TRUE(db.saveZones({zone}));
    CloudRecord text = item("r1", "my bank PIN is 4711");
    text.encryptedFields["label"] = "Personal label";
    CloudRecord category{.recordType = "ClipCategory", .zoneName = zone, .recordName = "cat_c1"};
    category.encryptedFields["name"] = "Secret Category";
    const CloudBytes syncKey(32, 0x5A);
    CloudRecord key{.recordType = "ClipKey", .zoneName = zone, .recordName = "ClipKey"};
    key.encryptedFields["k"] = syncKey;
    CloudRecord image{.recordType = "ClipImage", .zoneName = zone, .recordName = "img"};
    const std::string pixels = "PNG pixels of a private photo";
    image.encryptedFields["data"] = CloudBytes(pixels.begin(), pixels.end());
    auto answer = db.modifyRecords({text, category, key, image}, {}, unchanged, false);
    ASSERT_TRUE(answer.ok());
    ASSERT_TRUE(master.has_value());

    const auto raw =
        server.request("GET", "/zettly/_all_docs?include_docs=true&attachments=true").body;
    ASSERT_NE(raw.find("ClipCategory"), std::string::npos);  // the documents are there
    auto hexOf = [](std::span<const std::uint8_t> bytes) {
        std::string out;
        for (auto b : bytes) {
            out += "0123456789abcdef"[b >> 4];
            out += "0123456789abcdef"[b & 15];
        }
        return out;
    };
    const auto masterBytes = master->bytes();
    for (const std::string& secret :
         {std::string("bank PIN is"), std::string("Personal label"), std::string("Secret Category"),
          std::string("private photo"), std::string(syncKey.begin(), syncKey.end()),
          std::string("WlpaWlpaWlpa"), hexOf(syncKey), hexOf(masterBytes),
          std::string(masterBytes.begin(), masterBytes.end())})
        EXPECT_EQ(raw.find(secret), std::string::npos) << secret;
}

TEST_F(CouchDatabaseTest, FailuresMapToTheCodesTheEngineKnows) {
    EXPECT_EQ(device(CouchSettings{})->accountStatus().value(), CloudAccountStatus::noAccount);
    CouchSettings refused = settings();
    refused.password = "not the password";
    EXPECT_EQ(codeOf(device(refused)->accountStatus()), Code::notAuthenticated);
    EXPECT_EQ(codeOf(device(refused)->privateDatabase().saveZones({zone})), Code::notAuthenticated);

    auto a = device();
    server.stop();
    EXPECT_EQ(codeOf(a->accountStatus()), Code::networkFailure);
    EXPECT_EQ(codeOf(a->privateDatabase().zoneChanges(zone, {}, changeKeys)), Code::networkFailure);
    EXPECT_FALSE(a->testConnection().ok);

    // Back on the same address, empty: the device sets it up again.
    ASSERT_TRUE(server.start()) << server.output();
    EXPECT_EQ(a->accountStatus().value(), CloudAccountStatus::available);
    EXPECT_EQ(codeOf(a->privateDatabase().zoneChanges(zone, {}, changeKeys)), Code::zoneNotFound);
    EXPECT_TRUE(a->privateDatabase().saveZones({zone}));
}

TEST(CouchUrl, OnlyLoopbackAddressesMayUsePlainHttp) {
    for (const char* fine : {"https://couch.example.org/zettly", "http://127.0.0.1:5984/zettly",
                             "http://localhost:5984/zettly/", "http://[::1]:5984/zettly",
                             "https://example.org/couch/zettly"})
        EXPECT_FALSE(couchUrlProblem(fine)) << fine;
    for (const char* refused :
         {"", "http://couch.example.org/zettly", "http://127.0.0.1.example.org/zettly",
          "http://10.0.0.2:5984/zettly", "https://couch.example.org/", "ftp://example.org/db",
          "couch.example.org/zettly", "https://ann:pw@couch.example.org/zettly"})
        EXPECT_TRUE(couchUrlProblem(refused)) << refused;
}

TEST_F(CouchDatabaseTest, AnotherDevicesSaveWakesThePushHandler) {
    auto a = device();
    auto b = device();
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    std::atomic<int> pushes{0};
    std::string subscription;
    b->setPushHandler([&](const std::string& id) {
        subscription = id;
        ++pushes;
    });
    // The long-poll starts from "now": saves go on until it has seen one.
    for (int i = 0; pushes == 0 && i < 300; ++i) {
        saved(a->privateDatabase(), item("r" + std::to_string(i), "x"));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ASSERT_GT(pushes.load(), 0);
    EXPECT_EQ(subscription, "clipboard-zone");
    b->setPushHandler({});  // returns once the poll has ended, long before its timeout
}

}  // namespace
}  // namespace zettly
