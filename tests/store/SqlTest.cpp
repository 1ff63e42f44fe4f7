#include <gtest/gtest.h>

#include "store/Sql.h"
#include "tests/fakes/TempDir.h"

namespace zettly {
namespace {

using Mode = sql::Transaction::Mode;

struct OpenDatabase {
    test::TempDir dir;
    sql::Database db;
    OpenDatabase() {
        EXPECT_TRUE(db.open(dir / "test.sqlite"));
        EXPECT_TRUE(db.exec("CREATE TABLE t(v)"));
    }
    std::string all() {
        sql::Statement st = db.prepare("SELECT group_concat(typeof(v) || ':' || v) FROM t");
        return st.step() == SQLITE_ROW ? st.text(0) : "?";
    }
};

TEST(SqlTransaction, RollsBackUnlessCommittedAlsoWhenTheCommitItselfFails) {
    OpenDatabase t;
    // A deferred foreign key makes COMMIT itself fail and keeps the transaction open.
    ASSERT_TRUE(
        t.db.exec("PRAGMA foreign_keys = ON; CREATE TABLE parent(id INTEGER PRIMARY KEY);"
                  "CREATE TABLE child(p REFERENCES parent(id) DEFERRABLE INITIALLY DEFERRED);"));
    {
        sql::Transaction tx(t.db, Mode::immediate);
        ASSERT_TRUE(tx.begun() && t.db.exec("INSERT INTO t VALUES(1)"));
    }
    {
        sql::Transaction tx(t.db, Mode::immediate);
        ASSERT_TRUE(t.db.exec("INSERT INTO t VALUES(2); INSERT INTO child VALUES(42)"));
        EXPECT_FALSE(tx.commit());
    }
    EXPECT_EQ(t.all(), "");

    sql::Transaction outer(t.db, Mode::deferred);
    ASSERT_TRUE(t.db.exec("INSERT INTO t VALUES(3)"));
    // BEGIN fails inside a transaction; this one must not end the outer one.
    EXPECT_FALSE(sql::Transaction(t.db, Mode::immediate).begun());
    EXPECT_TRUE(outer.commit());
    EXPECT_EQ(t.all(), "integer:3");
}

TEST(SqlStatement, TextAndBlobsAreBoundAsCopiesAndAnEmptyBlobIsNotNull) {
    OpenDatabase t;
    sql::Statement insert = t.db.prepare("INSERT INTO t VALUES(?), (?), (?)");
    std::string text = "a text long enough to live on the heap";
    sql::Bytes bytes{'b', 'i', 'n'};
    insert.bind(1, text);
    insert.bind(2, bytes);
    insert.bind(3, sql::Bytes{});
    text.assign(text.size(), '#');
    bytes.assign(3, '#');
    ASSERT_TRUE(insert.run());
    EXPECT_EQ(t.all(), "text:a text long enough to live on the heap,blob:bin,blob:");
}

TEST(SqlText, QuotesAreDoubledAndNumbersAreTheShortestRoundTripFormAndAlwaysReals) {
    EXPECT_EQ(sql::quote("O'Brien's ''x''"), "'O''Brien''s ''''x'''''");
    OpenDatabase t;
    for (auto [value, expected] : {std::pair{0.1, "0.1"},
                                   {1731670000.123456, "1731670000.123456"},
                                   {1731670000.0, "1731670000.0"},
                                   {1e16, "1e+16"}}) {
        EXPECT_EQ(sql::number(value), expected);
        sql::Statement st = t.db.prepare("SELECT typeof(" + sql::number(value) + "), " + expected);
        ASSERT_EQ(st.step(), SQLITE_ROW);
        EXPECT_EQ(st.text(0), "real") << expected;
        EXPECT_EQ(st.real(1), value) << expected;
    }
}

}  // namespace
}  // namespace zettly
