// The general container parser's shared state: an FFmpeg format context
// reading through a DataSource (64-bit offsets, no protocol parsing of the
// path), and one lock that serialises packet reads and seeks on it.
//
// Owned jointly by the extractor and every track source made from it.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/media/DataSource.h"
#include "platform/media/MediaSource.h"

struct AVFormatContext;
struct AVIOContext;
struct AVPacket;
struct AVStream;

namespace wv {

class AvDemuxer {
public:
    // Null when no container format accepts the source.
    static std::shared_ptr<AvDemuxer> open(const std::shared_ptr<DataSource>& source);
    ~AvDemuxer();
    AvDemuxer(const AvDemuxer&) = delete;
    AvDemuxer& operator=(const AvDemuxer&) = delete;

    int streamCount() const;
    // Valid for 0 <= index < streamCount(), for the life of the demuxer.
    const AVStream* stream(int index) const;
    const char* containerName() const;
    // The container's metadata value `name` (case-insensitive), else the
    // stream's; nullptr when neither states it.
    const char* metadataValue(int index, const char* name) const;
    // The container's chapters as kKeyChapters text; empty when none.
    std::string chaptersText() const;
    // Container-level duration in microseconds, or -1 when unknown.
    int64_t containerDurationUs() const;
    // Whether the durations were only estimated from the bit rate.
    bool durationGuessed() const;
    // The bytes the container is read from.
    const std::shared_ptr<DataSource>& source() const { return mSource; }

    // Marks whether packets of a stream are wanted; unwanted ones are
    // skipped by the parser where it can.
    void setStreamWanted(int index, bool wanted);
    // The next packet of stream `index` into `packet` (unreferenced by the
    // caller). OK, ERROR_END_OF_STREAM, or ERROR_IO / ERROR_MALFORMED.
    status_t readPacket(int index, AVPacket* packet);
    // Moves the read position of the whole file near `timeUs` of stream
    // `index`, rounding as `mode` says. Keeps the position when the format
    // cannot seek and returns the error.
    status_t seek(int index, int64_t timeUs, MediaSource::ReadOptions::SeekMode mode);
    // Converts a stream time stamp to media microseconds and back; media
    // time 0 is the stream's first time stamp when that is positive.
    int64_t toMediaUs(int index, int64_t pts) const;
    int64_t fromMediaUs(int index, int64_t timeUs) const;

private:
    AvDemuxer() = default;

    std::shared_ptr<DataSource> mSource;
    int64_t mIoPosition = 0;
    // Bytes read since the last packet, counted once the file is open (see
    // kMaxBytesWithoutPacket); set while ioRead runs under av_read_frame.
    bool mOpened = false;
    int64_t mSincePacket = 0;
    bool mGarbageEnded = false;
    AVIOContext* mIo = nullptr;
    AVFormatContext* mFormat = nullptr;
    // Per stream, the time stamp that media time 0 stands for; fixed at open.
    std::vector<int64_t> mOriginPts;
    std::mutex mLock;

    static int ioRead(void* opaque, uint8_t* buffer, int size);
    static int64_t ioSeek(void* opaque, int64_t offset, int whence);
};

}  // namespace wv
