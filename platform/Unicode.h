#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace zettly::unicode {

// True for every code point with the Unicode White_Space property, which
// covers blanks, tabs and all line breaks (LF, CR, NEL, U+2028, U+2029).
bool isWhitespaceOrNewline(char32_t c);

// The text without white space and line breaks at both ends.
std::string_view trimmed(std::string_view utf8);

// The first `count` user-perceived characters (grapheme clusters), so that a
// cut never splits an accented letter or an emoji sequence.
std::string prefixCharacters(std::string_view utf8, std::size_t count);

// Every character is numeric (any Unicode numeric type, not only ASCII
// digits) or one of blank, "-", "+". Marks that combine with the preceding
// character belong to it. An empty text is not numeric.
bool isNumericText(std::string_view utf8);

// Full Unicode lower-casing without a locale ("Straße" stays "straße",
// "ÉCOLE" becomes "école").
std::string lowercased(std::string_view utf8);
// Likewise upper-casing ("ß" becomes "SS", "é" becomes "É").
std::string uppercased(std::string_view utf8);

// A label or category name as entered: line feeds become blanks, white
// space at both ends goes, and at most `limit` characters are kept.
// Latin-1 (ISO 8859-1) as UTF-8: every byte is its own code point. Old X
// clients still speak it (the STRING type).
std::string latin1ToUtf8(std::string_view latin1);

std::string oneLineName(std::string_view raw, std::size_t limit);

// Whether the bytes are well-formed UTF-8 (no overlong forms, surrogates or
// code points beyond U+10FFFF).
bool isValidUtf8(std::string_view text);
// The text with each ill-formed sequence replaced by U+FFFD; a valid text
// comes back unchanged.
std::string validUtf8(std::string_view text);

}  // namespace zettly::unicode
