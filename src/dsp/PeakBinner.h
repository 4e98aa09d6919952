// True extremes of a run of frames for drawing: the run of `frames` frames
// is split into `count` bins, bin i covering frames [i x frames / count,
// (i + 1) x frames / count) in 64-bit integer arithmetic, and each bin gets
// the smallest and the largest sample of its frames over all channels.
//
// Fed in any pieces (each with its own channel count, so the clips of a
// list may mix mono and stereo), it gives exactly what one pass over the
// whole run gives; memory does not grow with the run. A bin none of whose
// frames was fed keeps (0, 0).
#pragma once

#include <cstdint>

namespace wv {

class PeakBinner {
public:
    // Fills minMax (2 x count values: min then max of each bin) with zeros.
    // `frames` below 2^32, as the engine's frame numbers are.
    PeakBinner(int16_t* minMax, uint32_t count, uint64_t frames);

    // The next `frames` frames of `channels` interleaved samples; frames
    // past the end of the run are ignored.
    void feed(const int16_t* samples, uint64_t frames, uint32_t channels);
    // Moves on to frame `position` without data: the frames passed over
    // (audio that could not be read) count in no bin's extremes.
    void skipTo(uint64_t position);
    uint64_t position() const { return mPosition; }

private:
    // Makes mBin the bin of mPosition (which is below mFrames).
    void findBin();

    int16_t* mMinMax;
    uint64_t mCount;
    uint64_t mFrames;
    uint64_t mPosition = 0;
    uint64_t mBin = 0;
    uint64_t mBinEnd = 0;  // first frame after mBin; 0 before the first bin is found
    bool mBinHasData = false;
};

}  // namespace wv
