#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace zettly {

// The record database that sync talks to: a user's private cloud database
// of record zones. Backends: an in-memory server (tests, several devices in
// one process) and a self-hosted server reached over HTTP.
//
// Every call blocks until the server answered; the sync engine makes them on
// its own background thread. A call that fails as a whole returns a
// CloudError in its CloudResult; calls about several records answer per
// record, in the order they were asked, so one bad record never hides the
// fate of the others. Nothing here throws: a network error is an ordinary
// outcome for sync, and results that must be examined record by record do
// not fit an exception anyway.
//
//   CloudDatabase& db = container.privateDatabase();
//   if (auto zone = db.saveZones({"Clipboard"}); !zone)
//       return zone.error();
//   CloudRecord item{.recordType = "ClipItem", .zoneName = "Clipboard", .recordName = rid};
//   if (auto base = CloudRecord::fromSystemFields(ck))   // the row's saved "ck"
//       item = *base;                                   // saves over the server's copy
//   item.encryptedFields["text"] = text;
//   item.fields["modified"] = modified;
//   auto saved = db.modifyRecords({item}, {}, CloudSavePolicy::ifServerRecordUnchanged, false);
//   if (!saved)
//       return saved.error();                          // network, zone gone, ...
//   for (auto& [id, result] : saved.value().saved) {
//       if (result)
//           store.markSent(id.recordName, result.value().systemFields);
//       else if (result.error().code == CloudErrorCode::serverRecordChanged)
//           merge(*result.error().serverRecord);
//   }

using CloudBytes = std::vector<std::uint8_t>;

// A field value. Times and flags are doubles and integers, user content is
// strings and bytes.
using CloudValue = std::variant<double, std::int64_t, std::string, CloudBytes>;
using CloudFields = std::map<std::string, CloudValue, std::less<>>;

// Field names to fetch; none means every field. Image bytes are left out of
// change feeds this way and fetched by name when needed.
using CloudDesiredKeys = std::optional<std::vector<std::string>>;

struct CloudRecordID {
    std::string zoneName;
    std::string recordName;
    auto operator<=>(const CloudRecordID&) const = default;
};

// What identifies one stored version of a record. The change tag is the
// backend's own (a counter, a document revision); the engine never reads it.
struct CloudSystemFields {
    std::string zoneName;
    std::string recordType;
    std::string recordName;
    std::string changeTag;
    bool operator==(const CloudSystemFields&) const = default;
};

// The bytes the stores keep as a row's "ck". None when they are not
// system fields (damaged, or written by an incompatible version).
CloudBytes encodeSystemFields(const CloudSystemFields& fields);
std::optional<CloudSystemFields> decodeSystemFields(std::span<const std::uint8_t> bytes);

struct CloudRecord {
    std::string recordType;
    std::string zoneName;
    std::string recordName;
    // Readable by the server (times, flags, sort positions).
    CloudFields fields{};
    // End-to-end encrypted: user content never reaches the server in clear.
    CloudFields encryptedFields{};
    // Empty for a record the server has not seen; otherwise what the
    // backend gave with the last saved or fetched version, so that a save
    // can be checked against the server's current version.
    CloudBytes systemFields{};

    CloudRecordID id() const { return {zoneName, recordName}; }
    // A field-less record that saves over the version `systemFields` names;
    // none when the bytes do not decode (the caller starts a new record).
    static std::optional<CloudRecord> fromSystemFields(std::span<const std::uint8_t> systemFields);
    bool operator==(const CloudRecord&) const = default;
};

// CloudKit's error codes, with their numeric values: they are what the
// engine tests and what the status line shows ("CloudKit 4").
enum class CloudErrorCode : int {
    internalError = 1,
    partialFailure = 2,
    networkUnavailable = 3,
    networkFailure = 4,
    serviceUnavailable = 6,
    requestRateLimited = 7,
    notAuthenticated = 9,
    unknownItem = 11,
    invalidArguments = 12,
    serverRecordChanged = 14,
    serverRejectedRequest = 15,
    changeTokenExpired = 21,
    batchRequestFailed = 22,
    zoneNotFound = 26,
    limitExceeded = 27,
    userDeletedZone = 28,
    // Not CloudKit's (a server that cannot be trusted with integrity): the
    // version the server holds fails the end-to-end check. It was changed,
    // replayed from an older zone, or written (or deleted) by something
    // without the key. Nothing of it is to be believed; `serverRecord`
    // carries only what it takes to save over it (type, name and system
    // fields; no system fields when the server holds it as deleted).
    unauthenticRecord = 1001,
};

struct CloudError {
    CloudErrorCode code = CloudErrorCode::internalError;
    // Human-readable, for the log; a standard text for the code when the
    // backend has nothing better.
    std::string description;
    // With serverRecordChanged: the server's current version, all fields.
    std::optional<CloudRecord> serverRecord;
    // For the user, when the backend can say better than the code what is
    // wrong (a passphrase that does not open the server's data); the sync
    // status then shows it instead of the code.
    std::optional<std::string> userMessage;

    CloudError() = default;
    explicit CloudError(CloudErrorCode c, std::string text = {},
                        std::optional<CloudRecord> server = std::nullopt);
    int number() const { return static_cast<int>(code); }
};

// A value or the error that stands in for it. CloudResult<> carries no value.
template <typename T = std::monostate>
class CloudResult {
public:
    CloudResult() requires std::is_same_v<T, std::monostate>
    = default;
    CloudResult(T value) : state_(std::move(value)) {}
    CloudResult(CloudError error) : state_(std::move(error)) {}

    bool ok() const { return state_.index() == 0; }
    explicit operator bool() const { return ok(); }
    // Only when ok() (otherwise std::bad_variant_access).
    const T& value() const& { return std::get<0>(state_); }
    T& value() & { return std::get<0>(state_); }
    T&& value() && { return std::get<0>(std::move(state_)); }
    // Only when !ok().
    const CloudError& error() const { return std::get<1>(state_); }

private:
    std::variant<T, CloudError> state_;
};

template <typename T>
struct CloudPerRecord {
    CloudRecordID id;
    CloudResult<T> result;
};

// How a save meets the server's copy of a record.
enum class CloudSavePolicy {
    // Saves only when the sent system fields name the server's current
    // version: a record the server has fails with serverRecordChanged
    // (carrying the server's version) when they are missing or stale; a
    // record it no longer has fails with unknownItem when they are present.
    ifServerRecordUnchanged,
    // Overwrites the fields the sent record carries and keeps the server's
    // other fields (so a field cannot be removed with this policy).
    changedKeys,
    // Replaces every field.
    allKeys,
};

struct CloudModifyResults {
    std::vector<CloudPerRecord<CloudRecord>> saved;  // the stored version
    std::vector<CloudPerRecord<std::monostate>> deleted;
};

struct CloudDeletion {
    CloudRecordID id;
    std::string recordType;  // so the reader knows which store it concerns
};

struct CloudZoneChanges {
    std::vector<CloudPerRecord<CloudRecord>> modified;
    std::vector<CloudDeletion> deleted;
    CloudBytes token;  // ask again from here
    bool moreComing = false;
};

// Delivers the zone's pushes to this device once saved.
struct CloudSubscription {
    std::string subscriptionID;
    std::string zoneName;
};

class CloudDatabase {
public:
    virtual ~CloudDatabase() = default;

    // Saving a zone that exists, or a subscription again, changes nothing.
    virtual CloudResult<> saveZones(const std::vector<std::string>& zoneNames) = 0;
    // Removes every record of the zones and their subscriptions; a missing
    // zone fails the call and nothing is deleted.
    virtual CloudResult<> deleteZones(const std::vector<std::string>& zoneNames) = 0;
    virtual CloudResult<> saveSubscription(const CloudSubscription& subscription) = 0;

    // A record the server does not have comes back as unknownItem.
    virtual CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys) = 0;

    // Deleting a record the server does not have gives unknownItem. With
    // `atomic`, one failing record fails them all: it carries its own error,
    // the others batchRequestFailed, and nothing is stored. A missing zone
    // fails the whole call (zoneNotFound or userDeletedZone), never a single
    // record, so every call reports it the same way.
    virtual CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                          const std::vector<CloudRecordID>& deletes,
                                                          CloudSavePolicy policy, bool atomic) = 0;

    // Changes of the zone after `since` (an earlier answer's token; empty
    // for everything), one record's latest state each, oldest first; at
    // most `resultsLimit` of them (0: the server's page size). A token the
    // server no longer honours (the zone was re-created since, or the bytes
    // are not a token) gives changeTokenExpired: start again from empty.
    virtual CloudResult<CloudZoneChanges> zoneChanges(const std::string& zoneName,
                                                      const CloudBytes& since,
                                                      const CloudDesiredKeys& desiredKeys,
                                                      std::size_t resultsLimit = 0) = 0;

    // One record; unknownItem when the server does not have it.
    CloudResult<CloudRecord> fetchRecord(const CloudRecordID& id,
                                         const CloudDesiredKeys& desiredKeys = std::nullopt);
};

// CloudKit's account states, with their numeric values.
enum class CloudAccountStatus : int {
    couldNotDetermine = 0,
    available = 1,
    restricted = 2,
    noAccount = 3,
    temporarilyUnavailable = 4,
};

// The signed-in account of this device and its private database. Without
// an available account, the user and database calls fail with
// notAuthenticated.
class CloudContainer {
public:
    virtual ~CloudContainer() = default;
    virtual CloudResult<CloudAccountStatus> accountStatus() = 0;
    // Stable for one account; a different value means another user signed in.
    virtual CloudResult<std::string> userRecordName() = 0;
    virtual CloudDatabase& privateDatabase() = 0;
    // Called with the subscription's id when another device changed a zone
    // this account subscribed to. It runs on a thread of the backend's
    // choosing and should only schedule a sync. Replaces the previous
    // handler; an empty one stops delivery.
    virtual void setPushHandler(std::function<void(const std::string& subscriptionID)> handler) = 0;
    // How far this computer's clock is ahead of the server's (negative:
    // behind), in seconds, from the server's last answer; none before the
    // first answer or when the backend cannot tell. Sync trusts times only
    // from a clock that agrees with it.
    virtual std::optional<double> clockSkew() { return std::nullopt; }
    // The sync engine's pass runs between these two calls, accountStatus()
    // first. A backend that must check the zone's set-up before it trusts a
    // call may then check it once, at the pass's start, instead of for every
    // call: what changes on the server during the pass is found by the next
    // one. Outside a pass every call checks afresh.
    virtual void passBegins() {}
    virtual void passEnds() {}
};

}  // namespace zettly
