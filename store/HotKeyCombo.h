#pragma once

#include <cstdint>

namespace zettly {

// A global shortcut as stored: the Mac virtual key code (a key position, not
// a character) and the Carbon modifier mask, so that preferences written on
// any system read the same. The Linux layer maps both to X11 when it grabs.
struct HotKeyCombo {
    static constexpr std::uint32_t command = 256;
    static constexpr std::uint32_t shift = 512;
    static constexpr std::uint32_t option = 2048;
    static constexpr std::uint32_t control = 4096;

    std::uint32_t keyCode = 9;  // V
    std::uint32_t modifiers = option;

    bool operator==(const HotKeyCombo&) const = default;
};

}  // namespace zettly
