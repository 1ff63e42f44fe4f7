#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/Pasteboard.h"
#include "platform/wayland/UniqueFd.h"

namespace zettly {

class ClipPayload;
class Log;

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

// Answers other applications' requests for what Zettly put on the
// clipboard, each on a short-lived thread of its own, so that neither an
// image encoded on request nor a reader that takes its time holds up the
// thread the request came in on. A reader that stops reading is given up
// after the idle limit, with a log line.
class PipeWriter {
public:
    PipeWriter(TransferLimits limits, Log& log);
    // Ends the transfers under way (their readers see the end of the data).
    ~PipeWriter();
    PipeWriter(const PipeWriter&) = delete;
    PipeWriter& operator=(const PipeWriter&) = delete;

    // Writes `payload` as `type` into `fd` and closes it.
    void send(std::shared_ptr<ClipPayload> payload, std::string type, UniqueFd fd);

private:
    struct Transfer {
        std::thread thread;
        std::atomic<bool> done{false};
    };
    void write(const std::shared_ptr<ClipPayload>& payload, const std::string& type, int fd);

    TransferLimits limits_;
    Log& log_;
    UniqueFd stopFd_;
    std::mutex mutex_;
    std::list<Transfer> transfers_;
};

}  // namespace zettly
