#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <sqlite3.h>

#include <gtest/gtest.h>

namespace zettly::test {

using Row = std::vector<std::string>;

// Runs SQL through a connection of its own, as another process would; NULL
// reads as "NULL". A statement that does not finish fails the test, which
// also catches a lock that the store forgot to release.
inline std::vector<Row> rows(const std::filesystem::path& file, const std::string& query) {
    std::vector<Row> out;
    sqlite3* db = nullptr;
    sqlite3_open(file.c_str(), &db);
    auto collect = [](void* out, int count, char** values, char**) {
        Row& row = static_cast<std::vector<Row>*>(out)->emplace_back();
        for (int i = 0; i < count; ++i)
            row.emplace_back(values[i] ? values[i] : "NULL");
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(db, query.c_str(), collect, &out, nullptr), SQLITE_OK)
        << sqlite3_errmsg(db) << " in " << query;
    sqlite3_close(db);
    return out;
}

// Another program holding the database: an exclusive transaction on a
// connection of its own, until release() or the end of the scope.
class HeldDatabase {
public:
    explicit HeldDatabase(const std::filesystem::path& file) {
        held_ = sqlite3_open(file.c_str(), &db_) == SQLITE_OK &&
                sqlite3_exec(db_, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    ~HeldDatabase() { release(); }
    HeldDatabase(const HeldDatabase&) = delete;
    HeldDatabase& operator=(const HeldDatabase&) = delete;

    bool held() const { return held_; }
    void release() {
        if (held_)
            sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
        held_ = false;
        sqlite3_close(db_);
        db_ = nullptr;
    }

private:
    sqlite3* db_ = nullptr;
    bool held_ = false;
};

}  // namespace zettly::test
