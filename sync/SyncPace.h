#pragma once

#include <atomic>

namespace zettly {

// How often sync polls: quickly while the history window is open and for
// two minutes after a local change, slowly otherwise. Written and read on the
// main thread; atomic so a sync thread may read them too.
struct SyncPace {
    std::atomic<bool> menuOpen{false};
    std::atomic<double> fastUntil{0};  // seconds since 1970; the distant past at first

    static constexpr double fastWindow = 120;

    static SyncPace& shared() {
        static SyncPace pace;
        return pace;
    }
};

}  // namespace zettly
