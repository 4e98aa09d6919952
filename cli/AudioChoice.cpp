#include "AudioChoice.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <wavoryx/platform.h>

namespace wvcli {
namespace {

const char kFilePrefix[] = "file:";
constexpr size_t kFilePrefixLength = sizeof kFilePrefix - 1;

void readVariable(const char* name, AudioChoice& choice) {
    choice = AudioChoice();
    const char* value = std::getenv(name);
    if (value == nullptr) return;
    choice.value = value;
    if (choice.value.compare(0, kFilePrefixLength, kFilePrefix) == 0) {
        choice.file = choice.value.substr(kFilePrefixLength);
    }
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
