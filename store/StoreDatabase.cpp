#include "store/StoreDatabase.h"

#include <sys/stat.h>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Log.h"
#include "store/StoreContext.h"

namespace zettly {

namespace fs = std::filesystem;

bool isDamaged(int resultCode) {
    int primary = resultCode & 0xff;
    return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

namespace {

bool openPrivate(sql::Database& db, const fs::path& path) {
    files::ensurePrivateFile(path);
    ::chmod(path.c_str(), 0600);  // an older file made with wider permissions
    return db.open(path);
}

// Reading the schema touches the header and the first page; that is where a
// file that is not a database, or one overwritten with garbage, shows.
int probe(sql::Database& db) {
    return sqlite3_exec(db.handle(), "SELECT count(*) FROM sqlite_master", nullptr, nullptr,
                        nullptr);
}

}  // namespace

void retireDamagedDatabase(sql::Database& db, const fs::path& path, const Clock& clock, Log& log,
                           std::string_view reason) {
    db.close();
    auto aside = files::moveAside(path, clock.now());
    // The journal of a damaged file must not be replayed into the new one.
    std::error_code ec;
    fs::path journal = path;
    journal += "-journal";
    if (aside) {
        fs::path journalAside = *aside;
        journalAside += "-journal";
        fs::rename(journal, journalAside, ec);
    }
    log.line("[Zettly] " + path.filename().string() + " is damaged (" + std::string(reason) +
             "); " +
             (aside ? "moved aside to " + aside->string() + " and started a new one"
                    : std::string("could not move it aside")));
}

bool openStoreDatabase(sql::Database& db, const fs::path& path, const Clock& clock, Log& log) {
    if (!openPrivate(db, path))
        return false;
    db.setBusyTimeout(150);
    if (int rc = probe(db); isDamaged(rc)) {
        retireDamagedDatabase(db, path, clock, log, sqlite3_errstr(rc));
        if (!openPrivate(db, path))
            return false;
        db.setBusyTimeout(150);
        if (probe(db) != SQLITE_OK) {
            db.close();
            return false;
        }
    }
    db.exec("PRAGMA secure_delete = ON;");
    db.exec("PRAGMA journal_mode=DELETE;");
    return true;
}

std::optional<fs::path> libraryPath(const StoreContext& context, std::string_view name) {
    auto container = context.container();
    if (!container)
        return std::nullopt;
    return *container / "Library" / name;
}

std::optional<fs::path> openLibraryDatabase(sql::Database& db, const StoreContext& context,
                                            std::string_view name) {
    auto path = libraryPath(context, name);
    if (!path)
        return std::nullopt;
    std::error_code ignored;
    files::createPrivateDirectories(path->parent_path(), ignored);
    if (!openStoreDatabase(db, *path, context.clock, context.log))
        return std::nullopt;
    return path;
}

void ensureColumn(sql::Database& db, std::string_view table, std::string_view column,
                  std::string_view decl) {
    sql::Statement info = db.prepare("PRAGMA table_info(" + std::string(table) + ")");
    if (!info)
        return;
    while (info.step() == SQLITE_ROW)
        if (info.text(1) == column)
            return;
    info = {};
    db.exec("ALTER TABLE " + std::string(table) + " ADD COLUMN " + std::string(column) + " " +
            std::string(decl));
}

}  // namespace zettly
