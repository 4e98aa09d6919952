// The audio input and output that WAVORYX_AUDIO_IN and WAVORYX_AUDIO_OUT
// choose, checked before anything starts, with the library's reading of
// them (wavoryx_audio_device_file, wavoryx_set_audio_input/output). The
// engine takes a value it does not know as `auto` with only a log line, so
// `mic` or `tone:abc` would record silence without a word; the command
// refuses them instead.
#ifndef WAVORYX_CLI_AUDIOCHOICE_H
#define WAVORYX_CLI_AUDIOCHOICE_H

#include <string>

namespace wvcli {

struct AudioChoice {
    std::string value;  // as set; "" when the variable is unset or empty (auto)
    std::string file;   // the PATH of "file:PATH", else ""
};

// Reads WAVORYX_AUDIO_IN into `choice`. False with `why` (one line, naming
// the variable and its value) when the engine would not take it, or the
// file of "file:PATH" cannot be read.
bool chooseAudioInput(AudioChoice& choice, std::string& why);

// Likewise for WAVORYX_AUDIO_OUT (whose "file:PATH" is written, not read).
bool chooseAudioOutput(AudioChoice& choice, std::string& why);

}  // namespace wvcli

#endif
