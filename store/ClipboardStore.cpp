// Opening the text history: location, schema and in-place migrations.
#include "store/ClipboardStore.h"

#include "platform/Clock.h"
#include "platform/Defaults.h"
#include "store/PrefKeys.h"
#include "store/SearchIndex.h"
#include "store/StoreDatabase.h"

namespace zettly {

namespace fs = std::filesystem;

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS items(\n"
    "    id TEXT PRIMARY KEY,\n"
    "    text TEXT NOT NULL,\n"
    "    hash TEXT NOT NULL UNIQUE,\n"
    "    type TEXT NOT NULL,\n"
    "    created REAL NOT NULL,\n"
    "    pinned INTEGER NOT NULL DEFAULT 0\n"
    ");\n"
    "CREATE INDEX IF NOT EXISTS idx_created ON items(created DESC);\n"
    "CREATE TABLE IF NOT EXISTS categories(\n"
    "    id TEXT PRIMARY KEY,\n"
    "    name TEXT NOT NULL,\n"
    "    sort REAL NOT NULL,\n"
    "    created REAL NOT NULL\n"
    ");";

constexpr const char* kSyncSchema =
    "CREATE INDEX IF NOT EXISTS idx_items_rid ON items(rid);\n"
    "CREATE TABLE IF NOT EXISTS sync_tombstones(\n"
    "    key TEXT PRIMARY KEY,\n"
    "    kind TEXT NOT NULL,\n"
    "    at REAL NOT NULL\n"
    ");";

// Trimming looks for the newest unpinned rows on every new copy; with this
// index (pinned is in it so that SQLite sees it covers the walk) that walk
// reads the index alone instead of every row of the history.
constexpr const char* kTrimIndex =
    "CREATE INDEX IF NOT EXISTS idx_items_unpinned ON items(created DESC, id, pinned) WHERE pinned "
    "= 0;";

// Trimming must know how far the history is over its limit without counting
// 100,000 rows on every copy: the count of unpinned rows is kept by triggers
// (and taken afresh at every open, so it cannot drift for long).
constexpr const char* kUnpinnedCount =
    "CREATE TABLE IF NOT EXISTS item_count(id INTEGER PRIMARY KEY CHECK (id = 1), unpinned "
    "INTEGER NOT NULL);\n"
    "INSERT OR REPLACE INTO item_count VALUES(1, (SELECT count(*) FROM items WHERE pinned = 0));\n"
    "CREATE TRIGGER IF NOT EXISTS items_count_insert AFTER INSERT ON items WHEN new.pinned = 0 "
    "BEGIN UPDATE item_count SET unpinned = unpinned + 1; END;\n"
    "CREATE TRIGGER IF NOT EXISTS items_count_delete AFTER DELETE ON items WHEN old.pinned = 0 "
    "BEGIN UPDATE item_count SET unpinned = unpinned - 1; END;\n"
    "CREATE TRIGGER IF NOT EXISTS items_count_pin AFTER UPDATE OF pinned ON items WHEN "
    "(old.pinned = 0) <> (new.pinned = 0) BEGIN UPDATE item_count SET unpinned = unpinned + "
    "(new.pinned = 0) - (old.pinned = 0); END;";

// The history window lists the pinned rows outside categories first; with
// the first index they are found without looking at the others. The second
// holds every column the window's conditions read, so that its order and a
// search's filters are walked in the index alone: reading them from the
// rows would read through each text before them.
constexpr const char* kWindowIndexes =
    "CREATE INDEX IF NOT EXISTS idx_items_ontop ON items(created DESC) WHERE pinned = 1 AND "
    "category IS NULL;\n"
    "CREATE INDEX IF NOT EXISTS idx_items_window ON items(created DESC, pinned, category, label, "
    "type);";

// Each sync pass asks for the unsent rows, newest first; nearly always there
// are none. Without this index that question walks every row and reads
// through each text to its dirty flag.
constexpr const char* kDirtyIndex =
    "CREATE INDEX IF NOT EXISTS idx_items_dirty ON items(created DESC) WHERE dirty = 1;";

void applySchema(sql::Database& db) {
    db.exec(kSchema);
    ensureColumn(db, "items", "category", "TEXT");
    ensureColumn(db, "items", "label", "TEXT");
    for (const char* table : {"items", "categories"}) {
        ensureColumn(db, table, "modified", "REAL");
        ensureColumn(db, table, "dirty", "INTEGER NOT NULL DEFAULT 0");
        ensureColumn(db, table, "ck", "BLOB");
    }
    ensureColumn(db, "items", "rid", "TEXT");
    ensureColumn(db, "items", "mm", "REAL");
    // Rows that carried metadata before its clock existed count as changed
    // at their last change, so sync treats their metadata as set.
    db.exec(
        "UPDATE items SET mm = COALESCE(modified, created) WHERE mm IS NULL AND (pinned = 1 OR "
        "category IS NOT NULL OR label IS NOT NULL)");
    db.exec(kSyncSchema);
    db.exec(kTrimIndex);
    db.exec(kUnpinnedCount);
    db.exec(kWindowIndexes);
    db.exec(kDirtyIndex);
    searchindex::apply(db);
}

std::vector<std::string_view> derivedTables() {
    std::vector<std::string_view> names = searchindex::tableNames();
    names.push_back("item_count");
    return names;
}

StoreSchema textSchema() {
    return StoreSchema{
        .fileName = "clipboard.sqlite",
        .tables =
            {
                {.name = "categories",
                 .columns = {{"id", "TEXT"},
                             {"name", "TEXT"},
                             {"sort", "REAL"},
                             {"created", "REAL"},
                             {"modified", "REAL"},
                             {"dirty", "INTEGER"},
                             {"ck", "BLOB"}},
                 .required = 4},
                {.name = "items",
                 .columns = {{"id", "TEXT"},
                             {"text", "TEXT"},
                             {"hash", "TEXT"},
                             {"type", "TEXT"},
                             {"created", "REAL"},
                             {"pinned", "INTEGER"},
                             {"category", "TEXT"},
                             {"label", "TEXT"},
                             {"modified", "REAL"},
                             {"dirty", "INTEGER"},
                             {"ck", "BLOB"},
                             {"rid", "TEXT"},
                             {"mm", "REAL"}},
                 .required = 6,
                 .keptFirst = keptByUserSQL},
                {.name = "sync_tombstones",
                 .columns = {{"key", "TEXT"}, {"kind", "TEXT"}, {"at", "REAL"}},
                 .required = 3},
            },
        .derived = derivedTables(),
        .apply = applySchema,
    };
}

}  // namespace

ClipboardStore::ClipboardStore(StoreContext context)
    : context_(std::move(context)), file_(textSchema(), context_) {}

std::optional<fs::path> ClipboardStore::databasePath() const {
    return file_.path();
}

bool ClipboardStore::open() {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return false;
    purgeSearchIndexLocked();
    return true;
}

bool ClipboardStore::ensureOpenLocked() {
    // Damage a statement ran into since is repaired before the next one.
    file_.recover();
    return file_.open();
}

std::optional<ClipboardStore::Bytes> ClipboardStore::syncKey() const {
    return context_.defaults.data(prefkey::clipSyncKey);
}

void ClipboardStore::notifyLocalChange() {
    if (didChangeLocally)
        didChangeLocally();
}

}  // namespace zettly
