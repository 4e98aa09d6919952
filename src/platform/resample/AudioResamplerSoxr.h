// The high-quality resampler: a band-limited conversion over libsoxr, with
// the "high" (20-bit precision) or "very high" (28-bit) recipe. It keeps the
// AudioResampler contract (pull through the provider, stereo int16 out,
// gains, adding into the output) with these differences from the linear
// kind:
//  - Any input rate to any output rate (no 4:1 limit); the phase increment
//    is not used and stays 0.
//  - No delay: output frame k is the input signal at time k / outRate (the
//    filter's own delay is taken out).
//  - Exact length: once endInput() is called, the output stops at
//    round(N x out / in) frames for the N input frames consumed in all
//    (half rounding up), the filter's tail included, padded with silence in
//    the unlikely case the filter gives less.
//  - Each converted sample is rounded and clipped to 16 bits, then added as
//    sample x gain; the sum saturates instead of wrapping.
//  - Input is copied (as float) and released at once: the provider never
//    sees a buffer held between calls. getInputIndex() is always 0.
//  - The converter is built at the first resample() after the input rate is
//    set or changed (that allocates); a rate change restarts the signal.
//    Otherwise nothing is allocated while resampling.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/resample/AudioResampler.h"

struct soxr;

namespace wv {

class AudioResamplerSoxr : public AudioResampler {
public:
    // quality: SRC_HQ_HIGH or SRC_HQ_VERY_HIGH.
    AudioResamplerSoxr(int bitDepth, int inChannelCount, int32_t sampleRate, src_quality quality);
    ~AudioResamplerSoxr() override;

    void init() override {}
    void setSampleRate(int32_t inSampleRate) override;
    void resample(int16_t* out, size_t outFrameCount, AudioBufferProvider* provider) override;
    void reset() override;
    void endInput() override;
    bool outputPending() const override;

    // Frames per exchange with the converter (input fetches and output
    // pieces).
    static constexpr size_t kChunkFrames = 1024;

private:
    bool formatIsValid() const;
    bool ensureConverter();
    void dropConverter();
    // Asks the provider for more input into mInput; false when it is dry.
    bool fetchInput(AudioBufferProvider* provider, size_t outputIndex);
    // Adds `frames` converted frames of mOutput into out.
    void addToOutput(int16_t* out, size_t frames) const;
    uint64_t exactLength() const;

    struct soxr* mConverter = nullptr;
    int32_t mConverterInRate = 0;
    bool mInputEnded = false;
    uint64_t mInputFrames = 0;   // consumed by the converter since the start
    uint64_t mOutputTotal = 0;   // handed out since the start
    std::vector<float> mInput;   // kChunkFrames frames, interleaved
    size_t mInputCount = 0;      // frames in mInput not yet consumed
    size_t mInputOffset = 0;     // first of them
    std::vector<float> mOutput;  // kChunkFrames frames, interleaved
};

}  // namespace wv
