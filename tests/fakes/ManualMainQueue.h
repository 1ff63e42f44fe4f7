#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/MainQueue.h"
#include "tests/fakes/FakeClock.h"

namespace zettly::test {

// A main queue that runs nothing until the test says so. Time is the fake
// clock's: runUntil(t) moves the clock through every due delayed item and
// timer tick in order, so debounces and cadences are tested without sleeping.
class ManualMainQueue final : public MainQueue {
public:
    explicit ManualMainQueue(FakeClock& clock) : clock_(clock) {}

    void post(std::function<void()> work) override { postAfter(0, std::move(work)); }
    void postAfter(double seconds, std::function<void()> work) override {
        std::lock_guard lock(mutex_);
        items_.push_back(Item{clock_.now() + seconds, order_++, std::move(work)});
    }
    std::unique_ptr<Timer> repeating(double interval, double, std::function<void()> tick) override {
        auto alive = std::make_shared<bool>(true);
        std::lock_guard lock(mutex_);
        timers_.push_back(TimerState{interval, clock_.now() + interval, std::move(tick), alive});
        return std::make_unique<Handle>(alive);
    }

    // Runs everything that is due now, including work it posts for now.
    void runPending() { runUntil(clock_.now()); }
    // Advances the clock to `t`, running due work and ticks in time order.
    void runUntil(double t) {
        for (;;) {
            std::function<void()> next;
            {
                std::lock_guard lock(mutex_);
                std::erase_if(timers_, [](const TimerState& s) { return !*s.alive; });
                double when = t + 1;
                auto item = std::min_element(
                    items_.begin(), items_.end(), [](const Item& a, const Item& b) {
                        return a.due < b.due || (a.due == b.due && a.order < b.order);
                    });
                if (item != items_.end())
                    when = item->due;
                auto timer = std::min_element(
                    timers_.begin(), timers_.end(),
                    [](const TimerState& a, const TimerState& b) { return a.next < b.next; });
                bool timerFirst = timer != timers_.end() && timer->next < when;
                if (timerFirst)
                    when = timer->next;
                if (when > t)
                    break;
                if (when > clock_.now())
                    clock_.set(when);
                if (timerFirst) {
                    timer->next += timer->interval;
                    next = timer->tick;
                } else {
                    next = std::move(item->work);
                    items_.erase(item);
                }
            }
            next();
        }
        if (t > clock_.now())
            clock_.set(t);
    }
    void advance(double seconds) { runUntil(clock_.now() + seconds); }

private:
    struct Item {
        double due;
        long order;
        std::function<void()> work;
    };
    struct TimerState {
        double interval;
        double next;
        std::function<void()> tick;
        std::shared_ptr<bool> alive;
    };
    struct Handle final : Timer {
        explicit Handle(std::shared_ptr<bool> alive) : alive(std::move(alive)) {}
        ~Handle() override { *alive = false; }
        std::shared_ptr<bool> alive;
    };

    FakeClock& clock_;
    std::mutex mutex_;
    std::vector<Item> items_;
    std::vector<TimerState> timers_;
    long order_ = 0;
};

// Runs background work when the test says so.
class ManualExecutor final : public Executor {
public:
    void run(std::function<void()> work) override { work_.push_back(std::move(work)); }
    void runAll() {
        while (!work_.empty()) {
            auto next = std::move(work_.front());
            work_.erase(work_.begin());
            next();
        }
    }
    std::size_t pendingCount() const { return work_.size(); }

private:
    std::vector<std::function<void()>> work_;
};

}  // namespace zettly::test
