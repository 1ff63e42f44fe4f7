#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zettly {

// Case- and diacritic-insensitive substring search without a locale: both
// sides are folded (decomposed, combining marks dropped, case-folded), then
// compared byte for byte. "Café" and "CAFE" fold to the same text.
namespace search {

// The folded form of a text. ASCII text takes a fast path; only text with
// other characters goes through ICU.
std::string fold(std::string_view utf8);

// A search text as typed, trimmed of blanks and tabs at both ends (not of
// line breaks) and folded. Empty when nothing is left: it matches everything.
std::string foldQuery(std::string_view query);

// Whether `haystack` contains `needle` (both folded). A vectorised scan on
// the needle's two rarest bytes, so a keystroke over hundreds of long texts
// stays in the low milliseconds.
bool contains(std::string_view haystack, std::string_view needle);

// The same over a text whose folded form is the text with its ASCII capitals
// lowered (any ASCII text): its capitals match the needle's lower-case
// letters, every other byte only itself.
bool containsIgnoringAsciiCase(std::string_view haystack, std::string_view needle);

// Where the folded query occurs in an unfolded text, as byte ranges
// [begin, end) of `utf8`; for highlighting the visible part of a row.
std::vector<std::pair<std::size_t, std::size_t>> matchRanges(std::string_view utf8,
                                                             std::string_view foldedQuery,
                                                             std::size_t maxRanges = 64);

}  // namespace search

// An entry's text and label as the search compares them. The folded text is
// kept only where folding does more than lower ASCII capitals (accents,
// non-ASCII case, "ß"): most clips are ASCII, and a folded copy of each
// would double what a long history takes. The text itself is not held, so
// the key stays valid while its owner moves the text around.
class SearchKey {
public:
    SearchKey() = default;
    SearchKey(std::string_view text, const std::optional<std::string>& label);

    std::optional<std::string_view> label() const;
    // Whether a folded copy of the text is held.
    bool holdsFoldedText() const { return folded_.has_value(); }

    // `text` (the one the key was made from) contains the folded needle, or
    // failing that the label does.
    bool matches(std::string_view text, std::string_view foldedNeedle) const;
    // Only the label (images are found by their name alone).
    bool labelMatches(std::string_view foldedNeedle) const;

private:
    std::optional<std::string> folded_;
    std::optional<std::string> label_;
};

}  // namespace zettly
