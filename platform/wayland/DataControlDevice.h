#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/UniqueFd.h"

namespace zettly {

class ClipPayload;
class PipeWriter;
class WaylandConnection;

// The seat's clipboard through a data-control protocol: ext-data-control-v1
// where the compositor offers it, else wlr-data-control-unstable-v1. Both
// are served by one implementation (DataControlDevice.cpp). Made before the
// connection starts; used and destroyed on its event thread afterwards.
//
// Zettly's own writes come back from the compositor as a new selection
// like anybody's. They are recognised by the rule KDE's clipboard uses:
// while a source of ours is alive (not yet cancelled), the selection is
// ours, and its offer is not another application's copy. The compositor
// cancels our source before it announces the next owner's selection.
class DataControlDevice {
public:
    // What the device tells the clipboard, on the event thread.
    class Events {
    public:
        virtual ~Events() = default;
        // Another application copied (its formats) or the clipboard was
        // emptied (none). Returns the number of this change.
        virtual std::int64_t selectionChanged(std::optional<std::vector<std::string>> types) = 0;
        // The compositor withdrew the device; nothing works any more.
        virtual void deviceFinished() = 0;
    };

    // A read of one change's contents in one format, on its way to the
    // owner. `sent` is set once the owner was asked; when the request is
    // dropped instead (the change is gone), `fd` is closed unanswered.
    struct Receive {
        std::int64_t change = 0;
        std::string type;
        UniqueFd fd;
        std::shared_ptr<std::atomic<bool>> sent;
    };

    // Binds the manager and makes the device for the connection's seat;
    // none when the compositor offers neither protocol or has no seat.
    // Before the connection starts.
    static std::unique_ptr<DataControlDevice> create(WaylandConnection& connection, Events& events,
                                                     PipeWriter& writer);
    virtual ~DataControlDevice() = default;

    // The protocol's name, for log lines.
    virtual std::string_view protocol() const = 0;

    // ---- event thread ------------------------------------------------------
    // Makes `payload` the selection, or empties it when null; `change` is
    // the number the clipboard gave this write.
    virtual void setSelection(std::int64_t change, std::shared_ptr<ClipPayload> payload) = 0;
    // Asks the owner of `request.change` for its contents. A write of ours
    // whose selection event has not come back yet is asked once it has.
    virtual void receive(Receive request) = 0;
};

}  // namespace zettly
