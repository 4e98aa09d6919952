// LostAudioReport: turns the silent fillers a capture source puts in place
// of frames its input lost into event 67 (value: milliseconds lost).
//
// A device in trouble can lose a little in every block; one event per block
// would flood the client. Losses are therefore summed and reported at most
// once per kPeriodUs, the first at once. Values are whole milliseconds,
// rounded up over the running total, so their sum is the total loss rounded
// up (never more than 1 ms off however many events carried it) and any loss
// at all is reported. flush() reports the rest without waiting, for the end
// or a pause of the recording.
#pragma once

#include <cstdint>

namespace wv {

class LostAudioReport {
public:
    static constexpr int64_t kPeriodUs = 100000;

    explicit LostAudioReport(uint32_t sampleRate) : mSampleRate(sampleRate) {}

    // `frames` more were lost and filled with silence.
    void add(uint32_t frames) { mFrames += frames; }
    // The milliseconds to post now, or 0 when nothing is due.
    int32_t due(int64_t nowUs);
    int32_t flush();

private:
    int32_t take(int64_t nowUs);

    const uint32_t mSampleRate;
    uint64_t mFrames = 0;     // lost since the recording began
    int64_t mReportedMs = 0;  // sum of the values posted so far
    int64_t mLastPostUs = 0;
    bool mPosted = false;
};

}  // namespace wv
