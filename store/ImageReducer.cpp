#include "store/ImageReducer.h"

#include <cerrno>
#include <chrono>
#include <cstring>

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace zettly {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kMaxRequest = 64ull * 1024 * 1024;
constexpr std::uint64_t kMaxReply = 64ull * 1024 * 1024;

class InProcessReducer final : public ImageReducer {
public:
    std::optional<ImageCodec::Reduced> reduce(std::span<const std::uint8_t> input,
                                              const Request& request) override {
        return ImageCodec::reduce(input, request.maxPixel, request.thumbPixel, request.fingerprint);
    }
};

// ---- frames ---------------------------------------------------------------

class Writer {
public:
    template <typename T>
    void put(T value) {
        const auto* p = reinterpret_cast<const std::uint8_t*>(&value);
        out_.insert(out_.end(), p, p + sizeof value);
    }
    void bytes(std::span<const std::uint8_t> data) {
        put<std::uint64_t>(data.size());
        out_.insert(out_.end(), data.begin(), data.end());
    }
    // The body with its length in front.
    Bytes frame() {
        Bytes framed(sizeof(std::uint64_t));
        std::uint64_t size = out_.size();
        std::memcpy(framed.data(), &size, sizeof size);
        framed.insert(framed.end(), out_.begin(), out_.end());
        return framed;
    }

private:
    Bytes out_;
};

class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> in) : in_(in) {}
    template <typename T>
    bool get(T& value) {
        if (in_.size() - at_ < sizeof value)
            return false;
        std::memcpy(&value, in_.data() + at_, sizeof value);
        at_ += sizeof value;
        return true;
    }
    bool bytes(Bytes& out) {
        std::uint64_t size = 0;
        if (!get(size) || size > in_.size() - at_)
            return false;
        out.assign(in_.begin() + static_cast<std::ptrdiff_t>(at_),
                   in_.begin() + static_cast<std::ptrdiff_t>(at_ + size));
        at_ += size;
        return true;
    }
    std::span<const std::uint8_t> rest() const { return in_.subspan(at_); }
    bool done() const { return at_ == in_.size(); }

private:
    std::span<const std::uint8_t> in_;
    std::size_t at_ = 0;
};

using Deadline = std::chrono::steady_clock::time_point;

bool writeAll(int fd, std::span<const std::uint8_t> data) {
    while (!data.empty()) {
        ssize_t n = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data = data.subspan(static_cast<std::size_t>(n));
    }
    return true;
}

// Reads exactly `size` bytes before the deadline (none: wait for ever).
bool readAll(int fd, std::uint8_t* out, std::size_t size, std::optional<Deadline> deadline) {
    while (size > 0) {
        if (deadline) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                *deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0)
                return false;
            pollfd p{fd, POLLIN, 0};
            int ready = ::poll(&p, 1, static_cast<int>(left.count()));
            if (ready < 0 && errno == EINTR)
                continue;
            if (ready <= 0)
                return false;
        }
        ssize_t n = ::read(fd, out, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        out += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::optional<Bytes> readFrame(int fd, std::uint64_t limit, std::optional<Deadline> deadline) {
    std::uint64_t size = 0;
    if (!readAll(fd, reinterpret_cast<std::uint8_t*>(&size), sizeof size, deadline) || size > limit)
        return std::nullopt;
    Bytes body(size);
    if (!readAll(fd, body.data(), body.size(), deadline))
        return std::nullopt;
    return body;
}

void putJpeg(Writer& w, const ImageCodec::Jpeg& jpeg) {
    w.put<std::int32_t>(jpeg.width);
    w.put<std::int32_t>(jpeg.height);
    w.bytes(jpeg.bytes);
}

bool getJpeg(Reader& r, ImageCodec::Jpeg& jpeg) {
    std::int32_t width = 0, height = 0;
    if (!r.get(width) || !r.get(height) || !r.bytes(jpeg.bytes))
        return false;
    jpeg.width = width;
    jpeg.height = height;
    return width > 0 && height > 0;
}

}  // namespace

ImageReducer& ImageReducer::inProcess() {
    static InProcessReducer reducer;
    return reducer;
}

// ---- wire format ------------------------------------------------------------

namespace imagewire {

Bytes encodeRequest(std::span<const std::uint8_t> input, const ImageReducer::Request& request) {
    Writer w;
    w.put<std::int32_t>(request.maxPixel);
    w.put<std::int32_t>(request.thumbPixel.value_or(-1));
    w.put<std::uint8_t>(request.fingerprint ? 1 : 0);
    w.bytes(input);
    return w.frame();
}

Bytes encodeReply(const std::optional<ImageCodec::Reduced>& reply) {
    Writer w;
    w.put<std::uint8_t>(reply ? 1 : 0);
    if (reply) {
        putJpeg(w, reply->full);
        w.put<std::uint8_t>(reply->thumb ? 1 : 0);
        if (reply->thumb)
            putJpeg(w, *reply->thumb);
        w.put<std::uint8_t>(reply->fingerprint ? 1 : 0);
        if (reply->fingerprint)
            w.put(*reply->fingerprint);
    }
    return w.frame();
}

std::optional<ImageCodec::Reduced> decodeReply(std::span<const std::uint8_t> frame) {
    Reader r(frame);
    std::uint8_t ok = 0, hasThumb = 0, hasFingerprint = 0;
    if (!r.get(ok) || ok != 1)
        return std::nullopt;
    ImageCodec::Reduced reduced;
    if (!getJpeg(r, reduced.full) || !r.get(hasThumb))
        return std::nullopt;
    if (hasThumb && !getJpeg(r, reduced.thumb.emplace()))
        return std::nullopt;
    if (!r.get(hasFingerprint))
        return std::nullopt;
    if (hasFingerprint && !r.get(reduced.fingerprint.emplace()))
        return std::nullopt;
    if (!r.done())
        return std::nullopt;
    return reduced;
}

}  // namespace imagewire

// ---- worker side --------------------------------------------------------------

int runImageWorker(int fd, int idleSeconds) {
    for (;;) {
        pollfd p{fd, POLLIN, 0};
        int ready = ::poll(&p, 1, idleSeconds * 1000);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
            return 0;  // idle long enough: the client starts us again when needed
        auto frame = readFrame(fd, kMaxRequest, std::nullopt);
        if (!frame)
            return 0;  // the client went away
        Reader r(*frame);
        std::int32_t maxPixel = 0, thumbPixel = 0;
        std::uint8_t fingerprint = 0;
        std::uint64_t size = 0;
        if (!r.get(maxPixel) || !r.get(thumbPixel) || !r.get(fingerprint) || !r.get(size) ||
            size != r.rest().size())
            return 1;
        std::optional<int> thumb;
        if (thumbPixel > 0)
            thumb = thumbPixel;
        auto reduced = ImageCodec::reduce(r.rest(), maxPixel, thumb, fingerprint != 0);
        if (!writeAll(fd, imagewire::encodeReply(reduced)))
            return 0;
    }
}

// ---- client side --------------------------------------------------------------

ImageWorkerClient::ImageWorkerClient(std::filesystem::path worker) : worker_(std::move(worker)) {}

ImageWorkerClient::~ImageWorkerClient() {
    std::lock_guard lock(mutex_);
    stopLocked();
}

bool ImageWorkerClient::startLocked() {
    int fds[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // The worker speaks on its standard input and output.
    posix_spawn_file_actions_adddup2(&actions, fds[1], 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    std::string path = worker_.string();
    char* argv[] = {path.data(), nullptr};
    pid_t pid = -1;
    int rc = ::posix_spawn(&pid, path.c_str(), &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (rc != 0) {
        ::close(fds[0]);
        return false;
    }
    socket_ = fds[0];
    pid_ = pid;
    return true;
}

void ImageWorkerClient::stopLocked() {
    if (socket_ >= 0)
        ::close(socket_);
    socket_ = -1;
    if (pid_ > 0) {
        // Closing the socket ends an idle worker; a busy or stuck one is killed.
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
}

std::optional<std::optional<ImageCodec::Reduced>> ImageWorkerClient::exchangeLocked(
    const Bytes& request) {
    if (socket_ < 0 && !startLocked())
        return std::nullopt;
    if (!writeAll(socket_, request))
        return std::nullopt;
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(replyTimeoutMs);
    auto reply = readFrame(socket_, kMaxReply, deadline);
    if (!reply)
        return std::nullopt;
    return imagewire::decodeReply(*reply);
}

std::optional<ImageCodec::Reduced> ImageWorkerClient::reduce(std::span<const std::uint8_t> input,
                                                             const Request& request) {
    Bytes frame = imagewire::encodeRequest(input, request);
    std::lock_guard lock(mutex_);
    bool wasRunning = socket_ >= 0;
    if (auto answer = exchangeLocked(frame))
        return *answer;  // an unreadable image, too
    stopLocked();
    // A worker that had just left after its idle time gets one more chance,
    // started afresh. When a fresh worker fails, the image itself is the
    // problem: the decoder crashed, ran out of its memory or took too long.
    if (!wasRunning)
        return std::nullopt;
    if (auto answer = exchangeLocked(frame))
        return *answer;
    stopLocked();
    return std::nullopt;
}

}  // namespace zettly
