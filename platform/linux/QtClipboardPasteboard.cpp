#include "platform/linux/QtClipboardPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>

namespace zettly {

namespace {

QClipboard* clipboard() {
    return QGuiApplication::clipboard();
}

}  // namespace

QtClipboardPasteboard::QtClipboardPasteboard(QObject* parent) : QObject(parent) {
    // Other applications' ownership changes and our own writes alike: either
    // is a new clipboard state.
    connect(clipboard(), &QClipboard::dataChanged, this, [this] {
        ++count_;
        changed();
        if (handler_)
            handler_();
    });
}

void QtClipboardPasteboard::setChangeHandler(std::function<void()> handler) {
    handler_ = std::move(handler);
}

void QtClipboardPasteboard::clear() {
    clipboard()->clear(QClipboard::Clipboard);
}

void QtClipboardPasteboard::writeString(std::string_view text) {
    clipboard()->setText(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())),
                         QClipboard::Clipboard);
}

bool QtClipboardPasteboard::writeImage(std::span<const std::uint8_t> data) {
    QImage image = QImage::fromData(data.data(), static_cast<int>(data.size()));
    if (image.isNull())
        return false;
    // Qt then offers it as image/png and the other formats it can encode.
    clipboard()->setImage(image, QClipboard::Clipboard);
    return true;
}

}  // namespace zettly
