#pragma once

#include <atomic>
#include <string_view>

#include "platform/Clock.h"
#include "platform/Log.h"

namespace zettly::bench {

// A clock that moves a millisecond on every read, so consecutive copies get
// distinct, increasing times without sleeping.
class SteppingClock final : public Clock {
public:
    double now() const override { return t_ += 0.001; }

private:
    mutable std::atomic<double> t_{1'731'670'000.0};
};

// Benchmarks measure the stores, not their diagnostics.
class QuietLog final : public Log {
public:
    void line(std::string_view) override {}
};

}  // namespace zettly::bench
