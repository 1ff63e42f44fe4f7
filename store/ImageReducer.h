#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include <sys/types.h>

#include "store/ImageCodec.h"

namespace zettly {

// Turns copied image bytes into the stored JPEGs (and their fingerprint).
class ImageReducer {
public:
    struct Request {
        int maxPixel = 0;
        std::optional<int> thumbPixel;
        bool fingerprint = false;
    };
    virtual ~ImageReducer() = default;
    virtual std::optional<ImageCodec::Reduced> reduce(std::span<const std::uint8_t> input,
                                                      const Request& request) = 0;

    // Decodes in this process.
    static ImageReducer& inProcess();
};

// Decodes in a separate worker process (zettly-image-worker). Clipboard
// images come from anywhere: a decoder that crashes on a hostile file, or a
// picture that needs more memory than allowed, takes down only the worker,
// and the image libraries' heap and code never stay resident in the tray
// app. The worker stays up while images keep coming and leaves after half a
// minute without one; the next image starts it again.
//
// Safe to call from several threads; requests are served one at a time.
class ImageWorkerClient final : public ImageReducer {
public:
    explicit ImageWorkerClient(std::filesystem::path worker);
    ~ImageWorkerClient() override;
    ImageWorkerClient(const ImageWorkerClient&) = delete;
    ImageWorkerClient& operator=(const ImageWorkerClient&) = delete;

    std::optional<ImageCodec::Reduced> reduce(std::span<const std::uint8_t> input,
                                              const Request& request) override;

    // The running worker's process id, or -1 (for tests and diagnostics).
    pid_t workerPid() {
        std::lock_guard lock(mutex_);
        return pid_;
    }

    // A decode taking longer than this is given up (and the worker killed).
    static constexpr int replyTimeoutMs = 20'000;

private:
    bool startLocked();
    void stopLocked();
    // None when the worker could not be reached or gave no answer in time;
    // otherwise its answer (none for an image it could not read).
    std::optional<std::optional<ImageCodec::Reduced>> exchangeLocked(
        const std::vector<std::uint8_t>& request);

    std::filesystem::path worker_;
    std::mutex mutex_;
    int socket_ = -1;
    pid_t pid_ = -1;
};

// The worker's side: serves requests on `fd` until it closes or stays quiet
// for `idleSeconds`. Returns the process exit code.
int runImageWorker(int fd, int idleSeconds);

// The wire format, exposed for tests.
namespace imagewire {
std::vector<std::uint8_t> encodeRequest(std::span<const std::uint8_t> input,
                                        const ImageReducer::Request& request);
std::vector<std::uint8_t> encodeReply(const std::optional<ImageCodec::Reduced>& reply);
std::optional<ImageCodec::Reduced> decodeReply(std::span<const std::uint8_t> frame);
}  // namespace imagewire

}  // namespace zettly
