#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/CloudDatabase.h"
#include "platform/couch/SyncCrypto.h"

namespace zettly::couch {

// How records, the zone's marker and change tokens look on the server. The
// server sees a record's name, type, revision and plain fields; everything
// else is sealed with the key derived from the user's passphrase.
//
//   { "_id": "<record name>", "_rev": "...", "recordType": "ClipImage",
//     "fields": { "created": 1700000000.5, "pinned": {"$int": "1"} },
//     "sealed": "<base64 of seal(key, type, name, encodeFields(encrypted))>",
//     "_attachments": { "data": { "data": "<base64 of seal(key, type + "/data", name, bytes)>" } }
//     }
//
// Image bytes travel as an attachment so that change feeds carry a stub
// only; their associated data names the attachment, so the blob of one
// cannot pass for the other.

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
// back as 1), bytes as {"$bytes": "<base64>"}, NaN and infinities as
// {"$double": "nan" | "inf" | "-inf"}. Values of another shape are skipped.
Json encodePlainFields(const CloudFields& fields);
CloudFields decodePlainFields(const Json& json);

// The document for `record`, sealed with `key`; `rev` is the revision it
// replaces (none for a new document). None when sealing failed (libsodium
// could not start).
std::optional<Json> recordDocument(const synccrypto::MasterKey& key, const CloudRecord& record,
                                   const std::optional<std::string>& rev);

// A document read back. `problem` says what could not be opened: without a
// record, the whole document; with one, the image bytes (left out).
struct OpenedDocument {
    std::optional<CloudRecord> record;
    std::string problem;
};
OpenedDocument openDocument(const synccrypto::MasterKey& key, const Json& document,
                            const std::string& zoneName, const CloudDesiredKeys& desiredKeys);

// What a save conflict can still carry when the sealed fields of the
// server's copy do not open: its identity, revision and plain fields, so
// that the caller can save over it.
std::optional<CloudRecord> plainPart(const Json& document, const std::string& zoneName);

// "ZCC1" and a JSON object: the zone's epoch and the server's sequence as
// the server gave it (a number for pouchdb-server, a string for CouchDB).
struct ChangeToken {
    std::string epoch;
    Json sequence;
};
CloudBytes encodeToken(const ChangeToken& token);
std::optional<ChangeToken> decodeToken(std::span<const std::uint8_t> bytes);

}  // namespace zettly::couch
