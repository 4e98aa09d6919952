#define WV_LOG_TAG "AudioDevice"
#include "platform/audio/PortAudioOutputDevice.h"

#include <portaudio.h>

#include <algorithm>

#include "base/Log.h"
#include "platform/audio/PortAudioSession.h"

namespace wv {
namespace {

constexpr int32_t kNoInit = -19;
constexpr int32_t kBadValue = -22;

int paCallback(const void* input, void* output, unsigned long frames,
               const PaStreamCallbackTimeInfo* timeInfo, PaStreamCallbackFlags flags, void* self) {
    (void)input;
    (void)timeInfo;
    (void)flags;
    static_cast<AudioOutputClient*>(self)->renderStereo(static_cast<int16_t*>(output), frames);
    return paContinue;
}

}  // namespace

PortAudioOutputDevice::~PortAudioOutputDevice() { close(); }

int32_t PortAudioOutputDevice::open(uint32_t sampleRate, uint32_t channels,
                                    AudioOutputClient* client) {
    if (channels < 1 || channels > 2) {
        WV_LOGE("the output device plays 1 or 2 channels, not %u", channels);
        return kBadValue;
    }
    if (!PortAudioSession::acquire()) return kNoInit;
    mSession = true;
    const PaDeviceIndex device = Pa_GetDefaultOutputDevice();
    const PaDeviceInfo* info = device == paNoDevice ? nullptr : Pa_GetDeviceInfo(device);
    if (info == nullptr) {
        WV_LOGI("no audio output device");
        close();
        return kNoInit;
    }
    PaStreamParameters params = {};
    params.device = device;
    params.channelCount = 2;
    params.sampleFormat = paInt16;
    params.suggestedLatency = info->defaultHighOutputLatency;
    double rate = sampleRate;
    if (Pa_IsFormatSupported(nullptr, &params, rate) != paFormatIsSupported) {
        rate = info->defaultSampleRate;
    }
    mClient = client;
    PaStream* stream = nullptr;
    PaError err = Pa_OpenStream(&stream, nullptr, &params, rate, paFramesPerBufferUnspecified,
                                paNoFlag, paCallback, client);
    if (err == paNoError) {
        mStream = stream;
        mDeviceRate = static_cast<uint32_t>(rate);
        err = Pa_StartStream(stream);
    }
    if (err != paNoError) {
        WV_LOGE("cannot open the audio output: %s", Pa_GetErrorText(err));
        close();
        return kNoInit;
    }
    return 0;
}

void PortAudioOutputDevice::close() {
    if (mStream != nullptr) {
        PaStream* stream = static_cast<PaStream*>(mStream);
        Pa_AbortStream(stream);
        Pa_CloseStream(stream);
        mStream = nullptr;
    }
    if (mSession) {
        PortAudioSession::release();
        mSession = false;
    }
    mDeviceRate = 0;
}

size_t PortAudioOutputDevice::defaultBufferFrames(uint32_t sampleRate) const {
    return std::max<size_t>(256, sampleRate / 25);
}

}  // namespace wv
