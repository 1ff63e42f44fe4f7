#include "platform/wayland/ClipPayload.h"

#include <QBuffer>
#include <QImageWriter>
#include <QString>
#include <algorithm>

namespace zettly {

namespace {

// The text formats Qt offers on X11, so that X11 and Wayland applications
// reading through the compositor find the names they know. STRING is
// Latin-1; the others carry UTF-8.
constexpr std::string_view kUtf8Types[] = {"text/plain;charset=utf-8", "text/plain", "UTF8_STRING",
                                           "TEXT"};
constexpr std::string_view kLatin1Type = "STRING";

// The image formats offered besides the image's own, when Qt can write them.
constexpr std::string_view kImageTypes[] = {"image/png", "image/jpeg", "image/bmp", "image/tiff",
                                            "image/webp"};

ClipPayload::Bytes toBytes(const QByteArray& array) {
    return {array.begin(), array.end()};
}

}  // namespace

std::shared_ptr<ClipPayload> ClipPayload::text(std::string_view utf8) {
    std::shared_ptr<ClipPayload> payload(new ClipPayload);
    ClipPayload::Bytes bytes(utf8.begin(), utf8.end());
    for (std::string_view type : kUtf8Types)
        payload->ready_.emplace(std::string(type), bytes);
    // Characters Latin-1 lacks become "?", as Qt writes them on X11.
    QByteArray latin1 =
        QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size())).toLatin1();
    payload->ready_.emplace(std::string(kLatin1Type), toBytes(latin1));
    payload->types_ = {std::string(kUtf8Types[0]), std::string(kUtf8Types[1]),
                       std::string(kUtf8Types[2]), std::string(kLatin1Type),
                       std::string(kUtf8Types[3])};
    return payload;
}

std::shared_ptr<ClipPayload> ClipPayload::image(std::span<const std::uint8_t> encoded,
                                                std::string_view type) {
    QByteArray raw(reinterpret_cast<const char*>(encoded.data()),
                   static_cast<qsizetype>(encoded.size()));
    QImage image = QImage::fromData(raw);
    if (image.isNull())
        return nullptr;
    std::shared_ptr<ClipPayload> payload(new ClipPayload);
    payload->image_ = std::move(image);
    // The bytes as they came are the image's own format, offered first so
    // that a reader asking for it gets them unchanged.
    payload->types_.emplace_back(type);
    payload->ready_.emplace(std::string(type), toBytes(raw));
    QList<QByteArray> writable = QImageWriter::supportedMimeTypes();
    for (std::string_view type : kImageTypes) {
        bool canWrite =
            writable.contains(QByteArray(type.data(), static_cast<qsizetype>(type.size())));
        if (canWrite && std::find(payload->types_.begin(), payload->types_.end(), type) ==
                            payload->types_.end())
            payload->types_.emplace_back(type);
    }
    return payload;
}

std::optional<ClipPayload::Bytes> ClipPayload::bytes(const std::string& type) {
    std::lock_guard lock(mutex_);
    if (auto ready = ready_.find(type); ready != ready_.end())
        return ready->second;
    if (image_.isNull() || std::find(types_.begin(), types_.end(), type) == types_.end())
        return std::nullopt;
    QByteArray out;
    QBuffer buffer(&out);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, QByteArray());
    writer.setFormat(
        QImageWriter::imageFormatsForMimeType(QByteArray::fromStdString(type)).value(0));
    if (!writer.write(image_))
        return std::nullopt;
    return ready_.emplace(type, toBytes(out)).first->second;
}

}  // namespace zettly
