#include "dsp/TruePeakLimiter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace wv {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr uint32_t kTaps = 12;              // per phase of the 4x interpolator
constexpr uint32_t kPrototypeTaps = 49;     // kTaps x 4 + 1, centred on tap 24
constexpr uint32_t kInterpolatorDelay = 6;  // frames from input to its peak estimate
constexpr uint32_t kReach = 6;              // frames each side a peak estimate depends on

// The three fractional phases (1/4, 2/4, 3/4 of a frame) of the prototype,
// in the order of a window whose newest sample is last. Phase 0 is the
// sample itself: every other tap of its polyphase branch falls on a zero of
// the sinc.
struct Phases {
    float coeff[3][kTaps];
    Phases() {
        for (uint32_t phase = 1; phase < 4; ++phase) {
            for (uint32_t i = 0; i < kTaps; ++i) {
                const uint32_t j = phase + 4 * i;
                const double m = double(j) - double(kPrototypeTaps - 1) / 2.0;
                const double x = m * kPi / 4.0;
                const double sinc = std::fabs(x) < 1e-12 ? 1.0 : std::sin(x) / x;
                const double hann = 0.5 * (1.0 - std::cos(2.0 * kPi * j / (kPrototypeTaps - 1)));
                // Window position k holds the input i frames back: k = 11 - i.
                coeff[phase - 1][kTaps - 1 - i] = static_cast<float>(sinc * hann);
            }
        }
    }
};

const Phases& phases() {
    static const Phases kPhases;
    return kPhases;
}

// Largest absolute value of a sample and the three points after it, from a
// window of the last kTaps inputs (oldest first); the sample is kTaps-1-6
// frames back from the newest.
inline float windowPeak(const float* window, const Phases& p) {
    float a = 0.0f, b = 0.0f, c = 0.0f;
    for (uint32_t k = 0; k < kTaps; ++k) {
        a += p.coeff[0][k] * window[k];
        b += p.coeff[1][k] * window[k];
        c += p.coeff[2][k] * window[k];
    }
    const float sample = window[kTaps - 1 - kInterpolatorDelay];
    return std::max(std::max(std::fabs(sample), std::fabs(a)),
                    std::max(std::fabs(b), std::fabs(c)));
}

}  // namespace

TruePeakLimiter::TruePeakLimiter(uint32_t rate, uint32_t channels,
                                 const LimiterSettings& settings) {
    rate = std::max<uint32_t>(rate, 8000);
    mChannels = std::min(std::max<uint32_t>(channels, 1), kMaxChannels);
    const double ceiling = std::min(settings.ceilingDbtp, 0.0);
    mCeiling = static_cast<float>(std::pow(10.0, ceiling / 20.0));
    const double lookaheadMs = std::min(std::max(settings.lookaheadMs, 0.5), 20.0);
    const double releaseMs = std::min(std::max(settings.releaseMs, 10.0), 2000.0);
    mLookahead =
        std::max<uint32_t>(1, static_cast<uint32_t>(std::lround(lookaheadMs * rate / 1000.0)));
    mHoldLength = mLookahead + 2 * kReach;
    // The hold is centred on the peak: kReach frames of it lie after the
    // frame whose gain is being averaged, and the average lags by
    // mLookahead - 1 frames.
    mLatency = kInterpolatorDelay + mLookahead - 1 + kReach;
    mReleaseCoeff = static_cast<float>(std::exp(-1000.0 / (releaseMs * rate)));

    mHistory.assign(size_t(mChannels) * 2 * kTaps, 0.0f);
    mMinIndex.assign(mHoldLength, 0);
    mMinGain.assign(mHoldLength, 1.0f);
    mAverageWindow.assign(mLookahead, 1.0f);
    mDelay.assign(size_t(mLatency + 1) * mChannels, 0.0f);
    reset();
}

void TruePeakLimiter::reset() {
    std::fill(mHistory.begin(), mHistory.end(), 0.0f);
    mHistoryPos = 0;
    mMinFront = 0;
    mMinCount = 0;
    mReleased = 1.0f;
    std::fill(mAverageWindow.begin(), mAverageWindow.end(), 1.0f);
    mAveragePos = 0;
    mAverageSum = double(mLookahead);
    std::fill(mDelay.begin(), mDelay.end(), 0.0f);
    mDelayPos = 0;
    mFramesIn = 0;
    mFramesOut = 0;
}

float TruePeakLimiter::step(const float* frame) {
    const Phases& p = phases();
    // Detector: the peak of the frame kInterpolatorDelay back.
    float peak = 0.0f;
    for (uint32_t c = 0; c < mChannels; ++c) {
        float* history = &mHistory[size_t(c) * 2 * kTaps];
        history[mHistoryPos] = frame[c];
        history[mHistoryPos + kTaps] = frame[c];
        peak = std::max(peak, windowPeak(history + mHistoryPos + 1, p));
    }
    mHistoryPos = mHistoryPos + 1 == kTaps ? 0 : mHistoryPos + 1;
    const float needed = peak > mCeiling ? mCeiling / peak : 1.0f;

    // Hold: the smallest needed gain of the last mHoldLength frames.
    const uint64_t index = mFramesIn;
    while (mMinCount > 0) {
        const uint32_t back = (mMinFront + mMinCount - 1) % mHoldLength;
        if (mMinGain[back] < needed) break;
        --mMinCount;
    }
    const uint32_t slot = (mMinFront + mMinCount) % mHoldLength;
    mMinIndex[slot] = index;
    mMinGain[slot] = needed;
    ++mMinCount;
    while (mMinIndex[mMinFront] + mHoldLength <= index) {
        mMinFront = mMinFront + 1 == mHoldLength ? 0 : mMinFront + 1;
        --mMinCount;
    }
    const float held = mMinGain[mMinFront];

    // Release towards 1, never above what the hold demands.
    mReleased = std::min(held, 1.0f - (1.0f - mReleased) * mReleaseCoeff);

    // Attack: the moving average turns each drop into a ramp.
    mAverageSum += double(mReleased) - double(mAverageWindow[mAveragePos]);
    mAverageWindow[mAveragePos] = mReleased;
    mAveragePos = mAveragePos + 1 == mLookahead ? 0 : mAveragePos + 1;
    // Exactly 1 when nothing was limited for a while, so that such audio
    // passes unchanged despite the sum's rounding.
    float gain = static_cast<float>(mAverageSum / double(mLookahead));
    if (gain > 1.0f || mAverageSum >= double(mLookahead) - 1e-9) gain = 1.0f;
    ++mFramesIn;
    return gain;
}

size_t TruePeakLimiter::process(const float* in, size_t frames, float* out) {
    size_t written = 0;
    const uint32_t slots = mLatency + 1;
    for (size_t n = 0; n < frames; ++n) {
        const float* frame = in + n * mChannels;
        float* line = &mDelay[size_t(mDelayPos) * mChannels];
        // Read in before out is written: the two may share a buffer, and
        // the output runs behind the input.
        std::memcpy(line, frame, sizeof(float) * mChannels);
        const float gain = step(frame);
        mDelayPos = mDelayPos + 1 == slots ? 0 : mDelayPos + 1;
        if (mFramesIn <= mLatency) continue;
        // The oldest frame of the line is the one mLatency frames back.
        const float* leaving = &mDelay[size_t(mDelayPos) * mChannels];
        float* to = out + written * mChannels;
        for (uint32_t c = 0; c < mChannels; ++c) to[c] = leaving[c] * gain;
        mLowestGain = std::min(mLowestGain, gain);
        ++written;
        ++mFramesOut;
    }
    return written;
}

size_t TruePeakLimiter::flush(float* out) {
    const float silence[kMaxChannels] = {};
    const uint64_t pending = mFramesIn - mFramesOut;
    size_t written = 0;
    while (written < pending) {
        // Zeros push the held frames out; while a stream shorter than the
        // latency is still filling the line, they come out with nothing.
        written += process(silence, 1, out + written * mChannels);
    }
    reset();
    return written;
}

double TruePeakLimiter::truePeak(const float* samples, size_t frames, uint32_t channels) {
    const Phases& p = phases();
    channels = std::max<uint32_t>(channels, 1);
    float peak = 0.0f;
    std::vector<float> window(kTaps, 0.0f);
    for (uint32_t c = 0; c < channels; ++c) {
        std::fill(window.begin(), window.end(), 0.0f);
        // kInterpolatorDelay zeros after the end bring the last frame's
        // points into the window.
        for (size_t n = 0; n < frames + kInterpolatorDelay; ++n) {
            std::memmove(window.data(), window.data() + 1, sizeof(float) * (kTaps - 1));
            window[kTaps - 1] = n < frames ? samples[n * channels + c] : 0.0f;
            peak = std::max(peak, windowPeak(window.data(), p));
        }
    }
    return peak;
}

}  // namespace wv
