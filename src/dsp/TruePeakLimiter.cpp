#include "dsp/TruePeakLimiter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace wv {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr uint32_t kTaps = 32;               // per phase of the long interpolator
constexpr uint32_t kLongFactor = 8;          // its oversampling
constexpr uint32_t kPrototypeTaps = 257;     // kTaps x 8 + 1, centred on tap 128
constexpr uint32_t kInterpolatorDelay = 16;  // frames from input to its peak estimate
constexpr uint32_t kReach = 16;              // frames each side a peak estimate depends on
constexpr double kCutoff = 1.0;              // of the input's Nyquist frequency
constexpr double kKaiserBeta = 9.0;

// The zeroth-order modified Bessel function, by its series.
double besselI0(double x) {
    double sum = 1.0, term = 1.0;
    for (int k = 1; k < 50; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
        if (term < sum * 1e-12) break;
    }
    return sum;
}

// The fractional phases of two interpolators, in the order of a window
// whose newest sample is last: an 8x Kaiser-windowed sinc of kTaps per
// phase (each phase summing to 1; 8x rather than 4x, so that a meter that
// resamples to 192 kHz from another rate finds no point between ours),
// and the 4x 12-tap Hann-windowed sinc of libebur128's meter. Neither sees every
// peak the other sees (the long one rolls off just below the Nyquist
// frequency, where the short one still passes half), so the detector takes
// the larger. The sample itself is the fourth point: a band-limited signal
// passes through its samples.
struct Phases {
    static constexpr uint32_t kShortTaps = 12;
    // Where the short filter's window starts inside the long one, so that
    // both centre on the same sample.
    static constexpr uint32_t kShortOffset = kTaps - 1 - kInterpolatorDelay - 5;
    // Tap-major, one lane per phase (the last lane of each is zero), so
    // that the phases of one tap are worked out side by side.
    alignas(32) float coeff[kTaps][kLongFactor];
    alignas(16) float shortCoeff[kShortTaps][4];
    float gainBound;  // the largest sum of absolute coefficients of a phase
    Phases() : coeff(), shortCoeff(), gainBound(0.0f) {
        const double centre = double(kPrototypeTaps - 1) / 2.0;
        for (uint32_t phase = 1; phase < kLongFactor; ++phase) {
            double sum = 0.0;
            double taps[kTaps];
            for (uint32_t i = 0; i < kTaps; ++i) {
                const uint32_t j = phase + kLongFactor * i;
                const double x = kPi * kCutoff * (double(j) - centre) / double(kLongFactor);
                const double sinc = std::fabs(x) < 1e-12 ? 1.0 : std::sin(x) / x;
                const double r = (double(j) - centre) / centre;
                const double kaiser =
                    besselI0(kKaiserBeta * std::sqrt(std::max(0.0, 1.0 - r * r))) /
                    besselI0(kKaiserBeta);
                taps[i] = sinc * kaiser;
                sum += taps[i];
            }
            double absolute = 0.0;
            for (uint32_t i = 0; i < kTaps; ++i) {
                // Window position k holds the input i frames back: k = 31 - i.
                coeff[kTaps - 1 - i][phase - 1] = static_cast<float>(taps[i] / sum);
                absolute += std::fabs(taps[i] / sum);
            }
            gainBound = std::max(gainBound, static_cast<float>(absolute));
        }
        for (uint32_t phase = 1; phase < 4; ++phase) {
            double absolute = 0.0;
            for (uint32_t i = 0; i < kShortTaps; ++i) {
                const uint32_t j = phase + 4 * i;
                const double x = (double(j) - 24.0) * kPi / 4.0;
                const double sinc = std::fabs(x) < 1e-12 ? 1.0 : std::sin(x) / x;
                const double hann = 0.5 * (1.0 - std::cos(2.0 * kPi * j / 48.0));
                shortCoeff[kShortTaps - 1 - i][phase - 1] = static_cast<float>(sinc * hann);
                absolute += std::fabs(sinc * hann);
            }
            gainBound = std::max(gainBound, static_cast<float>(absolute));
        }
    }
};

const Phases& phases() {
    static const Phases kPhases;
    return kPhases;
}

// Largest absolute value of a sample and the points after it, from a
// window of the last kTaps inputs (oldest first); the sample is
// kInterpolatorDelay frames back from the newest.
inline float windowPeak(const float* window, const Phases& p) {
    float longSum[kLongFactor] = {};
    for (uint32_t k = 0; k < kTaps; ++k) {
        for (uint32_t lane = 0; lane < kLongFactor; ++lane)
            longSum[lane] += p.coeff[k][lane] * window[k];
    }
    const float* near = window + Phases::kShortOffset;
    float shortSum[4] = {};
    for (uint32_t k = 0; k < Phases::kShortTaps; ++k) {
        for (uint32_t lane = 0; lane < 4; ++lane) shortSum[lane] += p.shortCoeff[k][lane] * near[k];
    }
    float peak = std::fabs(window[kTaps - 1 - kInterpolatorDelay]);
    for (uint32_t lane = 0; lane < kLongFactor; ++lane)
        peak = std::max(peak, std::fabs(longSum[lane]));
    for (uint32_t lane = 0; lane < 4; ++lane) peak = std::max(peak, std::fabs(shortSum[lane]));
    return peak;
}

}  // namespace

TruePeakLimiter::TruePeakLimiter(uint32_t rate, uint32_t channels,
                                 const LimiterSettings& settings) {
    rate = std::max<uint32_t>(rate, 8000);
    mChannels = std::min(std::max<uint32_t>(channels, 1), kMaxChannels);
    const double ceiling = std::min(settings.ceilingDbtp, 0.0);
    mCeiling = static_cast<float>(std::pow(10.0, ceiling / 20.0));
    mQuietBelow = mCeiling / phases().gainBound;
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
    mLastLoud = 0;
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
    // Detector: the peak of the frame kInterpolatorDelay back. While no
    // sample of the window could lift an interpolated point over the
    // ceiling, the points are not worked out: the gain needed is 1 anyway.
    bool loud = false;
    for (uint32_t c = 0; c < mChannels; ++c) {
        float* history = &mHistory[size_t(c) * 2 * kTaps];
        history[mHistoryPos] = frame[c];
        history[mHistoryPos + kTaps] = frame[c];
        loud = loud || std::fabs(frame[c]) > mQuietBelow;
    }
    if (loud) mLastLoud = mFramesIn + 1;
    float peak = 0.0f;
    if (mLastLoud + kTaps > mFramesIn + 1 && mLastLoud != 0) {
        for (uint32_t c = 0; c < mChannels; ++c) {
            const float* history = &mHistory[size_t(c) * 2 * kTaps];
            peak = std::max(peak, windowPeak(history + mHistoryPos + 1, p));
        }
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
