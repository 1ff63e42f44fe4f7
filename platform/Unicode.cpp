#include "platform/Unicode.h"

#include <memory>

#include <unicode/ubrk.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

namespace zettly::unicode {

namespace {

// Decodes the code point at i and advances i. Malformed bytes come back as
// U+FFFD, which is neither white space nor numeric.
char32_t next(std::string_view s, std::size_t& i) {
    UChar32 c;
    auto length = static_cast<int32_t>(s.size());
    auto pos = static_cast<int32_t>(i);
    U8_NEXT(reinterpret_cast<const uint8_t*>(s.data()), pos, length, c);
    i = static_cast<std::size_t>(pos);
    return c < 0 ? U'\uFFFD' : static_cast<char32_t>(c);
}

char32_t previous(std::string_view s, std::size_t& i) {
    UChar32 c;
    auto pos = static_cast<int32_t>(i);
    U8_PREV(reinterpret_cast<const uint8_t*>(s.data()), 0, pos, c);
    i = static_cast<std::size_t>(pos);
    return c < 0 ? U'\uFFFD' : static_cast<char32_t>(c);
}

bool extendsPrevious(char32_t c) {
    auto kind = u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_GRAPHEME_CLUSTER_BREAK);
    return kind == U_GCB_EXTEND || kind == U_GCB_ZWJ || kind == U_GCB_SPACING_MARK;
}

}  // namespace

bool isWhitespaceOrNewline(char32_t c) {
    return u_isUWhiteSpace(static_cast<UChar32>(c));
}

std::string_view trimmed(std::string_view s) {
    std::size_t begin = 0;
    while (begin < s.size()) {
        std::size_t at = begin;
        if (!isWhitespaceOrNewline(next(s, at)))
            break;
        begin = at;
    }
    std::size_t end = s.size();
    while (end > begin) {
        std::size_t at = end;
        if (!isWhitespaceOrNewline(previous(s, at)))
            break;
        end = at;
    }
    return s.substr(begin, end - begin);
}

std::string prefixCharacters(std::string_view s, std::size_t count) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UText, decltype(&utext_close)> text(
        utext_openUTF8(nullptr, s.data(), static_cast<int64_t>(s.size()), &status), utext_close);
    std::unique_ptr<UBreakIterator, decltype(&ubrk_close)> breaks(
        ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status), ubrk_close);
    if (U_FAILURE(status))
        return std::string(s.substr(0, count));  // cannot happen with ICU data
    ubrk_setUText(breaks.get(), text.get(), &status);
    std::size_t seen = 0;
    int32_t boundary = ubrk_first(breaks.get());
    while (seen < count) {
        int32_t nextBoundary = ubrk_next(breaks.get());
        if (nextBoundary == UBRK_DONE)
            return std::string(s);
        boundary = nextBoundary;
        ++seen;
    }
    // With UTF-8 UText the boundaries are byte offsets.
    return std::string(s.substr(0, static_cast<std::size_t>(boundary)));
}

bool isNumericText(std::string_view s) {
    if (s.empty())
        return false;
    std::size_t i = 0;
    bool first = true;
    while (i < s.size()) {
        char32_t c = next(s, i);
        if (c == U' ' || c == U'-' || c == U'+') {
            first = false;
            continue;
        }
        if (!first && extendsPrevious(c))
            continue;
        if (u_getIntPropertyValue(static_cast<UChar32>(c), UCHAR_NUMERIC_TYPE) == U_NT_NONE)
            return false;
        first = false;
    }
    return true;
}

namespace {

// Full Unicode case mapping without a locale, through one of ICU's UTF-8
// case mappers.
using CaseMapper = int32_t (*)(const UCaseMap*, char*, int32_t, const char*, int32_t, UErrorCode*);
std::string caseMapped(std::string_view s, CaseMapper mapper) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UCaseMap, decltype(&ucasemap_close)> map(ucasemap_open("", 0, &status),
                                                             ucasemap_close);
    if (U_FAILURE(status))
        return std::string(s);
    std::string out(s.size() + 16, '\0');
    for (int attempt = 0; attempt < 2; ++attempt) {
        status = U_ZERO_ERROR;
        int32_t length = mapper(map.get(), out.data(), static_cast<int32_t>(out.size()), s.data(),
                                static_cast<int32_t>(s.size()), &status);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            out.assign(static_cast<std::size_t>(length), '\0');
            continue;
        }
        if (U_FAILURE(status))
            return std::string(s);
        out.resize(static_cast<std::size_t>(length));
        return out;
    }
    return std::string(s);
}

}  // namespace

std::string lowercased(std::string_view s) {
    return caseMapped(s, &ucasemap_utf8ToLower);
}

std::string uppercased(std::string_view s) {
    return caseMapped(s, &ucasemap_utf8ToUpper);
}

std::string oneLineName(std::string_view raw, std::size_t limit) {
    std::string oneLine(raw);
    for (char& c : oneLine)
        if (c == '\n')
            c = ' ';
    return prefixCharacters(trimmed(oneLine), limit);
}

std::string latin1ToUtf8(std::string_view latin1) {
    std::string out;
    out.reserve(latin1.size());
    for (unsigned char c : latin1) {
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

namespace {

// Length of the well-formed UTF-8 sequence at `i`, or the length of its
// maximal ill-formed start (at least 1) as a negative number: each such
// start becomes one U+FFFD, as the Unicode standard recommends and as Qt
// shows it.
int sequenceAt(std::string_view s, std::size_t i) {
    auto byte = [&](std::size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80)
        return 1;
    int length = 0;
    unsigned char low = 0x80, high = 0xBF;  // range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0)
            low = 0xA0;  // no overlong forms
        if (lead == 0xED)
            high = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0)
            low = 0x90;
        if (lead == 0xF4)
            high = 0x8F;  // nothing above U+10FFFF
    } else {
        return -1;
    }
    for (int k = 1; k < length; ++k) {
        if (i + k >= s.size())
            return -k;
        const unsigned char c = byte(i + k);
        if (c < (k == 1 ? low : 0x80) || c > (k == 1 ? high : 0xBF))
            return -k;
    }
    return length;
}

}  // namespace

bool isValidUtf8(std::string_view utf8) {
    for (std::size_t i = 0; i < utf8.size();) {
        int n = sequenceAt(utf8, i);
        if (n < 0)
            return false;
        i += static_cast<std::size_t>(n);
    }
    return true;
}

std::string validUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        int n = sequenceAt(text, i);
        if (n > 0) {
            out.append(text.substr(i, static_cast<std::size_t>(n)));
            i += static_cast<std::size_t>(n);
        } else {
            out.append("\xEF\xBF\xBD");
            i += static_cast<std::size_t>(-n);
        }
    }
    return out;
}

}  // namespace zettly::unicode
