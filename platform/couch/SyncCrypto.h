#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/CloudDatabase.h"

namespace zettly::synccrypto {

// End-to-end encryption of what a record must not show the sync server:
// the user's texts, labels, category names, images and the sync key. The
// server sees record names (already HMACs), types, times and flags only.
//
//   auto key = deriveKey(passphrase, marker.salt);          // once per server
//   if (!key || !matchesKeyCheck(*key, marker.keyCheck))
//       return wrongPassphrase;
//   Bytes blob = seal(*key, associatedData, encodeFields(record.encryptedFields));
//   ...
//   auto plain = open(*key, associatedData, blob);
//   auto fields = plain ? decodeFields(*plain) : std::nullopt;

using Bytes = std::vector<std::uint8_t>;

// A 32-byte secret that is wiped when it goes.
class MasterKey {
public:
    static constexpr std::size_t size = 32;
    MasterKey() = default;
    explicit MasterKey(std::span<const std::uint8_t> bytes);  // exactly `size` bytes
    MasterKey(const MasterKey& other) = default;
    MasterKey& operator=(const MasterKey& other) = default;
    ~MasterKey();
    std::span<const std::uint8_t, size> bytes() const { return bytes_; }
    bool operator==(const MasterKey&) const = default;

private:
    std::array<std::uint8_t, size> bytes_{};
};

inline constexpr std::size_t saltSize = 16;

// False only when libsodium cannot start (no entropy source); every other
// function here calls it first.
bool ready();
// Empty when libsodium cannot start.
Bytes randomBytes(std::size_t count);

// Argon2id. `moderate` is what users get (a second or so, 256 MiB);
// `interactive` keeps tests fast. None when the salt has the wrong size or
// memory runs out.
enum class KdfStrength { moderate, interactive };
std::optional<MasterKey> deriveKey(std::string_view passphrase, std::span<const std::uint8_t> salt,
                                   KdfStrength strength = KdfStrength::moderate);

// Stored beside the salt: lets a device tell a wrong passphrase from
// damaged data before it reads (or overwrites) anything. Empty when
// libsodium cannot start.
Bytes keyCheck(const MasterKey& key);
bool matchesKeyCheck(const MasterKey& key, std::span<const std::uint8_t> check);

// A key check that also vouches for the bytes it is stored with (the
// zone's set-up: salt, strength, epoch): a keyed BLAKE2b of them, so that
// only a holder of the key can change one without the check failing.
// Empty when libsodium cannot start.
Bytes keyCheck(const MasterKey& key, std::span<const std::uint8_t> vouchedFor);
bool matchesKeyCheck(const MasterKey& key, std::span<const std::uint8_t> vouchedFor,
                     std::span<const std::uint8_t> check);

// XChaCha20-Poly1305 with a random nonce (stored in front of the
// ciphertext). The associated data says what the blob belongs to (the
// record, its zone and version), so a blob moved elsewhere no longer opens;
// the caller encodes it unambiguously. seal() gives empty bytes when
// libsodium cannot start; callers treat that as a failure.
Bytes seal(const MasterKey& key, std::span<const std::uint8_t> associatedData,
           std::span<const std::uint8_t> plaintext);
std::optional<Bytes> open(const MasterKey& key, std::span<const std::uint8_t> associatedData,
                          std::span<const std::uint8_t> sealed);

// The encrypted fields of a record as bytes and back, keeping each value's
// type (double, integer, string, bytes). None for bytes that are not such
// an encoding.
Bytes encodeFields(const CloudFields& fields);
std::optional<CloudFields> decodeFields(std::span<const std::uint8_t> bytes);

}  // namespace zettly::synccrypto
