// Where an AudioOutput's frames go. A device drives its output from its own
// thread in one of two ways:
//  - a fixed-rate device (deviceRate() > 0) asks for stereo frames at its
//    own rate through AudioOutputClient::renderStereo;
//  - a clock device (deviceRate() == 0) reports the passing of play time
//    through AudioOutputClient::advance, and the output drops the frames
//    that time has played.
//
// Selection (see wavoryx_set_audio_output in <wavoryx/platform.h>):
//   "device"     the system's default output through PortAudio
//   "null"       a clock device, no sound
//   "file:PATH"  a clock device that also records every frame handed to the
//                output into a 16-bit WAV at PATH (at the output's rate)
//   "auto"       "device" if it opens, else "null" (the default)
// WAVORYX_DEVICE_PACE=N runs clock devices N times faster than real time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace wv {

class AudioOutputClient {
public:
    // Fills `frames` interleaved stereo frames at the device's rate.
    virtual void renderStereo(int16_t* out, size_t frames) = 0;
    // `playedUs` microseconds of play time have passed.
    virtual void advance(int64_t playedUs) = 0;

protected:
    ~AudioOutputClient() {}
};

class AudioOutputDevice {
public:
    virtual ~AudioOutputDevice() {}

    // Starts calling `client` for an output of `sampleRate` Hz and
    // `channels` channels. 0, or a negative status (nothing is called then).
    virtual int32_t open(uint32_t sampleRate, uint32_t channels, AudioOutputClient* client) = 0;
    // Stops calling the client; when it returns, no call is under way.
    virtual void close() = 0;
    // The rate of renderStereo calls in Hz, or 0 for a clock device.
    virtual uint32_t deviceRate() const = 0;
    // The queue, in frames, that suits this device for an output of
    // `sampleRate` Hz.
    virtual size_t defaultBufferFrames(uint32_t sampleRate) const = 0;
    // Frames handed to the output by its client, on the output's thread,
    // before they are queued.
    virtual void onQueued(const int16_t* /*frames*/, size_t /*count*/) {}
    // Short name for logs: "device", "null" or "file".
    virtual const char* name() const = 0;
};

// The selection in force: the last wavoryx_set_audio_output, else the
// environment variable WAVORYX_AUDIO_OUT, else "auto".
std::string selectedAudioOutput();
// Whether `spec` names a device kind ("auto", "device", "null", "file:PATH").
bool isValidAudioOutputSpec(const std::string& spec);
// WAVORYX_DEVICE_PACE, or 1 when unset or not a positive number.
double devicePaceFromEnvironment();

// For tests: while `maker` is set, every output opened from now on gets
// its device from it, whatever the selection (a null device fails the open
// with -19). An empty function goes back to the selection.
using AudioOutputDeviceMaker = std::function<std::unique_ptr<AudioOutputDevice>()>;
void setAudioOutputDeviceMaker(AudioOutputDeviceMaker maker);

// Makes and opens the device `spec` names for the output; falls back from
// "auto" to "null" silently. Returns 0 and the open device, or a negative
// status and null.
int32_t openAudioOutputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                              AudioOutputClient* client, std::unique_ptr<AudioOutputDevice>* out);

}  // namespace wv
