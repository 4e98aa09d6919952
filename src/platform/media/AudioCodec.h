// The audio decoder: a media source that decodes a compressed track of the
// general demuxer into buffers of interleaved signed 16-bit samples.
//
// Output format (getFormat()): "audio/raw" at the track's sample rate with
// the track's channel count (1 or 2; more are downmixed to 2) and its
// channel mask, plus the track's duration when known. Every buffer carries
// kKeyTime, the media time of its first frame in microseconds. A buffer
// holds one codec frame: 1152 frames for MP3, 1024 for AAC, and so on.
//
// An MP4 track ends where its container says (the edit list's length), not
// at the end of its last codec frame.
//
// The stream ends (ERROR_END_OF_STREAM) at the end of the track, and also at
// the first packet the demuxer cannot read (a cut file), after everything
// decoded before it has been handed out. A packet the codec refuses or
// cannot decode (damaged data) is skipped and counted (damage()); the codec
// keeps its state, so what it conceals stays in the output, and decoding
// goes on with the next packet. A read
// with a seek moves the demuxer to a sync point at or before the time
// (containers such as Ogg only know pages of up to a second) and drops the
// decoded audio before the time, so the stream goes on from the asked time
// itself, within a few samples; also after it had ended. A time past the
// end ends the stream.
#pragma once

#include <memory>
#include <mutex>

#include "platform/media/DecoderCore.h"
#include "platform/media/MediaSource.h"

struct AVFrame;

namespace wv {

class AudioCodec : public MediaSource, private DecoderCore::Feed {
public:
    // A decoder for `track` as described by `meta` (its track metadata,
    // which must state the sample rate and channel count). Null when the
    // track is not a compressed audio track of the general demuxer, lacks a
    // rate or channel count, or no decoder for it can be opened.
    static std::shared_ptr<MediaSource> Create(const std::shared_ptr<MetaData>& meta,
                                               const std::shared_ptr<MediaSource>& track);
    ~AudioCodec() override;

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    std::shared_ptr<MetaData> getFormat() override { return mFormat; }
    status_t read(MediaBuffer** buffer, const ReadOptions* options = nullptr) override;
    DecodeDamage damage() override;

private:
    AudioCodec(std::unique_ptr<DecoderCore> core, int rate, std::shared_ptr<MetaData> format,
               int64_t endUs);
    void seekLocked(int64_t timeUs, ReadOptions::SeekMode mode);
    // Converts a decoded frame (or drains, for null) into a buffer; null
    // when no samples came out.
    MediaBuffer* convertLocked(const AVFrame* frame);
    // Whether the decoded frame lies wholly before the seek target (then it
    // is dropped); otherwise sets how many of its output frames to drop.
    bool beforeSeekTargetLocked(const AVFrame* frame, int64_t frameUs);
    void endStreamLocked(const char* why, int error);
    // DecoderCore::Feed, called with mLock held.
    Input nextPacket(AVPacket* packet) override;
    bool skipDamaged(bool refused, int error) override;
    int64_t nextTimeUsLocked() const { return mTimeBaseUs + mFramesSinceBase * 1000000 / mRate; }

    const std::unique_ptr<DecoderCore> mCore;
    const int mRate;
    const std::shared_ptr<MetaData> mFormat;
    // Media time of the track's stated end (MP4), after which decoded
    // frames are padding; -1 when the container states no exact end.
    const int64_t mEndUs;

    std::mutex mLock;
    bool mStarted = false;
    bool mOutputEnded = false;  // the stream has ended for the reader
    // Media time of the next output frame: a base plus frames since it.
    int64_t mTimeBaseUs = 0;
    int64_t mFramesSinceBase = 0;
    // After a seek: media time before which decoded audio is dropped (-1 none),
    // and the output frames to drop from the next converted frame.
    int64_t mSkipUntilUs = -1;
    int mDropFrames = 0;
};

}  // namespace wv
