#include "platform/linux/QtClipboardWrites.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>

namespace zettly::qtclipboard {

void clear() {
    QGuiApplication::clipboard()->clear(QClipboard::Clipboard);
}

void writeString(std::string_view text) {
    QGuiApplication::clipboard()->setText(
        QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())), QClipboard::Clipboard);
}

bool writeImage(std::span<const std::uint8_t> data) {
    QImage image = QImage::fromData(data.data(), static_cast<int>(data.size()));
    if (image.isNull())
        return false;
    // Qt then offers it as image/png and the other formats it can encode.
    QGuiApplication::clipboard()->setImage(image, QClipboard::Clipboard);
    return true;
}

}  // namespace zettly::qtclipboard
