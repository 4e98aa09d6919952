// Clocks of the engine. Scheduling (delayed commands, event pacing) uses a
// (seconds, microseconds) time taken from the monotonic clock, so that a
// change of the wall-clock time never stalls or rushes a worker.
#pragma once

#include <cstdint>

namespace wv {

struct TimeVal {
    int32_t sec = 0;
    int32_t usec = 0;  // 0 to 999,999
};

// Now, on the monotonic clock, with microsecond resolution.
TimeVal timeOfDay();

// a - b in microseconds.
inline int64_t diffUs(const TimeVal& a, const TimeVal& b) {
    return int64_t(a.sec - b.sec) * 1000000 + (a.usec - b.usec);
}

// t + ms, carrying microseconds above 999,999 into the seconds.
inline TimeVal addMs(TimeVal t, uint32_t ms) {
    t.sec += static_cast<int32_t>(ms / 1000);
    t.usec += static_cast<int32_t>(ms % 1000) * 1000;
    if (t.usec > 999999) {
        t.sec += 1;
        t.usec -= 1000000;
    }
    return t;
}

// Monotonic time in nanoseconds and microseconds.
int64_t monotonicNs();
inline int64_t monotonicUs() { return monotonicNs() / 1000; }

// Sleeps the calling thread.
void sleepUs(int64_t us);

// The monotonic clock as an object, for code whose pace a test sets by
// stepping a clock of its own instead of waiting for real time to pass.
class MonotonicClock {
public:
    virtual ~MonotonicClock() = default;
    // Microseconds since some fixed point; never goes back. Any thread.
    virtual int64_t nowUs() = 0;
    // The real one: monotonicUs().
    static MonotonicClock& system();
};

}  // namespace wv
