#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace zettly::qtclipboard {

// Writes to the CLIPBOARD through QClipboard: Qt then answers the other
// applications' requests for it, in every format it can encode. Main thread.
void clear();
void writeString(std::string_view text);
// False when the bytes are not an image Qt can decode.
bool writeImage(std::span<const std::uint8_t> data);

}  // namespace zettly::qtclipboard
