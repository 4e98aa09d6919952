// The container parser for WAV files the engine can read in place: a
// 44-byte header (RIFF, WAVE, a 16-byte "fmt " chunk of format 1 with 16-bit
// samples and one or two channels, then the "data" chunk) followed directly
// by little-endian samples. Anything else is left to the general demuxer.
//
// Its one track has MIME type "audio/raw" and reads the samples as they lie
// in the file, in buffers of up to 4096 frames, each stamped with the media
// time of its first frame. The data length is the "data" chunk's size when
// that fits the file; a size of 0 or 0xFFFFFFFF, a size beyond the end of
// the file, or a file too big for a 32-bit size (> 4 GiB) use the file's
// length instead.
//
// Tags (title, artist, ... as the general demuxer names them, see
// kTagKeys) come from LIST/INFO and "id3 " chunks after the samples: only
// a file with bytes after its data chunk opens the general demuxer for
// them (reading its header and tag chunks, no samples).
#pragma once

#include <cstdint>
#include <memory>

#include "platform/media/MediaExtractor.h"

namespace wv {

struct WavPcmLayout {
    int32_t sampleRate = 0;
    int32_t channels = 0;
    int64_t dataOffset = 44;
    int64_t dataBytes = 0;  // whole frames only
    int64_t frames() const { return dataBytes / (2 * channels); }
    int64_t durationUs() const { return frames() * 1000000 / sampleRate; }
};

class WavPcmExtractor : public MediaExtractor {
public:
    // Null unless the source is a WAV file of the form above.
    static std::shared_ptr<WavPcmExtractor> Create(const std::shared_ptr<DataSource>& source);
    // Reads and checks the header; false when it is not of the form above.
    static bool parseLayout(DataSource& source, WavPcmLayout* layout);

    size_t countTracks() override { return 1; }
    std::shared_ptr<MediaSource> getTrack(size_t index) override;
    std::shared_ptr<MetaData> getTrackMetaData(size_t index, uint32_t flags = 0) override;
    // The track limited to frames [first, end) of the data (cut at its
    // end; empty when first lies past it). A seek stays inside the limits.
    std::shared_ptr<MediaSource> getTrackFrames(int64_t first, int64_t end);

private:
    WavPcmExtractor(std::shared_ptr<DataSource> source, const WavPcmLayout& layout);
    void readTrailingTags();

    std::shared_ptr<DataSource> mSource;
    WavPcmLayout mLayout;
    std::shared_ptr<MetaData> mMeta;
};

}  // namespace wv
