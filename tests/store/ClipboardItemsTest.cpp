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
using Category = ClipboardStore::Category;
using Filter = ClipboardStore::CategoryFilter;
using test::Row;
using Types = std::optional<std::vector<std::string>>;

const ClipboardStore::Bytes kKey(32, 0x5a);

std::vector<std::string> texts(const std::vector<ClipboardStore::Item>& items) {
    std::vector<std::string> out;
    for (const auto& item : items)
        out.push_back(item.text);
    return out;
}

class ClipboardItems : public ::testing::Test {
protected:
    void SetUp() override { env.defaults.setData(prefkey::clipSyncKey, kKey); }

    // Each row is a minute newer than the one before.
    std::string add(const std::string& text) {
        env.clock.advance(60);
        EXPECT_EQ(store.insert(text), ClipboardStore::InsertResult::inserted);
        return store.fetch(1, 0, std::nullopt, false, Filter::any(), true).at(0).id;
    }
    std::vector<std::string> fetched(Types types = std::nullopt, bool pinnedOnly = false,
                                     Filter category = Filter::any()) {
        return texts(store.fetch(100, 0, types, pinnedOnly, category));
    }
    std::vector<Row> sql(const std::string& query) {
        return test::rows(*store.databasePath(), query);
    }
    Row row(const std::string& id, const std::string& columns) {
        return sql("SELECT " + columns + " FROM items WHERE id = '" + id + "'").at(0);
    }
    std::vector<Row> tombstones() {
        return sql("SELECT key, kind, CAST(at AS INTEGER) FROM sync_tombstones ORDER BY key");
    }
    // Times are compared as whole seconds; the clock moves by whole seconds here.
    std::string now() const { return std::to_string(static_cast<long long>(env.clock.now())); }

    test::StoreEnvironment env;
    ClipboardStore store{env.context()};
};

// Pinned A, B filed in X, unpinned C (a number) and D (a link), made in the order B, C, A, D.
class FourRows : public ClipboardItems {
protected:
    void SetUp() override {
        ClipboardItems::SetUp();
        x = *store.createCategory("X");
        b = add("B");
        c = add("42");
        a = add("A");
        d = add("https://d.example");
        store.setPinned(a, true);
        store.setCategory(b, x.id);
    }
    Category x;
    std::string a, b, c, d;
};

TEST_F(FourRows, FetchPutsPinnedRowsOutsideCategoriesFirstFiltersAndPages) {
    EXPECT_THAT(fetched(), ElementsAre("A", "https://d.example", "42", "B"));
    EXPECT_THAT(texts(store.fetch(100, 0, std::nullopt, false, Filter::any(), true)),
                ElementsAre("https://d.example", "A", "42", "B"));
    EXPECT_THAT(store.fetch(1, 0, std::nullopt, false, Filter::only(x.id)),
                ElementsAre(ClipboardStore::Item{b, "B", "text", 1'731'670'060.0, true, x.id, {}}));

    EXPECT_THAT(fetched(Types{{"url", "number"}}), ElementsAre("https://d.example", "42"));
    EXPECT_THAT(fetched(Types{std::vector<std::string>{}}),
                ElementsAre("A", "https://d.example", "42", "B"));
    EXPECT_THAT(fetched(std::nullopt, true), ElementsAre("A", "B"));
    EXPECT_THAT(fetched(std::nullopt, false, Filter::uncategorized()),
                ElementsAre("A", "https://d.example", "42"));
    // The category's id comes before the page in the bound parameters.
    EXPECT_THAT(fetched(Types{{"text"}}, false, Filter::only(x.id)), ElementsAre("B"));

    EXPECT_THAT(texts(store.fetch(2, 1)), ElementsAre("https://d.example", "42"));
    EXPECT_EQ(store.fetch(INT32_MAX, 0).size(), 4u);
    EXPECT_THAT(store.fetch(std::int64_t{1} << 32, 0), IsEmpty());
    EXPECT_THAT(store.fetch(10, std::int64_t{1} << 32), IsEmpty());
}

TEST_F(FourRows, RowsDueToExpireAreHiddenBeforeAnyInsertDeletesThem) {
    env.clock.advance(31 * 24 * 60 * 60);
    EXPECT_THAT(fetched(), ElementsAre("A", "B"));
    store.setLabel(c, "keep");
    EXPECT_THAT(fetched(), ElementsAre("A", "42", "B"));
}

TEST_F(FourRows, ClearingKeepsFiledRowsAndOptionallyThePinnedOnes) {
    store.clear(true);
    EXPECT_THAT(fetched(), ElementsAre("A", "B"));
    store.clear(false);
    EXPECT_THAT(fetched(), ElementsAre("B"));
    EXPECT_THAT(sql("SELECT key FROM sync_tombstones WHERE kind = 'item'"),
                UnorderedElementsAre(Row{*ClipboardStore::recordName("A", kKey)},
                                     Row{*ClipboardStore::recordName("42", kKey)},
                                     Row{*ClipboardStore::recordName("https://d.example", kKey)}));
}

TEST_F(FourRows, MetadataEditsStampTheRowAndUnpinningLeavesTheCategory) {
    auto edit = [&](const std::string& id, auto&& change) {
        sql("UPDATE items SET dirty = 0");
        env.clock.advance(7);
        change();
        EXPECT_EQ(row(id, "CAST(modified AS INTEGER), CAST(mm AS INTEGER), dirty"),
                  (Row{now(), now(), "1"}));
    };
    edit(c, [&] { store.setPinned(c, true); });
    edit(d, [&] { store.setLabel(d, "note"); });
    edit(a, [&] { store.setCategory(a, x.id); });
    edit(b, [&] { store.setPinned(b, false); });
    edit(d, [&] { store.setCategory(d, std::nullopt); });
    EXPECT_EQ(row(b, "pinned, category"), (Row{"0", "NULL"}));
    EXPECT_EQ(row(d, "pinned, category, label"), (Row{"1", "NULL", "note"}));

    // Labels become one trimmed line of at most 40 characters, never splitting one.
    const std::string a33(33, 'a');  // with "first " the emoji is the 40th character
    store.setLabel(c, "  first\n" + a33 + "\U0001F44D\U0001F3FDz");
    EXPECT_EQ(row(c, "label"), Row{"first " + a33 + "\U0001F44D\U0001F3FD"});
    store.setLabel(c, " \n\t ");
    EXPECT_EQ(row(c, "label"), Row{"NULL"});
}

TEST_F(FourRows, ATextEditRetiresTheOldRecordWhileARefusedOneLeavesTheRowAlone) {
    sql("UPDATE items SET ck = X'01', dirty = 0");
    Row before = row(c, "*");
    EXPECT_FALSE(store.updateText(c, "A"));
    EXPECT_FALSE(store.updateText(c, " \n\t"));
    EXPECT_FALSE(store.updateText(c, std::string(100001, 'x')));
    EXPECT_FALSE(store.updateText("missing", "new"));
    EXPECT_TRUE(store.updateText(c, "42"));
    EXPECT_EQ(row(c, "*"), before);
    EXPECT_THAT(tombstones(), IsEmpty());

    Row old = row(a, "rid, mm");
    env.clock.advance(30);
    const std::string text = "https://edited.example/page";
    ASSERT_TRUE(store.updateText(a, text));
    EXPECT_EQ(row(a, "text, hash, type, rid, ck, CAST(modified AS INTEGER), dirty, mm, pinned"),
              (Row{text, ClipboardStore::hash(text), "url", *ClipboardStore::recordName(text, kKey),
                   "NULL", now(), "1", old[1], "1"}));
    EXPECT_THAT(tombstones(), ElementsAre(Row{old[0], "item", now()}));
}

TEST_F(FourRows, DeletingACategoryLeavesItsRowsPinnedAndStampedAndTombstonesIt) {
    store.setCategory(c, x.id);
    env.clock.advance(100);
    store.deleteCategory(x.id);

    EXPECT_THAT(store.categories(), IsEmpty());
    for (const std::string& id : {b, c})
        EXPECT_EQ(row(id, "pinned, category, CAST(mm AS INTEGER), dirty"),
                  (Row{"1", "NULL", now(), "1"}));
    EXPECT_THAT(tombstones(), ElementsAre(Row{x.id, "category", now()}));

    env.defaults.remove(prefkey::clipSyncKey);
    store.deleteCategory(store.createCategory("Y")->id);
    EXPECT_THAT(tombstones(), ElementsAre(Row{x.id, "category", now()}));
}

TEST_F(ClipboardItems, CategoriesAreNamedOnceIgnoringCaseRenamedReorderedAndCounted) {
    auto work = store.createCategory("work");
    ASSERT_TRUE(work);
    EXPECT_EQ(store.createCategory("  Work\n"), work);
    auto ecole = store.createCategory("\u00c9COLE");
    EXPECT_EQ(store.createCategory("\u00e9cole"), ecole);
    EXPECT_EQ(store.createCategory(" \n "), std::nullopt);
    auto cut = store.createCategory(std::string(10, 'n') + std::string(40, 'm'));
    EXPECT_EQ(cut->name, std::string(10, 'n') + std::string(30, 'm'));
    sql("UPDATE categories SET dirty = 0");
    env.clock.advance(10);

    store.renameCategory(ecole->id, " Home\nOffice ");
    store.renameCategory(work->id, "  ");
    store.reorderCategories({cut->id, work->id, ecole->id, "missing"});
    EXPECT_THAT(store.categories(), ElementsAre(*cut, *work, Category{ecole->id, "Home Office"}));
    EXPECT_THAT(
        sql("SELECT sort, CAST(modified AS INTEGER), dirty FROM categories ORDER BY sort"),
        ElementsAre(Row{"1.0", now(), "1"}, Row{"2.0", now(), "1"}, Row{"3.0", now(), "1"}));

    store.setCategory(add("one"), work->id);
    store.setCategory(add("two"), work->id);
    EXPECT_EQ(store.categoryCounts(), (std::map<std::string, std::int64_t>{{work->id, 2}}));
}

TEST_F(ClipboardItems, IdsAndNamesWithSingleQuotesWorkEverywhere) {
    store.categories();
    // Created at the clock's start, so these rows are live.
    sql("INSERT INTO categories(id, name, sort, created) VALUES('cat''1', 'O''Brien', 1, 0);"
        "INSERT INTO items(id, text, hash, type, created, pinned, category, rid) VALUES "
        "('it''s', 'quoted', 'h1', 'o''clock', 1731670000, 1, 'cat''1', 'r''1'), "
        "('an''other', 'second', 'h2', 'text', 1731670000, 0, NULL, 'r''2')");

    EXPECT_THAT(fetched(std::nullopt, false, Filter::only("cat'1")), ElementsAre("quoted"));
    EXPECT_THAT(fetched(Types{{"o'clock"}}), ElementsAre("quoted"));
    EXPECT_EQ(store.createCategory("o'brien"), (Category{"cat'1", "O'Brien"}));
    EXPECT_EQ(store.categoryCounts().at("cat'1"), 1);

    EXPECT_TRUE(store.updateText("an'other", "second, edited"));
    store.deleteCategory("cat'1");
    store.deleteItem("it's");
    EXPECT_THAT(fetched(), ElementsAre("second, edited"));
    EXPECT_THAT(store.categories(), IsEmpty());
    EXPECT_THAT(tombstones(), ElementsAre(Row{"cat'1", "category", now()},
                                          Row{"r'1", "item", now()}, Row{"r'2", "item", now()}));
}

}  // namespace
}  // namespace zettly
