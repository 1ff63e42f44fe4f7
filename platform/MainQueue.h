#pragma once

#include <functional>
#include <memory>

namespace zettly {

// A repeating timer; it stops when the handle goes away.
class Timer {
public:
    virtual ~Timer() = default;
};

// The main thread's event loop: the Qt loop in the application, a manual
// loop driven by a fake clock in tests (so debounces and delays are tested
// without sleeping). post and postAfter may be called from any thread.
class MainQueue {
public:
    virtual ~MainQueue() = default;
    virtual void post(std::function<void()> work) = 0;
    virtual void postAfter(double seconds, std::function<void()> work) = 0;
    // `tolerance` lets the system coalesce wake-ups (a laptop on battery).
    virtual std::unique_ptr<Timer> repeating(double interval, double tolerance,
                                             std::function<void()> tick) = 0;
};

// Runs work away from the main thread (image decoding).
class Executor {
public:
    virtual ~Executor() = default;
    virtual void run(std::function<void()> work) = 0;
};

}  // namespace zettly
