#include "store/StoreDatabase.h"

#include <sys/stat.h>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Log.h"
#include "store/StoreCheck.h"
#include "store/StoreHealth.h"

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
    if (!db.open(path))
        return false;
    db.setBusyTimeout(150);
    return true;
}

// SQLite quietly opens a file it cannot write read-only, and the connection
// stays so after the cause is gone. Such a connection is not kept: the next
// capture opens the file afresh.
bool writable(sql::Database& db) {
    return sqlite3_db_readonly(db.handle(), "main") == 0;
}

// Reading the schema touches the header and the first page; that is where a
// file that is not a database, or one overwritten with garbage, shows.
int probe(sql::Database& db) {
    return sqlite3_exec(db.handle(), "SELECT count(*) FROM sqlite_master", nullptr, nullptr,
                        nullptr);
}

void moveJournal(const fs::path& from, const fs::path& to) {
    std::error_code ignored;
    fs::path journal = from;
    journal += "-journal";
    fs::path journalTo = to;
    journalTo += "-journal";
    if (fs::exists(journal, ignored))
        fs::rename(journal, journalTo, ignored);
}

}  // namespace

std::optional<fs::path> libraryPath(const StoreContext& context, std::string_view name) {
    auto container = context.container();
    if (!container)
        return std::nullopt;
    return *container / "Library" / name;
}

StoreDatabase::StoreDatabase(StoreSchema schema, StoreContext& context)
    : schema_(std::move(schema)), context_(context) {}

std::optional<fs::path> StoreDatabase::path() const {
    return libraryPath(context_, schema_.fileName);
}

bool StoreDatabase::open() {
    if (db_.valid())
        return true;
    auto file = path();
    if (!file)
        return false;
    std::error_code ec;
    files::createPrivateDirectories(file->parent_path(), ec);
    path_ = *file;
    if (!openChecked(path_) || !writable(db_)) {
        const bool readOnly = db_.valid();
        lastError_ = readOnly ? SQLITE_READONLY : db_.errorCode();
        lastErrno_ = readOnly ? 0 : db_.systemErrno() ? db_.systemErrno() : ec.value();
        db_.close();
        return false;
    }
    prepareConnection();
    return true;
}

void StoreDatabase::prepareConnection() {
    db_.setErrorHandler([this](int rc) { noteError(rc); });
    db_.exec("PRAGMA secure_delete = ON;");
    db_.exec("PRAGMA journal_mode=DELETE;");
    schema_.apply(db_);
}

bool StoreDatabase::openChecked(const fs::path& path) {
    if (!openPrivate(db_, path))
        return false;
    if (int rc = probe(db_); isDamaged(rc))
        return replaceWithNew(path, "corrupt", sqlite3_errstr(rc));
    if (auto why = storecheck::foreignShape(db_, schema_.tables, schema_.derived))
        return replaceWithNew(path, "foreign", *why);
    if (pagesChecked_)
        return true;
    pagesChecked_ = true;
    switch (storecheck::pages(db_)) {
        case storecheck::Pages::sound:
            return true;
        case storecheck::Pages::damaged:
            return rebuild(path) || db_.valid();
        case storecheck::Pages::unknown:
            // The check itself could not run (the disk failed, another
            // program holds a lock): nothing says the file is damaged.
            return true;
    }
    return true;
}

bool StoreDatabase::replaceWithNew(const fs::path& path, std::string_view suffix,
                                   std::string_view why) {
    db_.close();
    const double now = context_.clock.now();
    auto aside = files::moveAside(path, now, suffix);
    // Its journal must not be replayed into the file that takes its place.
    if (aside)
        moveJournal(path, *aside);
    const bool foreign = suffix == "foreign";
    context_.log.line("[Zettly] " + path.filename().string() +
                      (foreign ? " was not made by Zettly (" : " is damaged (") + std::string(why) +
                      "); " +
                      (aside ? "moved aside to " + aside->string() + " and started a new one"
                             : std::string("could not move it aside")));
    if (!aside)
        return false;
    if (context_.health)
        context_.health->rescued(StoreHealth::Rescue{
            .kind =
                foreign ? StoreHealth::Rescue::Kind::foreign : StoreHealth::Rescue::Kind::damaged,
            .file = path,
            .aside = *aside,
        });
    return openPrivate(db_, path) && probe(db_) == SQLITE_OK;
}

bool StoreDatabase::rebuild(const fs::path& path) {
    const double now = context_.clock.now();
    auto outcome = storecheck::rebuild(db_, path, schema_, now);
    if (!outcome.error.empty()) {
        rebuildFailed_ = true;
        context_.log.line("[Zettly] " + path.filename().string() +
                          " is damaged and could not be rebuilt (" + outcome.error +
                          "); the rows that can be read stay in use");
        if (context_.health)
            context_.health->saveFailed(path, SQLITE_CORRUPT, 0);
        return false;
    }
    context_.log.line("[Zettly] " + path.filename().string() + " was damaged; " +
                      std::to_string(outcome.kept) + " rows were saved into a new file, " +
                      std::to_string(outcome.unreadable) +
                      " could not be read; the damaged file is kept as " + outcome.aside.string());
    if (context_.health)
        context_.health->rescued(StoreHealth::Rescue{
            .kind = StoreHealth::Rescue::Kind::damaged,
            .file = path,
            .aside = outcome.aside,
            .kept = outcome.kept,
            .unreadable = outcome.unreadable,
        });
    return openPrivate(db_, path);
}

void StoreDatabase::beginCapture() {
    lastError_ = 0;
    lastErrno_ = 0;
}

void StoreDatabase::noteError(int resultCode) {
    if (lastError_ == 0) {
        lastError_ = resultCode;
        lastErrno_ = db_.systemErrno();
    }
    if (isDamaged(resultCode))
        damaged_ = true;
}

bool StoreDatabase::recover() {
    if (!damaged_ || !db_.valid())
        return false;
    damaged_ = false;
    if (rebuildFailed_)
        return false;
    db_.setErrorHandler(nullptr);
    const bool rebuilt = rebuild(path_);
    if (db_.valid())
        prepareConnection();
    return rebuilt && db_.valid();
}

void StoreDatabase::reportSaved() {
    if (context_.health && !path_.empty())
        context_.health->saved(path_);
}

void StoreDatabase::reportFailed() {
    // Without a container there is no file to speak of; the store simply
    // does not open.
    if (path_.empty()) {
        auto file = path();
        if (!file)
            return;
        path_ = *file;
    }
    if (context_.health)
        context_.health->saveFailed(path_, lastError_, lastErrno_);
    // A file SQLite opened read-only (the file system was read-only then)
    // stays read-only for the life of the connection; a new one sees the
    // file system as it is now.
    const auto problem = StoreHealth::classify(lastError_, lastErrno_);
    if (problem == StoreHealth::Problem::readOnly || problem == StoreHealth::Problem::diskError)
        db_.close();
}

void StoreDatabase::reportFailed(int systemErrno) {
    if (context_.health && !path_.empty())
        context_.health->saveFailed(path_, 0, systemErrno);
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
