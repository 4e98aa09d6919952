// The FFmpeg decoding that every audio decoder of the media layer shares
// (AudioCodec, FrameRangeCodec, ChannelDecoder): the codec of one track of
// the general demuxer, opened the one way they all need; the packet and
// frame loop around it; the tally of the damage it passes over; and, for
// the 16-bit decoders, each decoded frame converted whole (as the full
// decode converts it) and then cut to the frames its owner keeps.
//
// The owner decides what the loop cannot: where packets come from, which
// errors are damage to skip (and whether they count), and where a decoded
// frame lies. It serialises every call; the core has no lock of its own.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/media/AvPacketTrack.h"
#include "platform/media/MediaSource.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace wv {

class SampleConverter;

class DecoderCore {
public:
    // What the loop asks of its owner.
    class Feed {
    public:
        enum class Input {
            kPacket,  // `packet` holds the next packet for the codec
            kEnd,     // no more: the codec is drained
            kLater,   // none for now: decode() returns kHungry, the codec keeps its state
        };
        virtual Input nextPacket(AVPacket* packet) = 0;
        // The codec refused a packet (`refused`) or failed to decode one, with
        // `error`. True skips it (the codec keeps its state and goes on); false
        // stops the stream.
        virtual bool skipDamaged(bool refused, int error) = 0;

    protected:
        ~Feed() = default;
    };

    enum class Step {
        kFrame,    // frame() holds a decoded frame, until the next decode()
        kDrained,  // the codec gave everything it had after the input's end
        kStopped,  // the stream cannot go on: the owner's verdict, or error()
        kHungry,   // the feed had no packet for now
    };

    // The codec of `track`, which must be a track of the general demuxer.
    // `pcmRate` and `pcmChannels` (1 or 2) set the 16-bit output of
    // convert(); 0 for an owner that converts frames itself. Null, logged,
    // when the track is of another kind or no decoder for it opens.
    static std::unique_ptr<DecoderCore> open(const std::shared_ptr<MediaSource>& track,
                                             int pcmRate = 0, int pcmChannels = 0);
    // A second codec of the same track, for a trial decode of packets the
    // owner already holds: its start() and stop() leave the track alone.
    std::unique_ptr<DecoderCore> openTwin() const;
    ~DecoderCore();
    DecoderCore(const DecoderCore&) = delete;
    DecoderCore& operator=(const DecoderCore&) = delete;

    // The rate and channel count (1 or 2) the track's metadata states, as
    // the 16-bit output takes them; false when it states none usable.
    static bool pcmLayoutOf(const std::shared_ptr<MetaData>& meta, int* rate, int* channels);
    // The "audio/raw" format of 16-bit output at `rate` and `channels`.
    static std::shared_ptr<MetaData> pcmFormat(int rate, int channels);

    // Starts the track (unless a twin) and a fresh tally; stop() ends both
    // and drops what the codec and the conversion hold.
    status_t start();
    void stop();
    // After a seek of the track: the codec and the conversion start afresh.
    void flush();

    // Runs the codec until a frame comes out, it is drained, the stream
    // stops or the feed has nothing for now. A decoded frame counts as the
    // end of a row of errors in the tally.
    Step decode(Feed& feed);
    AVFrame* frame() const { return mFrame; }
    // The codec's error behind kStopped when the feed did not stop it.
    int error() const { return mError; }

    // `frame` (or, for null, what a rate conversion still holds) converted
    // whole to 16-bit samples. No buffer and no failure: nothing came out.
    struct Converted {
        MediaBuffer* buffer = nullptr;
        int frames = 0;
        const char* failure = nullptr;  // why it cannot be converted
        int error = 0;
    };
    Converted convert(const AVFrame* frame);
    // The `count` frames of `buffer` from `from` on, stamped `timeUs`; the
    // buffer is released and null returned when `count` is not positive.
    MediaBuffer* cut(MediaBuffer* buffer, int64_t from, int64_t count, int64_t timeUs) const;
    // A buffer of no samples: a turn for a caller stepping through a stream.
    MediaBuffer* emptyBuffer() { return mGroup->acquire(0); }

    DamageTally& tally() { return mTally; }
    AvPacketTrack& track() const { return *mTrack; }
    const AVCodecContext* context() const { return mContext; }
    // A time stamp of the track in frames of `rate`.
    int64_t framesOf(int64_t pts, int rate) const;

private:
    DecoderCore(std::shared_ptr<AvPacketTrack> track, AVCodecContext* context, int pcmRate,
                int pcmChannels, bool twin);

    const std::shared_ptr<AvPacketTrack> mTrack;
    AVCodecContext* mContext;
    const int mPcmChannels;
    const bool mTwin;
    std::unique_ptr<SampleConverter> mConverter;
    AVPacket* mPacket = nullptr;
    AVFrame* mFrame = nullptr;
    std::shared_ptr<MediaBufferGroup> mGroup;
    bool mStarted = false;
    bool mInputEnded = false;  // the codec has been told the end
    int mError = 0;
    DamageTally mTally;
};

}  // namespace wv
