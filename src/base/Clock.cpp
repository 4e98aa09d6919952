#include "base/Clock.h"

#include <time.h>

namespace wv {

TimeVal timeOfDay() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    TimeVal t;
    t.sec = static_cast<int32_t>(now.tv_sec);
    t.usec = static_cast<int32_t>(now.tv_nsec / 1000);
    return t;
}

int64_t monotonicNs() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

MonotonicClock& MonotonicClock::system() {
    struct System : MonotonicClock {
        int64_t nowUs() override { return monotonicUs(); }
    };
    // Never destroyed: a device thread may read it while the process exits.
    static System* const clock = new System();
    return *clock;
}

void sleepUs(int64_t us) {
    if (us <= 0) return;
    struct timespec wait;
    wait.tv_sec = us / 1000000;
    wait.tv_nsec = (us % 1000000) * 1000;
    while (nanosleep(&wait, &wait) != 0) {
    }
}

}  // namespace wv
