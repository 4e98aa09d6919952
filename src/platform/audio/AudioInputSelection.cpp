#define WV_LOG_TAG "AudioInput"

#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>

#include <wavoryx/platform.h>

#include "platform/audio/AudioInputDevice.h"
#include "platform/audio/AudioOutputDevice.h"
#include "platform/audio/DeviceSelection.h"
#include "platform/audio/FileInputDevice.h"
#include "platform/audio/GeneratedInputDevice.h"
#include "platform/audio/PortAudioInputDevice.h"

namespace wv {
namespace {

constexpr double kMaxToneHz = 1e6;

// The tone's frequency, or 0 when `spec` is not "tone:HZ" with HZ > 0.
double toneHz(const std::string& spec) {
    const std::string argument = kindArgument(spec, "tone");
    const char* text = argument.c_str();
    char* end = nullptr;
    const double hz = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(hz > 0) || hz > kMaxToneHz) return 0;
    return hz;
}

const DeviceKinds kInputKinds = {
    WV_LOG_TAG,
    "input",
    "WAVORYX_AUDIO_IN",
    "is not an input",
    &isValidAudioInputSpec,
    "silence",
    WAVORYX_LOG_WARN,
    "no audio input device; recording silence",
};

std::unique_ptr<AudioInputDevice> makeSystemInput() {
    return std::make_unique<PortAudioInputDevice>();
}

// The inputs that make their own frames; null for a text that names none.
std::unique_ptr<AudioInputDevice> makeNamedInput(const std::string& text) {
    if (text == "silence") {
        return std::make_unique<GeneratedInputDevice>(0, devicePaceFromEnvironment());
    }
    const double hz = toneHz(text);
    if (hz > 0) return std::make_unique<GeneratedInputDevice>(hz, devicePaceFromEnvironment());
    const std::string path = kindArgument(text, "file");
    if (!path.empty()) return std::make_unique<FileInputDevice>(path, devicePaceFromEnvironment());
    return nullptr;
}

DeviceChoice<AudioInputDevice>& inputChoice() {
    static DeviceChoice<AudioInputDevice> choice(kInputKinds, &makeSystemInput, &makeNamedInput);
    return choice;
}

}  // namespace

bool isValidAudioInputSpec(const std::string& spec) {
    if (spec == "auto" || spec == "device" || spec == "silence" || toneHz(spec) > 0) return true;
    // A file that cannot be read is refused now rather than at every start.
    const std::string path = kindArgument(spec, "file");
    return !path.empty() && ::access(path.c_str(), R_OK) == 0;
}

std::string selectedAudioInput() { return inputChoice().selection().selected(); }

void setAudioInputDeviceMaker(AudioInputDeviceMaker maker) {
    inputChoice().setTestMaker(std::move(maker));
}

int32_t openAudioInputDevice(const std::string& spec, uint32_t sampleRate, uint32_t channels,
                             AudioInputClient* client, std::unique_ptr<AudioInputDevice>* out) {
    return inputChoice().open(spec, sampleRate, channels, client, out);
}

}  // namespace wv

extern "C" int wavoryx_set_audio_input(const char* spec) {
    return wv::inputChoice().selection().set(spec);
}
