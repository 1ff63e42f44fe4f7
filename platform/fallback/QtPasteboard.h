#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "platform/MainQueue.h"
#include "platform/Pasteboard.h"
#include "platform/linux/QtClipboardPasteboard.h"

namespace zettly {

// The clipboard as Qt's QClipboard gives it, for sessions without a backend
// of their own. Qt reads the clipboard on the main thread only, so each
// read is handed to it and the capture thread waits, for at most the read
// limit. Under Wayland Qt sees the clipboard only while one of our windows
// has the keyboard.
class QtPasteboard final : public QtClipboardPasteboard {
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds readLimit{5000};

    explicit QtPasteboard(MainQueue& mainQueue, QObject* parent = nullptr);

    ReadResult<std::vector<std::string>> types() override;
    ReadResult<std::string> string() override;
    ReadResult<Bytes> data(const std::string& type) override;
    void interruptReads() override;

private:
    // Runs `read` on the main thread and waits for its answer.
    template <typename T>
    ReadResult<T> onMainThread(std::function<ReadResult<T>()> read);

    MainQueue& mainQueue_;
    std::mutex mutex_;
    std::condition_variable answered_;
    bool interrupted_ = false;
};

}  // namespace zettly
