#include "store/SearchIndex.h"

#include "store/FoldTrigrams.h"

namespace zettly::searchindex {

namespace {

// Each queued row keeps its text's size, so that deciding whether a capture
// indexes a batch reads no text.
constexpr const char* queueAllSQL =
    "INSERT OR REPLACE INTO search_pending(rowid, bytes) SELECT rowid, length(CAST(text AS BLOB)) "
    "FROM items";

std::string schemaSQL() {
    const std::string queue =
        "    INSERT OR REPLACE INTO search_pending(rowid, bytes)\n"
        "        VALUES(new.rowid, length(CAST(new.text AS BLOB)));\n";
    // An indexed row's postings can only be removed with the text they came
    // from; a queued row has none yet.
    const std::string unindex =
        "    INSERT OR REPLACE INTO search_gone(rowid, text) SELECT old.rowid, old.text\n"
        "        WHERE NOT EXISTS (SELECT 1 FROM search_pending WHERE rowid = old.rowid);\n"
        "    DELETE FROM search_pending WHERE rowid = old.rowid;\n";
    return std::string(
               "CREATE TABLE IF NOT EXISTS search_pending(rowid INTEGER PRIMARY KEY, bytes "
               "INTEGER NOT NULL);\n"
               "CREATE TABLE IF NOT EXISTS search_gone(rowid INTEGER PRIMARY KEY, text "
               "TEXT NOT NULL);\n"
               "CREATE TABLE IF NOT EXISTS search_state(id INTEGER PRIMARY KEY CHECK (id "
               "= 1), purge_due INTEGER NOT NULL, purged REAL NOT NULL);\n"
               "INSERT OR IGNORE INTO search_state VALUES(1, 0, 0);\n"
               "CREATE INDEX IF NOT EXISTS idx_items_labelled ON items(label) WHERE label "
               "IS NOT NULL;\n"
               "CREATE TRIGGER IF NOT EXISTS items_search_insert AFTER INSERT ON items "
               "BEGIN\n") +
           queue +
           "END;\n"
           "CREATE TRIGGER IF NOT EXISTS items_search_delete AFTER DELETE ON items BEGIN\n" +
           unindex +
           "END;\n"
           "CREATE TRIGGER IF NOT EXISTS items_search_edit AFTER UPDATE OF text ON items "
           "WHEN old.text IS NOT new.text BEGIN\n" +
           unindex + queue + "END;\n";
}

bool hasIndex(sql::Database& db) {
    sql::Statement st = db.prepare("SELECT 1 FROM sqlite_master WHERE name = 'items_search'");
    return st.step() == SQLITE_ROW;
}

std::int64_t count(sql::Database& db, const char* table) {
    sql::Statement st = db.prepare(std::string("SELECT count(*) FROM ") + table);
    return st.step() == SQLITE_ROW ? st.int64(0) : 0;
}

// Everything queued, in transactions of a thousand rows.
bool indexAll(sql::Database& db) {
    while (count(db, "search_pending") > 0 || count(db, "search_gone") > 0) {
        sql::Transaction tx(db, sql::Transaction::Mode::immediate);
        if (!tx.begun() || !indexQueued(db, 1000) || !tx.commit())
            return false;
    }
    return true;
}

// Removing postings costs about as much as adding them; after a clear it is
// cheaper to start the index afresh from the rows left. In the caller's
// transaction.
bool restartWhenMostlyGone(sql::Database& db) {
    const std::int64_t gone = count(db, "search_gone");
    if (gone < 1000 || gone < count(db, "items"))
        return true;
    return db.exec("INSERT INTO items_search(items_search) VALUES('delete-all');") &&
           db.exec("DELETE FROM search_gone; DELETE FROM search_pending;") && db.exec(queueAllSQL);
}

}  // namespace

const std::vector<std::string_view>& tableNames() {
    // FTS5 keeps the index in shadow tables named after it.
    static const std::vector<std::string_view> names{
        "items_search",   "items_search_data", "items_search_idx", "items_search_config",
        "search_pending", "search_gone",       "search_state"};
    return names;
}

void apply(sql::Database& db) {
    std::string error;
    if (!foldtrigrams::registerTokenizer(db.handle(), error))
        return;  // searches read every row, and log why
    const bool existed = hasIndex(db);
    {
        sql::Transaction tx(db, sql::Transaction::Mode::immediate);
        if (!db.exec(schemaSQL()))
            return;
        // A file from before the index: every row it holds is queued.
        if (!existed &&
            !(db.exec(std::string("CREATE VIRTUAL TABLE items_search USING fts5(text, content='', "
                                  "tokenize='") +
                      foldtrigrams::tokenizerName + "', detail=none, columnsize=0);") &&
              db.exec(queueAllSQL)))
            return;
        if (!tx.commit())
            return;
    }
    indexAll(db);
}

bool indexQueued(sql::Database& db, std::int64_t rows) {
    sql::CachedStatement unindex = db.cached(
        "INSERT INTO items_search(items_search, rowid, text) SELECT 'delete', rowid, text FROM "
        "search_gone ORDER BY rowid LIMIT ?");
    unindex->bind(1, rows);
    if (!unindex->run())
        return false;
    sql::CachedStatement forget = db.cached(
        "DELETE FROM search_gone WHERE rowid IN (SELECT rowid FROM search_gone ORDER BY rowid "
        "LIMIT ?)");
    forget->bind(1, rows);
    if (!forget->run())
        return false;
    const std::int64_t left = rows - db.changes();
    if (left <= 0)
        return true;
    // A row whose old postings are still to go (its rowid was reused) waits
    // for them: the index would otherwise lose the new ones with the old.
    // A batch also stops at a megabyte of text, so that a few long texts do
    // not hold up the capture that indexes them.
    std::vector<std::int64_t> batch;
    {
        sql::CachedStatement queued = db.cached(
            "SELECT rowid, bytes FROM search_pending WHERE rowid NOT IN (SELECT rowid FROM "
            "search_gone) ORDER BY rowid");
        std::int64_t bytes = 0;
        int rc = SQLITE_DONE;
        while (static_cast<std::int64_t>(batch.size()) < left && bytes < batchBytes &&
               (rc = queued->step()) == SQLITE_ROW) {
            batch.push_back(queued->int64(0));
            bytes += queued->int64(1);
        }
        if (rc != SQLITE_ROW && rc != SQLITE_DONE)
            return false;
    }
    sql::CachedStatement index = db.cached(
        "INSERT INTO items_search(rowid, text) SELECT rowid, text FROM items WHERE rowid = ?");
    sql::CachedStatement done = db.cached("DELETE FROM search_pending WHERE rowid = ?");
    for (std::int64_t rowid : batch) {
        index->reset();
        index->bind(1, rowid);
        done->reset();
        done->bind(1, rowid);
        if (!index->run() || !done->run())
            return false;
    }
    return true;
}

bool batchDue(sql::Database& db) {
    sql::CachedStatement due = db.cached(
        "SELECT (SELECT count(*) FROM search_pending) + (SELECT count(*) FROM search_gone) >= ? "
        "OR (SELECT sum(bytes) FROM search_pending) >= ?");
    due->bind(1, batchRows);
    due->bind(2, batchBytes);
    return due->step() == SQLITE_ROW && due->int64(0) != 0;
}

bool forgetDeleted(sql::Database& db) {
    if (!restartWhenMostlyGone(db))
        return false;
    // The texts leave the queue now; only their postings wait for the purge.
    return db.exec(
        "INSERT INTO items_search(items_search, rowid, text) SELECT 'delete', rowid, text FROM "
        "search_gone;\n"
        "DELETE FROM search_gone;\n"
        "UPDATE search_state SET purge_due = 1;");
}

bool purgeIfDue(sql::Database& db, double now, bool force) {
    if (!force) {
        sql::Statement state = db.prepare("SELECT purge_due, purged FROM search_state");
        if (state.step() != SQLITE_ROW)
            return false;
        // Nothing to purge; a backlog (a first sync's downloads, which no
        // capture indexes) still goes into the index now.
        if (state.int64(0) == 0 && now - state.real(1) < 24 * 3600)
            return indexAll(db);
    }
    {
        sql::Transaction tx(db, sql::Transaction::Mode::immediate);
        if (!tx.begun() || !restartWhenMostlyGone(db) || !tx.commit())
            return false;
    }
    return indexAll(db) && db.exec("INSERT INTO items_search(items_search) VALUES('optimize');") &&
           sql::run(db, "UPDATE search_state SET purge_due = 0, purged = ?", now);
}

bool candidates(sql::Database& db, const std::string& match, std::vector<std::int64_t>& rows,
                std::string& error) {
    sql::CachedStatement st = db.cached(
        "SELECT rowid FROM items_search WHERE items_search MATCH ?\n"
        "UNION SELECT rowid FROM search_pending\n"
        "UNION SELECT rowid FROM items WHERE label IS NOT NULL");
    if (!*st) {
        error = sqlite3_errmsg(db.handle());
        return false;
    }
    st->bind(1, match);
    int rc;
    while ((rc = st->step()) == SQLITE_ROW)
        rows.push_back(st->int64(0));
    if (rc != SQLITE_DONE) {
        error = sqlite3_errmsg(db.handle());
        return false;
    }
    return true;
}

}  // namespace zettly::searchindex
