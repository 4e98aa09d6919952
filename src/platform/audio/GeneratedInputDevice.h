// The "silence" and "tone:HZ" inputs: a thread that, every tick (10 ms of
// real time, shorter when paced faster, never under 250 us), hands over the
// frames that the passed time holds at the opened rate (time spent waiting
// for a full recorder is made up afterwards as fast as the recorder takes
// the frames, so none are lost). A tone is a sine at
// half of full scale (16383), the same on every channel, continuous across
// ticks and across stop/start.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/audio/AudioInputDevice.h"

namespace wv {

class GeneratedInputDevice : public AudioInputDevice {
public:
    // toneHz 0: silence. `pace`: capture time per real time.
    GeneratedInputDevice(double toneHz, double pace);
    ~GeneratedInputDevice() override;

    int32_t open(uint32_t sampleRate, uint32_t channels, AudioInputClient* client) override;
    int32_t start() override;
    void stop() override;
    uint32_t latencyMs() const override;
    const char* name() const override { return mToneHz > 0 ? "tone" : "silence"; }
    bool canWait() const override { return true; }

private:
    void run();
    bool running();
    void generate(size_t frames);

    const double mToneHz;
    const double mPace;
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    AudioInputClient* mClient = nullptr;
    double mPhase = 0;            // radians, device thread only
    std::vector<int16_t> mBlock;  // device thread only
    std::mutex mLock;
    std::condition_variable mWake;
    bool mRunning = false;
    std::thread mThread;
};

}  // namespace wv
