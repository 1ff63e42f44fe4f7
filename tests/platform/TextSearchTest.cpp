#include <cctype>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/TextSearch.h"

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

// Each needle placed at every offset of haystacks spanning a few 16-byte
// blocks, in capitals where the needle is lower-case: found wherever it
// lies, never past the end of the view, and a capital never stands in for
// a byte that is not a letter ("@" is "`" minus 0x20).
TEST(ContainsIgnoringAsciiCase, FindsCapitalsInEachLaneAndOnlyLettersFoldTogether) {
    for (std::string_view needle : {"x#y", "q", "ab"}) {
        std::string upper(needle);
        for (char& c : upper)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        for (std::size_t length = needle.size(); length < 50; ++length) {
            for (std::size_t at = 0; at + needle.size() <= length; ++at) {
                std::string haystack(length, '-');
                haystack.replace(at, needle.size(), upper);
                ASSERT_TRUE(search::containsIgnoringAsciiCase(haystack, needle))
                    << needle << " at " << at << " of " << length;
                ASSERT_FALSE(search::contains(haystack, needle)) << needle << " at " << at;
                // Cut just before the needle's end.
                ASSERT_FALSE(search::containsIgnoringAsciiCase(
                    std::string_view(haystack).substr(0, at + needle.size() - 1), needle))
                    << needle << " at " << at << " of " << length;
            }
        }
    }
    EXPECT_FALSE(search::containsIgnoringAsciiCase(std::string(20, '@') + "`", "``"));
    EXPECT_FALSE(search::containsIgnoringAsciiCase("[\\]^_@", "{|}~\x7f`"));
    EXPECT_FALSE(search::containsIgnoringAsciiCase("A", "ab"));
    EXPECT_TRUE(search::containsIgnoringAsciiCase("anything", ""));
}

// A text's key holds a folded copy only where folding does more than lower
// ASCII capitals, and the key answers as folding the whole text and
// finding the folded query in it did: on random texts of ASCII, Latin-1,
// Greek, Turkish, emoji, CJK and combining marks, with needles cut from the
// text, their case changed, and made up from the same pieces.
TEST(SearchKeys, AnswerAsFoldingTheWholeTextDidAndCopyOnlyWhatFoldingChanges) {
    const std::vector<std::string> pieces = {
        "a", "B", "c", "X",    "e",  " ",  "\n", "@", "`",    "é", "É", "e\u0301", "\u0308",
        "ß", "ẞ", "ü", "Ü",    "ÿ",  "Ÿ",  "Σ",  "σ", "ς",    "Ά", "ά", "İ",       "ı",
        "I", "i", "ﬁ", "🙂", "日", "本", "Ω",  "ω", "\xff", "s", "S", "caf",     "CAF"};
    std::uint32_t state = 12345;
    auto next = [&](std::uint32_t below) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state % below;
    };
    auto randomText = [&](std::size_t count, std::size_t asciiOnlyBelow) {
        std::string out;
        for (std::size_t i = 0; i < count; ++i)
            out += pieces[next(static_cast<std::uint32_t>(asciiOnlyBelow))];
        return out;
    };
    const std::vector<std::pair<std::string, std::string>> swaps = {
        {"é", "É"}, {"ü", "Ü"}, {"σ", "Σ"}, {"ß", "SS"}, {"i", "İ"}, {"ά", "Ά"}};
    std::size_t matched = 0;
    std::size_t checked = 0;
    for (int round = 0; round < 400; ++round) {
        // One text in four is plain ASCII (the pieces before "é").
        const std::string text = randomText(1 + next(60), round % 4 == 0 ? 9 : pieces.size());
        const SearchKey key(text, std::nullopt);
        const std::string folded = search::fold(text);
        std::string lowered = text;
        for (char& c : lowered)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        EXPECT_EQ(key.holdsFoldedText(), folded != lowered) << text;

        std::vector<std::string> queries;
        for (int i = 0; i < 6; ++i)
            queries.push_back(randomText(1 + next(3), pieces.size()));
        for (int i = 0; i < 6; ++i) {
            const std::size_t start = next(static_cast<std::uint32_t>(text.size()));
            std::string cut = text.substr(start, 1 + next(12));  // may split a character
            for (char& c : cut)
                if (next(2) == 0)
                    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            for (const auto& [from, to] : swaps)
                for (std::size_t at = cut.find(from); at != std::string::npos;
                     at = cut.find(from, at + to.size()))
                    cut.replace(at, from.size(), to);
            queries.push_back(cut);
        }
        for (const std::string& query : queries) {
            const std::string needle = search::foldQuery(query);
            const bool expected = folded.find(needle) != std::string::npos;
            ASSERT_EQ(key.matches(text, needle), expected)
                << "\"" << query << "\" in \"" << text << "\"";
            matched += expected;
            ++checked;
        }
    }
    // Both answers were given often enough to mean something.
    EXPECT_GT(matched, checked / 5);
    EXPECT_LT(matched, checked - checked / 5);
}

TEST(SearchKeys, FindAccentsCapitalsSharpSAndDottedIAsBeforeAndFallBackToTheLabel) {
    auto finds = [](std::string_view text, std::string_view query) {
        return SearchKey(text, std::nullopt).matches(text, search::foldQuery(query));
    };
    EXPECT_TRUE(finds("Café", "cafe"));
    EXPECT_TRUE(finds("CAFÉ", "café"));
    EXPECT_TRUE(finds("Cafe\u0301 noir", "CAFÉ N"));
    EXPECT_TRUE(finds("cafe", "cafè"));  // an accent in the query goes as well
    EXPECT_TRUE(finds("STRASSE", "straße"));
    EXPECT_TRUE(finds("Straße", "STRASSE"));
    EXPECT_FALSE(finds("plain ascii", "ü"));
    EXPECT_TRUE(finds("İstanbul", "istanbul"));
    EXPECT_TRUE(finds("ISTANBUL", "İstanbul"));
    EXPECT_FALSE(finds("ıstanbul", "istanbul"));  // the dotless i stays its own letter
    EXPECT_FALSE(finds("Istanbul", "ıstanbul"));
    EXPECT_TRUE(finds("日本語 Text", "語 t"));

    const std::string text = "1 Main Street";
    const SearchKey key(text, std::string("Café"));
    EXPECT_EQ(key.label(), "cafe");
    EXPECT_EQ(SearchKey(text, std::nullopt).label(), std::nullopt);
    EXPECT_TRUE(key.matches(text, "main") && key.matches(text, "caf"));
    EXPECT_FALSE(key.matches(text, "home"));
    EXPECT_TRUE(key.labelMatches("cafe"));
    EXPECT_FALSE(key.labelMatches("main"));
}

}  // namespace
}  // namespace zettly
