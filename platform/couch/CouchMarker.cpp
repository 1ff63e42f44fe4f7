// The zone's marker and the key. The marker is the server's set-up record:
// the salt of the key derivation, a key check, the Argon2 strength and the
// zone's epoch. Every call reads it first, so a wrong passphrase is found
// before anything else is read or written.
#include <algorithm>
#include <cstdint>
#include <span>
#include <utility>

#include "platform/couch/CouchBackend.h"

namespace zettly::couch {

namespace {

const std::string wrongPassphrase = "The passphrase does not match the data on the sync server";

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

CloudError passphraseMismatch() {
    CloudError error(CloudErrorCode::notAuthenticated, "passphrase does not match");
    error.userMessage = wrongPassphrase;
    return error;
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

CloudResult<> Backend::deleteZones(const std::vector<std::string>& zoneNames) {
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
                noteOwn(stringMember(*json, "rev").value_or(""));
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

std::string Backend::markerUrl() const {
    return databaseUrl_ + "/" + escape(markerID);
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
    Marker marker;
    marker.document = *json;
    const Json* format = member(*json, "format");
    if (format && format->is_number_integer() && format->get<int>() > markerFormat) {
        CloudError error(CloudErrorCode::serverRejectedRequest,
                         "The zone was set up by a newer version");
        error.userMessage = "The data on the sync server was written by a newer version of Zettly";
        return error;
    }
    auto salt = unbase64(stringMember(*json, "salt").value_or(""));
    auto check = unbase64(stringMember(*json, "keyCheck").value_or(""));
    const auto kdf = stringMember(*json, "kdf");
    const bool hasRev = !stringMember(*json, "_rev").value_or("").empty();
    marker.epoch = stringMember(*json, "epoch").value_or("");
    if (!format || !salt || salt->size() != synccrypto::saltSize || !check || check->empty() ||
        !kdf || (*kdf != "moderate" && *kdf != "interactive") || marker.epoch.empty() || !hasRev) {
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

CloudResult<MasterKey> Backend::keyFor(const Marker& marker) {
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

CloudResult<Zone> Backend::openZone() {
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

CloudResult<bool> Backend::createMarker() {
    if (!synccrypto::ready())
        return CloudError(CloudErrorCode::internalError, "libsodium cannot start");
    const auto salt = synccrypto::randomBytes(synccrypto::saltSize);
    auto key = synccrypto::deriveKey(settings_.passphrase, salt, settings_.kdf);
    if (!key)
        return CloudError(CloudErrorCode::internalError,
                          "The key could not be derived from the passphrase (out of memory)");
    const Json document = {
        {"_id", markerID},      {"format", markerFormat},
        {"epoch", newEpoch()},  {"kdf", kdfName(settings_.kdf)},
        {"salt", base64(salt)}, {"keyCheck", base64(synccrypto::keyCheck(*key))}};
    auto response = send("PUT", markerUrl(), document.dump());
    if (response.status == 409)
        return false;
    if (!response.success())
        return requestFailure(response, "Setting up the zone");
    if (auto json = parse(response.body))
        noteOwn(stringMember(*json, "rev").value_or(""));
    std::lock_guard lock(keyMutex_);
    key_ = *key;
    keySalt_ = salt;
    if (settings_.keyDerived)
        settings_.keyDerived(salt, *key);
    return true;
}

}  // namespace zettly::couch
