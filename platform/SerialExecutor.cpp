#include "platform/SerialExecutor.h"

namespace zettly {

SerialExecutor::SerialExecutor() : thread_([this] { loop(); }) {}

SerialExecutor::~SerialExecutor() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void SerialExecutor::run(std::function<void()> work) {
    {
        std::lock_guard lock(mutex_);
        work_.push_back(std::move(work));
    }
    wake_.notify_one();
}

void SerialExecutor::loop() {
    for (;;) {
        std::function<void()> next;
        {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !work_.empty(); });
            if (work_.empty())
                return;  // stopping, and nothing left
            next = std::move(work_.front());
            work_.pop_front();
        }
        next();
    }
}

}  // namespace zettly
