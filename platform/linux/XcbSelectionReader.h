#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <xcb/xcb.h>

#include "platform/linux/XcbConnection.h"

namespace zettly {

// Reads the CLIPBOARD selection from its owner, with a time limit. An owner
// that hangs (a frozen app, one that died mid-transfer) costs at most the
// limit instead of freezing capture. Large contents arrive through the INCR
// protocol; anything beyond `maxBytes` is refused rather than buffered.
class XcbSelectionReader {
public:
    using Bytes = std::vector<std::uint8_t>;

    explicit XcbSelectionReader(XcbConnection& connection);
    ~XcbSelectionReader();

    std::optional<Bytes> read(std::string_view target, std::chrono::milliseconds limit,
                              std::size_t maxBytes);
    // The names of the targets the owner offers; empty when there is no owner.
    std::vector<std::string> targets(std::chrono::milliseconds limit);

private:
    using Clock = std::chrono::steady_clock;
    // The next event for our window, or none when the deadline passed.
    xcb_generic_event_t* waitForEvent(Clock::time_point deadline);
    std::optional<Bytes> readIncrementally(Clock::time_point deadline, std::size_t maxBytes);

    XcbConnection& connection_;
    xcb_window_t window_;
    xcb_atom_t clipboard_;
    xcb_atom_t property_;
    xcb_atom_t incr_;
};

}  // namespace zettly
