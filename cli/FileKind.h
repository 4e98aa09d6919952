// The container of an audio file, named from its first bytes ("WAV", "MP3",
// "FLAC", "Ogg Vorbis", "Ogg Opus", "MP4", "3GP", "AMR"), for `info`. The
// engine does not report the container, and the extension may lie.
// Falls back to the upper-cased extension, or "unknown".
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
