// Finds the quiet stretches of a run of 16-bit frames.
//
// A frame is quiet when every channel's sample s has |s| / 32768 below the
// threshold's amplitude 10^(dB / 20) (so at 0 dBFS every sample but -32768
// is quiet). A silence is a run of consecutive quiet frames at least
// `minFrames` long (at least one), reported as [start, end): start its
// first quiet frame, end the first frame after it (the run's last frame + 1,
// or the end of the input). This is the rule of ffmpeg's silencedetect with
// its channels taken together, so the intervals agree with it.
//
// Fed in any pieces, each with its own channel count, it gives what one pass
// over the whole run gives. Memory: 8 bytes per silence found.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace wv {

class SilenceFinder {
public:
    // thresholdDb: -120 to 0 (dBFS); minFrames: the shortest run reported.
    SilenceFinder(double thresholdDb, uint32_t minFrames);

    // The next `frames` frames of `channels` interleaved samples.
    void feed(const int16_t* samples, uint32_t frames, uint32_t channels);
    // Ends the input: a quiet run reaching it is closed there.
    void finish();

    uint64_t position() const { return mPosition; }
    // [start, end) frame pairs, in order; complete after finish().
    const std::vector<std::pair<uint32_t, uint32_t>>& silences() const { return mSilences; }
    // The largest |sample| still quiet (0 at -90 dBFS and below).
    int32_t quietLimit() const { return mLimit; }

private:
    void close(uint64_t end);

    int32_t mLimit;
    uint32_t mMinFrames;
    uint64_t mPosition = 0;
    uint64_t mRunStart = 0;
    bool mInRun = false;
    std::vector<std::pair<uint32_t, uint32_t>> mSilences;
};

}  // namespace wv
