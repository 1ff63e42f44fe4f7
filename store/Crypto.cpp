#include "store/Crypto.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <stdexcept>

namespace zettly::crypto {

namespace {
constexpr char kHexDigits[] = "0123456789abcdef";
constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}  // namespace

std::string hex(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (std::uint8_t b : bytes) {
        out.push_back(kHexDigits[b >> 4]);
        out.push_back(kHexDigits[b & 0x0f]);
    }
    return out;
}

std::string sha256Hex(std::string_view text) {
    std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    return hex(digest);
}

std::array<std::uint8_t, 32> hmacSha256(std::span<const std::uint8_t> key, std::string_view data) {
    std::array<std::uint8_t, 32> out{};
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(data.data()), data.size(), out.data(), &length);
    return out;
}

Bytes randomBytes(std::size_t count) {
    Bytes out(count);
    // A failing system random generator leaves nothing safe to do: keys and
    // ids made from predictable bytes would be worse than stopping.
    if (count > 0 && RAND_bytes(out.data(), static_cast<int>(count)) != 1)
        throw std::runtime_error("the system random generator failed");
    return out;
}

std::string newUUID() {
    Bytes b = randomBytes(16);
    b[6] = static_cast<std::uint8_t>((b[6] & 0x0f) | 0x40);
    b[8] = static_cast<std::uint8_t>((b[8] & 0x3f) | 0x80);
    static constexpr char kUpper[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
        out.push_back(kUpper[b[i] >> 4]);
        out.push_back(kUpper[b[i] & 0x0f]);
    }
    return out;
}

std::string base64Encode(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        std::uint32_t n = (bytes[i] << 16) | (bytes[i + 1] << 8) | bytes[i + 2];
        out.push_back(kBase64[(n >> 18) & 63]);
        out.push_back(kBase64[(n >> 12) & 63]);
        out.push_back(kBase64[(n >> 6) & 63]);
        out.push_back(kBase64[n & 63]);
    }
    if (std::size_t rest = bytes.size() - i; rest > 0) {
        std::uint32_t n = bytes[i] << 16;
        if (rest == 2) n |= bytes[i + 1] << 8;
        out.push_back(kBase64[(n >> 18) & 63]);
        out.push_back(kBase64[(n >> 12) & 63]);
        out.push_back(rest == 2 ? kBase64[(n >> 6) & 63] : '=');
        out.push_back('=');
    }
    return out;
}

std::optional<Bytes> base64Decode(std::string_view text) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    Bytes out;
    out.reserve(text.size() / 4 * 3);
    std::uint32_t acc = 0;
    int bits = 0;
    int padding = 0;
    std::size_t symbols = 0;
    for (char c : text) {
        if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
        ++symbols;
        if (c == '=') {
            if (++padding > 2) return std::nullopt;
            continue;
        }
        int v = value(c);
        if (v < 0 || padding > 0) return std::nullopt;  // data after padding
        acc = (acc << 6) | static_cast<std::uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>((acc >> bits) & 0xff));
        }
    }
    if (symbols % 4 != 0) return std::nullopt;
    return out;
}

}  // namespace zettly::crypto
