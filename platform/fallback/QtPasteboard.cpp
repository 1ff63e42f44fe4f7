#include "platform/fallback/QtPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <memory>
#include <optional>

namespace zettly {

namespace {

QClipboard* clipboard() {
    return QGuiApplication::clipboard();
}

template <typename T>
struct Pending {
    std::optional<ReadResult<T>> result;
};

}  // namespace

QtPasteboard::QtPasteboard(MainQueue& mainQueue, QObject* parent)
    : QtClipboardPasteboard(parent), mainQueue_(mainQueue) {}

template <typename T>
ReadResult<T> QtPasteboard::onMainThread(std::function<ReadResult<T>()> read) {
    // Shared with the main thread's task, which may finish after we stop
    // waiting for it.
    auto pending = std::make_shared<Pending<T>>();
    const std::int64_t change = changeCount();
    mainQueue_.post([this, pending, read = std::move(read), change] {
        ReadResult<T> result =
            changeCount() == change ? read() : ReadResult<T>::failure(ReadStatus::superseded);
        std::lock_guard lock(mutex_);
        pending->result = std::move(result);
        answered_.notify_all();
    });
    std::unique_lock lock(mutex_);
    if (!answered_.wait_for(lock, readLimit, [&] { return pending->result || interrupted_; }))
        return ReadResult<T>::failure(ReadStatus::noAnswer);
    if (!pending->result)
        return ReadResult<T>::failure(ReadStatus::superseded);
    return std::move(*pending->result);
}

void QtPasteboard::interruptReads() {
    std::lock_guard lock(mutex_);
    interrupted_ = true;
    answered_.notify_all();
}

ReadResult<std::vector<std::string>> QtPasteboard::types() {
    return onMainThread<std::vector<std::string>>([] {
        const QMimeData* mime = clipboard()->mimeData(QClipboard::Clipboard);
        if (!mime || mime->formats().isEmpty())
            return ReadResult<std::vector<std::string>>::failure(ReadStatus::absent);
        std::vector<std::string> formats;
        for (const QString& format : mime->formats())
            formats.push_back(format.toStdString());
        return ReadResult<std::vector<std::string>>::success(std::move(formats));
    });
}

ReadResult<std::string> QtPasteboard::string() {
    return onMainThread<std::string>([] {
        const QMimeData* mime = clipboard()->mimeData(QClipboard::Clipboard);
        if (!mime || !mime->hasText())
            return ReadResult<std::string>::failure(ReadStatus::absent);
        return ReadResult<std::string>::success(mime->text().toStdString());
    });
}

ReadResult<Pasteboard::Bytes> QtPasteboard::data(const std::string& type) {
    return onMainThread<Bytes>([type] {
        const QMimeData* mime = clipboard()->mimeData(QClipboard::Clipboard);
        QString format = QString::fromStdString(type);
        if (!mime || !mime->hasFormat(format))
            return ReadResult<Bytes>::failure(ReadStatus::absent);
        QByteArray bytes = mime->data(format);
        return ReadResult<Bytes>::success(Bytes(bytes.begin(), bytes.end()));
    });
}

}  // namespace zettly
