// Sample-rate conversion of 16-bit PCM, by linear interpolation or, for the
// two high-quality values, by a band-limited filter (AudioResamplerSoxr.h
// tells how that kind differs; what follows is the linear kind's contract).
//
// An AudioResampler turns input frames at inSampleRate (set with
// setSampleRate) into output frames at the rate fixed at creation. Input is
// pulled through an AudioBufferProvider and used in place; output is always
// interleaved stereo int16 (a mono input feeds both channels), and is ADDED
// to what the output buffer holds after scaling by the two gains. Callers
// that want the plain converted signal zero the output and set gains of 1.
//
// Numbers:
//  - Position is 2.30 fixed point: phaseIncrement = in/out * 2^30, truncated.
//    The input rate must stay below 4 x the output rate (larger ratios are
//    refused with an error log and clamped to just under 4).
//  - Interpolation uses the fraction at 15 bits:
//        x0 + (((x1 - x0) * (fraction >> 15)) >> 15)
//  - Output samples wrap to 16 bits (no saturation).
//  - Latency: one input frame. The first output frame interpolates from the
//    saved previous frame (0 at creation) to input frame 0.
//  - No allocation while resampling.
//
// Kinds: qualities 0-4 build the linear kind, SRC_HQ_HIGH (5) and
// SRC_HQ_VERY_HIGH (6) the high-quality one. SRC_DEFAULT takes the process
// default from the property "af.resampler.quality" (read once per process;
// 0-6, anything else meaning 0).
//
// Load bookkeeping: each creation charges a processor-load figure in MHz to
// a process-wide total (budget 130 MHz) according to the quality asked for,
// or the process default; destruction refunds exactly what was charged. A
// default of 2-4 that does not fit the budget steps down; the high-quality
// kinds are charged as asked and never step down (a render's length and
// quality must not depend on what else runs).
//
// Threads: one resampler is used by one thread at a time; creation and
// destruction may happen on any threads concurrently.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/resample/AudioBufferProvider.h"

namespace wv {

class AudioResampler {
public:
    enum src_quality : int32_t {
        SRC_DEFAULT = 0,
        SRC_LOW = 1,
        SRC_MEDIUM = 2,
        SRC_HIGH = 3,
        SRC_VERY_HIGH = 4,
        SRC_HQ_HIGH = 5,       // band-limited, 20-bit precision
        SRC_HQ_VERY_HIGH = 6,  // band-limited, 28-bit precision
    };

    static constexpr uint32_t kMaxResamplerMHz = 130;

    // Charges the load and returns a new resampler of the quality's kind
    // for 16-bit input of inChannelCount (1 or 2) channels producing
    // sampleRate Hz. Owned by the caller, who deletes it. Never null.
    static AudioResampler* create(int bitDepth, int inChannelCount, int32_t sampleRate,
                                  src_quality quality);

    virtual ~AudioResampler();

    virtual void init() = 0;
    // Input rate in Hz; must be called before the first resample().
    virtual void setSampleRate(int32_t inSampleRate);
    // Gains applied to the left and right outputs (0 after creation).
    virtual void setVolume(int16_t left, int16_t right);
    // Ticks per second of the clock of the time stamps passed to the provider.
    virtual void setLocalTimeFreq(uint64_t freq);
    // Time stamp of the first output frame of the next resample() call.
    virtual void setPTS(int64_t pts);
    // Produces up to outFrameCount stereo frames into out (adding to it).
    // Fewer are made only when the provider runs dry; getOutputFrames()
    // tells how many.
    virtual void resample(int16_t* out, size_t outFrameCount, AudioBufferProvider* provider) = 0;
    // Rewinds the position. A held buffer is forgotten, not released, and the
    // saved previous frame is kept.
    virtual void reset();
    virtual size_t getInputIndex() const;
    virtual size_t getOutputFrames() const;
    // Tells that the provider will lend nothing more: the next resample()
    // calls give out what the converter still holds, up to the exact
    // length. The linear kind ignores it (its one frame of latency is never
    // flushed).
    virtual void endInput() {}
    // After endInput(), whether output frames remain to be given out.
    virtual bool outputPending() const { return false; }

    static bool qualityIsSupported(src_quality quality);
    // `quality` with SRC_DEFAULT replaced by the process default. A
    // resampler created with the result is charged as asked: it never steps
    // down for the load budget.
    static src_quality resolve(src_quality quality) {
        return quality == SRC_DEFAULT ? defaultQuality() : quality;
    }
    // Whether a resolved quality builds the band-limited kind, which makes
    // exactly the converted length (see AudioResamplerSoxr.h).
    static bool makesExactLength(src_quality quality) {
        return quality == SRC_HQ_HIGH || quality == SRC_HQ_VERY_HIGH;
    }
    static uint32_t qualityMHz(src_quality quality);
    // The quality SRC_DEFAULT stands for: the property's value, read once
    // per process (before any stepping down for the load budget).
    static src_quality defaultQuality();
    // Reads the default quality from the property; run once per process.
    static void init_routine();

    // Current total of charged MHz (for tests and diagnostics).
    static uint32_t loadMHz();
    // Forgets the default quality read from the property so that the next
    // default-quality creation reads it again.
    static void resetDefaultQualityForTesting();

    int32_t channelCount() const { return mChannelCount; }
    int32_t sampleRate() const { return mSampleRate; }
    int32_t inSampleRate() const { return mInSampleRate; }
    uint32_t phaseIncrement() const { return mPhaseIncrement; }
    src_quality quality() const { return mQuality; }
    uint32_t chargedMHz() const { return mChargedMHz; }

protected:
    AudioResampler(int bitDepth, int inChannelCount, int32_t sampleRate, src_quality quality);

    // Presentation time of output frame outputFrameIndex of this call.
    int64_t calculateOutputPTS(int outputFrameIndex);

    const int32_t mBitDepth;
    const int32_t mChannelCount;
    const int32_t mSampleRate;
    int32_t mInSampleRate;
    AudioBufferProvider::Buffer mBuffer;
    int16_t mVolume[2];
    uint32_t mInputIndex;
    uint32_t mOutputFrames;
    uint32_t mPhaseIncrement;
    uint32_t mPhaseFraction;
    uint64_t mLocalTimeFreq;
    int64_t mPTS;
    const src_quality mQuality;

private:
    // What create() charged; refunded by the destructor.
    uint32_t mChargedMHz = 0;

    AudioResampler(const AudioResampler&) = delete;
    AudioResampler& operator=(const AudioResampler&) = delete;
};

}  // namespace wv
