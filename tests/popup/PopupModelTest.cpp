#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "popup/PopupModel.h"
#include "store/ChipOrder.h"
#include "store/ClipboardStore.h"
#include "store/ImageClipStore.h"
#include "store/PrefKeys.h"
#include "tests/popup/HistoryModelFixture.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Filter = PopupModel::Filter;
using test::HistoryWindowModel;

// Pinned "old pin" and "filed" (in a category, which pins it), then a
// plain text, an image, a link, in that order of time.
class FiveEntries : public HistoryWindowModel {
protected:
    void SetUp() override {
        texts.setPinned(addText("old pin"), true);
        work = category("Work");
        texts.setCategory(addText("filed"), work);
        addText("plain");
        addImage("picture");
        addText("https://example.com");
        model.reset();
    }
    std::string work;
};

TEST_F(FiveEntries, PinnedUncategorisedEntriesLeadWhileFiledOnesSortByTime) {
    EXPECT_THAT(listedAll(),
                ElementsAre("old pin", "https://example.com", "picture", "plain", "filed"));
    // An image made in the same second as a text keeps the store order: text first.
    addText("same second");
    addImage("same second image", true);
    model.reload();
    EXPECT_THAT(listedAll(), ElementsAre("old pin", "same second", "same second image",
                                         "https://example.com", "picture", "plain", "filed"));
}

TEST_F(FiveEntries, AllHidesEverythingPinnedWhileTheTypeChipsIgnorePinning) {
    EXPECT_EQ(model.filter(), Filter::all());
    EXPECT_THAT(shown(), ElementsAre("https://example.com", "picture", "plain"));
    EXPECT_THAT(shownUnder(Filter::pinned()), ElementsAre("old pin", "filed"));
    EXPECT_THAT(shownUnder(Filter::text()), ElementsAre("old pin", "plain", "filed"));
    EXPECT_THAT(shownUnder(Filter::links()), ElementsAre("https://example.com"));
    EXPECT_THAT(shownUnder(Filter::images()), ElementsAre("picture"));
    EXPECT_THAT(shownUnder(Filter::category(work)), ElementsAre("filed"));
    EXPECT_THAT(shownUnder(Filter::category("gone")), IsEmpty());
}

// Case, diacritics and blanks are TextSearchTest's (Folding, SearchKeys).
TEST_F(HistoryWindowModel, SearchFoldsTheQueryFallsBackToLabelsAndIgnoresABlankOne) {
    addText("Café au lait");
    texts.setLabel(addText("1 Main Street"), "Office");
    images.setLabel(addImage("receipt"), "Receipt");
    addImage("unnamed");
    model.reset();

    model.setQuery("  CAFE ");
    EXPECT_THAT(shown(), ElementsAre("Café au lait"));
    model.setQuery("ce");  // only in the two labels
    EXPECT_THAT(shown(), ElementsAre("receipt", "1 Main Street"));
    EXPECT_THAT(shownUnder(Filter::images()), ElementsAre("receipt"));
    model.setQuery("  \t");
    EXPECT_THAT(shown(), ElementsAre("unnamed", "receipt"));
}

// The list is kept up to date by moving entries in and out as the query
// narrows and widens; a fresh model with the same chip and query is the
// reference.
TEST_F(HistoryWindowModel, TypingAndDeletingGivesTheSameListAsAFreshSearch) {
    for (const char* text : {"alpha beta", "Beta", "gamma", "alphabet", "delta"})
        addText(text);
    texts.setLabel(texts.fetch(1, 0).at(0).id, "Alpha");
    model.reset();
    PopupModel fresh(texts, images, order, searches, queue);
    fresh.reset();
    const std::pair<const char*, Filter> steps[] = {
        {"a", Filter::all()},   {"al", Filter::all()},    {"alp", Filter::all()},
        {"", Filter::all()},    {"bet", Filter::all()},   {"bet", Filter::text()},
        {"zz", Filter::text()}, {"", Filter::text()},     {"a", Filter::links()},
        {"a", Filter::all()},   {"delta", Filter::all()}, {"", Filter::all()},
    };
    for (const auto& [query, filter] : steps) {
        model.setFilter(filter);
        model.setQuery(query);
        fresh.setQuery("");
        fresh.reload();
        fresh.setFilter(filter);
        fresh.setQuery(query);
        ASSERT_EQ(model.entries(), fresh.entries()) << "\"" << query << "\"";
        // Entries move between the shown list and the whole one; none may
        // come back empty.
        for (std::size_t i = 0; i < fresh.allCount(); ++i)
            ASSERT_EQ(model.allAt(i), fresh.allAt(i)) << "\"" << query << "\" " << i;
    }
    EXPECT_EQ(model.entries().size(), 5u);

    // A reload that finds nothing new keeps the shown entries and drops its
    // fresh copies of them; hiding and showing them again loses nothing.
    model.reload();
    for (const char* query : {"gamma", "", "alp"})
        model.setQuery(query);
    fresh.reload();
    for (std::size_t i = 0; i < fresh.allCount(); ++i)
        ASSERT_EQ(model.allAt(i), fresh.allAt(i)) << i;
}

TEST_F(HistoryWindowModel, SelectionClampsToTheListFollowsAReloadedEntryAndReportsRealChanges) {
    std::string hidden = addText("pinned");
    texts.setPinned(hidden, true);
    std::string one = addText("one");
    for (const char* text : {"two", "three"})
        addText(text);
    model.reset();
    int calls = 0;
    model.onSelectionChanged = [&] { ++calls; };

    model.setSelection(2);
    model.setSelection(2);
    model.move(5);
    EXPECT_EQ(model.selection(), 2u);
    EXPECT_EQ(calls, 1);
    model.move(-1);
    EXPECT_EQ(model.selectedEntry()->text()->text, "two");
    EXPECT_EQ(calls, 2);

    // A row added on top does not drag the highlight along.
    addText("four");
    model.reload();
    EXPECT_EQ(model.selection(), 1u);
    EXPECT_EQ(calls, 2);
    model.reload("t" + one);
    EXPECT_EQ(model.selection(), 3u);
    model.reload("t" + hidden);  // not under All
    model.reload("i" + one);     // an image id never matches a text
    EXPECT_EQ(model.selection(), 3u);

    // Fewer rows than the selection: it moves to the last one.
    texts.deleteItem(one);
    model.reload();
    EXPECT_EQ(model.selection(), 2u);
    model.setQuery("nothing like it");
    EXPECT_EQ(model.selection(), 0u);
    EXPECT_EQ(model.entry(0), std::nullopt);
    model.setSelection(4);
    model.move(-1);
    EXPECT_EQ(model.selection(), 4u);
    EXPECT_EQ(model.entry(-1), std::nullopt);
}

TEST_F(HistoryWindowModel, ReportsEachOperationOnceWithWhatChanged) {
    addText("alpha");
    addText("beta");
    std::vector<unsigned> reports;
    model.onChange = [&](unsigned changes) { reports.push_back(changes); };

    model.reset();
    model.setSelection(1);
    model.setQuery("alp");
    model.reload();  // nothing new in the stores
    model.setQuery("alp");

    using C = PopupModel::Change;
    EXPECT_THAT(reports,
                ElementsAre(C::filtersChanged | C::entriesChanged | C::opened, C::selectionChanged,
                            C::queryChanged | C::entriesChanged | C::selectionChanged |
                                C::searchingChanged));
}

TEST_F(HistoryWindowModel, OpeningStartsOverOnTheFirstStoredChipWithNewCategoriesBesideTheOthers) {
    std::string a = category("A");
    std::string b = category("B");
    addText("old");
    env.defaults.setStringArray(prefkey::clipboardChipOrder, {"text", "cat:" + a, "all"});
    model.reset();
    EXPECT_THAT(chipKeys(),
                ElementsAre("text", "cat:" + a, "cat:" + b, "all", "pinned", "links", "images"));
    EXPECT_EQ(model.filter(), Filter::text());
    EXPECT_EQ(model.title(model.filters()[2]), "B");
    EXPECT_EQ(model.title(Filter::category("gone")), "?");

    model.setFilter(Filter::links());
    model.setQuery("old");
    addText("new");
    model.reset();
    EXPECT_EQ(model.query(), "");
    EXPECT_EQ(model.filter(), Filter::text());
    EXPECT_THAT(shown(), ElementsAre("new", "old"));
    EXPECT_EQ(model.openCount(), 2);
}

TEST_F(HistoryWindowModel, ADraggedChipTakesTheTargetsPlaceAndTheOrderIsStored) {
    env.defaults.setStringArray(prefkey::clipboardChipOrder, {"all", "pinned", "text"});
    model.reset();
    model.moveChip(Filter::all(), Filter::text());
    EXPECT_THAT(chipKeys(), ElementsAre("pinned", "text", "all", "links", "images"));
    model.moveChip(Filter::text(), Filter::pinned());
    EXPECT_THAT(chipKeys(), ElementsAre("text", "pinned", "all", "links", "images"));
    model.moveChip(Filter::text(), Filter::category("gone"));
    model.moveChip(Filter::links(), Filter::links());

    PopupModel another(texts, images, order, searches, queue);
    another.reset();
    EXPECT_EQ(another.filters(), model.filters());
    EXPECT_EQ(another.filter(), Filter::text());
}

TEST_F(HistoryWindowModel, DeletingTheActiveCategoryFallsBackToTheFirstChip) {
    std::string work = category("Work");
    texts.setCategory(addText("x"), work);
    texts.setCategory(addText("y"), work);
    env.defaults.setStringArray(prefkey::clipboardChipOrder, {"pinned", "all"});
    model.reset();
    model.setFilter(Filter::category(work));
    model.setSelection(1);

    texts.deleteCategory(work);
    model.reload();
    EXPECT_EQ(model.filter(), Filter::pinned());
    EXPECT_EQ(model.selection(), 0u);
    EXPECT_THAT(shown(), ElementsAre("y", "x"));
}

TEST_F(HistoryWindowModel, CyclingChipsWrapsAtBothEnds) {
    std::string work = category("Work");
    model.reset();
    ASSERT_THAT(chipKeys(), ElementsAre("all", "pinned", "cat:" + work, "text", "links", "images"));
    model.setSelection(3);
    model.cycleFilter(-1);
    EXPECT_EQ(model.filter(), Filter::images());
    EXPECT_EQ(model.selection(), 0u);
    model.cycleFilter(1);
    EXPECT_EQ(model.filter(), Filter::all());
    model.setFilter(Filter::category("not a chip"));
    model.cycleFilter(1);
    EXPECT_EQ(model.filter(), Filter::pinned());
}

TEST_F(FiveEntries, RowsShowTheirCategoryExceptUnderItsOwnChip) {
    const PopupModel::Entry& filed = model.allAt(model.allCount() - 1);
    ASSERT_EQ(names.at(filed.id()), "filed");
    EXPECT_EQ(model.categoryTag(filed), "Work");
    EXPECT_EQ(model.categoryTag(model.allAt(0)), std::nullopt);
    model.setFilter(Filter::category(work));
    EXPECT_EQ(model.categoryTag(filed), std::nullopt);

    PopupModel localised(texts, images, order, searches, queue, [](Filter::Kind kind) {
        return kind == Filter::Kind::all ? "Alle" : "?";
    });
    EXPECT_EQ(localised.title(Filter::all()), "Alle");
}

TEST(ChipKeys, RoundTripAndRejectUnknownWords) {
    for (const Filter& filter : {Filter::all(), Filter::pinned(), Filter::text(), Filter::links(),
                                 Filter::images(), Filter::category("ABC-1")})
        EXPECT_EQ(Filter::fromKey(filter.key()), filter);
    EXPECT_EQ(Filter::category("ABC-1").key(), "cat:ABC-1");
    EXPECT_EQ(Filter::fromKey("Images"), std::nullopt);
    EXPECT_EQ(Filter::fromKey("ca:x"), std::nullopt);
}

}  // namespace
}  // namespace zettly
