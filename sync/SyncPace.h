#pragma once

#include <atomic>
#include <limits>

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

// The cadence timer's rule. It ticks every 5 s; a tick starts a sync when 4 s
// have passed since the last one while the window is open or a local change
// is recent, else when 29 s have: every tick, or every sixth.
class SyncCadence {
public:
    static constexpr double tickInterval = 5;
    static constexpr double tickTolerance = 1;
    static constexpr double fastInterval = 4;
    static constexpr double slowInterval = 29;

    // True when this tick should sync; it then counts as the last poll.
    bool due(const SyncPace& pace, double now) {
        double interval = pace.menuOpen || now < pace.fastUntil ? fastInterval : slowInterval;
        if (now - lastPoll_ < interval)
            return false;
        lastPoll_ = now;
        return true;
    }

private:
    double lastPoll_ = -std::numeric_limits<double>::infinity();
};

}  // namespace zettly
