#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "store/Sql.h"
#include "store/StoreContext.h"

namespace zettly {

// The shape a history database's tables must have for a store to use it.
// A file whose tables do not have it was made by something else and is never
// altered: it is moved aside and a new history started.
struct TableShape {
    struct Column {
        std::string_view name;
        std::string_view type;  // as declared: "TEXT", "REAL", "INTEGER", "BLOB"
    };
    std::string_view name;
    // Every column a store knows; the first `required` exist in every layout
    // it ever wrote, the others are added by migrations when missing.
    std::vector<Column> columns;
    std::size_t required = 0;
    // When a damaged file is rebuilt, the rows the user made a point of
    // keeping (pinned, named, filed) are carried over before the others, so
    // that a disk that fills up during the rebuild costs the others first.
    // Empty: all rows are equally important and go in the first round.
    std::string_view keptFirst = {};
};

// Rows the user pinned, filed or named: kept whatever their age, and the
// first carried over when a damaged file is rebuilt.
inline constexpr std::string_view keptByUserSQL =
    "(pinned = 1 OR category IS NOT NULL OR label IS NOT NULL)";

struct StoreSchema {
    std::string_view fileName;  // "clipboard.sqlite"
    std::vector<TableShape> tables;
    // Tables `apply` makes from the others (indexes of their contents,
    // counts): a file holding them is still ours, and a rebuild makes them
    // anew instead of copying them.
    std::vector<std::string_view> derived = {};
    // Creates the tables and runs the migrations on an open connection; the
    // same for the history in use and for a rebuilt one.
    std::function<void(sql::Database&)> apply;
};

// "Library/<name>" in the application's container; none without a container.
std::optional<std::filesystem::path> libraryPath(const StoreContext& context,
                                                 std::string_view name);

// One history database as a store uses it: opened lazily, checked, rebuilt
// when damaged, and reported on (StoreHealth).
//
// Opening makes the file private (0600) before SQLite creates it, opens it
// read-write/create/full-mutex with a 150 ms busy timeout, has deleted rows
// overwritten (a password copied by mistake and deleted must really be gone
// from the file) and keeps a rollback journal. Before the schema is applied,
// the file is checked:
//   - a file that is not a database, or whose schema cannot be read, is
//     moved aside as "<name>.corrupt-<time>" and a new one started;
//   - a database whose tables do not have the store's shape is moved aside
//     as "<name>.foreign-<time>", untouched;
//   - a database with damaged pages is rebuilt: every row that can still be
//     read goes into a new file, and the damaged one is kept beside it as
//     "<name>.damaged-<time>".
// Each of these is logged and handed to StoreHealth to tell the user once.
//
// Damage found later, by any statement, is remembered (the connection's
// error handler sees it) and repaired the same way by recover(), which the
// stores call after their operations.
//
// Not thread-safe: the owning store's mutex guards it.
//
//   if (!file_.open()) return {};
//   auto rows = query(file_.db());
//   if (file_.recover()) rows = query(file_.db());  // once more, on the rebuilt file
class StoreDatabase {
public:
    StoreDatabase(StoreSchema schema, StoreContext& context);
    StoreDatabase(const StoreDatabase&) = delete;
    StoreDatabase& operator=(const StoreDatabase&) = delete;

    // True when the connection is (now) open. A failed open is retried by
    // the next call.
    bool open();
    bool isOpen() const { return db_.valid(); }
    sql::Database& db() { return db_; }
    // The file, once the container is known.
    std::optional<std::filesystem::path> path() const;

    // Rebuilds the file when a statement since the last call found it
    // damaged. True when it did, and the caller's operation may be run again
    // on the new file.
    bool recover();

    // A capture begins: the failure it may report is the first one from
    // now on (a failed statement is often followed by a failing rollback).
    void beginCapture();
    // A capture's outcome, for StoreHealth. A failure is described by the
    // last error the connection reported; one that leaves the connection
    // unable to write (a read-only file system) closes it, so that the next
    // capture opens it afresh once the cause is gone.
    void reportSaved();
    void reportFailed();
    // A capture that failed outside SQLite (writing an image file).
    void reportFailed(int systemErrno);

private:
    bool openChecked(const std::filesystem::path& path);
    // The connection's settings and the schema, on a file that passed the
    // checks.
    void prepareConnection();
    // Moves the file aside with `suffix` and starts a new one; false when
    // the new one cannot be opened.
    bool replaceWithNew(const std::filesystem::path& path, std::string_view suffix,
                        std::string_view why);
    bool rebuild(const std::filesystem::path& path);
    void noteError(int resultCode);

    StoreSchema schema_;
    StoreContext& context_;
    sql::Database db_;
    std::filesystem::path path_;
    bool damaged_ = false;
    // The page check reads the whole file: once per process is enough (the
    // connection is reopened after every capture a read-only folder fails).
    // Damage found later comes through the error handler.
    bool pagesChecked_ = false;
    // A rebuild that failed is not tried again by this process: every
    // operation would pay for it. The damage shows as the store's problem.
    bool rebuildFailed_ = false;
    int lastError_ = 0;
    int lastErrno_ = 0;
};

// Adds a column unless one of that exact name exists. Failures are ignored:
// the operations that need the column fail on their own.
void ensureColumn(sql::Database& db, std::string_view table, std::string_view column,
                  std::string_view decl);

// True for the result codes that mean the file itself is damaged.
bool isDamaged(int resultCode);

}  // namespace zettly
