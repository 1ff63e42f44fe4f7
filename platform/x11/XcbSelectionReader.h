#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <xcb/xcb.h>

#include "platform/Pasteboard.h"
#include "platform/x11/XcbConnection.h"

namespace zettly {

// Reads the CLIPBOARD selection from its owner on a connection of its own,
// used by one thread at a time. The owner converts the contents when asked,
// which can take seconds (a photo encoded on request); a read therefore
// ends only when nothing has arrived for `idleLimit`, however long the whole
// transfer takes. Large contents arrive through the INCR protocol; more than
// `maxBytes` is refused rather than buffered.
//
// A read also ends early when the wake descriptor becomes readable and
// `interrupted` then names a reason (the clipboard changed meanwhile, or the
// application quits).
class XcbSelectionReader {
public:
    using Bytes = std::vector<std::uint8_t>;
    using Interruption = std::function<std::optional<ReadStatus>()>;

    struct Limits {
        std::chrono::milliseconds idle;
        std::size_t maxBytes;
    };

    XcbSelectionReader(XcbConnection& connection, int wakeFd, Interruption interrupted);
    ~XcbSelectionReader();
    XcbSelectionReader(const XcbSelectionReader&) = delete;
    XcbSelectionReader& operator=(const XcbSelectionReader&) = delete;

    ReadResult<Bytes> read(std::string_view target, Limits limits);
    // The names of the targets the owner offers; `absent` when there is no
    // owner or it offers nothing.
    ReadResult<std::vector<std::string>> targets(std::chrono::milliseconds idleLimit);

private:
    using Clock = std::chrono::steady_clock;
    struct Wait {
        xcb_generic_event_t* event = nullptr;  // owned by the caller
        ReadStatus failure = ReadStatus::ok;   // when there is no event
    };
    // The next event of this kind on our connection (others are dropped:
    // nothing else is asked of it), or why there is none.
    Wait waitForEvent(std::uint8_t kind, Clock::time_point deadline);
    ReadResult<Bytes> readIncrementally(xcb_atom_t property, Limits limits);

    XcbConnection& connection_;
    int wakeFd_;
    Interruption interrupted_;
    xcb_window_t window_;
    xcb_atom_t clipboard_;
    xcb_atom_t incr_;
    std::array<xcb_atom_t, 4> properties_{};
    std::size_t nextProperty_ = 0;
};

}  // namespace zettly
