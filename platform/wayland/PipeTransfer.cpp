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

using Clock = std::chrono::steady_clock;

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
