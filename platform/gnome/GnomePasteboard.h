#pragma once

#include <QByteArray>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"
#include "platform/linux/PipeRead.h"
#include "platform/linux/UniqueFd.h"

namespace zettly {

class Log;
class ShellBridge;

// The clipboard of a GNOME Shell session through Zettly's Shell extension:
// the extension signals every new owner with its formats, and writes the
// bytes of one format into a pipe of ours on request, so a read waits on
// the capture thread under the same limits as on other desktops (a slow
// owner, a huge image, a change while reading).
//
// The count is the extension's own serial of owner changes. A write takes
// the serial its change produced before returning, so the monitor
// recognises its own write, and the signal for it changes nothing more.
class GnomePasteboard final : public Pasteboard {
public:
    // Reads the clipboard the session starts with, which is not a change.
    GnomePasteboard(ShellBridge& bridge, Log& log, TransferLimits limits = {});
    ~GnomePasteboard() override;

    std::int64_t changeCount() override { return count_.load(); }
    bool signalsChanges() const override { return true; }
    void setChangeHandler(std::function<void()> handler) override;

    ReadResult<std::vector<std::string>> types() override;
    ReadResult<std::string> string() override;
    ReadResult<Bytes> data(const std::string& type) override;
    void interruptReads() override;

    void clear() override;
    void writeString(std::string_view text) override;
    bool writeImage(std::span<const std::uint8_t> data, std::string_view type) override;

    // The extension's signal, also called by tests: `serial` is the owner
    // change, `types` what the new owner offers.
    void ownerChanged(std::uint64_t serial, std::vector<std::string> types);
    // The extension went away or came back: while gone nothing can be read,
    // and on its return the clipboard is read afresh (a new serial count).
    void bridgeGone();
    void bridgeBack();

private:
    ReadResult<Bytes> read(const std::string& type, std::int64_t change);
    bool write(const std::string& type, const QByteArray& data);
    void wakeReaders();

    ShellBridge& bridge_;
    Log& log_;
    TransferLimits limits_;
    UniqueFd wakeFd_;
    std::function<void()> handler_;
    std::atomic<std::int64_t> count_{0};
    std::atomic<bool> interrupted_{false};
    std::atomic<bool> gone_{false};
    // The extension's serial for count_ (they part when it restarts its
    // count) and its formats; written on the main thread, read on the
    // capture thread.
    std::mutex mutex_;
    std::uint64_t serial_ = 0;
    std::vector<std::string> offered_;
    // Capture thread only: the change whose formats were last read.
    std::int64_t typesChange_ = -1;
};

}  // namespace zettly
