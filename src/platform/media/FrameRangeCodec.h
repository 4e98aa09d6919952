// A decoder of one part of a compressed track: it hands out the frames
// [first, end) of what AudioCodec gives for the whole track (same 16-bit
// conversion, same downmix), identical bit for bit, without decoding what
// lies before the part.
//
// How it gets there: packets before the part are only demuxed, never
// decoded, and their time stamps say where each one's audio lands. MP3
// time stamps are counted by the demuxer from frame headers as long as it
// never seeks, so this reads from the start and never seeks; the cost of
// reaching the part is the cost of demuxing (reading) the file up to it.
// Decoding starts a pre-roll of packets before the part (their output is
// dropped) so that state carried from frame to frame (the MP3 bit
// reservoir, MDCT overlap, Vorbis block overlap) is what the full decode
// had. Where the first output frame lies (after the encoder delay the
// container asks to skip) is learnt by decoding the first packets once with
// a throw-away decoder.
//
// Opus and AAC are the exceptions: Opus decoder state after a cold start
// only converges towards the full decode's, and AAC noise substitution
// (PNS) draws from a random generator whose state is the whole stream's
// history, so mid-stream starts differ in those bands. For both, every
// packet from the start is decoded and the output before the part dropped
// (nothing is written for it); positions are then counted as AudioCodec
// counts them.
//
// Output format and buffers as AudioCodec's; kKeyTime is the time of the
// buffer's first frame in the whole track. Long stretches before the part
// are demuxed (or, for Opus and AAC, decoded and dropped) in batches: a read
// may return OK with an empty buffer, so
// that a caller stepping through the stream can act between batches. The
// stream ends at `end`, at the track's end, or at the first packet the
// demuxer cannot read. A packet the codec refuses or cannot decode inside
// the decoded stretch is skipped as AudioCodec skips it; inside the part
// it counts as damage (damage(), its time counted from the part's start). Seeking is not supported: read options
// are ignored.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

#include "platform/media/DecoderCore.h"
#include "platform/media/MediaSource.h"

struct AVFrame;
struct AVPacket;

namespace wv {

class FrameRangeCodec : public MediaSource, private DecoderCore::Feed {
public:
    // Null when AudioCodec::Create would fail for the same track.
    static std::shared_ptr<MediaSource> Create(const std::shared_ptr<MetaData>& meta,
                                               const std::shared_ptr<MediaSource>& track,
                                               int64_t firstFrame, int64_t endFrame);
    ~FrameRangeCodec() override;

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    std::shared_ptr<MetaData> getFormat() override { return mFormat; }
    status_t read(MediaBuffer** buffer, const ReadOptions* options = nullptr) override;
    DecodeDamage damage() override;

    // Packets that reach the decoder before the one holding the first frame
    // wanted, when enough of the track lies before it.
    static constexpr int kPrerollPackets = 12;
    // Packet bytes and frames that pre-roll covers at least (the MP3 bit
    // reservoir reaches 511 bytes back).
    static constexpr int kPrerollBytes = 4096;
    static constexpr int kPrerollDivisor = 4;  // a quarter second of frames

private:
    enum class Phase { kProbing, kSkipping, kDecoding, kEnded };
    class ProbeFeed;
    struct HeldPacket {
        AVPacket* packet;
        int64_t frame;  // where its audio starts, in frames of the track's time line
    };

    FrameRangeCodec(std::unique_ptr<DecoderCore> core, std::shared_ptr<MetaData> format, int rate,
                    int64_t first, int64_t end, bool decodeAll);
    // Reads the next packet of the track into a new held packet; false at
    // the end of the track or on a read error.
    bool readHeld(HeldPacket* held);
    // Learns mOriginFrame from the first packets; they stay held.
    void probeOriginLocked();
    // Demuxes a batch; moves to kDecoding once the part is reached.
    void skipBatchLocked();
    // Offers one packet to the skipping logic; true when decoding starts.
    bool offerLocked(HeldPacket held);
    void startDecodingLocked();
    // The next decoded buffer inside the part, or null when none is ready
    // yet (the phase tells whether the stream has ended).
    MediaBuffer* decodeStepLocked();
    MediaBuffer* cutLocked(const AVFrame* frame);
    void clearHeld();
    // DecoderCore::Feed of the decoding, called with mLock held: the held
    // packets, then the rest of the track.
    Input nextPacket(AVPacket* packet) override;
    bool skipDamaged(bool refused, int error) override;

    const std::unique_ptr<DecoderCore> mCore;
    const std::shared_ptr<MetaData> mFormat;
    const int mRate;
    const int64_t mFirst;
    const int64_t mEnd;
    const bool mDecodeAll;

    std::mutex mLock;
    bool mStarted = false;
    Phase mPhase = Phase::kProbing;
    // Packets read but not yet decoded: the probed start, then the pre-roll.
    std::deque<HeldPacket> mHeld;
    std::deque<HeldPacket> mToOffer;
    int64_t mOriginFrame = 0;      // time line frame of the full decode's first output frame
    int64_t mNextPacketFrame = 0;  // for packets without a time stamp
    int64_t mNextOutFrame = 0;     // output position of the next decoded frame, when unstamped
    int mPrerollLeft = 0;          // packets to send whose errors are not fatal
    bool mInputEnded = false;      // the demuxer has no more packets
    bool mLastSentPreroll = false;
};

}  // namespace wv
