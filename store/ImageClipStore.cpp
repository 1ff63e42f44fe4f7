#include "store/ImageClipStore.h"

#include <bit>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Files.h"
#include "platform/Log.h"
#include "platform/Unicode.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/ImageCodec.h"
#include "store/PrefKeys.h"
#include "store/StoreDatabase.h"

namespace zettly {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS media(\n"
    "    id TEXT PRIMARY KEY,\n"
    "    file TEXT NOT NULL,\n"
    "    thumb TEXT NOT NULL,\n"
    "    w INTEGER NOT NULL,\n"
    "    h INTEGER NOT NULL,\n"
    "    bytes INTEGER NOT NULL,\n"
    "    created REAL NOT NULL,\n"
    "    pinned INTEGER NOT NULL DEFAULT 0\n"
    ");\n"
    "CREATE INDEX IF NOT EXISTS idx_media_created ON media(created DESC);";

constexpr const char* kSyncSchema =
    "UPDATE media SET rid = 'i_' || lower(id) WHERE rid IS NULL;\n"
    "UPDATE media SET modified = created, dirty = 1 WHERE modified IS NULL;\n"
    "CREATE INDEX IF NOT EXISTS idx_media_rid ON media(rid);\n"
    "CREATE TABLE IF NOT EXISTS sync_tombstones(key TEXT PRIMARY KEY, at REAL NOT NULL);\n"
    "CREATE TABLE IF NOT EXISTS sync_pending(\n"
    "    rid TEXT PRIMARY KEY, created REAL NOT NULL, modified REAL NOT NULL, pinned INTEGER NOT "
    "NULL,\n"
    "    category TEXT, label TEXT, w INTEGER NOT NULL, h INTEGER NOT NULL, fp BLOB, ck BLOB\n"
    ");";

void applySchema(sql::Database& db) {
    db.exec(kSchema);
    for (auto [column, decl] : {std::pair{"category", "TEXT"},
                                {"label", "TEXT"},
                                {"modified", "REAL"},
                                {"dirty", "INTEGER NOT NULL DEFAULT 0"},
                                {"ck", "BLOB"},
                                {"rid", "TEXT"},
                                {"fp", "BLOB"},
                                {"mm", "REAL"},
                                // The picture as copied; local only, NULL
                                // when none was kept.
                                {"orig", "TEXT"}})
        ensureColumn(db, "media", column, decl);
    db.exec(kSyncSchema);
    ensureColumn(db, "sync_pending", "mm", "REAL");
    db.exec(
        "UPDATE media SET mm = COALESCE(modified, created) WHERE mm IS NULL AND (pinned = 1 OR "
        "category IS NOT NULL OR label IS NOT NULL)");
}

StoreSchema imageSchema() {
    return StoreSchema{
        .fileName = "clipmedia.sqlite",
        .tables =
            {
                {.name = "media",
                 .columns = {{"id", "TEXT"},
                             {"file", "TEXT"},
                             {"thumb", "TEXT"},
                             {"w", "INTEGER"},
                             {"h", "INTEGER"},
                             {"bytes", "INTEGER"},
                             {"created", "REAL"},
                             {"pinned", "INTEGER"},
                             {"category", "TEXT"},
                             {"label", "TEXT"},
                             {"modified", "REAL"},
                             {"dirty", "INTEGER"},
                             {"ck", "BLOB"},
                             {"rid", "TEXT"},
                             {"fp", "BLOB"},
                             {"mm", "REAL"},
                             {"orig", "TEXT"}},
                 .required = 8,
                 .keptFirst = keptByUserSQL},
                {.name = "sync_tombstones",
                 .columns = {{"key", "TEXT"}, {"at", "REAL"}},
                 .required = 2},
                {.name = "sync_pending",
                 .columns = {{"rid", "TEXT"},
                             {"created", "REAL"},
                             {"modified", "REAL"},
                             {"pinned", "INTEGER"},
                             {"category", "TEXT"},
                             {"label", "TEXT"},
                             {"w", "INTEGER"},
                             {"h", "INTEGER"},
                             {"fp", "BLOB"},
                             {"ck", "BLOB"},
                             {"mm", "REAL"}},
                 .required = 10},
            },
        .apply = applySchema,
    };
}

// A row's `orig`: NULL when no original was kept.
std::optional<std::string> unlessEmpty(const std::string& path) {
    return path.empty() ? std::nullopt : std::optional(path);
}

bool fitsInt32(std::int64_t v) {
    return v >= std::numeric_limits<std::int32_t>::min() &&
           v <= std::numeric_limits<std::int32_t>::max();
}

// Creates the file (mode 0600, never over an existing one) and writes it.
// No fsync: the database commit is what makes an image part of the history,
// and a file lost to a power cut only leaves a row without its picture.
bool writeNewPrivateFile(const fs::path& path, std::span<const std::uint8_t> data) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return false;
    const auto* p = data.data();
    std::size_t left = data.size();
    while (left > 0) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            // The caller reports why (a full disk), so errno must survive
            // the clean-up.
            int why = n < 0 ? errno : ENOSPC;
            ::close(fd);
            ::unlink(path.c_str());
            errno = why;
            return false;
        }
        p += n;
        left -= static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) {
        int why = errno;
        ::unlink(path.c_str());
        errno = why;
        return false;
    }
    return true;
}

}  // namespace

void ImageClipStore::removeFiles(const std::vector<std::string>& paths) {
    std::error_code ignored;
    for (const std::string& path : paths)
        if (!path.empty())
            fs::remove(path, ignored);
}

ImageClipStore::ImageClipStore(StoreContext context, ImageReducer& reducer)
    : context_(std::move(context)), reducer_(reducer), file_(imageSchema(), context_) {}

std::optional<fs::path> ImageClipStore::databasePath() const {
    return file_.path();
}

std::optional<fs::path> ImageClipStore::imageFolder() const {
    auto folder = libraryPath(context_, "clipmedia");
    std::error_code ec;
    if (!folder || !files::createPrivateDirectories(*folder, ec))
        return std::nullopt;
    return folder;
}

bool ImageClipStore::open() {
    std::lock_guard lock(mutex_);
    return ensureOpenLocked();
}

bool ImageClipStore::ensureOpenLocked() {
    // Damage a statement ran into since is repaired before the next one.
    file_.recover();
    if (!file_.open())
        return false;
    if (!swept_) {
        swept_ = true;
        sweepOrphansLocked();
    }
    return true;
}

std::int64_t ImageClipStore::distance(std::span<const std::uint8_t> a,
                                      std::span<const std::uint8_t> b) {
    if (a.size() != b.size())
        return std::numeric_limits<std::int64_t>::max();
    std::int64_t bits = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        bits += std::popcount<std::uint8_t>(a[i] ^ b[i]);
    return bits;
}

bool ImageClipStore::downsample(std::span<const std::uint8_t> data, int maxPixel,
                                const fs::path& to) {
    auto reduced = reducer_.reduce(
        data, {.maxPixel = maxPixel, .thumbPixel = std::nullopt, .fingerprint = false});
    if (!reduced)
        return false;
    std::error_code ignored;
    fs::remove(to, ignored);
    return writeNewPrivateFile(to, reduced->full.bytes);
}

std::optional<ImageCodec::Reduced> ImageClipStore::reduceForHistory(
    std::span<const std::uint8_t> data) {
    auto reduced = reducer_.reduce(
        data, {.maxPixel = fullPixels, .thumbPixel = thumbPixels, .fingerprint = true});
    if (!reduced || !reduced->thumb)
        return std::nullopt;
    return reduced;
}

// Under the lock, so a clear that empties the history (and removes the
// folder) cannot slip in between the files and their row.
std::optional<std::pair<std::string, ImageClipStore::Files>> ImageClipStore::writeFilesLocked(
    const ImageCodec::Reduced& reduced, std::optional<Copied> original) {
    auto folder = imageFolder();
    if (!folder || !reduced.thumb)
        return std::nullopt;
    std::string id = crypto::newUUID();
    Files files{(*folder / (id + ".jpg")).string(), (*folder / (id + "_t.jpg")).string(), {}};
    if (!writeNewPrivateFile(files.file, reduced.full.bytes))
        return std::nullopt;
    if (!writeNewPrivateFile(files.thumb, reduced.thumb->bytes)) {
        int why = errno;
        removeFiles({files.file});
        errno = why;
        return std::nullopt;
    }
    if (original) {
        // Only the paste at full quality is lost: the entry is still saved.
        fs::path path =
            *folder / (id + std::string(originalInfix) + std::string(original->extension));
        if (writeNewPrivateFile(path, original->bytes))
            files.original = path.string();
        else
            context_.log.line("[Zettly] the copied image could not be kept as copied (" +
                              std::string(std::strerror(errno)) +
                              "); only its reduced copy is saved");
    }
    return std::pair{std::move(id), std::move(files)};
}

ImageClipStore::SaveResult ImageClipStore::save(std::span<const std::uint8_t> data,
                                                std::string_view type) {
    if (!KeyboardSettings(context_.defaults).clipboardEnabled())
        return SaveResult::disabled;
    if (data.size() > maxInputBytes)
        return SaveResult::tooLarge;

    // Decoding is the slow part and needs no lock.
    auto reduced = reduceForHistory(data);
    if (!reduced)
        return SaveResult::failed;
    const auto& fp = reduced->fingerprint;
    const auto original = keptOriginal(data, type);

    std::lock_guard lock(mutex_);
    file_.beginCapture();
    if (!ensureOpenLocked()) {
        file_.reportFailed();
        return SaveResult::failed;
    }
    auto store = [&]() -> std::optional<int> {
        errno = 0;
        auto written = writeFilesLocked(*reduced, original);
        if (!written)
            return errno != 0 ? errno : EIO;
        const auto& [id, files] = *written;
        if (storeLocked(id, files, reduced->full.width, reduced->full.height,
                        static_cast<std::int64_t>(reduced->full.bytes.size()),
                        fp ? std::span<const std::uint8_t>(*fp) : std::span<const std::uint8_t>(),
                        context_.clock.now()))
            return std::nullopt;
        removeFiles({files.file, files.thumb, files.original});
        return 0;
    };
    std::optional<int> failure = store();
    // The database turned out damaged: it was rebuilt, and the picture goes
    // into the new one instead of being lost.
    if (failure && *failure == 0 && file_.recover())
        failure = store();
    if (!failure) {
        file_.reportSaved();
        return SaveResult::saved;
    }
    // A full disk fails saves: the space earlier crashes left behind helps
    // now rather than at the next start.
    sweepOrphansLocked();
    if (*failure != 0)
        file_.reportFailed(*failure);  // a picture file could not be written
    else
        file_.reportFailed();
    return SaveResult::failed;
}

bool ImageClipStore::storeLocked(const std::string& id, const Files& files, std::int64_t width,
                                 std::int64_t height, std::int64_t bytes,
                                 std::span<const std::uint8_t> fp, double now) {
    // Sizes come from a decoder limited to 1280 pixels and a 16 MiB input;
    // anything outside 32 bits is a broken image, not a row.
    if (!fitsInt32(width) || !fitsInt32(height) || !fitsInt32(bytes))
        return false;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return false;

    std::optional<std::string> sameId;
    std::vector<std::string> doomed;
    if (!fp.empty()) {
        sql::Statement same = db_.prepare(
            "SELECT id, fp, file, thumb, orig FROM media WHERE w = ? AND h = ? AND fp IS NOT NULL "
            "ORDER BY created DESC LIMIT 30");
        same.bind(1, width);
        same.bind(2, height);
        while (!sameId && same.step() == SQLITE_ROW) {
            auto other = same.blob(1);
            if (other && distance(fp, *other) < sameImageDistance) {
                sameId = same.text(0);
                doomed = {same.text(2), same.text(3), same.optionalText(4).value_or("")};
            }
        }
    }
    if (sameId) {
        // Two screenshots of one window a few lines apart look alike to the
        // fingerprint: the entry stays one, but it pastes what was copied last.
        if (!sql::run(db_,
                      "UPDATE media SET file = ?, thumb = ?, orig = ?, bytes = ?, fp = ?, "
                      "created = ?, modified = ?, dirty = 1 WHERE id = ?",
                      files.file, files.thumb, unlessEmpty(files.original), bytes, fp, now, now,
                      *sameId))
            return false;
        // Another device's earlier picture of the entry, still to be
        // downloaded, would replace this later one.
        if (!sql::run(db_,
                      "DELETE FROM sync_pending WHERE modified <= ? AND rid = (SELECT rid FROM "
                      "media WHERE id = ?)",
                      now, *sameId))
            return false;
    } else if (!insertLocked(id, files, width, height, bytes, fp, now)) {
        return false;
    }
    trimLocked(now, doomed);
    expireLocked(now, doomed);
    if (!tx.commit())
        return false;
    removeFiles(doomed);
    return true;
}

bool ImageClipStore::insertLocked(const std::string& id, const Files& files, std::int64_t width,
                                  std::int64_t height, std::int64_t bytes,
                                  std::span<const std::uint8_t> fp, double now) {
    sql::Statement insert = db_.prepare(
        "INSERT INTO media(id, file, thumb, w, h, bytes, created, pinned, modified, dirty, rid, "
        "fp, orig)\nVALUES(?,?,?,?,?,?,?,0,?,1,?,?,?)");
    insert.bind(1, id);
    insert.bind(2, files.file);
    insert.bind(3, files.thumb);
    insert.bind(4, width);
    insert.bind(5, height);
    insert.bind(6, bytes);
    insert.bind(7, now);
    insert.bind(8, now);
    insert.bind(9, std::string(recordPrefix) + unicode::lowercased(id));
    if (fp.empty())
        insert.bindNull(10);
    else
        insert.bind(10, fp);
    if (files.original.empty())
        insert.bindNull(11);
    else
        insert.bind(11, files.original);
    return insert.run();
}

bool ImageClipStore::tombstoneLocked(const std::string& condition, double now) {
    // Without a sync key nothing was ever shared, so there is nothing to retract.
    if (!context_.defaults.data(prefkey::clipSyncKey))
        return true;
    return db_.exec("INSERT OR REPLACE INTO sync_tombstones(key, at)\nSELECT rid, " +
                    sql::number(now) + " FROM media WHERE rid IS NOT NULL AND (" + condition + ")");
}

std::vector<std::string> ImageClipStore::deleteRowsLocked(const std::string& condition,
                                                          double now) {
    sql::Statement st = db_.prepare("SELECT file, thumb, orig FROM media WHERE " + condition);
    std::vector<std::string> paths;
    while (st.step() == SQLITE_ROW)
        paths.insert(paths.end(), {st.text(0), st.text(1), st.optionalText(2).value_or("")});
    st = {};
    tombstoneLocked(condition, now);
    if (!db_.exec("DELETE FROM media WHERE " + condition))
        return {};  // the files stay too
    return paths;
}

void ImageClipStore::trimLocked(double now, std::vector<std::string>& doomedFiles) {
    sql::Statement walk =
        db_.prepare("SELECT id, file, thumb, bytes, pinned FROM media ORDER BY created DESC");
    std::vector<std::string> doomed;
    std::int64_t position = 0;
    std::int64_t total = 0;
    while (walk.step() == SQLITE_ROW) {
        total += walk.int64(3);
        bool pinned = walk.int64(4) != 0;
        // Pinned images are kept, but they take up positions and bytes.
        if (!pinned && (position >= keptPositions || total > keptBytes))
            doomed.push_back(walk.text(0));
        ++position;
    }
    walk = {};
    for (const std::string& id : doomed) {
        auto paths = deleteRowsLocked("id = " + sql::quote(id), now);
        doomedFiles.insert(doomedFiles.end(), paths.begin(), paths.end());
    }
}

std::string ImageClipStore::keptByAgeSQL(double now) const {
    if (!clockTrusted_)
        return "(1)";
    double cutoff =
        now - static_cast<double>(ClipPrefs(context_.defaults).clipboardRetentionMinutes()) * 60.0;
    return "(label IS NOT NULL OR created >= " + sql::number(cutoff) + ")";
}

void ImageClipStore::expireLocked(double now, std::vector<std::string>& doomedFiles) {
    if (!clockTrusted_)
        return;
    auto paths = deleteRowsLocked("pinned = 0 AND NOT " + keptByAgeSQL(now), now);
    doomedFiles.insert(doomedFiles.end(), paths.begin(), paths.end());
}

std::vector<ImageClipStore::Item> ImageClipStore::fetchAll() {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    sql::Statement st = db_.prepare(
        "SELECT id, file, thumb, w, h, bytes, created, pinned, category, label FROM media\n"
        "WHERE id IN (SELECT id FROM media WHERE pinned = 1 ORDER BY created DESC LIMIT ?)\n"
        "   OR id IN (SELECT id FROM media WHERE pinned = 0 AND " +
        keptByAgeSQL(context_.clock.now()) +
        "\n             ORDER BY created DESC LIMIT ?)\n"
        "ORDER BY (pinned = 1 AND category IS NULL) DESC, created DESC");
    st.bind(1, listedPinned);
    st.bind(2, keptPositions);
    std::vector<Item> items;
    while (st.step() == SQLITE_ROW)
        items.push_back(Item{st.text(0), st.text(1), st.text(2), st.int64(3), st.int64(4),
                             st.int64(5), st.real(6), st.int64(7) != 0, st.optionalText(8),
                             st.optionalText(9)});
    return items;
}

template <typename Edit>
void ImageClipStore::editLocked(Edit&& edit) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        edit(context_.clock.now());
}

void ImageClipStore::setPinned(const std::string& id, bool pinned) {
    editLocked([&](double now) {
        sql::run(db_,
                 std::string(pinned ? "UPDATE media SET pinned = ?, "
                                    : "UPDATE media SET pinned = ?, category = NULL, ") +
                     ClipboardStore::metaTouchSQL(now) + " WHERE id = ?",
                 pinned, id);
    });
}

void ImageClipStore::setCategory(const std::string& id,
                                 const std::optional<std::string>& category) {
    editLocked([&](double now) {
        sql::run(db_,
                 "UPDATE media SET category = ?, pinned = 1, " + ClipboardStore::metaTouchSQL(now) +
                     " WHERE id = ?",
                 category, id);
    });
}

void ImageClipStore::setLabel(const std::string& id, const std::optional<std::string>& label) {
    // Named like a text entry.
    std::optional<std::string> prepared = ClipboardStore::prepareLabel(label);
    editLocked([&](double now) {
        sql::run(
            db_,
            "UPDATE media SET label = ?, " + ClipboardStore::metaTouchSQL(now) + " WHERE id = ?",
            prepared, id);
    });
}

void ImageClipStore::detachCategory(const std::string& category) {
    editLocked([&](double) {
        sql::run(db_, "UPDATE media SET category = NULL WHERE category = ?", category);
    });
}

void ImageClipStore::deleteItem(const std::string& id) {
    editLocked([&](double now) {
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        auto doomed = deleteRowsLocked("id = " + sql::quote(id), now);
        if (tx.commit())
            removeFiles(doomed);
    });
}

void ImageClipStore::clear(bool keepPinned) {
    editLocked([&](double now) {
        // A full clear still keeps images filed in a category.
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        auto doomed = deleteRowsLocked(keepPinned ? "pinned = 0" : "category IS NULL", now);
        if (!tx.commit())
            return;
        removeFiles(doomed);
        sql::Statement count = db_.prepare("SELECT COUNT(*) FROM media");
        if (count.step() == SQLITE_ROW && count.int64(0) == 0) {
            // Also sweeps files that a crash left without a row; the folder
            // is made again by the next save.
            if (auto folder = imageFolder()) {
                std::error_code ignored;
                fs::remove_all(*folder, ignored);
            }
        }
    });
}

}  // namespace zettly
