#define WV_LOG_TAG "AudioInput"

#include <unistd.h>

#include <cstdlib>
#include <mutex>
#include <utility>
#include <string>

#include <wavoryx/platform.h>

#include "base/Log.h"
#include "platform/audio/AudioInputDevice.h"
#include "platform/audio/OpenDevice.h"
#include "platform/audio/AudioOutputDevice.h"
#include "platform/audio/FileInputDevice.h"
#include "platform/audio/GeneratedInputDevice.h"
#include "platform/audio/PortAudioInputDevice.h"

namespace wv {
namespace {

std::mutex gSelectionLock;
bool gSelectionSet = false;
std::string gSelection;
AudioInputDeviceMaker gDeviceMaker;

const char kTonePrefix[] = "tone:";
constexpr size_t kTonePrefixLength = sizeof kTonePrefix - 1;
constexpr double kMaxToneHz = 1e6;

// The tone's frequency, or 0 when `spec` is not "tone:HZ" with HZ > 0.
double toneHz(const std::string& spec) {
    if (spec.compare(0, kTonePrefixLength, kTonePrefix) != 0) return 0;
    const char* text = spec.c_str() + kTonePrefixLength;
    char* end = nullptr;
    const double hz = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(hz > 0) || hz > kMaxToneHz) return 0;
    return hz;
}

const char kFilePrefix[] = "file:";
constexpr size_t kFilePrefixLength = sizeof kFilePrefix - 1;

// The path of "file:PATH", or "" when `spec` is not that form.
std::string filePath(const std::string& spec) {
    if (spec.compare(0, kFilePrefixLength, kFilePrefix) != 0) return "";
    return spec.substr(kFilePrefixLength);
}

}  // namespace

bool isValidAudioInputSpec(const std::string& spec) {
    if (spec == "auto" || spec == "device" || spec == "silence" || toneHz(spec) > 0) return true;
    // A file that cannot be read is refused now rather than at every start.
    const std::string path = filePath(spec);
    return !path.empty() && ::access(path.c_str(), R_OK) == 0;
}

std::string selectedAudioInput() {
    {
        std::lock_guard<std::mutex> guard(gSelectionLock);
        if (gSelectionSet) return gSelection;
    }
    const char* env = std::getenv("WAVORYX_AUDIO_IN");
    if (env == nullptr || *env == '\0') return "auto";
    if (!isValidAudioInputSpec(env)) {
        WV_LOGW("WAVORYX_AUDIO_IN=%s is not an input; using auto", env);
        return "auto";
    }
    return env;
}

void setAudioInputDeviceMaker(AudioInputDeviceMaker maker) {
    std::lock_guard<std::mutex> guard(gSelectionLock);
    gDeviceMaker = std::move(maker);
}

int32_t openAudioInputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                             AudioInputClient* client, std::unique_ptr<AudioInputDevice>* out) {
    out->reset();
    AudioInputDeviceMaker maker;
    {
        std::lock_guard<std::mutex> guard(gSelectionLock);
        maker = gDeviceMaker;
    }
    if (maker) return openDevice(maker(), sampleRate, channels, client, out);
    std::unique_ptr<AudioInputDevice> device;
    if (spec == "device" || spec == "auto") {
        const int32_t err = openDevice<AudioInputDevice>(std::make_unique<PortAudioInputDevice>(),
                                                          sampleRate, channels, client, out);
        if (err == 0) return 0;
        if (spec == "device") {
            WV_LOGE("the audio input device cannot be opened (%d)", err);
            return err;
        }
        WV_LOGW("no audio input device; recording silence");
        device.reset(new GeneratedInputDevice(0, devicePaceFromEnvironment()));
    } else if (spec == "silence") {
        device.reset(new GeneratedInputDevice(0, devicePaceFromEnvironment()));
    } else if (toneHz(spec) > 0) {
        device.reset(new GeneratedInputDevice(toneHz(spec), devicePaceFromEnvironment()));
    } else if (!filePath(spec).empty()) {
        device.reset(new FileInputDevice(filePath(spec), devicePaceFromEnvironment()));
    } else {
        WV_LOGE("unknown audio input %s", spec.c_str());
        return -22;
    }
    return openDevice(std::move(device), sampleRate, channels, client, out);
}

}  // namespace wv

extern "C" int wavoryx_set_audio_input(const char* spec) {
    if (spec != nullptr && !wv::isValidAudioInputSpec(spec)) return -1;
    std::lock_guard<std::mutex> guard(wv::gSelectionLock);
    wv::gSelectionSet = spec != nullptr;
    wv::gSelection = spec != nullptr ? spec : "";
    return 0;
}
