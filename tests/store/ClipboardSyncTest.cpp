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
using Bytes = ClipboardStore::Bytes;
using SyncItem = ClipboardStore::SyncItem;
using SyncCategory = ClipboardStore::SyncCategory;
using Applied = ClipboardStore::SyncApplied;
using test::Row;

const Bytes kKey(32, 0x5a);
const Bytes kTag{0xab};
constexpr double kDay = 24 * 60 * 60;
const std::string kTombstones =
    "SELECT key, kind, CAST(at AS INTEGER) FROM sync_tombstones ORDER BY key";
// What sync keeps of every row and category: its server tag and whether it is to be sent.
const std::string kSyncState =
    "SELECT text, hex(ck), dirty FROM items UNION ALL "
    "SELECT 'category ' || name, hex(ck), dirty FROM categories ORDER BY 1";

std::string rid(const std::string& text) {
    return *ClipboardStore::recordName(text, kKey);
}
// Times are compared as whole seconds; the clock moves by whole seconds here.
std::string whole(double t) {
    return std::to_string(static_cast<long long>(t));
}

struct ClipboardSync : ::testing::Test {
    ClipboardSync() {
        env.defaults.setData(prefkey::clipSyncKey, kKey);
        store.didChangeLocally = [this] { ++notified; };
    }
    // A plain text from another device, copied there at `created`.
    SyncItem remote(const std::string& text, double created) {
        return SyncItem{rid(text), text, "text", created, created, 0, false, {}, {}, kTag};
    }
    // Each local copy is a minute newer than the one before.
    std::string add(const std::string& text) {
        env.clock.advance(60);
        store.insert(text);
        return sql("SELECT id FROM items WHERE text = '" + text + "'").at(0).at(0);
    }
    std::vector<Row> sql(const std::string& query) {
        return test::rows(*store.databasePath(), query);
    }
    std::vector<Row> tombstones() { return sql(kTombstones); }
    double now() const { return env.clock.now(); }

    test::StoreEnvironment env;
    ClipboardStore store{env.context()};
    int notified = 0;
};

TEST_F(ClipboardSync, PendingNamesRowsCopiedBeforeTheKeyAndGivesTheNewestWithinTheLimit) {
    env.defaults.remove(prefkey::clipSyncKey);
    add("old");
    add("mid");
    add("new");
    auto work = store.createCategory("Work");
    sql("INSERT INTO sync_tombstones VALUES('month', 'item', " + whole(now() - 31 * kDay) +
        "), ('week', 'category', " + whole(now() - 7 * kDay) + ")");
    EXPECT_THAT(store.syncPending(10).items, IsEmpty());

    env.defaults.setData(prefkey::clipSyncKey, kKey);
    auto pending = store.syncPending(2);
    EXPECT_THAT(pending.items,
                ElementsAre(SyncItem{rid("new"), "new", "text", now(), now(), 0, false, {}, {}, {}},
                            ::testing::Field(&SyncItem::rid, rid("mid"))));
    EXPECT_THAT(pending.categories,
                ElementsAre(SyncCategory{work->id, "Work", 1, now(), now(), {}}));
    EXPECT_THAT(pending.tombstones,
                ElementsAre(ClipboardStore::SyncTombstone{"week", "category", now() - 7 * kDay}));
    EXPECT_THAT(store.syncPending(-1).items, IsEmpty());
    store.syncRemoveTombstone("week");
    EXPECT_THAT(store.syncPending(10).tombstones, IsEmpty());
}

TEST_F(ClipboardSync, AConfirmedSendKeepsTheServerTagButRowsChangedMeanwhileStayDirty) {
    add("a");
    add("b");
    auto work = store.createCategory("Work");
    auto sent = store.syncPending(10);
    env.clock.advance(5);
    store.insert("a");
    store.renameCategory(work->id, "Job");
    store.syncMarkSentItems({{sent.items[0].rid, sent.items[0].modified, kTag},
                             {sent.items[1].rid, sent.items[1].modified, kTag}});
    store.syncMarkSentCategory(work->id, sent.categories.at(0).modified, kTag);
    EXPECT_THAT(sql(kSyncState), ElementsAre(Row{"a", "AB", "1"}, Row{"b", "AB", "0"},
                                             Row{"category Job", "AB", "1"}));

    store.syncForgetItemTag(rid("b"));
    store.syncForgetCategoryTag(work->id);
    store.syncMarkSentItem(rid("a"), now(), std::nullopt);
    EXPECT_THAT(sql(kSyncState),
                ElementsAre(Row{"a", "", "0"}, Row{"b", "", "0"}, Row{"category Job", "", "1"}));
}

// The one-by-one store is the reference for the batch; a page may bring items out of order.
TEST_F(ClipboardSync, ABatchOverTheHistoryLimitStoresCleanRowsLikeTakingItemsInOneByOne) {
    env.defaults.setInteger(prefkey::clipboardLimit, 2);
    add("here");
    SyncItem pinned = remote("pinned", now() - 10);
    pinned.pinned = true;
    SyncItem unnamed = remote("unnamed", now() + 9);
    unnamed.rid.clear();
    SyncItem code = remote("r4", now() + 4);
    code.type = "code";
    code.label = "note";
    code.mm = code.modified = now() + 5;
    std::vector<SyncItem> batch{
        remote("r3", now() + 3), remote("r1", now() + 1), pinned, unnamed, code,
        remote("r2", now() + 2)};
    EXPECT_THAT(store.syncApplyItems(batch),
                ElementsAre(Applied::changed, Applied::changed, Applied::changed,
                            Applied::unchanged, Applied::changed, Applied::changed));

    test::StoreEnvironment single;
    single.defaults.setInteger(prefkey::clipboardLimit, 2);
    single.defaults.setData(prefkey::clipSyncKey, kKey);
    single.clock.set(now());
    ClipboardStore one(single.context());
    one.insert("here");
    for (const SyncItem& item : batch)
        one.syncApply(item);

    const std::string kept =
        "SELECT text, type, CAST(created AS INTEGER), CAST(modified AS INTEGER), CAST(mm AS "
        "INTEGER), pinned, label, dirty, hex(ck), rid FROM items ORDER BY created DESC";
    EXPECT_THAT(sql(kept), ElementsAre(Row{"r4", "code", whole(now() + 4), whole(now() + 5),
                                           whole(now() + 5), "0", "note", "0", "AB", rid("r4")},
                                       ::testing::Contains("r3"), ::testing::Contains("pinned")));
    EXPECT_EQ(test::rows(*one.databasePath(), kept), sql(kept));
    EXPECT_THAT(tombstones(), ElementsAre(Row{rid("here"), "item", whole(now())},
                                          Row{rid("r1"), "item", whole(now())},
                                          Row{rid("r2"), "item", whole(now())}));
    EXPECT_EQ(test::rows(*one.databasePath(), kTombstones), tombstones());
}

TEST_F(ClipboardSync, ARemoteCopyOfAKnownTextIsMergedIntoItsRowEvenUnderAnotherName) {
    // Copied here before the key was shared: found by its text, it takes the received name.
    env.defaults.remove(prefkey::clipSyncKey);
    std::string id = add("shared");
    double copied = now();
    sql("UPDATE items SET dirty = 0");
    SyncItem item = remote("shared", copied - 100);
    item.rid = "c_phone";
    item.pinned = true;
    item.label = "work";
    item.mm = item.modified = copied - 50;
    // The label arrives; the later local copy time stays and must go up.
    EXPECT_TRUE(store.syncApply(item));
    EXPECT_THAT(sql("SELECT rid, pinned, label, CAST(created AS INTEGER), CAST(modified AS "
                    "INTEGER), CAST(mm AS INTEGER), dirty, hex(ck) FROM items"),
                ElementsAre(Row{"c_phone", "1", "work", whole(copied), whole(copied),
                                whole(copied - 50), "1", "AB"}));
    EXPECT_FALSE(store.syncApply(item));

    // An unsent local edit outlives an older remote one, and is clean once the server has it.
    env.clock.advance(10);
    store.setLabel(id, "mine");
    item.label = "theirs";
    item.mm = item.modified = copied + 5;
    item.ck = Bytes{0xcd};
    EXPECT_FALSE(store.syncApply(item));
    EXPECT_THAT(sql(kSyncState), ElementsAre(Row{"shared", "CD", "1"}));
    item.label = "mine";
    item.created = copied;
    item.mm = item.modified = now();
    EXPECT_FALSE(store.syncApply(item));
    EXPECT_THAT(sql("SELECT label, dirty FROM items"), ElementsAre(Row{"mine", "0"}));
}

TEST_F(ClipboardSync, DeletedOrExpiredEntriesAreNotBroughtBackByCopiesThatAreNotNewer) {
    store.deleteItem(add("x"));
    double deleted = now();
    SyncItem item = remote("x", deleted - 60);
    item.modified = deleted;
    EXPECT_FALSE(store.syncApply(item));

    // Older than the retention: left out, unless the user kept it, and
    // deleted nowhere (another device's clock decides for its own copy).
    EXPECT_FALSE(store.syncApply(remote("old", now() - 31 * kDay)));
    SyncItem pinned = remote("pinned", now() - 31 * kDay);
    pinned.pinned = true;
    EXPECT_TRUE(store.syncApply(pinned));
    // A copy made here since moves the entry forward; an old record of it
    // does not take it away.
    add("recent");
    sql("UPDATE items SET dirty = 0");
    EXPECT_FALSE(store.syncApply(remote("recent", now() - 31 * kDay)));
    EXPECT_THAT(sql("SELECT text FROM items ORDER BY text"),
                ElementsAre(Row{"pinned"}, Row{"recent"}));
    EXPECT_THAT(tombstones(), ElementsAre(Row{rid("x"), "item", whole(deleted)}));

    // A clock that disagrees with the server's has no say in what is old.
    store.syncSetClockTrusted(false);
    EXPECT_TRUE(store.syncApply(remote("old", now() - 31 * kDay)));
    EXPECT_THAT(sql("SELECT count(*) FROM items WHERE text = 'old'"), ElementsAre(Row{"1"}));
}

TEST_F(ClipboardSync, ARemoteCategoryReplacesTheLocalOneOnlyWhenNewer) {
    double made = now();
    SyncCategory work{"C1", "Work", 2, made, made, kTag};
    EXPECT_EQ(store.syncApply(work), Applied::changed);
    env.clock.advance(10);
    store.renameCategory("C1", "Job");
    work.name = "Office";
    work.modified = now();
    work.ck = Bytes{0xcd};
    EXPECT_EQ(store.syncApply(work), Applied::unchanged);
    EXPECT_THAT(sql("SELECT name, sort, dirty, hex(ck) FROM categories"),
                ElementsAre(Row{"Job", "2.0", "1", "CD"}));

    work.modified = now() + 1;
    work.sort = 5;
    work.created = 0;
    EXPECT_EQ(store.syncApply(work), Applied::changed);
    EXPECT_THAT(sql("SELECT name, sort, CAST(created AS INTEGER), dirty FROM categories"),
                ElementsAre(Row{"Office", "5.0", whole(made), "0"}));

    env.clock.advance(10);
    store.deleteCategory("C1");
    work.modified = now();
    EXPECT_EQ(store.syncApply(work), Applied::unchanged);
    EXPECT_THAT(store.categories(), IsEmpty());
}

TEST_F(ClipboardSync, RemoteDeletionsSpareWhatChangedHereAndWasNotSentYet) {
    std::string filed = add("filed");
    add("sent");
    store.deleteItem(add("gone"));
    store.syncApply(SyncCategory{"C1", "Work", 1, now(), now(), kTag});
    store.setCategory(filed, "C1");
    auto local = store.createCategory("Local");
    sql("UPDATE items SET dirty = 0 WHERE text = 'sent'");

    EXPECT_EQ(store.syncApplyDeletion(rid("filed"), false), Applied::unchanged);
    EXPECT_EQ(store.syncApplyDeletion(rid("sent"), false), Applied::changed);
    EXPECT_EQ(store.syncApplyDeletion(rid("gone"), false), Applied::unchanged);
    EXPECT_THAT(tombstones(), IsEmpty());
    EXPECT_EQ(store.syncApplyDeletion(local->id, true), Applied::unchanged);

    // Its rows leave it but stay pinned, and have nothing new to send.
    sql("UPDATE items SET dirty = 0");
    EXPECT_EQ(store.syncApplyDeletion("C1", true), Applied::changed);
    EXPECT_THAT(store.categories(), ElementsAre(*local));
    EXPECT_THAT(sql("SELECT text, pinned, category, dirty FROM items"),
                ElementsAre(Row{"filed", "1", "NULL", "0"}));
}

TEST_F(ClipboardSync, ANewKeyRenamesEveryRowAndEverythingIsSentAgain) {
    add("a");
    store.createCategory("Work");
    store.deleteItem(add("c"));
    const std::string clean =
        "UPDATE items SET dirty = 0, ck = X'AB', modified = NULL;"
        "UPDATE categories SET dirty = 0, ck = X'AB', modified = NULL";
    sql(clean);
    std::vector<Row> before = sql("SELECT * FROM items");
    EXPECT_FALSE(store.syncPrepareFullUpload(Bytes(16, 1)));
    EXPECT_EQ(sql("SELECT * FROM items"), before);

    const Bytes key(32, 0x11);
    EXPECT_TRUE(store.syncPrepareFullUpload(key));
    EXPECT_THAT(
        sql("SELECT rid, modified = created FROM items UNION ALL SELECT id, modified = "
            "created FROM categories"),
        ElementsAre(Row{*ClipboardStore::recordName("a", key), "1"}, ::testing::Contains("1")));
    EXPECT_THAT(sql(kSyncState), ElementsAre(Row{"a", "", "1"}, Row{"category Work", "", "1"}));
    EXPECT_THAT(tombstones(), IsEmpty());

    sql(clean);
    store.syncForgetServerState();
    EXPECT_THAT(sql(kSyncState), ElementsAre(Row{"a", "", "1"}, Row{"category Work", "", "1"}));
}

TEST_F(ClipboardSync, NothingTakenInFromTheCloudSchedulesAnotherSync) {
    EXPECT_TRUE(store.syncApply(remote("x", now())));
    EXPECT_EQ(store.syncApply(SyncCategory{"C1", "Work", 1, now(), now(), kTag}), Applied::changed);
    EXPECT_EQ(store.syncApplyDeletion(rid("x"), false), Applied::changed);
    EXPECT_EQ(store.syncApplyDeletion("C1", true), Applied::changed);
    store.syncPending(10);
    EXPECT_TRUE(store.syncPrepareFullUpload(kKey));
    store.syncForgetServerState();
    EXPECT_EQ(notified, 0);
}

}  // namespace
}  // namespace zettly
