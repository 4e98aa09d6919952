// Pictures of waveform peaks as the engine samples them (one byte per
// column, 0 silence to 255 for peaks at or above half of full scale).
#ifndef WAVORYX_CLI_WAVEFORMPICTURE_H
#define WAVORYX_CLI_WAVEFORMPICTURE_H

#include <cstdint>
#include <string>
#include <vector>

namespace wvcli {

// `rows` lines of UTF-8 text, one character per peak: bars grow from the
// bottom line in eighths of a line (U+2581..U+2588); any peak above 0 shows
// at least one eighth.
std::vector<std::string> drawTextWaveform(const std::vector<uint8_t>& peaks, int rows);

// An 8-bit RGB PNG, one column per peak and `height` pixels high: each
// peak is a vertical bar mirrored about the middle line, into a new file at
// `path` (an existing one is refused). Returns false with `why` set when the
// file cannot be written (a partial file is removed).
bool writeWaveformPng(const std::string& path, const std::vector<uint8_t>& peaks, int height, std::string& why);

}  // namespace wvcli

#endif
