// A container parser: the tracks of one media file and their formats.
//
// Create() detects the container. A WAV file whose samples are 16-bit
// little-endian PCM starting at byte 44 gets a track of MIME type
// "audio/raw" that reads the file in place; every other container, other
// WAV files included, is parsed by the general demuxer and its audio tracks
// carry the MIME type of their codec ("audio/mpeg", "audio/mp4a-latm",
// "audio/vorbis", "audio/opus", "audio/flac", "audio/3gpp", "audio/amr-wb",
// "audio/x-wav" for other PCM, ...), never one containing "raw". Video and
// other tracks are listed too ("video/...", "image/...", "text/...").
//
// Track metadata states kKeyMIMEType always, and for audio tracks the
// sample rate, channel count (2 for sources of more channels, which the
// decoder downmixes), channel mask and duration when the container knows
// them. A track whose rate or channel count is unknown simply lacks the key.
//
// The extractor and its track sources share ownership of the parser state;
// a track source keeps working after the extractor object is dropped.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/media/DataSource.h"
#include "platform/media/MediaSource.h"
#include "platform/media/MetaData.h"

namespace wv {

class MediaExtractor {
public:
    enum GetTrackMetaDataFlags { kIncludeExtensiveMetaData = 1 };

    // Null when no parser accepts the source. `mime` is a hint and may be null.
    static std::shared_ptr<MediaExtractor> Create(const std::shared_ptr<DataSource>& source,
                                                  const char* mime = nullptr);

    virtual ~MediaExtractor() = default;
    virtual size_t countTracks() = 0;
    // Null for an index out of range. The source is not started.
    virtual std::shared_ptr<MediaSource> getTrack(size_t index) = 0;
    virtual std::shared_ptr<MetaData> getTrackMetaData(size_t index, uint32_t flags = 0) = 0;
};

// Positional output channel mask for a count of channels (0x1, 0x3, 0x7,
// 0x33, 0x37, 0x3f, 0x13f, 0x63f for 1 to 8); 0 for any other count.
int32_t channelMaskForCount(int32_t channels);

}  // namespace wv
