#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "platform/MainQueue.h"

namespace zettly {

// One background thread that runs work in order. A burst of copied images is
// decoded one after another rather than all at once, which keeps memory flat.
// The destructor finishes the queued work and joins the thread.
class SerialExecutor final : public Executor {
public:
    SerialExecutor();
    ~SerialExecutor() override;
    void run(std::function<void()> work) override;

private:
    void loop();
    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> work_;
    bool stopping_ = false;
    std::thread thread_;
};

}  // namespace zettly
