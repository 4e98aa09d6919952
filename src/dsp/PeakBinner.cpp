#include "dsp/PeakBinner.h"

#include <algorithm>

#include "base/Vectorise.h"

namespace wv {

namespace {
struct Extremes {
    int16_t lowest;
    int16_t highest;
};
// Plain 16-bit minimum and maximum so that the compiler can use vector
// instructions: an hour of stereo is 318 million samples.
WV_VECTORISE Extremes extremesOf(const int16_t* samples, uint64_t n) {
    int16_t lowest = samples[0];
    int16_t highest = samples[0];
    for (uint64_t i = 1; i < n; ++i) {
        lowest = samples[i] < lowest ? samples[i] : lowest;
        highest = samples[i] > highest ? samples[i] : highest;
    }
    return {lowest, highest};
}
}  // namespace

PeakBinner::PeakBinner(int16_t* minMax, uint32_t count, uint64_t frames)
    : mMinMax(minMax), mCount(count), mFrames(frames) {
    std::fill(minMax, minMax + 2 * uint64_t(count), int16_t(0));
}

void PeakBinner::findBin() {
    if (mPosition < mBinEnd) return;
    // The bin i with i x n / count <= p < (i + 1) x n / count is
    // ((p + 1) x count - 1) / n: empty bins (count > n) are stepped over.
    mBin = ((mPosition + 1) * mCount - 1) / mFrames;
    mBinEnd = (mBin + 1) * mFrames / mCount;
    mBinHasData = false;
}

void PeakBinner::feed(const int16_t* samples, uint64_t frames, uint32_t channels) {
    if (channels == 0 || mCount == 0) return;
    while (frames > 0 && mPosition < mFrames) {
        findBin();
        const uint64_t take = std::min(frames, mBinEnd - mPosition);
        const Extremes found = extremesOf(samples, take * channels);
        int16_t* pair = mMinMax + 2 * mBin;
        if (!mBinHasData) {
            pair[0] = found.lowest;
            pair[1] = found.highest;
            mBinHasData = true;
        } else {
            pair[0] = std::min(pair[0], found.lowest);
            pair[1] = std::max(pair[1], found.highest);
        }
        samples += take * channels;
        frames -= take;
        mPosition += take;
    }
}

void PeakBinner::skipTo(uint64_t position) {
    if (position > mPosition) mPosition = std::min(position, mFrames);
}

}  // namespace wv
