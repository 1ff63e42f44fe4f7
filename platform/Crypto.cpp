#include "platform/Crypto.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/rand.h>

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

namespace {

// OpenSSL 3 looks an algorithm up by name on every one-shot call, which
// costs more than hashing a clipboard text; capture hashes every copy, so
// the algorithm is fetched once and each thread keeps its own context.
class Sha256 {
public:
    Sha256() : ctx_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        static EVP_MD* md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
        md_ = md;
        if (!md_ || !ctx_ || EVP_DigestInit_ex2(ctx_.get(), md_, nullptr) != 1)
            throw std::runtime_error("SHA-256 is not available");
    }
    Sha256& update(const void* data, std::size_t size) {
        EVP_DigestUpdate(ctx_.get(), data, size);
        return *this;
    }
    std::array<std::uint8_t, 32> finish() {
        std::array<std::uint8_t, 32> out{};
        EVP_DigestFinal_ex(ctx_.get(), out.data(), nullptr);
        EVP_DigestInit_ex2(ctx_.get(), md_, nullptr);  // ready for the next use
        return out;
    }

private:
    const EVP_MD* md_ = nullptr;
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx_;
};

Sha256& threadSha256() {
    thread_local Sha256 sha;
    return sha;
}

}  // namespace

std::string sha256Hex(std::string_view text) {
    return hex(threadSha256().update(text.data(), text.size()).finish());
}

std::array<std::uint8_t, 32> hmacSha256(std::span<const std::uint8_t> key, std::string_view data) {
    constexpr std::size_t kBlock = 64;
    Sha256& sha = threadSha256();
    std::array<std::uint8_t, kBlock> block{};
    if (key.size() > kBlock) {
        auto digest = sha.update(key.data(), key.size()).finish();
        std::copy(digest.begin(), digest.end(), block.begin());
    } else {
        std::copy(key.begin(), key.end(), block.begin());
    }
    std::array<std::uint8_t, kBlock> pad{};
    for (std::size_t i = 0; i < kBlock; ++i)
        pad[i] = block[i] ^ 0x36;
    auto inner = sha.update(pad.data(), kBlock).update(data.data(), data.size()).finish();
    for (std::size_t i = 0; i < kBlock; ++i)
        pad[i] = block[i] ^ 0x5c;
    return sha.update(pad.data(), kBlock).update(inner.data(), inner.size()).finish();
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
        if (i == 4 || i == 6 || i == 8 || i == 10)
            out.push_back('-');
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
        if (rest == 2)
            n |= bytes[i + 1] << 8;
        out.push_back(kBase64[(n >> 18) & 63]);
        out.push_back(kBase64[(n >> 12) & 63]);
        out.push_back(rest == 2 ? kBase64[(n >> 6) & 63] : '=');
        out.push_back('=');
    }
    return out;
}

std::optional<Bytes> base64Decode(std::string_view text) {
    auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z')
            return c - 'A';
        if (c >= 'a' && c <= 'z')
            return c - 'a' + 26;
        if (c >= '0' && c <= '9')
            return c - '0' + 52;
        if (c == '+')
            return 62;
        if (c == '/')
            return 63;
        return -1;
    };
    Bytes out;
    out.reserve(text.size() / 4 * 3);
    std::uint32_t acc = 0;
    int bits = 0;
    int padding = 0;
    std::size_t symbols = 0;
    for (char c : text) {
        if (c == ' ' || c == '\n' || c == '\r' || c == '\t')
            continue;
        ++symbols;
        if (c == '=') {
            if (++padding > 2)
                return std::nullopt;
            continue;
        }
        int v = value(c);
        if (v < 0 || padding > 0)
            return std::nullopt;  // data after padding
        acc = (acc << 6) | static_cast<std::uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>((acc >> bits) & 0xff));
        }
    }
    if (symbols % 4 != 0)
        return std::nullopt;
    return out;
}

}  // namespace zettly::crypto
