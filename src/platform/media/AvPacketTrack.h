// One track of the general demuxer as a media source. read() hands out the
// track's compressed packets as buffers (kKeyTime set when the packet has a
// time stamp); the decoder takes them without a copy through readPacket().
#pragma once

#include <memory>
#include <mutex>

#include "platform/media/AvDemuxer.h"
#include "platform/media/MediaSource.h"

struct AVCodecParameters;
struct AVPacket;

namespace wv {

class AvPacketTrack : public MediaSource {
public:
    AvPacketTrack(std::shared_ptr<AvDemuxer> demuxer, int streamIndex,
                  std::shared_ptr<MetaData> format);
    ~AvPacketTrack() override;

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    std::shared_ptr<MetaData> getFormat() override { return mFormat; }
    status_t read(MediaBuffer** buffer, const ReadOptions* options = nullptr) override;

    // Like read(), into `packet` (which the caller unreferences). A seek in
    // the options is done first; its status does not stop the read.
    status_t readPacket(AVPacket* packet, const ReadOptions* options);
    // Moves the track (the whole demuxer) near `timeUs`.
    status_t seek(int64_t timeUs, ReadOptions::SeekMode mode);
    const AVCodecParameters* codecParameters() const;
    // The media time (us) where the container states the track ends
    // exactly, before the padding of its last codec frame: an MP4 track's
    // (its edit list's length, which the demuxer makes the stream's
    // duration). -1 for containers whose durations are estimates.
    int64_t statedEndUs() const;
    int streamIndex() const { return mStreamIndex; }
    const std::shared_ptr<AvDemuxer>& demuxer() const { return mDemuxer; }

private:
    const std::shared_ptr<AvDemuxer> mDemuxer;
    const int mStreamIndex;
    const std::shared_ptr<MetaData> mFormat;
    std::mutex mLock;
    bool mStarted = false;
    std::shared_ptr<MediaBufferGroup> mGroup;
    AVPacket* mPacket = nullptr;
};

}  // namespace wv
