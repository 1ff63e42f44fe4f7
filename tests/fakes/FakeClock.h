#pragma once

#include <atomic>

#include "platform/Clock.h"

namespace zettly::test {

// A clock that stands still until the test moves it.
class FakeClock final : public Clock {
public:
    explicit FakeClock(double start = 1'731'670'000.0) : now_(start) {}
    double now() const override { return now_.load(); }
    void set(double t) { now_.store(t); }
    void advance(double seconds) { now_.store(now_.load() + seconds); }

private:
    std::atomic<double> now_;
};

}  // namespace zettly::test
