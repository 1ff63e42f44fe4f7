#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/PassphraseStrength.h"

namespace zettly {
namespace {

using Score = PassphraseStrength::Score;
using Weakness = PassphraseStrength::Weakness;

int score(const std::string& passphrase) {
    return static_cast<int>(ratePassphrase(passphrase).score);
}

TEST(PassphraseStrength, CommonPasswordsKeyboardRunsSequencesAndRepeatsScoreLowWithTheirReason) {
    const std::vector<std::pair<std::string, Weakness>> weak = {
        {"password", Weakness::common},
        {"P@ssw0rd!", Weakness::common},
        {"iloveyou", Weakness::common},
        {"Summer2024!", Weakness::common},
        {"dragondragondragon", Weakness::common},
        {"qwertyuiop", Weakness::keyboard},
        {"asdfghjkl;", Weakness::keyboard},
        {"1qaz2wsx3edc", Weakness::keyboard},
        {"123456789", Weakness::sequence},
        {"abcdefghijklmnop", Weakness::sequence},
        {"aaaaaaaaaaaaaaaaaaaa", Weakness::repeated},
        {"Xk#9pL", Weakness::tooShort},
    };
    for (const auto& [passphrase, why] : weak) {
        const PassphraseStrength strength = ratePassphrase(passphrase);
        EXPECT_LE(static_cast<int>(strength.score), 1) << passphrase << " " << strength.bits;
        EXPECT_FALSE(strength.acceptable()) << passphrase;
        EXPECT_EQ(strength.weakness, why) << passphrase;
    }
    EXPECT_EQ(ratePassphrase("").weakness, Weakness::empty);
    EXPECT_EQ(ratePassphrase("").score, Score::tooWeak);
}

TEST(PassphraseStrength, PhrasesOfSeveralUncommonWordsScoreHighAndLengthAndVarietyRaiseTheScore) {
    for (const std::string passphrase :
         {"correct horse battery staple", "velvet kettle orbit marsh", "gravel-sonnet-ember-quilt",
          "Mandarin oyster tilts 7 lanterns", "wie viele Brücken überquert der Fluss?"}) {
        EXPECT_GE(score(passphrase), 3) << passphrase << " " << ratePassphrase(passphrase).bits;
        EXPECT_TRUE(ratePassphrase(passphrase).acceptable()) << passphrase;
    }
    // Each addition makes it harder, never easier.
    const std::vector<std::string> growing = {"tulip", "tulip ember", "tulip ember quarry",
                                              "tulip ember quarry navel",
                                              "tulip ember quarry navel Crisp9"};
    for (std::size_t i = 1; i < growing.size(); ++i)
        EXPECT_GT(ratePassphrase(growing[i]).bits, ratePassphrase(growing[i - 1]).bits)
            << growing[i];
    EXPECT_LE(score(growing.front()), 1);
    EXPECT_GE(score(growing.back()), 4);
    // Repeating a strong phrase adds little.
    EXPECT_LT(ratePassphrase("tulip ember quarry tulip ember quarry").bits,
              ratePassphrase("tulip ember quarry").bits + 12);
}

TEST(PassphraseStrength, BrokenUtf8AndVeryLongInputAreRatedWithoutFailing) {
    EXPECT_GE(score(std::string("\xff\xfe\xfd\xfc\xfb\xfa\xf9\xf8\xf7\xf6\xf5\xf4", 12)), 1);
    EXPECT_EQ(ratePassphrase(std::string(5000, 'x')).score, Score::tooWeak);
    std::string long_phrase;
    for (int i = 0; i < 300; ++i)
        long_phrase += static_cast<char>('a' + (i * 7 + i / 26) % 26);
    EXPECT_EQ(ratePassphrase(long_phrase).score, Score::veryStrong);
}

}  // namespace
}  // namespace zettly
