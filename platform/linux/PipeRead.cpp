#include "platform/linux/PipeRead.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <unistd.h>

#include "platform/Unicode.h"

namespace zettly {

int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

ReadResult<std::vector<std::uint8_t>> readPipe(
    int fd, int wakeFd, TransferLimits limits,
    const std::function<std::optional<ReadStatus>()>& interrupted) {
    using Result = ReadResult<std::vector<std::uint8_t>>;
    std::vector<std::uint8_t> out;
    auto deadline = std::chrono::steady_clock::now() + limits.idle;
    for (;;) {
        if (auto why = interrupted())
            return Result::failure(*why);
        int timeout = millisecondsUntil(deadline);
        if (timeout == 0)
            return Result::failure(ReadStatus::noAnswer);
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
        if (::poll(fds, 2, timeout) < 0 && errno != EINTR)
            return Result::failure(ReadStatus::noAnswer);
        // Emptied before the next look at the interruption: a wake from a
        // change already seen would otherwise keep poll() returning at once.
        if (fds[1].revents & POLLIN) {
            std::uint64_t wakes = 0;
            [[maybe_unused]] auto n = ::read(wakeFd, &wakes, sizeof wakes);
        }
        if (!(fds[0].revents & (POLLIN | POLLHUP | POLLERR)))
            continue;
        std::uint8_t chunk[64 * 1024];
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            return Result::failure(ReadStatus::noAnswer);
        }
        if (n == 0)
            return Result::success(std::move(out));
        if (out.size() + static_cast<std::size_t>(n) > limits.maxBytes)
            return Result::failure(ReadStatus::tooLarge);
        out.insert(out.end(), chunk, chunk + n);
        deadline =
            std::chrono::steady_clock::now() + limits.idle;  // bytes arrived: the owner is alive
    }
}

ReadResult<std::string> firstText(
    const std::vector<std::string>& offered,
    const std::function<ReadResult<std::vector<std::uint8_t>>(const std::string&)>& read) {
    using Result = ReadResult<std::string>;
    for (std::string_view type : pbtype::textTypes) {
        if (std::find(offered.begin(), offered.end(), type) == offered.end())
            continue;
        auto bytes = read(std::string(type));
        // An owner refuses a format by closing the pipe at once, which
        // looks like an empty text: the next format may have one.
        if (bytes.ok() && !bytes.value.empty()) {
            std::string text(bytes.value.begin(), bytes.value.end());
            return Result::success(type == "STRING" ? unicode::latin1ToUtf8(text)
                                                    : std::move(text));
        }
        // An owner that stopped answering would not answer the others.
        if (!bytes.ok() && bytes.status != ReadStatus::absent)
            return Result::failure(bytes.status);
    }
    return Result::failure(ReadStatus::absent);
}

}  // namespace zettly
