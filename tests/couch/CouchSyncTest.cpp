// The sync engine on two devices through a real CouchDB-compatible server
// (pouchdb-server in memory), with the records sealed end to end.
#include <algorithm>
#include <nlohmann/json.hpp>
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
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* passphrase = "correct horse battery staple";

// Up before the devices are made, so their settings name its port.
struct StartedServer : test::PouchServer {
    StartedServer() : PouchServer(ZETTLY_POUCHDB_SERVER) { up = start(); }
    bool up = false;
};

struct CouchSync : ::testing::Test {
    void SetUp() override { ASSERT_TRUE(server.up) << server.output(); }

    // The key a device keeps in its secret store, as the app does.
    struct KeptKey {
        synccrypto::Bytes salt;
        std::optional<synccrypto::MasterKey> key;
    };

    std::unique_ptr<CouchContainer> backend(const std::string& phrase = passphrase,
                                            KeptKey* kept = nullptr,
                                            CouchContainer** keep = nullptr) {
        CouchSettings settings;
        settings.databaseUrl = server.url() + "/zettly";
        settings.user = test::PouchServer::user;
        settings.password = test::PouchServer::password;
        settings.passphrase = phrase;
        settings.kdf = synccrypto::KdfStrength::interactive;
        settings.requestTimeoutSeconds = 5;
        if (kept) {
            settings.cachedKey = kept->key;
            settings.cachedKeySalt = kept->salt;
            settings.keyDerived = [kept](const synccrypto::Bytes& salt,
                                         const synccrypto::MasterKey& key) {
                *kept = {salt, key};
            };
        }
        auto container = std::make_unique<CouchContainer>(std::move(settings), log);
        if (keep)
            *keep = container.get();
        return container;
    }
    nlohmann::json marker() {
        return nlohmann::json::parse(server.request("GET", "/zettly/zettly-marker").body, nullptr,
                                     false);
    }
    void putMarker(const nlohmann::json& document) {
        auto put = server.request("PUT", "/zettly/zettly-marker", document.dump());
        ASSERT_EQ(put.status, 201) << put.body;
    }
    // The server's raw documents; none while the database does not exist.
    nlohmann::json documents() {
        auto response = server.request("GET", "/zettly/_all_docs?include_docs=true");
        if (response.status != 200)
            return {{"rows", nlohmann::json::array()}};
        return nlohmann::json::parse(response.body, nullptr, false);
    }
    std::size_t count(const std::string& type) {
        std::size_t n = 0;
        const auto all = documents();  // kept: the loop below reads into it
        for (const auto& row : all["rows"])
            n += row["doc"].value("recordType", "") == type && !row["doc"].contains("_deleted");
        return n;
    }
    // How often the server was asked for the marker so far.
    std::size_t markerReads() {
        server.settle();
        auto requests = server.requests();
        return std::count(requests.begin(), requests.end(), "GET /zettly/zettly-marker");
    }
    void deleteMarker() {
        auto rev = marker()["_rev"].get<std::string>();
        ASSERT_EQ(server.request("DELETE", "/zettly/zettly-marker?rev=" + rev).status, 200);
    }
    // Syncs the devices (a and b unless told) until none changes anything,
    // then compares.
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

    StartedServer server;
    test::RecordingLog log;
    KeptKey keptByA;
    KeptKey keptByB;
    CouchContainer* containerA = nullptr;
    SyncDevice a{backend(passphrase, &keptByA, &containerA)};
    SyncDevice b{backend(passphrase, &keptByB)};
};

TEST_F(CouchSync, TwoDevicesShareTextsImagesCategoriesDeletionsAndTheChipOrderUnreadable) {
    a.copy("Kind regards, Jana");
    std::string link = a.copy("https://example.org/private-plans");
    auto work = a.texts.createCategory("Secret Project");
    a.texts.setCategory(link, work->id);
    a.texts.setLabel(link, "launch page");
    a.texts.saveChipOrder({"pinned", "cat:" + work->id});
    ASSERT_EQ(a.images.save(test::png(48, 32, test::gradient(48))),
              ImageClipStore::SaveResult::saved);
    EXPECT_FALSE(a.lastError());

    a.sync();
    ASSERT_FALSE(a.lastError()) << *a.lastError();
    EXPECT_TRUE(b.sync());
    EXPECT_THAT(
        b.contents(),
        ElementsAre("Kind regards, Jana",
                    "https://example.org/private-plans [pinned] #Secret Project @launch page",
                    ::testing::StartsWith("image "), "category Secret Project"));
    EXPECT_EQ(a.contents(), b.contents());
    EXPECT_EQ(b.env.defaults.stringArray(prefkey::clipboardChipOrder),
              a.env.defaults.stringArray(prefkey::clipboardChipOrder));

    // The server holds record names, types, times and flags; nothing a
    // person wrote, and not the key that names the records.
    const std::string raw = documents().dump();
    for (const char* secret : {"Kind regards", "private-plans", "Secret Project", "launch page"})
        EXPECT_THAT(raw, Not(HasSubstr(secret)));
    EXPECT_EQ(count("ClipKey"), 1u);
    ASSERT_TRUE(a.key());
    const std::string keyHex = [key = *a.key()] {
        std::string hex;
        for (auto byte : key)
            hex += "0123456789abcdef"[byte >> 4], hex += "0123456789abcdef"[byte & 15];
        return hex;
    }();
    EXPECT_THAT(raw, Not(HasSubstr(keyHex.substr(0, 16))));

    b.texts.deleteItem(b.idOf("Kind regards, Jana"));
    b.sync();
    a.sync();
    EXPECT_THAT(a.contents(), Not(::testing::Contains("Kind regards, Jana")));
    expectConverged();
}

TEST_F(CouchSync, EditsOfOneItemOnBothDevicesMeetOnTheServerAndMerge) {
    std::string id = a.copy("shared");
    a.sync();
    b.sync();
    a.env.clock.advance(10);
    a.texts.setPinned(id, true);
    b.env.clock.advance(20);
    b.texts.setLabel(b.idOf("shared"), "newer");
    // a's save lands between b's fetch and b's save: the server refuses b's
    // stale revision, and b merges what it holds now.
    b.cloud.beforeNextSave = [&] { a.sync(); };
    b.cloud.passes = 0;
    b.sync();
    EXPECT_FALSE(b.lastError());
    EXPECT_EQ(b.cloud.passes, 2) << "the merged copy goes up in a second pass";
    a.sync();
    EXPECT_THAT(a.contents(), ElementsAre("shared @newer"));
    expectConverged();
}

TEST_F(CouchSync, FiveHundredItemsGoUpAndComeDownInBatches) {
    for (int i = 0; i < 500; ++i)
        a.copy("entry " + std::to_string(i));
    a.env.defaults.setInteger(prefkey::clipboardLimit, 1000);
    a.sync();
    EXPECT_EQ(a.cloud.passes, 4) << "150 items a batch";
    EXPECT_EQ(count("ClipItem"), 500u);
    for (int call = 0; call < 10 && b.texts.fetch(1000, 0).size() < 500; ++call)
        b.sync();
    EXPECT_EQ(b.texts.fetch(1000, 0).size(), 500u);
    EXPECT_GT(b.cloud.fetchedSince.size(), 1u) << "the changes came in pages";
    expectConverged();
}

TEST_F(CouchSync, APassReadsTheMarkerOnceAndTheNextPassFindsItGoneOrReKeyed) {
    a.env.defaults.setInteger(prefkey::clipboardLimit, 1000);
    b.env.defaults.setInteger(prefkey::clipboardLimit, 1000);
    for (int i = 0; i < 400; ++i)
        a.copy("entry " + std::to_string(i));
    auto reads = markerReads();
    a.sync();
    EXPECT_LE(markerReads() - reads, std::size_t(a.cloud.passes)) << "sending, 150 a pass";
    reads = markerReads();
    b.sync();
    EXPECT_EQ(b.texts.fetch(1000, 0).size(), 400u);
    EXPECT_GT(b.cloud.fetchedSince.size(), 1u) << "the changes came in pages";
    EXPECT_LE(markerReads() - reads, std::size_t(b.cloud.passes)) << "fetching, 200 a page";

    // Gone in the middle of a pass: that pass saves under the marker it
    // read; the next sets the zone up again and nothing is lost.
    b.copy("saved as the marker went");
    b.cloud.beforeNextSave = [&] { deleteMarker(); };
    b.sync();
    b.sync();
    EXPECT_THAT(b.env.log.lines(), testing::Contains(HasSubstr("zone missing")));
    EXPECT_FALSE(b.lastError());
    expectConverged();
    EXPECT_EQ(a.texts.fetch(1000, 0).size(), 401u);

    // Re-keyed by another device in the middle of a pass: the next pass
    // stops with the reason the user can act on.
    b.copy("saved as the passphrase changed");
    b.cloud.beforeNextSave = [&] { ASSERT_TRUE(containerA->changePassphrase("velvet kettle")); };
    b.sync();
    b.sync();
    EXPECT_EQ(b.lastError(), std::string(CouchContainer::passphraseChangedMessage));
}

TEST_F(CouchSync, AWrongPassphraseIsReportedAndChangesNothing) {
    a.copy("from a");
    a.sync();
    const auto before = documents().dump();

    SyncDevice wrong{backend("tr0ub4dor")};
    wrong.copy("must stay here");
    wrong.sync();
    EXPECT_EQ(wrong.lastError(), "The passphrase does not match the data on the sync server");
    EXPECT_THAT(wrong.contents(), ElementsAre("must stay here"));
    EXPECT_FALSE(wrong.key());
    EXPECT_EQ(documents().dump(), before);
}

TEST_F(CouchSync, AServerThatDiesInTheMiddleOfABatchLosesNothing) {
    for (int i = 0; i < 200; ++i)
        a.copy("note " + std::to_string(i));
    a.sync();  // zone and key first
    a.copy("after");
    a.cloud.beforeNextSave = [&] { server.stop(); };
    a.sync();
    EXPECT_EQ(a.lastError(), "CloudKit 4");
    EXPECT_EQ(a.texts.fetch(1000, 0).size(), 201u);

    // It comes back empty: the next pass finds the zone gone, makes it again
    // and sends everything.
    ASSERT_TRUE(server.start()) << server.output();
    for (int call = 0; call < 5 && count("ClipItem") < 201; ++call)
        a.sync();
    EXPECT_FALSE(a.lastError());
    EXPECT_EQ(count("ClipItem"), 201u);
    expectConverged();
}

TEST_F(CouchSync, DeletingTheCloudCopyOnOneDeviceMakesTheOtherRefillIt) {
    a.copy("on a");
    a.sync();
    b.copy("on b");
    b.sync();
    ASSERT_TRUE(a.engine.deleteCloudCopy());
    EXPECT_EQ(count("ClipItem"), 0u);

    b.sync();
    EXPECT_FALSE(b.lastError());
    EXPECT_EQ(count("ClipItem"), 2u) << "b sends its whole history again";
    expectConverged();
    EXPECT_THAT(a.contents(), ElementsAre("on a", "on b"));
}

TEST_F(CouchSync, ATamperedRecordIsSkippedAndTheLocalCopyStays) {
    std::string id = a.copy("original");
    a.sync();
    b.sync();
    a.env.clock.advance(5);
    a.texts.setLabel(id, "edited");
    a.sync();

    // Someone with access to the server flips a byte of the sealed fields.
    nlohmann::json doc;
    const auto all = documents();
    for (const auto& row : all["rows"])
        if (row["doc"].value("recordType", "") == "ClipItem")
            doc = row["doc"];
    ASSERT_TRUE(doc.contains("sealed"));
    std::string sealed = doc["sealed"];
    sealed[sealed.size() / 2] = sealed[sealed.size() / 2] == 'A' ? 'B' : 'A';
    doc["sealed"] = sealed;
    auto put = server.request("PUT", "/zettly/" + doc["_id"].get<std::string>(), doc.dump());
    ASSERT_EQ(put.status, 201) << put.body;

    b.sync();
    EXPECT_THAT(b.contents(), ElementsAre("original")) << "kept as it was, not deleted";
}

TEST_F(CouchSync, AChangedPassphraseStopsTheOtherDeviceUntilItHasTheNewOneAndThenBothMeet) {
    a.copy("on a");
    a.sync();
    b.copy("on b");
    b.sync();
    a.sync();
    const auto before = marker();

    // Only a device whose passphrase opens the data may change it.
    auto refused = backend("tr0ub4dor")->changePassphrase("a new one for everybody");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().userMessage, std::string(CouchContainer::wrongPassphraseMessage));
    EXPECT_EQ(marker(), before);

    const std::string renewed = "velvet kettle orbit marsh";
    ASSERT_TRUE(containerA->changePassphrase(renewed));
    EXPECT_EQ(count("ClipItem"), 0u);
    EXPECT_EQ(marker()["rekeyed"], true);
    EXPECT_NE(marker()["salt"], before["salt"]);
    EXPECT_EQ(keptByA.salt, couch::unbase64(marker()["salt"].get<std::string>()));
    a.engine.serverStartedAfresh();
    a.copy("after the change");
    a.sync();
    EXPECT_FALSE(a.lastError()) << *a.lastError();
    EXPECT_EQ(count("ClipItem"), 3u);

    // b holds the old key, in memory and (after a restart) in its secret
    // store; a device that never opened the zone cannot tell.
    b.copy("on b meanwhile");
    b.sync();
    EXPECT_EQ(b.lastError(), std::string(CouchContainer::passphraseChangedMessage));
    KeptKey restarted = keptByB;
    EXPECT_EQ(backend(passphrase, &restarted)->accountStatus().error().userMessage,
              std::string(CouchContainer::passphraseChangedMessage));
    EXPECT_EQ(backend(passphrase)->accountStatus().error().userMessage,
              std::string(CouchContainer::wrongPassphraseMessage));
    EXPECT_EQ(count("ClipItem"), 3u) << "b wrote nothing with the old key";

    // A new passphrase drops the kept key in the app.
    b.cloud.replaceBackend(backend(renewed));
    b.sync();
    EXPECT_FALSE(b.lastError()) << *b.lastError();
    expectConverged();
    EXPECT_THAT(a.contents(), ElementsAre("after the change", "on a", "on b", "on b meanwhile"));
}

TEST_F(CouchSync, AMarkerChangedOnTheServerReadsAsTamperedAndDeletingTheCloudCopyMendsIt) {
    a.copy("on a");
    a.sync();
    b.copy("on b");
    b.sync();
    a.sync();
    for (const char* field : {"epoch", "keyCheck", "kdf", "rekeyed"}) {
        const auto original = marker();
        auto changed = original;
        if (std::string(field) == "epoch")
            changed["epoch"] = std::string(32, 'e');
        else if (std::string(field) == "keyCheck")
            changed["keyCheck"] = couch::base64(synccrypto::Bytes(32, 7));
        else if (std::string(field) == "kdf")
            changed["kdf"] = "moderate";
        else
            changed["rekeyed"] = true;
        putMarker(changed);
        a.sync();
        EXPECT_EQ(a.lastError(), std::string(CouchContainer::markerTamperedMessage)) << field;
        KeptKey restarted = keptByB;
        EXPECT_EQ(backend(passphrase, &restarted)->accountStatus().error().userMessage,
                  std::string(CouchContainer::markerTamperedMessage))
            << field;
        auto restored = original;
        restored["_rev"] = marker()["_rev"];
        putMarker(restored);
        a.sync();
        EXPECT_FALSE(a.lastError()) << field;
    }

    putMarker([&] {
        auto changed = marker();
        changed["epoch"] = std::string(32, 'f');
        return changed;
    }());
    ASSERT_TRUE(a.engine.deleteCloudCopy());
    a.sync();
    EXPECT_FALSE(a.lastError());
    expectConverged();
    EXPECT_THAT(b.contents(), ElementsAre("on a", "on b"));
}

TEST_F(CouchSync, AZoneOfTheOlderFormatIsStartedAfreshByTheFirstNewDeviceAndNothingIsLost) {
    a.copy("on a");
    a.sync();
    b.copy("on b");
    b.sync();
    a.sync();
    // As an older version left it: a key check that vouches for the key only.
    auto older = marker();
    ASSERT_TRUE(keptByA.key);
    older["format"] = 1;
    older.erase("rekeyed");
    older["keyCheck"] = couch::base64(synccrypto::keyCheck(*keptByA.key));
    putMarker(older);

    SyncDevice c{backend()};
    c.copy("on c");
    c.sync();
    EXPECT_FALSE(c.lastError()) << *c.lastError();
    EXPECT_EQ(marker()["format"], 2);
    EXPECT_EQ(marker()["salt"], older["salt"]);
    EXPECT_NE(marker()["epoch"], older["epoch"]);
    expectConverged({&a, &b, &c});
    EXPECT_THAT(c.contents(), ElementsAre("on a", "on b", "on c"));
    EXPECT_EQ(count("ClipItem"), 3u);
}

TEST_F(CouchSync, AMarkerDeletedBehindTheDevicesBacksIsSetUpAgainAndNothingIsLost) {
    a.copy("on a");
    a.sync();
    b.copy("on b");
    b.sync();
    a.sync();
    ASSERT_EQ(
        server.request("DELETE", "/zettly/zettly-marker?rev=" + marker()["_rev"].get<std::string>())
            .status,
        200);

    a.copy("after on a");
    a.sync();
    b.sync();
    EXPECT_EQ(a.lastError(), std::nullopt);
    EXPECT_EQ(b.lastError(), std::nullopt);
    expectConverged();
    EXPECT_THAT(a.contents(), ElementsAre("after on a", "on a", "on b"));
    EXPECT_EQ(count("ClipItem"), 3u) << "no records left that nobody can open";
}

}  // namespace
}  // namespace zettly
