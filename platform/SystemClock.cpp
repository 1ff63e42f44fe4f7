#include <chrono>

#include "platform/Clock.h"

namespace zettly {

double SystemClock::now() const {
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

const SystemClock& SystemClock::instance() {
    static const SystemClock clock;
    return clock;
}

}  // namespace zettly
