#include "platform/gnome/GnomePasteboard.h"

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/Log.h"
#include "platform/gnome/ShellBridge.h"

namespace zettly {

namespace {

bool contains(const std::vector<std::string>& types, std::string_view type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

// What GNOME Shell can hold is one format per owner: text in the one every
// Wayland toolkit asks for (mutter answers X11 applications' UTF8_STRING
// from it), images as PNG, which every application reads.
constexpr const char* kTextType = "text/plain;charset=utf-8";
constexpr const char* kImageType = "image/png";

}  // namespace

GnomePasteboard::GnomePasteboard(ShellBridge& bridge, Log& log, TransferLimits limits)
    : bridge_(bridge),
      log_(log),
      limits_(limits),
      wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    bridgeBack();
}

GnomePasteboard::~GnomePasteboard() {
    interruptReads();
}

void GnomePasteboard::setChangeHandler(std::function<void()> handler) {
    handler_ = std::move(handler);
}

void GnomePasteboard::ownerChanged(std::uint64_t serial, std::vector<std::string> types) {
    {
        std::lock_guard lock(mutex_);
        // Our own write, whose serial came with its answer.
        if (serial == serial_)
            return;
        serial_ = serial;
        offered_ = std::move(types);
        ++count_;
    }
    wakeReaders();
    if (handler_)
        handler_();
}

void GnomePasteboard::bridgeGone() {
    gone_ = true;
    wakeReaders();
}

void GnomePasteboard::bridgeBack() {
    auto now = bridge_.clipboard();
    std::lock_guard lock(mutex_);
    gone_ = !now;
    if (!now)
        return;
    // What is there now was copied while Zettly could not see it (or
    // before it started): like the clipboard at start-up, not a change.
    serial_ = now->serial;
    offered_ = std::move(now->types);
}

void GnomePasteboard::wakeReaders() {
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wakeFd_.get(), &one, sizeof one);
}

void GnomePasteboard::interruptReads() {
    interrupted_ = true;
    wakeReaders();
}

ReadResult<std::vector<std::string>> GnomePasteboard::types() {
    using Result = ReadResult<std::vector<std::string>>;
    if (interrupted_)
        return Result::failure(ReadStatus::superseded);
    if (gone_)
        return Result::failure(ReadStatus::absent);
    std::lock_guard lock(mutex_);
    typesChange_ = count_.load();
    if (offered_.empty())
        return Result::failure(ReadStatus::absent);
    return Result::success(offered_);
}

ReadResult<std::string> GnomePasteboard::string() {
    auto offered = types();
    if (!offered.ok())
        return ReadResult<std::string>::failure(offered.status);
    const std::int64_t change = typesChange_;
    return firstText(offered.value, [&](const std::string& type) { return read(type, change); });
}

ReadResult<Pasteboard::Bytes> GnomePasteboard::data(const std::string& type) {
    // For the change whose formats were read: when the clipboard moved on
    // since, the read is cut short rather than taking the next owner's data.
    return read(type, typesChange_ >= 0 ? typesChange_ : changeCount());
}

ReadResult<Pasteboard::Bytes> GnomePasteboard::read(const std::string& type, std::int64_t change) {
    using Result = ReadResult<Bytes>;
    auto cutShort = [&]() -> std::optional<ReadStatus> {
        if (interrupted_ || count_.load() != change)
            return ReadStatus::superseded;
        if (gone_)
            return ReadStatus::absent;
        return std::nullopt;
    };
    if (auto why = cutShort())
        return Result::failure(*why);
    {
        std::lock_guard lock(mutex_);
        if (!contains(offered_, type))
            return Result::failure(ReadStatus::absent);
    }
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        log_.line(std::string("[Zettly] no pipe for reading the clipboard (") +
                  std::strerror(errno) + ")");
        return Result::failure(ReadStatus::noAnswer);
    }
    UniqueFd readEnd(ends[0]);
    {
        // Only the extension holds the write end once the request is out,
        // so its close is the end of the data.
        UniqueFd writeEnd(ends[1]);
        const auto cap = static_cast<std::uint32_t>(
            std::min<std::size_t>(limits_.maxBytes, std::numeric_limits<std::uint32_t>::max() - 1));
        if (!bridge_.readClipboard(type, cap, writeEnd.get()))
            return Result::failure(ReadStatus::noAnswer);
    }
    return readPipe(readEnd.get(), wakeFd_.get(), limits_, cutShort);
}

bool GnomePasteboard::write(const std::string& type, const QByteArray& data) {
    auto serial = bridge_.setClipboard(type, data);
    std::lock_guard lock(mutex_);
    ++count_;
    if (!serial) {
        // Said in the log by the bridge; the count still moves, so the
        // monitor takes nothing of what is there for the user's own copy.
        return false;
    }
    serial_ = *serial;
    offered_ = {type};
    return true;
}

void GnomePasteboard::clear() {
    // GNOME Shell offers no empty clipboard to set: the write that follows
    // replaces what is there. The count still moves, as a clear is a
    // change of its own.
    ++count_;
}

void GnomePasteboard::writeString(std::string_view text) {
    write(kTextType, QByteArray(text.data(), static_cast<qsizetype>(text.size())));
}

bool GnomePasteboard::writeImage(std::span<const std::uint8_t> data, std::string_view type) {
    // One format per owner, PNG: a PNG goes out as it is.
    if (type == kImageType) {
        QByteArray raw(reinterpret_cast<const char*>(data.data()),
                       static_cast<qsizetype>(data.size()));
        if (QImage::fromData(raw).isNull())
            return false;
        write(kImageType, raw);
        return true;
    }
    QImage image;
    if (!image.loadFromData(data.data(), static_cast<int>(data.size())))
        return false;
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG")) {
        log_.line("[Zettly] could not encode the picked image as PNG");
        return false;
    }
    write(kImageType, png);
    return true;
}

}  // namespace zettly
