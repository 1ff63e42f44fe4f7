#include "store/StoreCheck.h"

#include <algorithm>
#include <cctype>
#include <set>

#include "platform/Files.h"
#include "store/StoreDatabase.h"

namespace zettly::storecheck {

namespace fs = std::filesystem;

namespace {

Rebuilt failure(std::string why) {
    Rebuilt outcome;
    outcome.error = std::move(why);
    return outcome;
}

// SQLite compares names without regard to ASCII case.
bool sameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

std::string identifier(std::string_view name) {
    std::string out = "\"";
    for (char c : name) {
        if (c == '"')
            out += '"';
        out += c;
    }
    return out + "\"";
}

struct ColumnInfo {
    std::string name;
    std::string type;
};

std::vector<ColumnInfo> columnsOf(sql::Database& db, std::string_view schema,
                                  std::string_view table) {
    std::vector<ColumnInfo> columns;
    sql::Statement info =
        db.prepare("PRAGMA " + std::string(schema) + ".table_info(" + identifier(table) + ")");
    while (info.step() == SQLITE_ROW)
        columns.push_back({info.text(1), info.text(2)});
    return columns;
}

const TableShape* shapeNamed(const std::vector<TableShape>& tables, std::string_view name) {
    for (const TableShape& table : tables)
        if (sameName(table.name, name))
            return &table;
    return nullptr;
}

std::optional<std::string> tableProblem(const TableShape& shape,
                                        const std::vector<ColumnInfo>& columns) {
    for (std::size_t i = 0; i < shape.columns.size(); ++i) {
        const auto& wanted = shape.columns[i];
        auto found = std::find_if(columns.begin(), columns.end(), [&](const ColumnInfo& c) {
            return sameName(c.name, wanted.name);
        });
        if (found == columns.end()) {
            if (i < shape.required)
                return "table " + std::string(shape.name) + " has no column " +
                       std::string(wanted.name);
            continue;
        }
        if (!sameName(found->type, wanted.type))
            return "column " + std::string(shape.name) + "." + std::string(wanted.name) + " is " +
                   (found->type.empty() ? std::string("untyped") : found->type);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> foreignShape(sql::Database& db, const std::vector<TableShape>& tables,
                                        const std::vector<std::string_view>& derived) {
    sql::Statement names = db.prepare(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite\\_%' "
        "ESCAPE '\\'");
    std::vector<std::string> ours, others;
    while (names.step() == SQLITE_ROW) {
        std::string name = names.text(0);
        if (std::any_of(derived.begin(), derived.end(),
                        [&](std::string_view d) { return sameName(d, name); }))
            continue;
        (shapeNamed(tables, name) ? ours : others).push_back(std::move(name));
    }
    names = {};
    if (ours.empty() && !others.empty()) {
        std::string list;
        for (const std::string& name : others)
            list += (list.empty() ? "" : ", ") + name;
        return "it holds only tables Zettly does not know: " + list;
    }
    for (const std::string& name : ours)
        if (auto problem = tableProblem(*shapeNamed(tables, name), columnsOf(db, "main", name)))
            return problem;
    return std::nullopt;
}

Pages pages(sql::Database& db) {
    sql::Statement check = db.prepare("PRAGMA quick_check(1)");
    if (!check)
        return isDamaged(db.errorCode()) ? Pages::damaged : Pages::unknown;
    int rc = check.step();
    if (rc == SQLITE_ROW)
        return check.text(0) == "ok" ? Pages::sound : Pages::damaged;
    return isDamaged(rc) ? Pages::damaged : Pages::unknown;
}

namespace {

void removeWithJournal(const fs::path& file) {
    std::error_code ignored;
    fs::remove(file, ignored);
    fs::path journal = file;
    journal += "-journal";
    fs::remove(journal, ignored);
}

// Every rowid a damaged table may still hold. A scan stops at the first page
// it cannot read, so the table is walked from both ends and through each of
// its indexes (whose pages are separate), and then every rowid up to the
// largest one seen is tried: rows between two damaged pages are found too.
std::vector<std::int64_t> candidateRowids(sql::Database& db, std::string_view table) {
    std::set<std::int64_t> seen;
    auto collect = [&](const std::string& query) {
        sql::Statement scan = db.prepare(query);
        while (scan.step() == SQLITE_ROW)
            seen.insert(scan.int64(0));
    };
    const std::string from = " FROM main." + identifier(table);
    collect("SELECT rowid" + from);
    collect("SELECT rowid" + from + " ORDER BY rowid DESC");
    std::vector<std::string> indexes;
    sql::Statement list = db.prepare("PRAGMA main.index_list(" + identifier(table) + ")");
    while (list.step() == SQLITE_ROW)
        indexes.push_back(list.text(1));
    list = {};
    for (const std::string& index : indexes)
        collect("SELECT rowid" + from + " INDEXED BY " + identifier(index));

    if (seen.empty())
        return {};
    const std::int64_t highest = *seen.rbegin();
    // Rowids are handed out one after another; a table whose largest rowid
    // is far beyond its row count had rows set by hand, and only those seen
    // are tried.
    const auto spread = static_cast<std::int64_t>(seen.size()) * 4 + 100000;
    if (highest > 0 && highest <= spread)
        for (std::int64_t rowid = 1; rowid <= highest; ++rowid)
            seen.insert(rowid);
    return {seen.begin(), seen.end()};
}

}  // namespace

Rebuilt rebuild(sql::Database& db, const fs::path& path, const StoreSchema& schema, double now) {
    fs::path fresh = path;
    fresh += ".rebuild";
    removeWithJournal(fresh);
    files::ensurePrivateFile(fresh);
    sql::Database out;
    if (!out.open(fresh))
        return failure("cannot create " + fresh.string());
    out.exec("PRAGMA journal_mode=DELETE;");
    schema.apply(out);

    struct TableCopy {
        const TableShape* shape;
        std::vector<std::string> columns;  // those both files have
        std::vector<std::int64_t> rowids;
    };
    std::vector<TableCopy> copies;
    for (const TableShape& shape : schema.tables) {
        const auto target = columnsOf(out, "main", shape.name);
        if (target.empty()) {
            out.close();
            removeWithJournal(fresh);
            return failure("cannot write " + fresh.string());
        }
        std::vector<std::string> columns;
        for (const ColumnInfo& column : columnsOf(db, "main", shape.name))
            if (std::any_of(target.begin(), target.end(),
                            [&](const ColumnInfo& c) { return sameName(c.name, column.name); }))
                columns.push_back(column.name);
        if (!columns.empty())
            copies.push_back({&shape, std::move(columns), candidateRowids(db, shape.name)});
    }

    // Read row by row on the damaged connection (a read that meets a bad
    // page fails alone) and written on the new one, so that nothing is ever
    // written to the damaged file.
    std::set<std::pair<const TableShape*, std::int64_t>> unreadable;
    bool written = true;
    for (int round = 0; round < 2 && written; ++round) {
        sql::Transaction tx(out, sql::Transaction::Mode::immediate);
        for (const TableCopy& copy : copies) {
            const std::string_view first = copy.shape->keptFirst;
            if (round == 1 && first.empty())
                continue;  // all of it went in the first round
            std::string list = "rowid", marks = "?";
            for (const std::string& column : copy.columns) {
                list += ", " + identifier(column);
                marks += ", ?";
            }
            const std::string table = identifier(copy.shape->name);
            sql::Statement read = db.prepare(
                "SELECT " + list + " FROM " + table + " WHERE rowid = ?" +
                (round == 0 && !first.empty() ? " AND (" + std::string(first) + ")" : ""));
            sql::Statement insert = out.prepare("INSERT OR IGNORE INTO " + table + "(" + list +
                                                ") VALUES(" + marks + ")");
            if (!read || !insert) {
                written = false;
                break;
            }
            for (std::int64_t rowid : copy.rowids) {
                read.reset();
                read.bind(1, rowid);
                int rc = read.step();
                if (rc == SQLITE_DONE)
                    continue;  // no such row, or not this round's
                if (rc != SQLITE_ROW) {
                    unreadable.insert({copy.shape, rowid});
                    continue;
                }
                unreadable.erase({copy.shape, rowid});
                insert.reset();
                for (int i = 0; i <= static_cast<int>(copy.columns.size()); ++i)
                    insert.bindColumn(i + 1, read, i);
                if (!insert.run()) {
                    written = false;  // the new file cannot take it (disk full)
                    break;
                }
            }
            if (!written)
                break;
        }
        if (written)
            written = tx.commit();
    }
    std::int64_t kept = 0;
    for (const TableCopy& copy : copies) {
        sql::Statement count = out.prepare("SELECT count(*) FROM " + identifier(copy.shape->name));
        if (count.step() == SQLITE_ROW)
            kept += count.int64(0);
    }
    const std::string writeError = sqlite3_errmsg(out.handle());
    out.close();
    if (!written) {
        removeWithJournal(fresh);
        return failure("cannot write the new file: " + writeError);
    }

    db.close();
    auto aside = files::moveAside(path, now, "damaged");
    std::error_code ec;
    if (aside) {
        // The damaged file's journal, if one was left, belongs with it: it
        // must not be replayed into the new file.
        fs::path journal = path, journalAside = *aside;
        journal += "-journal";
        journalAside += "-journal";
        if (fs::exists(journal, ec))
            fs::rename(journal, journalAside, ec);
        fs::rename(fresh, path, ec);
    }
    if (!aside || ec) {
        if (aside)
            fs::rename(*aside, path, ec);
        removeWithJournal(fresh);
        db.open(path);
        return failure("cannot put the new file in place");
    }
    Rebuilt outcome;
    outcome.aside = *aside;
    outcome.kept = kept;
    outcome.unreadable = static_cast<std::int64_t>(unreadable.size());
    return outcome;
}

}  // namespace zettly::storecheck
