#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/CloudDatabase.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"

namespace zettly {

// The records that sync keeps in the cloud zone, as the companion keyboard
// app's clients read and write them too. User content (texts, names,
// labels, category ids, image bytes, the chip order, the key) travels in
// encrypted fields; times, flags and sort positions stay readable by the
// server. Reading is lenient about how another client wrote a number (an
// integer or a double) and strict about anything else: a record of the
// wrong type, or without its content, reads as none and is skipped.
struct ClipRecords {
    using Bytes = std::vector<std::uint8_t>;

    static constexpr std::string_view itemType = "ClipItem";
    static constexpr std::string_view categoryType = "ClipCategory";
    static constexpr std::string_view imageType = "ClipImage";
    static constexpr std::string_view prefsType = "ClipPrefs";
    static constexpr std::string_view keyType = "ClipKey";
    static constexpr std::string_view prefsRecordName = "ClipPrefs";
    static constexpr std::string_view keyRecordName = "ClipKey";
    static constexpr std::string_view categoryPrefix = "cat_";
    static constexpr std::size_t keyBytes = 32;
    // No image record carries more image data than this; the service's
    // limit of 1 MB per record leaves room for the other fields.
    static constexpr std::size_t maxImageBytes = 900'000;
    static constexpr int firstReduction = 1024;
    static constexpr int secondReduction = 800;

    // Every field a change feed needs: all but the image bytes, which are
    // fetched on their own so that a relabelled image is not sent again.
    static const std::vector<std::string>& changeKeys();

    static CloudRecordID id(std::string_view recordName);
    static std::string categoryRecordName(std::string_view id);

    static CloudRecord record(const ClipboardStore::SyncItem& item);
    static CloudRecord record(const ClipboardStore::SyncCategory& category);

    struct ImageRecord {
        std::optional<CloudRecord> record;  // none: not uploaded this time
        bool tooLarge = false;              // still above maxImageBytes after both reductions
    };
    // Reads the image's file and, when it is too large, reduces a copy in
    // `scratch` (removed again whatever happens).
    static ImageRecord record(const ImageClipStore::SyncImage& image, ImageClipStore& images,
                              const std::filesystem::path& scratch);

    static std::optional<ClipboardStore::SyncItem> item(const CloudRecord& record);
    static std::optional<ClipboardStore::SyncCategory> category(const CloudRecord& record);
    // Metadata only; the bytes are in imageData() of a separately fetched record.
    static std::optional<ImageClipStore::SyncImage> image(const CloudRecord& record);
    static std::optional<Bytes> imageData(const CloudRecord& record);

    struct ChipOrder {
        std::vector<std::string> order;
        double modified = 0;
    };
    // `ck`: the saved system fields of the last known version, if any.
    static CloudRecord prefsRecord(const ChipOrder& order, const std::optional<Bytes>& ck);
    static std::optional<ChipOrder> chipOrder(const CloudRecord& record);

    static CloudRecord keyRecord(const Bytes& key);
    // None unless the record carries a key of exactly keyBytes bytes.
    static std::optional<Bytes> key(const CloudRecord& record);

    // The saved system fields, none when the record has none.
    static std::optional<Bytes> systemFields(const CloudRecord& record);
};

}  // namespace zettly
