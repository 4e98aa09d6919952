#include "dsp/SilenceFinder.h"

#include <algorithm>
#include <cmath>

namespace wv {

SilenceFinder::SilenceFinder(double thresholdDb, uint32_t minFrames)
    : mMinFrames(std::max<uint32_t>(minFrames, 1)) {
    // |s| < 32768 x 10^(dB/20), in integers: the largest |s| strictly below.
    const double amplitude = 32768.0 * std::pow(10.0, std::min(thresholdDb, 0.0) / 20.0);
    const double below = std::ceil(amplitude) - 1.0;
    mLimit = static_cast<int32_t>(std::max(0.0, std::min(32767.0, below)));
}

void SilenceFinder::feed(const int16_t* samples, uint32_t frames, uint32_t channels) {
    if (channels == 0) return;
    const int32_t limit = mLimit;
    // |s| <= limit as one unsigned comparison: s + limit in [0, 2 x limit].
    const auto span = static_cast<uint32_t>(2 * limit);
    const auto quiet = [limit, span](int16_t s) {
        return static_cast<uint32_t>(static_cast<int32_t>(s) + limit) <= span;
    };
    uint32_t f = 0;
    while (f < frames) {
        if (!mInRun) {
            // Skip loud frames: the common case within speech or music.
            for (; f < frames; ++f) {
                const int16_t* frame = samples + static_cast<size_t>(f) * channels;
                bool all = true;
                for (uint32_t c = 0; c < channels && all; ++c) all = quiet(frame[c]);
                if (all) break;
            }
            if (f == frames) break;
            mInRun = true;
            mRunStart = mPosition + f;
        }
        // Walk the quiet run: every sample of the frames quiet.
        const int16_t* p = samples + static_cast<size_t>(f) * channels;
        const int16_t* end = samples + static_cast<size_t>(frames) * channels;
        while (p < end && quiet(*p)) ++p;
        const auto quietSamples =
            static_cast<size_t>(p - (samples + static_cast<size_t>(f) * channels));
        f += static_cast<uint32_t>(quietSamples / channels);
        if (f < frames) {
            close(mPosition + f);
            ++f;  // the frame holding the loud sample is loud
        }
    }
    mPosition += frames;
}

void SilenceFinder::close(uint64_t end) {
    if (mInRun && end - mRunStart >= mMinFrames) {
        mSilences.emplace_back(static_cast<uint32_t>(mRunStart), static_cast<uint32_t>(end));
    }
    mInRun = false;
}

void SilenceFinder::finish() { close(mPosition); }

}  // namespace wv
