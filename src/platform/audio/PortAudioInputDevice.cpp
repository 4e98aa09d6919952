#define WV_LOG_TAG "AudioDevice"
#include "platform/audio/PortAudioInputDevice.h"

#include <portaudio.h>

#include "base/Log.h"
#include "platform/audio/PortAudioSession.h"

namespace wv {
namespace {

constexpr int32_t kNoInit = -19;
constexpr int32_t kBadValue = -22;

int paCallback(const void* input, void*, unsigned long frames, const PaStreamCallbackTimeInfo*,
               PaStreamCallbackFlags, void* client) {
    if (input != nullptr) {
        static_cast<AudioInputClient*>(client)->onCaptured(static_cast<const int16_t*>(input),
                                                           frames);
    }
    return paContinue;
}

}  // namespace

PortAudioInputDevice::~PortAudioInputDevice() { close(); }

int32_t PortAudioInputDevice::open(uint32_t sampleRate, uint32_t channels,
                                   AudioInputClient* client) {
    if (channels < 1 || channels > 2) {
        WV_LOGE("the input device captures 1 or 2 channels, not %u", channels);
        return kBadValue;
    }
    if (!PortAudioSession::acquire()) return kNoInit;
    mSession = true;
    const PaDeviceIndex device = Pa_GetDefaultInputDevice();
    const PaDeviceInfo* info = device == paNoDevice ? nullptr : Pa_GetDeviceInfo(device);
    if (info == nullptr) {
        WV_LOGI("no audio input device");
        close();
        return kNoInit;
    }
    PaStreamParameters params = {};
    params.device = device;
    params.channelCount = int(channels);
    params.sampleFormat = paInt16;
    params.suggestedLatency = info->defaultHighInputLatency;
    PaStream* stream = nullptr;
    const PaError err = Pa_OpenStream(&stream, &params, nullptr, sampleRate,
                                      paFramesPerBufferUnspecified, paNoFlag, paCallback, client);
    if (err != paNoError) {
        WV_LOGE("cannot open the audio input at %u Hz, %u channels: %s", sampleRate, channels,
                Pa_GetErrorText(err));
        close();
        return kNoInit;
    }
    mStream = stream;
    return 0;
}

int32_t PortAudioInputDevice::start() {
    if (mStream == nullptr) return kNoInit;
    if (mRunning) return 0;
    const PaError err = Pa_StartStream(static_cast<PaStream*>(mStream));
    if (err != paNoError) {
        WV_LOGE("cannot start the audio input: %s", Pa_GetErrorText(err));
        return kNoInit;
    }
    mRunning = true;
    return 0;
}

void PortAudioInputDevice::stop() {
    if (mStream == nullptr || !mRunning) return;
    // Waits for a callback under way to finish.
    Pa_StopStream(static_cast<PaStream*>(mStream));
    mRunning = false;
}

uint32_t PortAudioInputDevice::latencyMs() const {
    if (mStream == nullptr) return 0;
    const PaStreamInfo* info = Pa_GetStreamInfo(static_cast<PaStream*>(mStream));
    return info == nullptr ? 0 : uint32_t(info->inputLatency * 1000.0 + 0.5);
}

void PortAudioInputDevice::close() {
    stop();
    if (mStream != nullptr) {
        Pa_CloseStream(static_cast<PaStream*>(mStream));
        mStream = nullptr;
    }
    if (mSession) {
        PortAudioSession::release();
        mSession = false;
    }
}

}  // namespace wv
