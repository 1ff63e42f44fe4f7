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

Bytes bytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

struct SyncCryptoTest : ::testing::Test {
    void SetUp() override {
        ASSERT_TRUE(ready());
        auto derived = deriveKey("correct horse battery staple", salt, fast);
        ASSERT_TRUE(derived);
        key = *derived;
    }

    Bytes salt = randomBytes(saltSize);
    MasterKey key;
};

TEST_F(SyncCryptoTest, TheSamePassphraseAndSaltGiveTheSameKeyWhichOpensWhatItSealed) {
    auto again = deriveKey("correct horse battery staple", salt, fast);
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, key);
    EXPECT_TRUE(matchesKeyCheck(*again, keyCheck(key)));

    Bytes text = bytesOf("the user's clipboard text");
    Bytes first = seal(key, "ClipItem", "rid1", text);
    Bytes second = seal(key, "ClipItem", "rid1", text);
    EXPECT_NE(first, second) << "every seal takes a fresh nonce";
    EXPECT_EQ(open(*again, "ClipItem", "rid1", first), text);
    EXPECT_EQ(open(*again, "ClipItem", "rid1", second), text);
    EXPECT_EQ(open(key, "ClipKey", "ClipKey", seal(key, "ClipKey", "ClipKey", {})), Bytes{});
}

TEST_F(SyncCryptoTest, AnotherPassphraseOrSaltGivesAKeyThatFailsTheCheckAndOpensNothing) {
    Bytes blob = seal(key, "ClipItem", "rid1", bytesOf("secret"));
    Bytes check = keyCheck(key);
    for (auto other : {deriveKey("correct horse battery stapler", salt, fast),
                       deriveKey("correct horse battery staple", randomBytes(saltSize), fast)}) {
        ASSERT_TRUE(other);
        EXPECT_NE(*other, key);
        EXPECT_FALSE(matchesKeyCheck(*other, check));
        EXPECT_EQ(open(*other, "ClipItem", "rid1", blob), std::nullopt);
    }
    Bytes shortCheck(check.begin(), check.end() - 1);
    EXPECT_FALSE(matchesKeyCheck(key, shortCheck));
    EXPECT_EQ(deriveKey("pass", randomBytes(saltSize - 1), fast), std::nullopt);
}

TEST_F(SyncCryptoTest, ModerateAndInteractiveStrengthsDeriveDifferentKeys) {
    auto moderate = deriveKey("correct horse battery staple", salt, KdfStrength::moderate);
    ASSERT_TRUE(moderate);
    EXPECT_NE(*moderate, key);
}

TEST_F(SyncCryptoTest, KeyBytesOfTheWrongLengthNeverBecomeAKnownKey) {
    Bytes shortKey(MasterKey::size - 1, 0);
    MasterKey a(shortKey), b(shortKey);
    EXPECT_NE(a, MasterKey());
    EXPECT_NE(a, b);
    Bytes exact(MasterKey::size, 7);
    EXPECT_EQ(MasterKey(exact), MasterKey(exact));
}

TEST_F(SyncCryptoTest, ABlobOpensOnlyUnderItsOwnRecordTypeAndName) {
    Bytes blob = seal(key, "ClipItem", "rid1", bytesOf("secret"));
    EXPECT_EQ(open(key, "ClipItem", "rid2", blob), std::nullopt);
    EXPECT_EQ(open(key, "ClipCategory", "rid1", blob), std::nullopt);
    EXPECT_EQ(open(key, "ClipItemr", "id1", blob), std::nullopt);

    // The zero byte between type and name must not let one pair pose as
    // another.
    Bytes split = seal(key, "A", "B\0C"s, bytesOf("x"));
    EXPECT_TRUE(open(key, "A", "B\0C"s, split));
    EXPECT_EQ(open(key, "A\0B"s, "C", split), std::nullopt);
    EXPECT_TRUE(seal(key, "A\0B"s, "C", bytesOf("x")).empty());
}

TEST_F(SyncCryptoTest, AFlippedBitOrATruncationMakesABlobUnopenable) {
    Bytes blob = seal(key, "ClipItem", "rid1", bytesOf("short secret"));
    for (std::size_t i = 0; i < blob.size(); ++i) {
        Bytes damaged = blob;
        damaged[i] ^= static_cast<std::uint8_t>(1u << (i % 8));
        EXPECT_EQ(open(key, "ClipItem", "rid1", damaged), std::nullopt) << "byte " << i;
        Bytes prefix(blob.begin(), blob.begin() + static_cast<std::ptrdiff_t>(i));
        EXPECT_EQ(open(key, "ClipItem", "rid1", prefix), std::nullopt) << "length " << i;
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

TEST(SyncFieldsTest, EveryValueKeepsItsTypeAndExactValueThroughEncoding) {
    const CloudFields fields = everyKind();
    auto decoded = decodeFields(encodeFields(fields));
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
}

TEST(SyncFieldsTest, TruncatedExtendedOrAlteredEncodingsAreRejected) {
    const Bytes good = encodeFields(everyKind());
    for (std::size_t n = 0; n < good.size(); ++n)
        EXPECT_EQ(decodeFields(std::span(good).first(n)), std::nullopt) << "length " << n;

    Bytes longer = good;
    longer.push_back(0);
    EXPECT_EQ(decodeFields(longer), std::nullopt);

    Bytes otherVersion = good;
    otherVersion[0] = 2;
    EXPECT_EQ(decodeFields(otherVersion), std::nullopt);

    // One field {"a": int64}, then the same name again.
    Bytes one = encodeFields({{"a", std::int64_t{5}}});
    ASSERT_EQ(one.size(), 1u + 4 + 4 + 1 + 1 + 8);
    Bytes unknownKind = one;
    unknownKind[10] = 9;
    EXPECT_EQ(decodeFields(unknownKind), std::nullopt);
    Bytes twice = one;
    twice[1] = 2;
    twice.insert(twice.end(), one.begin() + 5, one.end());
    EXPECT_EQ(decodeFields(twice), std::nullopt);

    // A string whose length claims four gigabytes.
    Bytes huge = encodeFields({{"a", "xyz"s}});
    for (int i = 11; i < 15; ++i)
        huge[static_cast<std::size_t>(i)] = 0xff;
    EXPECT_EQ(decodeFields(huge), std::nullopt);
}

}  // namespace
}  // namespace zettly::synccrypto
