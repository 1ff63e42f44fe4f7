#include <numeric>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/ClipboardStore.h"
#include "store/PrefKeys.h"
#include "tests/fakes/SqlRows.h"
#include "tests/fakes/StoreFixture.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Result = ClipboardStore::InsertResult;
using test::Row;

ClipboardStore::Bytes key(std::size_t size) {
    ClipboardStore::Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), 0);
    return bytes;
}

struct ClipboardCapture : ::testing::Test {
    test::StoreEnvironment env;
    ClipboardStore store{env.context()};

    std::vector<Row> sql(const std::string& query) {
        return test::rows(*store.databasePath(), query);
    }
    std::vector<std::string> texts() {
        std::vector<std::string> out;
        for (const Row& row : sql("SELECT text FROM items ORDER BY created, text"))
            out.push_back(row[0]);
        return out;
    }
    std::string idOf(const std::string& text) {
        return sql("SELECT id FROM items WHERE text = '" + text + "'").at(0).at(0);
    }
    // Times are compared as whole seconds; the clock moves by whole seconds here.
    std::string now() const { return std::to_string(static_cast<long long>(env.clock.now())); }
};

TEST_F(ClipboardCapture, CopyingAKnownTextAgainMovesItsRowUpAndKeepsTheUsersChoices) {
    ASSERT_EQ(store.insert("snippet", "code"), Result::inserted);
    std::string id = idOf("snippet");
    auto work = store.createCategory("Work");
    store.setCategory(id, work->id);
    store.setLabel(id, "mine");
    std::string choicesMadeAt = now();
    sql("UPDATE items SET dirty = 0");

    env.clock.advance(90);
    EXPECT_EQ(store.insert("snippet"), Result::movedToTop);
    EXPECT_THAT(
        sql("SELECT id, type, CAST(created AS INTEGER), CAST(modified AS INTEGER), dirty, "
            "pinned, category, label, CAST(mm AS INTEGER) FROM items"),
        ElementsAre(Row{id, "code", now(), now(), "1", "1", work->id, "mine", choicesMadeAt}));
}

TEST_F(ClipboardCapture, RefusedInsertsStoreNothingAndEveryInsertNotifiesOnce) {
    int calls = 0;
    store.didChangeLocally = [&] { ++calls; };
    std::string euros;  // 33,334 characters but 100,002 bytes
    while (euros.size() <= 100000)
        euros += "\u20ac";

    EXPECT_EQ(store.insert(std::string(100000, 'x')), Result::inserted);
    EXPECT_EQ(store.insert(std::string(100001, 'y')), Result::tooLarge);
    EXPECT_EQ(store.insert(euros), Result::tooLarge);
    env.defaults.setBool(prefkey::clipboardEnabled, false);
    EXPECT_EQ(store.insert("secret"), Result::disabled);
    EXPECT_EQ(calls, 4);
    EXPECT_THAT(texts(), ElementsAre(std::string(100000, 'x')));
}

TEST_F(ClipboardCapture, TrimmingKeepsTheNewestUnpinnedRowsAndEveryPinnedOne) {
    env.defaults.setData(prefkey::clipSyncKey, key(32));
    for (const char* text : {"p0", "labelled", "u2", "u3", "u4", "u5", "p6", "u7"}) {
        env.clock.advance(1);
        store.insert(text);
    }
    store.setPinned(idOf("p0"), true);
    store.setPinned(idOf("p6"), true);          // among the newest, yet not counted
    store.setLabel(idOf("labelled"), "named");  // keeps a row from expiring, not from the limit
    env.defaults.setInteger(prefkey::clipboardLimit, 5);

    env.clock.advance(1);
    ASSERT_EQ(store.insert("newest"), Result::inserted);
    EXPECT_THAT(texts(), ElementsAre("p0", "u3", "u4", "u5", "p6", "u7", "newest"));
    auto tombstone = [&](const char* text) {
        return Row{*ClipboardStore::recordName(text, key(32)), "item", now()};
    };
    EXPECT_THAT(sql("SELECT key, kind, CAST(at AS INTEGER) FROM sync_tombstones"),
                UnorderedElementsAre(tombstone("labelled"), tombstone("u2")));
}

TEST_F(ClipboardCapture, RowsExpireAfterTheRetentionUnlessPinnedFiledOrLabelled) {
    env.defaults.setData(prefkey::clipSyncKey, key(32));
    // A limit below 1 means the default; read as it stands it would trim every unpinned row.
    env.defaults.setInteger(prefkey::clipboardLimit, -5);
    for (const char* text : {"filed", "labelled", "pinned", "plain"})
        store.insert(text);
    store.setPinned(idOf("pinned"), true);
    store.setCategory(idOf("filed"), store.createCategory("Work")->id);
    store.setLabel(idOf("labelled"), "keep");

    env.clock.advance(30 * 24 * 60 * 60);
    store.insert("30 days later");
    EXPECT_EQ(texts().size(), 5u);

    env.clock.advance(1);
    store.insert("a second more");
    EXPECT_THAT(texts(),
                ElementsAre("filed", "labelled", "pinned", "30 days later", "a second more"));
    EXPECT_THAT(sql("SELECT key, kind FROM sync_tombstones"),
                ElementsAre(Row{*ClipboardStore::recordName("plain", key(32)), "item"}));

    env.defaults.setInteger(prefkey::clipboardRetentionMinutes, 60);
    env.clock.advance(60 * 60);
    store.insert("an hour more");
    EXPECT_THAT(texts(),
                ElementsAre("filed", "labelled", "pinned", "a second more", "an hour more"));

    // The largest numbers the file can hold keep everything: the cutoff must
    // not wrap round into the future, nor the limit into a negative one.
    env.defaults.setDouble(prefkey::clipboardLimit, 1e308);
    env.defaults.setInteger(prefkey::clipboardRetentionMinutes, INT64_MAX);
    env.clock.advance(100.0 * 365 * 24 * 60 * 60);
    store.insert("a century on");
    EXPECT_EQ(texts().size(), 6u);
    EXPECT_EQ(store.fetch(10, 0).size(), 6u) << "rows kept but hidden as expired";
}

TEST(ClipboardTypes, DetectsLinksNumbersAndEverythingElseAsText) {
    for (const char* link : {"  HTTPS://A.B  ", "\n\thttp://x y", "HTTP://x y", "a.b/c"})
        EXPECT_EQ(ClipboardStore::detectType(link), "url") << link;
    for (const char* number : {"\u0661\u0662\u0663", "+1 555-0100"})
        EXPECT_EQ(ClipboardStore::detectType(number), "number") << number;
    for (const char* text : {"a.b c/d", "a.b", "", "   ", "12.5"})
        EXPECT_EQ(ClipboardStore::detectType(text), "text") << '"' << text << '"';
}

TEST_F(ClipboardCapture, HashesAndRecordNamesCoverTheExactBytesAndNeedA32ByteKey) {
    const std::string text = "Gr\u00fc\u00dfe, world";
    EXPECT_EQ(ClipboardStore::hash(text),
              "d8540d2d6575f3e40ccfaedaa76d3bb41b3bdb822f393ddc2eea61fda3068937");
    EXPECT_EQ(ClipboardStore::recordName(text, key(32)),
              "c_842a855c08e2ca508ae61c00dd4e47d64bca0973d9326cb5889b9f6f59485da4");
    EXPECT_EQ(ClipboardStore::recordName(text, key(33)), std::nullopt);

    // Equal only byte for byte: no case folding, no trimming.
    env.defaults.setData(prefkey::clipSyncKey, key(31));
    for (const std::string& copy : {text, std::string("gr\u00fc\u00dfe, world"), text + " "})
        EXPECT_EQ(store.insert(copy), Result::inserted) << copy;
    // Without a usable key rows get no record name, and trimming them leaves no tombstone.
    env.defaults.setInteger(prefkey::clipboardLimit, 1);
    env.clock.advance(1);
    store.insert("last");
    EXPECT_THAT(sql("SELECT text, rid FROM items"), ElementsAre(Row{"last", "NULL"}));
    EXPECT_THAT(sql("SELECT * FROM sync_tombstones"), IsEmpty());
}

TEST_F(ClipboardCapture, AGrowingSelectionTakesOverItsRowAndRetractsOnlyWhatWasSent) {
    env.defaults.setData(prefkey::clipSyncKey, key(32));
    ASSERT_EQ(store.insert("https://exa"), Result::inserted);
    const std::string id = idOf("https://exa");
    env.clock.advance(1);
    // Never sent: the other devices never saw it, so nothing is retracted there.
    EXPECT_EQ(store.replaceRecent("https://exa", "https://example.org"), Result::inserted);
    EXPECT_THAT(
        sql("SELECT id, text, type, rid, CAST(created AS INTEGER) FROM items"),
        ElementsAre(Row{id, "https://example.org", "url",
                        *ClipboardStore::recordName("https://example.org", key(32)), now()}));
    EXPECT_THAT(sql("SELECT * FROM sync_tombstones"), IsEmpty());

    // Sent already: its record goes with a tombstone.
    sql("UPDATE items SET ck = x'01', dirty = 0");
    env.clock.advance(1);
    EXPECT_EQ(store.replaceRecent("https://example.org", "https://example.org/a"),
              Result::inserted);
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones"),
                ElementsAre(Row{*ClipboardStore::recordName("https://example.org", key(32))}));
    EXPECT_THAT(sql("SELECT ck, dirty FROM items"), ElementsAre(Row{"NULL", "1"}));

    // Reaching a text the history holds: that row moves up and this one goes.
    env.clock.advance(1);
    store.insert("older note");
    env.clock.advance(1);
    store.insert("older");
    env.clock.advance(1);
    EXPECT_EQ(store.replaceRecent("older", "older note"), Result::movedToTop);
    EXPECT_EQ(texts(), (std::vector<std::string>{"https://example.org/a", "older note"}));

    // A row the user pinned, named or filed meanwhile stays; so does any text
    // when the previous one is gone: both are plain inserts.
    store.setPinned(idOf("older note"), true);
    env.clock.advance(1);
    EXPECT_EQ(store.replaceRecent("older note", "older note!"), Result::inserted);
    EXPECT_EQ(store.replaceRecent("never stored", "fresh"), Result::inserted);
    EXPECT_EQ(texts(), (std::vector<std::string>{"https://example.org/a", "older note", "fresh",
                                                 "older note!"}));
}

TEST_F(ClipboardCapture, AnEqualTextStoredByAnotherConnectionMidInsertCountsAsMovedToTop) {
    store.insert("earlier");
    // Stands in for a second process that stores the same text between the store's UPDATE and
    // INSERT; the guard on the id keeps the trigger from firing for its own row.
    sql("CREATE TRIGGER race BEFORE INSERT ON items WHEN NEW.id <> 'other' BEGIN INSERT INTO "
        "items(id, text, hash, type, created) VALUES('other', NEW.text, NEW.hash, 'text', 1); END");

    EXPECT_EQ(store.insert("contested"), Result::movedToTop);
    EXPECT_THAT(texts(), ElementsAre("earlier"));

    // Dropping the trigger needs the write lock, so this also shows the transaction was ended.
    sql("DROP TRIGGER race");
    EXPECT_EQ(store.insert("contested"), Result::inserted);
}

}  // namespace
}  // namespace zettly
