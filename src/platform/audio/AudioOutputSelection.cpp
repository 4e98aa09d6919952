#define WV_LOG_TAG "AudioOutput"

#include <cstdlib>
#include <string>
#include <utility>

#include <wavoryx/platform.h>

#include "base/Log.h"
#include "platform/audio/AudioOutputDevice.h"
#include "platform/audio/ClockOutputDevice.h"
#include "platform/audio/DeviceSelection.h"
#include "platform/audio/PortAudioOutputDevice.h"

namespace wv {
namespace {

const DeviceKinds kOutputKinds = {
    WV_LOG_TAG,
    "output",
    "WAVORYX_AUDIO_OUT",
    "is not a device",
    &isValidAudioOutputSpec,
    "null",
    WAVORYX_LOG_INFO,
    "no audio output device; playing to the null device",
};

std::unique_ptr<AudioOutputDevice> makeSystemOutput() {
    return std::make_unique<PortAudioOutputDevice>();
}

// The outputs that only keep time (and maybe write a file); null for a text
// that names none.
std::unique_ptr<AudioOutputDevice> makeNamedOutput(const std::string& text) {
    if (text == "null") return std::make_unique<ClockOutputDevice>(devicePaceFromEnvironment());
    const std::string path = kindArgument(text, "file");
    if (!path.empty())
        return std::make_unique<ClockOutputDevice>(devicePaceFromEnvironment(), path);
    return nullptr;
}

DeviceChoice<AudioOutputDevice>& outputChoice() {
    static DeviceChoice<AudioOutputDevice> choice(kOutputKinds, &makeSystemOutput,
                                                  &makeNamedOutput);
    return choice;
}

}  // namespace

bool isValidAudioOutputSpec(const std::string& spec) {
    return spec == "auto" || spec == "device" || spec == "null" ||
           !kindArgument(spec, "file").empty();
}

std::string selectedAudioOutput() { return outputChoice().selection().selected(); }

double devicePaceFromEnvironment() {
    const char* env = std::getenv("WAVORYX_DEVICE_PACE");
    if (env == nullptr || *env == '\0') return 1.0;
    char* end = nullptr;
    const double pace = std::strtod(env, &end);
    if (*end != '\0' || !(pace > 0.0) || pace > 1e6) {
        WV_LOGW("WAVORYX_DEVICE_PACE=%s is not a positive number up to 1000000; using 1", env);
        return 1.0;
    }
    return pace;
}

void setAudioOutputDeviceMaker(AudioOutputDeviceMaker maker) {
    outputChoice().setTestMaker(std::move(maker));
}

int32_t openAudioOutputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                              AudioOutputClient* client, std::unique_ptr<AudioOutputDevice>* out) {
    return outputChoice().open(spec, sampleRate, channels, client, out);
}

}  // namespace wv

extern "C" int wavoryx_set_audio_output(const char* spec) {
    return wv::outputChoice().selection().set(spec);
}
