#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "store/Sql.h"

namespace zettly {

struct StoreSchema;
struct TableShape;

// The checks StoreDatabase runs on a history file before using it, and the
// rebuild of a damaged one.
namespace storecheck {

// Why the file's tables are not the store's (a column missing or of another
// type, or only tables the store does not know), none when they are or when
// there are none yet. Columns the store does not know are allowed: a newer
// version may have added them. `derived` names tables of the store that
// have no shape to check.
std::optional<std::string> foreignShape(sql::Database& db, const std::vector<TableShape>& tables,
                                        const std::vector<std::string_view>& derived = {});

enum class Pages { sound, damaged, unknown };
// SQLite's quick check: every page of every table and index is read.
Pages pages(sql::Database& db);

struct Rebuilt {
    std::string error;  // empty on success
    std::filesystem::path aside;
    std::int64_t kept = 0;
    std::int64_t unreadable = 0;
};

// Copies every row that can be read from the damaged database open on `db`
// into a new file with the schema's tables (rows in `keptFirst` first), then
// keeps the damaged file as "<name>.damaged-<now>" and puts the new one in
// its place. On success `db` is closed; on failure nothing was moved and
// `db` stays open on the damaged file.
Rebuilt rebuild(sql::Database& db, const std::filesystem::path& path, const StoreSchema& schema,
                double now);

}  // namespace storecheck
}  // namespace zettly
