#pragma once

#include <optional>
#include <string>

namespace zettly {

// How two copies of one history entry (a text item or an image's metadata)
// are reconciled when a record arrives from the cloud: the times each take
// the later value, while pin, category and label travel as one block from
// whichever side changed them last. Pure: no state, clock or I/O.
struct ClipMerge {
    struct Side {
        double modified = 0;  // last change of the entry
        double created = 0;   // recency; a re-copy moves it forward
        double mm = 0;        // last change of pin, category or label; 0 = never
        bool pinned = false;
        std::optional<std::string> category;
        std::optional<std::string> label;
        bool operator==(const Side&) const = default;
    };

    struct Result {
        Side side;
        bool needsUpload = false;   // the cloud's copy differs from the merged one
        bool localChanged = false;  // this device's copy differs from the merged one
    };

    static Result merge(const Side& local, const Side& remote);
};

}  // namespace zettly
