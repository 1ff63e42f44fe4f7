#include "sync/ClipRecords.h"

#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>
#include <variant>

#include "platform/Crypto.h"
#include "platform/Files.h"
#include "sync/ClipCloudSync.h"

namespace zettly {

namespace fs = std::filesystem;
using SyncItem = ClipboardStore::SyncItem;
using SyncCategory = ClipboardStore::SyncCategory;
using SyncImage = ImageClipStore::SyncImage;

namespace {

const CloudValue* field(const CloudFields& fields, std::string_view key) {
    auto found = fields.find(key);
    return found == fields.end() ? nullptr : &found->second;
}

// The field when it holds exactly a T; none when missing or of another kind.
template <typename T>
std::optional<T> exactly(const CloudFields& fields, std::string_view key) {
    const CloudValue* value = field(fields, key);
    if (const T* typed = value ? std::get_if<T>(value) : nullptr)
        return *typed;
    return std::nullopt;
}

std::optional<double> number(const CloudFields& fields, std::string_view key) {
    if (auto whole = exactly<std::int64_t>(fields, key))
        return static_cast<double>(*whole);
    return exactly<double>(fields, key);
}

std::optional<std::int64_t> integer(const CloudFields& fields, std::string_view key) {
    if (auto whole = exactly<std::int64_t>(fields, key))
        return whole;
    // Pixel sizes are far inside the range where a double is exact; anything
    // else (NaN, huge values) is no size at all.
    if (auto real = exactly<double>(fields, key); real && *real >= 0 && *real <= 4'294'967'296.0)
        return static_cast<std::int64_t>(*real);
    return std::nullopt;
}

std::optional<std::string> text(const CloudFields& fields, std::string_view key) {
    return exactly<std::string>(fields, key);
}

std::optional<ClipRecords::Bytes> bytes(const CloudFields& fields, std::string_view key) {
    return exactly<CloudBytes>(fields, key);
}

void setOptional(CloudFields& fields, const std::string& key,
                 const std::optional<std::string>& value) {
    if (value)
        fields[key] = *value;
    else
        fields.erase(key);
}

// The saved server copy when `ck` names this very record; a new record
// otherwise (the save may then meet the server's copy as a conflict).
CloudRecord startRecord(std::string_view type, std::string_view name,
                        const std::optional<ClipRecords::Bytes>& ck) {
    if (ck) {
        auto base = CloudRecord::fromSystemFields(*ck);
        if (base && base->recordType == type && base->recordName == name &&
            base->zoneName == ClipCloudSync::zoneName)
            return std::move(*base);
    }
    return CloudRecord{.recordType = std::string(type),
                       .zoneName = std::string(ClipCloudSync::zoneName),
                       .recordName = std::string(name)};
}

// An old record written before "mm" existed: its metadata counts as changed
// when the record was, so that a label set back then is not lost to a
// never-edited copy.
double metadataTime(const CloudFields& fields, double modified, bool hasMetadata) {
    if (auto mm = number(fields, "mm"))
        return *mm;
    return hasMetadata ? modified : 0;
}

// Removes the reduced copy however the upload preparation ends.
class ScratchFile {
public:
    explicit ScratchFile(fs::path path) : path_(std::move(path)) {}
    ~ScratchFile() {
        std::error_code ignored;
        fs::remove(path_, ignored);
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

// What text and image records share: times, the pin, and the category and
// label that travel encrypted, stamped together by `mm`.
template <typename Entry>
void readSharedFields(const CloudRecord& record, Entry& entry) {
    entry.rid = record.recordName;
    entry.created = number(record.fields, "created").value_or(0);
    entry.modified = number(record.fields, "modified").value_or(entry.created);
    entry.pinned = number(record.fields, "pinned") == 1.0;
    entry.category = text(record.encryptedFields, "category");
    entry.label = text(record.encryptedFields, "label");
    entry.mm =
        metadataTime(record.fields, entry.modified, entry.pinned || entry.category || entry.label);
}

template <typename Entry>
void writeSharedFields(const Entry& entry, CloudRecord& record) {
    setOptional(record.encryptedFields, "label", entry.label);
    setOptional(record.encryptedFields, "category", entry.category);
    record.fields["created"] = entry.created;
    record.fields["modified"] = entry.modified;
    record.fields["mm"] = entry.mm;
    record.fields["pinned"] = std::int64_t{entry.pinned ? 1 : 0};
}

}  // namespace

const std::vector<std::string>& ClipRecords::changeKeys() {
    static const std::vector<std::string> keys{"text",     "type",   "label", "category", "created",
                                               "modified", "pinned", "name",  "sort",     "k",
                                               "w",        "h",      "fp",    "order",    "mm"};
    return keys;
}

CloudRecordID ClipRecords::id(std::string_view recordName) {
    return CloudRecordID{std::string(ClipCloudSync::zoneName), std::string(recordName)};
}

std::string ClipRecords::categoryRecordName(std::string_view id) {
    return std::string(categoryPrefix) + std::string(id);
}

std::optional<ClipRecords::Bytes> ClipRecords::systemFields(const CloudRecord& record) {
    if (record.systemFields.empty())
        return std::nullopt;
    return record.systemFields;
}

CloudRecord ClipRecords::record(const SyncItem& item) {
    CloudRecord record = startRecord(itemType, item.rid, item.ck);
    record.encryptedFields["text"] = item.text;
    record.encryptedFields["type"] = item.type;
    writeSharedFields(item, record);
    return record;
}

CloudRecord ClipRecords::record(const SyncCategory& category) {
    CloudRecord record = startRecord(categoryType, categoryRecordName(category.id), category.ck);
    record.encryptedFields["name"] = category.name;
    record.fields["sort"] = category.sort;
    record.fields["created"] = category.created;
    record.fields["modified"] = category.modified;
    return record;
}

ClipRecords::ImageRecord ClipRecords::record(const SyncImage& image, ImageClipStore& images,
                                             const fs::path& scratch) {
    auto data = files::readAll(image.file);
    if (!data)
        return {};
    if (data->size() > maxImageBytes) {
        ScratchFile reduced(scratch / ("zettly-upload-" + crypto::newUUID() + ".jpg"));
        const Bytes original = std::move(*data);
        for (int maxPixel : {firstReduction, secondReduction}) {
            if (!images.downsample(original, maxPixel, reduced.path()))
                return {};
            data = files::readAll(reduced.path());
            if (!data)
                return {};
            if (data->size() <= maxImageBytes)
                break;
        }
        if (data->size() > maxImageBytes)
            return {.record = std::nullopt, .tooLarge = true};
    }

    CloudRecord record = startRecord(imageType, image.rid, image.ck);
    record.encryptedFields["data"] = std::move(*data);
    record.encryptedFields["w"] = image.width;
    record.encryptedFields["h"] = image.height;
    if (image.fp)
        record.encryptedFields["fp"] = *image.fp;
    else
        record.encryptedFields.erase("fp");
    writeSharedFields(image, record);
    return {.record = std::move(record), .tooLarge = false};
}

std::optional<SyncItem> ClipRecords::item(const CloudRecord& record) {
    if (record.recordType != itemType)
        return std::nullopt;
    auto content = text(record.encryptedFields, "text");
    // Larger than anything a client may copy: a damaged or hostile record.
    if (!content || content->size() > ClipboardStore::maxTextBytes)
        return std::nullopt;
    SyncItem item;
    readSharedFields(record, item);
    auto type = text(record.encryptedFields, "type");
    item.type = type ? std::move(*type) : ClipboardStore::detectType(*content);
    item.text = std::move(*content);
    item.ck = systemFields(record);
    return item;
}

std::optional<SyncCategory> ClipRecords::category(const CloudRecord& record) {
    if (record.recordType != categoryType || !record.recordName.starts_with(categoryPrefix) ||
        record.recordName.size() == categoryPrefix.size())
        return std::nullopt;
    auto name = text(record.encryptedFields, "name");
    if (!name)
        return std::nullopt;
    SyncCategory category;
    category.id = record.recordName.substr(categoryPrefix.size());
    category.name = std::move(*name);
    category.sort = number(record.fields, "sort").value_or(0);
    category.created = number(record.fields, "created").value_or(0);
    category.modified = number(record.fields, "modified").value_or(category.created);
    category.ck = systemFields(record);
    return category;
}

std::optional<SyncImage> ClipRecords::image(const CloudRecord& record) {
    if (record.recordType != imageType)
        return std::nullopt;
    SyncImage image;
    readSharedFields(record, image);
    image.width = integer(record.encryptedFields, "w").value_or(0);
    image.height = integer(record.encryptedFields, "h").value_or(0);
    image.fp = bytes(record.encryptedFields, "fp");
    image.ck = systemFields(record);
    return image;
}

std::optional<ClipRecords::Bytes> ClipRecords::imageData(const CloudRecord& record) {
    if (record.recordType != imageType)
        return std::nullopt;
    auto data = bytes(record.encryptedFields, "data");
    if (!data || data->empty())
        return std::nullopt;
    return data;
}

CloudRecord ClipRecords::prefsRecord(const ChipOrder& order, const std::optional<Bytes>& ck) {
    CloudRecord record = startRecord(prefsType, prefsRecordName, ck);
    std::string json = nlohmann::json(order.order).dump();
    record.encryptedFields["order"] = Bytes(json.begin(), json.end());
    record.fields["modified"] = order.modified;
    return record;
}

std::optional<ClipRecords::ChipOrder> ClipRecords::chipOrder(const CloudRecord& record) {
    if (record.recordType != prefsType)
        return std::nullopt;
    std::string json;
    if (auto data = bytes(record.encryptedFields, "order"))
        json.assign(data->begin(), data->end());
    else if (auto written = text(record.encryptedFields, "order"))
        json = std::move(*written);
    else
        return std::nullopt;
    auto parsed = nlohmann::json::parse(json, nullptr, false);
    if (!parsed.is_array())
        return std::nullopt;
    ChipOrder order;
    for (const auto& entry : parsed) {
        if (!entry.is_string())
            return std::nullopt;
        order.order.push_back(entry.get<std::string>());
    }
    order.modified = number(record.fields, "modified").value_or(0);
    return order;
}

CloudRecord ClipRecords::keyRecord(const Bytes& key) {
    CloudRecord record = startRecord(keyType, keyRecordName, std::nullopt);
    record.encryptedFields["k"] = key;
    return record;
}

std::optional<ClipRecords::Bytes> ClipRecords::key(const CloudRecord& record) {
    if (record.recordType != keyType)
        return std::nullopt;
    auto key = bytes(record.encryptedFields, "k");
    // Record names are HMACs under exactly this many bytes; a key of any
    // other length would silently stop every text from syncing.
    if (!key || key->size() != keyBytes)
        return std::nullopt;
    return key;
}

}  // namespace zettly
