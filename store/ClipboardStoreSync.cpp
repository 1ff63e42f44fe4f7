// The text history's cloud sync bookkeeping: pending changes, confirmed
// sends, records and deletions taken in from the cloud, and re-keying.
#include <algorithm>
#include <utility>

#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "store/ClipMerge.h"
#include "store/ClipboardStore.h"
#include "store/SearchIndex.h"

namespace zettly {

namespace {

// Deletions that could not be reported for a month are given up: by then
// every device has expired or trimmed the row on its own.
constexpr double kTombstoneLifetime = 2592000.0;

enum class Tombstone { none, deletionWins, superseded, unreadable };

// What a local deletion not yet reported says about a record that arrives
// with `modified`: a deletion at the same time or later wins over it.
Tombstone checkTombstone(sql::Database& db, const std::string& key, double modified) {
    sql::Statement st = db.prepare("SELECT at FROM sync_tombstones WHERE key = ?");
    st.bind(1, key);
    int rc = st.step();
    if (rc == SQLITE_DONE)
        return Tombstone::none;
    if (rc != SQLITE_ROW)
        return Tombstone::unreadable;
    // Written so that a NaN time keeps the deletion.
    return modified > st.real(0) ? Tombstone::superseded : Tombstone::deletionWins;
}

// Clears the way for a record newer than the local deletion: true when it
// may be taken in, false when the deletion wins, none when the database
// failed.
std::optional<bool> passTombstone(sql::Database& db, const std::string& key, double modified) {
    switch (checkTombstone(db, key, modified)) {
        case Tombstone::none:
            return true;
        case Tombstone::superseded:
            if (!db.exec("DELETE FROM sync_tombstones WHERE key = " + sql::quote(key)))
                return std::nullopt;
            return true;
        case Tombstone::deletionWins:
            return false;
        case Tombstone::unreadable:
            return std::nullopt;
    }
    return std::nullopt;
}

}  // namespace

bool ClipboardStore::fillRecordNamesLocked(const Bytes& key) {
    std::vector<std::pair<std::string, std::string>> names;  // id, record name
    {
        sql::Statement rows = db_.prepare("SELECT id, text FROM items WHERE rid IS NULL");
        if (!rows)
            return false;
        int rc;
        while ((rc = rows.step()) == SQLITE_ROW)
            if (auto name = recordName(rows.text(1), key))
                names.emplace_back(rows.text(0), std::move(*name));
        if (rc != SQLITE_DONE)
            return false;
    }
    sql::Statement update = db_.prepare("UPDATE items SET rid = ? WHERE id = ?");
    bool ok = update.valid();
    for (const auto& [id, name] : names) {
        update.bind(1, name);
        update.bind(2, id);
        ok = update.run() && ok;
        update.reset();
    }
    return ok;
}

ClipboardStore::SyncPending ClipboardStore::syncPending(std::int64_t limit) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    double now = context_.clock.now();
    std::string count = std::to_string(std::max<std::int64_t>(limit, 0));
    {
        // Rows copied before the sync key existed get their names now; the
        // housekeeping is all or nothing, the reads below do not depend on it.
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        if (tx.begun()) {
            std::optional<Bytes> key = syncKey();
            bool ok = !key || fillRecordNamesLocked(*key);
            ok = db_.exec("DELETE FROM sync_tombstones WHERE at < " +
                          sql::number(now - kTombstoneLifetime)) &&
                 ok;
            if (ok)
                tx.commit();
        }
    }

    SyncPending out;
    sql::Statement items = db_.prepare(
        "SELECT rid, text, type, created, COALESCE(modified, created), pinned, category, label, "
        "ck, COALESCE(mm, 0) FROM items WHERE dirty = 1 AND rid IS NOT NULL ORDER BY created "
        "DESC LIMIT " +
        count);
    int rc;
    while ((rc = items.step()) == SQLITE_ROW)
        out.items.push_back(SyncItem{items.text(0), items.text(1), items.text(2), items.real(3),
                                     items.real(4), items.real(9), items.int64(5) != 0,
                                     items.optionalText(6), items.optionalText(7), items.blob(8)});
    if (rc != SQLITE_DONE)
        return {};

    sql::Statement categories = db_.prepare(
        "SELECT id, name, sort, created, COALESCE(modified, created), ck FROM categories WHERE "
        "dirty = 1");
    while ((rc = categories.step()) == SQLITE_ROW)
        out.categories.push_back(SyncCategory{categories.text(0), categories.text(1),
                                              categories.real(2), categories.real(3),
                                              categories.real(4), categories.blob(5)});
    if (rc != SQLITE_DONE)
        return {};

    sql::Statement tombstones =
        db_.prepare("SELECT key, kind, at FROM sync_tombstones LIMIT " + count);
    while ((rc = tombstones.step()) == SQLITE_ROW)
        out.tombstones.push_back(
            SyncTombstone{tombstones.text(0), tombstones.text(1), tombstones.real(2)});
    if (rc != SQLITE_DONE)
        return {};
    return out;
}

bool ClipboardStore::syncMarkSentItemLocked(const std::string& rid, double modified,
                                            const std::optional<Bytes>& ck) {
    // The row stays dirty when it changed after the snapshot that was sent.
    sql::CachedStatement update = db_.cached(
        "UPDATE items SET ck = ?, dirty = CASE WHEN COALESCE(modified, created) = ? THEN 0 "
        "ELSE dirty END WHERE rid = ?");
    update->bind(1, ck);
    update->bind(2, modified);
    update->bind(3, rid);
    return update->run();
}

void ClipboardStore::syncMarkSentItem(const std::string& rid, double modified,
                                      const std::optional<Bytes>& ck) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        syncMarkSentItemLocked(rid, modified, ck);
}

void ClipboardStore::syncMarkSentItems(const std::vector<SyncSent>& sent) {
    if (sent.empty())
        return;
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return;
    // A first upload confirms thousands of rows; one commit (one journal and
    // its syncs) for all of them instead of one each.
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return;
    for (const auto& one : sent)
        syncMarkSentItemLocked(one.rid, one.modified, one.ck);
    tx.commit();
}

void ClipboardStore::syncMarkSentCategory(const std::string& id, double modified,
                                          const std::optional<Bytes>& ck) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return;
    sql::run(db_,
             "UPDATE categories SET ck = ?, dirty = CASE WHEN COALESCE(modified, created) = ? "
             "THEN 0 ELSE dirty END WHERE id = ?",
             ck, modified, id);
}

void ClipboardStore::syncForgetItemTag(const std::string& rid) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        sql::run(db_, "UPDATE items SET ck = NULL WHERE rid = ?", rid);
}

void ClipboardStore::syncForgetCategoryTag(const std::string& id) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        sql::run(db_, "UPDATE categories SET ck = NULL WHERE id = ?", id);
}

void ClipboardStore::syncRemoveTombstone(const std::string& key) {
    std::lock_guard lock(mutex_);
    if (ensureOpenLocked())
        sql::run(db_, "DELETE FROM sync_tombstones WHERE key = ?", key);
}

namespace {

bool acceptable(const ClipboardStore::SyncItem& item) {
    // Nothing the capture side could have stored either.
    return !item.rid.empty() && item.text.size() <= ClipboardStore::maxTextBytes;
}

}  // namespace

ClipboardStore::ApplyOutcome ClipboardStore::syncApplyLocked(const SyncItem& item, double now) {
    auto pass = passTombstone(db_, item.rid, item.modified);
    if (!pass || !*pass)
        return {.ok = pass.has_value()};

    // The same text copied on this device before the key was shared has
    // another (or no) record name: it is found by its hash and adopts the
    // received one.
    std::string h = hash(item.text);
    sql::Statement local = db_.prepare(
        "SELECT COALESCE(modified, created), created, COALESCE(mm, 0), pinned, category, label "
        "FROM items\nWHERE rid = ? OR hash = ? LIMIT 1");
    local.bind(1, item.rid);
    local.bind(2, h);
    int rc = local.step();
    if (rc == SQLITE_ROW) {
        ClipMerge::Side mine{.modified = local.real(0),
                             .created = local.real(1),
                             .mm = local.real(2),
                             .pinned = local.int64(3) != 0,
                             .category = local.optionalText(4),
                             .label = local.optionalText(5)};
        local = {};
        ClipMerge::Side theirs{.modified = item.modified,
                               .created = item.created,
                               .mm = item.mm,
                               .pinned = item.pinned,
                               .category = item.category,
                               .label = item.label};
        ClipMerge::Result merged = ClipMerge::merge(mine, theirs);
        const ClipMerge::Side& side = merged.side;
        bool stored = sql::run(
            db_,
            "UPDATE items SET type = ?, created = ?, pinned = ?, category = ?, label = ?, "
            "modified = ?, mm = ?,\ndirty = CASE WHEN ? THEN 1 ELSE 0 END, ck = ?, rid = ? WHERE "
            "hash = ?",
            item.type, side.created, side.pinned, side.category, side.label, side.modified, side.mm,
            merged.needsUpload, item.ck, item.rid, h);
        return {.ok = stored, .changed = merged.localChanged};
    }
    if (rc != SQLITE_DONE)
        return {};
    local = {};

    // An entry older than the history keeps is not taken in: expiry is
    // what each device does to what it holds, by its own clock, so nothing
    // is deleted anywhere for it, and nothing is left out while that clock
    // disagrees with the server's.
    bool keptByUser = item.pinned || item.category || item.label;
    double cutoff = now + static_cast<double>(retentionMinutes()) * -60.0;
    if (clockTrusted_ && !keptByUser && item.created < cutoff)
        return {.ok = true};

    bool stored = sql::run(
        db_,
        "INSERT INTO items(id, text, hash, type, created, pinned, category, label, modified, "
        "dirty, ck, rid, mm)\nVALUES(?,?,?,?,?,?,?,?,?,0,?,?,?)",
        crypto::newUUID(), item.text, h, item.type, item.created, item.pinned, item.category,
        item.label, item.modified, item.ck, item.rid, item.mm);
    return {.ok = stored, .changed = stored, .inserted = stored};
}

bool ClipboardStore::syncApply(const SyncItem& item) {
    if (!acceptable(item))
        return false;
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return false;
    double now = context_.clock.now();
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return false;
    ApplyOutcome outcome = syncApplyLocked(item, now);
    if (!outcome.ok)
        return false;
    // A received row counts against the history's limit like a copied one.
    if (outcome.inserted)
        trimLocked(now);
    return tx.commit() && outcome.changed;
}

std::vector<ClipboardStore::SyncApplied> ClipboardStore::syncApplyItems(
    const std::vector<SyncItem>& items) {
    std::vector<SyncApplied> results(items.size(), SyncApplied::failed);
    if (items.empty())
        return results;
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return results;
    double now = context_.clock.now();
    // A page of a first download holds hundreds of records: one commit for
    // all of them, and one trim. The trim keeps the newest unpinned rows and
    // rows only get added here, so a row an early trim would cut is cut by
    // the last one too: the same rows and tombstones as trimming each time.
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return results;
    bool anyInserted = false;
    for (std::size_t i = 0; i < items.size(); ++i) {
        // Nothing this device could store: there is nothing to try again.
        if (!acceptable(items[i])) {
            results[i] = SyncApplied::unchanged;
            continue;
        }
        // Each item is all or nothing on its own, as when taken in singly: a
        // refused one leaves no half-made row and does not undo the others.
        if (!db_.cached("SAVEPOINT sync_item")->run())
            continue;
        ApplyOutcome outcome = syncApplyLocked(items[i], now);
        if (!outcome.ok)
            db_.cached("ROLLBACK TO sync_item")->run();
        db_.cached("RELEASE sync_item")->run();
        results[i] = !outcome.ok       ? SyncApplied::failed
                     : outcome.changed ? SyncApplied::changed
                                       : SyncApplied::unchanged;
        anyInserted = anyInserted || (outcome.ok && outcome.inserted);
    }
    if (anyInserted)
        trimLocked(now);
    if (!tx.commit())
        return std::vector<SyncApplied>(items.size(), SyncApplied::failed);
    return results;
}

ClipboardStore::SyncApplied ClipboardStore::syncApply(const SyncCategory& category) {
    if (category.id.empty())
        return SyncApplied::unchanged;
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return SyncApplied::failed;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (!tx.begun())
        return SyncApplied::failed;
    auto pass = passTombstone(db_, category.id, category.modified);
    if (!pass)
        return SyncApplied::failed;
    if (!*pass)
        return SyncApplied::unchanged;

    sql::Statement local =
        db_.prepare("SELECT COALESCE(modified, created) FROM categories WHERE id = ?");
    local.bind(1, category.id);
    int rc = local.step();
    if (rc == SQLITE_ROW) {
        // On a tie the local name and order stay; only the server data is
        // new (a NaN time keeps the local category too).
        if (!(category.modified > local.real(0))) {
            local = {};
            return sql::run(db_, "UPDATE categories SET ck = ? WHERE id = ?", category.ck,
                            category.id) &&
                           tx.commit()
                       ? SyncApplied::unchanged
                       : SyncApplied::failed;
        }
    } else if (rc != SQLITE_DONE) {
        return SyncApplied::failed;
    }
    local = {};

    return sql::run(db_,
                    "INSERT INTO categories(id, name, sort, created, modified, dirty, ck) "
                    "VALUES(?,?,?,?,?,0,?)\nON CONFLICT(id) DO UPDATE SET name = excluded.name, "
                    "sort = excluded.sort,\nmodified = excluded.modified, dirty = 0, ck = "
                    "excluded.ck",
                    category.id, category.name, category.sort, category.created, category.modified,
                    category.ck) &&
                   tx.commit()
               ? SyncApplied::changed
               : SyncApplied::failed;
}

ClipboardStore::SyncApplied ClipboardStore::syncApplyDeletion(const std::string& key,
                                                              bool isCategory) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return SyncApplied::failed;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    std::string quoted = sql::quote(key);
    if (!tx.begun() || !db_.exec("DELETE FROM sync_tombstones WHERE key = " + quoted))
        return SyncApplied::failed;

    if (!isCategory) {
        // A row with unsent local changes survives: the next send brings it
        // back to the other devices.
        if (!sql::run(db_, "DELETE FROM items WHERE rid = ? AND dirty = 0", key))
            return SyncApplied::failed;
        bool deleted = db_.changes() > 0;
        if (deleted)
            searchindex::forgetDeleted(db_);
        if (!tx.commit())
            return SyncApplied::failed;
        return deleted ? SyncApplied::changed : SyncApplied::unchanged;
    }

    sql::Statement dirty = db_.prepare("SELECT dirty FROM categories WHERE id = ?");
    dirty.bind(1, key);
    int rc = dirty.step();
    if (rc != SQLITE_ROW && rc != SQLITE_DONE)
        return SyncApplied::failed;
    // A category renamed or reordered here and not yet sent is kept.
    if (rc == SQLITE_DONE || dirty.int64(0) != 0) {
        dirty = {};
        return tx.commit() ? SyncApplied::unchanged : SyncApplied::failed;
    }
    dirty = {};
    // Its rows leave it but stay pinned; the other devices do the same on
    // their own, so this is no change of theirs to send.
    return db_.exec("UPDATE items SET category = NULL WHERE category = " + quoted) &&
                   db_.exec("DELETE FROM categories WHERE id = " + quoted) && tx.commit()
               ? SyncApplied::changed
               : SyncApplied::failed;
}

bool ClipboardStore::syncReuploadItem(const std::string& rid, const std::optional<Bytes>& ck) {
    std::lock_guard lock(mutex_);
    return ensureOpenLocked() &&
           sql::run(db_, "UPDATE items SET dirty = 1, ck = ? WHERE rid = ?", ck, rid) &&
           db_.changes() > 0;
}

bool ClipboardStore::syncReuploadCategory(const std::string& id, const std::optional<Bytes>& ck) {
    std::lock_guard lock(mutex_);
    return ensureOpenLocked() &&
           sql::run(db_, "UPDATE categories SET dirty = 1, ck = ? WHERE id = ?", ck, id) &&
           db_.changes() > 0;
}

bool ClipboardStore::syncPrepareFullUpload(const Bytes& key) {
    // Any other length gives no record names at all, and every row would
    // silently stop syncing.
    if (key.size() != 32)
        return false;
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return false;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    return tx.begun() && db_.exec("UPDATE items SET rid = NULL") && fillRecordNamesLocked(key) &&
           db_.exec(
               "UPDATE items SET dirty = 1, ck = NULL, modified = COALESCE(modified, "
               "created)") &&
           db_.exec(
               "UPDATE categories SET dirty = 1, ck = NULL, modified = COALESCE(modified, "
               "created)") &&
           db_.exec("DELETE FROM sync_tombstones") && tx.commit();
}

void ClipboardStore::syncForgetServerState() {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    if (tx.begun() && db_.exec("UPDATE items SET ck = NULL, dirty = 1") &&
        db_.exec("UPDATE categories SET ck = NULL, dirty = 1"))
        tx.commit();
}

}  // namespace zettly
