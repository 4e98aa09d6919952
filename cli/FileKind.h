// The container of an audio file ("WAV", "MP3", "FLAC", "Ogg Vorbis", "Ogg
// Opus", "MP4", "3GP", "AMR", else the upper-cased extension or "unknown"),
// for `info` and for choosing how a part is loaded, as the library tells it
// from the file's first bytes (wavoryx_file_format): the extension may lie.
#ifndef WAVORYX_CLI_FILEKIND_H
#define WAVORYX_CLI_FILEKIND_H

#include <string>

#include <wavoryx/Wavoryx.h>

namespace wvcli {

std::string fileKind(const std::string& path);

// Whether an MP3 file's first frame carries the tag of a variable bit rate
// ("Xing" or "VBRI"; constant-rate files carry "Info" or none).
bool statesVariableRate(const std::string& path);

}  // namespace wvcli

#endif
