#pragma once

namespace zettly {

// Wall-clock time as the databases, sync records and preferences store it:
// seconds since 1970-01-01 00:00 UTC. Passed in rather than read globally so
// that tests can move time forward (expiry, tombstone pruning, debounce).
class Clock {
public:
    virtual ~Clock() = default;
    virtual double now() const = 0;
};

class SystemClock final : public Clock {
public:
    double now() const override;

    // The process-wide instance used by the shared stores.
    static const SystemClock& instance();
};

}  // namespace zettly
