#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "store/Sql.h"

namespace zettly {

class Clock;
class Log;
struct StoreContext;

// "Library/<name>" in the application's container; none without a container.
std::optional<std::filesystem::path> libraryPath(const StoreContext& context,
                                                 std::string_view name);

// Opens the database "Library/<name>" (making the Library folder, 0700) as
// openStoreDatabase below does. Gives its path, or none when it cannot open.
std::optional<std::filesystem::path> openLibraryDatabase(sql::Database& db,
                                                         const StoreContext& context,
                                                         std::string_view name);

// Opens one of the history databases the way both stores need it: the file
// made private (0600) before SQLite creates it, read-write/create/full-mutex,
// a 150 ms busy timeout, deleted rows overwritten (a password copied by
// mistake and deleted must really be gone from the file), and a rollback
// journal. A file that is not a database, or whose header and schema are
// damaged, is moved aside as "<name>.corrupt-<time>" with one log line and a
// fresh database is created in its place.
bool openStoreDatabase(sql::Database& db, const std::filesystem::path& path, const Clock& clock,
                       Log& log);

// Moves a database that turned out to be damaged while in use aside (see
// above) and closes the connection, so that the next open starts afresh.
void retireDamagedDatabase(sql::Database& db, const std::filesystem::path& path, const Clock& clock,
                           Log& log, std::string_view reason);

// True for the result codes that mean the file itself is damaged.
bool isDamaged(int resultCode);

// Adds a column unless one of that exact name exists. Failures are ignored:
// the operations that need the column fail on their own.
void ensureColumn(sql::Database& db, std::string_view table, std::string_view column,
                  std::string_view decl);

}  // namespace zettly
