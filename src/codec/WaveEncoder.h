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
// The header is written with sizes 0/36 at initEncoder(), rewritten in
// place by refreshHeader() with the sizes of the data in the file so far
// (a recording does it every second, so that a process that dies leaves a
// playable file), and with the final sizes at flushEncoding(). An output
// that cannot seek (a FIFO) gets 0xFFFFFFFF sizes at once and no rewrite. Sizes are 32-bit,
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
    int initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate, int format) override;
    // Writes the samples straight from `pcm`.
    int encoding(const int16_t* pcm, int bytes) override;
    // Retries a held remainder (WRITE_STORAGE_FULL when it still does not
    // fit), then rewrites the header with the sizes of the data in the file.
    // A caller that prefers a shorter file to none drops the remainder
    // first (dropHeld): it is then left out of the file and of the header.
    int flushEncoding() override;
    // Rewrites the header, without moving the file offset, with the sizes
    // of the data that reached the file so far. A FileWriter status.
    int refreshHeader();
    // A dropped remainder is not counted in the header either.
    void dropHeld() override;

    // The header as it was last written.
    const uint8_t* header() const { return mHeader; }

private:
    void buildHeader(uint64_t dataBytes);
    // Rewrites the header with the sizes of the data in the file.
    int writeSizes();

    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    uint64_t mPendingBytes = 0;  // PCM bytes passed since the last header
    uint64_t mDataBytes = 0;     // PCM bytes counted in mHeader (those in the file)
    uint8_t mHeader[HEADER_BYTES] = {};
};

}  // namespace wv
