#include "platform/couch/CouchDocuments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

#include <sodium.h>

namespace zettly::couch {

namespace {

constexpr std::string_view tokenMagic = "ZCC1";
constexpr std::string_view dataField = "data";

// What a seal in a document covers; each kind has its own label, so that no
// seal can pass for another kind (a deletion's for a record's, say).
enum class Seal { fields, data, deletion, wipe };

std::string_view labelOf(Seal seal) {
    switch (seal) {
        case Seal::fields:
            return "zettly record 2";
        case Seal::data:
            return "zettly image 2";
        case Seal::deletion:
            return "zettly deletion 2";
        case Seal::wipe:
            return "zettly wipe 2";
    }
    return {};
}

struct Binding {
    std::string_view epoch;
    std::string_view recordType;
    std::string_view recordName;
    std::uint64_t version = 0;
};

void putLength(synccrypto::Bytes& out, std::size_t length) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<std::uint8_t>(length >> (8 * i)));
}

// The associated data of every seal in a document, for sealing and opening
// alike. Every part is length-prefixed, so that no two bindings give the
// same bytes. The seal of the fields also covers the plain fields (as
// encodeFields writes them) and whether image bytes are attached, so that
// neither can be changed or dropped.
synccrypto::Bytes associatedData(Seal seal, const Binding& binding, const CloudFields& plain = {},
                                 bool hasData = false) {
    synccrypto::Bytes out;
    for (std::string_view part :
         {labelOf(seal), binding.epoch, binding.recordType, binding.recordName}) {
        putLength(out, part.size());
        out.insert(out.end(), part.begin(), part.end());
    }
    for (int i = 0; i < 8; ++i)
        out.push_back(static_cast<std::uint8_t>(binding.version >> (8 * i)));
    if (seal == Seal::fields) {
        const auto fields = synccrypto::encodeFields(plain);
        putLength(out, fields.size());
        out.insert(out.end(), fields.begin(), fields.end());
        out.push_back(hasData ? 1 : 0);
    }
    return out;
}

// As stored: a decimal string, since JavaScript servers would round a
// number above 2^53.
std::optional<std::uint64_t> versionOf(const Json& document) {
    auto text = stringMember(document, "version");
    std::uint64_t version = 0;
    if (!text || text->empty())
        return std::nullopt;
    auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), version);
    if (error != std::errc() || end != text->data() + text->size())
        return std::nullopt;
    return version;
}

std::optional<CloudBytes> sealedOf(const Json& document) {
    auto text = stringMember(document, "sealed");
    return text ? unbase64(*text) : std::nullopt;
}

bool wanted(const CloudDesiredKeys& keys, std::string_view key) {
    return !keys || std::find(keys->begin(), keys->end(), key) != keys->end();
}

void keepDesired(CloudFields& fields, const CloudDesiredKeys& keys) {
    if (keys)
        std::erase_if(fields, [&](const auto& field) { return !wanted(keys, field.first); });
}

std::optional<CloudValue> plainValue(const Json& value) {
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_number())
        return value.get<double>();
    if (!value.is_object() || value.size() != 1)
        return std::nullopt;
    if (auto text = stringMember(value, "$int")) {
        std::int64_t number = 0;
        auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
        if (error != std::errc() || end != text->data() + text->size())
            return std::nullopt;
        return number;
    }
    if (auto text = stringMember(value, "$bytes")) {
        if (auto bytes = unbase64(*text))
            return std::move(*bytes);
        return std::nullopt;
    }
    if (auto text = stringMember(value, "$double")) {
        if (*text == "nan")
            return std::numeric_limits<double>::quiet_NaN();
        if (*text == "inf")
            return std::numeric_limits<double>::infinity();
        if (*text == "-inf")
            return -std::numeric_limits<double>::infinity();
        if (*text == "-0")
            return -0.0;
    }
    return std::nullopt;
}

}  // namespace

const Json* member(const Json& object, std::string_view key) {
    if (!object.is_object())
        return nullptr;
    auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> stringMember(const Json& object, std::string_view key) {
    const Json* value = member(object, key);
    if (!value || !value->is_string())
        return std::nullopt;
    return value->get<std::string>();
}

bool isRecordName(std::string_view name) {
    return !name.empty() && name.front() != '_' && name != markerID;
}

std::string base64(std::span<const std::uint8_t> bytes) {
    const int variant = sodium_base64_VARIANT_ORIGINAL;
    std::string text(sodium_base64_ENCODED_LEN(bytes.size(), variant), '\0');
    static const std::uint8_t empty = 0;
    sodium_bin2base64(text.data(), text.size(), bytes.empty() ? &empty : bytes.data(), bytes.size(),
                      variant);
    text.resize(text.size() - 1);  // the terminating zero
    return text;
}

std::optional<CloudBytes> unbase64(std::string_view text) {
    CloudBytes bytes(text.size() / 4 * 3 + 3);
    std::size_t length = 0;
    const char* end = nullptr;
    if (sodium_base642bin(bytes.data(), bytes.size(), text.data(), text.size(), nullptr, &length,
                          &end, sodium_base64_VARIANT_ORIGINAL) != 0 ||
        end != text.data() + text.size())
        return std::nullopt;
    bytes.resize(length);
    return bytes;
}

Json encodePlainFields(const CloudFields& fields) {
    Json out = Json::object();
    for (const auto& [key, value] : fields) {
        if (const auto* real = std::get_if<double>(&value)) {
            if (std::isnan(*real))
                out[key] = {{"$double", "nan"}};
            else if (std::isinf(*real))
                out[key] = {{"$double", *real > 0 ? "inf" : "-inf"}};
            else if (*real == 0 && std::signbit(*real))
                out[key] = {{"$double", "-0"}};
            else
                out[key] = *real;
        } else if (const auto* whole = std::get_if<std::int64_t>(&value)) {
            out[key] = {{"$int", std::to_string(*whole)}};
        } else if (const auto* text = std::get_if<std::string>(&value)) {
            out[key] = *text;
        } else {
            out[key] = {{"$bytes", base64(std::get<CloudBytes>(value))}};
        }
    }
    return out;
}

CloudFields decodePlainFields(const Json& json) {
    CloudFields fields;
    if (!json.is_object())
        return fields;
    for (const auto& [key, value] : json.items()) {
        if (auto decoded = plainValue(value))
            fields.emplace(key, std::move(*decoded));
    }
    return fields;
}

std::optional<Json> recordDocument(const synccrypto::MasterKey& key, const std::string& epoch,
                                   const CloudRecord& record, std::uint64_t version,
                                   const std::optional<std::string>& rev) {
    const Json plain = encodePlainFields(record.fields);
    Json document = {{"_id", record.recordName},
                     {"recordType", record.recordType},
                     {"version", std::to_string(version)},
                     {"fields", plain}};
    if (rev)
        document["_rev"] = *rev;
    CloudFields sealed = record.encryptedFields;
    std::optional<CloudBytes> data;
    if (auto found = sealed.find(dataField);
        found != sealed.end() && std::holds_alternative<CloudBytes>(found->second)) {
        data = std::move(std::get<CloudBytes>(found->second));
        sealed.erase(found);
    }
    const Binding binding{epoch, record.recordType, record.recordName, version};
    // Bound as a reader decodes them, so that what JSON cannot carry as it
    // is (a NaN's payload) reads back as the same bytes.
    const auto blob = synccrypto::seal(
        key, associatedData(Seal::fields, binding, decodePlainFields(plain), data.has_value()),
        synccrypto::encodeFields(sealed));
    if (blob.empty())
        return std::nullopt;
    document["sealed"] = base64(blob);
    if (data) {
        const auto attachment = synccrypto::seal(key, associatedData(Seal::data, binding), *data);
        if (attachment.empty())
            return std::nullopt;
        document["_attachments"] = {
            {std::string(dataField),
             {{"content_type", "application/octet-stream"}, {"data", base64(attachment)}}}};
    }
    return document;
}

std::optional<Json> deletionDocument(const synccrypto::MasterKey& key, const std::string& epoch,
                                     const std::string& recordType, const std::string& name,
                                     std::uint64_t version, const std::string& rev) {
    const auto blob = synccrypto::seal(
        key, associatedData(Seal::deletion, {epoch, recordType, name, version}), {});
    if (blob.empty())
        return std::nullopt;
    return Json{{"_id", name},
                {"_rev", rev},
                {"_deleted", true},
                {"recordType", recordType},
                {"version", std::to_string(version)},
                {"sealed", base64(blob)}};
}

std::optional<Json> wipedDocument(const synccrypto::MasterKey* key, const std::string& epoch,
                                  const std::string& name, std::uint64_t version,
                                  const std::string& rev) {
    Json stub = {
        {"_id", name}, {"_rev", rev}, {"_deleted", true}, {"wiped", true}, {"epoch", epoch}};
    if (!key)
        return stub;
    const auto blob =
        synccrypto::seal(*key, associatedData(Seal::wipe, {epoch, {}, name, version}), {});
    if (blob.empty())
        return std::nullopt;
    stub["version"] = std::to_string(version);
    stub["sealed"] = base64(blob);
    return stub;
}

CloudRecord claimedIdentity(const Json& document, const std::string& zoneName,
                            const std::string& savedType) {
    CloudRecord record{.recordType = stringMember(document, "recordType").value_or(""),
                       .zoneName = zoneName,
                       .recordName = stringMember(document, "_id").value_or("")};
    const std::string& type = savedType.empty() ? record.recordType : savedType;
    auto rev = stringMember(document, "_rev");
    if (rev && !type.empty() && !member(document, "_deleted"))
        record.systemFields = encodeSystemFields({zoneName, type, record.recordName, *rev});
    return record;
}

OpenedDocument openDocument(const synccrypto::MasterKey& key, const std::string& epoch,
                            const Json& document, const std::string& zoneName,
                            const CloudDesiredKeys& desiredKeys) {
    OpenedDocument opened;
    auto name = stringMember(document, "_id");
    auto rev = stringMember(document, "_rev");
    auto type = stringMember(document, "recordType");
    auto version = versionOf(document);
    if (!name || !rev || !type || type->empty() || !version) {
        opened.problem = "it lacks a type or a version (not written by this version of Zettly)";
        return opened;
    }
    opened.version = *version;
    CloudRecord record{.recordType = *type, .zoneName = zoneName, .recordName = *name};
    if (const Json* fields = member(document, "fields"))
        record.fields = decodePlainFields(*fields);
    // Present only when the attachment was asked for; a stub otherwise.
    const Json* attachments = member(document, "_attachments");
    const Json* attachment = attachments ? member(*attachments, dataField) : nullptr;

    const Binding binding{epoch, *type, *name, *version};
    auto sealed = sealedOf(document);
    auto plain =
        sealed
            ? synccrypto::open(
                  key, associatedData(Seal::fields, binding, record.fields, attachment != nullptr),
                  *sealed)
            : std::nullopt;
    auto fields = plain ? synccrypto::decodeFields(*plain) : std::nullopt;
    if (!fields) {
        opened.problem =
            "its seal does not open: it was changed, moved from another record or written "
            "before the zone started afresh";
        return opened;
    }
    record.encryptedFields = std::move(*fields);

    if (auto text = attachment ? stringMember(*attachment, "data") : std::nullopt;
        text && wanted(desiredKeys, dataField)) {
        auto blob = unbase64(*text);
        auto data =
            blob ? synccrypto::open(key, associatedData(Seal::data, binding), *blob) : std::nullopt;
        if (!data) {
            opened.problem =
                "its image bytes do not open: they were changed or belong to "
                "another record or version";
            return opened;
        }
        record.encryptedFields.insert_or_assign(std::string(dataField), std::move(*data));
    }
    keepDesired(record.fields, desiredKeys);
    keepDesired(record.encryptedFields, desiredKeys);
    record.systemFields = encodeSystemFields({zoneName, *type, *name, *rev});
    opened.record = std::move(record);
    return opened;
}

OpenedDeletion openDeletion(const synccrypto::MasterKey& key, const std::string& epoch,
                            const Json& document) {
    OpenedDeletion deletion;
    deletion.recordType = stringMember(document, "recordType").value_or("");
    deletion.wiped = member(document, "wiped") != nullptr;
    // A wipe that ended an earlier epoch may be sealed with a key replaced
    // since (a new passphrase wipes too), or not at all (the marker was lost
    // with the key check). Every device uploads afresh when an epoch ends,
    // so such a stub can hide a record at most from a device that never
    // held it; it deletes nothing anywhere.
    const auto wipedIn = stringMember(document, "epoch");
    if (deletion.wiped && wipedIn && *wipedIn != epoch)
        return deletion;
    auto name = stringMember(document, "_id");
    auto version = versionOf(document);
    auto sealed = sealedOf(document);
    if (!name || !version || !sealed) {
        deletion.problem = "it was deleted without a seal";
        return deletion;
    }
    deletion.version = *version;
    // A wipe happens just before the marker takes a new epoch, so it is
    // sealed with the epoch it ended, which the document names.
    const auto ad =
        deletion.wiped
            ? associatedData(Seal::wipe, {wipedIn.value_or(""), {}, *name, *version})
            : associatedData(Seal::deletion, {epoch, deletion.recordType, *name, *version});
    if ((deletion.wiped && !wipedIn) || !synccrypto::open(key, ad, *sealed))
        deletion.problem = "the seal of its deletion does not open";
    return deletion;
}

CloudBytes encodeToken(const ChangeToken& token) {
    const std::string text =
        std::string(tokenMagic) + Json{{"epoch", token.epoch}, {"seq", token.sequence}}.dump();
    return CloudBytes(text.begin(), text.end());
}

std::optional<ChangeToken> decodeToken(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < tokenMagic.size() ||
        !std::equal(tokenMagic.begin(), tokenMagic.end(), bytes.begin()))
        return std::nullopt;
    const std::string text(bytes.begin() + tokenMagic.size(), bytes.end());
    const Json json = Json::parse(text, nullptr, false);
    auto epoch = stringMember(json, "epoch");
    const Json* sequence = member(json, "seq");
    if (!epoch || epoch->empty() || !sequence ||
        !(sequence->is_string() || sequence->is_number_unsigned()))
        return std::nullopt;
    return ChangeToken{*epoch, *sequence};
}

}  // namespace zettly::couch
