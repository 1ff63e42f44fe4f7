#include "platform/linux/X11Pasteboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QImage>
#include <QMimeData>
#include <algorithm>

namespace zettly {

namespace {

// Text targets in order of preference. Latin-1 "STRING" is the last resort
// of old X clients; everything else is UTF-8.
constexpr std::string_view kTextTargets[] = {"UTF8_STRING", "text/plain;charset=utf-8",
                                             "text/plain", "TEXT", "STRING"};

std::string latin1ToUtf8(const std::vector<std::uint8_t>& bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (std::uint8_t b : bytes) {
        if (b < 0x80) {
            out.push_back(static_cast<char>(b));
        } else {
            out.push_back(static_cast<char>(0xc0 | (b >> 6)));
            out.push_back(static_cast<char>(0x80 | (b & 0x3f)));
        }
    }
    return out;
}

QClipboard* clipboard() {
    return QGuiApplication::clipboard();
}

}  // namespace

X11Pasteboard::X11Pasteboard(XcbConnection& connection, QObject* parent)
    : QObject(parent), reader_(connection) {
    // Qt reports other applications' ownership changes (XFixes) and our own
    // writes; either is a new clipboard state.
    connect(clipboard(), &QClipboard::dataChanged, this, [this] { ++count_; });
}

bool X11Pasteboard::ownedHere() const {
    return clipboard()->ownsClipboard();
}

std::vector<std::string> X11Pasteboard::types() {
    if (typesCount_ == count_)
        return types_;
    types_.clear();
    if (ownedHere()) {
        if (const QMimeData* mime = clipboard()->mimeData())
            for (const QString& format : mime->formats())
                types_.push_back(format.toStdString());
    } else {
        types_ = reader_.targets(readLimit);
    }
    typesCount_ = count_;
    return types_;
}

std::optional<std::string> X11Pasteboard::string() {
    if (ownedHere()) {
        const QMimeData* mime = clipboard()->mimeData();
        if (!mime || !mime->hasText())
            return std::nullopt;
        return mime->text().toStdString();
    }
    std::vector<std::string> offered = types();
    for (std::string_view target : kTextTargets) {
        if (std::find(offered.begin(), offered.end(), target) == offered.end())
            continue;
        auto bytes = reader_.read(target, readLimit, maxReadBytes);
        if (!bytes)
            return std::nullopt;  // the owner did not answer: give up on this copy
        if (target == "STRING")
            return latin1ToUtf8(*bytes);
        return std::string(bytes->begin(), bytes->end());
    }
    return std::nullopt;
}

std::optional<Pasteboard::Bytes> X11Pasteboard::data(const std::string& type) {
    if (ownedHere()) {
        const QMimeData* mime = clipboard()->mimeData();
        QString format = QString::fromStdString(type);
        if (!mime || !mime->hasFormat(format))
            return std::nullopt;
        QByteArray bytes = mime->data(format);
        return Bytes(bytes.begin(), bytes.end());
    }
    return reader_.read(type, readLimit, maxReadBytes);
}

void X11Pasteboard::clear() {
    clipboard()->clear(QClipboard::Clipboard);
}

void X11Pasteboard::writeString(std::string_view text) {
    clipboard()->setText(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())),
                         QClipboard::Clipboard);
}

bool X11Pasteboard::writeImage(std::span<const std::uint8_t> data) {
    QImage image = QImage::fromData(data.data(), static_cast<int>(data.size()));
    if (image.isNull())
        return false;
    // Qt then offers it as image/png and the other formats it can encode.
    clipboard()->setImage(image, QClipboard::Clipboard);
    return true;
}

}  // namespace zettly
