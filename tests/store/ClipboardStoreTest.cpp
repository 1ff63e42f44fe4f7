#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ClipboardStore.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using Item = ClipboardStore::Item;
using Result = ClipboardStore::InsertResult;
using test::Row;
using test::rows;

std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct ClipboardStoreOpen : ::testing::Test {
    test::StoreEnvironment env;
    fs::path file = env.library() / "clipboard.sqlite";

    // An old layout: six item columns (plus any given) and four category columns.
    void writeOldFile(const std::string& moreItemColumns, const std::string& inserts) {
        fs::create_directories(file.parent_path());
        std::ofstream{file};
        fs::permissions(file, fs::perms(0644));  // as an older version left it
        const std::string categories =
            "CREATE TABLE categories(id TEXT PRIMARY KEY, name TEXT NOT NULL, sort REAL NOT NULL, "
            "created REAL NOT NULL);";
        rows(file,
             "CREATE TABLE items(id TEXT PRIMARY KEY, text TEXT NOT NULL, hash TEXT NOT NULL "
             "UNIQUE, type TEXT NOT NULL, created REAL NOT NULL, pinned INTEGER NOT NULL "
             "DEFAULT 0" +
                 moreItemColumns + ");" + categories + inserts);
    }
};

TEST_F(ClipboardStoreOpen, AFreshContainerGetsAPrivateDatabaseWithItsIndexesAndNoWriteAheadLog) {
    ClipboardStore store(env.context());
    ASSERT_EQ(store.insert("first"), Result::inserted);
    EXPECT_EQ(store.databasePath(), file);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    EXPECT_THAT(rows(file, "SELECT name, sql FROM sqlite_master WHERE type = 'index'"),
                IsSupersetOf({Row{"idx_created", "CREATE INDEX idx_created ON items(created DESC)"},
                              Row{"idx_items_rid", "CREATE INDEX idx_items_rid ON items(rid)"}}));
    // A write-ahead log would be persistent and visible to every later connection.
    EXPECT_THAT(rows(file, "PRAGMA journal_mode"), ElementsAre(Row{"delete"}));
}

TEST_F(ClipboardStoreOpen, OldLayoutsGainEveryColumnKeepTheirRowsAndDateTheirMetadata) {
    writeOldFile("",
                 "INSERT INTO items VALUES('P', 'pinned', 'h1', 'text', 100.0, 1),"
                 "('U', 'plain', 'h2', 'url', 200.0, 0);"
                 "INSERT INTO categories VALUES('C', 'Work', 1.0, 50.0);");
    ClipboardStore(env.context()).categories();
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    EXPECT_THAT(rows(file, "SELECT * FROM items ORDER BY id"),
                ElementsAre(Row{"P", "pinned", "h1", "text", "100.0", "1", "NULL", "NULL", "NULL",
                                "0", "NULL", "NULL", "100.0"},
                            Row{"U", "plain", "h2", "url", "200.0", "0", "NULL", "NULL", "NULL",
                                "0", "NULL", "NULL", "NULL"}));
    EXPECT_THAT(rows(file, "SELECT * FROM categories"),
                ElementsAre(Row{"C", "Work", "1.0", "50.0", "NULL", "0", "NULL"}));

    // Rows with metadata take their last change as its time.
    fs::remove(file);
    writeOldFile(", category TEXT, label TEXT, modified REAL",
                 "INSERT INTO items VALUES"
                 "('L', 'labelled', 'h1', 'text', 100.0, 0, NULL, 'note', 300.0),"
                 "('K', 'filed', 'h2', 'text', 150.0, 1, 'C', NULL, NULL),"
                 "('M', 'plain', 'h3', 'text', 160.0, 0, NULL, NULL, 400.0);");
    ClipboardStore(env.context()).categories();
    EXPECT_THAT(rows(file, "SELECT id, mm FROM items ORDER BY id"),
                ElementsAre(Row{"K", "150.0"}, Row{"L", "300.0"}, Row{"M", "NULL"}));
}

TEST_F(ClipboardStoreOpen, AFileThatIsNotADatabaseIsMovedAsideOnceAndANewOneStarted) {
    env.clock.set(1'800'000'000.75);
    fs::create_directories(env.library());
    const std::string garbage(5000, 'Z');
    std::ofstream(file, std::ios::binary) << garbage;

    ClipboardStore store(env.context());
    EXPECT_EQ(store.insert("after the damage"), Result::inserted);

    fs::path aside = env.library() / "clipboard.sqlite.corrupt-1800000000";
    EXPECT_EQ(contents(aside), garbage);
    ASSERT_EQ(env.log.lines().size(), 1u);
    EXPECT_THAT(env.log.lines()[0], HasSubstr(aside.string()));
    EXPECT_THAT(store.fetch(10, 0), ElementsAre(Field(&Item::text, "after the damage")));
}

TEST_F(ClipboardStoreOpen, NothingIsStoredUntilTheContainerAndItsLibraryFolderCanBeUsed) {
    env.containerAvailable = false;
    ClipboardStore store(env.context());
    EXPECT_EQ(store.insert("lost"), Result::disabled);

    // A plain file where the folder belongs stops even root, unlike permission bits.
    env.containerAvailable = true;
    fs::create_directories(env.container);
    std::ofstream(env.library()) << "in the way";
    EXPECT_EQ(store.insert("lost too"), Result::disabled);
    EXPECT_TRUE(store.fetch(10, 0).empty());
    EXPECT_FALSE(store.createCategory("Work"));

    fs::remove(env.library());
    EXPECT_EQ(store.insert("kept"), Result::inserted);
    EXPECT_THAT(store.fetch(10, 0), ElementsAre(Field(&Item::text, "kept")));
}

TEST_F(ClipboardStoreOpen, DeletedAndEditedTextsDoNotLingerInTheFile) {
    ClipboardStore store(env.context());
    const std::string deleted = "hunter2-deleted-password-7f3c";
    const std::string edited = "hunter2-edited-password-91ab";
    store.insert(deleted);
    store.insert(edited);
    ASSERT_NE(contents(file).find(deleted), std::string::npos);
    for (const auto& item : store.fetch(10, 0)) {
        if (item.text == deleted) {
            store.deleteItem(item.id);
        } else {
            EXPECT_TRUE(store.updateText(item.id, "redacted"));
        }
    }
    EXPECT_EQ(contents(file).find(deleted), std::string::npos);
    EXPECT_EQ(contents(file).find(edited), std::string::npos);
}

}  // namespace
}  // namespace zettly
