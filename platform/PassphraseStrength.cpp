#include "platform/PassphraseStrength.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace zettly {

namespace {

using Weakness = PassphraseStrength::Weakness;

// Beyond this a passphrase is very strong whatever its parts; the search
// below grows with the square of the length.
constexpr std::size_t longest = 200;
constexpr std::size_t shortest = 8;

// The most common passwords and the words they are built of, most common
// first (from the published lists of leaked passwords), in lower case and
// without digits written for letters (which are matched as letters, so
// digit runs are left to the sequences). A word's rank is its guess count.
constexpr std::string_view commonWords[] = {
    "password",   "qwerty",    "iloveyou",   "admin",     "welcome",  "letmein",    "monkey",
    "dragon",     "football",  "baseball",   "sunshine",  "princess", "master",     "shadow",
    "superman",   "trustnoi",  "starwars",   "hello",     "freedom",  "whatever",   "login",
    "secret",     "love",      "michael",    "jennifer",  "jordan",   "hunter",     "ranger",
    "buster",     "soccer",    "hockey",     "killer",    "george",   "charlie",    "andrew",
    "thomas",     "summer",    "winter",     "spring",    "autumn",   "batman",     "computer",
    "internet",   "access",    "flower",     "cookie",    "orange",   "banana",     "chocolate",
    "pepper",     "ginger",    "silver",     "golden",    "maggie",   "daniel",     "ashley",
    "nicole",     "jessica",   "matrix",     "london",    "berlin",   "paris",      "secure",
    "zettly",     "clipboard", "passphrase", "qazwsx",    "mustang",  "harley",     "ninja",
    "pussy",      "fuckyou",   "tigger",     "purple",    "yellow",   "hannah",     "pokemon",
    "liverpool",  "chelsea",   "arsenal",    "blink",     "mother",   "father",     "family",
    "friend",     "forever",   "angel",      "baby",      "lovely",   "happy",      "money",
    "google",     "apple",     "samsung",    "microsoft", "linux",    "ubuntu",     "debian",
    "windows",    "default",   "changeme",   "test",      "guest",    "root",       "user",
    "pass",       "word",      "hallo",      "passwort",  "schatz",   "motdepasse", "soleil",
    "contrasena", "naruto",    "princesa",   "daniela",   "qwertz",   "azerty",     "dolphin",
    "butterfly",  "jesus",     "heaven",     "cheese",
};

// Rows of a US keyboard; each row sits half a key right of the one above.
constexpr std::array<std::string_view, 4> keyboardRows = {
    "1234567890-=",
    "qwertyuiop[]",
    "asdfghjkl;'",
    "zxcvbnm,./",
};

struct Key {
    int row = -1;
    int column = -1;
};

Key keyOf(char32_t c) {
    for (int row = 0; row < static_cast<int>(keyboardRows.size()); ++row) {
        const auto column = keyboardRows[static_cast<std::size_t>(row)].find(static_cast<char>(c));
        if (c < 128 && column != std::string_view::npos)
            return {row, static_cast<int>(column)};
    }
    return {};
}

bool neighbours(char32_t a, char32_t b) {
    const Key x = keyOf(a);
    const Key y = keyOf(b);
    if (x.row < 0 || y.row < 0)
        return false;
    if (x.row == y.row)
        return std::abs(x.column - y.column) == 1;
    // A key touches the two above it: the same column and the one to the
    // right.
    const Key& upper = x.row < y.row ? x : y;
    const Key& lower = x.row < y.row ? y : x;
    return lower.row == upper.row + 1 &&
           (lower.column == upper.column || lower.column == upper.column - 1);
}

std::vector<char32_t> decode(std::string_view utf8) {
    std::vector<char32_t> out;
    std::size_t i = 0;
    while (i < utf8.size() && out.size() < longest) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const std::size_t length = lead < 0x80       ? 1
                                   : lead >> 5 == 6  ? 2
                                   : lead >> 4 == 14 ? 3
                                   : lead >> 3 == 30 ? 4
                                                     : 0;
        bool valid = length > 0 && i + length <= utf8.size();
        char32_t c = length == 1 ? lead : lead & (0x7f >> length);
        for (std::size_t k = 1; valid && k < length; ++k) {
            const auto next = static_cast<unsigned char>(utf8[i + k]);
            valid = next >> 6 == 2;
            c = (c << 6) | (next & 0x3f);
        }
        // A stray byte is a character of its own.
        out.push_back(valid ? c : lead);
        i += valid ? length : 1;
    }
    return out;
}

bool isLower(char32_t c) {
    return c >= 'a' && c <= 'z';
}
bool isUpper(char32_t c) {
    return c >= 'A' && c <= 'Z';
}
bool isDigit(char32_t c) {
    return c >= '0' && c <= '9';
}
char32_t lower(char32_t c) {
    return isUpper(c) ? c - 'A' + 'a' : c;
}

// Digits and signs people write for letters.
char32_t unleet(char32_t c) {
    switch (c) {
        case '0':
            return 'o';
        case '1':
        case '!':
            return 'i';
        case '3':
            return 'e';
        case '4':
        case '@':
            return 'a';
        case '5':
        case '$':
            return 's';
        case '7':
            return 't';
        default:
            return c;
    }
}

// A character nothing explains: letters are mostly predictable from the
// ones around them in what people type, other signs less so.
double characterBits(char32_t c) {
    if (isLower(c) || isDigit(c))
        return 3.3;
    if (isUpper(c))
        return 4.0;
    if (c == ' ')
        return 2.0;
    if (c < 128)
        return 4.5;
    return 5.0;
}

struct Step {
    double bits = std::numeric_limits<double>::infinity();
    std::size_t from = 0;
    Weakness kind = Weakness::none;
};

class Search {
public:
    explicit Search(std::vector<char32_t> text) : text_(std::move(text)), best_(text_.size() + 1) {
        for (char32_t c : text_) {
            lower_.push_back(lower(c));
            plain_.push_back(unleet(lower(c)));
        }
        best_[0].bits = 0;
        for (std::size_t i = 0; i < text_.size(); ++i) {
            if (std::isinf(best_[i].bits))
                continue;
            offer(i, i + 1, characterBits(text_[i]), Weakness::none);
            words(i);
            runs(i);
            repeats(i);
            year(i);
        }
    }

    double bits() const { return best_.back().bits; }

    // The kind of pattern that explains the most characters.
    Weakness weakness() const {
        std::array<std::size_t, 8> covered{};
        for (std::size_t end = text_.size(); end > 0; end = best_[end].from)
            covered[static_cast<std::size_t>(best_[end].kind)] += end - best_[end].from;
        covered[static_cast<std::size_t>(Weakness::none)] = 0;
        const auto most = std::max_element(covered.begin(), covered.end());
        if (*most == 0)
            return Weakness::none;
        return static_cast<Weakness>(most - covered.begin());
    }

private:
    void offer(std::size_t from, std::size_t to, double bits, Weakness kind) {
        const double total = best_[from].bits + bits;
        if (total < best_[to].bits)
            best_[to] = {total, from, kind};
    }

    void words(std::size_t i) {
        for (std::size_t rank = 0; rank < std::size(commonWords); ++rank) {
            const std::string_view word = commonWords[rank];
            if (i + word.size() > text_.size())
                continue;
            bool match = true;
            bool capitals = false;
            bool substituted = false;
            for (std::size_t k = 0; match && k < word.size(); ++k) {
                match = plain_[i + k] == static_cast<char32_t>(word[k]);
                capitals = capitals || isUpper(text_[i + k]);
                substituted = substituted || lower_[i + k] != plain_[i + k];
            }
            if (match)
                offer(i, i + word.size(),
                      std::log2(static_cast<double>(rank) + 2) + capitals + substituted,
                      Weakness::common);
        }
    }

    // Sequences (abc, 9876) and runs of neighbouring keys, three or more.
    void runs(std::size_t i) {
        auto stepOf = [this](std::size_t k) {
            return static_cast<long>(lower_[k + 1]) - static_cast<long>(lower_[k]);
        };
        auto alike = [this](std::size_t k) {
            return (isLower(lower_[k]) && isLower(lower_[k + 1])) ||
                   (isDigit(lower_[k]) && isDigit(lower_[k + 1]));
        };
        std::size_t end = i;
        if (i + 1 < text_.size() && alike(i) && std::abs(stepOf(i)) == 1) {
            const long step = stepOf(i);
            while (end + 1 < text_.size() && alike(end) && stepOf(end) == step)
                ++end;
            for (std::size_t to = i + 3; to <= end + 1; ++to)
                offer(i, to, 3.3 + std::log2(static_cast<double>(to - i)) + 1, Weakness::sequence);
        }
        end = i;
        while (end + 1 < text_.size() && neighbours(lower_[end], lower_[end + 1]))
            ++end;
        for (std::size_t to = i + 3; to <= end + 1; ++to)
            offer(i, to, 5.6 + std::log2(static_cast<double>(to - i)) + 1, Weakness::keyboard);
    }

    // A copy of what came earlier (it may overlap itself: "aaaa"), priced
    // as where it starts and how long it is.
    void repeats(std::size_t i) {
        for (std::size_t source = 0; source < i; ++source) {
            std::size_t length = 0;
            while (i + length < text_.size() && lower_[source + length] == lower_[i + length])
                ++length;
            for (std::size_t to = i + 3; to <= i + length; ++to)
                offer(
                    i, to,
                    std::log2(static_cast<double>(i)) + std::log2(static_cast<double>(to - i)) + 1,
                    Weakness::repeated);
        }
    }

    void year(std::size_t i) {
        if (i + 4 > text_.size() ||
            !std::all_of(lower_.begin() + static_cast<long>(i),
                         lower_.begin() + static_cast<long>(i + 4), isDigit))
            return;
        if ((lower_[i] == '1' && lower_[i + 1] == '9') ||
            (lower_[i] == '2' && lower_[i + 1] == '0'))
            offer(i, i + 4, 7.6, Weakness::year);
    }

    std::vector<char32_t> text_;
    std::vector<char32_t> lower_;
    std::vector<char32_t> plain_;
    std::vector<Step> best_;
};

}  // namespace

PassphraseStrength ratePassphrase(std::string_view utf8) {
    using Score = PassphraseStrength::Score;
    PassphraseStrength strength;
    std::vector<char32_t> text = decode(utf8);
    if (text.empty())
        return strength;
    const std::size_t length = text.size();
    Search search(std::move(text));
    strength.bits = search.bits();
    strength.weakness = search.weakness();
    const double bits = strength.bits;
    strength.score = bits < 20   ? Score::tooWeak
                     : bits < 33 ? Score::weak
                     : bits < 45 ? Score::fair
                     : bits < 60 ? Score::strong
                                 : Score::veryStrong;
    if (length < shortest) {
        strength.score = std::min(strength.score, Score::weak);
        if (strength.weakness == Weakness::none)
            strength.weakness = Weakness::tooShort;
    }
    if (strength.score < Score::fair && strength.weakness == Weakness::none)
        strength.weakness = Weakness::tooShort;
    return strength;
}

}  // namespace zettly
