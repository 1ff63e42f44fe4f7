#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "store/ImageReducer.h"
#include "store/Sql.h"
#include "store/StoreContext.h"
#include "store/StoreDatabase.h"

namespace zettly {

// The image history: "Library/clipmedia.sqlite" with one row per image, and
// "Library/clipmedia/" with a full-size JPEG (at most 1280 pixels on the long
// side) and a thumbnail (at most 320) per row. Deliberately small: the 15
// newest images are kept (pinned ones count but are never removed) and no
// unpinned image beyond 24 MiB of full-size files.
//
// Decoding runs on the caller's thread; the database and file removals run
// under the store's mutex. Operations never throw: a failure gives an empty
// list, none or `failed` and leaves the data as it was.
// Besides a damaged database moved aside, only the sweep logs: files that no
// row names (left by a crash between writing a picture and committing its
// row) are removed at the first open and after a failed save.
//
// A picture copied here is also kept as copied ("<id>.orig.<ext>", named in
// the row's `orig` column) up to the size the user allows, so that picking
// it pastes it at full quality. That file never leaves this computer: sync
// exchanges the JPEG, and a row that arrived by sync has no original.
class ImageClipStore {
public:
    using Bytes = std::vector<std::uint8_t>;

    struct Item {
        std::string id;
        std::string file;   // absolute path of the full-size JPEG
        std::string thumb;  // absolute path of the thumbnail
        std::int64_t width = 0;
        std::int64_t height = 0;
        std::int64_t bytes = 0;
        double createdAt = 0;
        bool pinned = false;
        std::optional<std::string> category;
        std::optional<std::string> label;
        bool operator==(const Item&) const = default;
    };

    enum class SaveResult { saved, disabled, tooLarge, failed };

    // A picture as it was copied, in the format it was copied in.
    struct Original {
        Bytes bytes;
        std::string type;  // a pbtype image type, e.g. "image/png"
        bool operator==(const Original&) const = default;
    };

    static constexpr std::size_t maxInputBytes = 16 * 1024 * 1024;
    static constexpr int fullPixels = 1280;
    static constexpr int thumbPixels = 320;
    static constexpr std::int64_t keptPositions = 15;
    static constexpr std::int64_t keptBytes = 24 * 1024 * 1024;
    static constexpr int listedPinned = 100;
    static constexpr std::int64_t sameImageDistance = 5;  // below this, two images are one

    // Decoding goes through `reducer`: in this process by default; the
    // application hands in a worker process.
    explicit ImageClipStore(StoreContext context,
                            ImageReducer& reducer = ImageReducer::inProcess());
    ImageClipStore(const ImageClipStore&) = delete;
    ImageClipStore& operator=(const ImageClipStore&) = delete;

    // Opens the database now rather than at the first operation: the app
    // calls it at start-up on a background thread, so the check (and the
    // rebuild of a damaged file) and the sweep of picture files no row names
    // run before the user looks.
    bool open();

    // Stores a copied image. One that nearly equals an image in the history
    // (a new screenshot of the same window) becomes that entry's new picture,
    // moved to the top with its name, pin, label and category. Called off the
    // main thread: it decodes and encodes.
    // `type` is the format the bytes were copied in (pbtype::png and the
    // other image types capture reads); with one of those, and while the
    // bytes are within the user's limit for originals, they are kept as
    // they are beside the JPEG. Empty or another type keeps only the JPEG.
    SaveResult save(std::span<const std::uint8_t> data, std::string_view type = {});

    // At most 100 pinned and 15 unpinned images, pinned ones outside any
    // category first, each group newest first; expired images are hidden.
    std::vector<Item> fetchAll();
    std::optional<Bytes> fileData(const std::string& id);
    // The picture as it was copied; none when none was kept (over the limit,
    // received by sync) or its file is gone or unreadable (logged), and the
    // JPEG of fileData() stands in.
    std::optional<Original> originalData(const std::string& id);
    // The file name's ending kept for a copied type ("png" for image/png);
    // none for types whose bytes are not kept.
    static std::optional<std::string_view> originalExtension(std::string_view type);
    // A kept copy is "<id>" + this + its ending, beside "<id>.jpg".
    static constexpr std::string_view originalInfix = ".orig.";

    void setPinned(const std::string& id, bool pinned);
    void setCategory(const std::string& id, const std::optional<std::string>& category);
    void setLabel(const std::string& id, const std::optional<std::string>& label);
    // For a deleted category: its images leave it (no sync change marks).
    void detachCategory(const std::string& category);
    // `delete` in the original naming; a reserved word here.
    void deleteItem(const std::string& id);
    void clear(bool keepPinned);

    // Writes `data` reduced to at most `maxPixel` on the long side as a JPEG
    // to `to` (mode 0600); the cloud upload uses it to fit its size limit.
    bool downsample(std::span<const std::uint8_t> data, int maxPixel,
                    const std::filesystem::path& to);

    // Differing bits of two fingerprints; the largest integer when their
    // lengths differ.
    static std::int64_t distance(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b);

    std::optional<std::filesystem::path> databasePath() const;
    // The image folder, created (0700) when asked for.
    std::optional<std::filesystem::path> imageFolder() const;

    // ---- sync bookkeeping ----
    // What the cloud sync exchanges with the other devices. A locally
    // captured image's record name is "i_" + its lower-cased id; a remote
    // image is known first by its metadata (kept in sync_pending) and becomes
    // a row once its bytes are downloaded.

    // A captured image's record name is this and its lower-cased id.
    static constexpr std::string_view recordPrefix = "i_";

    // An image record as the sync engine sends and receives it.
    struct SyncImage {
        std::string rid;
        double created = 0;
        double modified = 0;
        double mm = 0;  // last change of pin, category or label; 0 = never
        bool pinned = false;
        std::optional<std::string> category = std::nullopt;
        std::optional<std::string> label = std::nullopt;
        std::int64_t width = 0;
        std::int64_t height = 0;
        std::optional<Bytes> fp = std::nullopt;  // 32-byte fingerprint
        std::optional<Bytes> ck = std::nullopt;  // the server's system fields of the record
        std::string file = {};  // full-size file, for uploads; empty for received records
        bool operator==(const SyncImage&) const = default;
    };

    enum class ApplyResult {
        unchanged,
        changed,    // the history changed (a known row's new picture may be pending too)
        needsData,  // remembered; its bytes must be downloaded (syncPendingDownloads)
        failed,     // the database refused it; nothing changed
    };

    struct PendingBatch {
        std::vector<SyncImage> images;        // dirty rows, newest first
        std::vector<std::string> tombstones;  // record names to delete on the server
    };

    static constexpr double tombstoneLifetime = 30 * 24 * 3600.0;
    // A remote picture is taken for a local one when captured this close in
    // time, of the same size and less than `sameRemoteImageDistance` bits
    // apart (looser than `sameImageDistance`: two devices encode differently).
    static constexpr double sameCaptureWindow = 1800.0;
    static constexpr std::int64_t sameRemoteImageDistance = 17;

    // Also drops tombstones older than `tombstoneLifetime`.
    PendingBatch syncPending(int limit);
    // Keeps `ck` (when given) and clears `dirty` unless the row changed again
    // after `modified`, the time of the uploaded version.
    void syncMarkSent(const std::string& rid, double modified, const std::optional<Bytes>& ck);
    // The server no longer has the record `ck` points to: the next upload saves a new one.
    void syncForgetTag(const std::string& rid);
    void syncRemoveTombstone(const std::string& key);
    // Record names whose bytes are still to be fetched, pinned ones first.
    std::vector<std::string> syncPendingDownloads(int limit);
    // The record is gone from the server or carries no image.
    void syncDropPending(const std::string& rid);
    // Stores the downloaded image of a pending record as a clean row, or as
    // the new picture of the row of that name, which keeps its metadata;
    // false when nothing is pending under `rid` (also once a later picture
    // was copied here), the bytes are not a readable image, or writing failed.
    bool syncStoreDownloaded(const std::string& rid, std::span<const std::uint8_t> data);
    // A deletion from another device; rows with unsent local changes stay.
    // True when a row was deleted.
    bool syncApplyDeletion(const std::string& rid);
    // Takes in a record's metadata (never its bytes). A later version of a
    // known row with another fingerprint carries a new picture: it is
    // remembered for download, and the row is not uploaded until it arrived.
    ApplyResult syncApply(const SyncImage& record);
    // The server's version of this record cannot be believed: the local
    // copy, if any, goes up again over `ck`. False without a local copy.
    bool syncReupload(const std::string& rid, const std::optional<Bytes>& ck);
    // As ClipboardStore::syncSetClockTrusted: nothing expires while this
    // computer's clock disagrees with the server's.
    void syncSetClockTrusted(bool on) { clockTrusted_ = on; }
    // Everything is uploaded afresh as new records (the sync key changed).
    void syncPrepareFullUpload();
    // The server's copy is gone (zone deleted or reset): same reset.
    void syncForgetServerState();

private:
    struct Files {
        std::string file;
        std::string thumb;
        std::string original;  // empty when only the JPEG is kept
    };

    bool ensureOpenLocked();
    // A path column of the row; none without the row or with NULL there.
    std::optional<std::string> pathOf(const std::string& id, std::string_view column);
    // The full-size JPEG, its thumbnail and the fingerprint of a picture, as
    // stored; none when it cannot be read. Slow: call it without the lock.
    std::optional<ImageCodec::Reduced> reduceForHistory(std::span<const std::uint8_t> data);
    // Writes a reduced picture's two files under a new id, and `original`
    // (the copied bytes, already within the limit) when given with its
    // extension; none (and no files left) on failure.
    struct Copied {
        std::span<const std::uint8_t> bytes;
        std::string_view extension;
    };
    std::optional<std::pair<std::string, Files>> writeFilesLocked(
        const ImageCodec::Reduced& reduced, std::optional<Copied> original = std::nullopt);
    // The copied bytes to keep beside the JPEG, if the type and the user's
    // limit allow; an image over the limit is logged.
    std::optional<Copied> keptOriginal(std::span<const std::uint8_t> data, std::string_view type);
    static void removeFiles(const std::vector<std::string>& paths);
    // Files in the image folder that no row names go; nothing does unless
    // every row could be read.
    void sweepOrphansLocked();
    // Makes the picture in `files` a new row, or the new picture of a row it
    // nearly equals, whose old files are removed once that is committed.
    bool storeLocked(const std::string& id, const Files& files, std::int64_t width,
                     std::int64_t height, std::int64_t bytes, std::span<const std::uint8_t> fp,
                     double now);
    bool insertLocked(const std::string& id, const Files& files, std::int64_t width,
                      std::int64_t height, std::int64_t bytes, std::span<const std::uint8_t> fp,
                      double now);
    // These delete rows (with their tombstones) and add the rows' files to
    // `doomedFiles`, which are removed only once the deletion is committed.
    void trimLocked(double now, std::vector<std::string>& doomedFiles);
    void expireLocked(double now, std::vector<std::string>& doomedFiles);
    std::vector<std::string> deleteRowsLocked(const std::string& condition, double now);
    // True when written or not needed (no sync key).
    bool tombstoneLocked(const std::string& condition, double now);
    std::string keptByAgeSQL(double now) const;
    template <typename Edit>
    void editLocked(Edit&& edit);
    // Sync helpers (ImageClipStoreSync.cpp); none means a statement failed.
    std::optional<ApplyResult> applyLocked(const SyncImage& record, double now);
    std::optional<ApplyResult> applyMetadataLocked(const SyncImage& record);
    // Keeps a record in sync_pending until its bytes are downloaded.
    bool rememberLocked(const SyncImage& record);
    // Retracts a remote record that will never be stored here.
    bool refuseRecordLocked(const std::string& rid, double now);
    // Forgets a received record without deleting it anywhere.
    bool skipRecordLocked(const std::string& rid);
    void resetServerStateLocked();

    StoreContext context_;
    ImageReducer& reducer_;
    std::mutex mutex_;
    std::atomic<bool> clockTrusted_{true};
    StoreDatabase file_;
    sql::Database& db_ = file_.db();
    bool swept_ = false;  // once per process, at the first open
};

}  // namespace zettly
