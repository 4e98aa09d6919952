// The "silence" and "tone:HZ" inputs: frames made at the opened rate and
// handed over at the pace of a PacedLoop (time spent waiting for a full
// recorder is made up afterwards as fast as the recorder takes the frames,
// so none are lost). A tone is a sine at
// half of full scale (16383), the same on every channel, continuous across
// ticks and across stop/start.
#pragma once

#include <vector>

#include "platform/audio/AudioInputDevice.h"
#include "platform/audio/PacedLoop.h"

namespace wv {

class GeneratedInputDevice : public AudioInputDevice {
public:
    // toneHz 0: silence. `pace`: capture time per time of `clock`.
    GeneratedInputDevice(double toneHz, double pace,
                         MonotonicClock& clock = MonotonicClock::system());
    ~GeneratedInputDevice() override;

    int32_t open(uint32_t sampleRate, uint32_t channels, AudioInputClient* client) override;
    int32_t start() override;
    void stop() override;
    uint32_t latencyMs() const override;
    const char* name() const override { return mToneHz > 0 ? "tone" : "silence"; }
    bool canWait() const override { return true; }

private:
    void generate(size_t frames);

    const double mToneHz;
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    AudioInputClient* mClient = nullptr;
    double mPhase = 0;            // radians, device thread only
    std::vector<int16_t> mBlock;  // device thread only
    PacedLoop mLoop;
};

}  // namespace wv
