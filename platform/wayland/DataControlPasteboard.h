#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/Pasteboard.h"
#include "platform/wayland/DataControlDevice.h"
#include "platform/wayland/PipeTransfer.h"

namespace zettly {

class ClipPayload;
class Log;
class MainQueue;
class WaylandConnection;

// The clipboard of a Wayland session through a data-control protocol
// (DataControlDevice): the compositor announces every new selection
// whichever window has the keyboard, and hands us the owner's bytes through
// a pipe. The Wayland objects live on the connection's event thread; reads
// wait on their pipe on the capture thread, so neither a slow owner nor a
// large image holds up the event thread or the main thread. Even what
// Zettly owns itself is read through the compositor: the event thread
// answers it while the capture thread waits.
//
// Counts work out as on X11: a write raises the count before it returns
// (the monitor takes that count as its own), and its selection coming back
// from the compositor raises it no further.
class DataControlPasteboard final : public Pasteboard {
public:
    // Binds the protocol and reads the selection the session starts with
    // (which is not a change). None when the compositor offers no
    // data-control protocol, so the platform can fall back. Before the
    // connection starts; the connection must outlive the clipboard.
    static std::unique_ptr<DataControlPasteboard> create(WaylandConnection& connection,
                                                         MainQueue& mainQueue, Log& log,
                                                         TransferLimits limits = {});
    ~DataControlPasteboard() override;
    DataControlPasteboard(const DataControlPasteboard&) = delete;
    DataControlPasteboard& operator=(const DataControlPasteboard&) = delete;

    // The protocol in use, for log lines and tests.
    std::string_view protocol() const { return device_->protocol(); }

    std::int64_t changeCount() override;
    bool signalsChanges() const override { return true; }
    void setChangeHandler(std::function<void()> handler) override;

    ReadResult<std::vector<std::string>> types() override;
    ReadResult<std::string> string() override;
    ReadResult<Bytes> data(const std::string& type) override;
    void interruptReads() override;

    void clear() override;
    void writeString(std::string_view text) override;
    bool writeImage(std::span<const std::uint8_t> data, std::string_view type) override;

private:
    // What the event thread shares with the clipboard (DataControlPasteboard.cpp).
    // It lives until the last task that uses it has run, which may be after
    // the clipboard is gone.
    struct Shared;

    DataControlPasteboard(WaylandConnection& connection, std::shared_ptr<Shared> shared);
    void write(std::shared_ptr<ClipPayload> payload);
    ReadResult<Bytes> read(const std::string& type, std::int64_t change);

    WaylandConnection& connection_;
    std::shared_ptr<Shared> shared_;
    std::unique_ptr<DataControlDevice> device_;
    // Capture thread only: the change whose formats were last read.
    std::int64_t typesChange_ = -1;
};

}  // namespace zettly
