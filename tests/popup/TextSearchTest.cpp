#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "popup/TextSearch.h"

namespace zettly {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Range = std::pair<std::size_t, std::size_t>;

TEST(Folding, IgnoresCaseAndAccentsWithoutALocaleAndQueriesLoseOnlyBlanksAtTheEnds) {
    // "Cafe\u0301" is decomposed, as some PDFs and file names give it.
    const std::pair<const char*, const char*> cases[] = {{"Café AU Lait", "cafe au lait"},
                                                         {"Cafe\u0301", "cafe"},
                                                         {"Straße", "strasse"},
                                                         {"İstanbul", "istanbul"},
                                                         {"ΑΘΉΝΑ", "αθηνα"},
                                                         {"Plain, 42!", "plain, 42!"},
                                                         {"日本語", "日本語"},
                                                         {"A\xff"
                                                          "B",
                                                          "a\uFFFDb"},
                                                         {"\xc3", "\uFFFD"}};
    for (auto [text, folded] : cases)
        EXPECT_EQ(search::fold(text), folded) << text;

    EXPECT_EQ(search::foldQuery("  Cafe \t"), "cafe");
    EXPECT_EQ(search::foldQuery(" a b "), "a b");
    EXPECT_EQ(search::foldQuery("\nEnd\n"), "\nend\n");
    EXPECT_EQ(search::foldQuery(" \t  "), "");
}

// The vectorised scan agrees with a plain find for every needle taken from
// a haystack of every length up to a few blocks; the small alphabet makes
// the two key bytes match often where the rest does not.
TEST(Contains, AgreesWithPlainFindAcrossBlockBoundaries) {
    const std::string alphabet = "ab ab\n.a";
    std::string source;
    for (std::size_t i = 0; i < 70; ++i)
        source.push_back(alphabet[(i * 7 + i / 5) % alphabet.size()]);
    const std::vector<std::string> extra = {"", "abz", "zz", "q", "a", "ab ab\n.a", "b a"};
    for (std::size_t length = 0; length <= source.size(); ++length) {
        std::string_view haystack(source.data(), length);
        std::vector<std::string> needles = extra;
        for (std::size_t at = 0; at < length; at += 3)
            for (std::size_t size : {1, 2, 3, 5, 17})
                needles.push_back(std::string(haystack.substr(at, size)));
        for (const std::string& needle : needles)
            ASSERT_EQ(search::contains(haystack, needle),
                      haystack.find(needle) != std::string_view::npos)
                << "needle \"" << needle << "\" in the first " << length << " bytes";
    }
}

TEST(Contains, FindsAMatchInEachLaneButNeverLooksPastTheEndOfTheHaystack) {
    for (std::size_t lane = 0; lane < 40; ++lane) {
        std::string haystack(40 + 8, '-');
        haystack.replace(lane, 3, "x#y");
        EXPECT_TRUE(search::contains(haystack, "x#y")) << lane;
        EXPECT_FALSE(search::contains(haystack, "x#z")) << lane;
    }
    // The bytes after the view would complete the needle.
    const std::string buffer = std::string(31, '.') + "needle";
    for (std::size_t cut = 1; cut < 6; ++cut)
        EXPECT_FALSE(search::contains({buffer.data(), buffer.size() - cut}, "needle")) << cut;
}

TEST(MatchRanges, CoverWholeSourceCharactersAndAreDisjointCappedAndEmptyForAnEmptyQuery) {
    EXPECT_THAT(search::matchRanges("Café au lait", "cafe"), ElementsAre(Range{0, 5}));
    // The combining accent belongs to the "e" it sits on.
    EXPECT_THAT(search::matchRanges("Cafe\u0301!", "cafe"), ElementsAre(Range{0, 6}));
    EXPECT_THAT(search::matchRanges("Straße", "ss"), ElementsAre(Range{4, 6}));
    // Each half of the folded "ss" matches; one highlight, not two overlapping.
    EXPECT_THAT(search::matchRanges("Maße", "s"), ElementsAre(Range{2, 4}));
    EXPECT_THAT(search::matchRanges("🙂 ok 🙂 OK", "ok"),
                ElementsAre(Range{5, 7}, Range{13, 15}));
    EXPECT_THAT(search::matchRanges("aaaaa", "aa"), ElementsAre(Range{0, 2}, Range{2, 4}));
    EXPECT_THAT(search::matchRanges("x x x x", "x", 2), ElementsAre(Range{0, 1}, Range{2, 3}));
    EXPECT_THAT(search::matchRanges("text", ""), IsEmpty());
    EXPECT_THAT(search::matchRanges("a\xff"
                                    "b",
                                    "b"),
                ElementsAre(Range{2, 3}));
}

TEST(SearchKeys, ShareLowerCaseAsciiStayValidWhenMovedAndFallBackToTheLabel) {
    const std::string lower = "already lower case";
    std::vector<std::string> sources = {"SHORT", "Crème brûlée", lower};
    std::vector<SearchKey> keys;
    for (const std::string& source : sources)
        keys.emplace_back(source, std::nullopt);
    keys.emplace_back("1 Main Street", std::string("Café"));
    for (int i = 0; i < 100; ++i)  // reallocates the vector several times
        keys.emplace_back("Filler", std::nullopt);

    EXPECT_EQ(keys[0].text(), "short");
    EXPECT_EQ(keys[1].text(), "creme brulee");
    EXPECT_EQ(keys[2].text().data(), sources[2].data());
    EXPECT_EQ(keys[3].label(), "cafe");
    EXPECT_EQ(keys[0].label(), std::nullopt);
    EXPECT_TRUE(keys[3].matches("main") && keys[3].matches("caf"));
    EXPECT_FALSE(keys[3].matches("home"));
    EXPECT_TRUE(keys[3].labelMatches("cafe"));
    EXPECT_FALSE(keys[3].labelMatches("main") || keys[0].labelMatches("short"));
}

}  // namespace
}  // namespace zettly
