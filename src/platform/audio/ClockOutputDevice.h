// The "null" and "file:PATH" output devices: no sound, a PacedLoop that
// tells the output how much play time has passed every tick, as a sound
// card would by taking frames. With a path, every frame handed to the output is also
// written to a 16-bit WAV there; the file is finished by close().
#pragma once

#include <string>

#include "platform/audio/AudioOutputDevice.h"
#include "platform/audio/PacedLoop.h"
#include "platform/audio/WavFileSink.h"

namespace wv {

class ClockOutputDevice : public AudioOutputDevice {
public:
    // `pace`: play time per real time (1 = real time). Empty `wavPath`: null.
    explicit ClockOutputDevice(double pace, std::string wavPath = std::string());
    ~ClockOutputDevice() override;

    int32_t open(uint32_t sampleRate, uint32_t channels, AudioOutputClient* client) override;
    void close() override;
    uint32_t deviceRate() const override { return 0; }
    size_t defaultBufferFrames(uint32_t sampleRate) const override;
    void onQueued(const int16_t* frames, size_t count) override;
    const char* name() const override { return mWavPath.empty() ? "null" : "file"; }

private:
    const std::string mWavPath;
    WavFileSink mWav;  // written on the output's thread only, closed after it
    AudioOutputClient* mClient = nullptr;
    PacedLoop mLoop;
};

}  // namespace wv
