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
// real time. Those inputs are not real-time hardware: when the recorder
// falls behind they wait for it (see canWait) and their clock catches up
// afterwards, so a slow or starved recorder never makes them lose frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace wv {

class AudioInputClient {
public:
    // `count` frames were captured; called on the device's thread. For a
    // device that canWait() the call may block until every frame is taken
    // (or capture stops); for any other it returns at once.
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
    // Whether the device may be held in onCaptured() until its frames are
    // taken. Hardware cannot wait: what finds no room is lost (and filled
    // with silence further on); an input that makes its own frames can.
    virtual bool canWait() const { return false; }
};

// The last wavoryx_set_audio_input, else WAVORYX_AUDIO_IN, else "auto".
std::string selectedAudioInput();
bool isValidAudioInputSpec(const std::string& spec);

// For tests: while `maker` is set, every input opened from now on gets
// its device from it, whatever the selection (a null device fails the open
// with -19). An empty function goes back to the selection.
using AudioInputDeviceMaker = std::function<std::unique_ptr<AudioInputDevice>()>;
void setAudioInputDeviceMaker(AudioInputDeviceMaker maker);

// For tests: while set, every input's thread calls `hook` before it hands a
// block to its callback, so that a test can starve the recorder at will.
// An empty function removes it.
void setAudioInputDeliveryHook(std::function<void()> hook);

// Makes and opens the device `spec` names; "auto" falls back to "silence"
// silently. 0 and the open device, or a negative status and null.
int32_t openAudioInputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                             AudioInputClient* client, std::unique_ptr<AudioInputDevice>* out);

}  // namespace wv
