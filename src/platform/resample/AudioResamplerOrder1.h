// The linear (first-order) resampler: each output sample lies on the straight
// line between the two input frames around its position. See AudioResampler.h
// for the contract and the fixed-point numbers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/resample/AudioResampler.h"

namespace wv {

class AudioResamplerOrder1 : public AudioResampler {
public:
    AudioResamplerOrder1(int bitDepth, int inChannelCount, int32_t sampleRate, src_quality quality);

    void init() override {}
    void resample(int16_t* out, size_t outFrameCount, AudioBufferProvider* provider) override;

    // Two-frames-per-pass inner loops over one input buffer with 32-bit
    // outputs (two words per frame, mono feeding both). They interpolate at
    // 16 fraction bits, add sample * gain without saturation, start writing
    // at out + outputIndex and stop when outEnd is reached or, after a pass,
    // inputIndex >= maxInIdx. outputIndex is written back in 32-bit words.
    // The caller guarantees inputIndex >= 1 on entry and input frames up to
    // inputIndex + 2 x the largest step per pass.
    static void AsmMono16Loop(const int16_t* in, int32_t* out, const int32_t* outEnd,
                              uint32_t maxInIdx, size_t& outputIndex, size_t& inputIndex,
                              uint32_t& phaseFraction, int32_t vl, int32_t vr,
                              uint32_t phaseIncrement);
    static void AsmStereo16Loop(const int16_t* in, int32_t* out, const int32_t* outEnd,
                                uint32_t maxInIdx, size_t& outputIndex, size_t& inputIndex,
                                uint32_t& phaseFraction, int32_t vl, int32_t vr,
                                uint32_t phaseIncrement);

    // The previous buffer's last frame: the left point of the first interval
    // of the next buffer (mono uses the left one only).
    int32_t x0Left() const { return mX0Left; }
    int32_t x0Right() const { return mX0Right; }

private:
    void resampleMono16(int16_t* out, size_t outFrameCount, AudioBufferProvider* provider);
    void resampleStereo16(int16_t* out, size_t outFrameCount, AudioBufferProvider* provider);
    template <int kChannels>
    void resample16(int16_t* out, size_t outFrameCount, AudioBufferProvider* provider);
    template <int kChannels>
    void saveLastFrameAndRelease(AudioBufferProvider* provider);

    int32_t mX0Left = 0;
    int32_t mX0Right = 0;
};

}  // namespace wv
