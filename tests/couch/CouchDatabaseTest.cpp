#include <algorithm>
#include <atomic>
#include <bit>
#include <chrono>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
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
using Json = nlohmann::json;
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

    // The attacker: whoever has the server's password but not the passphrase.
    Json raw(const std::string& name, bool withData = false) {
        return Json::parse(
            server.request("GET", "/zettly/" + name + (withData ? "?attachments=true" : "")).body,
            nullptr, false);
    }
    // Stored over the current revision (or over a deletion, which needs none).
    void put(Json document) {
        const std::string name = document["_id"];
        document.erase("_rev");
        if (auto current = raw(name); current.contains("_rev"))
            document["_rev"] = current["_rev"];
        auto answer = server.request("PUT", "/zettly/" + name, document.dump());
        EXPECT_EQ(answer.status, 201) << name << ": " << answer.body;
    }
    std::size_t logged(const std::string& text) {
        auto lines = log.lines();
        return std::count_if(lines.begin(), lines.end(), [&](const auto& line) {
            return line.find(text) != std::string::npos;
        });
    }
};

// Every way the server can tamper with records comes back as unauthenticRecord
// carrying only what it takes to save over the copy.
void expectUnauthentic(const CloudResult<CloudRecord>& result, const std::string& type,
                       const std::optional<std::string>& rev) {
    ASSERT_EQ(codeOf(result), Code::unauthenticRecord);
    ASSERT_TRUE(result.error().serverRecord.has_value());
    const CloudRecord& server = *result.error().serverRecord;
    EXPECT_EQ(server.recordType, type);
    EXPECT_TRUE(server.fields.empty());
    EXPECT_TRUE(server.encryptedFields.empty());
    auto system = decodeSystemFields(server.systemFields);
    EXPECT_EQ(system ? std::optional(system->changeTag) : std::nullopt, rev);
}

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

TEST_F(CouchDatabaseTest, ChangedPlainFieldsAndMovedSealsFailTheCheckAndOddValuesPassIt) {
    auto a = device();
    CloudDatabase& dbA = a->privateDatabase();
    for (const char* name : {"pin", "zero", "text", "victim", "mover"}) {
        CloudRecord record = item(name, name);
        record.fields["pinned"] = std::int64_t{0};
        record.fields["mm"] = 0.25;
        saved(dbA, record);
    }
    // Values JSON and JavaScript do not carry as they are still read back
    // as written.
    CloudRecord odd = item("odd", "odd");
    odd.fields = {{"nan", std::bit_cast<double>(std::uint64_t{0x7ff8'0000'dead'beef})},
                  {"negZero", -0.0},
                  {"inf", -std::numeric_limits<double>::infinity()},
                  {"whole", 3.0},
                  {"tenth", 0.1},
                  {"big", 1e300},
                  {"max", std::numeric_limits<std::int64_t>::max()},
                  {"bytes", CloudBytes{0, 255}}};
    saved(dbA, odd);

    auto changed = [&](const std::string& name, const std::string& field, Json value) {
        Json document = raw(name);
        document["fields"][field] = std::move(value);
        put(document);
    };
    changed("pin", "pinned", {{"$int", "1"}});
    changed("zero", "created", 0);
    changed("text", "created", "yesterday");
    Json victim = raw("victim");
    victim["sealed"] = raw("mover")["sealed"];
    put(victim);

    auto b = device();
    CloudDatabase& dbB = b->privateDatabase();
    auto odds = dbB.fetchRecord(idOf("odd"));
    ASSERT_TRUE(odds.ok()) << odds.error().description;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(std::get<double>(odds.value().fields.at("negZero"))),
              std::bit_cast<std::uint64_t>(-0.0));
    EXPECT_TRUE(dbB.fetchRecord(idOf("mover")).ok());
    for (const std::string name : {"pin", "zero", "text", "victim"}) {
        SCOPED_TRACE(name);
        expectUnauthentic(dbB.fetchRecord(idOf(name)), "ClipItem",
                          raw(name)["_rev"].get<std::string>());
    }
    auto changes = dbB.zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(changes.ok());
    EXPECT_TRUE(changes.value().deleted.empty());
    for (const auto& change : changes.value().modified) {
        const bool tampered = change.id.recordName != "odd" && change.id.recordName != "mover";
        EXPECT_EQ(!change.result.ok(), tampered) << change.id.recordName;
        if (tampered) {
            EXPECT_EQ(codeOf(change.result), Code::unauthenticRecord);
        }
    }
    EXPECT_EQ(logged("skipped record pin:"), 1u) << "once per stored version";
}

TEST_F(CouchDatabaseTest, ImageBytesSwappedOrDroppedFailTheirWholeRecord) {
    auto a = device();
    CloudDatabase& dbA = a->privateDatabase();
    for (const char* name : {"img1", "img2", "img3"}) {
        CloudRecord image{.recordType = "ClipImage", .zoneName = zone, .recordName = name};
        image.encryptedFields = {{"label", name}, {"data", CloudBytes(1000, name[3])}};
        saved(dbA, image);
    }
    Json first = raw("img1", true);
    Json second = raw("img2", true);
    auto attach = [](Json& document, const Json& from) {
        document["_attachments"]["data"] = {{"content_type", "application/octet-stream"},
                                            {"data", from["_attachments"]["data"]["data"]}};
    };
    attach(first, raw("img2", true));
    attach(second, raw("img1", true));
    put(first);
    put(second);
    Json dropped = raw("img3");
    dropped.erase("_attachments");
    put(dropped);

    auto b = device();
    CloudDatabase& db = b->privateDatabase();
    const std::vector<std::string> data{"data"};
    for (const std::string name : {"img1", "img2", "img3"}) {
        SCOPED_TRACE(name);
        expectUnauthentic(db.fetchRecord(idOf(name), data), "ClipImage",
                          raw(name)["_rev"].get<std::string>());
    }
    // Without the bytes, only the record whose bytes are gone fails.
    auto changes = db.zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(changes.ok());
    ASSERT_EQ(changes.value().modified.size(), 3u);
    EXPECT_TRUE(changes.value().modified[0].result.ok());
    EXPECT_TRUE(changes.value().modified[1].result.ok());
    EXPECT_EQ(codeOf(changes.value().modified[2].result), Code::unauthenticRecord);
}

TEST_F(CouchDatabaseTest, AnOldVersionHandedBackOrOneFromBeforeTheZoneStartedAfreshFails) {
    auto a = device();
    auto b = device();
    CloudDatabase& dbA = a->privateDatabase();
    CloudDatabase& dbB = b->privateDatabase();
    CloudRecord first = saved(dbA, item("r1", "first"));
    const Json old = raw("r1");
    saved(dbA, over(first, "second"));
    auto token = dbB.zoneChanges(zone, {}, changeKeys).value().token;  // b has seen "second"

    put(old);
    expectUnauthentic(dbA.fetchRecord(idOf("r1")), "ClipItem",
                      raw("r1")["_rev"].get<std::string>());
    auto changes = dbB.zoneChanges(zone, token, changeKeys);
    ASSERT_TRUE(changes.ok());
    ASSERT_EQ(changes.value().modified.size(), 1u);
    EXPECT_EQ(codeOf(changes.value().modified[0].result), Code::unauthenticRecord);

    // Carried over into a zone started afresh: same key, another epoch.
    saved(dbA, item("r2", "before"));
    const Json before = raw("r2");
    ASSERT_TRUE(dbA.deleteZones({zone}));
    put(before);
    auto fresh = device()->privateDatabase().zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(fresh.ok());
    EXPECT_TRUE(fresh.value().deleted.empty());
    ASSERT_EQ(named(fresh.value().modified), "r2 ");
    expectUnauthentic(fresh.value().modified[0].result, "ClipItem",
                      raw("r2")["_rev"].get<std::string>());
}

TEST_F(CouchDatabaseTest, OnlyASealedDeletionIsADeletionAndTheOthersCanBeSavedOver) {
    auto a = device();
    auto b = device();
    CloudDatabase& dbA = a->privateDatabase();
    CloudDatabase& dbB = b->privateDatabase();
    for (const char* name : {"bare", "forged", "wiped", "real"})
        saved(dbA, item(name, name));
    auto token = dbB.zoneChanges(zone, {}, changeKeys).value().token;

    const std::string madeUp = couch::base64(CloudBytes(60, 7));
    ASSERT_EQ(server.request("DELETE", "/zettly/bare?rev=" + raw("bare")["_rev"].get<std::string>())
                  .status,
              200);
    put({{"_id", "forged"},
         {"_deleted", true},
         {"recordType", "ClipItem"},
         {"version", "99999999999999"},
         {"sealed", madeUp}});
    put({{"_id", "wiped"},
         {"_deleted", true},
         {"wiped", true},
         {"epoch", "0123"},
         {"version", "99999999999999"},
         {"sealed", madeUp}});
    EXPECT_TRUE(deletion(dbA, "real"));

    auto changes = dbB.zoneChanges(zone, token, changeKeys);
    ASSERT_TRUE(changes.ok());
    ASSERT_EQ(changes.value().deleted.size(), 1u);
    EXPECT_EQ(changes.value().deleted[0].id, idOf("real"));
    EXPECT_EQ(changes.value().deleted[0].recordType, "ClipItem");
    // A wipe stub of another epoch deletes nothing anywhere and is passed
    // over (after a new passphrase no key opens the old ones).
    ASSERT_EQ(named(changes.value().modified), "bare forged ");
    expectUnauthentic(changes.value().modified[0].result, "", std::nullopt);
    expectUnauthentic(changes.value().modified[1].result, "ClipItem", std::nullopt);

    // The engine's answer: its own copy, uploaded as a new record.
    EXPECT_EQ(textOf(saved(dbB, item("bare", "bare again"))), "bare again");
    auto back = device()->privateDatabase().fetchRecord(idOf("bare"));
    ASSERT_TRUE(back.ok()) << back.error().description;
    EXPECT_EQ(textOf(back.value()), "bare again");
}

TEST_F(CouchDatabaseTest, ASaveMeetingAnUnauthenticCopyGetsItsSystemFieldsAndThenReplacesIt) {
    auto a = device();
    CloudDatabase& db = a->privateDatabase();
    CloudRecord kept = saved(db, item("r1", "one"));
    saved(db, item("r2", "two"));
    Json document = raw("r1");
    document["fields"]["created"] = 0;
    put(document);
    document = raw("r2");
    document["recordType"] = "ClipCategory";
    put(document);
    const std::string current = raw("r1")["_rev"];

    for (const CloudRecord& attempt : {over(kept, "stale edit"), item("r1", "as new")}) {
        auto answer = db.modifyRecords({attempt}, {}, unchanged, false);
        ASSERT_TRUE(answer.ok());
        expectUnauthentic(answer.value().saved[0].result, "ClipItem", current);
    }
    auto merged = db.modifyRecords({over(kept, "merged")}, {}, CloudSavePolicy::changedKeys, false);
    ASSERT_TRUE(merged.ok());
    EXPECT_EQ(codeOf(merged.value().saved[0].result), Code::unauthenticRecord);

    // Saved over with the system fields the error carried, it reads back
    // whole; so does one whose claimed type differs from the save's.
    auto answer = db.modifyRecords({item("r1", "as new")}, {}, unchanged, false);
    CloudRecord replacement = item("r1", "replaced");
    replacement.systemFields = answer.value().saved[0].result.error().serverRecord->systemFields;
    saved(db, replacement);
    auto listed = db.zoneChanges(zone, {}, changeKeys);
    ASSERT_TRUE(listed.ok());
    ASSERT_EQ(named(listed.value().modified), "r2 r1 ");
    expectUnauthentic(listed.value().modified[0].result, "ClipCategory",
                      raw("r2")["_rev"].get<std::string>());
    CloudRecord retyped = item("r2", "retyped");
    retyped.systemFields = listed.value().modified[0].result.error().serverRecord->systemFields;
    saved(db, retyped);

    auto other = device()->privateDatabase().fetchRecords({idOf("r1"), idOf("r2")}, std::nullopt);
    ASSERT_TRUE(other.ok());
    ASSERT_TRUE(other.value()[0].result.ok());
    ASSERT_TRUE(other.value()[1].result.ok());
    EXPECT_EQ(textOf(other.value()[0].result.value()), "replaced");
    EXPECT_EQ(textOf(other.value()[1].result.value()), "retyped");
    EXPECT_EQ(other.value()[1].result.value().recordType, "ClipItem");
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
