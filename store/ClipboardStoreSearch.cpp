// Searching the whole text history, beyond the rows the window lists, and
// keeping its search index (store/SearchIndex.h).
#include <algorithm>
#include <unordered_set>

#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/TextSearch.h"
#include "store/ClipboardStore.h"
#include "store/FoldTrigrams.h"
#include "store/SearchIndex.h"
#include "store/WindowOrder.h"

namespace zettly {

namespace {

std::string filterSQL(const ClipboardStore::SearchFilter& filter) {
    std::string condition;
    if (filter.pinned)
        condition += *filter.pinned ? " AND pinned = 1" : " AND pinned = 0";
    if (filter.link)
        condition += *filter.link ? " AND type = 'url'" : " AND type <> 'url'";
    if (filter.category)
        condition += " AND category = ?";
    return condition;
}

}  // namespace

std::vector<std::int64_t> ClipboardStore::searchCandidates(std::string_view foldedQuery,
                                                           const SearchFilter& filter) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    const std::string condition = liveSQL(context_.clock.now()) + filterSQL(filter);
    auto bindFilter = [&](sql::Statement& st) {
        int next = 1;
        if (filter.category)
            st.bind(next++, *filter.category);
        return next;
    };
    sql::Transaction tx(db_, sql::Transaction::Mode::deferred);
    const std::string match = foldtrigrams::matchExpression(foldedQuery);
    std::vector<std::int64_t> narrowed;
    std::string error;
    if (match.empty() || !searchindex::candidates(db_, match, narrowed, error)) {
        if (!error.empty() && !searchIndexFailureLogged_) {
            searchIndexFailureLogged_ = true;
            context_.log.line("[Zettly] the search index of the text history cannot be read (" +
                              error + "); searches read every text");
        }
        return windowOrder(db_, condition, bindFilter, -1, 0);
    }
    // A rare text leaves a few rows, put in the window's order here. A
    // common one leaves many: those are picked out of the walk in the
    // window's order, which reads the index alone, where looking each one
    // up would read through its text.
    constexpr std::size_t mostLookedUp = 1000;
    if (narrowed.size() > mostLookedUp) {
        std::unordered_set<std::int64_t> wanted(narrowed.begin(), narrowed.end());
        std::vector<std::int64_t> rows = windowOrder(db_, condition, bindFilter, -1, 0);
        std::erase_if(rows, [&](std::int64_t rowid) { return !wanted.contains(rowid); });
        return rows;
    }
    sql::Statement read =
        db_.prepare("SELECT (pinned = 1 AND category IS NULL), created FROM items WHERE (" +
                    condition + ") AND rowid = ?");
    if (!read)
        return {};
    struct Placed {
        bool onTop;
        double created;
        std::int64_t rowid;
    };
    std::vector<Placed> placed;
    placed.reserve(narrowed.size());
    for (std::int64_t rowid : narrowed) {
        read.reset();
        read.bind(bindFilter(read), rowid);
        if (read.step() == SQLITE_ROW)
            placed.push_back({read.int64(0) != 0, read.real(1), rowid});
    }
    std::sort(placed.begin(), placed.end(), [](const Placed& a, const Placed& b) {
        if (a.onTop != b.onTop)
            return a.onTop;
        if (a.created != b.created)
            return a.created > b.created;
        return a.rowid > b.rowid;
    });
    std::vector<std::int64_t> rows;
    rows.reserve(placed.size());
    for (const Placed& p : placed)
        rows.push_back(p.rowid);
    return rows;
}

std::vector<ClipboardStore::Item> ClipboardStore::searchMatches(
    std::string_view foldedQuery, const std::vector<std::int64_t>& rows,
    const std::function<bool(const std::string& id)>& skip) {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    sql::CachedStatement read = db_.cached(
        "SELECT id, text, type, created, pinned, category, label FROM items WHERE rowid = ?");
    // The id alone, ahead of the text: a row the caller holds already is
    // passed over without reading through its text.
    sql::CachedStatement idOf = db_.cached("SELECT id FROM items WHERE rowid = ?");
    if (!*read || !*idOf)
        return {};
    std::vector<Item> items;
    for (std::int64_t rowid : rows) {
        if (skip) {
            idOf->reset();
            idOf->bind(1, rowid);
            if (idOf->step() != SQLITE_ROW || idOf->isNull(0) || skip(idOf->text(0)))
                continue;
        }
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

void ClipboardStore::indexBatchLocked() {
    if (!searchindex::batchDue(db_))
        return;
    sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
    // The rows stay queued, and so are still searched, by reading them.
    if (!tx.begun() || !searchindex::indexQueued(db_, searchindex::batchRows) || !tx.commit())
        context_.log.line(std::string("[Zettly] could not add new copies to the search index (") +
                          sqlite3_errmsg(db_.handle()) + ")");
}

bool ClipboardStore::purgeSearchIndex() {
    std::lock_guard lock(mutex_);
    return ensureOpenLocked() && purgeSearchIndexLocked();
}

bool ClipboardStore::purgeSearchIndexLocked() {
    if (searchindex::purgeIfDue(db_, context_.clock.now()))
        return true;
    context_.log.line(std::string("[Zettly] could not purge the search index (") +
                      sqlite3_errmsg(db_.handle()) + "); deleted texts may remain in it");
    return false;
}

}  // namespace zettly
