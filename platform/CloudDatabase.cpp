#include "platform/CloudDatabase.h"

#include <algorithm>
#include <string_view>

namespace zettly {

namespace {

// "ZSF1", then the four strings, each as a 32-bit little-endian length and
// its bytes. The version in the magic lets a later layout tell old "ck"
// values apart instead of misreading them.
constexpr std::string_view systemFieldsMagic = "ZSF1";

void putString(CloudBytes& out, std::string_view text) {
    const auto size = static_cast<std::uint32_t>(text.size());
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<std::uint8_t>(size >> shift));
    out.insert(out.end(), text.begin(), text.end());
}

bool takeString(std::span<const std::uint8_t>& in, std::string& text) {
    if (in.size() < 4)
        return false;
    std::uint32_t size = 0;
    for (int i = 0; i < 4; ++i)
        size |= std::uint32_t{in[i]} << (8 * i);
    in = in.subspan(4);
    if (in.size() < size)
        return false;
    text.assign(in.begin(), in.begin() + size);
    in = in.subspan(size);
    return true;
}

std::string_view standardDescription(CloudErrorCode code) {
    switch (code) {
        case CloudErrorCode::internalError:
            return "Internal error";
        case CloudErrorCode::partialFailure:
            return "Some items failed";
        case CloudErrorCode::networkUnavailable:
            return "The network is unavailable";
        case CloudErrorCode::networkFailure:
            return "The network request failed";
        case CloudErrorCode::serviceUnavailable:
            return "The sync service is unavailable";
        case CloudErrorCode::requestRateLimited:
            return "Too many requests; try again later";
        case CloudErrorCode::notAuthenticated:
            return "Not signed in";
        case CloudErrorCode::unknownItem:
            return "The record does not exist on the server";
        case CloudErrorCode::invalidArguments:
            return "Invalid request";
        case CloudErrorCode::serverRecordChanged:
            return "The record was changed on the server";
        case CloudErrorCode::serverRejectedRequest:
            return "The server rejected the request";
        case CloudErrorCode::changeTokenExpired:
            return "The change token has expired";
        case CloudErrorCode::batchRequestFailed:
            return "Another record of the batch failed";
        case CloudErrorCode::zoneNotFound:
            return "The record zone does not exist";
        case CloudErrorCode::limitExceeded:
            return "The request or record is too large";
        case CloudErrorCode::userDeletedZone:
            return "The user deleted the record zone";
        case CloudErrorCode::unauthenticRecord:
            return "The server's copy of the record was not written by this app";
    }
    return "Unknown error";
}

}  // namespace

CloudBytes encodeSystemFields(const CloudSystemFields& fields) {
    CloudBytes out(systemFieldsMagic.begin(), systemFieldsMagic.end());
    for (const std::string* part :
         {&fields.zoneName, &fields.recordType, &fields.recordName, &fields.changeTag})
        putString(out, *part);
    return out;
}

std::optional<CloudSystemFields> decodeSystemFields(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < systemFieldsMagic.size() ||
        !std::equal(systemFieldsMagic.begin(), systemFieldsMagic.end(), bytes.begin()))
        return std::nullopt;
    bytes = bytes.subspan(systemFieldsMagic.size());
    CloudSystemFields fields;
    for (std::string* part :
         {&fields.zoneName, &fields.recordType, &fields.recordName, &fields.changeTag}) {
        if (!takeString(bytes, *part))
            return std::nullopt;
    }
    if (!bytes.empty() || fields.recordType.empty() || fields.recordName.empty() ||
        fields.zoneName.empty())
        return std::nullopt;
    return fields;
}

std::optional<CloudRecord> CloudRecord::fromSystemFields(
    std::span<const std::uint8_t> systemFields) {
    auto decoded = decodeSystemFields(systemFields);
    if (!decoded)
        return std::nullopt;
    CloudRecord record;
    record.recordType = std::move(decoded->recordType);
    record.zoneName = std::move(decoded->zoneName);
    record.recordName = std::move(decoded->recordName);
    record.systemFields.assign(systemFields.begin(), systemFields.end());
    return record;
}

CloudError::CloudError(CloudErrorCode c, std::string text, std::optional<CloudRecord> server)
    : code(c),
      description(text.empty() ? std::string(standardDescription(c)) : std::move(text)),
      serverRecord(std::move(server)) {}

CloudResult<CloudRecord> CloudDatabase::fetchRecord(const CloudRecordID& id,
                                                    const CloudDesiredKeys& desiredKeys) {
    auto fetched = fetchRecords({id}, desiredKeys);
    if (!fetched)
        return fetched.error();
    if (fetched.value().size() != 1)
        return CloudError(CloudErrorCode::serverRejectedRequest,
                          "The server answered for another number of records than asked");
    return std::move(fetched.value().front().result);
}

}  // namespace zettly
