#include "platform/linux/QtClipboardPasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>

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

bool QtClipboardPasteboard::writeImage(std::span<const std::uint8_t> data, std::string_view type) {
    QByteArray raw(reinterpret_cast<const char*>(data.data()), static_cast<qsizetype>(data.size()));
    QImage image = QImage::fromData(raw);
    if (image.isNull())
        return false;
    // Qt answers a format from the data set for it before encoding the
    // image: the bytes' own type goes out unchanged, the others (image/png
    // among them) are encoded when asked for.
    auto* mime = new QMimeData;
    mime->setData(QString::fromUtf8(type.data(), static_cast<qsizetype>(type.size())), raw);
    mime->setImageData(image);
    clipboard()->setMimeData(mime, QClipboard::Clipboard);
    return true;
}

}  // namespace zettly
