#include "platform/couch/SyncCrypto.h"

#include <bit>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include <sodium.h>

namespace zettly::synccrypto {

namespace {

static_assert(saltSize == crypto_pwhash_SALTBYTES);
static_assert(MasterKey::size == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
static_assert(MasterKey::size >= crypto_generichash_KEYBYTES_MIN &&
              MasterKey::size <= crypto_generichash_KEYBYTES_MAX);

constexpr std::size_t nonceSize = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t tagSize = crypto_aead_xchacha20poly1305_ietf_ABYTES;
constexpr std::size_t keyCheckSize = 32;

// Changing this string makes every stored key check unrecognisable, so it is
// versioned rather than edited.
constexpr std::string_view keyCheckContext = "org.zettly.Zettly sync key check v1";
constexpr std::string_view vouchingCheckContext = "org.zettly.Zettly sync key check v2";

// libsodium accepts empty inputs, but a null pointer from an empty vector is
// not something to hand to C code that may memcpy from it.
const std::uint8_t* dataOrDummy(std::span<const std::uint8_t> bytes) {
    static const std::uint8_t dummy = 0;
    return bytes.empty() ? &dummy : bytes.data();
}

// --- field encoding -------------------------------------------------------
//
// Version 1, all integers little-endian:
//   u8  version (1)
//   u32 field count
//   per field:
//     u32 name length, name bytes
//     u8  kind: 0 double, 1 int64, 2 string, 3 bytes
//     double: the 8 bytes of its IEEE-754 bit pattern (NaN payloads and -0
//             survive); int64: 8 bytes two's complement;
//     string, bytes: u32 length, then the bytes as they are (no UTF-8 check:
//             the value is kept, not interpreted)
// Names come in ascending byte order, each once; nothing follows the last
// field. encodeFields does not police the size caps below: a record that big
// is refused by the server long before.

constexpr std::uint8_t formatVersion = 1;
// A record the server accepts holds at most about a megabyte of image data;
// anything far beyond that did not come from encodeFields and is not
// worth allocating for.
constexpr std::size_t maxEncodedSize = 16 * 1024 * 1024;
constexpr std::size_t maxNameSize = 1024;

enum class Kind : std::uint8_t { real = 0, integer = 1, string = 2, bytes = 3 };

void putU32(Bytes& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

void putU64(Bytes& out, std::uint64_t v) {
    for (int i = 0; i < 8; ++i)
        out.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
}

template <typename Range>
void putSized(Bytes& out, const Range& range) {
    putU32(out, static_cast<std::uint32_t>(range.size()));
    out.insert(out.end(), range.begin(), range.end());
}

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    bool atEnd() const { return pos_ == bytes_.size(); }

    std::optional<std::uint8_t> u8() {
        if (bytes_.size() - pos_ < 1)
            return std::nullopt;
        return bytes_[pos_++];
    }
    std::optional<std::uint32_t> u32() {
        if (bytes_.size() - pos_ < 4)
            return std::nullopt;
        std::uint32_t v = 0;
        for (int i = 0; i < 4; ++i)
            v |= static_cast<std::uint32_t>(bytes_[pos_++]) << (8 * i);
        return v;
    }
    std::optional<std::uint64_t> u64() {
        if (bytes_.size() - pos_ < 8)
            return std::nullopt;
        std::uint64_t v = 0;
        for (int i = 0; i < 8; ++i)
            v |= static_cast<std::uint64_t>(bytes_[pos_++]) << (8 * i);
        return v;
    }
    // A length-prefixed run of at most `limit` bytes, checked against what
    // is left before anything is allocated.
    std::optional<std::span<const std::uint8_t>> sized(std::size_t limit) {
        auto length = u32();
        if (!length || *length > limit || *length > bytes_.size() - pos_)
            return std::nullopt;
        auto run = bytes_.subspan(pos_, *length);
        pos_ += *length;
        return run;
    }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t pos_ = 0;
};

std::optional<CloudValue> readValue(Reader& in) {
    auto kind = in.u8();
    if (!kind)
        return std::nullopt;
    switch (static_cast<Kind>(*kind)) {
        case Kind::real: {
            auto bits = in.u64();
            if (!bits)
                return std::nullopt;
            return CloudValue(std::bit_cast<double>(*bits));
        }
        case Kind::integer: {
            auto bits = in.u64();
            if (!bits)
                return std::nullopt;
            return CloudValue(std::bit_cast<std::int64_t>(*bits));
        }
        case Kind::string: {
            auto run = in.sized(maxEncodedSize);
            if (!run)
                return std::nullopt;
            return CloudValue(std::string(run->begin(), run->end()));
        }
        case Kind::bytes: {
            auto run = in.sized(maxEncodedSize);
            if (!run)
                return std::nullopt;
            return CloudValue(CloudBytes(run->begin(), run->end()));
        }
    }
    return std::nullopt;
}

}  // namespace

// --- key ------------------------------------------------------------------

MasterKey::MasterKey(std::span<const std::uint8_t> bytes) {
    if (bytes.size() == size) {
        std::memcpy(bytes_.data(), bytes.data(), size);
        return;
    }
    // A damaged cached key must not turn into the well-known all-zero key,
    // which would seal the user's texts readably for anyone. A random key
    // seals nothing anyone can open and fails every key check, so the caller
    // notices and derives the key again.
    if (ready())
        randombytes_buf(bytes_.data(), size);
}

MasterKey::~MasterKey() {
    sodium_memzero(bytes_.data(), size);
}

bool ready() {
    static const bool initialised = sodium_init() >= 0;
    return initialised;
}

Bytes randomBytes(std::size_t count) {
    if (!ready())
        return {};
    Bytes out(count);
    if (count > 0)
        randombytes_buf(out.data(), count);
    return out;
}

std::optional<MasterKey> deriveKey(std::string_view passphrase, std::span<const std::uint8_t> salt,
                                   KdfStrength strength) {
    if (!ready() || salt.size() != saltSize)
        return std::nullopt;
    const bool moderate = strength == KdfStrength::moderate;
    const unsigned long long ops =
        moderate ? crypto_pwhash_OPSLIMIT_MODERATE : crypto_pwhash_OPSLIMIT_INTERACTIVE;
    const std::size_t mem =
        moderate ? crypto_pwhash_MEMLIMIT_MODERATE : crypto_pwhash_MEMLIMIT_INTERACTIVE;
    std::array<std::uint8_t, MasterKey::size> out{};
    const char* password = passphrase.empty() ? "" : passphrase.data();
    if (crypto_pwhash(out.data(), out.size(), password, passphrase.size(), salt.data(), ops, mem,
                      crypto_pwhash_ALG_ARGON2ID13) != 0) {
        // Only when the memory could not be had.
        sodium_memzero(out.data(), out.size());
        return std::nullopt;
    }
    MasterKey key(out);
    sodium_memzero(out.data(), out.size());
    return key;
}

Bytes keyCheck(const MasterKey& key) {
    Bytes out(keyCheckSize);
    if (!ready())
        return {};
    // A keyed BLAKE2b of a fixed string: the same key always gives the same
    // check, and the check says nothing about the key that a brute-force
    // search of the passphrase would not need Argon2 for anyway.
    crypto_generichash(out.data(), out.size(),
                       reinterpret_cast<const unsigned char*>(keyCheckContext.data()),
                       keyCheckContext.size(), key.bytes().data(), MasterKey::size);
    return out;
}

bool matchesKeyCheck(const MasterKey& key, std::span<const std::uint8_t> check) {
    if (check.size() != keyCheckSize)
        return false;
    Bytes expected = keyCheck(key);
    if (expected.size() != keyCheckSize)
        return false;
    return sodium_memcmp(expected.data(), check.data(), keyCheckSize) == 0;
}

Bytes keyCheck(const MasterKey& key, std::span<const std::uint8_t> vouchedFor) {
    if (!ready())
        return {};
    // The context first and the bytes after it, under a context of its own:
    // no check of one kind passes for the other.
    crypto_generichash_state state;
    crypto_generichash_init(&state, key.bytes().data(), MasterKey::size, keyCheckSize);
    crypto_generichash_update(&state,
                              reinterpret_cast<const unsigned char*>(vouchingCheckContext.data()),
                              vouchingCheckContext.size());
    crypto_generichash_update(&state, dataOrDummy(vouchedFor), vouchedFor.size());
    Bytes out(keyCheckSize);
    crypto_generichash_final(&state, out.data(), out.size());
    sodium_memzero(&state, sizeof state);
    return out;
}

bool matchesKeyCheck(const MasterKey& key, std::span<const std::uint8_t> vouchedFor,
                     std::span<const std::uint8_t> check) {
    if (check.size() != keyCheckSize)
        return false;
    Bytes expected = keyCheck(key, vouchedFor);
    if (expected.size() != keyCheckSize)
        return false;
    return sodium_memcmp(expected.data(), check.data(), keyCheckSize) == 0;
}

// --- sealing --------------------------------------------------------------

Bytes seal(const MasterKey& key, std::span<const std::uint8_t> associatedData,
           std::span<const std::uint8_t> plaintext) {
    if (!ready())
        return {};
    Bytes out(nonceSize + plaintext.size() + tagSize);
    randombytes_buf(out.data(), nonceSize);
    unsigned long long written = 0;
    crypto_aead_xchacha20poly1305_ietf_encrypt(out.data() + nonceSize, &written,
                                               dataOrDummy(plaintext), plaintext.size(),
                                               dataOrDummy(associatedData), associatedData.size(),
                                               nullptr, out.data(), key.bytes().data());
    out.resize(nonceSize + static_cast<std::size_t>(written));
    return out;
}

std::optional<Bytes> open(const MasterKey& key, std::span<const std::uint8_t> associatedData,
                          std::span<const std::uint8_t> sealed) {
    if (!ready() || sealed.size() < nonceSize + tagSize)
        return std::nullopt;
    const auto cipher = sealed.subspan(nonceSize);
    // One spare byte so that an empty plaintext still has somewhere to go.
    Bytes out(cipher.size() - tagSize + 1);
    unsigned long long length = 0;
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(
            out.data(), &length, nullptr, cipher.data(), cipher.size(), dataOrDummy(associatedData),
            associatedData.size(), sealed.data(), key.bytes().data()) != 0)
        return std::nullopt;
    out.resize(static_cast<std::size_t>(length));
    return out;
}

// --- fields ---------------------------------------------------------------

Bytes encodeFields(const CloudFields& fields) {
    Bytes out;
    out.push_back(formatVersion);
    putU32(out, static_cast<std::uint32_t>(fields.size()));
    for (const auto& [name, value] : fields) {
        putSized(out, name);
        std::visit(
            [&out](const auto& v) {
                using T = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<T, double>) {
                    out.push_back(static_cast<std::uint8_t>(Kind::real));
                    putU64(out, std::bit_cast<std::uint64_t>(v));
                } else if constexpr (std::is_same_v<T, std::int64_t>) {
                    out.push_back(static_cast<std::uint8_t>(Kind::integer));
                    putU64(out, std::bit_cast<std::uint64_t>(v));
                } else if constexpr (std::is_same_v<T, std::string>) {
                    out.push_back(static_cast<std::uint8_t>(Kind::string));
                    putSized(out, v);
                } else {
                    static_assert(std::is_same_v<T, CloudBytes>);
                    out.push_back(static_cast<std::uint8_t>(Kind::bytes));
                    putSized(out, v);
                }
            },
            value);
    }
    return out;
}

std::optional<CloudFields> decodeFields(std::span<const std::uint8_t> bytes) {
    if (bytes.size() > maxEncodedSize)
        return std::nullopt;
    Reader in(bytes);
    auto version = in.u8();
    auto count = in.u32();
    if (version != formatVersion || !count)
        return std::nullopt;
    CloudFields fields;
    // Every field takes at least nine bytes, so a huge count runs out of
    // input long before it runs out of memory.
    for (std::uint32_t i = 0; i < *count; ++i) {
        auto name = in.sized(maxNameSize);
        if (!name)
            return std::nullopt;
        auto value = readValue(in);
        if (!value)
            return std::nullopt;
        std::string key(name->begin(), name->end());
        // In the map's order, as encodeFields writes them: one encoding per
        // set of fields, and no name twice.
        if (!fields.empty() && !(fields.rbegin()->first < key))
            return std::nullopt;
        fields.emplace_hint(fields.end(), std::move(key), std::move(*value));
    }
    if (!in.atEnd())
        return std::nullopt;
    return fields;
}

}  // namespace zettly::synccrypto
