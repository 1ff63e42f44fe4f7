#pragma once

// What the files behind CouchContainer share: the backend that holds the
// connection, the key and the push long-poll, and the helpers that read the
// server's answers. Only files in platform/couch include it.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/CloudDatabase.h"
#include "platform/couch/CouchContainer.h"
#include "platform/couch/CouchDocuments.h"
#include "platform/couch/CouchHttp.h"
#include "platform/couch/SyncCrypto.h"

namespace zettly::couch {

using synccrypto::MasterKey;

// The most changes one _changes request asks for, by the engine and by the
// long-poll alike.
inline constexpr std::size_t changesPage = 200;
// Saves that overwrite (and deletions) fetch the current revision first;
// another device saving in between costs another round.
inline constexpr int writeRounds = 3;

// None when the body is not JSON.
std::optional<Json> parse(const std::string& body);
// CouchDB's own words for a refusal, for the log.
std::string reasonOf(const HttpResponse& response);
CloudError requestFailure(const HttpResponse& response, const std::string& what);
CloudError unexpectedAnswer(const std::string& what);
// A _changes sequence as the server wants it back in `since`.
std::string sequenceText(const Json& sequence);

using PushHandler = std::function<void(const std::string&)>;

struct PushRun {
    std::atomic<bool> stop{false};
};

// The zone's set-up (CouchMarker.cpp has the format).
struct Marker {
    std::string rev;  // empty for one not written yet
    int format = markerFormat;
    std::string epoch;
    synccrypto::Bytes salt;
    synccrypto::Bytes keyCheck;
    synccrypto::KdfStrength kdf = synccrypto::KdfStrength::moderate;
    // Written by a passphrase change, so that a device whose key opened the
    // marker before can tell the user why it no longer does.
    bool rekeyed = false;
};

struct Zone {
    Marker marker;
    MasterKey key;
};

// The container and its database in one, so that they share the session,
// the key and the record of this device's own revisions.
class Backend {
public:
    Backend(CouchSettings settings, Log& log);
    ~Backend();  // ends the push long-poll and waits for it

    // --- the container's calls ------------------------------------------------

    CloudResult<CloudAccountStatus> accountStatus();
    CloudResult<std::string> userRecordName();
    CouchContainer::ConnectionReport testConnection();
    void setPushHandler(PushHandler handler);
    // This computer's clock minus the server's, from the latest dated answer.
    std::optional<double> clockSkew() const;
    CloudResult<> changePassphrase(const std::string& newPassphrase);
    // Between these, openZone() answers from the check the pass made first
    // (normally accountStatus()'s) instead of reading the marker again.
    void passBegins();
    void passEnds();

    // --- the database's calls -------------------------------------------------

    CloudResult<> saveZones(const std::vector<std::string>& zoneNames);
    CloudResult<> deleteZones(const std::vector<std::string>& zoneNames);
    CloudResult<> saveSubscription(const CloudSubscription& subscription);
    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys);
    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic);
    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zoneName, const CloudBytes& since,
                                              const CloudDesiredKeys& desiredKeys,
                                              std::size_t resultsLimit);

private:
    // --- the session and requests (CouchSession.cpp) ---------------------------

    bool configured() const;
    CloudResult<> usable() const;
    // Within the limits derived from the settings; answers larger than
    // `maxBody` fail.
    HttpResponse send(std::string_view method, const std::string& url, const std::string& body = {},
                      std::size_t maxBody = largestAnswer);
    // The answer's JSON when the request succeeded.
    CloudResult<Json> call(std::string_view method, const std::string& url, const std::string& body,
                           const std::string& what, std::size_t maxBody = largestAnswer);
    // Keeps the clock skew the answer's Date header tells, if it has one.
    void noteClock(const HttpResponse& response);

    // --- the marker and the key (CouchMarker.cpp) ------------------------------

    std::string markerUrl() const;
    std::string passphrase();
    // None when the database or its marker does not exist yet.
    CloudResult<std::optional<Marker>> readMarker();
    // The key that opens `marker`; the error tells a wrong passphrase from
    // one changed on another device and from a marker changed behind
    // Zettly's back.
    CloudResult<MasterKey> keyFor(const Marker& marker);
    // The marker and its key, none when there is no marker. With `upgrade`,
    // a zone of an older format is started afresh in the current one.
    CloudResult<std::optional<Zone>> openMarker(bool upgrade);
    // As openMarker(true); zoneNotFound when there is no marker. During a
    // pass, the pass's first check answers.
    CloudResult<Zone> openZone();
    // What the pass's check found (none: no marker); false outside a pass
    // or before its check.
    bool fromPass(std::optional<Zone>& zone);
    // Keeps what a check found as the pass's, when a pass is under way.
    void rememberForPass(const std::optional<Zone>& zone);
    // The marker changed (this device wrote it, or the change feed shows
    // another revision): the pass checks it again.
    void forgetForPass();
    CloudResult<> createDatabase();
    // True when this call created the marker, false when another device
    // was faster.
    CloudResult<bool> createMarker();
    // A new salt, a key derived from `passphrase` and a marker for them
    // written over `rev` (empty: a new one); the key becomes this device's.
    // False when the marker changed meanwhile.
    CloudResult<bool> writeNewMarker(const std::string& passphrase, const std::string& rev,
                                     bool rekeyed);
    // Writes `marker` with its key check under `key`; false on a conflict.
    // Its revision and check are updated.
    CloudResult<bool> writeMarker(Marker& marker, const MasterKey& key);
    // A new epoch for the zone, so that other devices upload again.
    CloudResult<> renewEpoch(Zone zone);
    // Whether any record document is stored (deleted ones left out).
    CloudResult<bool> holdsRecords();

    // --- records (CouchRecords.cpp) --------------------------------------------

    static bool wantsData(const CloudDesiredKeys& keys);
    // Deletes every record, in pages; the marker and design documents stay.
    // Deletes every record, marked as wiped with the epoch that ends, sealed
    // with `key` when this device has the one that opened that epoch.
    CloudResult<> wipeDocuments(const std::string& endingEpoch, const MasterKey* key);
    // The live documents of these names (deleted and missing ones left out).
    CloudResult<std::map<std::string, Json>> liveDocuments(const std::vector<std::string>& names,
                                                           bool withData);
    // A document checked end to end, or unauthenticRecord (see
    // claimedIdentity() for `savedType`).
    CloudResult<CloudRecord> open(const Zone& zone, const Json& document, const CloudRecordID& id,
                                  const CloudDesiredKeys& desiredKeys,
                                  const std::string& savedType = {});
    // A deleted document: the user's deletion, none for a wipe, or
    // unauthenticRecord.
    CloudResult<std::optional<CloudDeletion>> openDeletion(const Zone& zone, const Json& document,
                                                           const CloudRecordID& id);
    CloudError unauthentic(const Json& document, const CloudRecordID& id,
                           const std::string& problem, const std::string& savedType = {});
    // False for a version older than one this process read or wrote of the
    // record (a replay); otherwise remembered.
    bool noteVersion(const std::string& name, std::uint64_t version);
    bool hasVersion(const std::string& name);
    // Above every version seen of the record, and the time in milliseconds.
    std::uint64_t nextVersion(const std::string& name);

    // --- pushes (CouchPush.cpp) ------------------------------------------------

    void pushLoop(PushRun& run);
    // Revisions this device wrote, so that the long-poll does not wake the
    // engine for its own saves.
    void noteOwn(const std::string& rev);
    bool isOwn(const std::string& rev);

    CouchSettings settings_;
    Log& log_;
    std::string databaseUrl_;  // without a trailing slash; empty when unusable
    std::string serverUrl_;

    std::mutex httpMutex_;
    HttpClient http_;

    mutable std::mutex clockMutex_;
    std::optional<double> clockSkew_;

    std::mutex keyMutex_;
    // The settings' passphrase until this device changes it.
    std::string passphrase_;
    std::optional<MasterKey> key_;
    synccrypto::Bytes keySalt_;
    synccrypto::Bytes rejectedSalt_;
    synccrypto::Bytes rejectedCheck_;
    std::optional<CloudError> rejection_;

    // The pass's view of the zone: the marker a pass checked first, so
    // that its calls do not read it again (half of all requests otherwise).
    struct PassView {
        bool inPass = false;
        bool checked = false;
        std::optional<Zone> zone;  // none: the check found no marker
    };
    std::mutex passMutex_;
    PassView pass_;

    std::mutex reportedMutex_;
    std::set<std::string> reported_;

    std::mutex versionsMutex_;
    std::map<std::string, std::uint64_t> versions_;  // the highest per record name

    std::mutex ownMutex_;
    std::set<std::string> ownRevisions_;
    std::deque<std::string> ownOrder_;

    std::mutex pushMutex_;
    std::condition_variable pushWake_;
    std::shared_ptr<const PushHandler> pushHandler_;
    std::thread pushThread_;
    // Each long-poll has its own flag, so that one being stopped (and
    // waited for) is never started again by a handler set meanwhile.
    std::shared_ptr<PushRun> pushRun_;
};

}  // namespace zettly::couch
