#define WV_LOG_TAG "AudioResampler"
#include "platform/resample/AudioResamplerSoxr.h"

#include <soxr.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace {

constexpr float kFromInt16 = 1.0f / 32768.0f;

inline int32_t toInt16(float value) {
    const float scaled = std::nearbyint(value * 32768.0f);
    if (scaled >= 32767.0f) return 32767;
    if (scaled <= -32768.0f) return -32768;
    return static_cast<int32_t>(scaled);
}

inline int16_t saturatingAdd(int16_t out, int32_t sample, int32_t gain) {
    const int64_t sum = int64_t(out) + int64_t(sample) * gain;
    return static_cast<int16_t>(std::clamp<int64_t>(sum, -32768, 32767));
}

}  // namespace

AudioResamplerSoxr::AudioResamplerSoxr(int bitDepth, int inChannelCount, int32_t sampleRate,
                                       src_quality quality)
    : AudioResampler(bitDepth, inChannelCount, sampleRate, quality) {
    if (formatIsValid()) {
        mInput.resize(kChunkFrames * size_t(inChannelCount));
        mOutput.resize(kChunkFrames * size_t(inChannelCount));
    }
}

AudioResamplerSoxr::~AudioResamplerSoxr() { dropConverter(); }

bool AudioResamplerSoxr::formatIsValid() const {
    return mBitDepth == 16 && mChannelCount >= 1 && mChannelCount <= 2 && mSampleRate > 0;
}

void AudioResamplerSoxr::setSampleRate(int32_t inSampleRate) {
    mInSampleRate = inSampleRate;
    mPhaseIncrement = 0;
    if (inSampleRate < 1) WV_LOGE("Unsupported input rate %d Hz", inSampleRate);
}

void AudioResamplerSoxr::dropConverter() {
    if (mConverter != nullptr) soxr_delete(mConverter);
    mConverter = nullptr;
    mConverterInRate = 0;
}

bool AudioResamplerSoxr::ensureConverter() {
    if (mConverter != nullptr && mConverterInRate == mInSampleRate) return true;
    dropConverter();
    reset();
    if (!formatIsValid() || mInSampleRate < 1) return false;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_quality_spec_t recipe =
        soxr_quality_spec(mQuality == SRC_HQ_VERY_HIGH ? SOXR_VHQ : SOXR_HQ, 0);
    // One thread: the engine's workers already share the machine.
    const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    soxr_error_t error = nullptr;
    mConverter = soxr_create(double(mInSampleRate), double(mSampleRate), unsigned(mChannelCount),
                             &error, &io, &recipe, &runtime);
    if (error != nullptr || mConverter == nullptr) {
        WV_LOGE("Cannot convert %d Hz to %d Hz: %s", mInSampleRate, mSampleRate,
                error != nullptr ? error : "no converter");
        if (mConverter != nullptr) soxr_delete(mConverter);
        mConverter = nullptr;
        return false;
    }
    mConverterInRate = mInSampleRate;
    return true;
}

void AudioResamplerSoxr::reset() {
    if (mConverter != nullptr) soxr_clear(mConverter);
    mInputEnded = false;
    mInputFrames = 0;
    mOutputTotal = 0;
    mInputCount = 0;
    mInputOffset = 0;
    mOutputFrames = 0;
    mInputIndex = 0;
}

void AudioResamplerSoxr::endInput() { mInputEnded = true; }

uint64_t AudioResamplerSoxr::exactLength() const {
    if (mConverterInRate < 1) return 0;
    const uint64_t in = uint64_t(mConverterInRate);
    return (mInputFrames * uint64_t(mSampleRate) * 2 + in) / (2 * in);
}

bool AudioResamplerSoxr::outputPending() const {
    if (!mInputEnded) return false;
    if (mConverter == nullptr) return mInputCount > 0;
    return mInputCount > 0 || mOutputTotal < exactLength();
}

bool AudioResamplerSoxr::fetchInput(AudioBufferProvider* provider, size_t outputIndex) {
    AudioBufferProvider::Buffer buffer;
    buffer.raw = nullptr;
    buffer.frameCount = uint32_t(kChunkFrames);
    provider->getNextBuffer(&buffer, calculateOutputPTS(int(outputIndex)));
    if (buffer.raw == nullptr || buffer.frameCount == 0) return false;
    const size_t frames = std::min<size_t>(buffer.frameCount, kChunkFrames);
    const size_t samples = frames * size_t(mChannelCount);
    for (size_t i = 0; i < samples; ++i) mInput[i] = float(buffer.i16[i]) * kFromInt16;
    provider->releaseBuffer(&buffer);
    mInputOffset = 0;
    mInputCount = frames;
    return true;
}

void AudioResamplerSoxr::addToOutput(int16_t* out, size_t frames) const {
    const int32_t vl = mVolume[0];
    const int32_t vr = mVolume[1];
    if (mChannelCount == 1) {
        for (size_t i = 0; i < frames; ++i) {
            const int32_t sample = toInt16(mOutput[i]);
            out[2 * i] = saturatingAdd(out[2 * i], sample, vl);
            out[2 * i + 1] = saturatingAdd(out[2 * i + 1], sample, vr);
        }
        return;
    }
    for (size_t i = 0; i < frames; ++i) {
        out[2 * i] = saturatingAdd(out[2 * i], toInt16(mOutput[2 * i]), vl);
        out[2 * i + 1] = saturatingAdd(out[2 * i + 1], toInt16(mOutput[2 * i + 1]), vr);
    }
}

void AudioResamplerSoxr::resample(int16_t* out, size_t outFrameCount,
                                  AudioBufferProvider* provider) {
    mOutputFrames = 0;
    if (outFrameCount == 0 || !ensureConverter()) return;
    const size_t channels = size_t(mChannelCount);
    size_t made = 0;
    while (made < outFrameCount) {
        size_t room = std::min(outFrameCount - made, kChunkFrames);
        if (mInputEnded && mInputCount == 0) {
            const uint64_t left = exactLength() - std::min(exactLength(), mOutputTotal);
            if (left == 0) break;
            room = size_t(std::min<uint64_t>(room, left));
        }
        const float* in = mInput.data() + mInputOffset * channels;
        // A null input tells the converter the signal has ended: it then
        // gives out its tail.
        const bool flush = mInputEnded && mInputCount == 0;
        size_t consumed = 0;
        size_t produced = 0;
        const soxr_error_t error = soxr_process(mConverter, flush ? nullptr : in, mInputCount,
                                                &consumed, mOutput.data(), room, &produced);
        if (error != nullptr) {
            WV_LOGE("Conversion failed: %s", error);
            break;
        }
        mInputOffset += consumed;
        mInputCount -= consumed;
        mInputFrames += consumed;
        if (produced == 0 && flush) {
            // The converter has nothing more: silence up to the exact length.
            std::fill(mOutput.begin(), mOutput.begin() + ptrdiff_t(room * channels), 0.0f);
            produced = room;
        }
        if (produced > 0) {
            if (mInputEnded && mInputCount == 0) {
                const uint64_t left = exactLength() - std::min(exactLength(), mOutputTotal);
                produced = size_t(std::min<uint64_t>(produced, left));
            }
            addToOutput(out + made * 2, produced);
            made += produced;
            mOutputTotal += produced;
            continue;
        }
        if (consumed > 0) continue;
        if (mInputCount > 0) {
            // Input offered and none taken nor given back: never expected,
            // but looping on it would hang the caller.
            WV_LOGE("Converter took no input");
            break;
        }
        if (mInputEnded || !fetchInput(provider, made)) break;
    }
    mOutputFrames = uint32_t(made);
}

}  // namespace wv
