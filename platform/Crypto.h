#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zettly::crypto {

using Bytes = std::vector<std::uint8_t>;

// Lower-case hexadecimal, two digits per byte.
std::string hex(std::span<const std::uint8_t> bytes);

// SHA-256 over the UTF-8 bytes as given, as 64 lower-case hex digits.
std::string sha256Hex(std::string_view text);

std::array<std::uint8_t, 32> hmacSha256(std::span<const std::uint8_t> key, std::string_view data);

// From the system's secure random generator.
Bytes randomBytes(std::size_t count);

// A random (version 4) UUID in upper case, as every local id is written.
std::string newUUID();

std::string base64Encode(std::span<const std::uint8_t> bytes);
// Standard alphabet with padding; white space is ignored. None for anything
// else, so a damaged value is noticed instead of read as garbage.
std::optional<Bytes> base64Decode(std::string_view text);

}  // namespace zettly::crypto
