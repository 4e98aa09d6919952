// Spaces a stream of periodic events (the recorder's waveform levels) in
// delivery time: points produced in bursts are handed out periodMs apart.
// When the schedule runs ahead of real time it slows its advance by 1/40 of
// its lead; when it falls behind by more than one period, or runs ahead by
// more than a second, it restarts at the current time.
#pragma once

#include <cstdint>

#include "base/Clock.h"

namespace wv {

class PacingTimer {
public:
    explicit PacingTimer(int32_t periodMs);
    PacingTimer(int32_t periodMs, TimeVal start);

    // Schedules the next event and returns its delay from now in ms (never
    // negative).
    int32_t nextDelayMs();
    int32_t nextDelayMs(TimeVal now);

    int32_t periodMs = 20;
    TimeVal next;  // time assigned to the last event scheduled
};

}  // namespace wv
