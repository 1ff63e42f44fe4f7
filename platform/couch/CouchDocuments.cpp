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

std::string attachmentType(std::string_view recordType) {
    return std::string(recordType) + "/" + std::string(dataField);
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
            if (std::isfinite(*real))
                out[key] = *real;
            else
                out[key] = {{"$double", std::isnan(*real) ? "nan" : *real > 0 ? "inf" : "-inf"}};
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

std::optional<Json> recordDocument(const synccrypto::MasterKey& key, const CloudRecord& record,
                                   const std::optional<std::string>& rev) {
    Json document = {{"_id", record.recordName},
                     {"recordType", record.recordType},
                     {"fields", encodePlainFields(record.fields)}};
    if (rev)
        document["_rev"] = *rev;
    CloudFields sealed = record.encryptedFields;
    std::optional<CloudBytes> data;
    if (auto found = sealed.find(dataField);
        found != sealed.end() && std::holds_alternative<CloudBytes>(found->second)) {
        data = std::move(std::get<CloudBytes>(found->second));
        sealed.erase(found);
    }
    const auto blob = synccrypto::seal(key, record.recordType, record.recordName,
                                       synccrypto::encodeFields(sealed));
    if (blob.empty())
        return std::nullopt;
    document["sealed"] = base64(blob);
    if (data) {
        const auto attachment =
            synccrypto::seal(key, attachmentType(record.recordType), record.recordName, *data);
        if (attachment.empty())
            return std::nullopt;
        document["_attachments"] = {
            {std::string(dataField),
             {{"content_type", "application/octet-stream"}, {"data", base64(attachment)}}}};
    }
    return document;
}

std::optional<CloudRecord> plainPart(const Json& document, const std::string& zoneName) {
    auto name = stringMember(document, "_id");
    auto rev = stringMember(document, "_rev");
    auto type = stringMember(document, "recordType");
    if (!name || !rev || !type || type->empty())
        return std::nullopt;
    CloudRecord record{.recordType = *type, .zoneName = zoneName, .recordName = *name};
    if (const Json* fields = member(document, "fields"))
        record.fields = decodePlainFields(*fields);
    record.systemFields = encodeSystemFields({zoneName, *type, *name, *rev});
    return record;
}

OpenedDocument openDocument(const synccrypto::MasterKey& key, const Json& document,
                            const std::string& zoneName, const CloudDesiredKeys& desiredKeys) {
    OpenedDocument opened;
    auto record = plainPart(document, zoneName);
    if (!record) {
        opened.problem = "not a record of this app (no name, revision or type)";
        return opened;
    }
    auto sealedText = stringMember(document, "sealed");
    auto sealed = sealedText ? unbase64(*sealedText) : std::nullopt;
    auto plain = sealed ? synccrypto::open(key, record->recordType, record->recordName, *sealed)
                        : std::nullopt;
    auto fields = plain ? synccrypto::decodeFields(*plain) : std::nullopt;
    if (!fields) {
        opened.problem = "its sealed fields do not open with this passphrase";
        return opened;
    }
    record->encryptedFields = std::move(*fields);

    // Present only when the attachment was asked for; a stub otherwise.
    const Json* attachments = member(document, "_attachments");
    const Json* attachment = attachments ? member(*attachments, dataField) : nullptr;
    if (auto text = attachment ? stringMember(*attachment, "data") : std::nullopt;
        text && wanted(desiredKeys, dataField)) {
        auto blob = unbase64(*text);
        auto data = blob ? synccrypto::open(key, attachmentType(record->recordType),
                                            record->recordName, *blob)
                         : std::nullopt;
        if (data)
            record->encryptedFields.insert_or_assign(std::string(dataField), std::move(*data));
        else
            opened.problem = "its image bytes do not open with this passphrase";
    }
    keepDesired(record->fields, desiredKeys);
    keepDesired(record->encryptedFields, desiredKeys);
    opened.record = std::move(record);
    return opened;
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
