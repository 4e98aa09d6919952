// Reads a whole file through the media layer: the first audio track, raw
// or decoded, to the end of its stream.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace wv {
class MediaSource;
}

namespace wvtest {

struct DecodedAudio {
    std::string mime;  // of the track
    int rate = 0;      // of the decoded format
    int channels = 0;
    std::vector<int16_t> samples;        // interleaved
    std::vector<int64_t> bufferTimesUs;  // kKeyTime of each buffer
    std::vector<size_t> bufferFrames;    // frames of each buffer
    size_t frames() const { return channels ? samples.size() / size_t(channels) : 0; }
};

// The started PCM source of the file's first audio track (the track itself
// when raw, else a decoder over it) and the track's MIME type; null on any
// failure.
std::shared_ptr<wv::MediaSource> openPcmSource(const std::string& path, std::string* mime = nullptr);

// Appends buffers of `source` to `out` until the stream ends or `maxBuffers`
// were read; the first read seeks to `seekUs` when that is not negative.
// Returns the status that ended the reading.
int readAll(wv::MediaSource& source, DecodedAudio* out, int64_t seekUs = -1, size_t maxBuffers = SIZE_MAX);

// openPcmSource + readAll from the start; false when the file cannot be opened.
bool decodeWithMediaLayer(const std::string& path, DecodedAudio* out);

}  // namespace wvtest
