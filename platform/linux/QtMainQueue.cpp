#include "platform/linux/QtMainQueue.h"

#include <QCoreApplication>
#include <QTimer>
#include <cmath>

namespace zettly {

namespace {

int milliseconds(double seconds) {
    return static_cast<int>(std::lround(seconds * 1000.0));
}

class QtTimer final : public Timer {
public:
    QtTimer(double interval, double tolerance, std::function<void()> tick) {
        // A coarse timer may fire up to 5% late, letting the system batch
        // wake-ups; a precise one is used when the tolerance is tighter.
        timer_.setTimerType(tolerance >= interval * 0.05 ? Qt::CoarseTimer : Qt::PreciseTimer);
        QObject::connect(&timer_, &QTimer::timeout, std::move(tick));
        timer_.start(milliseconds(interval));
    }

private:
    QTimer timer_;
};

}  // namespace

void QtMainQueue::post(std::function<void()> work) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(work), Qt::QueuedConnection);
}

void QtMainQueue::postAfter(double seconds, std::function<void()> work) {
    // Hop to the main thread first: a single-shot timer belongs to the
    // thread that starts it.
    post([ms = milliseconds(seconds), work = std::move(work)] {
        QTimer::singleShot(ms, QCoreApplication::instance(), work);
    });
}

std::unique_ptr<Timer> QtMainQueue::repeating(double interval, double tolerance,
                                              std::function<void()> tick) {
    return std::make_unique<QtTimer>(interval, tolerance, std::move(tick));
}

}  // namespace zettly
