// Milliseconds and frames, as every range of the engine counts them: the
// public calls take and give whole milliseconds, the audio is frames.
#pragma once

#include <cstdint>

namespace wv {

// The frame at `ms` of audio at `rate` Hz: ms x rate / 1000, rounded down.
inline int64_t frameAtMs(uint32_t ms, int64_t rate) { return int64_t(ms) * rate / 1000; }

// The frame a range ending at `ms` ends at: frameAtMs, except that an end
// in the last, partial millisecond of audio `length` frames long, or past
// it, is its last frame, so that no time in whole milliseconds leaves
// frames out. `length` < 0: not known (frameAtMs then).
inline int64_t endFrameAtMs(uint32_t ms, int64_t rate, int64_t length) {
    if (length >= 0 && (int64_t(ms) + 1) * rate > length * 1000) return length;
    return frameAtMs(ms, rate);
}

}  // namespace wv
