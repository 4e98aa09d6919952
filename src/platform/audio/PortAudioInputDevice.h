// The "device" input: the system's default input through PortAudio, as a
// 16-bit stream at exactly the opened rate and channel count (1 or 2); a
// device that cannot capture so is refused. Frames are handed over on
// PortAudio's callback thread.
#pragma once

#include "platform/audio/AudioInputDevice.h"

namespace wv {

class PortAudioInputDevice : public AudioInputDevice {
public:
    PortAudioInputDevice() = default;
    ~PortAudioInputDevice() override;

    // -19 without a usable device, -22 for more than 2 channels.
    int32_t open(uint32_t sampleRate, uint32_t channels, AudioInputClient* client) override;
    int32_t start() override;
    void stop() override;
    uint32_t latencyMs() const override;
    const char* name() const override { return "device"; }

private:
    void close();

    void* mStream = nullptr;  // PaStream
    bool mSession = false;
    bool mRunning = false;
};

}  // namespace wv
