// A 16-bit PCM WAV file written front to back: a 44-byte RIFF header, then
// interleaved little-endian samples. The header's sizes are filled in by
// close() (and by the destructor), so a file that was never closed says it
// holds no data. The file is an output (see OutputFile): created new, or
// written beside an existing file and put in its place by close(); a sink
// discarded after a failed write leaves the target as it was. A device or
// FIFO at the path is written as it is (sizes 0xFFFFFFFF when it cannot
// seek).
//
// One thread at a time; the owner decides which.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/OutputFile.h"

namespace wv {

class WavFileSink {
public:
    WavFileSink() = default;
    ~WavFileSink();
    WavFileSink(const WavFileSink&) = delete;
    WavFileSink& operator=(const WavFileSink&) = delete;

    // Opens `path` as an output. 0, or -errno (nothing created or changed).
    int32_t open(const std::string& path, uint32_t sampleRate, uint32_t channels);
    // Appends whole frames. 0, or -errno (the file is then left as it is).
    int32_t write(const int16_t* frames, size_t count);
    // Writes the final sizes, closes and puts the file in place (a file
    // whose final header could not be written is discarded). Safe to call
    // twice.
    void close();
    // Closes without finishing: what open() created is removed.
    void discard();

    bool isOpen() const { return mFd >= 0; }
    uint64_t framesWritten() const { return mFrames; }

private:
    int32_t writeHeader(uint64_t dataBytes);

    int mFd = -1;
    OutputFile mFile;
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    uint64_t mFrames = 0;
};

}  // namespace wv
