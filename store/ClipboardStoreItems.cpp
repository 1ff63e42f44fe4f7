// Reading and editing the text history: the filtered query, pins, labels,
// categories, text edits, deletion, clearing and the category list.
#include <limits>

#include "platform/Clock.h"
#include "platform/Crypto.h"
#include "platform/Defaults.h"
#include "platform/Unicode.h"
#include "store/ClipboardStore.h"
#include "store/PrefKeys.h"
#include "store/SearchIndex.h"
#include "store/WindowOrder.h"

namespace zettly {

namespace {

bool fitsInt32(std::int64_t v) {
    return v >= std::numeric_limits<std::int32_t>::min() &&
           v <= std::numeric_limits<std::int32_t>::max();
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
    std::string out;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0)
            out += separator;
        out += parts[i];
    }
    return out;
}

}  // namespace

template <typename Edit>
void ClipboardStore::editLocked(Edit&& edit) {
    bool open = false;
    {
        std::lock_guard lock(mutex_);
        open = ensureOpenLocked();
        if (open)
            edit(context_.clock.now());
    }
    if (open)
        notifyLocalChange();
}

std::optional<std::string> ClipboardStore::prepareLabel(const std::optional<std::string>& label) {
    if (!label)
        return std::nullopt;
    std::string name = unicode::oneLineName(*label, maxLabelCharacters);
    if (name.empty())
        return std::nullopt;
    return name;
}

std::vector<ClipboardStore::Item> ClipboardStore::fetch(
    std::int64_t limit, std::int64_t offset, const std::optional<std::vector<std::string>>& types,
    bool pinnedOnly, const CategoryFilter& category, bool byRecencyOnly) {
    if (!fitsInt32(limit) || !fitsInt32(offset))
        return {};
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};

    std::vector<std::string> conditions{liveSQL(context_.clock.now())};
    if (types && !types->empty()) {
        std::vector<std::string> quoted;
        for (const std::string& type : *types)
            quoted.push_back(sql::quote(type));
        conditions.push_back("type IN (" + join(quoted, ",") + ")");
    }
    if (pinnedOnly)
        conditions.push_back("pinned = 1");
    if (category.kind() == CategoryFilter::Kind::uncategorized)
        conditions.push_back("category IS NULL");
    if (category.kind() == CategoryFilter::Kind::only)
        conditions.push_back("category = ?");

    // The order is decided on the row ids alone, then each row is read by id:
    // sorting whole rows would carry every text (up to 100 KB each) through
    // SQLite's sorter, which made a history of long texts take 100 ms.
    const std::string condition = join(conditions, " AND ");
    auto bindCategory = [&](sql::Statement& st) {
        int next = 1;
        if (category.kind() == CategoryFilter::Kind::only)
            st.bind(next++, category.id());
        return next;
    };
    auto read = [&] {
        sql::Statement row = db_.prepare(
            "SELECT id, text, type, created, pinned, category, label FROM items WHERE rowid = ?");
        if (!row)
            return std::vector<Item>{};
        // Both the order and the rows are read inside one transaction, so no
        // write can slip in between.
        sql::Transaction tx(db_, sql::Transaction::Mode::deferred);
        std::vector<std::int64_t> order;
        if (byRecencyOnly) {
            sql::Statement recent = db_.prepare("SELECT rowid FROM items WHERE " + condition +
                                                " ORDER BY created DESC LIMIT ? OFFSET ?");
            int next = bindCategory(recent);
            recent.bind(next, limit);
            recent.bind(next + 1, offset);
            while (recent.step() == SQLITE_ROW)
                order.push_back(recent.int64(0));
        } else {
            order = windowOrder(db_, condition, bindCategory, limit, offset);
        }
        std::vector<Item> items;
        for (std::int64_t rowid : order) {
            row.reset();
            row.bind(1, rowid);
            if (row.step() != SQLITE_ROW || row.isNull(0) || row.isNull(1) || row.isNull(2))
                continue;
            items.push_back(Item{row.text(0), row.text(1), row.text(2), row.real(3),
                                 row.int64(4) != 0, row.optionalText(5), row.optionalText(6)});
        }
        return items;
    };
    std::vector<Item> items = read();
    // A damaged page ends the walk early; the rows beyond it are read again
    // from the rebuilt file rather than silently left out.
    if (file_.recover())
        items = read();
    return items;
}

void ClipboardStore::setPinned(const std::string& id, bool pinned) {
    editLocked([&](double now) {
        // An unpinned row leaves its category: categorised rows are pinned.
        std::string head = pinned ? "UPDATE items SET pinned = ?, "
                                  : "UPDATE items SET pinned = ?, category = NULL, ";
        sql::run(db_, head + metaTouchSQL(now) + " WHERE id = ?", pinned, id);
    });
}

void ClipboardStore::deleteItem(const std::string& id) {
    editLocked([&](double now) {
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        tombstoneLocked("id = " + sql::quote(id), now);
        sql::run(db_, "DELETE FROM items WHERE id = ?", id);
        searchindex::forgetDeleted(db_);
        tx.commit();
    });
}

void ClipboardStore::clear(bool keepPinned) {
    editLocked([&](double now) {
        // Rows filed in a category survive every clear.
        std::string condition = keepPinned ? "pinned = 0" : "category IS NULL";
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        tombstoneLocked(condition, now);
        db_.exec("DELETE FROM items WHERE " + condition);
        searchindex::forgetDeleted(db_);
        tx.commit();
    });
}

void ClipboardStore::setLabel(const std::string& id, const std::optional<std::string>& label) {
    std::optional<std::string> prepared = prepareLabel(label);
    editLocked([&](double now) {
        sql::run(db_, "UPDATE items SET label = ?, " + metaTouchSQL(now) + " WHERE id = ?",
                 prepared, id);
    });
}

void ClipboardStore::setCategory(const std::string& id,
                                 const std::optional<std::string>& category) {
    // Filing a row pins it; taking the category away leaves it pinned too.
    editLocked([&](double now) {
        sql::run(
            db_,
            "UPDATE items SET category = ?, pinned = 1, " + metaTouchSQL(now) + " WHERE id = ?",
            category, id);
    });
}

bool ClipboardStore::updateText(const std::string& id, std::string_view text) {
    // The text is stored as typed (a leading indent in a code snippet is
    // meant); only a text that is blank or too long to be captured is refused.
    if (unicode::trimmed(text).empty() || text.size() > maxTextBytes) {
        notifyLocalChange();
        return false;
    }
    bool stored = false;
    editLocked([&](double now) {
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        sql::Statement current = db_.prepare("SELECT text FROM items WHERE id = ?");
        current.bind(1, id);
        if (current.step() != SQLITE_ROW)
            return;
        if (current.text(0) == text) {
            stored = true;  // nothing changed, so no record to retire
            return;
        }
        current = {};
        // The record name follows the text, so the old record is retired. It
        // is written in the same transaction as the update: when the update
        // fails (the text is already in the history) no tombstone is left
        // behind to delete the untouched row on other devices.
        tombstoneLocked("id = " + sql::quote(id), now);
        stored = sql::run(db_,
                          "UPDATE items SET text = ?, hash = ?, type = ?, rid = ?, ck = NULL, "
                          "modified = " +
                              sql::number(now) + ", dirty = 1 WHERE id = ?",
                          text, hash(text), detectType(text), recordName(text, syncKey()), id);
        // Index trouble does not hold an edit back: the old text then stays
        // queued, and is searched as before.
        if (stored)
            searchindex::forgetDeleted(db_);
        stored = stored && tx.commit();
    });
    return stored;
}

std::vector<ClipboardStore::Category> ClipboardStore::categories() {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    sql::Statement st = db_.prepare("SELECT id, name FROM categories ORDER BY sort, created");
    std::vector<Category> out;
    while (st.step() == SQLITE_ROW) {
        if (st.isNull(0) || st.isNull(1))
            continue;
        out.push_back(Category{st.text(0), st.text(1)});
    }
    return out;
}

std::optional<ClipboardStore::Category> ClipboardStore::createCategory(std::string_view name) {
    std::string prepared = unicode::oneLineName(name, maxCategoryNameCharacters);
    std::optional<Category> result;
    if (!prepared.empty()) {
        std::lock_guard lock(mutex_);
        if (ensureOpenLocked()) {
            double now = context_.clock.now();
            std::string wanted = unicode::lowercased(prepared);
            sql::Statement list =
                db_.prepare("SELECT id, name FROM categories ORDER BY sort, created");
            while (!result && list.step() == SQLITE_ROW)
                if (!list.isNull(0) && unicode::lowercased(list.text(1)) == wanted)
                    result = Category{list.text(0), list.text(1)};
            list = {};
            if (!result) {
                double sort = 1.0;
                sql::Statement max = db_.prepare("SELECT COALESCE(MAX(sort), 0) FROM categories");
                if (max.step() == SQLITE_ROW)
                    sort = max.real(0) + 1.0;
                max = {};
                Category made{crypto::newUUID(), prepared};
                if (sql::run(db_,
                             "INSERT INTO categories(id, name, sort, created, modified, dirty) "
                             "VALUES(?,?,?,?,?,1)",
                             made.id, made.name, sort, now, now))
                    result = std::move(made);
            }
        }
    }
    notifyLocalChange();
    return result;
}

void ClipboardStore::renameCategory(const std::string& id, std::string_view name) {
    std::string prepared = unicode::oneLineName(name, maxCategoryNameCharacters);
    if (prepared.empty())
        return;
    editLocked([&](double now) {
        sql::run(db_,
                 "UPDATE categories SET name = ?, modified = " + sql::number(now) +
                     ", dirty = 1 WHERE id = ?",
                 prepared, id);
    });
}

void ClipboardStore::deleteCategory(const std::string& id) {
    bool tombstone = syncKey().has_value();
    editLocked([&](double now) {
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        // Its rows leave the category but stay pinned.
        sql::run(db_,
                 "UPDATE items SET category = NULL, " + metaTouchSQL(now) + " WHERE category = ?",
                 id);
        if (tombstone)
            db_.exec("INSERT OR REPLACE INTO sync_tombstones(key, kind, at) VALUES(" +
                     sql::quote(id) + ", 'category', " + sql::number(now) + ")");
        sql::run(db_, "DELETE FROM categories WHERE id = ?", id);
        tx.commit();
    });
}

void ClipboardStore::reorderCategories(const std::vector<std::string>& ids) {
    editLocked([&](double now) {
        // One transaction: a single journal write instead of one per row.
        sql::Transaction tx(db_, sql::Transaction::Mode::immediate);
        std::string update = "UPDATE categories SET sort = ?, modified = " + sql::number(now) +
                             ", dirty = 1 WHERE id = ?";
        double sort = 1;
        for (const std::string& id : ids)
            sql::run(db_, update, sort++, id);
        tx.commit();
    });
}

std::map<std::string, std::int64_t> ClipboardStore::categoryCounts() {
    std::lock_guard lock(mutex_);
    if (!ensureOpenLocked())
        return {};
    sql::Statement st = db_.prepare(
        "SELECT category, COUNT(*) FROM items WHERE category IS NOT NULL GROUP BY category");
    std::map<std::string, std::int64_t> counts;
    while (st.step() == SQLITE_ROW)
        counts[st.text(0)] = st.int64(1);
    return counts;
}

void ClipboardStore::saveChipOrder(const std::vector<std::string>& order) {
    Defaults& defaults = context_.defaults;
    defaults.setStringArray(prefkey::clipboardChipOrder, order);
    defaults.setDouble(prefkey::syncOrderModified, context_.clock.now());
    defaults.setBool(prefkey::syncOrderDirty, true);
    notifyLocalChange();
}

}  // namespace zettly
