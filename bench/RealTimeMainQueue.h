#pragma once

// A main queue on the bench's own thread in real time, standing in for the
// app's Qt loop: debounces wait as long as they would in the app, and the
// cadence timer ticks every five real seconds.
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/MainQueue.h"

namespace zettly::bench {

class RealTimeMainQueue final : public MainQueue {
public:
    using Clock = std::chrono::steady_clock;

    void post(std::function<void()> work) override { postAfter(0, std::move(work)); }
    void postAfter(double seconds, std::function<void()> work) override {
        std::lock_guard lock(mutex_);
        items_.push_back({Clock::now() + toDuration(seconds), 0, std::move(work), nullptr});
        wake_.notify_all();
    }
    std::unique_ptr<Timer> repeating(double interval, double, std::function<void()> tick) override {
        auto alive = std::make_shared<bool>(true);
        std::lock_guard lock(mutex_);
        items_.push_back({Clock::now() + toDuration(interval), interval, std::move(tick), alive});
        return std::make_unique<Handle>(alive);
    }

    // Runs due work on the calling thread until `done` holds (checked after
    // each item and every `poll`) or `limit` has passed; true when it held.
    template <typename Done>
    bool runUntil(Done done, Clock::duration limit,
                  Clock::duration poll = std::chrono::milliseconds(20)) {
        const auto end = Clock::now() + limit;
        while (!done()) {
            if (Clock::now() >= end)
                return false;
            std::function<void()> next;
            {
                std::unique_lock lock(mutex_);
                std::erase_if(items_, [](const Item& i) { return i.alive && !*i.alive; });
                auto first = items_.end();
                for (auto it = items_.begin(); it != items_.end(); ++it)
                    if (first == items_.end() || it->due < first->due)
                        first = it;
                const auto until = std::min(Clock::now() + poll, end);
                if (first == items_.end() || first->due > Clock::now()) {
                    wake_.wait_until(lock,
                                     first == items_.end() ? until : std::min(until, first->due));
                    continue;
                }
                next = first->work;
                if (first->interval > 0)
                    first->due += toDuration(first->interval);
                else
                    items_.erase(first);
            }
            next();
        }
        return true;
    }

private:
    struct Item {
        Clock::time_point due;
        double interval;  // 0: once
        std::function<void()> work;
        std::shared_ptr<bool> alive;
    };
    struct Handle final : Timer {
        explicit Handle(std::shared_ptr<bool> alive) : alive(std::move(alive)) {}
        ~Handle() override { *alive = false; }
        std::shared_ptr<bool> alive;
    };
    static Clock::duration toDuration(double seconds) {
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    }

    std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<Item> items_;
};

}  // namespace zettly::bench
