// Searching the whole text history, beyond the rows the window lists.
#include "platform/Clock.h"
#include "platform/TextSearch.h"
#include "store/ClipboardStore.h"

namespace zettly {

std::vector<std::int64_t> ClipboardStore::searchCandidates(std::string_view foldedQuery,
                                                           const SearchFilter& filter) {
    (void)foldedQuery;
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    std::string query = "SELECT rowid FROM items WHERE " + liveSQL(context_.clock.now());
    if (filter.pinned)
        query += *filter.pinned ? " AND pinned = 1" : " AND pinned = 0";
    if (filter.link)
        query += *filter.link ? " AND type = 'url'" : " AND type <> 'url'";
    if (filter.category)
        query += " AND category = ?";
    query += " ORDER BY (pinned = 1 AND category IS NULL) DESC, created DESC";
    sql::Statement rows = db_.prepare(query);
    if (!rows)
        return {};
    if (filter.category)
        rows.bind(1, *filter.category);
    std::vector<std::int64_t> found;
    while (rows.step() == SQLITE_ROW)
        found.push_back(rows.int64(0));
    return found;
}

std::vector<ClipboardStore::Item> ClipboardStore::searchMatches(
    std::string_view foldedQuery, const std::vector<std::int64_t>& rows) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    sql::CachedStatement read = db_.cached(
        "SELECT id, text, type, created, pinned, category, label FROM items WHERE rowid = ?");
    if (!*read)
        return {};
    std::vector<Item> items;
    for (std::int64_t rowid : rows) {
        read->reset();
        read->bind(1, rowid);
        if (read->step() != SQLITE_ROW || read->isNull(0) || read->isNull(1) || read->isNull(2))
            continue;
        Item item{read->text(0),       read->text(1),         read->text(2),        read->real(3),
                  read->int64(4) != 0, read->optionalText(5), read->optionalText(6)};
        if (!foldedQuery.empty() &&
            !SearchKey(item.text, item.label).matches(item.text, foldedQuery))
            continue;
        items.push_back(std::move(item));
    }
    return items;
}

}  // namespace zettly
