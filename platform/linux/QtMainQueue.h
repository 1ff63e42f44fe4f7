#pragma once

#include "platform/MainQueue.h"

namespace zettly {

// The main queue on the Qt event loop of the application's main thread.
class QtMainQueue final : public MainQueue {
public:
    void post(std::function<void()> work) override;
    void postAfter(double seconds, std::function<void()> work) override;
    std::unique_ptr<Timer> repeating(double interval, double tolerance,
                                     std::function<void()> tick) override;
};

}  // namespace zettly
