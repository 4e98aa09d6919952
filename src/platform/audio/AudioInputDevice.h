// Where an AudioInput's frames come from. A device, once started, hands
// captured 16-bit interleaved frames to its client from its own thread, at
// the rate and channel count it was opened with.
//
// Selection (see wavoryx_set_audio_input in <wavoryx/platform.h>):
//   "device"   the system's default input through PortAudio
//   "silence"  zeros, paced by a clock
//   "tone:HZ"  a sine of HZ hertz at half of full scale on every channel,
//              paced by a clock
//   "file:PATH" an audio file, decoded and converted to the opened format,
//              paced by a clock, silence after its end (see FileInputDevice.h)
//   "auto"     "device" if it opens, else "silence" with a warning (the default)
// WAVORYX_DEVICE_PACE=N runs the clock-paced inputs N times faster than
// real time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace wv {

class AudioInputClient {
public:
    // `count` frames were captured; called on the device's thread.
    virtual void onCaptured(const int16_t* frames, size_t count) = 0;

protected:
    ~AudioInputClient() {}
};

class AudioInputDevice {
public:
    virtual ~AudioInputDevice() {}

    // Prepares capture for `client`. 0, or a negative status.
    virtual int32_t open(uint32_t sampleRate, uint32_t channels, AudioInputClient* client) = 0;
    // Starts and stops the flow of frames; after stop() returns no call to
    // the client is under way. 0, or a negative status.
    virtual int32_t start() = 0;
    virtual void stop() = 0;
    // Delay from the sound to its delivery, in milliseconds.
    virtual uint32_t latencyMs() const = 0;
    // "device", "silence", "tone" or "file".
    virtual const char* name() const = 0;
};

// The last wavoryx_set_audio_input, else WAVORYX_AUDIO_IN, else "auto".
std::string selectedAudioInput();
bool isValidAudioInputSpec(const std::string& spec);

// For tests: while `maker` is set, every input opened from now on gets
// its device from it, whatever the selection (a null device fails the open
// with -19). An empty function goes back to the selection.
using AudioInputDeviceMaker = std::function<std::unique_ptr<AudioInputDevice>()>;
void setAudioInputDeviceMaker(AudioInputDeviceMaker maker);

// Makes and opens the device `spec` names; "auto" falls back to "silence"
// silently. 0 and the open device, or a negative status and null.
int32_t openAudioInputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                             AudioInputClient* client, std::unique_ptr<AudioInputDevice>* out);

}  // namespace wv
