// Waveform data files for web players and other tools: the binary (.dat)
// and JSON layouts of waveform data version 2: one channel (the minimum and
// maximum over all of the audio's channels), or one per audio channel.
//
// Binary, little-endian: int32 version (2), uint32 flags (bit 0 set for
// 8-bit values), int32 sample rate (Hz), int32 samples per pixel (frames),
// uint32 length (pixels), int32 channels; then per pixel and channel the
// minimum and the maximum, as int8 or int16. JSON: an object with "version",
// "channels", "sample_rate", "samples_per_pixel", "bits", "length" and
// "data", the pairs flattened: [min0, max0, min1, max1, ...].
//
// 8-bit values are the 16-bit ones shifted right by 8 (rounded down:
// -32768 is -128, 32767 is 127). Data marked `sharedRules` follow what the
// other waveform data tools write instead, so their users can compare files
// byte for byte: 8-bit values divided by 256 rounded toward zero, and a
// binary file of one channel in version 1 (the same header without the
// channel count).
#ifndef WAVORYX_CLI_WAVEFORMFILES_H
#define WAVORYX_CLI_WAVEFORMFILES_H

#include <cstdint>
#include <string>
#include <vector>

namespace wvcli {

struct PeakData {
    int32_t sampleRate = 0;
    int32_t samplesPerPixel = 0;
    int bits = 16;                // 8 or 16
    int channels = 1;             // of data: pairs per pixel
    std::vector<int16_t> minMax;  // per pixel, one (min, max) pair per channel
    bool sharedRules = false;
};

std::string datBytes(const PeakData& data);
std::string jsonText(const PeakData& data);

// Writes `contents` to a new file at `path` (an existing one is refused);
// false with `why` on any error, storage full included, the partial file
// removed.
bool writeNewFile(const std::string& path, const std::string& contents, std::string& why);

}  // namespace wvcli

#endif
