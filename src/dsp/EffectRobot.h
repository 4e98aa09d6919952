// Robot voice: a feedback comb filter, y[n] = x[n] + g * y[n - D], applied in
// place to 16-bit PCM with saturation to -32768 ... 32767.
//
// g = 10^(-decayDb / 20) in single precision (decayDb 2 gives 0.7943282) and
// D = sampleRate * intervalMs / 1000 frames (integer division; 10 ms is 80
// frames at 8000 Hz, 441 at 44100 Hz). Each echo is truncated toward zero
// before it is added. Interleaved multi-channel audio is filtered per
// channel: the delay counts frames, so every sample only hears earlier
// samples of its own channel.
//
// The filter keeps the last D frames of output as its delay line, so a
// stream cut into buffers of any sizes gives the same output as one buffer.
// No allocation after construction; one thread at a time.
#pragma once

#include <cstdint>

namespace wv {

class EffectRobot {
public:
    // Starts with a silent delay line. A delay below one frame (sampleRate *
    // intervalMs under 1000) cannot be served: it is logged and the effect
    // then passes audio through unchanged.
    EffectRobot(int decayDb, int intervalMs, int sampleRate, int channels = 1);
    ~EffectRobot();
    EffectRobot(const EffectRobot&) = delete;
    EffectRobot& operator=(const EffectRobot&) = delete;

    // Filters `frames` frames (frames * channels interleaved samples) of
    // `data` in place, continuing the stream of the previous call.
    void process(int16_t* data, uint32_t frames);
    // out[i] = saturate(out[i] + trunc(in[i] * g)) for i < count samples.
    void accumulate(int16_t* out, const int16_t* in, uint32_t count) const;
    // Silences the delay line: the next call starts a new stream.
    void reset();

    float decay() const { return mDecay; }
    int32_t interval() const { return mInterval; }  // frames

private:
    int16_t* mBuffer = nullptr;  // delay line: the last output samples, oldest first
    uint32_t mBufferSize = 0;    // bytes: mInterval * mChannels * 2
    int32_t mInterval = 0;       // delay in frames
    float mDecay = 0.0f;         // feedback gain
    int32_t mChannels = 1;
};

}  // namespace wv
