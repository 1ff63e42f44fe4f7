#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "store/Sql.h"

namespace zettly {

// Row ids of the text history in the history window's order: the pinned
// rows outside categories first, then all others, each newest first; at most
// `limit` of them (all when negative) after skipping `offset`.
//
// Sorting by that order would read every row of a 100,000-row history to
// list 500. The two parts are walked along their own indexes instead (the
// first part is small: it has a partial index), and the second stops after
// `limit` rows.
//
// `condition` restricts both parts; `bind` binds its parameters from 1 and
// returns the next free index.
std::vector<std::int64_t> windowOrder(sql::Database& db, const std::string& condition,
                                      const std::function<int(sql::Statement&)>& bind,
                                      std::int64_t limit, std::int64_t offset);

}  // namespace zettly
