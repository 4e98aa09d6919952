#include "AudioChoice.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <wavoryx/platform.h>

namespace wvcli {
namespace {

void readVariable(const char* name, AudioChoice& choice) {
    choice = AudioChoice();
    const char* value = std::getenv(name);
    if (value == nullptr) return;
    choice.value = value;
    // The file as the library reads the text: the text holds it whole.
    std::string file(choice.value.size() + 1, '\0');
    const int length = wavoryx_audio_device_file(value, &file[0], unsigned(file.size()));
    if (length > 0) choice.file = file.substr(0, size_t(length));
}

std::string named(const char* variable, const AudioChoice& choice) {
    return std::string(variable) + "=" + choice.value;
}

}  // namespace

bool chooseAudioInput(AudioChoice& choice, std::string& why) {
    const char kVariable[] = "WAVORYX_AUDIO_IN";
    readVariable(kVariable, choice);
    if (choice.value.empty()) return true;
    if (!choice.file.empty() && ::access(choice.file.c_str(), R_OK) != 0) {
        why = named(kVariable, choice) + ": " + std::strerror(errno);
        return false;
    }
    // The engine's own check, so that both agree on what is an input.
    if (wavoryx_set_audio_input(choice.value.c_str()) != 0) {
        why = named(kVariable, choice) + ": not an input (auto, device, silence, tone:HZ or file:PATH)";
        return false;
    }
    return true;
}

bool chooseAudioOutput(AudioChoice& choice, std::string& why) {
    const char kVariable[] = "WAVORYX_AUDIO_OUT";
    readVariable(kVariable, choice);
    if (choice.value.empty()) return true;
    if (wavoryx_set_audio_output(choice.value.c_str()) != 0) {
        why = named(kVariable, choice) + ": not an output (auto, device, null or file:PATH)";
        return false;
    }
    return true;
}

}  // namespace wvcli
