#include "store/Sql.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <utility>

namespace zettly::sql {

// ---- Database ---------------------------------------------------------------

Database::~Database() {
    close();
}

Database::Database(Database&& other) noexcept
    : db_(std::exchange(other.db_, nullptr)),
      onError_(std::move(other.onError_)),
      cache_(std::move(other.cache_)) {}

Database& Database::operator=(Database&& other) noexcept {
    if (this != &other) {
        close();
        db_ = std::exchange(other.db_, nullptr);
        onError_ = std::move(other.onError_);
        cache_ = std::move(other.cache_);
    }
    return *this;
}

bool Database::open(const std::filesystem::path& path) {
    close();
    sqlite3* db = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &db,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                             nullptr);
    if (rc != SQLITE_OK) {
        openFailure_ = db ? sqlite3_extended_errcode(db) : rc;
        openErrno_ = db ? sqlite3_system_errno(db) : 0;
        sqlite3_close_v2(db);
        return false;
    }
    // SQLITE_IOERR_WRITE says more in a log line than SQLITE_IOERR.
    sqlite3_extended_result_codes(db, 1);
    openFailure_ = SQLITE_OK;
    openErrno_ = 0;
    db_ = db;
    return true;
}

void Database::close() {
    cache_.clear();  // finalized before the connection goes
    if (db_) {
        sqlite3_close_v2(db_);
        db_ = nullptr;
    }
}

int Database::report(int rc) const {
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE && onError_)
        (*onError_)(rc);
    return rc;
}

bool Database::exec(const std::string& sql) {
    if (!db_)
        return false;
    return report(sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr)) == SQLITE_OK;
}

Statement Database::prepare(std::string_view sql) {
    if (!db_ || sql.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()))
        return {};
    sqlite3_stmt* stmt = nullptr;
    if (report(sqlite3_prepare_v2(db_, sql.data(), static_cast<int>(sql.size()), &stmt, nullptr)) !=
        SQLITE_OK) {
        sqlite3_finalize(stmt);
        return {};
    }
    return Statement(stmt, onError_);
}

CachedStatement Database::cached(const std::string& sql) {
    // The few texts that are cached are fixed; the bound only guards
    // against a caller that caches texts with values written into them.
    constexpr std::size_t kMaxCached = 32;
    auto it = cache_.find(sql);
    if (it == cache_.end()) {
        Statement statement = prepare(sql);
        // A failed prepare is not kept: the next call tries again.
        if (!statement)
            return CachedStatement(&invalid_);
        if (cache_.size() >= kMaxCached)
            cache_.clear();
        it = cache_.emplace(sql, std::make_unique<Statement>(std::move(statement))).first;
    }
    return CachedStatement(it->second.get());
}

int Database::changes() const {
    return db_ ? sqlite3_changes(db_) : 0;
}

int Database::errorCode() const {
    if (!db_)
        return openFailure_ != SQLITE_OK ? openFailure_ : SQLITE_MISUSE;
    return sqlite3_extended_errcode(db_);
}

int Database::systemErrno() const {
    return db_ ? sqlite3_system_errno(db_) : openErrno_;
}

void Database::setErrorHandler(ErrorHandler handler) {
    // Statements already cached keep the old handler; they are few and fixed,
    // so they are prepared again under the new one.
    cache_.clear();
    onError_ = handler ? std::make_shared<const ErrorHandler>(std::move(handler)) : nullptr;
}

void Database::setBusyTimeout(int milliseconds) {
    if (db_)
        sqlite3_busy_timeout(db_, milliseconds);
}

// ---- Statement --------------------------------------------------------------

Statement::~Statement() {
    sqlite3_finalize(stmt_);
}

Statement::Statement(Statement&& other) noexcept
    : stmt_(std::exchange(other.stmt_, nullptr)), onError_(std::move(other.onError_)) {}

Statement& Statement::operator=(Statement&& other) noexcept {
    if (this != &other) {
        sqlite3_finalize(stmt_);
        stmt_ = std::exchange(other.stmt_, nullptr);
        onError_ = std::move(other.onError_);
    }
    return *this;
}

int Statement::report(int rc) const {
    if (rc != SQLITE_OK && rc != SQLITE_ROW && rc != SQLITE_DONE && onError_)
        (*onError_)(rc);
    return rc;
}

void Statement::bind(int index, std::int64_t value) {
    if (stmt_)
        sqlite3_bind_int64(stmt_, index, value);
}

void Statement::bind(int index, double value) {
    if (stmt_)
        sqlite3_bind_double(stmt_, index, value);
}

void Statement::bind(int index, std::string_view value) {
    if (stmt_)
        sqlite3_bind_text64(stmt_, index, value.data(), value.size(), SQLITE_TRANSIENT,
                            SQLITE_UTF8);
}

void Statement::bind(int index, std::span<const std::uint8_t> value) {
    if (!stmt_)
        return;
    // A zero-length blob is still a blob, not NULL.
    if (value.empty())
        sqlite3_bind_zeroblob(stmt_, index, 0);
    else
        sqlite3_bind_blob64(stmt_, index, value.data(), value.size(), SQLITE_TRANSIENT);
}

void Statement::bindNull(int index) {
    if (stmt_)
        sqlite3_bind_null(stmt_, index);
}

void Statement::bindColumn(int index, const Statement& source, int column) {
    if (stmt_ && source.stmt_)
        sqlite3_bind_value(stmt_, index, sqlite3_column_value(source.stmt_, column));
}

int Statement::step() {
    return stmt_ ? report(sqlite3_step(stmt_)) : SQLITE_MISUSE;
}

void Statement::reset() {
    if (stmt_) {
        sqlite3_reset(stmt_);
        sqlite3_clear_bindings(stmt_);
    }
}

bool Statement::isNull(int column) const {
    return !stmt_ || sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

std::int64_t Statement::int64(int column) const {
    return stmt_ ? sqlite3_column_int64(stmt_, column) : 0;
}

double Statement::real(int column) const {
    return stmt_ ? sqlite3_column_double(stmt_, column) : 0;
}

std::string Statement::text(int column) const {
    if (!stmt_)
        return {};
    auto* data = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
    if (!data)
        return {};
    return std::string(data, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column)));
}

std::optional<std::string> Statement::optionalText(int column) const {
    if (isNull(column))
        return std::nullopt;
    return text(column);
}

std::optional<Bytes> Statement::blob(int column) const {
    if (isNull(column))
        return std::nullopt;
    auto* data = static_cast<const std::uint8_t*>(sqlite3_column_blob(stmt_, column));
    auto size = static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column));
    if (!data)
        return Bytes{};
    return Bytes(data, data + size);
}

// ---- Transaction ------------------------------------------------------------

namespace {
// Transactions wrap every write, so their three statements stay prepared.
bool runCached(Database& db, const std::string& sql) {
    return db.cached(sql)->run();
}
}  // namespace

Transaction::Transaction(Database& db, Mode mode) : db_(db) {
    if (runCached(db_, mode == Mode::immediate ? "BEGIN IMMEDIATE" : "BEGIN"))
        state_ = State::open;
}

Transaction::~Transaction() {
    rollback();
}

bool Transaction::commit() {
    if (state_ != State::open)
        return false;
    if (!runCached(db_, "COMMIT"))
        return false;  // still open: the destructor rolls back
    state_ = State::finished;
    return true;
}

void Transaction::rollback() {
    if (state_ != State::open)
        return;
    runCached(db_, "ROLLBACK");
    state_ = State::finished;
}

// ---- SQL text ---------------------------------------------------------------

std::string quote(std::string_view value) {
    std::string out;
    out.reserve(value.size() + 2);
    out.push_back('\'');
    for (char c : value) {
        if (c == '\'')
            out.push_back('\'');
        out.push_back(c);
    }
    out.push_back('\'');
    return out;
}

std::string number(double value) {
    // NaN and infinities have no SQL literal; they cannot come from a clock
    // and would only make a condition match nothing, which NULL does too.
    if (!std::isfinite(value))
        return "NULL";
    char buf[64];
    auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
    std::string out(buf, end);
    // Keep it a REAL literal ("1731670000.0"), as the value is a double.
    if (out.find_first_of(".e") == std::string::npos)
        out += ".0";
    return out;
}

}  // namespace zettly::sql
