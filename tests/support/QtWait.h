// Waiting for a condition while Qt's event loop runs: key presses, pastes
// and window changes arrive through it.
#pragma once

#include <QCoreApplication>
#include <chrono>
#include <thread>

namespace zettly::test {

template <typename Ready>
bool waitProcessingEvents(std::chrono::milliseconds time, Ready ready) {
    using Clock = std::chrono::steady_clock;
    for (auto end = Clock::now() + time; Clock::now() < end;) {
        if (ready())
            return true;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return ready();
}

// Lets Qt's events run for `time`, for what is only seen (a screenshot), not
// waited for.
inline void settle(std::chrono::milliseconds time) {
    for (auto end = std::chrono::steady_clock::now() + time;
         std::chrono::steady_clock::now() < end;)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
}

}  // namespace zettly::test
