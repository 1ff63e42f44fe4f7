// The zone's marker and the key. The marker is the server's set-up record:
// the salt of the key derivation, the Argon2 strength, the zone's epoch and
// a key check. Every call outside a sync pass reads it first, so a wrong
// passphrase is found before anything else is read or written; a pass reads
// it once, at its start (the account status), and its calls share that.
//
//   { "_id": "zettly-marker", "format": 2, "epoch": "<32 hex digits>",
//     "kdf": "moderate" | "interactive", "salt": "<base64>",
//     "rekeyed": false, "keyCheck": "<base64>" }
//
// In format 2 the key check is a keyed hash of the other fields
// (synccrypto::keyCheck with what they vouch for), so nobody without the key
// can give the zone another epoch, strength or salt unnoticed. Format 1
// (older versions) checked the key alone; its records carry unauthenticated
// plain fields. The first device that opens such a zone with the right
// passphrase deletes its records and writes a format-2 marker with the same
// salt and a new epoch; the other devices' change tokens then name an old
// epoch, and they upload everything again.
//
// Why a key does not open the marker, as far as a device can tell:
// - it holds a key for the marker's salt (it opened it before) that no
//   longer opens it: the marker was changed by something other than Zettly;
// - the marker was re-keyed (a passphrase change) and this device holds a
//   key for another salt: the passphrase was changed on another device;
// - otherwise the passphrase does not match.
#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

#include "platform/Log.h"
#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

namespace {

constexpr std::string_view logPrefix = "[Zettly] CouchDB: ";

std::string hex(std::span<const std::uint8_t> bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (std::uint8_t byte : bytes) {
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 15]);
    }
    return text;
}

std::string newEpoch() {
    return hex(synccrypto::randomBytes(16));
}

std::string kdfName(synccrypto::KdfStrength strength) {
    return strength == synccrypto::KdfStrength::interactive ? "interactive" : "moderate";
}

// The fields the key check vouches for, each with its length in front so
// that no two markers share the bytes.
synccrypto::Bytes vouchedFields(const Marker& marker) {
    synccrypto::Bytes out;
    auto put = [&out](std::span<const std::uint8_t> part) {
        const auto size = static_cast<std::uint32_t>(part.size());
        for (int i = 0; i < 4; ++i)
            out.push_back(static_cast<std::uint8_t>(size >> (8 * i)));
        out.insert(out.end(), part.begin(), part.end());
    };
    auto putText = [&put](std::string_view text) {
        put({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    };
    putText(std::to_string(marker.format));
    putText(kdfName(marker.kdf));
    put(marker.salt);
    putText(marker.epoch);
    putText(marker.rekeyed ? "rekeyed" : "");
    return out;
}

bool opens(const MasterKey& key, const Marker& marker) {
    if (marker.format < 2)
        return synccrypto::matchesKeyCheck(key, marker.keyCheck);
    return synccrypto::matchesKeyCheck(key, vouchedFields(marker), marker.keyCheck);
}

CloudError userError(CloudErrorCode code, std::string description, std::string_view message) {
    CloudError error(code, std::move(description));
    error.userMessage = std::string(message);
    return error;
}

CloudError passphraseMismatch() {
    return userError(CloudErrorCode::notAuthenticated, "passphrase does not match",
                     CouchContainer::wrongPassphraseMessage);
}

CloudError passphraseChanged() {
    return userError(CloudErrorCode::notAuthenticated,
                     "the passphrase was changed on another device",
                     CouchContainer::passphraseChangedMessage);
}

CloudError markerTampered() {
    return userError(CloudErrorCode::serverRejectedRequest,
                     "the zone's marker fails its check under the key that opened it before",
                     CouchContainer::markerTamperedMessage);
}

bool isTampered(const CloudError& error) {
    return error.userMessage == CouchContainer::markerTamperedMessage;
}

CloudError keepsChanging() {
    return CloudError(CloudErrorCode::serverRecordChanged,
                      "The zone's marker keeps changing on the server");
}

CloudError noKey() {
    return CloudError(CloudErrorCode::internalError,
                      "The key could not be derived from the passphrase (out of memory)");
}

}  // namespace

CloudResult<> Backend::saveZones(const std::vector<std::string>& zoneNames) {
    if (auto ready = usable(); !ready)
        return ready;
    if (std::find(zoneNames.begin(), zoneNames.end(), "") != zoneNames.end())
        return CloudError(CloudErrorCode::invalidArguments, "A record zone needs a name");
    if (zoneNames.empty())
        return {};
    for (int attempt = 0; attempt < writeRounds; ++attempt) {
        // After a lost race the marker is read afresh.
        std::optional<Zone> known;
        if (attempt > 0 || !fromPass(known)) {
            auto zone = openMarker(true);
            if (!zone)
                return zone.error();
            known = std::move(zone.value());
            rememberForPass(known);
        }
        if (known)
            return {};
        if (auto database = createDatabase(); !database)
            return database;
        auto created = createMarker();
        if (!created || created.value())
            return created ? CloudResult<>() : CloudResult<>(created.error());
        // Another device created it at the same moment: use theirs.
    }
    return keepsChanging();
}

CloudResult<> Backend::deleteZones(const std::vector<std::string>& zoneNames) {
    if (auto ready = usable(); !ready)
        return ready;
    if (zoneNames.empty())
        return {};
    auto marker = readMarker();
    if (!marker)
        return marker.error();
    if (!marker.value())
        return CloudError(CloudErrorCode::zoneNotFound,
                          "The sync database or its marker does not exist");
    auto key = keyFor(*marker.value());
    // A marker changed behind Zettly's back cannot be trusted to keep
    // anything; this device's key opened it before, so its passphrase may
    // set the zone up anew (a new salt: the old key check is spent).
    if (!key && isTampered(key.error())) {
        if (auto wiped = wipeDocuments(marker.value()->epoch, nullptr); !wiped)
            return wiped;
        auto written = writeNewMarker(passphrase(), marker.value()->rev, false);
        if (!written)
            return written.error();
        if (!written.value())
            return keepsChanging();
        log_.line(std::string(logPrefix) +
                  "the zone's marker failed its check and was set up anew");
        return {};
    }
    if (!key)
        return key.error();
    if (auto wiped = wipeDocuments(marker.value()->epoch, &key.value()); !wiped)
        return wiped;
    // Last, so that another device that notices the new epoch finds the
    // records gone already.
    return renewEpoch({std::move(*marker.value()), std::move(key.value())});
}

CloudResult<> Backend::renewEpoch(Zone zone) {
    for (int attempt = 0; attempt < writeRounds; ++attempt) {
        Marker next = zone.marker;
        next.epoch = newEpoch();
        auto written = writeMarker(next, zone.key);
        if (!written)
            return written.error();
        if (written.value())
            return {};
        auto again = openMarker(false);
        if (!again)
            return again.error();
        if (!again.value())
            return CloudError(CloudErrorCode::zoneNotFound, "The zone's marker is gone");
        zone = std::move(*again.value());
    }
    return keepsChanging();
}

CloudResult<> Backend::changePassphrase(const std::string& newPassphrase) {
    if (auto ready = usable(); !ready)
        return ready;
    if (newPassphrase.empty())
        return CloudError(CloudErrorCode::invalidArguments, "The new passphrase is empty");
    for (int attempt = 0; attempt < writeRounds; ++attempt) {
        auto marker = readMarker();
        if (!marker)
            return marker.error();
        // The current passphrase must open what is there: a device with a
        // wrong one must not lock the others out.
        std::optional<MasterKey> current;
        if (marker.value()) {
            auto key = keyFor(*marker.value());
            if (!key)
                return key.error();
            current = std::move(key.value());
        } else if (auto database = createDatabase(); !database) {
            return database;
        }
        // Sealed under the old key, the records would open for nobody.
        if (auto wiped = wipeDocuments(marker.value() ? marker.value()->epoch : std::string(),
                                       current ? &*current : nullptr);
            !wiped)
            return wiped;
        const std::string rev = marker.value() ? marker.value()->rev : std::string();
        auto written = writeNewMarker(newPassphrase, rev, marker.value().has_value());
        if (!written)
            return written.error();
        if (written.value()) {
            std::lock_guard lock(keyMutex_);
            passphrase_ = newPassphrase;
            log_.line(std::string(logPrefix) +
                      "the passphrase was changed; the records start afresh");
            return {};
        }
        // Another device wrote the marker meanwhile: check it again.
    }
    return keepsChanging();
}

std::string Backend::markerUrl() const {
    return databaseUrl_ + "/" + escape(markerID);
}

std::string Backend::passphrase() {
    std::lock_guard lock(keyMutex_);
    return passphrase_;
}

CloudResult<std::optional<Marker>> Backend::readMarker() {
    auto response = send("GET", markerUrl());
    if (response.status == 404)
        return std::optional<Marker>();
    if (!response.success())
        return requestFailure(response, "Reading the zone's marker");
    auto json = parse(response.body);
    if (!json)
        return unexpectedAnswer("Reading the zone's marker");
    const Json* format = member(*json, "format");
    if (format && format->is_number_integer() && format->get<int>() > markerFormat) {
        CloudError error(CloudErrorCode::serverRejectedRequest,
                         "The zone was set up by a newer version");
        error.userMessage = "The data on the sync server was written by a newer version of Zettly";
        return error;
    }
    Marker marker;
    auto salt = unbase64(stringMember(*json, "salt").value_or(""));
    auto check = unbase64(stringMember(*json, "keyCheck").value_or(""));
    const auto kdf = stringMember(*json, "kdf");
    const Json* rekeyed = member(*json, "rekeyed");
    marker.rev = stringMember(*json, "_rev").value_or("");
    marker.epoch = stringMember(*json, "epoch").value_or("");
    marker.format = format && format->is_number_integer() ? format->get<int>() : 0;
    if (marker.format < 1 || !salt || salt->size() != synccrypto::saltSize || !check ||
        check->empty() || !kdf || (*kdf != "moderate" && *kdf != "interactive") ||
        marker.epoch.empty() || marker.rev.empty() ||
        (marker.format >= 2 && (!rekeyed || !rekeyed->is_boolean()))) {
        CloudError error(CloudErrorCode::serverRejectedRequest,
                         "The zone's marker document is damaged");
        error.userMessage = "The set-up record in the sync database is damaged";
        return error;
    }
    marker.salt = std::move(*salt);
    marker.keyCheck = std::move(*check);
    marker.kdf = *kdf == "interactive" ? synccrypto::KdfStrength::interactive
                                       : synccrypto::KdfStrength::moderate;
    marker.rekeyed = rekeyed && rekeyed->get<bool>();
    return std::optional<Marker>(std::move(marker));
}

CloudResult<MasterKey> Backend::keyFor(const Marker& marker) {
    std::lock_guard lock(keyMutex_);
    if (key_ && keySalt_ == marker.salt) {
        if (opens(*key_, marker))
            return *key_;
        return markerTampered();
    }
    // Argon2 takes a second and a quarter of a gigabyte: a passphrase
    // that failed against this marker is not tried again.
    if (rejection_ && rejectedSalt_ == marker.salt && rejectedCheck_ == marker.keyCheck)
        return *rejection_;
    const bool cachedForSalt = settings_.cachedKey && settings_.cachedKeySalt == marker.salt;
    if (cachedForSalt && opens(*settings_.cachedKey, marker)) {
        key_ = settings_.cachedKey;
        keySalt_ = marker.salt;
        return *key_;
    }
    auto derived = synccrypto::deriveKey(passphrase_, marker.salt, marker.kdf);
    if (!derived)
        return noKey();
    if (opens(*derived, marker)) {
        key_ = *derived;
        keySalt_ = marker.salt;
        if (settings_.keyDerived)
            settings_.keyDerived(marker.salt, *derived);
        return *derived;
    }
    const bool heldAnotherSalt =
        (key_ && keySalt_ != marker.salt) ||
        (settings_.cachedKey && !settings_.cachedKeySalt.empty() && !cachedForSalt);
    CloudError error = cachedForSalt                       ? markerTampered()
                       : marker.rekeyed && heldAnotherSalt ? passphraseChanged()
                                                           : passphraseMismatch();
    log_.line(std::string(logPrefix) +
              "the key does not open the zone's marker: " + error.description);
    rejectedSalt_ = marker.salt;
    rejectedCheck_ = marker.keyCheck;
    rejection_ = error;
    return error;
}

CloudResult<std::optional<Zone>> Backend::openMarker(bool upgrade) {
    for (int attempt = 0; attempt < writeRounds; ++attempt) {
        auto marker = readMarker();
        if (!marker)
            return marker.error();
        if (!marker.value())
            return std::optional<Zone>();
        auto key = keyFor(*marker.value());
        if (!key)
            return key.error();
        Zone zone{std::move(*marker.value()), std::move(key.value())};
        if (zone.marker.format >= markerFormat || !upgrade)
            return std::optional<Zone>(std::move(zone));
        // Records of the older format carry fields nothing vouches for.
        if (auto wiped = wipeDocuments(zone.marker.epoch, &zone.key); !wiped)
            return wiped.error();
        Marker next = zone.marker;
        next.format = markerFormat;
        next.epoch = newEpoch();
        next.rekeyed = false;
        auto written = writeMarker(next, zone.key);
        if (!written)
            return written.error();
        if (written.value()) {
            log_.line(std::string(logPrefix) + "the zone was upgraded to marker format " +
                      std::to_string(markerFormat) + "; every device uploads again");
            return std::optional<Zone>(Zone{std::move(next), std::move(zone.key)});
        }
        // Another device upgraded it (or changed it) first.
    }
    return keepsChanging();
}

CloudResult<Zone> Backend::openZone() {
    std::optional<Zone> zone;
    if (!fromPass(zone)) {
        auto opened = openMarker(true);
        if (!opened)
            return opened.error();
        rememberForPass(opened.value());
        zone = std::move(opened.value());
    }
    if (!zone)
        return CloudError(CloudErrorCode::zoneNotFound,
                          "The sync database or its marker does not exist");
    return std::move(*zone);
}

void Backend::passBegins() {
    std::lock_guard lock(passMutex_);
    pass_ = PassView{};
    pass_.inPass = true;
}

void Backend::passEnds() {
    std::lock_guard lock(passMutex_);
    pass_ = PassView{};
}

bool Backend::fromPass(std::optional<Zone>& zone) {
    std::lock_guard lock(passMutex_);
    if (!pass_.checked)
        return false;
    zone = pass_.zone;
    return true;
}

void Backend::rememberForPass(const std::optional<Zone>& zone) {
    std::lock_guard lock(passMutex_);
    if (!pass_.inPass)
        return;
    pass_.checked = true;
    pass_.zone = zone;
}

void Backend::forgetForPass() {
    std::lock_guard lock(passMutex_);
    pass_.checked = false;
    pass_.zone.reset();
}

CloudResult<> Backend::createDatabase() {
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

CloudResult<bool> Backend::holdsRecords() {
    // The database's count of live documents; without a marker they are
    // records, or design documents an administrator added (which a wipe
    // leaves, so at worst the zone starts afresh once for nothing).
    auto database = call("GET", databaseUrl_, {}, "Reading the database");
    if (!database)
        return database.error();
    const Json* count = member(database.value(), "doc_count");
    if (!count || !count->is_number_unsigned())
        return unexpectedAnswer("Reading the database");
    return count->get<std::uint64_t>() > 0;
}

CloudResult<bool> Backend::createMarker() {
    // Records without a marker were sealed under a salt nobody knows any
    // more (the marker was deleted behind the devices' backs): they go, and
    // the new epoch makes every device upload its history again.
    auto orphans = holdsRecords();
    if (!orphans)
        return orphans.error();
    if (orphans.value()) {
        log_.line(std::string(logPrefix) +
                  "the zone's marker is missing but records remain; they are deleted and every "
                  "device uploads its history again");
        if (auto wiped = wipeDocuments({}, nullptr); !wiped)
            return wiped.error();
    }
    auto created = writeNewMarker(passphrase(), {}, false);
    if (!created || created.value() || !orphans.value())
        return created;
    // Another device set the zone up meanwhile and may have saved records
    // that were just deleted: a new epoch has it upload them again.
    auto zone = openMarker(true);
    if (!zone)
        return zone.error();
    if (zone.value()) {
        if (auto renewed = renewEpoch(std::move(*zone.value())); !renewed)
            return renewed.error();
    }
    return false;
}

CloudResult<bool> Backend::writeNewMarker(const std::string& passphrase, const std::string& rev,
                                          bool rekeyed) {
    if (!synccrypto::ready())
        return CloudError(CloudErrorCode::internalError, "libsodium cannot start");
    Marker marker;
    marker.rev = rev;
    marker.epoch = newEpoch();
    marker.salt = synccrypto::randomBytes(synccrypto::saltSize);
    marker.kdf = settings_.kdf;
    marker.rekeyed = rekeyed;
    auto key = synccrypto::deriveKey(passphrase, marker.salt, marker.kdf);
    if (!key)
        return noKey();
    auto written = writeMarker(marker, *key);
    if (!written || !written.value())
        return written;
    rememberForPass(Zone{marker, *key});
    std::lock_guard lock(keyMutex_);
    key_ = *key;
    keySalt_ = marker.salt;
    if (settings_.keyDerived)
        settings_.keyDerived(marker.salt, *key);
    return true;
}

CloudResult<bool> Backend::writeMarker(Marker& marker, const MasterKey& key) {
    marker.keyCheck = synccrypto::keyCheck(key, vouchedFields(marker));
    if (marker.keyCheck.empty())
        return CloudError(CloudErrorCode::internalError, "libsodium cannot start");
    Json document = {{"_id", markerID},
                     {"format", marker.format},
                     {"epoch", marker.epoch},
                     {"kdf", kdfName(marker.kdf)},
                     {"salt", base64(marker.salt)},
                     {"rekeyed", marker.rekeyed},
                     {"keyCheck", base64(marker.keyCheck)}};
    if (!marker.rev.empty())
        document["_rev"] = marker.rev;
    auto response = send("PUT", markerUrl(), document.dump());
    if (response.status == 409)
        return false;
    if (!response.success())
        return requestFailure(response, "Writing the zone's marker");
    auto json = parse(response.body);
    marker.rev = json ? stringMember(*json, "rev").value_or("") : std::string();
    noteOwn(marker.rev);
    forgetForPass();
    return true;
}

}  // namespace zettly::couch
