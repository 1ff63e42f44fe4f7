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

#include "platform/linux/PipeRead.h"
#include "platform/linux/UniqueFd.h"

namespace zettly {

class ClipPayload;
class Log;

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
