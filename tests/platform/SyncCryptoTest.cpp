#include <bit>
#include <cstdint>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/couch/SyncCrypto.h"

namespace zettly::synccrypto {
namespace {

using namespace std::string_literals;
constexpr auto fast = KdfStrength::interactive;
const std::string phrase = "correct horse battery staple";

Bytes bytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}
const Bytes rid1 = bytesOf("ClipItem rid1");

struct SyncCryptoTest : ::testing::Test {
    void SetUp() override {
        ASSERT_TRUE(ready());
        auto derived = deriveKey(phrase, salt, fast);
        ASSERT_TRUE(derived);
        key = *derived;
    }

    Bytes salt = randomBytes(saltSize);
    MasterKey key;
};

TEST_F(SyncCryptoTest, TheSamePassphraseAndSaltGiveTheSameKeyWhichOpensWhatItSealed) {
    auto again = deriveKey(phrase, salt, fast);
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, key);
    EXPECT_TRUE(matchesKeyCheck(*again, keyCheck(key)));

    Bytes text = bytesOf("the user's clipboard text");
    Bytes first = seal(key, rid1, text);
    EXPECT_NE(first, seal(key, rid1, text)) << "every seal takes a fresh nonce";
    EXPECT_EQ(open(*again, rid1, first), text);
    EXPECT_EQ(open(key, Bytes{}, seal(key, Bytes{}, Bytes{})), Bytes{});
}

TEST_F(SyncCryptoTest, ACheckThatVouchesForBytesFailsForOtherBytesAnotherKeyOrThePlainCheck) {
    const Bytes fields = bytesOf("format 2, epoch 0123");
    const Bytes check = keyCheck(key, fields);
    EXPECT_TRUE(matchesKeyCheck(key, fields, check));
    Bytes changed = fields;
    changed.back() ^= 1;
    EXPECT_FALSE(matchesKeyCheck(key, changed, check));
    auto other = deriveKey(phrase + "r", salt, fast);
    ASSERT_TRUE(other);
    EXPECT_FALSE(matchesKeyCheck(*other, fields, check));
    // Neither kind of check passes for the other.
    EXPECT_FALSE(matchesKeyCheck(key, keyCheck(key, {})));
    EXPECT_FALSE(matchesKeyCheck(key, {}, keyCheck(key)));
}

TEST_F(SyncCryptoTest, AnotherPassphraseSaltOrStrengthGivesAKeyThatFailsTheCheckAndOpensNothing) {
    Bytes blob = seal(key, rid1, bytesOf("secret"));
    Bytes check = keyCheck(key);
    for (auto other :
         {deriveKey(phrase + "r", salt, fast), deriveKey(phrase, randomBytes(saltSize), fast),
          deriveKey(phrase, salt, KdfStrength::moderate)}) {
        ASSERT_TRUE(other);
        EXPECT_NE(*other, key);
        EXPECT_FALSE(matchesKeyCheck(*other, check));
        EXPECT_EQ(open(*other, rid1, blob), std::nullopt);
    }
    EXPECT_FALSE(matchesKeyCheck(key, std::span(check).first(check.size() - 1)));
    EXPECT_EQ(deriveKey("pass", randomBytes(saltSize - 1), fast), std::nullopt);

    // Key bytes of the wrong length never become a key equal to another.
    const Bytes shortKey(MasterKey::size - 1, 0);
    EXPECT_NE(MasterKey(shortKey), MasterKey());
    EXPECT_NE(MasterKey(shortKey), MasterKey(shortKey));
    EXPECT_EQ(MasterKey(Bytes(MasterKey::size, 7)), MasterKey(Bytes(MasterKey::size, 7)));
}

TEST_F(SyncCryptoTest, ABlobOpensOnlyUnalteredAndUnderItsOwnAssociatedData) {
    Bytes blob = seal(key, rid1, bytesOf("short secret"));
    EXPECT_EQ(open(key, bytesOf("ClipItem rid2"), blob), std::nullopt);
    EXPECT_EQ(open(key, bytesOf("ClipItem rid"), blob), std::nullopt);
    EXPECT_EQ(open(key, Bytes{}, blob), std::nullopt);

    for (std::size_t i = 0; i < blob.size(); ++i) {
        Bytes damaged = blob;
        damaged[i] ^= static_cast<std::uint8_t>(1u << (i % 8));
        EXPECT_EQ(open(key, rid1, damaged), std::nullopt) << "byte " << i;
        EXPECT_EQ(open(key, rid1, std::span(blob).first(i)), std::nullopt) << "length " << i;
    }
}

CloudFields everyKind() {
    Bytes allBytes;
    for (int i = 0; i < 256; ++i)
        allBytes.push_back(static_cast<std::uint8_t>(i));
    return {
        {"nan", std::bit_cast<double>(std::uint64_t{0x7ff8'0000'dead'beef})},
        {"negZero", -0.0},
        {"inf", -std::numeric_limits<double>::infinity()},
        {"tiny", std::numeric_limits<double>::denorm_min()},
        {"time", 1'700'000'000.125},
        {"min", std::numeric_limits<std::int64_t>::min()},
        {"max", std::numeric_limits<std::int64_t>::max()},
        {"one", std::int64_t{1}},
        {"emptyText", ""s},
        {"text", "Grüße\0zwischen\n"s},
        {"emptyData", Bytes{}},
        {"data", allBytes},
        {"", "a field with an empty name"s},
    };
}

TEST(SyncFieldsTest, EveryValueKeepsItsTypeAndExactBitsAndAnyDamageIsRejected) {
    const CloudFields fields = everyKind();
    const Bytes good = encodeFields(fields);
    auto decoded = decodeFields(good);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->size(), fields.size());
    for (const auto& [name, value] : fields) {
        const CloudValue& got = decoded->at(name);
        ASSERT_EQ(got.index(), value.index()) << name;
        if (auto* d = std::get_if<double>(&value))
            EXPECT_EQ(std::bit_cast<std::uint64_t>(std::get<double>(got)),
                      std::bit_cast<std::uint64_t>(*d))
                << name;
        else
            EXPECT_EQ(got, value) << name;
    }
    EXPECT_EQ(decodeFields(encodeFields({})), CloudFields{});

    for (std::size_t n = 0; n < good.size(); ++n)
        EXPECT_EQ(decodeFields(std::span(good).first(n)), std::nullopt) << "length " << n;
    Bytes longer = good;
    longer.push_back(0);
    Bytes otherVersion = good;
    otherVersion[0] = 2;

    // One field {"a": int64}: an unknown kind, then the same name twice.
    const Bytes one = encodeFields({{"a", std::int64_t{5}}});
    ASSERT_EQ(one.size(), 1u + 4 + 4 + 1 + 1 + 8);
    Bytes unknownKind = one;
    unknownKind[10] = 9;
    Bytes twice = one;
    twice[1] = 2;
    twice.insert(twice.end(), one.begin() + 5, one.end());
    // A string whose length claims four gigabytes.
    Bytes huge = encodeFields({{"a", "xyz"s}});
    std::fill(huge.begin() + 11, huge.begin() + 15, 0xff);
    int which = 0;
    for (const Bytes& bad : {longer, otherVersion, unknownKind, twice, huge})
        EXPECT_EQ(decodeFields(bad), std::nullopt) << "case " << which++;
}

}  // namespace
}  // namespace zettly::synccrypto
