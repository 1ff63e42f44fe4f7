// The history window's search beyond the loaded texts: what it finds, in
// which order, and how a newer query, a reload and paging steer it.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "popup/PopupModel.h"
#include "store/PrefKeys.h"
#include "tests/fakes/SqlRows.h"
#include "tests/popup/HistoryModelFixture.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Filter = PopupModel::Filter;

// Texts copied a minute apart (HistoryWindowModel), and filler written
// straight into the file.
class PopupSearch : public test::HistoryWindowModel {
protected:
    void SetUp() override { env.defaults.setInteger(prefkey::clipboardLimit, 5000); }

    std::string addImage(const std::string& label) {
        std::string id = HistoryWindowModel::addImage(label);
        images.setLabel(id, label);
        return id;
    }
    // "filler 1" to "filler <count>", oldest first, which push everything
    // older out of the loaded 500. Written in one statement: a thousand
    // captures would take most of a minute on a disk.
    void addFiller(int count) {
        texts.fetch(1, 0);  // creates the file
        const std::string start = std::to_string(env.clock.now());
        test::rows(env.library() / "clipboard.sqlite",
                   "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < " +
                       std::to_string(count) +
                       ") INSERT INTO items(id, text, hash, type, created, pinned) "
                       "SELECT 'filler-' || " +
                       start + " || '-' || i, 'filler ' || i, 'filler-' || " + start +
                       " || '-' || i, 'text', " + start + " + i * 0.0005, 0 FROM n");
        env.clock.advance(1);
    }
    // Background work and its reports, until the search finishes or pauses.
    void settle() {
        do {
            searches.runAll();
            queue.runPending();
        } while (searches.pendingCount() > 0);
    }
    std::string selected() { return names.at(model.selectedEntry().value().id()); }
};

TEST_F(PopupSearch, FindsOldTextsByTheirLiveContentOnlyAndSaysWhenItIsDone) {
    addText("needle kept");
    const std::string gone = addText("needle deleted");
    const std::string edited = addText("needle before edit");
    addFiller(PopupModel::textLimit);
    texts.deleteItem(gone);
    ASSERT_TRUE(texts.updateText(edited, "rewritten words"));
    names["t" + edited] = "rewritten words";
    model.reset();

    model.setQuery("NEEDLE");
    EXPECT_THAT(shown(), IsEmpty()) << "the loaded texts hold no needle";
    EXPECT_TRUE(model.searching());
    settle();
    EXPECT_FALSE(model.searching());
    EXPECT_THAT(shown(), ElementsAre("needle kept"));

    model.setQuery("rewritten");
    settle();
    EXPECT_THAT(shown(), ElementsAre("rewritten words"));

    model.setFilter(Filter::images());
    EXPECT_FALSE(model.searching()) << "images are all loaded; nothing to search";
}

TEST_F(PopupSearch, FindsMergeInTheWindowsOrderAndTheHighlightStaysOnItsEntry) {
    addText("match oldest");
    addImage("match picture");
    addText("match older");
    addFiller(PopupModel::textLimit - 1);
    addText("match newest");
    model.reset();

    std::vector<unsigned> reports;
    model.onChange = [&](unsigned changes) { reports.push_back(changes); };
    model.setQuery("match");
    EXPECT_THAT(shown(), ElementsAre("match newest", "match picture"));
    model.move(1);
    settle();
    EXPECT_THAT(shown(),
                ElementsAre("match newest", "match older", "match picture", "match oldest"));
    EXPECT_EQ(selected(), "match picture");
    EXPECT_EQ(model.selection(), 2u);
    EXPECT_TRUE(reports.back() & PopupModel::searchingChanged);
}

TEST_F(PopupSearch, ChipsApplyToFindsAndPinnedOnesLeadUnderPinned) {
    const std::string work = texts.createCategory("Work").value().id;
    texts.setCategory(addText("match filed old"), work);
    addText("https://match.example/old");
    addText("match plain old");
    addFiller(PopupModel::textLimit);
    texts.setPinned(addText("match pinned"), true);
    env.clock.advance(1);
    texts.setCategory(addText("match filed new"), work);
    model.reset();
    model.setQuery("match");

    auto under = [this](const Filter& filter) {
        model.setFilter(filter);
        settle();
        return shown();
    };
    EXPECT_THAT(under(Filter::all()), ElementsAre("match plain old", "https://match.example/old"));
    EXPECT_THAT(under(Filter::links()), ElementsAre("https://match.example/old"));
    EXPECT_THAT(under(Filter::text()), ElementsAre("match pinned", "match filed new",
                                                   "match plain old", "match filed old"))
        << "the text chip ignores pinning and takes no links";
    EXPECT_THAT(under(Filter::pinned()),
                ElementsAre("match pinned", "match filed new", "match filed old"));
    EXPECT_THAT(under(Filter::category(work)), ElementsAre("match filed new", "match filed old"));
}

TEST_F(PopupSearch, ANewerQueryDropsTheOldSearchsReportsAndItsFinds) {
    addText("alpha old");
    addText("beta old");
    addFiller(PopupModel::textLimit);
    model.reset();

    model.setQuery("alpha");
    searches.runAll();  // its reports wait on the main queue
    model.setQuery("beta");
    queue.runPending();
    EXPECT_THAT(shown(), IsEmpty()) << "a find of the old query arrived";
    settle();
    EXPECT_THAT(shown(), ElementsAre("beta old"));

    model.setQuery("alpha");
    settle();
    model.setQuery("alph");
    EXPECT_THAT(shown(), IsEmpty())
        << "finds of another query stay until the new search finds them";
    searches.runAll();
    model.stopSearching();
    queue.runPending();
    EXPECT_THAT(shown(), IsEmpty());
    EXPECT_FALSE(model.searching());
}

TEST_F(PopupSearch, AReloadSearchesAgainAndReselectsTheFindItKept) {
    addText("match one");
    addText("match two");
    addFiller(PopupModel::textLimit);
    model.reset();
    model.setQuery("match");
    settle();
    model.move(1);
    const std::string kept = model.selectedEntry().value().id();
    EXPECT_EQ(selected(), "match one");

    model.reload(kept);
    EXPECT_THAT(shown(), IsEmpty());
    settle();
    EXPECT_THAT(shown(), ElementsAre("match two", "match one"));
    EXPECT_EQ(selected(), "match one");
}

TEST_F(PopupSearch, PausesAfterAPageAndGoesOnWhenTheHighlightNearsTheEnd) {
    constexpr std::size_t loaded = PopupModel::textLimit;
    constexpr std::size_t all = loaded + 3 * DeepSearch::pageSize;
    addFiller(int(all));
    model.reset();

    model.setQuery("filler");
    EXPECT_EQ(model.entries().size(), loaded);
    settle();
    const std::size_t firstPage = model.entries().size();
    EXPECT_GE(firstPage, loaded + DeepSearch::pageSize);
    EXPECT_LT(firstPage, all);
    EXPECT_FALSE(model.searching());

    model.setSelection(firstPage - PopupModel::nearEnd - 1);
    EXPECT_EQ(searches.pendingCount(), 0u) << "went on while the highlight was far from the end";
    model.move(1);
    EXPECT_TRUE(model.searching());
    settle();
    EXPECT_GT(model.entries().size(), firstPage);

    model.showMore();
    settle();
    model.showMore();
    settle();
    EXPECT_EQ(model.entries().size(), all);
    EXPECT_EQ(model.entries().back().text()->text, "filler 1");
}

}  // namespace
}  // namespace zettly
