#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

#include "platform/Pasteboard.h"
#include "platform/linux/QtClipboardPasteboard.h"
#include "platform/x11/XcbConnection.h"
#include "platform/x11/XcbSelectionReader.h"

namespace zettly {

// The CLIPBOARD selection. Writes and change notices go through QClipboard
// (Qt answers other applications' requests for what we put there, and sees
// each new owner through XFixes); reads go through an X connection of their
// own on the capture thread, so that an owner slow to answer holds up
// neither the history window nor the hot key. Even what this process owns
// is read that way: the main thread answers it while the capture thread
// waits.
class X11Pasteboard final : public QtClipboardPasteboard {
    Q_OBJECT
public:
    // A read ends when nothing arrived for this long, however long it runs
    // in all; an application encoding a large photo on request answers
    // within it.
    static constexpr std::chrono::milliseconds idleLimit{5000};
    static constexpr std::size_t maxReadBytes = 64 * 1024 * 1024;

    // `reads` is the capture thread's connection.
    explicit X11Pasteboard(std::unique_ptr<XcbConnection> reads, QObject* parent = nullptr);
    ~X11Pasteboard() override;

    ReadResult<std::vector<std::string>> types() override;
    ReadResult<std::string> string() override;
    ReadResult<Bytes> data(const std::string& type) override;
    void interruptReads() override;

    // Puts what Zettly wrote to the clipboard on the primary selection too,
    // which is what Shift+Insert pastes in xterm and rxvt. Nothing happens
    // when another application owns the clipboard.
    void copyToPrimary();

protected:
    void changed() override { wakeReader(); }

private:
    void wakeReader();
    // A read under way ends when the clipboard changes or the app quits.
    std::optional<ReadStatus> interruption();

    std::atomic<bool> interrupted_{false};
    int wakeFd_ = -1;
    std::unique_ptr<XcbConnection> readConnection_;
    XcbSelectionReader reader_;
    // Capture thread only: the change the current read is for, and the
    // targets of the last change read.
    std::int64_t reading_ = 0;
    std::int64_t typesCount_ = -1;
    ReadResult<std::vector<std::string>> types_;
};

}  // namespace zettly
