#define WV_LOG_TAG "EffectRobot"
#include "base/Log.h"

#include "dsp/EffectRobot.h"

#include <cmath>
#include <cstdlib>
#include <cstring>

namespace wv {

namespace {

int16_t saturate(int32_t v) {
    if (v > 32767) return 32767;
    if (v < -32768) return -32768;
    return static_cast<int16_t>(v);
}

}  // namespace

EffectRobot::EffectRobot(int decayDb, int intervalMs, int sampleRate, int channels) {
    if (channels < 1) {
        WV_LOGE("EffectRobot: %d channels, filtering as mono", channels);
        channels = 1;
    }
    mChannels = channels;
    mDecay = powf(10.0f, float(decayDb / -20.0));
    const int64_t interval = int64_t(sampleRate) * intervalMs / 1000;
    const int64_t samples = interval * channels;
    if (interval >= 1 && samples <= INT32_MAX / 2) {
        mInterval = int32_t(interval);
        mBufferSize = uint32_t(samples * 2);
        mBuffer = static_cast<int16_t*>(calloc(size_t(samples), sizeof(int16_t)));
    }
    WV_LOGD("EffectRobot construct decay %f, interval %d, mBufferSize %d", double(mDecay),
            mInterval, int(mBufferSize));
    if (mBuffer == nullptr) {
        WV_LOGE("EffectRobot: no delay line for %d ms at %d Hz, passing audio through", intervalMs,
                sampleRate);
        mInterval = 0;
        mBufferSize = 0;
    }
}

EffectRobot::~EffectRobot() { free(mBuffer); }

void EffectRobot::accumulate(int16_t* out, const int16_t* in, uint32_t count) const {
    for (uint32_t i = 0; i < count; ++i) {
        out[i] = saturate(int32_t(out[i]) + int32_t(float(in[i]) * mDecay));
    }
}

void EffectRobot::process(int16_t* data, uint32_t frames) {
    if (mBuffer == nullptr || frames == 0) return;
    const uint64_t total = uint64_t(frames) * uint64_t(mChannels);
    const uint32_t delay = mBufferSize / 2;  // samples in the delay line
    if (total < delay) {
        const uint32_t count = uint32_t(total);
        accumulate(data, mBuffer, count);
        std::memmove(mBuffer, mBuffer + count, mBufferSize - 2 * size_t(count));
        std::memcpy(mBuffer + (delay - count), data, 2 * size_t(count));
        return;
    }
    // The first `delay` samples hear the delay line; later ones hear samples
    // of this buffer that are already filtered, never the ones being written.
    accumulate(data, mBuffer, delay);
    for (uint64_t k = delay; k < total;) {
        const uint32_t m = uint32_t(total - k < delay ? total - k : delay);
        accumulate(data + k, data + (k - delay), m);
        k += m;
    }
    std::memcpy(mBuffer, data + (total - delay), mBufferSize);
}

void EffectRobot::reset() {
    if (mBuffer != nullptr) std::memset(mBuffer, 0, mBufferSize);
}

}  // namespace wv
