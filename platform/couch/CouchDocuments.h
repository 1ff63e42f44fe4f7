#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/CloudDatabase.h"
#include "platform/couch/SyncCrypto.h"

namespace zettly::couch {

// How records, the zone's marker and change tokens look on the server. The
// server sees a record's name, type, version, revision and plain fields;
// everything else is sealed with the key derived from the user's
// passphrase, and every seal also covers what the server can see:
//
//   { "_id": "<record name>", "_rev": "...", "recordType": "ClipImage",
//     "version": "1700000000123",
//     "fields": { "created": 1700000000.5, "pinned": {"$int": "1"} },
//     "sealed": "<base64 of seal(key, ad(record, fields, has image), encodeFields(encrypted))>",
//     "_attachments": { "data": { "data": "<base64 of seal(key, ad(data), bytes)>" } } }
//
//   a deletion: { "_id", "_rev", "_deleted": true, "recordType", "version",
//                 "sealed": "<base64 of seal(key, ad(deleted), nothing)>" }
//   a wipe:     { "_id", "_rev", "_deleted": true, "wiped": true, "epoch", "version",
//                 "sealed": "<base64 of seal(key, ad(wiped, its epoch), nothing)>" }
//
// ad() is associatedData() in CouchDocuments.cpp: a label per kind of seal,
// the zone's epoch, the record's type, name and version, and for the sealed
// fields the plain fields and whether image bytes are attached. So the
// server can neither change a plain field, nor move a blob or an image to
// another record, version or zone, nor delete a record in the user's name.
// What it can still do is hand back an older version whole; the version
// (a number each save raises) lets a reader that saw a later one notice.

using Json = nlohmann::json;

// A member of a JSON object, or none (also when `object` is not one); and
// the same for a member that must be a string. Answers from the server are
// read with these rather than with json's throwing accessors.
const Json* member(const Json& object, std::string_view key);
std::optional<std::string> stringMember(const Json& object, std::string_view key);

// The zone's marker: not a record, left out of every feed.
inline constexpr std::string_view markerID = "zettly-marker";
// 2: the key check vouches for the marker's fields (CouchMarker.cpp).
inline constexpr int markerFormat = 2;

// Record names the server can store as ordinary documents: CouchDB reserves
// names starting with "_", and the marker's name is taken.
bool isRecordName(std::string_view name);

std::string base64(std::span<const std::uint8_t> bytes);
std::optional<CloudBytes> unbase64(std::string_view text);

// Plain fields as JSON: doubles as numbers, strings as strings, integers as
// {"$int": "<decimal>"} (JavaScript servers would round them and write 1.0
// back as 1), bytes as {"$bytes": "<base64>"}, NaN, infinities and -0 as
// {"$double": "nan" | "inf" | "-inf" | "-0"} (JSON has none of them, and
// JavaScript writes -0 back as 0). Values of another shape are skipped.
Json encodePlainFields(const CloudFields& fields);
CloudFields decodePlainFields(const Json& json);

// The documents this app writes; `epoch` is the zone's, `rev` the revision
// replaced (none for a new document). None when sealing failed (libsodium
// could not start).
std::optional<Json> recordDocument(const synccrypto::MasterKey& key, const std::string& epoch,
                                   const CloudRecord& record, std::uint64_t version,
                                   const std::optional<std::string>& rev);
std::optional<Json> deletionDocument(const synccrypto::MasterKey& key, const std::string& epoch,
                                     const std::string& recordType, const std::string& name,
                                     std::uint64_t version, const std::string& rev);
// Sealed when `key` (the one that opened the ending epoch) is there; without
// it (the marker is gone or was tampered with) the stub only names the epoch
// it ends, and is passed over as such.
std::optional<Json> wipedDocument(const synccrypto::MasterKey* key, const std::string& epoch,
                                  const std::string& name, std::uint64_t version,
                                  const std::string& rev);

// A document read back and checked against the key and the zone's epoch.
// `problem` says why it fails the check (empty when it passes); `version`
// is what it claims, believable only when it passes.
struct OpenedDocument {
    std::optional<CloudRecord> record;
    std::uint64_t version = 0;
    std::string problem;
};
OpenedDocument openDocument(const synccrypto::MasterKey& key, const std::string& epoch,
                            const Json& document, const std::string& zoneName,
                            const CloudDesiredKeys& desiredKeys);

// A deleted document: the user's deletion (with the record's type), a wipe
// of the zone (`wiped`), or one that fails the check (`problem`).
struct OpenedDeletion {
    std::string recordType;
    bool wiped = false;
    std::uint64_t version = 0;
    std::string problem;
};
OpenedDeletion openDeletion(const synccrypto::MasterKey& key, const std::string& epoch,
                            const Json& document);

// What a document that fails the check may still say: its name and the type
// it claims (empty when none), and, while the server holds it, its revision
// as system fields, so that a save can replace it. Never its fields. The
// system fields name `savedType` when given (the type of the save that met
// it), otherwise the claimed type; none when both are empty.
CloudRecord claimedIdentity(const Json& document, const std::string& zoneName,
                            const std::string& savedType = {});

// "ZCC1" and a JSON object: the zone's epoch and the server's sequence as
// the server gave it (a number for pouchdb-server, a string for CouchDB).
struct ChangeToken {
    std::string epoch;
    Json sequence;
};
CloudBytes encodeToken(const ChangeToken& token);
std::optional<ChangeToken> decodeToken(std::span<const std::uint8_t> bytes);

}  // namespace zettly::couch
