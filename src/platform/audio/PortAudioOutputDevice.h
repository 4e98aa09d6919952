// The "device" output: the system's default output through PortAudio, as a
// 16-bit stereo stream at the output's rate when the device takes it, else
// at the device's own rate. The stream runs from open() to close(); its
// callback thread asks the output for frames (silence while it is paused).
// Latency: PortAudio's default high output latency for the device.
#pragma once

#include "platform/audio/AudioOutputDevice.h"

namespace wv {

class PortAudioOutputDevice : public AudioOutputDevice {
public:
    PortAudioOutputDevice() = default;
    ~PortAudioOutputDevice() override;

    // -19 (no device or no audio system) or -22 (more than 2 channels).
    int32_t open(uint32_t sampleRate, uint32_t channels, AudioOutputClient* client) override;
    void close() override;
    uint32_t deviceRate() const override { return mDeviceRate; }
    size_t defaultBufferFrames(uint32_t sampleRate) const override;
    const char* name() const override { return "device"; }

private:
    void* mStream = nullptr;  // PaStream
    bool mSession = false;
    uint32_t mDeviceRate = 0;
    AudioOutputClient* mClient = nullptr;
};

}  // namespace wv
