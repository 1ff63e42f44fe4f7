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

// Where the folded query occurs in an unfolded text, as byte ranges
// [begin, end) of `utf8`; for highlighting the visible part of a row.
std::vector<std::pair<std::size_t, std::size_t>> matchRanges(std::string_view utf8,
                                                             std::string_view foldedQuery,
                                                             std::size_t maxRanges = 64);

}  // namespace search

// An entry's text and label as the search compares them, folded once. A
// folded text equal to its source (lower-case ASCII) is not copied: the key
// then refers to `text`, which must outlive it (the model's cached items).
class SearchKey {
public:
    SearchKey() = default;
    SearchKey(std::string_view text, const std::optional<std::string>& label);

    std::string_view text() const;
    std::optional<std::string_view> label() const;

    // The text contains the folded needle, or failing that the label does.
    bool matches(std::string_view foldedNeedle) const;
    // Only the label (images are found by their name alone).
    bool labelMatches(std::string_view foldedNeedle) const;

private:
    std::string folded_;
    std::string_view source_;
    bool sameAsSource_ = false;  // a flag, not a view into folded_, so moves stay safe
    std::optional<std::string> label_;
};

}  // namespace zettly
