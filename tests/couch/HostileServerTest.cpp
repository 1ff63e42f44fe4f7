// The server as the attacker: whoever runs the CouchDB-compatible server
// (pouchdb-server in memory) rewrites its documents under two devices. No
// device loses history to it, nothing it forges is taken in, and the status
// names what happened.
#include <cmath>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/couch/CouchContainer.h"
#include "platform/couch/CouchDocuments.h"
#include "tests/fakes/PouchServer.h"
#include "tests/fakes/TestImages.h"
#include "tests/sync/SyncDevice.h"

namespace zettly {
namespace {

using test::SyncDevice;
using ::testing::Contains;
using ::testing::Not;
using Json = nlohmann::json;

constexpr const char* passphrase = "correct horse battery staple";

struct StartedServer : test::PouchServer {
    StartedServer() : PouchServer(ZETTLY_POUCHDB_SERVER) { up = start(); }
    bool up = false;
};

struct HostileServer : ::testing::Test {
    void SetUp() override { ASSERT_TRUE(server.up) << server.output(); }

    std::unique_ptr<CouchContainer> backend(CouchContainer** keep = nullptr) {
        CouchSettings settings;
        settings.databaseUrl = server.url() + "/zettly";
        settings.user = test::PouchServer::user;
        settings.password = test::PouchServer::password;
        settings.passphrase = passphrase;
        settings.kdf = synccrypto::KdfStrength::interactive;
        settings.requestTimeoutSeconds = 5;
        auto container = std::make_unique<CouchContainer>(std::move(settings), log);
        if (keep)
            *keep = container.get();
        return container;
    }

    // Raw documents, as the server's admin reads and writes them.
    Json document(const std::string& id, bool attachments = false) {
        auto got =
            server.request("GET", "/zettly/" + id + (attachments ? "?attachments=true" : ""));
        return Json::parse(got.body, nullptr, false);
    }
    void put(const Json& doc) {
        auto put = server.request("PUT", "/zettly/" + doc["_id"].get<std::string>(), doc.dump());
        ASSERT_EQ(put.status, 201) << put.body;
    }
    std::vector<Json> documents(const std::string& type = {}) {
        auto response = server.request("GET", "/zettly/_all_docs?include_docs=true");
        std::vector<Json> docs;
        const auto all = Json::parse(response.body, nullptr, false);
        if (!all.contains("rows"))
            return docs;
        for (const auto& row : all["rows"])
            if (type.empty() || row["doc"].value("recordType", "") == type)
                docs.push_back(row["doc"]);
        return docs;
    }
    std::set<std::string> recordIDs() {
        std::set<std::string> ids;
        for (const auto& doc : documents())
            if (doc["_id"] != couch::markerID)
                ids.insert(doc["_id"].get<std::string>());
        return ids;
    }
    std::string ridOf(SyncDevice& device, const std::string& text) {
        return ClipboardStore::recordName(text, *device.key()).value_or("");
    }
    void syncBoth() {
        a.sync();
        b.sync();
    }
    // Syncs until neither changes anything, then compares.
    void expectConverged(std::vector<SyncDevice*> devices = {}) {
        if (devices.empty())
            devices = {&a, &b};
        for (int round = 0; round < 3; ++round) {
            bool changed = false;
            for (SyncDevice* device : devices)
                changed = device->sync() || changed;
            if (!changed)
                break;
        }
        for (SyncDevice* device : devices)
            EXPECT_EQ(device->contents(), devices.front()->contents());
    }
    static std::string status(SyncDevice& device) { return device.lastError().value_or(""); }
    // The bytes of each picture a device keeps, by record name.
    static std::map<std::string, std::vector<std::uint8_t>> pictures(SyncDevice& device) {
        std::map<std::string, std::vector<std::uint8_t>> kept;
        device.images.fetchAll();
        for (const auto& row :
             test::rows(device.env.library() / "clipmedia.sqlite", "SELECT rid, id FROM media"))
            kept[row[0]] = device.images.fileData(row[1]).value_or(std::vector<std::uint8_t>{});
        return kept;
    }

    static std::string dimensions(const std::vector<std::uint8_t>& bytes) {
        test::start();
        test::Image image(vips_image_new_from_buffer(bytes.data(), bytes.size(), "", nullptr));
        return image ? std::to_string(vips_image_get_width(image.get())) + "x" +
                           std::to_string(vips_image_get_height(image.get()))
                     : "none";
    }

    StartedServer server;
    test::RecordingLog log;
    CouchContainer* containerA = nullptr;
    SyncDevice a{backend(&containerA)};
    SyncDevice b{backend()};
};

// A history with a pin, a label and a category, on both devices.
struct HostileServerWithHistory : HostileServer {
    void SetUp() override {
        HostileServer::SetUp();
        for (const std::string text : {"alpha", "beta", "gamma"})
            a.copy(text);
        a.texts.setPinned(a.idOf("alpha"), true);
        a.texts.setLabel(a.idOf("beta"), "kept");
        auto work = a.texts.createCategory("Work");
        a.texts.setCategory(a.idOf("gamma"), work->id);
        syncBoth();
        a.sync();
        before = a.contents();
        ASSERT_EQ(b.contents(), before);
        ASSERT_FALSE(a.lastError()) << *a.lastError();
    }
    std::vector<std::string> before;
};

TEST_F(HostileServerWithHistory, DeletionStubsForEveryDocumentTakeNothingAndAreWrittenOver) {
    const auto held = recordIDs();
    ASSERT_GE(held.size(), 5u);  // three items, a category, the key
    Json stubs = Json::array();
    for (const auto& doc : documents())
        if (doc["_id"] != couch::markerID)
            stubs.push_back({{"_id", doc["_id"]}, {"_rev", doc["_rev"]}, {"_deleted", true}});
    auto bulk = server.request("POST", "/zettly/_bulk_docs", Json{{"docs", stubs}}.dump());
    ASSERT_EQ(bulk.status, 201) << bulk.body;
    ASSERT_TRUE(recordIDs().empty());

    b.sync();
    EXPECT_EQ(b.contents(), before);
    EXPECT_EQ(status(b), ClipCloudSync::untrustedStatus);
    a.sync();
    EXPECT_EQ(a.contents(), before);
    EXPECT_EQ(recordIDs(), held) << "every record is back on the server";
    expectConverged();
    EXPECT_EQ(a.contents(), before);
}

TEST_F(HostileServerWithHistory, PlainFieldsChangedOnTheServerChangeNothing) {
    const std::string alpha = ridOf(a, "alpha");
    const std::vector<std::pair<std::string, std::function<void(Json&)>>> edits{
        {"unpinned, newest",
         [](Json& fields) {
             fields["pinned"] = {{"$int", "0"}};
             fields["mm"] = 4e12;
         }},
        {"created 0", [](Json& fields) { fields["created"] = 0; }},
        {"created a string", [](Json& fields) { fields["created"] = "yesterday"; }},
    };
    for (const auto& [what, edit] : edits) {
        Json doc = document(alpha);
        ASSERT_TRUE(doc.contains("fields")) << doc.dump();
        edit(doc["fields"]);
        put(doc);
        b.sync();
        EXPECT_EQ(status(b), ClipCloudSync::untrustedStatus) << what;
        EXPECT_EQ(b.contents(), before) << what;
        a.sync();
        EXPECT_EQ(a.contents(), before) << what;
        b.sync();
        EXPECT_EQ(b.contents(), before) << what;
        EXPECT_EQ(document(alpha)["fields"]["pinned"], Json({{"$int", "1"}}))
            << what << ": our copy is back";
    }
}

TEST_F(HostileServer, AReplayedOlderRevisionRollsNoLabelBack) {
    for (const bool bumped : {false, true}) {
        SCOPED_TRACE(bumped ? "its mm raised" : "as it was");
        const std::string text = bumped ? "second note" : "note";
        std::string id = a.copy(text);
        a.texts.setLabel(id, "first");
        syncBoth();
        const Json old = document(ridOf(a, text));
        ASSERT_TRUE(old.contains("sealed")) << old.dump();
        a.env.clock.advance(10);
        a.texts.setLabel(id, "second");
        syncBoth();
        ASSERT_THAT(b.contents(), Contains(text + " @second"));

        Json replayed = old;
        replayed["_rev"] = document(ridOf(a, text))["_rev"];
        if (bumped)
            replayed["fields"]["mm"] = replayed["fields"]["mm"].get<double>() + 1e6;
        put(replayed);
        b.sync();
        a.sync();
        EXPECT_THAT(a.contents(), Contains(text + " @second"));
        EXPECT_THAT(b.contents(), Contains(text + " @second"));
        if (bumped) {
            EXPECT_EQ(status(b), ClipCloudSync::untrustedStatus);
        }
        expectConverged();
        EXPECT_THAT(a.contents(), Contains(text + " @second"));
    }
}

TEST_F(HostileServer, AnOldKeyRecordPutBackAfterDeletingTheCloudCopyIsNotAdopted) {
    a.copy("on a");
    a.sync();
    b.copy("on b");
    syncBoth();
    const auto oldKey = a.key();
    ASSERT_TRUE(oldKey);
    Json oldKeyRecord = document("ClipKey");
    ASSERT_TRUE(oldKeyRecord.contains("sealed")) << oldKeyRecord.dump();

    ASSERT_TRUE(a.engine.deleteCloudCopy());
    a.sync();
    ASSERT_TRUE(a.key());
    ASSERT_NE(a.key(), oldKey);
    oldKeyRecord["_rev"] = document("ClipKey")["_rev"];
    put(oldKeyRecord);

    b.sync();
    a.sync();
    expectConverged();
    EXPECT_NE(a.key(), oldKey);
    EXPECT_EQ(b.key(), a.key());
    EXPECT_THAT(a.contents(), ::testing::ElementsAre("on a", "on b"));
}

TEST_F(HostileServer, TheMeasuredClockSkewAgainstTheServerIsNearZero) {
    // pouchdb-server's Date is real time, like this computer's; a clock far
    // off is left to the in-memory server, which can claim any time.
    a.copy("on a");
    a.sync();
    auto skew = containerA->clockSkew();
    ASSERT_TRUE(skew);
    EXPECT_LT(std::abs(*skew), 5.0);
    EXPECT_FALSE(a.lastError());
}

TEST_F(HostileServerWithHistory, ASealThatDoesNotOpenIsWrittenOverWithoutLooping) {
    const std::string beta = ridOf(a, "beta");
    Json doc = document(beta);
    doc["sealed"] = couch::base64(synccrypto::Bytes(120, 0x5a));
    put(doc);

    a.env.clock.advance(10);
    a.texts.setLabel(a.idOf("beta"), "relabelled");
    a.cloud.passes = 0;
    a.sync();
    EXPECT_LE(a.cloud.passes, ClipCloudSync::maxPasses);
    a.cloud.passes = 0;
    a.sync();
    EXPECT_EQ(a.cloud.passes, 1) << "a second call finds nothing left to do";

    SyncDevice c{backend()};
    c.sync();
    EXPECT_THAT(c.contents(), Contains("beta @relabelled")) << "the server's copy opens again";
    b.sync();
    EXPECT_THAT(b.contents(), Contains("beta @relabelled"));
    EXPECT_FALSE(b.lastError());
}

TEST_F(HostileServer, SwappedPicturesAreNotTakenAndComeRightAfterTheOwnerSendsThemAgain) {
    ASSERT_EQ(a.images.save(test::png(48, 32, test::gradient(48))),
              ImageClipStore::SaveResult::saved);
    a.env.clock.advance(5);
    ASSERT_EQ(a.images.save(test::png(40, 30, test::noise(7))), ImageClipStore::SaveResult::saved);
    a.sync();
    ASSERT_FALSE(a.lastError()) << *a.lastError();
    const auto originals = pictures(a);
    ASSERT_EQ(originals.size(), 2u);

    auto images = documents("ClipImage");
    ASSERT_EQ(images.size(), 2u);
    Json first = document(images[0]["_id"], true);
    Json second = document(images[1]["_id"], true);
    ASSERT_TRUE(first["_attachments"].contains("data")) << first.dump().substr(0, 500);
    std::swap(first["_attachments"]["data"], second["_attachments"]["data"]);
    for (Json* doc : {&first, &second}) {
        auto& data = (*doc)["_attachments"]["data"];
        data = {{"content_type", data["content_type"]}, {"data", data["data"]}};
        put(*doc);
    }

    for (int call = 0; call < 3; ++call) {
        b.sync();
        b.env.clock.advance(61);
    }
    // Kept pictures are encoded again; the two differ in size.
    auto same = [&](const std::string& rid, const std::vector<std::uint8_t>& bytes) {
        return !bytes.empty() && dimensions(bytes) == dimensions(originals.at(rid));
    };
    for (const auto& [rid, bytes] : pictures(b))
        EXPECT_TRUE(same(rid, bytes)) << "no wrong picture for " << rid;
    EXPECT_THAT(status(b), ::testing::AnyOf(std::string(ClipCloudSync::untrustedStatus),
                                            std::string(ClipCloudSync::downloadsStatus)));

    // The owner's change feed does not carry picture bytes, so it sends them
    // again when the user next edits them.
    a.env.clock.advance(5);
    for (const auto& item : a.images.fetchAll())
        a.images.setLabel(item.id, "sent again");
    a.sync();
    for (int call = 0; call < 4 && pictures(b).size() < 2; ++call) {
        b.env.clock.advance(3700);
        b.sync();
    }
    const auto kept = pictures(b);
    ASSERT_EQ(kept.size(), 2u);
    for (const auto& [rid, bytes] : kept)
        EXPECT_TRUE(same(rid, bytes)) << rid;
    EXPECT_FALSE(b.lastError());
}

TEST_F(HostileServer, AHeldDatabaseDuringAFetchLosesNoneOfThreeHundred) {
    syncBoth();  // b holds the key before the history comes
    for (int n = 0; n < 300; ++n)
        a.copy("entry " + std::to_string(n));
    a.sync();

    b.texts.open();
    const auto file = b.env.library() / "clipboard.sqlite";
    test::HeldDatabase holder(file);
    ASSERT_TRUE(holder.held());
    b.sync();
    EXPECT_EQ(status(b), ClipCloudSync::applyHeldStatus);
    holder.release();
    b.sync();
    EXPECT_EQ(b.texts.fetch(1000, 0).size(), 300u);
    EXPECT_FALSE(b.lastError());
}

TEST_F(HostileServerWithHistory, AMarkerWithAnotherEpochReadsAsTamperedNotAsAWrongPassphrase) {
    auto changed = document(std::string(couch::markerID));
    const auto original = changed;
    changed["epoch"] = std::string(32, 'e');
    put(changed);
    syncBoth();
    for (SyncDevice* device : {&a, &b}) {
        EXPECT_EQ(status(*device), CouchContainer::markerTamperedMessage);
        EXPECT_EQ(device->contents(), before);
    }

    auto restored = original;
    restored["_rev"] = document(std::string(couch::markerID))["_rev"];
    put(restored);
    syncBoth();
    EXPECT_FALSE(a.lastError());
    EXPECT_FALSE(b.lastError());
}

TEST_F(HostileServerWithHistory, ADeletedMarkerIsSetUpAgainAndBothDevicesMeet) {
    auto gone = server.request("DELETE", "/zettly/zettly-marker?rev=" +
                                             document("zettly-marker")["_rev"].get<std::string>());
    ASSERT_EQ(gone.status, 200) << gone.body;
    a.copy("after");
    syncBoth();
    for (SyncDevice* device : {&a, &b})
        EXPECT_THAT(status(*device), Not(::testing::HasSubstr("CloudKit")));
    expectConverged();
    EXPECT_THAT(b.contents(), Contains("after"));
    EXPECT_FALSE(a.lastError());
    EXPECT_FALSE(b.lastError());
}

}  // namespace
}  // namespace zettly
