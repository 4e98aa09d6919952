// What an audio file is, from its first bytes rather than its name (an
// extension may lie), as wavoryx_file_format tells it.
#pragma once

#include <string>

namespace wv {

// "WAV", "MP3", "FLAC", "Ogg Vorbis", "Ogg Opus", "Ogg", "MP4", "3GP" or
// "AMR"; else the upper-cased extension, else "unknown".
std::string fileFormatName(const std::string& path);

// Whether an MP3 file's first frame (after an ID3v2 tag) carries the tag of
// a variable bit rate ("Xing" or "VBRI"; constant-rate files carry "Info"
// or none).
bool mp3StatesVariableRate(const std::string& path);

}  // namespace wv
