#define WV_LOG_TAG "AudioOutput"

#include <cstdlib>
#include <mutex>
#include <utility>
#include <string>

#include <wavoryx/platform.h>

#include "base/Log.h"
#include "platform/audio/AudioOutputDevice.h"
#include "platform/audio/OpenDevice.h"
#include "platform/audio/ClockOutputDevice.h"
#include "platform/audio/PortAudioOutputDevice.h"

namespace wv {
namespace {

std::mutex gSelectionLock;
bool gSelectionSet = false;
std::string gSelection;
AudioOutputDeviceMaker gDeviceMaker;

const char kFilePrefix[] = "file:";
constexpr size_t kFilePrefixLength = sizeof kFilePrefix - 1;

bool isFileSpec(const std::string& spec) {
    return spec.compare(0, kFilePrefixLength, kFilePrefix) == 0 &&
           spec.size() > kFilePrefixLength;
}

}  // namespace

bool isValidAudioOutputSpec(const std::string& spec) {
    return spec == "auto" || spec == "device" || spec == "null" || isFileSpec(spec);
}

std::string selectedAudioOutput() {
    {
        std::lock_guard<std::mutex> guard(gSelectionLock);
        if (gSelectionSet) return gSelection;
    }
    const char* env = std::getenv("WAVORYX_AUDIO_OUT");
    if (env == nullptr || *env == '\0') return "auto";
    if (!isValidAudioOutputSpec(env)) {
        WV_LOGW("WAVORYX_AUDIO_OUT=%s is not a device; using auto", env);
        return "auto";
    }
    return env;
}

double devicePaceFromEnvironment() {
    const char* env = std::getenv("WAVORYX_DEVICE_PACE");
    if (env == nullptr || *env == '\0') return 1.0;
    char* end = nullptr;
    const double pace = std::strtod(env, &end);
    if (*end != '\0' || !(pace > 0.0) || pace > 1e6) {
        WV_LOGW("WAVORYX_DEVICE_PACE=%s is not a positive number; using 1", env);
        return 1.0;
    }
    return pace;
}

void setAudioOutputDeviceMaker(AudioOutputDeviceMaker maker) {
    std::lock_guard<std::mutex> guard(gSelectionLock);
    gDeviceMaker = std::move(maker);
}

int32_t openAudioOutputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                              AudioOutputClient* client, std::unique_ptr<AudioOutputDevice>* out) {
    out->reset();
    AudioOutputDeviceMaker maker;
    {
        std::lock_guard<std::mutex> guard(gSelectionLock);
        maker = gDeviceMaker;
    }
    if (maker) return openDevice(maker(), sampleRate, channels, client, out);
    std::unique_ptr<AudioOutputDevice> device;
    if (spec == "device" || spec == "auto") {
        const int32_t err = openDevice<AudioOutputDevice>(std::make_unique<PortAudioOutputDevice>(),
                                                           sampleRate, channels, client, out);
        if (err == 0) return 0;
        if (spec == "device") {
            WV_LOGE("the audio output device cannot be opened (%d)", err);
            return err;
        }
        WV_LOGI("no audio output device; playing to the null device");
        device.reset(new ClockOutputDevice(devicePaceFromEnvironment()));
    } else if (spec == "null") {
        device.reset(new ClockOutputDevice(devicePaceFromEnvironment()));
    } else if (isFileSpec(spec)) {
        device.reset(new ClockOutputDevice(devicePaceFromEnvironment(),
                                           spec.substr(kFilePrefixLength)));
    } else {
        WV_LOGE("unknown audio output %s", spec.c_str());
        return -22;
    }
    return openDevice(std::move(device), sampleRate, channels, client, out);
}

}  // namespace wv

extern "C" int wavoryx_set_audio_output(const char* spec) {
    if (spec != nullptr && !wv::isValidAudioOutputSpec(spec)) return -1;
    std::lock_guard<std::mutex> guard(wv::gSelectionLock);
    wv::gSelectionSet = spec != nullptr;
    wv::gSelection = spec != nullptr ? spec : "";
    return 0;
}
