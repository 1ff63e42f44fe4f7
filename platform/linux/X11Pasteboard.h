#pragma once

#include <QObject>
#include <chrono>
#include <memory>

#include "platform/Pasteboard.h"
#include "platform/linux/XcbConnection.h"
#include "platform/linux/XcbSelectionReader.h"

namespace zettly {

// The CLIPBOARD selection. Writes and change notices go through QClipboard
// (Qt answers other applications' requests for what we put there); reads
// from another owner go through our own X connection with a time limit, so
// a hung owner cannot freeze the application the way a blocking
// QClipboard::mimeData() would. What this process owns is read from Qt.
class X11Pasteboard final : public QObject, public Pasteboard {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds readLimit{1200};
    static constexpr std::size_t maxReadBytes = 16 * 1024 * 1024 + 1;

    explicit X11Pasteboard(XcbConnection& connection, QObject* parent = nullptr);

    std::int64_t changeCount() override { return count_; }
    std::vector<std::string> types() override;
    std::optional<std::string> string() override;
    std::optional<Bytes> data(const std::string& type) override;
    void clear() override;
    void writeString(std::string_view text) override;
    bool writeImage(std::span<const std::uint8_t> data) override;

private:
    bool ownedHere() const;
    std::int64_t count_ = 0;
    // The targets of the current change, read once however often asked.
    std::int64_t typesCount_ = -1;
    std::vector<std::string> types_;
    XcbSelectionReader reader_;
};

}  // namespace zettly
