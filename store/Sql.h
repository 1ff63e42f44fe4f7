#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <sqlite3.h>

namespace zettly::sql {

using Bytes = std::vector<std::uint8_t>;

class Statement;
class CachedStatement;

// Told of every failed prepare, step or exec on a connection, with SQLite's
// extended result code, before the caller sees the failure. Callers keep
// their own checks; the handler is where a store notices that the disk is
// full or the file is damaged, whichever statement ran into it.
using ErrorHandler = std::function<void(int resultCode)>;

// A prepared statement. An empty Statement (failed prepare) is not valid();
// binding to it does nothing and step() answers SQLITE_MISUSE, so callers
// can check once, where the result matters.
//
// Every text and blob is bound with SQLITE_TRANSIENT: SQLite takes its own
// copy, so the caller's buffer may go away right after the bind.
class Statement {
public:
    Statement() = default;
    ~Statement();
    Statement(Statement&& other) noexcept;
    Statement& operator=(Statement&& other) noexcept;
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool valid() const { return stmt_ != nullptr; }
    explicit operator bool() const { return valid(); }

    void bind(int index, std::int64_t value);
    void bind(int index, int value) { bind(index, static_cast<std::int64_t>(value)); }
    void bind(int index, bool value) { bind(index, static_cast<std::int64_t>(value ? 1 : 0)); }
    void bind(int index, double value);
    void bind(int index, std::string_view value);
    void bind(int index, const char* value) { bind(index, std::string_view(value)); }
    void bind(int index, const std::string& value) { bind(index, std::string_view(value)); }
    void bind(int index, std::span<const std::uint8_t> value);
    void bind(int index, const Bytes& value) { bind(index, std::span<const std::uint8_t>(value)); }
    void bindNull(int index);
    // The value in `column` of `source`'s current row, whatever its type:
    // for copying rows between connections.
    void bindColumn(int index, const Statement& source, int column);
    template <typename T>
    void bind(int index, const std::optional<T>& value) {
        if (value)
            bind(index, *value);
        else
            bindNull(index);
    }

    // SQLITE_ROW, SQLITE_DONE or an error code.
    int step();
    // True when the statement ran to SQLITE_DONE.
    bool run() { return step() == SQLITE_DONE; }
    void reset();

    bool isNull(int column) const;
    std::int64_t int64(int column) const;
    double real(int column) const;
    std::string text(int column) const;
    std::optional<std::string> optionalText(int column) const;
    std::optional<Bytes> blob(int column) const;

private:
    friend class Database;
    Statement(sqlite3_stmt* stmt, std::shared_ptr<const ErrorHandler> onError)
        : stmt_(stmt), onError_(std::move(onError)) {}
    int report(int rc) const;
    sqlite3_stmt* stmt_ = nullptr;
    std::shared_ptr<const ErrorHandler> onError_;
};

// An owned sqlite3 connection. Closing happens in the destructor; a
// Database that failed to open is simply not valid().
//
//   sql::Database db;
//   if (!db.open(path)) return false;
//   db.exec("PRAGMA journal_mode=DELETE;");
//   sql::Statement st = db.prepare("SELECT text FROM items WHERE id = ?");
//   st.bind(1, id);
//   while (st.step() == SQLITE_ROW) use(st.text(0));
//
// With an error handler, every failure on the connection is also reported
// to it:
//
//   db.setErrorHandler([&](int rc) { if (rc == SQLITE_FULL) diskFull = true; });
class Database {
public:
    Database() = default;
    ~Database();
    Database(Database&& other) noexcept;
    Database& operator=(Database&& other) noexcept;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    // Read-write, create, serialised (full-mutex). On failure the half-open
    // handle is closed and the object stays invalid.
    bool open(const std::filesystem::path& path);
    void close();
    bool valid() const { return db_ != nullptr; }

    // Runs one or more statements; true when all of them succeeded.
    bool exec(const std::string& sql);
    Statement prepare(std::string_view sql);
    // A statement kept prepared for the life of the connection, for texts
    // that repeat on a hot path (every copy runs the same few statements;
    // parsing them again would cost more than running them). It comes back
    // reset and unbound when the handle goes away.
    CachedStatement cached(const std::string& sql);

    int changes() const;
    // The last failure's extended result code; after a failed open, the
    // open's.
    int errorCode() const;
    // The operating system's error number behind the last failure (ENOSPC,
    // EROFS, ...), 0 when there was none.
    int systemErrno() const;
    void setBusyTimeout(int milliseconds);
    // Replaces the handler for statements prepared from now on.
    void setErrorHandler(ErrorHandler handler);

    sqlite3* handle() const { return db_; }

private:
    int report(int rc) const;

    sqlite3* db_ = nullptr;
    int openFailure_ = SQLITE_OK;
    int openErrno_ = 0;
    std::shared_ptr<const ErrorHandler> onError_;
    std::unordered_map<std::string, std::unique_ptr<Statement>> cache_;
    Statement invalid_;
};

class CachedStatement {
public:
    explicit CachedStatement(Statement* statement) : statement_(statement) {}
    ~CachedStatement() {
        if (statement_)
            statement_->reset();
    }
    CachedStatement(const CachedStatement&) = delete;
    CachedStatement& operator=(const CachedStatement&) = delete;

    Statement& operator*() const { return *statement_; }
    Statement* operator->() const { return statement_; }

private:
    Statement* statement_;
};

// Prepares `sql`, binds `values` to its parameters in order and runs it;
// true when it ran to completion. For the many one-shot UPDATEs of edits.
template <typename... Values>
bool run(Database& db, std::string_view sql, const Values&... values) {
    Statement statement = db.prepare(sql);
    int index = 0;
    (statement.bind(++index, values), ...);
    return statement.run();
}

// BEGIN on construction, ROLLBACK on destruction unless commit() succeeded.
//
//   sql::Transaction tx(db, sql::Transaction::Mode::immediate);
//   if (!tx.begun()) return failed;
//   ... statements ...
//   if (!tx.commit()) return failed;   // rolled back by the destructor
class Transaction {
public:
    enum class Mode { deferred, immediate };
    Transaction(Database& db, Mode mode);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    bool begun() const { return state_ == State::open; }
    bool commit();
    void rollback();

private:
    enum class State { failed, open, finished };
    Database& db_;
    State state_ = State::failed;
};

// Values written into SQL text. Ids and record names are quoted with every
// single quote doubled; doubles are written in their shortest form that
// reads back as the same value, always as a REAL literal.
std::string quote(std::string_view value);
std::string number(double value);

}  // namespace zettly::sql
