#include "platform/TextSearch.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <unordered_map>

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zettly {

namespace {

char lowerAscii(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

#if defined(__SSE2__)
__m128i upperCaseLanes(__m128i x) {
    // Bytes from 0x80 up compare as negative, so they never count as capitals.
    return _mm_and_si128(_mm_cmpgt_epi8(x, _mm_set1_epi8('A' - 1)),
                         _mm_cmplt_epi8(x, _mm_set1_epi8('Z' + 1)));
}
#endif

// Most clips are ASCII; their folded form is the text with its capitals
// lowered, which the search does on the fly instead of keeping a copy.
bool isAscii(std::string_view s) {
    std::size_t i = 0;
#if defined(__SSE2__)
    for (; i + 16 <= s.size(); i += 16) {
        __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.data() + i));
        if (_mm_movemask_epi8(x) != 0)
            return false;
    }
#endif
    for (; i < s.size(); ++i)
        if (static_cast<unsigned char>(s[i]) >= 0x80)
            return false;
    return true;
}

// Whether `folded` is `source` with only its ASCII capitals lowered (CJK,
// emoji and symbols fold to themselves).
bool foldIsAsciiLowering(std::string_view folded, std::string_view source) {
    if (folded.size() != source.size())
        return false;
    for (std::size_t i = 0; i < source.size(); ++i)
        if (folded[i] != lowerAscii(source[i]))
            return false;
    return true;
}

// Copies the ASCII run at `from` lower-cased to `to`; both advance to the
// first byte from 0x80 up (or the end).
void copyLowerAscii(std::string_view s, std::size_t& from, char* out, std::size_t& to) {
#if defined(__SSE2__)
    while (from + 16 <= s.size()) {
        __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s.data() + from));
        if (_mm_movemask_epi8(x) != 0)
            break;
        x = _mm_add_epi8(x, _mm_and_si128(upperCaseLanes(x), _mm_set1_epi8(0x20)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + to), x);
        from += 16;
        to += 16;
    }
#endif
    while (from < s.size() && static_cast<unsigned char>(s[from]) < 0x80)
        out[to++] = lowerAscii(s[from++]);
}

bool isNonSpacingMark(UChar32 c) {
    return u_charType(c) == U_NON_SPACING_MARK;
}

// The code point at `at` (negative for malformed bytes) and where the next
// one starts; at least one byte is always consumed.
UChar32 decodeAt(std::string_view s, std::size_t at, std::size_t& next) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(s.data() + at);
    const auto length = static_cast<std::int32_t>(std::min<std::size_t>(s.size() - at, 4));
    std::int32_t used = 0;
    UChar32 c;
    U8_NEXT(bytes, used, length, c);
    next = at + static_cast<std::size_t>(used);
    return c;
}

const icu::Normalizer2* nfdInstance() {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfd = icu::Normalizer2::getNFDInstance(status);
    return U_SUCCESS(status) ? nfd : nullptr;
}

// The reference folding, over the whole text at once. The character-wise
// path below gives the same result except where canonical reordering moves
// a character that survives folding; texts with one of those come here.
std::string foldWholeText(std::string_view utf8) {
    // Malformed bytes become U+FFFD here, so a clip of binary garbage still folds.
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(
        icu::StringPiece(utf8.data(), static_cast<int32_t>(utf8.size())));
    if (const icu::Normalizer2* nfd = nfdInstance()) {
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeString decomposed = nfd->normalize(text, status);
        if (U_SUCCESS(status))
            text = std::move(decomposed);
    }
    // Folded before the marks go, so that a mark the folding itself brings
    // in goes as well.
    text.foldCase(U_FOLD_CASE_DEFAULT);
    // Marks are dropped in place rather than into a third buffer.
    const std::int32_t length = text.length();
    char16_t* units = text.getBuffer(length);
    if (!units)
        return std::string(utf8);  // only when out of memory
    std::int32_t kept = 0;
    for (std::int32_t i = 0; i < length;) {
        const std::int32_t start = i;
        UChar32 c;
        U16_NEXT(units, i, length, c);
        if (isNonSpacingMark(c))
            continue;
        for (std::int32_t k = start; k < i; ++k)
            units[kept++] = units[k];
    }
    text.releaseBuffer(kept);
    std::string out;
    out.reserve(utf8.size());
    text.toUTF8String(out);
    return out;
}

// One character folded on its own: decomposed, case-folded, without its
// non-spacing marks. Folding a text character by character is several times
// faster than the whole-text path, and a clip with a few accents in it
// stays close to the speed of plain ASCII.
struct FoldedCharacter {
    std::uint8_t size = 0;
    // A mark that survives folding (the Greek iota subscript, a few spacing
    // viramas): canonical reordering may move it, so the text needs the
    // whole-text path.
    bool reorders = false;
    char bytes[14] = {};
};

bool survivesFolding(UChar32 c) {
    icu::UnicodeString folded(c);
    folded.foldCase(U_FOLD_CASE_DEFAULT);
    for (std::int32_t i = 0; i < folded.length(); i += U16_LENGTH(folded.char32At(i)))
        if (!isNonSpacingMark(folded.char32At(i)))
            return true;
    return false;
}

FoldedCharacter foldCharacter(UChar32 c) {
    FoldedCharacter out;
    icu::UnicodeString text(c);
    if (const icu::Normalizer2* nfd = nfdInstance()) {
        UErrorCode status = U_ZERO_ERROR;
        icu::UnicodeString decomposed = nfd->normalize(text, status);
        if (U_SUCCESS(status))
            text = std::move(decomposed);
    }
    icu::UnicodeString kept;
    for (std::int32_t i = 0; i < text.length(); i += U16_LENGTH(text.char32At(i))) {
        UChar32 part = text.char32At(i);
        if (u_getCombiningClass(part) != 0 && survivesFolding(part))
            out.reorders = true;
    }
    text.foldCase(U_FOLD_CASE_DEFAULT);
    for (std::int32_t i = 0; i < text.length(); i += U16_LENGTH(text.char32At(i)))
        if (!isNonSpacingMark(text.char32At(i)))
            kept.append(text.char32At(i));
    std::string utf8;
    kept.toUTF8String(utf8);
    if (utf8.size() > sizeof out.bytes) {
        out.reorders = true;  // no character folds to this much; the whole-text path would cope
        return out;
    }
    out.size = static_cast<std::uint8_t>(utf8.size());
    std::memcpy(out.bytes, utf8.data(), utf8.size());
    return out;
}

// Latin, Greek, Cyrillic, Hebrew and Arabic letters: all two-byte
// characters, folded once per process.
const FoldedCharacter& foldTwoByte(UChar32 c) {
    static const auto table = [] {
        auto made = std::make_unique<std::array<FoldedCharacter, 0x800>>();
        for (UChar32 each = 0x80; each < 0x800; ++each)
            (*made)[static_cast<std::size_t>(each)] = foldCharacter(each);
        return made;
    }();
    return (*table)[static_cast<std::size_t>(c)];
}

// Most longer characters (CJK, emoji, symbols) fold to themselves.
bool unchangedByFolding(UChar32 c) {
    const icu::Normalizer2* nfd = nfdInstance();
    return nfd && nfd->isInert(c) && !u_hasBinaryProperty(c, UCHAR_CHANGES_WHEN_CASEFOLDED) &&
           !isNonSpacingMark(c);
}

// The rest (Hangul syllables, accented Greek, compatibility letters),
// remembered per thread.
const FoldedCharacter& foldLonger(UChar32 c) {
    thread_local std::unordered_map<UChar32, FoldedCharacter> cache;
    auto [at, added] = cache.try_emplace(c);
    if (added)
        at->second = foldCharacter(c);
    return at->second;
}

std::string foldByCharacter(std::string_view s) {
    static constexpr std::string_view replacement = "\xEF\xBF\xBD";
    const std::size_t n = s.size();
    std::string out(n, '\0');
    std::size_t from = 0;
    std::size_t to = 0;
    // Invariant: the room left in `out` is at least the input left, so the
    // ASCII copy never checks; only an expanding character resizes.
    while (true) {
        copyLowerAscii(s, from, out.data(), to);
        if (from >= n)
            break;
        const std::size_t start = from;
        const UChar32 c = decodeAt(s, start, from);

        std::string_view piece;
        if (c < 0) {
            piece = replacement;  // malformed bytes, as ICU's conversion treats them
        } else if (c < 0x800) {
            const FoldedCharacter& folded = foldTwoByte(c);
            if (folded.reorders)
                return foldWholeText(s);
            piece = std::string_view(folded.bytes, folded.size);
        } else if (unchangedByFolding(c)) {
            piece = s.substr(start, from - start);
        } else {
            const FoldedCharacter& folded = foldLonger(c);
            if (folded.reorders)
                return foldWholeText(s);
            piece = std::string_view(folded.bytes, folded.size);
        }
        if (out.size() - to < piece.size() + (n - from))
            out.resize(to + piece.size() + (n - from));
        std::memcpy(out.data() + to, piece.data(), piece.size());
        to += piece.size();
    }
    out.resize(to);
    return out;
}

// How often each byte turns up in folded clipboard text, higher meaning more
// common. The scan keys on the needle's two rarest bytes so that a query like
// "the q" does not stop at every blank and "e" of a long document.
constexpr std::array<std::uint8_t, 256> makeByteRanks() {
    std::array<std::uint8_t, 256> rank{};
    for (int b = 0xC0; b <= 0xFF; ++b)
        rank[b] = 12;  // lead bytes: one per non-Latin character
    for (int b = 0x80; b <= 0xBF; ++b)
        rank[b] = 34;  // continuation bytes: one or more per character
    // Rarest first; bytes not listed (control bytes, upper case, which folded
    // text lacks) stay at 0.
    constexpr std::string_view ordered =
        "~`^|\\{}[]<>@#$%&*+=;!?\"'()_9876543/:\t-5210,.\nzqjxkvbpygfwmucldrhsnioate ";
    for (std::size_t i = 0; i < ordered.size(); ++i)
        rank[static_cast<unsigned char>(ordered[i])] = static_cast<std::uint8_t>(16 + i);
    return rank;
}

constexpr std::array<std::uint8_t, 256> byteRanks = makeByteRanks();

std::uint8_t rankOf(char c) {
    return byteRanks[static_cast<unsigned char>(c)];
}

struct RarePair {
    std::size_t first = 0;
    std::size_t second = 0;
};

// Two distinct positions of the rarest bytes of a needle of length >= 2.
RarePair rarestPositions(std::string_view needle) {
    RarePair pair{0, 1};
    if (rankOf(needle[1]) < rankOf(needle[0]))
        pair = {1, 0};
    for (std::size_t i = 2; i < needle.size(); ++i) {
        std::uint8_t r = rankOf(needle[i]);
        if (r < rankOf(needle[pair.first])) {
            pair.second = pair.first;
            pair.first = i;
        } else if (r < rankOf(needle[pair.second])) {
            pair.second = i;
        }
    }
    return pair;
}

// The bit ASCII capitals lack: OR-ing it into a text byte lowers a capital
// to the needle's (folded, so lower-case) letter. Other bytes compare as
// they are: 0x40 | 0x20 is not "@".
char caseBit(char needleByte) {
    return (needleByte >= 'a' && needleByte <= 'z') ? 0x20 : 0;
}

template <bool ignoreAsciiCase>
bool equalAt(const char* text, std::string_view n) {
    if constexpr (!ignoreAsciiCase) {
        return std::memcmp(text, n.data(), n.size()) == 0;
    } else {
        for (std::size_t k = 0; k < n.size(); ++k)
            if ((text[k] | caseBit(n[k])) != n[k])
                return false;
        return true;
    }
}

template <bool ignoreAsciiCase>
bool scan(std::string_view h, std::string_view n, RarePair rare) {
    const std::size_t m = n.size();
    const std::size_t p1 = rare.first;
    const std::size_t p2 = rare.second;
    const char* d = h.data();
    const std::size_t last = h.size() - m;  // the last possible start
    std::size_t i = 0;
#if defined(__SSE2__)
    const __m128i a = _mm_set1_epi8(n[p1]);
    const __m128i b = _mm_set1_epi8(n[p2]);
    const __m128i bitA = _mm_set1_epi8(ignoreAsciiCase ? caseBit(n[p1]) : 0);
    const __m128i bitB = _mm_set1_epi8(ignoreAsciiCase ? caseBit(n[p2]) : 0);
    // Block i tests the starts i .. i+15 and reads bytes up to i+15+p for
    // p < m, so it stays inside the haystack while i + 15 <= last.
    for (; last >= 15 && i <= last - 15; i += 16) {
        __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i + p1));
        __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i + p2));
        if constexpr (ignoreAsciiCase) {
            x = _mm_or_si128(x, bitA);
            y = _mm_or_si128(y, bitB);
        }
        auto mask = static_cast<unsigned>(
            _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi8(x, a), _mm_cmpeq_epi8(y, b))));
        while (mask) {
            unsigned bit = static_cast<unsigned>(__builtin_ctz(mask));
            if (equalAt<ignoreAsciiCase>(d + i + bit, n))
                return true;
            mask &= mask - 1;
        }
    }
#endif
    const char bit1 = ignoreAsciiCase ? caseBit(n[p1]) : 0;
    const char bit2 = ignoreAsciiCase ? caseBit(n[p2]) : 0;
    for (; i <= last; ++i) {
        if ((d[i + p1] | bit1) == n[p1] && (d[i + p2] | bit2) == n[p2] &&
            equalAt<ignoreAsciiCase>(d + i, n))
            return true;
    }
    return false;
}

template <bool ignoreAsciiCase>
bool containsNeedle(std::string_view haystack, std::string_view needle) {
    if (needle.empty())
        return true;
    if (haystack.size() < needle.size())
        return false;
    if (needle.size() == 1) {
        if (!ignoreAsciiCase || caseBit(needle[0]) == 0)
            return std::memchr(haystack.data(), needle[0], haystack.size()) != nullptr;
        return scan<true>(haystack, needle, RarePair{0, 0});
    }
    return scan<ignoreAsciiCase>(haystack, needle, rarestPositions(needle));
}

}  // namespace

namespace search {

std::string fold(std::string_view utf8) {
    return foldByCharacter(utf8);
}

std::string foldQuery(std::string_view query) {
    // Line breaks stay: someone searching for the start of a line types one.
    auto blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!query.empty() && blank(query.front()))
        query.remove_prefix(1);
    while (!query.empty() && blank(query.back()))
        query.remove_suffix(1);
    return fold(query);
}

bool contains(std::string_view haystack, std::string_view needle) {
    return containsNeedle<false>(haystack, needle);
}

bool containsIgnoringAsciiCase(std::string_view haystack, std::string_view needle) {
    return containsNeedle<true>(haystack, needle);
}

std::vector<std::pair<std::size_t, std::size_t>> matchRanges(std::string_view utf8,
                                                             std::string_view foldedQuery,
                                                             std::size_t maxRanges) {
    std::vector<std::pair<std::size_t, std::size_t>> ranges;
    if (foldedQuery.empty() || maxRanges == 0)
        return ranges;

    // The folded text, and for each of its bytes the source piece it came
    // from: a character with the marks that combine with it, so that a
    // highlight never splits "e" from its accent.
    std::string folded;
    std::vector<std::uint32_t> pieceOf;
    std::vector<std::pair<std::size_t, std::size_t>> pieces;
    folded.reserve(utf8.size());
    pieceOf.reserve(utf8.size());
    std::size_t i = 0;
    while (i < utf8.size()) {
        const std::size_t begin = i;
        const UChar32 c = decodeAt(utf8, begin, i);
        while (i < utf8.size() && static_cast<unsigned char>(utf8[i]) >= 0x80) {
            std::size_t next = i;
            const UChar32 mark = decodeAt(utf8, i, next);
            if (mark < 0 || !isNonSpacingMark(mark))
                break;
            i = next;
        }
        auto piece = static_cast<std::uint32_t>(pieces.size());
        pieces.emplace_back(begin, i);
        if (i - begin == 1 && c >= 0) {
            folded.push_back(lowerAscii(static_cast<char>(c)));
            pieceOf.push_back(piece);
        } else {
            std::string part = fold(utf8.substr(begin, i - begin));
            folded += part;
            pieceOf.insert(pieceOf.end(), part.size(), piece);
        }
    }

    std::size_t at = 0;
    while (ranges.size() < maxRanges) {
        at = folded.find(foldedQuery, at);
        if (at == std::string::npos)
            break;
        std::size_t begin = pieces[pieceOf[at]].first;
        std::size_t end = pieces[pieceOf[at + foldedQuery.size() - 1]].second;
        // "s" matches both halves of the "ss" that "ß" folds to: one range.
        if (!ranges.empty() && begin < ranges.back().second)
            ranges.back().second = std::max(ranges.back().second, end);
        else
            ranges.emplace_back(begin, end);
        at += foldedQuery.size();
    }
    return ranges;
}

}  // namespace search

SearchKey::SearchKey(std::string_view text, const std::optional<std::string>& label) {
    if (!isAscii(text)) {
        std::string folded = search::fold(text);
        if (!foldIsAsciiLowering(folded, text))
            folded_ = std::move(folded);
    }
    if (label)
        label_ = search::fold(*label);
}

std::optional<std::string_view> SearchKey::label() const {
    if (!label_)
        return std::nullopt;
    return std::string_view(*label_);
}

bool SearchKey::matches(std::string_view text, std::string_view foldedNeedle) const {
    const bool inText = folded_ ? search::contains(*folded_, foldedNeedle)
                                : search::containsIgnoringAsciiCase(text, foldedNeedle);
    return inText || labelMatches(foldedNeedle);
}

bool SearchKey::labelMatches(std::string_view foldedNeedle) const {
    return label_ && search::contains(*label_, foldedNeedle);
}

}  // namespace zettly
