#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "store/Sql.h"

namespace zettly {

class Clock;
class Log;

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
