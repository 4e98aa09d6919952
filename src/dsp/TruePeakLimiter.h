// A look-ahead limiter that keeps the true peak of interleaved float audio
// (full scale = 1.0) at or under a ceiling, for loudness-normalised output.
//
// Peak detection: every input frame and the points between it and the next
// one, interpolated twice: 8x by a 257-tap Kaiser-windowed sinc (beta 9,
// cut off at the Nyquist frequency), close to what a resampler-based meter
// (ffmpeg's ebur128 filter, which resamples to 192 kHz from any rate) sees,
// and 4x by the 49-tap Hann-windowed sinc of an ITU-R BS.1770 meter as
// libebur128 has it. The larger counts: the short one underrates content a
// little under the Nyquist frequency, and the two disagree by a few
// hundredths of a dB elsewhere. Such meters then read the output at the
// ceiling or within about 0.05 dB over it (a meter's grid at another rate
// falls between our points); callers that must hold a ceiling for any
// meter aim a little under it. The same factors serve every
// rate, which only errs on the safe side. Points are worked out only near
// samples that could make them exceed the ceiling. The largest of the
// channels sets one gain for all of them, so the stereo image does not
// move.
//
// Gain envelope: the gain each frame needs (ceiling / peak, at most 1) is
// held for the look-ahead plus the interpolator's reach on each side, then
// released exponentially towards 1 (time constant releaseMs), then smoothed
// by a moving average over the look-ahead: the gain falls along a straight
// ramp over the look-ahead before a peak (attack) and rises smoothly after
// it, so there is no step and no pumping at the rate of the waveform.
//
// Latency: latencyFrames() = lookahead frames + 31 (16 for the
// interpolator, 15 to centre the hold on the peak); 271 frames for 5 ms at
// 48 kHz. The
// output is the input delayed by that and then trimmed: process() withholds
// the first latencyFrames() frames of the stream and flush() delivers the
// last ones, so the output has exactly the input's length and is
// time-aligned with it. A signal whose true peak stays under the ceiling
// comes out unchanged (gain exactly 1).
//
// Memory: fixed at construction (the delay line and the envelope's windows,
// under 40 KB for 20 ms at 192 kHz stereo); nothing is allocated while
// processing. One thread uses a limiter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wv {

struct LimiterSettings {
    double ceilingDbtp = -1.0;  // dB relative to full scale; at most 0
    double lookaheadMs = 5.0;   // 0.5 to 20 ms: the attack ramp
    double releaseMs = 100.0;   // 10 to 2000 ms: time constant of the release
};

class TruePeakLimiter {
public:
    static constexpr uint32_t kMaxChannels = 8;
    static constexpr uint32_t kOversampling = 4;

    // rate in Hz (at least 8000), channels 1..kMaxChannels; settings out of
    // range are clamped.
    TruePeakLimiter(uint32_t rate, uint32_t channels, const LimiterSettings& settings);

    uint32_t latencyFrames() const { return mLatency; }
    uint32_t channels() const { return mChannels; }

    // Takes `frames` interleaved frames of `in` and writes the frames that
    // leave the delay line to `out` (room for `frames` frames); returns how
    // many: `frames` once the first latencyFrames() of the stream are in,
    // fewer before. `in` and `out` may be the same buffer.
    size_t process(const float* in, size_t frames, float* out);
    // Ends the stream: writes the frames still held (at most
    // latencyFrames(), fewer when the stream was shorter) to `out` and
    // returns how many. The limiter is then back at its initial state.
    size_t flush(float* out);

    // The lowest gain applied so far (1 when nothing was limited).
    float lowestGain() const { return mLowestGain; }

    // The 4x true-peak estimate of interleaved samples (largest absolute
    // value over channels, samples and interpolated points), full scale 1.
    // Zeros are assumed before and after, as a meter starting from silence.
    static double truePeak(const float* samples, size_t frames, uint32_t channels);

private:
    // Pushes one input frame through detector and envelope; returns the gain
    // for the frame leaving the delay line.
    float step(const float* frame);
    void reset();

    uint32_t mChannels;
    float mCeiling;  // linear
    uint32_t mLookahead;
    uint32_t mHoldLength;  // look-ahead + twice the interpolator's reach
    uint32_t mLatency;
    float mReleaseCoeff;

    // Interpolator: per channel the last 32 inputs, stored twice over so
    // that the newest 32 are always one contiguous run.
    std::vector<float> mHistory;  // channels x 64
    uint32_t mHistoryPos = 0;
    // Samples at or under this cannot make a point exceed the ceiling.
    float mQuietBelow = 1.0f;
    uint64_t mLastLoud = 0;  // 1 + the stream index of the last louder one; 0: none

    // Sliding minimum of the needed gain over mHoldLength frames: a ring of
    // (stream index, gain) pairs, increasing from front to back.
    std::vector<uint64_t> mMinIndex;
    std::vector<float> mMinGain;
    uint32_t mMinFront = 0;
    uint32_t mMinCount = 0;

    float mReleased = 1.0f;  // the held gain after the release
    // Moving average over mLookahead frames of the released gain.
    std::vector<float> mAverageWindow;
    uint32_t mAveragePos = 0;
    double mAverageSum = 0.0;

    // Delay line of mLatency + 1 input frames.
    std::vector<float> mDelay;
    uint32_t mDelayPos = 0;
    uint64_t mFramesIn = 0;
    uint64_t mFramesOut = 0;
    float mLowestGain = 1.0f;
};

}  // namespace wv
