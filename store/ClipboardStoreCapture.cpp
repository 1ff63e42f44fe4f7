// Capture into the text history: insert with de-duplication, type detection,
// record names, trimming, expiry and tombstones.
#include <algorithm>
#include <cctype>

#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Unicode.h"
#include "store/ClipPrefs.h"
#include "store/ClipboardStore.h"
#include "store/StoreDatabase.h"

namespace zettly {

namespace {

bool startsWithIgnoringAsciiCase(std::string_view text, std::string_view lowerPrefix) {
    return text.size() >= lowerPrefix.size() &&
           std::equal(lowerPrefix.begin(), lowerPrefix.end(), text.begin(), [](char p, char t) {
               return std::tolower(static_cast<unsigned char>(t)) == p;
           });
}

}  // namespace

std::string ClipboardStore::hash(std::string_view text) {
    return crypto::sha256Hex(text);
}

std::string ClipboardStore::detectType(std::string_view text) {
    std::string_view t = unicode::trimmed(text);
    // Lower-casing can only turn ASCII letters into "http", so an ASCII
    // comparison is exact here.
    if (startsWithIgnoringAsciiCase(t, "http://") || startsWithIgnoringAsciiCase(t, "https://"))
        return "url";
    bool hasDot = t.find('.') != std::string_view::npos;
    bool hasBlank = t.find(' ') != std::string_view::npos;
    bool hasSlash = t.find('/') != std::string_view::npos;
    if (hasDot && !hasBlank && hasSlash)
        return "url";
    if (t.empty())
        return "text";
    // Deliberately narrow: "3.14" and "1,000" are text, "+1 555-0100" a number.
    return unicode::isNumericText(t) ? "number" : "text";
}

std::optional<std::string> ClipboardStore::recordName(std::string_view text,
                                                      const std::optional<Bytes>& key) {
    if (!key || key->size() != 32)
        return std::nullopt;
    return "c_" + crypto::hex(crypto::hmacSha256(*key, text));
}

std::int64_t ClipboardStore::retentionMinutes() const {
    return ClipPrefs(context_.defaults).clipboardRetentionMinutes();
}

std::string ClipboardStore::liveSQL(double now) const {
    // A clock that disagrees with the sync server's hides nothing for age.
    if (!clockTrusted_)
        return "(1)";
    double cutoff = now + static_cast<double>(retentionMinutes()) * -60.0;
    return "(" + std::string(keptByUserSQL) + " OR created >= " + sql::number(cutoff) + ")";
}

std::string ClipboardStore::liveSQL() const {
    return liveSQL(context_.clock.now());
}

std::string ClipboardStore::metaTouchSQL() const {
    return metaTouchSQL(context_.clock.now());
}

std::string ClipboardStore::metaTouchSQL(double now) {
    std::string t = sql::number(now);
    return "modified = " + t + ", mm = " + t + ", dirty = 1";
}

ClipboardStore::InsertResult ClipboardStore::insert(std::string_view text,
                                                    std::optional<std::string> type) {
    InsertResult result;
    if (!KeyboardSettings(context_.defaults).clipboardEnabled()) {
        result = InsertResult::disabled;
    } else if (text.size() > maxTextBytes) {
        result = InsertResult::tooLarge;
    } else {
        // Other programs cannot read a TEXT column holding broken UTF-8, and
        // sync could not send it; it is stored as the history window shows
        // it, and hashed as stored.
        const std::string valid = unicode::validUtf8(text);
        std::lock_guard lock(mutex_);
        result = valid.size() > maxTextBytes
                     ? InsertResult::tooLarge
                     : saveLocked([&](double now) { return insertLocked(valid, type, now); });
    }
    notifyLocalChange();
    return result;
}

template <typename Save>
ClipboardStore::InsertResult ClipboardStore::saveLocked(Save&& save) {
    file_.beginCapture();
    if (!ensureOpenLocked()) {
        file_.reportFailed();
        return InsertResult::disabled;
    }
    InsertResult result = save(context_.clock.now());
    // The file turned out damaged: it was rebuilt, and the copy goes into
    // the new one instead of being lost.
    if (result == InsertResult::failed && file_.recover())
        result = save(context_.clock.now());
    if (result == InsertResult::failed)
        file_.reportFailed();
    else
        file_.reportSaved();
    return result;
}

ClipboardStore::InsertResult ClipboardStore::replaceRecent(std::string_view previous,
                                                           std::string_view text) {
    std::optional<InsertResult> result;
    if (KeyboardSettings(context_.defaults).clipboardEnabled() && text.size() <= maxTextBytes &&
        unicode::isValidUtf8(text)) {
        std::lock_guard lock(mutex_);
        file_.beginCapture();
        if (ensureOpenLocked())
            result = replaceLocked(previous, text, context_.clock.now());
        if (result)
            file_.reportSaved();
    }
    if (!result)
        return insert(text);
    notifyLocalChange();
    return *result;
}

std::optional<ClipboardStore::InsertResult> ClipboardStore::replaceLocked(std::string_view previous,
                                                                          std::string_view text,
                                                                          double now) {
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return std::nullopt;
    sql::Statement row = db_.prepare(
        "SELECT id, ck IS NOT NULL FROM items WHERE hash = ? AND pinned = 0 AND label IS NULL "
        "AND category IS NULL");
    row.bind(1, hash(previous));
    if (row.step() != SQLITE_ROW)
        return std::nullopt;
    const std::string id = row.text(0);
    const bool uploaded = row.int64(1) != 0;
    row = {};
    // Only a step the other devices have seen is retracted there; a
    // tombstone for one they never saw would delete an equal text that they
    // copied themselves.
    if (uploaded)
        tombstoneLocked("id = " + sql::quote(id), now);

    sql::Statement existing = db_.prepare("SELECT 1 FROM items WHERE hash = ?");
    existing.bind(1, hash(text));
    const bool known = existing.step() == SQLITE_ROW;
    existing = {};
    if (known) {
        bool moved =
            sql::run(db_, "DELETE FROM items WHERE id = ?", id) &&
            sql::run(db_, "UPDATE items SET created = ?, modified = ?, dirty = 1 WHERE hash = ?",
                     now, now, hash(text)) &&
            tx.commit();
        return moved ? std::optional(InsertResult::movedToTop) : std::nullopt;
    }
    bool replaced =
        sql::run(db_,
                 "UPDATE items SET text = ?, hash = ?, type = ?, rid = ?, ck = NULL, "
                 "created = ?, modified = ?, dirty = 1 WHERE id = ?",
                 text, hash(text), detectType(text), recordName(text, syncKey()), now, now, id) &&
        tx.commit();
    return replaced ? std::optional(InsertResult::inserted) : std::nullopt;
}

ClipboardStore::InsertResult ClipboardStore::insertLocked(std::string_view text,
                                                          const std::optional<std::string>& type,
                                                          double now) {
    std::string h = hash(text);
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return InsertResult::failed;

    sql::CachedStatement update =
        db_.cached("UPDATE items SET created = ?, modified = ?, dirty = 1 WHERE hash = ?");
    update->bind(1, now);
    update->bind(2, now);
    update->bind(3, h);
    if (!*update || update->step() != SQLITE_DONE)
        return InsertResult::failed;
    if (db_.changes() > 0)
        return tx.commit() ? InsertResult::movedToTop : InsertResult::failed;

    sql::CachedStatement add = db_.cached(
        "INSERT INTO items(id, text, hash, type, created, pinned, modified, dirty, rid) "
        "VALUES(?,?,?,?,?,0,?,1,?)");
    if (!*add)
        return InsertResult::failed;
    add->bind(1, crypto::newUUID());
    add->bind(2, text);
    add->bind(3, h);
    add->bind(4, type ? *type : detectType(text));
    add->bind(5, now);
    add->bind(6, now);
    add->bind(7, recordName(text, syncKey()));
    int rc = add->step();
    if (rc == SQLITE_DONE) {
        trimLocked(now);
        if (!tx.commit())
            return InsertResult::failed;
        indexBatchLocked();
        return InsertResult::inserted;
    }
    // Another connection stored the same text between our two statements.
    if ((rc & 0xff) == SQLITE_CONSTRAINT)
        return InsertResult::movedToTop;
    return InsertResult::failed;
}

namespace {

std::string tombstoneSQL(std::string_view condition, std::string_view at) {
    return "INSERT OR REPLACE INTO sync_tombstones(key, kind, at)\nSELECT rid, 'item', " +
           std::string(at) + " FROM items WHERE rid IS NOT NULL AND (" + std::string(condition) +
           ")";
}

}  // namespace

void ClipboardStore::tombstoneLocked(std::string_view condition, double now) {
    db_.exec(tombstoneSQL(condition, sql::number(now)));
}

void ClipboardStore::trimLocked(double now) {
    // Once the history is full every new copy trims one row. The count kept
    // by triggers says how many are over, and those are the oldest unpinned
    // rows, found from the old end of their index: the cost follows the rows
    // removed, not the history's length.
    sql::CachedStatement over = db_.cached("SELECT unpinned - ? FROM item_count");
    over->bind(1, ClipPrefs(context_.defaults).clipboardLimit());
    const std::int64_t excess = over->step() == SQLITE_ROW ? over->int64(0) : 0;
    if (excess > 0) {
        const std::string oldest =
            "id IN (SELECT id FROM items WHERE pinned = 0 ORDER BY created, rowid LIMIT ?2)";
        // The removal time is bound rather than written into the text: these
        // run on every capture, and parsing them anew cost a fifth of one.
        sql::CachedStatement tombstones = db_.cached(tombstoneSQL(oldest, "?1"));
        tombstones->bind(1, now);
        tombstones->bind(2, excess);
        tombstones->run();
        sql::CachedStatement remove = db_.cached("DELETE FROM items WHERE " + oldest);
        remove->bind(2, excess);
        remove->run();
    }
    expireLocked(now);
}

void ClipboardStore::expireLocked(double now) {
    if (!clockTrusted_)
        return;
    double cutoff = now + static_cast<double>(retentionMinutes()) * -60.0;
    // Nearly every copy finds nothing to expire; asking first (a range on
    // the created index) saves parsing the two statements below each time.
    sql::CachedStatement due = db_.cached("SELECT 1 FROM items WHERE NOT " +
                                          std::string(keptByUserSQL) + " AND created < ? LIMIT 1");
    due->bind(1, cutoff);
    if (due->step() == SQLITE_DONE)
        return;
    std::string condition =
        "NOT " + std::string(keptByUserSQL) + " AND created < " + sql::number(cutoff);
    tombstoneLocked(condition, now);
    db_.exec("DELETE FROM items WHERE " + condition);
}

}  // namespace zettly
