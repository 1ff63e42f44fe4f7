#include "store/WindowOrder.h"

#include <algorithm>

namespace zettly {

std::vector<std::int64_t> windowOrder(sql::Database& db, const std::string& condition,
                                      const std::function<int(sql::Statement&)>& bind,
                                      std::int64_t limit, std::int64_t offset) {
    constexpr const char* onTop = "pinned = 1 AND category IS NULL";
    sql::Statement top = db.prepare("SELECT rowid FROM items WHERE (" + condition + ") AND " +
                                    onTop + " ORDER BY created DESC");
    sql::Statement rest = db.prepare("SELECT rowid FROM items WHERE (" + condition + ") AND NOT (" +
                                     onTop + ") ORDER BY created DESC LIMIT ? OFFSET ?");
    if (!top || !rest)
        return {};
    std::vector<std::int64_t> rows;
    bind(top);
    std::int64_t skipped = 0;
    while ((limit < 0 || static_cast<std::int64_t>(rows.size()) < limit) &&
           top.step() == SQLITE_ROW) {
        if (skipped < offset)
            ++skipped;
        else
            rows.push_back(top.int64(0));
    }
    if (limit >= 0 && static_cast<std::int64_t>(rows.size()) >= limit)
        return rows;
    // The first part is exhausted here; what is left of the offset skips
    // rows of the second.
    int next = bind(rest);
    rest.bind(next, limit < 0 ? std::int64_t{-1} : limit - static_cast<std::int64_t>(rows.size()));
    rest.bind(next + 1, offset - skipped);
    while (rest.step() == SQLITE_ROW)
        rows.push_back(rest.int64(0));
    return rows;
}

}  // namespace zettly
