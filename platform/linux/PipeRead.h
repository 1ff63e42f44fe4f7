#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"

namespace zettly {

// How long a clipboard transfer may go without progress, and how much one
// read may take in.
struct TransferLimits {
    // An application encoding a large photo on request answers within it.
    std::chrono::milliseconds idle{5000};
    std::size_t maxBytes = 64 * 1024 * 1024;
};

// Reads `fd` (the read end of a pipe another application writes the
// clipboard into) to its end. Ends with `noAnswer` when nothing arrives for
// `limits.idle`, however long the whole transfer takes, and with `tooLarge`
// past `limits.maxBytes`. Each time `wakeFd` (an eventfd, emptied here)
// becomes readable, `interrupted` is asked whether the read is still
// wanted. Blocks the calling thread only.
ReadResult<std::vector<std::uint8_t>> readPipe(
    int fd, int wakeFd, TransferLimits limits,
    const std::function<std::optional<ReadStatus>()>& interrupted);

// The text of a clipboard that offers `offered`: the first text format, in
// pbtype::textTypes' order, whose owner answers with something (`read`
// fetches one format's bytes), Latin-1 STRING made UTF-8. An owner that
// stopped answering ends the walk with its status; none with text is
// `absent`.
ReadResult<std::string> firstText(
    const std::vector<std::string>& offered,
    const std::function<ReadResult<std::vector<std::uint8_t>>(const std::string&)>& read);

// What is left of the time until `deadline`, as poll() takes it: 0 once it
// has passed.
int millisecondsUntil(std::chrono::steady_clock::time_point deadline);

}  // namespace zettly
