// The cloud record database over CouchDB. The mapping:
//
// - The one zone is the database at the configured URL. Only server admins
//   may create databases, so saving the zone accepts a database that exists
//   and that the user may merely open.
// - The document "zettly-marker" sets the zone up: the salt of the key
//   derivation, a key check, the Argon2 strength and the zone's epoch (a
//   random id). Every call reads it first, so a wrong passphrase is found
//   before anything else is read or written, and a missing marker reads as
//   a missing zone.
// - A record is a document (see CouchDocuments.h); its system fields carry
//   the document's revision as the change tag. Saves go through _bulk_docs.
// - Change tokens hold the epoch and the _changes sequence. Deleting the
//   zone deletes every document, marked "wiped" so that no feed reports them
//   as the user's deletions, and then gives the marker a new epoch: another
//   device's token then names an old epoch and gets userDeletedZone, and its
//   engine uploads again, as it does for a zone deleted in CloudKit. The
//   database itself stays: deleting it would also drop its members list,
//   and a user who is not an admin could not create it again.
// - Pushes come from a long-poll on _changes on a thread of its own.
#include "platform/couch/CouchContainer.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include <curl/curl.h>

#include "platform/Log.h"
#include "platform/couch/CouchDocuments.h"
#include "platform/couch/CouchHttp.h"

namespace zettly {

namespace {

using couch::HttpResponse;
using couch::Json;
using synccrypto::MasterKey;

constexpr std::string_view subscriptionName = "clipboard-zone";
constexpr std::string_view logPrefix = "[Zettly] CouchDB: ";
constexpr std::size_t changesPage = 200;
constexpr std::size_t wipePage = 500;
// Saves that overwrite (and deletions) fetch the current revision first;
// another device saving in between costs another round.
constexpr int writeRounds = 3;
constexpr std::size_t ownRevisionsKept = 4096;
const std::string wrongPassphrase = "The passphrase does not match the data on the sync server";

using PushHandler = std::function<void(const std::string&)>;

struct PushRun {
    std::atomic<bool> stop{false};
};

struct Marker {
    Json document;  // as stored, so that a new epoch keeps the rest
    std::string rev;
    std::string epoch;
    synccrypto::Bytes salt;
    synccrypto::Bytes keyCheck;
    synccrypto::KdfStrength kdf = synccrypto::KdfStrength::moderate;
};

struct Zone {
    Marker marker;
    MasterKey key;
};

std::string lowercase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool isLoopback(std::string host) {
    host = lowercase(std::move(host));
    if (host == "localhost" || host == "[::1]" || host == "::1")
        return true;
    // A dotted IPv4 address in 127.0.0.0/8; "127.example.org" is not one.
    int parts = 0;
    std::size_t start = 0;
    for (;;) {
        const std::size_t dot = host.find('.', start);
        const std::string part = host.substr(start, dot - start);
        if (part.empty() || part.size() > 3 ||
            !std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; }) ||
            std::stoi(part) > 255 || (parts == 0 && part != "127"))
            return false;
        ++parts;
        if (dot == std::string::npos)
            break;
        start = dot + 1;
    }
    return parts == 4;
}

std::optional<std::string> urlPart(CURLU* url, CURLUPart part) {
    char* text = nullptr;
    if (curl_url_get(url, part, &text, 0) != CURLUE_OK || !text)
        return std::nullopt;
    std::string value(text);
    curl_free(text);
    return value;
}

std::string hex(std::span<const std::uint8_t> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : bytes) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 15]);
    }
    return text;
}

std::string kdfName(synccrypto::KdfStrength strength) {
    return strength == synccrypto::KdfStrength::interactive ? "interactive" : "moderate";
}

const Json* member(const Json& object, std::string_view key) {
    if (!object.is_object())
        return nullptr;
    auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> text(const Json& object, std::string_view key) {
    const Json* value = member(object, key);
    if (!value || !value->is_string())
        return std::nullopt;
    return value->get<std::string>();
}

std::optional<Json> parse(const std::string& body) {
    Json json = Json::parse(body, nullptr, false);
    if (json.is_discarded())
        return std::nullopt;
    return json;
}

// CouchDB's own words for a refusal, for the log.
std::string reasonOf(const HttpResponse& response) {
    auto json = parse(response.body);
    if (!json)
        return "HTTP " + std::to_string(response.status);
    std::string reason = text(*json, "error").value_or("HTTP " + std::to_string(response.status));
    if (auto detail = text(*json, "reason"); detail && !detail->empty())
        reason += ": " + *detail;
    return reason;
}

CloudError requestFailure(const HttpResponse& response, const std::string& what) {
    if (!response.answered())
        return CloudError(CloudErrorCode::networkFailure, what + ": " + response.transportError);
    const std::string reason = what + ": " + reasonOf(response);
    const long status = response.status;
    if (status == 401 || status == 403)
        return CloudError(CloudErrorCode::notAuthenticated, reason);
    if (status == 404)
        return CloudError(CloudErrorCode::zoneNotFound, reason);
    if (status == 413)
        return CloudError(CloudErrorCode::limitExceeded, reason);
    if (status == 429)
        return CloudError(CloudErrorCode::requestRateLimited, reason);
    if (status >= 500)
        return CloudError(CloudErrorCode::serviceUnavailable, reason);
    return CloudError(CloudErrorCode::serverRejectedRequest, reason);
}

CloudError unexpectedAnswer(const std::string& what) {
    return CloudError(CloudErrorCode::serverRejectedRequest,
                      what + ": the server's answer is not what CouchDB sends");
}

CloudError passphraseMismatch() {
    CloudError error(CloudErrorCode::notAuthenticated, "passphrase does not match");
    error.userMessage = wrongPassphrase;
    return error;
}

// A record the server refused in _bulk_docs.
CloudError recordFailure(const Json& result, const std::string& name) {
    const std::string error = text(result, "error").value_or("unknown");
    const std::string reason = name + ": " + error + " " + text(result, "reason").value_or("");
    if (error == "unauthorized")
        return CloudError(CloudErrorCode::notAuthenticated, reason);
    if (error == "too_large" || error == "document_too_large" || error == "attachment_too_large")
        return CloudError(CloudErrorCode::limitExceeded, reason);
    return CloudError(CloudErrorCode::serverRejectedRequest, reason);
}

std::string sequenceText(const Json& sequence) {
    return sequence.is_string() ? sequence.get<std::string>() : sequence.dump();
}

class Backend {
public:
    Backend(CouchSettings settings, Log& log)
        : settings_(std::move(settings)), log_(log), http_(settings_.user, settings_.password) {
        if (!couchUrlProblem(settings_.databaseUrl)) {
            std::string url = settings_.databaseUrl;
            while (url.ends_with('/'))
                url.pop_back();
            databaseUrl_ = url;
            serverUrl_ = url.substr(0, url.rfind('/'));
        }
    }

    ~Backend() {
        std::thread finished;
        {
            std::lock_guard lock(pushMutex_);
            pushHandler_.reset();
            if (pushRun_)
                pushRun_->stop = true;
            finished = std::move(pushThread_);
        }
        pushWake_.notify_all();
        if (finished.joinable()) {
            if (finished.get_id() == std::this_thread::get_id())
                finished.detach();  // destroyed from its own handler; it ends with the loop
            else
                finished.join();
        }
    }

    bool configured() const {
        return !settings_.databaseUrl.empty() && !settings_.user.empty() &&
               !settings_.passphrase.empty();
    }

    // --- the container's calls ------------------------------------------------

    CloudResult<CloudAccountStatus> accountStatus() {
        if (!configured())
            return CloudAccountStatus::noAccount;
        if (auto problem = couchUrlProblem(settings_.databaseUrl)) {
            CloudError error(CloudErrorCode::invalidArguments, describe(*problem));
            error.userMessage = error.description;
            return error;
        }
        if (auto session = call("GET", serverUrl_ + "/_session", {}, "Signing in"); !session)
            return session.error();
        auto marker = readMarker();
        if (!marker)
            return marker.error();
        // Not set up yet: saving the zone does that.
        if (!marker.value())
            return CloudAccountStatus::available;
        if (auto key = keyFor(*marker.value()); !key)
            return key.error();
        return CloudAccountStatus::available;
    }

    CloudResult<std::string> userRecordName() {
        if (auto ready = usable(); !ready)
            return ready.error();
        auto session = call("GET", serverUrl_ + "/_session", {}, "Signing in");
        if (!session)
            return session.error();
        // pouchdb-server without admins ("admin party") signs nobody in.
        const Json* context = member(session.value(), "userCtx");
        if (auto name = context ? text(*context, "name") : std::nullopt; name && !name->empty())
            return *name;
        return settings_.user;
    }

    CouchContainer::ConnectionReport testConnection() {
        using Report = CouchContainer::ConnectionReport;
        using Outcome = Report::Outcome;
        auto report = [](Outcome outcome, std::string message, std::string detail = {}) {
            bool ok = outcome == Outcome::databaseMissing || outcome == Outcome::connectedEmpty ||
                      outcome == Outcome::connected;
            return Report{ok, outcome, std::move(detail), std::nullopt, std::move(message)};
        };
        if (!configured())
            return report(Outcome::incomplete,
                          "Enter the database address, the user name and the passphrase.");
        if (auto problem = couchUrlProblem(settings_.databaseUrl)) {
            Report bad = report(Outcome::badAddress, describe(*problem));
            bad.urlProblem = problem;
            return bad;
        }
        auto session = send("GET", serverUrl_ + "/_session");
        if (!session.answered())
            return report(Outcome::unreachable,
                          "The server cannot be reached: " + session.transportError,
                          session.transportError);
        if (session.status == 401 || session.status == 403)
            return report(Outcome::credentialsRefused,
                          "The server does not accept this user name and password.");
        if (!session.success())
            return report(Outcome::serverError,
                          "The server answered with an error: " + reasonOf(session),
                          reasonOf(session));
        auto database = send("GET", databaseUrl_);
        if (database.status == 404)
            return report(Outcome::databaseMissing,
                          "Signed in. The database does not exist yet; the first sync creates it "
                          "if this user may (otherwise ask the server's administrator).");
        if (database.status == 401 || database.status == 403)
            return report(Outcome::databaseForbidden,
                          "Signed in, but this user may not open the database.");
        if (!database.success())
            return report(Outcome::databaseError,
                          "The database cannot be opened: " + reasonOf(database),
                          reasonOf(database));
        auto unreadable = [&](const CloudError& error) {
            std::string why = error.userMessage.value_or(error.description);
            return report(Outcome::dataUnreadable, why, why);
        };
        auto marker = readMarker();
        if (!marker)
            return unreadable(marker.error());
        if (!marker.value())
            return report(Outcome::connectedEmpty,
                          "Connected. The database is empty; the first sync sets it up.");
        if (auto key = keyFor(*marker.value()); !key)
            return unreadable(key.error());
        return report(Outcome::connected,
                      "Connected, and the passphrase opens the data on the server.");
    }

    void setPushHandler(PushHandler handler) {
        std::thread finished;
        {
            std::lock_guard lock(pushMutex_);
            const bool onPushThread =
                pushThread_.joinable() && pushThread_.get_id() == std::this_thread::get_id();
            pushHandler_ =
                handler ? std::make_shared<const PushHandler>(std::move(handler)) : nullptr;
            if (pushHandler_) {
                if (onPushThread) {
                    pushRun_->stop = false;  // cleared and set again from its own handler
                } else if (!pushThread_.joinable() || pushRun_->stop) {
                    finished = std::move(pushThread_);
                    if (!databaseUrl_.empty()) {
                        pushRun_ = std::make_shared<PushRun>();
                        pushThread_ = std::thread([this, run = pushRun_] { pushLoop(*run); });
                    }
                }
            } else if (pushThread_.joinable()) {
                pushRun_->stop = true;
                if (!onPushThread)
                    finished = std::move(pushThread_);
            }
        }
        pushWake_.notify_all();
        if (finished.joinable())
            finished.join();
    }

    // --- the database's calls -------------------------------------------------

    CloudResult<> saveZones(const std::vector<std::string>& zoneNames) {
        if (auto ready = usable(); !ready)
            return ready;
        if (std::find(zoneNames.begin(), zoneNames.end(), "") != zoneNames.end())
            return CloudError(CloudErrorCode::invalidArguments, "A record zone needs a name");
        if (zoneNames.empty())
            return {};
        for (int attempt = 0; attempt < writeRounds; ++attempt) {
            auto marker = readMarker();
            if (!marker)
                return marker.error();
            if (marker.value()) {
                if (auto key = keyFor(*marker.value()); !key)
                    return key.error();
                return {};
            }
            if (auto database = createDatabase(); !database)
                return database;
            auto created = createMarker();
            if (!created || created.value())
                return created ? CloudResult<>() : CloudResult<>(created.error());
            // Another device created it at the same moment: use theirs.
        }
        return CloudError(CloudErrorCode::serverRecordChanged,
                          "The zone's marker keeps changing on the server");
    }

    CloudResult<> deleteZones(const std::vector<std::string>& zoneNames) {
        if (auto ready = usable(); !ready)
            return ready;
        if (zoneNames.empty())
            return {};
        auto zone = openZone();
        if (!zone)
            return zone.error();
        if (auto wiped = wipeDocuments(); !wiped)
            return wiped;
        // Last, so that another device that notices the new epoch finds the
        // records gone already.
        Marker marker = zone.value().marker;
        for (int attempt = 0; attempt < writeRounds; ++attempt) {
            Json document = marker.document;
            document["epoch"] = newEpoch();
            auto response = send("PUT", markerUrl(), document.dump());
            if (response.success()) {
                if (auto json = parse(response.body))
                    noteOwn(text(*json, "rev").value_or(""));
                return {};
            }
            if (response.status != 409)
                return requestFailure(response, "Starting the zone afresh");
            auto again = readMarker();
            if (!again)
                return again.error();
            if (!again.value())
                return CloudError(CloudErrorCode::zoneNotFound, "The zone's marker is gone");
            marker = *again.value();
        }
        return CloudError(CloudErrorCode::serverRecordChanged,
                          "The zone's marker keeps changing on the server");
    }

    CloudResult<> saveSubscription(const CloudSubscription& subscription) {
        if (auto ready = usable(); !ready)
            return ready;
        if (subscription.subscriptionID.empty())
            return CloudError(CloudErrorCode::invalidArguments, "A subscription needs an id");
        // Pushes come from the long-poll whenever a handler is set.
        return {};
    }

    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys) {
        if (auto ready = usable(); !ready)
            return ready.error();
        std::vector<CloudPerRecord<CloudRecord>> results;
        if (ids.empty())
            return results;
        auto zone = openZone();
        if (!zone)
            return zone.error();
        std::vector<std::string> names;
        for (const auto& id : ids) {
            if (couch::isRecordName(id.recordName))
                names.push_back(id.recordName);
        }
        auto documents = liveDocuments(names, wantsData(desiredKeys));
        if (!documents)
            return documents.error();
        for (const auto& id : ids) {
            auto found = documents.value().find(id.recordName);
            if (found == documents.value().end() || !couch::isRecordName(id.recordName)) {
                results.push_back({id, CloudError(CloudErrorCode::unknownItem)});
                continue;
            }
            results.push_back({id, open(zone.value().key, found->second, id, desiredKeys)});
        }
        return results;
    }

    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic);

    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zoneName, const CloudBytes& since,
                                              const CloudDesiredKeys& desiredKeys,
                                              std::size_t resultsLimit);

private:
    // --- requests -------------------------------------------------------------

    HttpResponse send(std::string_view method, const std::string& url,
                      const std::string& body = {}) {
        std::lock_guard lock(httpMutex_);
        return http_.send(method, url, body, settings_.requestTimeoutSeconds);
    }

    // The answer's JSON when the request succeeded.
    CloudResult<Json> call(std::string_view method, const std::string& url, const std::string& body,
                           const std::string& what) {
        auto response = send(method, url, body);
        if (!response.success())
            return requestFailure(response, what);
        auto json = parse(response.body);
        if (!json)
            return unexpectedAnswer(what);
        return std::move(*json);
    }

    CloudResult<> usable() const {
        if (!configured())
            return CloudError(CloudErrorCode::notAuthenticated, "No sync server is set up");
        if (databaseUrl_.empty())
            return CloudError(CloudErrorCode::invalidArguments,
                              describe(couchUrlProblem(settings_.databaseUrl)
                                           .value_or(CouchUrlProblem::notAnAddress)));
        return {};
    }

    std::string markerUrl() const { return databaseUrl_ + "/" + couch::escape(couch::markerID); }

    static bool wantsData(const CloudDesiredKeys& keys) {
        return !keys || std::find(keys->begin(), keys->end(), "data") != keys->end();
    }

    // --- the marker and the key -----------------------------------------------

    // None when the database or its marker does not exist yet.
    CloudResult<std::optional<Marker>> readMarker() {
        auto response = send("GET", markerUrl());
        if (response.status == 404)
            return std::optional<Marker>();
        if (!response.success())
            return requestFailure(response, "Reading the zone's marker");
        auto json = parse(response.body);
        if (!json)
            return unexpectedAnswer("Reading the zone's marker");
        Marker marker;
        marker.document = *json;
        const Json* format = member(*json, "format");
        if (format && format->is_number_integer() && format->get<int>() > couch::markerFormat) {
            CloudError error(CloudErrorCode::serverRejectedRequest,
                             "The zone was set up by a newer version");
            error.userMessage =
                "The data on the sync server was written by a newer version of Zettly";
            return error;
        }
        auto salt = couch::unbase64(text(*json, "salt").value_or(""));
        auto check = couch::unbase64(text(*json, "keyCheck").value_or(""));
        const auto kdf = text(*json, "kdf");
        marker.rev = text(*json, "_rev").value_or("");
        marker.epoch = text(*json, "epoch").value_or("");
        if (!format || !salt || salt->size() != synccrypto::saltSize || !check || check->empty() ||
            !kdf || (*kdf != "moderate" && *kdf != "interactive") || marker.epoch.empty() ||
            marker.rev.empty()) {
            CloudError error(CloudErrorCode::serverRejectedRequest,
                             "The zone's marker document is damaged");
            error.userMessage = "The set-up record in the sync database is damaged";
            return error;
        }
        marker.salt = std::move(*salt);
        marker.keyCheck = std::move(*check);
        marker.kdf = *kdf == "interactive" ? synccrypto::KdfStrength::interactive
                                           : synccrypto::KdfStrength::moderate;
        return std::optional<Marker>(std::move(marker));
    }

    CloudResult<MasterKey> keyFor(const Marker& marker) {
        std::lock_guard lock(keyMutex_);
        if (key_ && keySalt_ == marker.salt && synccrypto::matchesKeyCheck(*key_, marker.keyCheck))
            return *key_;
        // Argon2 takes a second and a quarter of a gigabyte: a passphrase
        // that failed against this marker is not tried again.
        if (rejectedSalt_ == marker.salt && rejectedCheck_ == marker.keyCheck)
            return passphraseMismatch();
        if (settings_.cachedKey && settings_.cachedKeySalt == marker.salt &&
            synccrypto::matchesKeyCheck(*settings_.cachedKey, marker.keyCheck)) {
            key_ = settings_.cachedKey;
            keySalt_ = marker.salt;
            return *key_;
        }
        auto derived = synccrypto::deriveKey(settings_.passphrase, marker.salt, marker.kdf);
        if (!derived)
            return CloudError(CloudErrorCode::internalError,
                              "The key could not be derived from the passphrase (out of memory)");
        if (!synccrypto::matchesKeyCheck(*derived, marker.keyCheck)) {
            rejectedSalt_ = marker.salt;
            rejectedCheck_ = marker.keyCheck;
            return passphraseMismatch();
        }
        key_ = *derived;
        keySalt_ = marker.salt;
        if (settings_.keyDerived)
            settings_.keyDerived(marker.salt, *derived);
        return *derived;
    }

    CloudResult<Zone> openZone() {
        auto marker = readMarker();
        if (!marker)
            return marker.error();
        if (!marker.value())
            return CloudError(CloudErrorCode::zoneNotFound,
                              "The sync database or its marker does not exist");
        auto key = keyFor(*marker.value());
        if (!key)
            return key.error();
        return Zone{std::move(*marker.value()), std::move(key.value())};
    }

    std::string newEpoch() { return hex(synccrypto::randomBytes(16)); }

    CloudResult<> createDatabase() {
        auto response = send("PUT", databaseUrl_);
        if (response.success() || response.status == 412)
            return {};
        // Only admins may create databases; a member may still use one.
        if (response.status == 401 || response.status == 403) {
            auto exists = send("GET", databaseUrl_);
            if (exists.success())
                return {};
            if (exists.status == 404)
                return CloudError(CloudErrorCode::notAuthenticated,
                                  "The database does not exist and this user may not create it");
        }
        return requestFailure(response, "Creating the database");
    }

    // True when this call created the marker, false when another device
    // was faster.
    CloudResult<bool> createMarker() {
        if (!synccrypto::ready())
            return CloudError(CloudErrorCode::internalError, "libsodium cannot start");
        const auto salt = synccrypto::randomBytes(synccrypto::saltSize);
        auto key = synccrypto::deriveKey(settings_.passphrase, salt, settings_.kdf);
        if (!key)
            return CloudError(CloudErrorCode::internalError,
                              "The key could not be derived from the passphrase (out of memory)");
        const Json document = {
            {"_id", couch::markerID},      {"format", couch::markerFormat},
            {"epoch", newEpoch()},         {"kdf", kdfName(settings_.kdf)},
            {"salt", couch::base64(salt)}, {"keyCheck", couch::base64(synccrypto::keyCheck(*key))}};
        auto response = send("PUT", markerUrl(), document.dump());
        if (response.status == 409)
            return false;
        if (!response.success())
            return requestFailure(response, "Setting up the zone");
        if (auto json = parse(response.body))
            noteOwn(text(*json, "rev").value_or(""));
        std::lock_guard lock(keyMutex_);
        key_ = *key;
        keySalt_ = salt;
        if (settings_.keyDerived)
            settings_.keyDerived(salt, *key);
        return true;
    }

    // Deletes every record, in pages; the marker and design documents stay.
    CloudResult<> wipeDocuments() {
        for (;;) {
            auto page = call("GET", databaseUrl_ + "/_all_docs?limit=" + std::to_string(wipePage),
                             {}, "Listing the records");
            if (!page)
                return page.error();
            const Json* rows = member(page.value(), "rows");
            if (!rows || !rows->is_array())
                return unexpectedAnswer("Listing the records");
            Json docs = Json::array();
            for (const auto& row : *rows) {
                auto id = text(row, "id");
                const Json* value = member(row, "value");
                auto rev = value ? text(*value, "rev") : std::nullopt;
                if (!id || !rev || !couch::isRecordName(*id))
                    continue;
                docs.push_back({{"_id", *id}, {"_rev", *rev}, {"_deleted", true}, {"wiped", true}});
            }
            if (docs.empty())
                return {};
            auto answer = call("POST", databaseUrl_ + "/_bulk_docs", Json{{"docs", docs}}.dump(),
                               "Deleting the records");
            if (!answer)
                return answer.error();
            if (!answer.value().is_array())
                return unexpectedAnswer("Deleting the records");
            std::size_t deleted = 0;
            for (const auto& result : answer.value()) {
                if (auto rev = text(result, "rev"); rev && !member(result, "error")) {
                    noteOwn(*rev);
                    ++deleted;
                }
            }
            // Conflicts are listed again with their new revision; a server
            // that refuses every deletion would keep this loop going.
            if (deleted == 0)
                return CloudError(CloudErrorCode::serverRejectedRequest,
                                  "The server refused to delete the records");
        }
    }

    // --- records --------------------------------------------------------------

    // The live documents of these names (deleted and missing ones left out).
    CloudResult<std::map<std::string, Json>> liveDocuments(const std::vector<std::string>& names,
                                                           bool withData) {
        std::map<std::string, Json> documents;
        if (names.empty())
            return documents;
        std::string url = databaseUrl_ + "/_all_docs?include_docs=true";
        if (withData)
            url += "&attachments=true";
        auto answer = call("POST", url, Json{{"keys", names}}.dump(), "Fetching records");
        if (!answer)
            return answer.error();
        const Json* rows = member(answer.value(), "rows");
        if (!rows || !rows->is_array())
            return unexpectedAnswer("Fetching records");
        for (const auto& row : *rows) {
            const Json* document = member(row, "doc");
            auto key = text(row, "key");
            if (key && document && document->is_object() && !member(*document, "_deleted"))
                documents.emplace(*key, *document);
        }
        return documents;
    }

    CloudResult<CloudRecord> open(const MasterKey& key, const Json& document,
                                  const CloudRecordID& id, const CloudDesiredKeys& desiredKeys) {
        auto opened = couch::openDocument(key, document, id.zoneName, desiredKeys);
        if (!opened.problem.empty())
            reportUnreadable(document, opened.problem);
        if (!opened.record)
            return CloudError(CloudErrorCode::internalError,
                              "The record " + id.recordName + " cannot be read: " + opened.problem);
        return std::move(*opened.record);
    }

    // Logged once per stored version: the same damaged record comes back
    // with every fetch until someone replaces it.
    void reportUnreadable(const Json& document, const std::string& problem) {
        const std::string name = text(document, "_id").value_or("?");
        const std::string version = name + " " + text(document, "_rev").value_or("");
        {
            std::lock_guard lock(noteMutex_);
            if (!reported_.insert(version).second)
                return;
        }
        log_.line(std::string(logPrefix) + "skipped record " + name.substr(0, 10) + ": " + problem);
    }

    // Revisions this device wrote, so that the long-poll does not wake the
    // engine for its own saves.
    void noteOwn(const std::string& rev) {
        if (rev.empty())
            return;
        std::lock_guard lock(noteMutex_);
        if (!ownRevisions_.insert(rev).second)
            return;
        ownOrder_.push_back(rev);
        if (ownOrder_.size() > ownRevisionsKept) {
            ownRevisions_.erase(ownOrder_.front());
            ownOrder_.pop_front();
        }
    }

    bool isOwn(const std::string& rev) {
        std::lock_guard lock(noteMutex_);
        return ownRevisions_.contains(rev);
    }

    // --- pushes ---------------------------------------------------------------

    void pushLoop(PushRun& run) {
        couch::HttpClient http(settings_.user, settings_.password);
        std::string since = "now";
        double pause = 0;
        const double hold = std::max(settings_.longPollSeconds, 1.0);
        for (;;) {
            {
                std::unique_lock lock(pushMutex_);
                if (pause > 0)
                    pushWake_.wait_for(lock, std::chrono::duration<double>(pause),
                                       [&run] { return run.stop.load(); });
                if (run.stop)
                    return;
            }
            const std::string url = databaseUrl_ +
                                    "/_changes?feed=longpoll&limit=" + std::to_string(changesPage) +
                                    "&since=" + couch::escape(since) +
                                    "&timeout=" + std::to_string(static_cast<long>(hold * 1000));
            // pouchdb-server ignores the server-side timeout: the client
            // gives up a little later and asks again.
            auto response = http.send("GET", url, {}, hold + 10, &run.stop, hold + 10);
            if (run.stop || response.timedOut) {
                pause = 0;
                continue;
            }
            auto json = response.success() ? parse(response.body) : std::nullopt;
            const Json* results = json ? member(*json, "results") : nullptr;
            const Json* last = json ? member(*json, "last_seq") : nullptr;
            if (!results || !results->is_array() || !last) {
                // Offline, or the database is gone (a new one starts its
                // sequence afresh): wait, longer each time, and start anew.
                pause = std::clamp(pause * 2, 2.0, 60.0);
                if (response.status == 404)
                    since = "now";
                continue;
            }
            pause = 0;
            since = sequenceText(*last);
            const bool others = std::any_of(results->begin(), results->end(), [&](const Json& r) {
                const Json* changes = member(r, "changes");
                if (!changes || !changes->is_array() || changes->empty())
                    return true;
                return !isOwn(text(changes->front(), "rev").value_or(""));
            });
            if (!others)
                continue;
            std::shared_ptr<const PushHandler> handler;
            {
                std::lock_guard lock(pushMutex_);
                handler = pushHandler_;
            }
            if (handler)
                (*handler)(std::string(subscriptionName));
        }
    }

    CouchSettings settings_;
    Log& log_;
    std::string databaseUrl_;  // without a trailing slash; empty when unusable
    std::string serverUrl_;

    std::mutex httpMutex_;
    couch::HttpClient http_;

    std::mutex keyMutex_;
    std::optional<MasterKey> key_;
    synccrypto::Bytes keySalt_;
    synccrypto::Bytes rejectedSalt_;
    synccrypto::Bytes rejectedCheck_;

    std::mutex noteMutex_;
    std::set<std::string> reported_;
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

CloudResult<CloudModifyResults> Backend::modifyRecords(const std::vector<CloudRecord>& saves,
                                                       const std::vector<CloudRecordID>& deletes,
                                                       CloudSavePolicy policy, bool atomic) {
    if (auto ready = usable(); !ready)
        return ready.error();
    CloudModifyResults results;
    if (saves.empty() && deletes.empty())
        return results;
    auto zone = openZone();
    if (!zone)
        return zone.error();
    const MasterKey& key = zone.value().key;

    struct Op {
        CloudRecordID id;
        const CloudRecord* record = nullptr;  // none for a deletion
        std::optional<std::string> sentRev;
        CloudRecord stored;
        std::optional<CloudResult<CloudRecord>> outcome;
    };
    std::vector<Op> ops;
    for (const auto& record : saves) {
        Op op{record.id(), &record, std::nullopt, {}, std::nullopt};
        if (record.recordType.empty()) {
            op.outcome = CloudError(CloudErrorCode::invalidArguments,
                                    "A record without a type cannot be saved");
        } else if (!couch::isRecordName(record.recordName)) {
            op.outcome = CloudError(CloudErrorCode::invalidArguments,
                                    "No record can be stored as " + record.recordName);
        } else if (!record.systemFields.empty()) {
            auto system = decodeSystemFields(record.systemFields);
            if (!system || system->zoneName != record.zoneName ||
                system->recordName != record.recordName ||
                system->recordType != record.recordType || system->changeTag.empty())
                op.outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The system fields of " + record.recordName + " belong to another record");
            else
                op.sentRev = system->changeTag;
        }
        ops.push_back(std::move(op));
    }
    for (const auto& id : deletes) {
        Op op{id, nullptr, std::nullopt, {}, std::nullopt};
        if (!couch::isRecordName(id.recordName))
            op.outcome = CloudError(CloudErrorCode::unknownItem);
        ops.push_back(std::move(op));
    }

    // A save that named a revision the server no longer has as its current
    // one: the server's copy (all fields) or the news that it is gone.
    auto resolveConflicts = [&](const std::vector<Op*>& conflicts) -> CloudResult<> {
        std::vector<std::string> names;
        for (Op* op : conflicts)
            names.push_back(op->id.recordName);
        auto current = liveDocuments(names, true);
        if (!current)
            return current.error();
        for (Op* op : conflicts) {
            auto found = current.value().find(op->id.recordName);
            if (found == current.value().end()) {
                // Deleted meanwhile: a new record may now go through.
                if (op->sentRev)
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                continue;
            }
            auto opened = couch::openDocument(key, found->second, op->id.zoneName, std::nullopt);
            if (!opened.problem.empty())
                reportUnreadable(found->second, opened.problem);
            // A copy that does not open still lets the caller save over it.
            auto server = opened.record ? std::move(opened.record)
                                        : couch::plainPart(found->second, op->id.zoneName);
            if (server && server->recordType != op->record->recordType)
                op->outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The record " + op->id.recordName + " has another type on the server");
            else
                op->outcome =
                    CloudError(CloudErrorCode::serverRecordChanged, {}, std::move(server));
        }
        return {};
    };

    for (int round = 0; round < writeRounds; ++round) {
        std::vector<Op*> pending;
        for (auto& op : ops) {
            if (!op.outcome)
                pending.push_back(&op);
        }
        if (pending.empty())
            break;
        // CouchDB has no transactions. An atomic batch is checked against
        // the server's revisions first, which catches the usual case (a
        // stale copy); a save racing it between check and write can still
        // leave the others stored.
        const bool check = atomic && ops.size() > 1 && round == 0;
        std::vector<std::string> names;
        for (Op* op : pending) {
            if (!op->record || policy != CloudSavePolicy::ifServerRecordUnchanged || check)
                names.push_back(op->id.recordName);
        }
        auto current = liveDocuments(names, policy == CloudSavePolicy::changedKeys);
        if (!current)
            return current.error();

        std::vector<Op*> conflicts;
        std::vector<Op*> sending;
        Json documents = Json::array();
        for (Op* op : pending) {
            auto found = current.value().find(op->id.recordName);
            const Json* live = found == current.value().end() ? nullptr : &found->second;
            const auto liveRev = live ? text(*live, "_rev") : std::nullopt;
            const auto liveType = live ? text(*live, "recordType") : std::nullopt;
            if (!op->record) {
                if (!live || !liveRev) {
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                    continue;
                }
                // The type stays, so that other devices learn which store
                // the deletion concerns.
                documents.push_back({{"_id", op->id.recordName},
                                     {"_rev", *liveRev},
                                     {"_deleted", true},
                                     {"recordType", liveType.value_or("")}});
                sending.push_back(op);
                continue;
            }
            const CloudRecord& record = *op->record;
            if (live && liveType != record.recordType) {
                op->outcome = CloudError(
                    CloudErrorCode::invalidArguments,
                    "The record " + record.recordName + " has another type on the server");
                continue;
            }
            op->stored = record;
            std::optional<std::string> rev = op->sentRev;
            if (policy == CloudSavePolicy::ifServerRecordUnchanged) {
                if (check && live && op->sentRev != liveRev) {
                    conflicts.push_back(op);
                    continue;
                }
                if (check && !live && op->sentRev) {
                    op->outcome = CloudError(CloudErrorCode::unknownItem);
                    continue;
                }
            } else {
                rev = liveRev;
                if (policy == CloudSavePolicy::changedKeys && live) {
                    auto opened = couch::openDocument(key, *live, record.zoneName, std::nullopt);
                    if (!opened.record || !opened.problem.empty()) {
                        reportUnreadable(*live, opened.problem);
                        op->outcome = CloudError(CloudErrorCode::internalError,
                                                 "The server's copy of " + record.recordName +
                                                     " cannot be read, so its fields cannot "
                                                     "be kept: " +
                                                     opened.problem);
                        continue;
                    }
                    op->stored.fields = std::move(opened.record->fields);
                    op->stored.encryptedFields = std::move(opened.record->encryptedFields);
                    for (const auto& [name, value] : record.fields)
                        op->stored.fields.insert_or_assign(name, value);
                    for (const auto& [name, value] : record.encryptedFields)
                        op->stored.encryptedFields.insert_or_assign(name, value);
                }
            }
            auto document = couch::recordDocument(key, op->stored, rev);
            if (!document) {
                op->outcome =
                    CloudError(CloudErrorCode::internalError,
                               "The record " + record.recordName + " could not be sealed");
                continue;
            }
            documents.push_back(std::move(*document));
            sending.push_back(op);
        }

        if (check) {
            bool failed = !conflicts.empty();
            for (const auto& op : ops)
                failed = failed || (op.outcome && !op.outcome->ok());
            if (failed) {
                if (auto resolved = resolveConflicts(conflicts); !resolved)
                    return resolved.error();
                for (auto& op : ops) {
                    if (!op.outcome || op.outcome->ok())
                        op.outcome = CloudError(CloudErrorCode::batchRequestFailed);
                }
                break;
            }
        }

        if (!sending.empty()) {
            auto answer = call("POST", databaseUrl_ + "/_bulk_docs",
                               Json{{"docs", documents}}.dump(), "Saving records");
            if (!answer)
                return answer.error();
            // Matched by position: pouchdb-server leaves the id out of some
            // errors.
            if (!answer.value().is_array() || answer.value().size() != sending.size())
                return unexpectedAnswer("Saving records");
            for (std::size_t i = 0; i < sending.size(); ++i) {
                Op* op = sending[i];
                const Json& result = answer.value()[i];
                auto rev = text(result, "rev");
                if (rev && !member(result, "error")) {
                    noteOwn(*rev);
                    if (op->record)
                        op->stored.systemFields = encodeSystemFields(
                            {op->id.zoneName, op->stored.recordType, op->id.recordName, *rev});
                    op->outcome = std::move(op->stored);
                } else if (text(result, "error") == "conflict") {
                    // Overwrites and deletions fetch the new revision and try
                    // again; a checked save meets the server's copy.
                    if (op->record && policy == CloudSavePolicy::ifServerRecordUnchanged)
                        conflicts.push_back(op);
                } else {
                    op->outcome = recordFailure(result, op->id.recordName);
                }
            }
        }
        if (!conflicts.empty()) {
            if (auto resolved = resolveConflicts(conflicts); !resolved)
                return resolved.error();
        }
    }

    for (std::size_t i = 0; i < ops.size(); ++i) {
        Op& op = ops[i];
        if (!op.outcome)
            op.outcome =
                CloudError(CloudErrorCode::serverRecordChanged,
                           "The record " + op.id.recordName + " kept changing on the server");
        if (i < saves.size()) {
            results.saved.push_back({op.id, std::move(*op.outcome)});
        } else if (op.outcome->ok()) {
            results.deleted.push_back({op.id, CloudResult<>()});
        } else {
            results.deleted.push_back({op.id, op.outcome->error()});
        }
    }
    return results;
}

CloudResult<CloudZoneChanges> Backend::zoneChanges(const std::string& zoneName,
                                                   const CloudBytes& since,
                                                   const CloudDesiredKeys& desiredKeys,
                                                   std::size_t resultsLimit) {
    if (auto ready = usable(); !ready)
        return ready.error();
    auto zone = openZone();
    if (!zone)
        return zone.error();
    const Marker& marker = zone.value().marker;
    Json sequence = 0;
    if (!since.empty()) {
        auto token = couch::decodeToken(since);
        if (!token)
            return CloudError(CloudErrorCode::changeTokenExpired);
        if (token->epoch != marker.epoch)
            return CloudError(CloudErrorCode::userDeletedZone,
                              "The records on the sync server were deleted and started afresh");
        sequence = token->sequence;
    }
    const std::size_t limit = resultsLimit == 0 ? changesPage : resultsLimit;
    std::string url = databaseUrl_ +
                      "/_changes?style=main_only&include_docs=true&limit=" + std::to_string(limit) +
                      "&since=" + couch::escape(sequenceText(sequence));
    if (wantsData(desiredKeys))
        url += "&attachments=true";
    auto response = send("GET", url);
    // CouchDB refuses a sequence it cannot read.
    if (response.status == 400)
        return CloudError(CloudErrorCode::changeTokenExpired, reasonOf(response));
    if (!response.success())
        return requestFailure(response, "Fetching changes");
    auto json = parse(response.body);
    const Json* rows = json ? member(*json, "results") : nullptr;
    if (!rows || !rows->is_array())
        return unexpectedAnswer("Fetching changes");

    CloudZoneChanges changes;
    for (const auto& row : *rows) {
        auto name = text(row, "id");
        const Json* document = member(row, "doc");
        if (!name || !couch::isRecordName(*name) || !document || !document->is_object())
            continue;
        const CloudRecordID id{zoneName, *name};
        const Json* deleted = member(row, "deleted");
        if ((deleted && deleted->is_boolean() && deleted->get<bool>()) ||
            member(*document, "_deleted")) {
            // A wiped record was not deleted by the user: other devices keep
            // their copies and upload them again.
            auto type = text(*document, "recordType");
            if (type && !type->empty() && !member(*document, "wiped"))
                changes.deleted.push_back({id, *type});
            continue;
        }
        changes.modified.push_back({id, open(zone.value().key, *document, id, desiredKeys)});
    }
    const Json* last = member(*json, "last_seq");
    if (!last || !(last->is_string() || last->is_number_unsigned()))
        return unexpectedAnswer("Fetching changes");
    // CouchDB says how many remain; pouchdb-server does not, and a full
    // page then means there may be more.
    const Json* pending = member(*json, "pending");
    if (pending && pending->is_number())
        changes.moreComing = pending->get<double>() > 0;
    else
        changes.moreComing = rows->size() >= limit;
    changes.token = couch::encodeToken({marker.epoch, *last});
    return changes;
}

class Database final : public CloudDatabase {
public:
    explicit Database(Backend& backend) : backend_(backend) {}

    CloudResult<> saveZones(const std::vector<std::string>& zoneNames) override {
        return backend_.saveZones(zoneNames);
    }
    CloudResult<> deleteZones(const std::vector<std::string>& zoneNames) override {
        return backend_.deleteZones(zoneNames);
    }
    CloudResult<> saveSubscription(const CloudSubscription& subscription) override {
        return backend_.saveSubscription(subscription);
    }
    CloudResult<std::vector<CloudPerRecord<CloudRecord>>> fetchRecords(
        const std::vector<CloudRecordID>& ids, const CloudDesiredKeys& desiredKeys) override {
        return backend_.fetchRecords(ids, desiredKeys);
    }
    CloudResult<CloudModifyResults> modifyRecords(const std::vector<CloudRecord>& saves,
                                                  const std::vector<CloudRecordID>& deletes,
                                                  CloudSavePolicy policy, bool atomic) override {
        return backend_.modifyRecords(saves, deletes, policy, atomic);
    }
    CloudResult<CloudZoneChanges> zoneChanges(const std::string& zoneName, const CloudBytes& since,
                                              const CloudDesiredKeys& desiredKeys,
                                              std::size_t resultsLimit) override {
        return backend_.zoneChanges(zoneName, since, desiredKeys, resultsLimit);
    }

private:
    Backend& backend_;
};

}  // namespace

std::optional<CouchUrlProblem> couchUrlProblem(std::string_view databaseUrl) {
    using Problem = CouchUrlProblem;
    if (databaseUrl.empty())
        return Problem::missing;
    std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> url(curl_url(), curl_url_cleanup);
    if (!url ||
        curl_url_set(url.get(), CURLUPART_URL, std::string(databaseUrl).c_str(), 0) != CURLUE_OK)
        return Problem::notAnAddress;
    const std::string scheme = lowercase(urlPart(url.get(), CURLUPART_SCHEME).value_or(""));
    const std::string host = urlPart(url.get(), CURLUPART_HOST).value_or("");
    if (scheme != "http" && scheme != "https")
        return Problem::wrongScheme;
    if (host.empty())
        return Problem::noHost;
    if (urlPart(url.get(), CURLUPART_USER) || urlPart(url.get(), CURLUPART_PASSWORD))
        return Problem::credentialsInAddress;
    if (urlPart(url.get(), CURLUPART_QUERY) || urlPart(url.get(), CURLUPART_FRAGMENT))
        return Problem::queryOrFragment;
    std::string path = urlPart(url.get(), CURLUPART_PATH).value_or("");
    while (path.ends_with('/'))
        path.pop_back();
    if (path.empty())
        return Problem::noDatabaseName;
    if (scheme == "http" && !isLoopback(host))
        return Problem::plainHttpToAnotherMachine;
    return std::nullopt;
}

std::string describe(CouchUrlProblem problem) {
    const std::string example = "e.g. https://couch.example.org:6984/zettly";
    switch (problem) {
        case CouchUrlProblem::missing:
            return "Enter the address of the sync database, " + example + ".";
        case CouchUrlProblem::notAnAddress:
            return "This is not a web address; enter one like " + example.substr(5) + ".";
        case CouchUrlProblem::wrongScheme:
            return "The address must start with https://.";
        case CouchUrlProblem::noHost:
            return "The address lacks the server's name.";
        case CouchUrlProblem::credentialsInAddress:
            return "Enter the user name and password in their own fields, not in the address.";
        case CouchUrlProblem::queryOrFragment:
            return "The address must end with the database's name, without \"?\" or \"#\".";
        case CouchUrlProblem::noDatabaseName:
            return "Add the database's name to the address, " + example + ".";
        case CouchUrlProblem::plainHttpToAnotherMachine:
            return "Use https:// for a server on another machine; plain http:// is only allowed "
                   "for this computer (localhost).";
    }
    return "The address cannot be used.";
}

struct CouchContainer::Impl {
    Impl(CouchSettings settings, Log& log) : backend(std::move(settings), log), database(backend) {}
    Backend backend;
    Database database;
};

CouchContainer::CouchContainer(CouchSettings settings, Log& log)
    : impl_(std::make_unique<Impl>(std::move(settings), log)) {}

CouchContainer::~CouchContainer() = default;

CloudResult<CloudAccountStatus> CouchContainer::accountStatus() {
    return impl_->backend.accountStatus();
}

CloudResult<std::string> CouchContainer::userRecordName() {
    return impl_->backend.userRecordName();
}

CloudDatabase& CouchContainer::privateDatabase() {
    return impl_->database;
}

void CouchContainer::setPushHandler(std::function<void(const std::string&)> handler) {
    impl_->backend.setPushHandler(std::move(handler));
}

CouchContainer::ConnectionReport CouchContainer::testConnection() {
    return impl_->backend.testConnection();
}

}  // namespace zettly
