#include "platform/wayland/PipeTransfer.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include "platform/Log.h"
#include "platform/wayland/ClipPayload.h"

namespace zettly {

namespace {

using Clock = std::chrono::steady_clock;

int millisecondsUntil(Clock::time_point deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

ReadResult<std::vector<std::uint8_t>> readPipe(
    int fd, int wakeFd, TransferLimits limits,
    const std::function<std::optional<ReadStatus>()>& interrupted) {
    using Result = ReadResult<std::vector<std::uint8_t>>;
    std::vector<std::uint8_t> out;
    auto deadline = Clock::now() + limits.idle;
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
        deadline = Clock::now() + limits.idle;  // bytes arrived: the owner is alive
    }
}

PipeWriter::PipeWriter(TransferLimits limits, Log& log)
    : limits_(limits), log_(log), stopFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

PipeWriter::~PipeWriter() {
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(stopFd_.get(), &one, sizeof one);
    std::lock_guard lock(mutex_);
    for (auto& transfer : transfers_)
        transfer.thread.join();
}

void PipeWriter::send(std::shared_ptr<ClipPayload> payload, std::string type, UniqueFd fd) {
    std::lock_guard lock(mutex_);
    // The threads of finished transfers are joined here rather than
    // detached, so that none outlives the writer.
    for (auto it = transfers_.begin(); it != transfers_.end();) {
        if (it->done) {
            it->thread.join();
            it = transfers_.erase(it);
        } else {
            ++it;
        }
    }
    Transfer& transfer = transfers_.emplace_back();
    transfer.thread = std::thread([this, &transfer, payload = std::move(payload),
                                   type = std::move(type), fd = std::move(fd)]() mutable {
        write(payload, type, fd.get());
        fd.reset();
        transfer.done = true;
    });
}

void PipeWriter::write(const std::shared_ptr<ClipPayload>& payload, const std::string& type,
                       int fd) {
    // A reader that closes its end early raises SIGPIPE, which would end
    // the whole process; blocked here, it stays with this thread and goes
    // when the thread does, and the write fails with EPIPE instead.
    sigset_t pipeSignal;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, nullptr);

    const auto& offered = payload->types();
    if (std::find(offered.begin(), offered.end(), type) == offered.end())
        return;  // not among what we offered: closing the pipe refuses it
    std::optional<ClipPayload::Bytes> bytes = payload->bytes(type);
    if (!bytes) {
        log_.line("[Zettly] the clipboard image could not be written as " + type +
                  "; the application that asked for it gets nothing");
        return;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    std::size_t written = 0;
    auto deadline = Clock::now() + limits_.idle;
    while (written < bytes->size()) {
        int timeout = millisecondsUntil(deadline);
        if (timeout == 0) {
            log_.line("[Zettly] an application asked for the clipboard as " + type +
                      " and stopped reading it; gave up");
            return;
        }
        pollfd fds[2] = {{fd, POLLOUT, 0}, {stopFd_.get(), POLLIN, 0}};
        if (::poll(fds, 2, timeout) < 0 && errno != EINTR)
            return;
        if (fds[1].revents & POLLIN)
            return;  // shutting down
        if (!(fds[0].revents & (POLLOUT | POLLERR | POLLHUP)))
            continue;
        ssize_t n = ::write(fd, bytes->data() + written, bytes->size() - written);
        if (n < 0) {
            if (errno == EINTR || errno == EAGAIN)
                continue;
            // EPIPE: the reader has what it wanted (or gave up) and closed.
            return;
        }
        written += static_cast<std::size_t>(n);
        deadline = Clock::now() + limits_.idle;
    }
}

}  // namespace zettly
