// Searching the whole text history through its index, and the trimming and
// listing that must stay cheap in a long one.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/TextSearch.h"
#include "store/ClipboardStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using Filter = ClipboardStore::SearchFilter;
using Item = ClipboardStore::Item;
using test::Row;

std::vector<std::string> texts(const std::vector<Item>& items) {
    std::vector<std::string> out;
    for (const Item& item : items)
        out.push_back(item.text);
    return out;
}

class ClipboardSearch : public ::testing::Test {
protected:
    void SetUp() override {
        env.defaults.setInteger(prefkey::clipboardLimit, 10000);
        env.defaults.setData(prefkey::clipSyncKey, ClipboardStore::Bytes(32, 0x5a));
    }
    std::string add(const std::string& text) {
        env.clock.advance(1);
        EXPECT_EQ(store.insert(text), ClipboardStore::InsertResult::inserted) << text;
        return store.fetch(1, 0, std::nullopt, false, ClipboardStore::CategoryFilter::any(), true)
            .at(0)
            .id;
    }
    // Another store opening the file indexes every queued row.
    void indexQueued() { ASSERT_TRUE(ClipboardStore(env.context()).open()); }
    std::vector<std::int64_t> candidates(const std::string& typed, const Filter& filter = {}) {
        return store.searchCandidates(search::foldQuery(typed), filter);
    }
    std::vector<std::string> found(const std::string& typed, const Filter& filter = {}) {
        const std::string folded = search::foldQuery(typed);
        return texts(store.searchMatches(folded, store.searchCandidates(folded, filter)));
    }
    std::vector<Row> sql(const std::string& query) {
        return test::rows(*store.databasePath(), query);
    }
    std::string fileBytes() {
        std::ifstream in(*store.databasePath(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    test::StoreEnvironment env;
    ClipboardStore store{env.context()};
};

TEST_F(ClipboardSearch, TheIndexNarrowsToOldEntriesBeyondTheListAndFoldsCaseAndAccents) {
    add("Café Crème at the Straße corner");
    for (int i = 0; i < 650; ++i)
        add("plain entry " + std::to_string(i));
    indexQueued();
    EXPECT_THAT(texts(store.fetch(500, 0)), Not(Contains("Café Crème at the Straße corner")));

    // Only the row holding every trigram is left to read.
    EXPECT_THAT(candidates("cafe creme"), SizeIs(1));
    EXPECT_THAT(found("cafe creme"), ElementsAre("Café Crème at the Straße corner"));
    EXPECT_THAT(found("STRASSE"), ElementsAre("Café Crème at the Straße corner"));
    EXPECT_THAT(found("entry 649"), ElementsAre("plain entry 649"));
    EXPECT_THAT(candidates("nowhere at all"), IsEmpty());

    // One or two letters cannot be looked up: every row is read.
    EXPECT_THAT(candidates("ß"), SizeIs(651));
    EXPECT_THAT(found("ß"), ElementsAre("Café Crème at the Straße corner"));
    EXPECT_THAT(found("y 6"), SizeIs(61));  // "entry 6", "entry 6x" and "entry 6xx" up to 649
}

TEST_F(ClipboardSearch, RowsNotYetIndexedAndNamedRowsAreAlwaysCandidates) {
    const std::string named = add("x1");
    add("indexed text");
    indexQueued();
    add("queued text");  // a capture indexes only once a batch has gathered
    store.setLabel(named, "Quarterly budget");

    EXPECT_THAT(found("text"), ElementsAre("queued text", "indexed text"));
    EXPECT_THAT(found("quarterly"), ElementsAre("x1"));
    EXPECT_THAT(sql("SELECT count(*) FROM search_pending"), ElementsAre(Row{"1"}));

    // With no purge due, the app's quiet-time call still indexes the queue,
    // so a backlog no capture would index does not stay unindexed.
    ASSERT_TRUE(store.purgeSearchIndex());
    EXPECT_THAT(sql("SELECT count(*) FROM search_pending"), ElementsAre(Row{"0"}));
    EXPECT_THAT(found("text"), ElementsAre("queued text", "indexed text"));
}

TEST_F(ClipboardSearch, AnEditIsFoundByItsNewTextOnly) {
    const std::string id = add("meet at the tango bar");
    add("something else");
    indexQueued();
    ASSERT_TRUE(store.updateText(id, "meet at the whiskey bar"));

    EXPECT_THAT(found("whiskey"), ElementsAre("meet at the whiskey bar"));
    EXPECT_THAT(found("tango"), IsEmpty());
    indexQueued();
    EXPECT_THAT(found("whiskey"), ElementsAre("meet at the whiskey bar"));
    ASSERT_TRUE(store.purgeSearchIndex());
    EXPECT_THAT(candidates("tango"), IsEmpty());
}

TEST_F(ClipboardSearch, ADeletedEntryIsNotFoundAndThePurgeLeavesNoTraceInTheFile) {
    // The other texts share no trigram with the secret's first letters, so
    // the index stores those trigrams whole and the bytes can be looked for.
    for (int i = 1; i <= 6; ++i)
        add("plain " + std::to_string(i));
    const std::string secret = add("zq7xw-hunter");
    indexQueued();
    ASSERT_TRUE(store.purgeSearchIndex());
    const std::vector<std::string> traces{"zq7xw-hunter", "zq7", "q7x", "xw-", "hun"};
    std::string before = fileBytes();
    for (const std::string& trace : traces)
        ASSERT_NE(before.find(trace), std::string::npos) << trace << " was never in the file";

    store.deleteItem(secret);
    EXPECT_THAT(found("hunter"), IsEmpty());
    EXPECT_THAT(sql("SELECT count(*) FROM search_gone"), ElementsAre(Row{"0"}));
    ASSERT_TRUE(store.purgeSearchIndex());
    std::string after = fileBytes();
    for (const std::string& trace : traces)
        EXPECT_EQ(after.find(trace), std::string::npos) << trace << " is still in the file";
    EXPECT_THAT(found("plain"), SizeIs(6));
    EXPECT_THAT(sql("PRAGMA integrity_check"), ElementsAre(Row{"ok"}));
}

TEST_F(ClipboardSearch, AClearedHistoryIsPurgedAndIndexedAfresh) {
    const std::string kept = add("kept pinned row");
    store.setPinned(kept, true);
    for (int i = 0; i < 1200; ++i)
        add("cleared row " + std::to_string(i));
    indexQueued();
    store.clear(true);
    ASSERT_TRUE(store.purgeSearchIndex());

    EXPECT_THAT(found("row"), ElementsAre("kept pinned row"));
    EXPECT_THAT(candidates("cleared"), IsEmpty());
    EXPECT_THAT(sql("SELECT count(*) FROM search_gone"), ElementsAre(Row{"0"}));
}

TEST_F(ClipboardSearch, FiltersAndTheWindowOrderMatchTheList) {
    auto categoryId = store.createCategory("Work")->id;
    const std::string filed = add("filed note");
    const std::string pinnedOld = add("pinned old note");
    add("https://example.com/note");
    const std::string pinnedNew = add("pinned new note");
    add("plain note");
    store.setCategory(filed, categoryId);
    store.setPinned(pinnedOld, true);
    store.setPinned(pinnedNew, true);
    indexQueued();

    const std::vector<std::string> window{"pinned new note", "pinned old note", "plain note",
                                          "https://example.com/note", "filed note"};
    EXPECT_THAT(texts(store.fetch(100, 0)), ElementsAreArray(window));
    EXPECT_THAT(found("note"), ElementsAreArray(window));
    EXPECT_THAT(found(""), ElementsAreArray(window));
    // Pages cross from the pinned rows into the others.
    EXPECT_THAT(texts(store.fetch(2, 1)), ElementsAre("pinned old note", "plain note"));
    EXPECT_THAT(texts(store.fetch(2, 3)), ElementsAre("https://example.com/note", "filed note"));

    Filter unpinned;
    unpinned.pinned = false;
    EXPECT_THAT(found("note", unpinned), ElementsAre("plain note", "https://example.com/note"));
    Filter links;
    links.link = true;
    EXPECT_THAT(found("note", links), ElementsAre("https://example.com/note"));
    Filter work;
    work.category = categoryId;
    EXPECT_THAT(found("note", work), ElementsAre("filed note"));
    EXPECT_THAT(found("no", work), ElementsAre("filed note"));
}

TEST_F(ClipboardSearch, TrimmingKeepsExactlyTheNewestUnpinnedRowsAndTombstonesTheRest) {
    env.defaults.setInteger(prefkey::clipboardLimit, 3);
    const std::string a = add("a");
    store.setPinned(a, true);
    add("b");
    const std::string c = add("c");
    add("d");
    add("e");  // b goes
    store.setPinned(c, true);
    add("f");
    add("g");  // the pinned c stays, d goes
    store.setPinned(c, false);
    add("h");  // c is the oldest unpinned again: c and e go
    const std::string g =
        store.fetch(1, 1, std::nullopt, false, ClipboardStore::CategoryFilter::any(), true)
            .at(0)
            .id;
    store.deleteItem(g);
    add("i");  // at the limit after the deletion: nothing goes

    EXPECT_THAT(texts(store.fetch(100, 0)), ElementsAre("a", "i", "h", "f"));
    add("j");
    EXPECT_THAT(texts(store.fetch(100, 0)), ElementsAre("a", "j", "i", "h"));
    auto key = ClipboardStore::Bytes(32, 0x5a);
    std::vector<Row> expected;
    for (const char* text : {"b", "c", "d", "e", "f", "g"})
        expected.push_back(Row{*ClipboardStore::recordName(text, key)});
    std::sort(expected.begin(), expected.end());
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones ORDER BY key"), ElementsAreArray(expected));
    EXPECT_THAT(sql("SELECT unpinned FROM item_count"), ElementsAre(Row{"3"}));
}

TEST_F(ClipboardSearch, AFileFromBeforeTheIndexGainsIt) {
    // As an older version left it: no index, no queues, no count.
    std::filesystem::create_directories(env.library());
    const std::string now = std::to_string(env.clock.now());
    test::rows(env.library() / "clipboard.sqlite",
               "CREATE TABLE items(id TEXT PRIMARY KEY, text TEXT NOT NULL, hash TEXT NOT NULL "
               "UNIQUE, type TEXT NOT NULL, created REAL NOT NULL, pinned INTEGER NOT NULL "
               "DEFAULT 0);"
               "CREATE TABLE categories(id TEXT PRIMARY KEY, name TEXT NOT NULL, sort REAL NOT "
               "NULL, created REAL NOT NULL);"
               "INSERT INTO items VALUES('1', 'an old oak tree', 'h1', 'text', " +
                   now +
                   ", 0);"
                   "INSERT INTO items VALUES('2', 'a young birch', 'h2', 'text', " +
                   now + ", 1);");

    ASSERT_TRUE(store.open());
    EXPECT_THAT(candidates("oak tree"), SizeIs(1));
    EXPECT_THAT(found("oak tree"), ElementsAre("an old oak tree"));
    EXPECT_THAT(found("birch"), ElementsAre("a young birch"));
    EXPECT_THAT(sql("SELECT count(*) FROM search_pending"), ElementsAre(Row{"0"}));
    EXPECT_THAT(sql("SELECT unpinned FROM item_count"), ElementsAre(Row{"1"}));
    EXPECT_THAT(env.log.lines(), IsEmpty());
}

}  // namespace
}  // namespace zettly
