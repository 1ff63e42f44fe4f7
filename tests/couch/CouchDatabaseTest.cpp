#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "platform/couch/CouchContainer.h"
#include "platform/couch/CouchDocuments.h"
#include "tests/fakes/PouchServer.h"
#include "tests/fakes/RecordingLog.h"

namespace zettly {
namespace {

using Code = CloudErrorCode;
const std::string zone = "Clipboard";
constexpr auto unchanged = CloudSavePolicy::ifServerRecordUnchanged;
const std::vector<std::string> changeKeys{"text", "label", "created", "pinned", "w", "name", "k"};

CloudRecord item(const std::string& name, const std::string& text) {
    CloudRecord record{.recordType = "ClipItem", .zoneName = zone, .recordName = name};
    record.encryptedFields["text"] = text;
    record.fields["created"] = 1700000000.25;
    return record;
}
// A save over the version `base` came back as.
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
std::string hexOf(std::span<const std::uint8_t> bytes) {
    std::string out;
    for (auto b : bytes)
        out += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    return out;
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
    // A device on a zone that is set up.
    std::unique_ptr<CouchContainer> device() {
        auto made = device(settings());
        EXPECT_TRUE(made->privateDatabase().saveZones({zone}));
        return made;
    }

    static CloudRecord saved(CloudDatabase& db, const CloudRecord& record) {
        auto answer = db.modifyRecords({record}, {}, unchanged, false);
        EXPECT_TRUE(answer.ok() && answer.value().saved.at(0).result.ok());
        return answer.ok() && answer.value().saved.at(0).result.ok()
                   ? answer.value().saved.at(0).result.value()
                   : record;
    }
    static CloudResult<> deletion(CloudDatabase& db, const std::string& name) {
        auto answer = db.modifyRecords({}, {idOf(name)}, unchanged, false);
        return answer ? answer.value().deleted.at(0).result : CloudResult<>(answer.error());
    }
};

TEST_F(CouchDatabaseTest, RecordsKeepTheirTypedFieldsSealedAndImageBytesComeOnlyWhenAskedFor) {
    CouchSettings first = settings();
    std::optional<synccrypto::MasterKey> derived;
    synccrypto::Bytes salt;
    first.keyDerived = [&](const synccrypto::Bytes& s, const synccrypto::MasterKey& key) {
        salt = s;
        derived = key;
    };
    auto a = device(first);
    ASSERT_TRUE(a->privateDatabase().saveZones({zone}));
    ASSERT_TRUE(derived.has_value());
    CloudRecord image{.recordType = "ClipImage", .zoneName = zone, .recordName = "img1"};
    image.fields = {{"created", 3.0}, {"pinned", std::int64_t{0}}, {"mm", -2.5e-3}};
    image.encryptedFields = {{"label", "Beach"},
                             {"w", std::int64_t{640}},
                             {"fp", CloudBytes{0, 1, 2}},
                             {"data", CloudBytes(300'000, 0xAB)}};
    image.systemFields = saved(a->privateDatabase(), image).systemFields;

    // Texts and the sync key are looked for in couch_sync_test; here the
    // image bytes (an attachment) and the key derived from the passphrase.
    const auto raw =
        server.request("GET", "/zettly/_all_docs?include_docs=true&attachments=true").body;
    ASSERT_NE(raw.find("ClipImage"), std::string::npos);
    for (const std::string& secret : {std::string("Beach"), std::string("q6urq6urq6ur"),
                                      couch::base64(derived->bytes()), hexOf(derived->bytes())})
        EXPECT_EQ(raw.find(secret), std::string::npos) << secret;

    // Another device: the cached key serves it, so nothing is derived again.
    CouchSettings second = settings();
    second.cachedKey = derived;
    second.cachedKeySalt = salt;
    second.keyDerived = [&](const auto&, const auto&) { ADD_FAILURE() << "derived again"; };
    auto b = device(second);
    CloudDatabase& db = b->privateDatabase();
    auto full = db.fetchRecord(idOf("img1"));
    ASSERT_TRUE(full.ok()) << full.error().description;
    EXPECT_EQ(full.value(), image);
    auto changes = db.zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(changes.ok()) << changes.error().description;
    ASSERT_EQ(changes.value().modified.size(), 1u);
    const CloudRecord& listed = changes.value().modified[0].result.value();
    EXPECT_EQ(listed.fields, (CloudFields{{"created", 3.0}, {"pinned", std::int64_t{0}}}));
    EXPECT_EQ(listed.encryptedFields, (CloudFields{{"label", "Beach"}, {"w", std::int64_t{640}}}));
    auto bytes = db.fetchRecord(idOf("img1"), std::vector<std::string>{"data"});
    ASSERT_TRUE(bytes.ok());
    EXPECT_EQ(bytes.value().encryptedFields, (CloudFields{{"data", CloudBytes(300'000, 0xAB)}}));
    EXPECT_TRUE(bytes.value().fields.empty());
    EXPECT_EQ(codeOf(db.fetchRecord(idOf("nothing"))), Code::unknownItem);
}

TEST_F(CouchDatabaseTest, ASaveOverAnotherDevicesVersionMeetsTheServersCopy) {
    auto a = device();
    auto b = device();
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
}

TEST_F(CouchDatabaseTest, DeletionsKeepTheTypeForTheFeedAndLeaveStaleCopiesUnknown) {
    auto a = device();
    auto b = device();
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
    EXPECT_EQ(textOf(saved(dbA, item("r1", "again"))), "again") << "the name is free again";
}

TEST_F(CouchDatabaseTest, ChangesComeInPagesThatResumeFromTheirToken) {
    auto a = device();
    CloudDatabase& db = a->privateDatabase();
    for (const char* name : {"p1", "p2", "p3", "p4", "p5"})
        saved(db, item(name, name));

    CloudBytes token;
    std::string seen;
    int pages = 0;
    for (bool more = true; more && pages < 5; ++pages) {
        auto page = db.zoneChanges(zone, token, changeKeys, 2);
        ASSERT_TRUE(page.ok()) << page.error().description;
        EXPECT_LE(page.value().modified.size(), 2u);
        seen += named(page.value().modified);
        token = page.value().token;
        more = page.value().moreComing;
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

TEST_F(CouchDatabaseTest, AWipedZoneSendsOtherDevicesBackToTheStartAndADroppedOneIsNotFound) {
    auto a = device();
    auto b = device();
    CloudDatabase& db = b->privateDatabase();
    saved(a->privateDatabase(), item("r1", "one"));
    auto token = db.zoneChanges(zone, {}, changeKeys).value().token;

    ASSERT_TRUE(a->privateDatabase().deleteZones({zone}));
    EXPECT_EQ(codeOf(db.zoneChanges(zone, token, changeKeys)), Code::userDeletedZone);
    // Starting afresh shows no deletions: the wipe is not the user's.
    auto fresh = db.zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(fresh.ok());
    EXPECT_TRUE(fresh.value().modified.empty());
    EXPECT_TRUE(fresh.value().deleted.empty());
    EXPECT_EQ(codeOf(db.fetchRecord(idOf("r1"))), Code::unknownItem);

    ASSERT_EQ(server.request("DELETE", "/zettly").status, 200);
    EXPECT_EQ(codeOf(db.zoneChanges(zone, {}, changeKeys)), Code::zoneNotFound);
    EXPECT_EQ(codeOf(db.modifyRecords({item("r2", "x")}, {}, unchanged, false)),
              Code::zoneNotFound);
    EXPECT_EQ(codeOf(db.deleteZones({zone})), Code::zoneNotFound);
    ASSERT_TRUE(db.saveZones({zone}));
    EXPECT_TRUE(db.zoneChanges(zone, {}, changeKeys).ok());
}

TEST_F(CouchDatabaseTest, WrongCredentialsOrAWrongPassphraseAreToldBeforeAnythingIsReadOrWritten) {
    EXPECT_EQ(device(CouchSettings{})->accountStatus().value(), CloudAccountStatus::noAccount);
    saved(device()->privateDatabase(), item("r1", "one"));
    const auto before = server.request("GET", "/zettly/_all_docs").body;
    server.settle();
    const auto logged = static_cast<std::ptrdiff_t>(server.requests().size());

    CouchSettings refused = settings();
    refused.password = "not the password";
    EXPECT_EQ(codeOf(device(refused)->accountStatus()), Code::notAuthenticated);
    EXPECT_EQ(codeOf(device(refused)->privateDatabase().saveZones({zone})), Code::notAuthenticated);
    auto wrong = device(settings("wrong horse battery"));
    auto status = wrong->accountStatus();
    EXPECT_EQ(codeOf(status), Code::notAuthenticated);
    EXPECT_EQ(status.error().userMessage,
              "The passphrase does not match the data on the sync server");
    CloudDatabase& db = wrong->privateDatabase();
    EXPECT_EQ(codeOf(db.zoneChanges(zone, {}, changeKeys)), Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.fetchRecords({idOf("r1")}, std::nullopt)), Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.modifyRecords({item("r2", "x")}, {idOf("r1")}, unchanged, false)),
              Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.saveZones({zone})), Code::notAuthenticated);
    EXPECT_EQ(codeOf(db.deleteZones({zone})), Code::notAuthenticated);
    using Outcome = CouchContainer::ConnectionReport::Outcome;
    EXPECT_EQ(wrong->testConnection().outcome, Outcome::dataUnreadable);
    EXPECT_EQ(device(refused)->testConnection().outcome, Outcome::credentialsRefused);
    EXPECT_EQ(device(settings())->testConnection().outcome, Outcome::connected);

    server.settle();
    auto requests = server.requests();
    for (auto it = requests.begin() + logged; it != requests.end(); ++it)
        EXPECT_TRUE(*it == "GET /_session" || *it == "GET /zettly/zettly-marker" ||
                    *it == "GET /zettly" || *it == "GET /")
            << *it;
    EXPECT_EQ(server.request("GET", "/zettly/_all_docs").body, before);
}

TEST(CouchUrl, OnlyLoopbackAddressesMayUsePlainHttp) {
    for (const char* fine : {"https://couch.example.org/zettly", "http://127.0.0.1:5984/zettly",
                             "http://localhost:5984/zettly/", "http://[::1]:5984/zettly",
                             "https://example.org/couch/zettly"})
        EXPECT_FALSE(couchUrlProblem(fine)) << fine;
    using P = CouchUrlProblem;
    const std::pair<const char*, P> refused[] = {
        {"", P::missing},
        {"http://couch.example.org/zettly", P::plainHttpToAnotherMachine},
        {"http://127.0.0.1.example.org/zettly", P::plainHttpToAnotherMachine},
        {"http://10.0.0.2:5984/zettly", P::plainHttpToAnotherMachine},
        {"https://couch.example.org/", P::noDatabaseName},
        {"ftp://example.org/db", P::wrongScheme},
        {"couch.example.org/zettly", P::notAnAddress},
        {"https://ann:pw@couch.example.org/zettly", P::credentialsInAddress},
        {"https://couch.example.org/zettly?x=1", P::queryOrFragment},
    };
    for (const auto& [url, problem] : refused)
        EXPECT_EQ(couchUrlProblem(url), problem) << url;
}

TEST_F(CouchDatabaseTest, AnotherDevicesSaveWakesThePushHandler) {
    auto a = device();
    auto b = device();
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

    // Its own saves and deletions do not wake it: the revisions the records
    // code writes are the ones the long-poll skips.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const int settled = pushes;
    saved(b->privateDatabase(), item("own", "x"));
    EXPECT_TRUE(deletion(b->privateDatabase(), "own"));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(pushes.load(), settled);
    saved(a->privateDatabase(), item("later", "x"));
    for (int i = 0; pushes == settled && i < 100; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_GT(pushes.load(), settled);  // the poll was listening all along

    b->setPushHandler({});  // returns once the poll has ended, long before its timeout
}

}  // namespace
}  // namespace zettly
