#include "platform/x11/X11Pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <algorithm>
#include <cstdint>

#include <sys/eventfd.h>
#include <unistd.h>

#include "platform/Unicode.h"

namespace zettly {

namespace {

// Text targets in order of preference. Latin-1 "STRING" is the last resort
// of old X clients; everything else is UTF-8.
constexpr std::string_view kTextTargets[] = {"UTF8_STRING", "text/plain;charset=utf-8",
                                             "text/plain", "TEXT", "STRING"};

QClipboard* clipboard() {
    return QGuiApplication::clipboard();
}

}  // namespace

X11Pasteboard::X11Pasteboard(std::unique_ptr<XcbConnection> reads, QObject* parent)
    : QtClipboardPasteboard(parent),
      wakeFd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      readConnection_(std::move(reads)),
      reader_(*readConnection_, wakeFd_, [this] { return interruption(); }) {}

X11Pasteboard::~X11Pasteboard() {
    if (wakeFd_ >= 0)
        ::close(wakeFd_);
}

void X11Pasteboard::wakeReader() {
    if (wakeFd_ < 0)
        return;
    std::uint64_t one = 1;
    [[maybe_unused]] auto n = ::write(wakeFd_, &one, sizeof one);
}

void X11Pasteboard::interruptReads() {
    interrupted_ = true;
    wakeReader();
}

std::optional<ReadStatus> X11Pasteboard::interruption() {
    if (interrupted_ || changeCount() != reading_)
        return ReadStatus::superseded;
    return std::nullopt;
}

ReadResult<std::vector<std::string>> X11Pasteboard::types() {
    std::int64_t now = changeCount();
    if (typesCount_ == now)
        return types_;
    reading_ = now;
    auto read = reader_.targets(idleLimit);
    // A read cut short says nothing about this change's targets.
    if (read.status != ReadStatus::superseded) {
        typesCount_ = now;
        types_ = read;
    }
    return read;
}

ReadResult<std::string> X11Pasteboard::string() {
    auto offered = types();
    if (!offered.ok())
        return ReadResult<std::string>::failure(offered.status);
    reading_ = typesCount_;
    for (std::string_view target : kTextTargets) {
        if (std::find(offered.value.begin(), offered.value.end(), target) == offered.value.end())
            continue;
        auto bytes = reader_.read(target, {idleLimit, maxReadBytes});
        if (bytes.ok()) {
            std::string text(bytes.value.begin(), bytes.value.end());
            return ReadResult<std::string>::success(target == "STRING" ? unicode::latin1ToUtf8(text)
                                                                       : std::move(text));
        }
        // A refusal leaves the other formats to try; an owner that stopped
        // answering would not answer them either.
        if (bytes.status != ReadStatus::absent)
            return ReadResult<std::string>::failure(bytes.status);
    }
    return ReadResult<std::string>::failure(ReadStatus::absent);
}

ReadResult<Pasteboard::Bytes> X11Pasteboard::data(const std::string& type) {
    // For the change whose types were read: when the clipboard moved on
    // since, the read is cut short rather than taking the next owner's data.
    reading_ = typesCount_ >= 0 ? typesCount_ : changeCount();
    return reader_.read(type, {idleLimit, maxReadBytes});
}

void X11Pasteboard::copyToPrimary() {
    if (!clipboard()->ownsClipboard())
        return;
    const QMimeData* mine = clipboard()->mimeData(QClipboard::Clipboard);
    if (!mine)
        return;
    auto* copy = new QMimeData;
    if (mine->hasImage())
        copy->setImageData(mine->imageData());
    if (mine->hasText())
        copy->setText(mine->text());
    clipboard()->setMimeData(copy, QClipboard::Selection);
}

}  // namespace zettly
