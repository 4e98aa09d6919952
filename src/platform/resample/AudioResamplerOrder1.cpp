#define WV_LOG_TAG "AudioResampler"
#include "platform/resample/AudioResamplerOrder1.h"

#include "base/Log.h"

namespace wv {
namespace {

constexpr uint32_t kPhaseBits = 30;
constexpr uint32_t kPhaseMask = (1u << kPhaseBits) - 1;

// One step of the 2.30 position. The sum is formed in 64 bits so that an
// increment close to 4.0 cannot wrap; below that the result is the same as
// the 32-bit sum.
inline void advance(size_t& index, uint32_t& fraction, uint32_t increment) {
    const uint64_t phase = uint64_t(fraction) + increment;
    index += static_cast<size_t>(phase >> kPhaseBits);
    fraction = static_cast<uint32_t>(phase) & kPhaseMask;
}

// 15-bit interpolation: (x1 - x0) * 32767 still fits in 31 bits.
inline int32_t interp15(int32_t x0, int32_t x1, uint32_t fraction) {
    return x0 + (((x1 - x0) * static_cast<int32_t>(fraction >> 15)) >> 15);
}

// 16-bit interpolation of the unrolled loops; the product needs 48 bits.
inline int32_t interp16(int32_t x0, int32_t x1, uint32_t fraction) {
    const int64_t product = int64_t((x1 - x0) * 4) * static_cast<int32_t>(fraction >> 16);
    return x0 + static_cast<int32_t>(product >> 16);
}

// Adds a scaled sample, keeping the low 16 bits of the sum.
inline void accumulate(int16_t& out, int32_t sample, int32_t gain) {
    out = static_cast<int16_t>(static_cast<uint16_t>(out + sample * gain));
}

// 32-bit accumulation of the unrolled loops: wraps, never saturates.
inline void addWrapping(int32_t& out, int32_t value) {
    out = static_cast<int32_t>(static_cast<uint32_t>(out) + static_cast<uint32_t>(value));
}

}  // namespace

AudioResamplerOrder1::AudioResamplerOrder1(int bitDepth, int inChannelCount, int32_t sampleRate,
                                           src_quality quality)
    : AudioResampler(bitDepth, inChannelCount, sampleRate, quality) {}

void AudioResamplerOrder1::resample(int16_t* out, size_t outFrameCount,
                                    AudioBufferProvider* provider) {
    switch (mChannelCount) {
        case 1:
            resampleMono16(out, outFrameCount, provider);
            break;
        case 2:
            resampleStereo16(out, outFrameCount, provider);
            break;
        default:
            break;
    }
}

void AudioResamplerOrder1::resampleMono16(int16_t* out, size_t outFrameCount,
                                          AudioBufferProvider* provider) {
    resample16<1>(out, outFrameCount, provider);
}

void AudioResamplerOrder1::resampleStereo16(int16_t* out, size_t outFrameCount,
                                            AudioBufferProvider* provider) {
    resample16<2>(out, outFrameCount, provider);
}

template <int kChannels>
void AudioResamplerOrder1::saveLastFrameAndRelease(AudioBufferProvider* provider) {
    const int16_t* last = mBuffer.i16 + (mBuffer.frameCount - 1) * kChannels;
    mX0Left = last[0];
    if (kChannels == 2) mX0Right = last[1];
    provider->releaseBuffer(&mBuffer);
    mBuffer.frameCount = 0;
}

template <int kChannels>
void AudioResamplerOrder1::resample16(int16_t* out, size_t outFrameCount,
                                      AudioBufferProvider* provider) {
    const int32_t vl = mVolume[0];
    const int32_t vr = mVolume[1];
    size_t inputIndex = mInputIndex;
    uint32_t phaseFraction = mPhaseFraction;
    const uint32_t phaseIncrement = mPhaseIncrement;
    size_t outputIndex = 0;
    const size_t outputSampleCount = outFrameCount * 2;
    // Input frames matching the request; formed in 64 bits so that a long
    // request cannot wrap, and never 0 so that a short one still fetches.
    uint64_t wanted = 0;
    if (mSampleRate > 0 && mInSampleRate > 0) {
        wanted = uint64_t(outFrameCount) * uint64_t(mInSampleRate) / uint64_t(mSampleRate);
    }
    if (wanted == 0) wanted = 1;
    const uint32_t inFrameCount = wanted > 0xFFFFFFFFu ? 0xFFFFFFFFu : uint32_t(wanted);

    while (outputIndex < outputSampleCount) {
        bool exhausted = false;
        while (mBuffer.frameCount == 0) {
            mBuffer.frameCount = inFrameCount;
            provider->getNextBuffer(&mBuffer, calculateOutputPTS(int(outputIndex / 2)));
            if (mBuffer.raw == nullptr || mBuffer.frameCount == 0) {
                mBuffer.raw = nullptr;
                mBuffer.frameCount = 0;
                exhausted = true;
                break;
            }
            if (mBuffer.frameCount > inputIndex) break;
            // The whole buffer lies left of the interval: skip it.
            inputIndex -= mBuffer.frameCount;
            saveLastFrameAndRelease<kChannels>(provider);
        }
        if (exhausted) break;

        const int16_t* in = mBuffer.i16;

        // The interval that straddles the previous buffer and this one.
        while (inputIndex == 0) {
            const int32_t left = interp15(mX0Left, in[0], phaseFraction);
            const int32_t right = kChannels == 2 ? interp15(mX0Right, in[1], phaseFraction) : left;
            accumulate(out[outputIndex++], left, vl);
            accumulate(out[outputIndex++], right, vr);
            advance(inputIndex, phaseFraction, phaseIncrement);
            if (outputIndex == outputSampleCount) break;
        }

        while (outputIndex < outputSampleCount && inputIndex < mBuffer.frameCount) {
            const int16_t* x1 = in + inputIndex * kChannels;
            const int16_t* x0 = x1 - kChannels;
            const int32_t left = interp15(x0[0], x1[0], phaseFraction);
            const int32_t right = kChannels == 2 ? interp15(x0[1], x1[1], phaseFraction) : left;
            accumulate(out[outputIndex++], left, vl);
            accumulate(out[outputIndex++], right, vr);
            advance(inputIndex, phaseFraction, phaseIncrement);
        }

        if (inputIndex >= mBuffer.frameCount) {
            inputIndex -= mBuffer.frameCount;
            saveLastFrameAndRelease<kChannels>(provider);
        }
    }

    mInputIndex = static_cast<uint32_t>(inputIndex);
    mPhaseFraction = phaseFraction;
    mOutputFrames = static_cast<uint32_t>(outputIndex / 2);
}

void AudioResamplerOrder1::AsmMono16Loop(const int16_t* in, int32_t* out, const int32_t* outEnd,
                                         uint32_t maxInIdx, size_t& outputIndex, size_t& inputIndex,
                                         uint32_t& phaseFraction, int32_t vl, int32_t vr,
                                         uint32_t phaseIncrement) {
    int32_t* o = out + outputIndex;
    size_t index = inputIndex;
    uint32_t fraction = phaseFraction & kPhaseMask;
    while (o < outEnd) {
        for (int pass = 0; pass < 2; ++pass) {
            const int32_t sample = interp16(in[index - 1], in[index], fraction);
            addWrapping(*o++, sample * vl);
            addWrapping(*o++, sample * vr);
            advance(index, fraction, phaseIncrement);
        }
        if (index >= maxInIdx) break;
    }
    outputIndex = static_cast<size_t>(o - out);
    inputIndex = index;
    phaseFraction = fraction;
}

void AudioResamplerOrder1::AsmStereo16Loop(const int16_t* in, int32_t* out, const int32_t* outEnd,
                                           uint32_t maxInIdx, size_t& outputIndex,
                                           size_t& inputIndex, uint32_t& phaseFraction, int32_t vl,
                                           int32_t vr, uint32_t phaseIncrement) {
    int32_t* o = out + outputIndex;
    size_t index = inputIndex;
    uint32_t fraction = phaseFraction & kPhaseMask;
    while (o < outEnd) {
        for (int pass = 0; pass < 2; ++pass) {
            const int16_t* x1 = in + index * 2;
            addWrapping(*o++, interp16(x1[-2], x1[0], fraction) * vl);
            addWrapping(*o++, interp16(x1[-1], x1[1], fraction) * vr);
            advance(index, fraction, phaseIncrement);
        }
        if (index >= maxInIdx) break;
    }
    outputIndex = static_cast<size_t>(o - out);
    inputIndex = index;
    phaseFraction = fraction;
}

}  // namespace wv
