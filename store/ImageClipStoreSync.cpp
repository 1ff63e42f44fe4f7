// The image history's side of cloud sync: which rows and deletions still have
// to go up, and how records from the other devices are folded in.
#include <algorithm>
#include <limits>

#include "platform/Clock.h"
#include "store/ClipMerge.h"
#include "store/ClipPrefs.h"
#include "store/ImageClipStore.h"

namespace zettly {

namespace {

std::string limitSQL(int limit) {
    // SQLite reads a negative LIMIT as "no limit".
    return std::to_string(std::max(limit, 0));
}

bool plausibleSize(std::int64_t pixels) {
    return pixels > 0 && pixels <= std::numeric_limits<std::int32_t>::max();
}

}  // namespace

ImageClipStore::PendingBatch ImageClipStore::syncPending(int limit) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    // A deletion the server has not taken in 30 days is given up, so an
    // unreachable record cannot hold the batch forever. A failed prune is
    // simply retried by the next pass.
    db_.exec("DELETE FROM sync_tombstones WHERE at < " +
             sql::number(context_.clock.now() - tombstoneLifetime));

    // A row whose newer picture from another device is still to be
    // downloaded waits for it: sent now, its old picture would replace the
    // newer one on the server.
    PendingBatch batch;
    sql::Statement dirty = db_.prepare(
        "SELECT rid, created, COALESCE(modified, created), pinned, category, label, w, h, fp, "
        "ck, file, COALESCE(mm, 0) FROM media\nWHERE dirty = 1 AND rid IS NOT NULL AND rid NOT "
        "IN (SELECT rid FROM sync_pending) ORDER BY created DESC LIMIT " +
        limitSQL(limit));
    int rc;
    while ((rc = dirty.step()) == SQLITE_ROW)
        batch.images.push_back(SyncImage{
            .rid = dirty.text(0),
            .created = dirty.real(1),
            .modified = dirty.real(2),
            .mm = dirty.real(11),
            .pinned = dirty.int64(3) != 0,
            .category = dirty.optionalText(4),
            .label = dirty.optionalText(5),
            .width = dirty.int64(6),
            .height = dirty.int64(7),
            .fp = dirty.blob(8),
            .ck = dirty.blob(9),
            .file = dirty.text(10),
        });
    if (rc != SQLITE_DONE)
        return {};

    sql::Statement tombstones =
        db_.prepare("SELECT key FROM sync_tombstones LIMIT " + limitSQL(limit));
    while ((rc = tombstones.step()) == SQLITE_ROW)
        batch.tombstones.push_back(tombstones.text(0));
    if (rc != SQLITE_DONE)
        return {};
    return batch;
}

void ImageClipStore::syncMarkSent(const std::string& rid, double modified,
                                  const std::optional<Bytes>& ck) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return;
    // An edit made while the upload was under way keeps the row dirty, so
    // it goes up with the next pass.
    sql::run(db_,
             "UPDATE media SET ck = COALESCE(?, ck), dirty = CASE WHEN COALESCE(modified, created) "
             "= ? THEN 0 ELSE dirty END WHERE rid = ?",
             ck, modified, rid);
}

void ImageClipStore::syncForgetTag(const std::string& rid) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        db_.exec("UPDATE media SET ck = NULL WHERE rid = " + sql::quote(rid));
}

void ImageClipStore::syncRemoveTombstone(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        db_.exec("DELETE FROM sync_tombstones WHERE key = " + sql::quote(key));
}

std::vector<std::string> ImageClipStore::syncPendingDownloads(int limit) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    sql::Statement st = db_.prepare(
        "SELECT rid FROM sync_pending ORDER BY pinned DESC, created DESC LIMIT " + limitSQL(limit));
    std::vector<std::string> rids;
    int rc;
    while ((rc = st.step()) == SQLITE_ROW)
        rids.push_back(st.text(0));
    if (rc != SQLITE_DONE)
        return {};
    return rids;
}

void ImageClipStore::syncDropPending(const std::string& rid) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        db_.exec("DELETE FROM sync_pending WHERE rid = " + sql::quote(rid));
}

bool ImageClipStore::syncStoreDownloaded(const std::string& rid,
                                         std::span<const std::uint8_t> data) {
    if (data.size() > maxInputBytes)
        return false;
    {
        // Not worth decoding for a record that was dropped meanwhile.
        std::lock_guard lock(mutex_);
        if (!ensureOpenLocked())
            return false;
        sql::Statement known = db_.prepare("SELECT 1 FROM sync_pending WHERE rid = ?");
        known.bind(1, rid);
        if (known.step() != SQLITE_ROW)
            return false;
    }
    // The bytes come from whatever client uploaded them. Storing our own
    // encoding of them means every file in the folder is an upright JPEG of
    // at most 1280 pixels without foreign metadata, and a picture that does
    // not decode never becomes a row that lists without an image.
    auto reduced = reduceForHistory(data);
    if (!reduced)
        return false;

    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return false;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return false;
    sql::Statement pending = db_.prepare(
        "SELECT created, modified, pinned, category, label, w, h, fp, ck, COALESCE(mm, 0) FROM "
        "sync_pending WHERE rid = ?");
    pending.bind(1, rid);
    if (pending.step() != SQLITE_ROW)
        return false;
    // The record's size and fingerprint are those of the sender's stored
    // file; keeping them lets a later copy of the same picture on this
    // device match the row even when the upload was sent reduced.
    std::int64_t width = pending.int64(5), height = pending.int64(6);
    if (!plausibleSize(width) || !plausibleSize(height)) {
        width = reduced->full.width;
        height = reduced->full.height;
    }
    std::optional<Bytes> fp = pending.blob(7);
    if (!fp && reduced->fingerprint)
        fp = Bytes(reduced->fingerprint->begin(), reduced->fingerprint->end());
    const auto bytes = static_cast<std::int64_t>(reduced->full.bytes.size());

    // A row of this name is a known image whose later version has another
    // picture: the row takes it and keeps the metadata syncApply merged.
    sql::Statement known = db_.prepare("SELECT file, thumb, orig FROM media WHERE rid = ?");
    known.bind(1, rid);
    int rc = known.step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        return false;
    const bool replacing = rc == SQLITE_ROW;
    std::vector<std::string> doomed;
    if (replacing)
        doomed = {known.text(0), known.text(1), known.optionalText(2).value_or("")};
    known = {};

    auto written = writeFilesLocked(*reduced);
    if (!written)
        return false;
    const auto& [id, files] = *written;
    // Otherwise a new row, clean: it equals the server's copy.
    const bool stored =
        replacing
            ? sql::run(db_,
                       // The copy kept here was of the picture it replaces.
                       "UPDATE media SET file = ?, thumb = ?, orig = NULL, w = ?, h = ?, bytes = "
                       "?, fp = ? WHERE rid = ?",
                       files.file, files.thumb, width, height, bytes, fp, rid)
            : sql::run(db_,
                       "INSERT INTO media(id, file, thumb, w, h, bytes, created, pinned, "
                       "category, label, modified, dirty, ck, rid, fp, mm)\n"
                       "VALUES(?,?,?,?,?,?,?,?,?,?,?,0,?,?,?,?)",
                       id, files.file, files.thumb, width, height, bytes, pending.real(0),
                       pending.int64(2) != 0, pending.optionalText(3), pending.optionalText(4),
                       pending.real(1), pending.blob(8), rid, fp, pending.real(9));
    pending = {};
    if (stored && sql::run(db_, "DELETE FROM sync_pending WHERE rid = ?", rid)) {
        trimLocked(context_.clock.now(), doomed);
        if (tx.commit()) {
            removeFiles(doomed);
            return true;
        }
    }
    removeFiles({files.file, files.thumb});
    return false;
}

bool ImageClipStore::syncApplyDeletion(const std::string& rid) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return false;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return false;
    sql::Statement st =
        db_.prepare("SELECT file, thumb, orig FROM media WHERE rid = ? AND dirty = 0");
    st.bind(1, rid);
    std::vector<std::string> paths;
    while (st.step() == SQLITE_ROW)
        paths.insert(paths.end(), {st.text(0), st.text(1), st.optionalText(2).value_or("")});
    st = {};
    // A row edited here since its last upload outlives the deletion: the
    // edit is newer, and its upload brings the image back on the other devices.
    std::string name = sql::quote(rid);
    if (!db_.exec("DELETE FROM media WHERE rid = " + name + " AND dirty = 0"))
        return false;
    bool deleted = db_.changes() > 0;
    if (!db_.exec("DELETE FROM sync_pending WHERE rid = " + name +
                  "; DELETE FROM sync_tombstones WHERE key = " + name) ||
        !tx.commit())
        return false;
    removeFiles(paths);
    return deleted;
}

ImageClipStore::ApplyResult ImageClipStore::syncApply(const SyncImage& record) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return ApplyResult::failed;
    // One transaction, so a failure half-way leaves the tables as they were.
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return ApplyResult::failed;
    auto result = applyLocked(record, context_.clock.now());
    if (!result || !tx.commit())
        return ApplyResult::failed;
    return *result;
}

std::optional<ImageClipStore::ApplyResult> ImageClipStore::applyLocked(const SyncImage& record,
                                                                       double now) {
    const std::string name = sql::quote(record.rid);

    sql::Statement tombstone = db_.prepare("SELECT at FROM sync_tombstones WHERE key = ?");
    tombstone.bind(1, record.rid);
    if (int rc = tombstone.step(); rc == SQLITE_ROW) {
        // A record saved no later than our deletion is the copy we deleted.
        if (!(record.modified > tombstone.real(0)))
            return ApplyResult::unchanged;
        tombstone = {};
        if (!db_.exec("DELETE FROM sync_tombstones WHERE key = " + name))
            return std::nullopt;
    } else if (rc != SQLITE_DONE) {
        return std::nullopt;
    }
    tombstone = {};

    const bool filed = record.pinned || record.category;
    const double cutoff =
        now - static_cast<double>(ClipPrefs(context_.defaults).clipboardRetentionMinutes()) * 60.0;
    // Expiry is what each device does to what it holds, by its own clock:
    // an old picture is left out here but deleted nowhere, and nothing is
    // left out while that clock disagrees with the server's.
    if (clockTrusted_ && !filed && !record.label && record.created < cutoff)
        return skipRecordLocked(record.rid) ? std::optional(ApplyResult::unchanged) : std::nullopt;

    sql::Statement known =
        db_.prepare("SELECT fp, COALESCE(modified, created) FROM media WHERE rid = ?");
    known.bind(1, record.rid);
    int rc = known.step();
    if (rc == SQLITE_ROW) {
        // Another fingerprint in a later version is another picture: a new
        // screenshot of the same window replaced it on the sender.
        const bool later = known.real(1) < record.modified;
        const bool newPicture =
            later && record.fp && !record.fp->empty() && known.blob(0) != record.fp;
        known = {};
        auto applied = applyMetadataLocked(record);
        if (!applied)
            return std::nullopt;
        if (newPicture) {
            if (!rememberLocked(record))
                return std::nullopt;
            return *applied == ApplyResult::changed ? ApplyResult::changed : ApplyResult::needsData;
        }
        // A picture still pending from an earlier version is not the latest one.
        if (later && !sql::run(db_, "DELETE FROM sync_pending WHERE rid = ?", record.rid))
            return std::nullopt;
        return applied;
    }
    known = {};
    if (rc != SQLITE_DONE)
        return std::nullopt;

    // The same screenshot copied on two devices: both captured it under
    // their own names, and they converge on the name that sorts first.
    if (record.fp && !record.fp->empty()) {
        sql::Statement same = db_.prepare(
            "SELECT rid, fp, COALESCE(modified, created), created, ck FROM media\nWHERE w = ? AND "
            "h = ? AND fp IS NOT NULL AND rid != ? AND ABS(created - ?) < " +
            sql::number(sameCaptureWindow) + "\nORDER BY rid");
        same.bind(1, record.width);
        same.bind(2, record.height);
        same.bind(3, record.rid);
        same.bind(4, record.created);
        std::optional<std::string> match;
        bool uploaded = false;
        while ((rc = same.step()) == SQLITE_ROW) {
            auto fp = same.blob(1);
            if (fp && distance(*fp, *record.fp) < sameRemoteImageDistance) {
                match = same.text(0);
                uploaded = !same.isNull(4);
                break;
            }
        }
        same = {};
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            return std::nullopt;
        if (match) {
            // Other devices already know the local name: keep it.
            if (uploaded && *match < record.rid)
                return refuseRecordLocked(record.rid, now) ? std::optional(ApplyResult::unchanged)
                                                           : std::nullopt;
            std::string local = sql::quote(*match);
            if (!tombstoneLocked("rid = " + local, now) ||
                !db_.exec("UPDATE media SET rid = " + name +
                          ", ck = NULL, dirty = 1 WHERE rid = " + local) ||
                !db_.exec("DELETE FROM sync_pending WHERE rid = " + name) ||
                !applyMetadataLocked(record))
                return std::nullopt;
            return ApplyResult::changed;
        }
    }

    // A picture older than everything the history keeps would only be
    // downloaded to be trimmed again.
    if (!filed) {
        sql::Statement room = db_.prepare(
            "SELECT COUNT(*), MIN(created) FROM (SELECT created FROM media WHERE pinned = 0 ORDER "
            "BY created DESC LIMIT 15)");
        if (room.step() != SQLITE_ROW)
            return std::nullopt;
        bool full = room.int64(0) >= keptPositions && record.created <= room.real(1);
        room = {};
        if (full)
            return skipRecordLocked(record.rid) ? std::optional(ApplyResult::unchanged)
                                                : std::nullopt;
    }

    if (!rememberLocked(record))
        return std::nullopt;
    return ApplyResult::needsData;
}

bool ImageClipStore::rememberLocked(const SyncImage& record) {
    sql::Statement remember = db_.prepare(
        "INSERT OR REPLACE INTO sync_pending(rid, created, modified, pinned, category, label, w, "
        "h, fp, ck, mm)\nVALUES(?,?,?,?,?,?,?,?,?,?,?)");
    remember.bind(1, record.rid);
    remember.bind(2, record.created);
    remember.bind(3, record.modified);
    remember.bind(4, record.pinned);
    remember.bind(5, record.category);
    remember.bind(6, record.label);
    remember.bind(7, record.width);
    remember.bind(8, record.height);
    remember.bind(9, record.fp);
    remember.bind(10, record.ck);
    remember.bind(11, record.mm);
    return remember.run();
}

std::optional<ImageClipStore::ApplyResult> ImageClipStore::applyMetadataLocked(
    const SyncImage& record) {
    sql::Statement st = db_.prepare(
        "SELECT COALESCE(modified, created), created, COALESCE(mm, 0), pinned, category, label "
        "FROM media WHERE rid = ?");
    st.bind(1, record.rid);
    if (st.step() != SQLITE_ROW)
        return std::nullopt;
    ClipMerge::Side local{st.real(0),       st.real(1),         st.real(2),
                          st.int64(3) != 0, st.optionalText(4), st.optionalText(5)};
    st = {};
    ClipMerge::Side remote{record.modified, record.created,  record.mm,
                           record.pinned,   record.category, record.label};
    auto merged = ClipMerge::merge(local, remote);

    // The row takes the record's system fields whatever the merge decided:
    // they are what the next save needs to replace the server's copy.
    const ClipMerge::Side& side = merged.side;
    if (!sql::run(
            db_,
            "UPDATE media SET created = ?, pinned = ?, category = ?, label = ?, modified = ?, "
            "mm = ?,\ndirty = CASE WHEN ? THEN 1 ELSE dirty END, ck = ? WHERE rid = ?",
            side.created, side.pinned, side.category, side.label, side.modified, side.mm,
            merged.needsUpload, record.ck, record.rid))
        return std::nullopt;
    // The row now equals the server's copy.
    if (!merged.needsUpload &&
        !db_.exec("UPDATE media SET dirty = 0 WHERE rid = " + sql::quote(record.rid)))
        return std::nullopt;
    return merged.localChanged ? ApplyResult::changed : ApplyResult::unchanged;
}

bool ImageClipStore::refuseRecordLocked(const std::string& rid, double now) {
    // The tombstone deletes the record on the server and the other devices,
    // as trimming it here would have.
    std::string name = sql::quote(rid);
    return db_.exec("INSERT OR REPLACE INTO sync_tombstones(key, at) VALUES(" + name + ", " +
                    sql::number(now) + ")") &&
           db_.exec("DELETE FROM sync_pending WHERE rid = " + name);
}

bool ImageClipStore::skipRecordLocked(const std::string& rid) {
    return sql::run(db_, "DELETE FROM sync_pending WHERE rid = ?", rid);
}

bool ImageClipStore::syncReupload(const std::string& rid, const std::optional<Bytes>& ck) {
    std::lock_guard lock(mutex_);
    return ensureOpenLocked() &&
           sql::run(db_, "UPDATE media SET dirty = 1, ck = ? WHERE rid = ?", ck, rid) &&
           db_.changes() > 0;
}

void ImageClipStore::resetServerStateLocked() {
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (tx.begun() && db_.exec("UPDATE media SET ck = NULL, dirty = 1, modified = "
                               "COALESCE(modified, created);\nDELETE FROM sync_pending;"))
        tx.commit();
}

void ImageClipStore::syncPrepareFullUpload() {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        resetServerStateLocked();
}

void ImageClipStore::syncForgetServerState() {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        resetServerStateLocked();
}

}  // namespace zettly
