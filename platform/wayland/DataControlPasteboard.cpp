#include "platform/wayland/DataControlPasteboard.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/Log.h"
#include "platform/MainQueue.h"
#include "platform/wayland/ClipPayload.h"
#include "platform/wayland/WaylandConnection.h"

namespace zettly {

namespace {

bool contains(const std::vector<std::string>& types, std::string_view type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

}  // namespace

struct DataControlPasteboard::Shared final : DataControlDevice::Events,
                                             std::enable_shared_from_this<Shared> {
    struct Selection {
        std::int64_t change = 0;
        std::optional<std::vector<std::string>> types;  // none while empty
    };

    Shared(MainQueue& mainQueue, Log& log, TransferLimits limits)
        : mainQueue(mainQueue),
          log(log),
          limits(limits),
          writer(limits, log),
          wakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    // A new selection, another application's or a write of ours; returns
    // its change number.
    std::int64_t changed(std::optional<std::vector<std::string>> types) {
        std::lock_guard lock(mutex);
        if (startingUp) {
            current = {count.load(), std::move(types)};
            return current.change;
        }
        current = {++count, std::move(types)};
        wake();
        notify();
        return current.change;
    }

    std::int64_t selectionChanged(std::optional<std::vector<std::string>> types) override {
        return changed(std::move(types));
    }

    void deviceFinished() override {
        log.line("[Zettly] the compositor withdrew the clipboard (" + protocol +
                 "); capture and copying from the history stop until Zettly is restarted");
        finished = true;
        {
            std::lock_guard lock(mutex);
            current.types.reset();
        }
        wake();
    }

    void wake() {
        std::uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(wakeFd.get(), &one, sizeof one);
    }

    // Under `mutex`: at most one call of the handler waits on the main
    // queue, however many changes come meanwhile.
    void notify() {
        if (detached || posted.exchange(true))
            return;
        std::weak_ptr<Shared> weak = weak_from_this();
        mainQueue.post([weak] {
            if (auto self = weak.lock()) {
                self->posted = false;
                if (self->handler)
                    self->handler();
            }
        });
    }

    MainQueue& mainQueue;
    Log& log;
    TransferLimits limits;
    PipeWriter writer;
    UniqueFd wakeFd;
    std::string protocol;
    std::atomic<std::int64_t> count{0};
    std::atomic<bool> interrupted{false};
    std::atomic<bool> finished{false};
    std::atomic<bool> posted{false};
    std::function<void()> handler;  // main thread

    std::mutex mutex;
    // Until the first round trip is over, a selection is where the
    // clipboard starts, not a change.
    bool startingUp = true;
    // The clipboard is gone: nothing is posted to the main queue any more.
    bool detached = false;
    Selection current;
};

std::unique_ptr<DataControlPasteboard> DataControlPasteboard::create(WaylandConnection& connection,
                                                                     MainQueue& mainQueue, Log& log,
                                                                     TransferLimits limits) {
    auto shared = std::make_shared<Shared>(mainQueue, log, limits);
    auto device = DataControlDevice::create(connection, *shared, shared->writer);
    if (!device)
        return nullptr;
    shared->protocol = device->protocol();
    std::unique_ptr<DataControlPasteboard> pasteboard(
        new DataControlPasteboard(connection, std::move(shared)));
    pasteboard->device_ = std::move(device);
    // The compositor announces the current selection at once.
    connection.roundtrip();
    {
        std::lock_guard lock(pasteboard->shared_->mutex);
        pasteboard->shared_->startingUp = false;
    }
    if (!connection.alive())
        return nullptr;
    return pasteboard;
}

DataControlPasteboard::DataControlPasteboard(WaylandConnection& connection,
                                             std::shared_ptr<Shared> shared)
    : connection_(connection), shared_(std::move(shared)) {}

DataControlPasteboard::~DataControlPasteboard() {
    {
        std::lock_guard lock(shared_->mutex);
        shared_->detached = true;
    }
    shared_->handler = nullptr;
    if (!device_)
        return;
    // The device's Wayland objects go on the event thread, after every task
    // already posted for them. A task that never runs (the connection was
    // lost) leaves them to the closed connection rather than destroying
    // them after it.
    struct Retiring {
        std::unique_ptr<DataControlDevice> device;
        ~Retiring() { static_cast<void>(device.release()); }
    };
    auto retiring = std::make_shared<Retiring>();
    retiring->device = std::move(device_);
    connection_.post([retiring, shared = shared_] { delete retiring->device.release(); });
}

std::int64_t DataControlPasteboard::changeCount() {
    return shared_->count.load();
}

void DataControlPasteboard::setChangeHandler(std::function<void()> handler) {
    shared_->handler = std::move(handler);
}

void DataControlPasteboard::interruptReads() {
    shared_->interrupted = true;
    shared_->wake();
}

ReadResult<std::vector<std::string>> DataControlPasteboard::types() {
    using Result = ReadResult<std::vector<std::string>>;
    if (shared_->interrupted)
        return Result::failure(ReadStatus::superseded);
    if (shared_->finished || !connection_.alive())
        return Result::failure(ReadStatus::absent);
    std::lock_guard lock(shared_->mutex);
    typesChange_ = shared_->current.change;
    if (!shared_->current.types || shared_->current.types->empty())
        return Result::failure(ReadStatus::absent);
    return Result::success(*shared_->current.types);
}

ReadResult<std::string> DataControlPasteboard::string() {
    auto offered = types();
    if (!offered.ok())
        return ReadResult<std::string>::failure(offered.status);
    const std::int64_t change = typesChange_;
    return firstText(offered.value, [&](const std::string& type) { return read(type, change); });
}

ReadResult<Pasteboard::Bytes> DataControlPasteboard::data(const std::string& type) {
    // For the change whose types were read: when the clipboard moved on
    // since, the read is cut short rather than taking the next owner's data.
    return read(type, typesChange_ >= 0 ? typesChange_ : changeCount());
}

ReadResult<Pasteboard::Bytes> DataControlPasteboard::read(const std::string& type,
                                                          std::int64_t change) {
    using Result = ReadResult<Bytes>;
    Shared& shared = *shared_;
    if (shared.interrupted)
        return Result::failure(ReadStatus::superseded);
    if (shared.finished || !connection_.alive())
        return Result::failure(ReadStatus::absent);
    {
        std::lock_guard lock(shared.mutex);
        if (shared.current.change != change)
            return Result::failure(ReadStatus::superseded);
        if (!shared.current.types || !contains(*shared.current.types, type))
            return Result::failure(ReadStatus::absent);
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        shared.log.line(std::string("[Zettly] no pipe for reading the clipboard (") +
                        std::strerror(errno) + ")");
        return Result::failure(ReadStatus::noAnswer);
    }
    UniqueFd readEnd(ends[0]);
    // The write end belongs to the request alone: once the event thread has
    // handed it on (or dropped it), only the owner holds it, and its close
    // ends the read.
    auto sent = std::make_shared<std::atomic<bool>>(false);
    auto request = std::make_shared<DataControlDevice::Receive>(
        DataControlDevice::Receive{change, type, UniqueFd(ends[1]), sent});
    connection_.post([device = device_.get(), request] { device->receive(std::move(*request)); });
    request.reset();

    auto cutShort = [&]() -> std::optional<ReadStatus> {
        if (shared.interrupted || shared.count.load() != change)
            return ReadStatus::superseded;
        if (shared.finished)
            return ReadStatus::absent;
        return std::nullopt;
    };
    auto result = readPipe(readEnd.get(), shared.wakeFd.get(), shared.limits, cutShort);
    if (result.ok() && !*sent) {
        // Closed before any owner was asked: the change went meanwhile.
        return Result::failure(cutShort().value_or(ReadStatus::absent));
    }
    return result;
}

void DataControlPasteboard::write(std::shared_ptr<ClipPayload> payload) {
    if (shared_->finished || !connection_.alive())
        return;  // said once, when it happened
    std::int64_t change;
    {
        std::optional<std::vector<std::string>> offered;
        if (payload)
            offered = payload->types();
        change = shared_->changed(std::move(offered));
    }
    connection_.post([device = device_.get(), change, payload = std::move(payload)]() mutable {
        device->setSelection(change, std::move(payload));
    });
}

void DataControlPasteboard::clear() {
    write(nullptr);
}

void DataControlPasteboard::writeString(std::string_view text) {
    write(ClipPayload::text(text));
}

bool DataControlPasteboard::writeImage(std::span<const std::uint8_t> data, std::string_view type) {
    auto payload = ClipPayload::image(data, type);
    if (!payload)
        return false;
    write(std::move(payload));
    return true;
}

}  // namespace zettly
