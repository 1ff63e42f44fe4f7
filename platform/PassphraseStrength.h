#pragma once

#include <string_view>

namespace zettly {

// How hard a passphrase is to guess, for the meter in the settings. The
// server keeps the salt and a key check, so anyone who reads it can try
// passphrases offline, about one a second per computer; what counts is how
// many guesses an attacker who knows how people choose them needs.
//
// The passphrase is cut into the cheapest explanation as a guesser would
// see it: words from a short list of the most common passwords and words
// (also written with digits for letters), runs of neighbouring keys,
// sequences (abc, 987), repeats of an earlier part, years, and single
// characters priced by their kind. The bits of that explanation give the
// score. Not a full guessing model: it errs towards calling a random-looking
// short password weak, and a phrase of several uncommon words strong.
struct PassphraseStrength {
    enum class Score { tooWeak, weak, fair, strong, veryStrong };  // 0 to 4
    // What makes most of it easy to guess, for the reason shown with a
    // low score.
    enum class Weakness { none, empty, tooShort, common, keyboard, sequence, repeated, year };

    Score score = Score::tooWeak;
    Weakness weakness = Weakness::empty;
    double bits = 0;  // the estimated guesses, as a power of two

    // Fair or better: the dialog that changes the passphrase refuses less.
    bool acceptable() const { return score >= Score::fair; }
};

// `utf8` as typed; invalid UTF-8 counts byte by byte.
PassphraseStrength ratePassphrase(std::string_view utf8);

}  // namespace zettly
