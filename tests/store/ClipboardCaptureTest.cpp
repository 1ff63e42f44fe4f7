#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ClipboardStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;
using Result = ClipboardStore::InsertResult;
using test::Row;
using test::rows;

std::vector<std::string> texts(ClipboardStore& store) {
    std::vector<std::string> out;
    for (const Row& row :
         rows(*store.databasePath(), "SELECT text FROM items ORDER BY created, text"))
        out.push_back(row[0]);
    return out;
}

ClipboardStore::Bytes key(std::size_t size) {
    ClipboardStore::Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), 0);
    return bytes;
}

std::string seconds(double t) {
    return std::to_string(static_cast<long long>(t));
}

std::string idOf(ClipboardStore& store, const std::string& text) {
    for (const auto& item : store.fetch(1000, 0))
        if (item.text == text)
            return item.id;
    ADD_FAILURE() << "no row holds " << text;
    return {};
}

TEST(ClipboardCapture, CopyingAKnownTextAgainMovesItsRowUpAndKeepsTheUsersChoices) {
    test::StoreEnvironment env;
    ClipboardStore store(env.context());
    ASSERT_EQ(store.insert("snippet", "code"), Result::inserted);
    std::string id = idOf(store, "snippet");
    auto work = store.createCategory("Work");
    store.setCategory(id, work->id);
    store.setLabel(id, "mine");
    std::string choicesMadeAt = seconds(env.clock.now());
    rows(*store.databasePath(), "UPDATE items SET dirty = 0");

    env.clock.advance(90);
    EXPECT_EQ(store.insert("snippet"), Result::movedToTop);

    std::string now = seconds(env.clock.now());
    EXPECT_THAT(rows(*store.databasePath(),
                     "SELECT id, type, CAST(created AS INTEGER), CAST(modified AS INTEGER), dirty, "
                     "pinned, category, label, CAST(mm AS INTEGER) FROM items"),
                ElementsAre(Row{id, "code", now, now, "1", "1", work->id, "mine", choicesMadeAt}));
}

TEST(ClipboardCapture, RefusedInsertsStoreNothingAndEveryInsertNotifiesOnce) {
    test::StoreEnvironment env;
    ClipboardStore store(env.context());
    int calls = 0;
    store.didChangeLocally = [&] { ++calls; };
    std::string euros;
    for (int i = 0; i < 33334; ++i)
        euros += "\u20ac";  // 33,334 characters but 100,002 bytes

    EXPECT_EQ(store.insert(std::string(100000, 'x')), Result::inserted);
    EXPECT_EQ(store.insert(std::string(100000, 'x')), Result::movedToTop);
    EXPECT_EQ(store.insert(std::string(100001, 'y')), Result::tooLarge);
    EXPECT_EQ(store.insert(euros), Result::tooLarge);
    env.defaults.setBool(prefkey::clipboardEnabled, false);
    EXPECT_EQ(store.insert("secret"), Result::disabled);
    EXPECT_EQ(calls, 5);
    EXPECT_THAT(texts(store), ElementsAre(std::string(100000, 'x')));
}

TEST(ClipboardCapture, TrimmingKeepsTheNewestUnpinnedRowsAndEveryPinnedOne) {
    test::StoreEnvironment env;
    env.defaults.setData(prefkey::clipSyncKey, key(32));
    ClipboardStore store(env.context());
    for (int i = 0; i < 63; ++i) {
        env.clock.advance(1);
        store.insert("row " + std::to_string(i));
    }
    for (int i : {0, 5, 30})
        store.setPinned(idOf(store, "row " + std::to_string(i)), true);
    // A label keeps a row from expiring, not from the limit.
    store.setLabel(idOf(store, "row 1"), "named");
    env.defaults.setInteger(prefkey::clipboardLimit, 50);

    env.clock.advance(1);
    ASSERT_EQ(store.insert("newest"), Result::inserted);

    std::vector<std::string> kept{"row 0", "row 5"};
    for (int i = 13; i < 63; ++i)
        kept.push_back("row " + std::to_string(i));
    kept.push_back("newest");
    EXPECT_THAT(texts(store), ElementsAreArray(kept));
    std::vector<Row> tombstones;
    for (int i : {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12})
        tombstones.push_back({*ClipboardStore::recordName("row " + std::to_string(i), key(32)),
                              "item", seconds(env.clock.now())});
    EXPECT_THAT(
        rows(*store.databasePath(), "SELECT key, kind, CAST(at AS INTEGER) FROM sync_tombstones"),
        UnorderedElementsAreArray(tombstones));
}

TEST(ClipboardCapture, WithoutAUsableSyncKeyRowsGetNoRecordNameAndLeaveNoTombstones) {
    for (std::size_t keySize : {0, 31}) {
        SCOPED_TRACE(keySize);
        test::StoreEnvironment env;
        if (keySize > 0)
            env.defaults.setData(prefkey::clipSyncKey, key(keySize));
        env.defaults.setInteger(prefkey::clipboardLimit, 1);
        ClipboardStore store(env.context());
        store.insert("first");
        env.clock.advance(1);
        store.insert("second");

        fs::path file = *store.databasePath();
        EXPECT_THAT(rows(file, "SELECT text, rid FROM items"), ElementsAre(Row{"second", "NULL"}));
        EXPECT_THAT(rows(file, "SELECT * FROM sync_tombstones"), IsEmpty());
    }
}

TEST(ClipboardCapture, ANegativeLimitMeansTheDefaultOf200) {
    test::StoreEnvironment env;
    env.defaults.setInteger(prefkey::clipboardLimit, -5);
    ClipboardStore store(env.context());
    for (int i = 0; i <= 200; ++i) {
        env.clock.advance(1);
        ASSERT_EQ(store.insert("row " + std::to_string(i)), Result::inserted);
    }
    std::vector<std::string> all = texts(store);
    ASSERT_EQ(all.size(), 200u);
    EXPECT_EQ(all.front(), "row 1");
}

TEST(ClipboardCapture, RowsExpireAfterTheRetentionUnlessPinnedFiledOrLabelled) {
    test::StoreEnvironment env;
    env.defaults.setData(prefkey::clipSyncKey, key(32));
    ClipboardStore store(env.context());
    for (const char* text : {"filed", "labelled", "pinned", "plain"})
        store.insert(text);
    store.setPinned(idOf(store, "pinned"), true);
    store.setCategory(idOf(store, "filed"), store.createCategory("Work")->id);
    store.setLabel(idOf(store, "labelled"), "keep");

    env.clock.advance(30 * 24 * 60 * 60);
    store.insert("30 days later");
    EXPECT_EQ(texts(store).size(), 5u);

    env.clock.advance(1);
    store.insert("a second more");
    EXPECT_THAT(texts(store),
                ElementsAre("filed", "labelled", "pinned", "30 days later", "a second more"));
    EXPECT_THAT(rows(*store.databasePath(), "SELECT key, kind FROM sync_tombstones"),
                ElementsAre(Row{*ClipboardStore::recordName("plain", key(32)), "item"}));

    env.defaults.setInteger(prefkey::clipboardRetentionMinutes, 60);
    env.clock.advance(60 * 60);
    store.insert("an hour more");
    EXPECT_THAT(texts(store),
                ElementsAre("filed", "labelled", "pinned", "a second more", "an hour more"));
}

TEST(ClipboardCapture, DetectsLinksNumbersAndEverythingElseAsText) {
    for (const char* link : {"  HTTPS://A.B  ", "\n\thttp://x y", "a.b/c"})
        EXPECT_EQ(ClipboardStore::detectType(link), "url") << link;
    for (const char* number : {"\u0661\u0662\u0663", "+1 555-0100", "-7"})
        EXPECT_EQ(ClipboardStore::detectType(number), "number") << number;
    for (const char* text :
         {"a.b c/d", "a.b", "a/b", "https:/x", "", "   ", "12.5", "1,000", "12a"})
        EXPECT_EQ(ClipboardStore::detectType(text), "text") << '"' << text << '"';
}

TEST(ClipboardCapture, HashesAndRecordNamesCoverTheExactBytes) {
    const std::string text = "Gr\u00fc\u00dfe, world";
    EXPECT_EQ(ClipboardStore::hash("hello"),
              "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824");
    EXPECT_EQ(ClipboardStore::hash(text),
              "d8540d2d6575f3e40ccfaedaa76d3bb41b3bdb822f393ddc2eea61fda3068937");
    const std::string name = "c_842a855c08e2ca508ae61c00dd4e47d64bca0973d9326cb5889b9f6f59485da4";
    EXPECT_EQ(ClipboardStore::recordName(text, key(32)), name);
    EXPECT_EQ(ClipboardStore::recordName(text, key(31)), std::nullopt);
    EXPECT_EQ(ClipboardStore::recordName(text, key(33)), std::nullopt);
    EXPECT_EQ(ClipboardStore::recordName(text, std::nullopt), std::nullopt);

    test::StoreEnvironment env;
    env.defaults.setData(prefkey::clipSyncKey, key(32));
    ClipboardStore store(env.context());
    for (const std::string& copy : {text, std::string("gr\u00fc\u00dfe, world"), text + " "})
        EXPECT_EQ(store.insert(copy), Result::inserted) << copy;
    EXPECT_THAT(rows(*store.databasePath(),
                     "SELECT hash, rid, type FROM items WHERE text = '" + text + "'"),
                ElementsAre(Row{ClipboardStore::hash(text), name, "text"}));
}

TEST(ClipboardCapture, AnEqualTextStoredByAnotherConnectionMidInsertCountsAsMovedToTop) {
    test::StoreEnvironment env;
    ClipboardStore store(env.context());
    store.insert("earlier");
    fs::path file = *store.databasePath();
    // Stands in for a second process that stores the same text between the store's UPDATE and
    // INSERT; the guard on the id keeps the trigger from firing for its own row.
    rows(file,
         "CREATE TRIGGER race BEFORE INSERT ON items WHEN NEW.id <> 'other' BEGIN INSERT INTO "
         "items(id, text, hash, type, created) VALUES('other', NEW.text, NEW.hash, 'text', 1); "
         "END");

    EXPECT_EQ(store.insert("contested"), Result::movedToTop);
    EXPECT_THAT(texts(store), ElementsAre("earlier"));

    // Dropping the trigger needs the write lock, so this also shows the transaction was ended.
    rows(file, "DROP TRIGGER race");
    EXPECT_EQ(store.insert("contested"), Result::inserted);
}

}  // namespace
}  // namespace zettly
