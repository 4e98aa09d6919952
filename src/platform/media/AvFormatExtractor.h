// The general container parser, over FFmpeg's demuxers: MP3, MP4/M4A/3GP,
// Ogg, FLAC, WAV of any kind, AMR and whatever else the installed libraries
// read. Track metadata follows MediaExtractor's contract; the channel count
// of a track of more than two channels is reported as 2 because the decoder
// downmixes it (kKeySourceChannelCount keeps the container's count).
#pragma once

#include <memory>
#include <vector>

#include "platform/media/AvDemuxer.h"
#include "platform/media/MediaExtractor.h"

namespace wv {

class AvFormatExtractor : public MediaExtractor {
public:
    // Null when no container format accepts the source.
    static std::shared_ptr<AvFormatExtractor> Create(const std::shared_ptr<DataSource>& source);

    size_t countTracks() override { return mTrackMeta.size(); }
    std::shared_ptr<MediaSource> getTrack(size_t index) override;
    std::shared_ptr<MetaData> getTrackMetaData(size_t index, uint32_t flags = 0) override;

private:
    explicit AvFormatExtractor(std::shared_ptr<AvDemuxer> demuxer);
    std::shared_ptr<MetaData> describeStream(int index) const;
    // The length `st` states exactly, in frames (see kKeyFrameCount).
    bool statedFrames(const AVStream& st, int64_t* frames) const;

    std::shared_ptr<AvDemuxer> mDemuxer;
    std::vector<std::shared_ptr<MetaData>> mTrackMeta;
};

}  // namespace wv
