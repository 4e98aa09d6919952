#include "threads/PacingTimer.h"

#include <cstdint>

namespace wv {

namespace {
// Milliseconds by which `now` is past `next`, truncated toward zero; a gap
// too large for 32 bits saturates (it restarts the schedule either way).
int32_t lateMs(const TimeVal& now, const TimeVal& next) {
    const int64_t ms = diffUs(now, next) / 1000;
    if (ms > INT32_MAX) return INT32_MAX;
    if (ms < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(ms);
}
}  // namespace

PacingTimer::PacingTimer(int32_t period) : PacingTimer(period, timeOfDay()) {}

PacingTimer::PacingTimer(int32_t period, TimeVal start) : periodMs(period), next(start) {}

int32_t PacingTimer::nextDelayMs() { return nextDelayMs(timeOfDay()); }

int32_t PacingTimer::nextDelayMs(TimeVal now) {
    const int32_t late = lateMs(now, next);
    int32_t step;
    if (late > periodMs || late < -1000) {
        next = now;
        return 0;
    }
    if (late >= 0) {
        step = periodMs;
    } else {
        step = periodMs - late / -40;
        if (step < 0) step = 0;
    }
    next = addMs(next, static_cast<uint32_t>(step));
    return lateMs(next, now);
}

}  // namespace wv
