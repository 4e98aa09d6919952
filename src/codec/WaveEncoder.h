// WaveEncoder: a WAV file of 16-bit PCM, a 44-byte RIFF header followed by
// the samples exactly as passed to encoding().
//
// Header layout (little-endian; byte offsets):
//    0 "RIFF"   4 RIFF size = data size + 36   8 "WAVE"
//   12 "fmt "  16 16 (format chunk size)       20 1 (PCM)
//   22 channel count                            24 sample rate (Hz)
//   28 byte rate = channels * 16 * rate / 8     32 block align = channels * 2
//   34 16 (bits per sample)                     36 "data"
//   40 data size in bytes
// The header is written twice: with sizes 0/36 at initEncoder(), and with
// the real sizes over the first one at finishEncoding(). Sizes are 32-bit,
// as the format allows: data beyond 4 GiB is written whole, and both size
// fields then hold 0xFFFFFFFF (readers take that as "to the end of the
// file") rather than a count that wrapped around.
#pragma once

#include <cstdint>

#include "codec/AudioEncoder.h"

namespace wv {

class WaveEncoder : public AudioEncoder {
public:
    static constexpr uint32_t HEADER_BYTES = 44;

    WaveEncoder() = default;
    ~WaveEncoder() override = default;

    // Stores rate and channels and writes the provisional header.
    // `bitrate` and `format` are ignored.
    int initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate,
                    int format) override;
    // Writes the samples straight from `pcm`.
    int encoding(const int16_t* pcm, int bytes) override;
    // Retries a held remainder, then rewrites the header with the sizes of
    // the data in the file and finishes the file. A remainder the storage
    // still cannot take is left out of the file and out of the header, so
    // the kept file stays consistent.
    int finishEncoding() override;

    // The header as it was last written.
    const uint8_t* header() const { return mHeader; }

private:
    void buildHeader(uint64_t dataBytes);

    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    uint64_t mPendingBytes = 0;  // PCM bytes passed since the last header
    uint64_t mDataBytes = 0;     // PCM bytes counted in mHeader
    uint8_t mHeader[HEADER_BYTES] = {};
};

}  // namespace wv
