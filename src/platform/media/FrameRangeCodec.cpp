#define WV_LOG_TAG "MediaLayer"
#include "platform/media/FrameRangeCodec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "base/Log.h"
#include "platform/media/MediaExtractor.h"

namespace wv {
namespace {
// Packets demuxed per read while the part is still ahead: about a second
// of work on a slow machine at the smallest packets.
constexpr int kSkipBatchPackets = 4096;
constexpr int kDropTurnFrames = 256;  // codec frames decoded and dropped per turn
// Packets the throw-away decoder may take before giving its first output.
constexpr int kProbePackets = 64;

}  // namespace

// The trial decode's feed: the first packets of the track, held for the
// decoding proper, until the first output or kProbePackets of them.
class FrameRangeCodec::ProbeFeed : public DecoderCore::Feed {
public:
    ProbeFeed(FrameRangeCodec& codec, DecoderCore& probe) : mCodec(codec), mProbe(probe) {}

    Input nextPacket(AVPacket* packet) override {
        if (static_cast<int>(mCodec.mToOffer.size()) >= kProbePackets) return Input::kLater;
        HeldPacket held{};
        if (!mCodec.readHeld(&held)) {
            mCodec.mInputEnded = true;
            return Input::kEnd;
        }
        mCodec.mToOffer.push_back(held);
        if (mCodec.mToOffer.size() == 1) mCodec.mOriginFrame = held.frame;
        return av_packet_ref(packet, held.packet) < 0 ? Input::kLater : Input::kPacket;
    }
    // Whatever the trial decoder refuses, only its first output matters.
    bool skipDamaged(bool, int) override { return mProbe.tally().skipped(false, 0); }

private:
    FrameRangeCodec& mCodec;
    DecoderCore& mProbe;
};

std::shared_ptr<MediaSource> FrameRangeCodec::Create(const std::shared_ptr<MetaData>& meta,
                                                     const std::shared_ptr<MediaSource>& source,
                                                     int64_t firstFrame, int64_t endFrame) {
    int rate = 0, channels = 0;
    if (!DecoderCore::pcmLayoutOf(meta, &rate, &channels)) {
        WV_LOGE("no range decoder for this source");
        return nullptr;
    }
    std::unique_ptr<DecoderCore> core = DecoderCore::open(source, rate, channels);
    if (!core) return nullptr;
    // Opus state after a cold start only converges towards the full
    // decode's; AAC noise substitution (PNS) draws from a generator whose
    // state is the whole stream's history. Both are decoded from the start.
    const AVCodecID codecId = core->track().codecParameters()->codec_id;
    const bool decodeAll = codecId == AV_CODEC_ID_OPUS || codecId == AV_CODEC_ID_AAC;
    // Where a whole load ends too: the padding after a stated end is none
    // of the track's frames.
    const int64_t statedEndUs = core->track().statedEndUs();
    if (statedEndUs >= 0) {
        const int64_t statedEnd = (statedEndUs * rate + 500000) / 1000000;
        if (endFrame > statedEnd) endFrame = statedEnd;
    }
    return std::shared_ptr<MediaSource>(new FrameRangeCodec(std::move(core),
                                                            DecoderCore::pcmFormat(rate, channels),
                                                            rate, firstFrame, endFrame, decodeAll));
}

FrameRangeCodec::FrameRangeCodec(std::unique_ptr<DecoderCore> core,
                                 std::shared_ptr<MetaData> format, int rate, int64_t first,
                                 int64_t end, bool decodeAll)
    : mCore(std::move(core)), mFormat(std::move(format)), mRate(rate),
      mFirst(first < 0 ? 0 : first), mEnd(end), mDecodeAll(decodeAll) {}

FrameRangeCodec::~FrameRangeCodec() {
    if (mStarted) stop();
}

void FrameRangeCodec::clearHeld() {
    for (auto* queue : {&mHeld, &mToOffer}) {
        for (HeldPacket& held : *queue) av_packet_free(&held.packet);
        queue->clear();
    }
}

status_t FrameRangeCodec::start(MetaData*) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mStarted) return INVALID_OPERATION;
    const status_t status = mCore->start();
    if (status != OK) return status;
    mInputEnded = mLastSentPreroll = false;
    mOriginFrame = mNextPacketFrame = mNextOutFrame = 0;
    mPrerollLeft = 0;
    if (mFirst >= mEnd) {
        mPhase = Phase::kEnded;
    } else {
        mPhase = mDecodeAll ? Phase::kDecoding : Phase::kProbing;
    }
    mStarted = true;
    return OK;
}

status_t FrameRangeCodec::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return INVALID_OPERATION;
    mCore->stop();
    clearHeld();
    mStarted = false;
    return OK;
}

bool FrameRangeCodec::readHeld(HeldPacket* held) {
    AVPacket* packet = av_packet_alloc();
    if (packet == nullptr) return false;
    const status_t status = mCore->track().readPacket(packet, nullptr);
    if (status != OK) {
        if (status != ERROR_END_OF_STREAM) WV_LOGW("track read failed (%d); the part ends", status);
        av_packet_free(&packet);
        return false;
    }
    held->packet = packet;
    held->frame =
        packet->pts != AV_NOPTS_VALUE ? mCore->framesOf(packet->pts, mRate) : mNextPacketFrame;
    // A packet without a time stamp follows on from the one before.
    const int64_t duration = packet->duration > 0 ? mCore->framesOf(packet->duration, mRate) : 0;
    mNextPacketFrame = held->frame + duration;
    return true;
}

void FrameRangeCodec::probeOriginLocked() {
    std::unique_ptr<DecoderCore> probe = mCore->openTwin();
    if (probe && probe->start() == OK) {
        ProbeFeed feed(*this, *probe);
        while (probe->decode(feed) == DecoderCore::Step::kFrame) {
            const AVFrame* frame = probe->frame();
            if (frame->nb_samples == 0) continue;
            if (frame->best_effort_timestamp != AV_NOPTS_VALUE) {
                mOriginFrame = probe->framesOf(frame->best_effort_timestamp, mRate);
            }
            break;
        }
        probe->stop();
    }
    mPhase = Phase::kSkipping;
}

bool FrameRangeCodec::offerLocked(HeldPacket held) {
    const int64_t target = mOriginFrame + mFirst;
    if (held.frame > target && !mHeld.empty()) {
        // The part starts in the last held packet; the ones before it are
        // the pre-roll.
        mPrerollLeft = static_cast<int>(mHeld.size()) - 1;
        mHeld.push_back(held);
        startDecodingLocked();
        return true;
    }
    mHeld.push_back(held);
    int64_t bytes = 0;
    for (const HeldPacket& h : mHeld) bytes += h.packet->size;
    while (static_cast<int>(mHeld.size()) > kPrerollPackets + 1) {
        const HeldPacket& front = mHeld.front();
        const int64_t keptBytes = bytes - front.packet->size - mHeld.back().packet->size;
        const int64_t keptFrames = mHeld.back().frame - mHeld[1].frame;
        if (keptBytes < kPrerollBytes || keptFrames < mRate / kPrerollDivisor) break;
        bytes -= front.packet->size;
        AVPacket* packet = front.packet;
        av_packet_free(&packet);
        mHeld.pop_front();
    }
    return false;
}

void FrameRangeCodec::startDecodingLocked() {
    if (mHeld.empty()) {
        mPhase = Phase::kEnded;
        return;
    }
    if (mPrerollLeft < 0) mPrerollLeft = 0;
    mNextOutFrame = mHeld.front().frame - mOriginFrame;
    mPhase = Phase::kDecoding;
}

void FrameRangeCodec::skipBatchLocked() {
    while (!mToOffer.empty()) {
        const HeldPacket held = mToOffer.front();
        mToOffer.pop_front();
        if (offerLocked(held)) {
            // Whatever the probe read beyond goes to the decoder next.
            while (!mToOffer.empty()) {
                mHeld.push_back(mToOffer.front());
                mToOffer.pop_front();
            }
            return;
        }
    }
    for (int i = 0; i < kSkipBatchPackets && !mInputEnded; ++i) {
        HeldPacket held{};
        if (!readHeld(&held)) {
            mInputEnded = true;
            break;
        }
        if (offerLocked(held)) return;
    }
    if (mInputEnded) {
        // The track ended before the part started, or inside the last
        // packet: decode what is held and let positions decide.
        mPrerollLeft = static_cast<int>(mHeld.size()) - 1;
        startDecodingLocked();
    }
}

MediaBuffer* FrameRangeCodec::cutLocked(const AVFrame* frame) {
    int64_t position = mNextOutFrame;
    if (!mDecodeAll && frame != nullptr && frame->best_effort_timestamp != AV_NOPTS_VALUE) {
        position = mCore->framesOf(frame->best_effort_timestamp, mRate) - mOriginFrame;
    }
    // Converted whole, as the full decode converts it, then cut.
    const DecoderCore::Converted converted = mCore->convert(frame);
    if (converted.failure != nullptr) {
        WV_LOGW("%s; the part ends", converted.failure);
        mPhase = Phase::kEnded;
        return nullptr;
    }
    if (converted.buffer == nullptr) return nullptr;
    const int frames = converted.frames;
    mNextOutFrame = position + frames;
    const int64_t from = position < mFirst ? mFirst : position;
    const int64_t to = position + frames > mEnd ? mEnd : position + frames;
    if (position >= mEnd) mPhase = Phase::kEnded;
    if (to > from && to == mEnd) mPhase = Phase::kEnded;
    return mCore->cut(converted.buffer, from - position, to - from, from * 1000000 / mRate);
}

MediaBuffer* FrameRangeCodec::decodeStepLocked() {
    int dropped = 0;
    while (mPhase == Phase::kDecoding) {
        switch (mCore->decode(*this)) {
            case DecoderCore::Step::kFrame: {
                MediaBuffer* buffer = cutLocked(mCore->frame());
                if (buffer != nullptr) return buffer;
                // Decoding a long way up to the part (Opus, AAC) takes turns
                // too, so that a cancel is not held up until the part begins.
                if (++dropped >= kDropTurnFrames) return mCore->emptyBuffer();
                break;
            }
            case DecoderCore::Step::kDrained: {
                MediaBuffer* buffer = cutLocked(nullptr);  // what a rate conversion holds
                mPhase = Phase::kEnded;
                return buffer;
            }
            case DecoderCore::Step::kStopped:
            case DecoderCore::Step::kHungry:
                mPhase = Phase::kEnded;
                break;
        }
    }
    return nullptr;
}

DecoderCore::Feed::Input FrameRangeCodec::nextPacket(AVPacket* packet) {
    HeldPacket held{};
    if (!mHeld.empty()) {
        held = mHeld.front();
        mHeld.pop_front();
        mLastSentPreroll = mPrerollLeft > 0;
        if (mPrerollLeft > 0) --mPrerollLeft;
    } else if (mInputEnded || !readHeld(&held)) {
        mInputEnded = true;
        return Input::kEnd;
    } else {
        mLastSentPreroll = false;
    }
    av_packet_move_ref(packet, held.packet);
    av_packet_free(&held.packet);
    return Input::kPacket;
}

bool FrameRangeCodec::skipDamaged(bool refused, int) {
    // A cold decoder may reject a pre-roll packet (an MP3 frame whose
    // reservoir lies before it); only later errors count as damage.
    if (mLastSentPreroll) return true;
    // As the whole decode does (see AudioCodec): the packet is passed over
    // and the codec goes on with its state.
    WV_LOGW("%s; skipped", refused ? "packet refused by the decoder" : "decode error");
    // Counted from the part's first frame, as the item's frames are.
    const int64_t position = mNextOutFrame > 0 ? mNextOutFrame : 0;
    if (mCore->tally().skipped(position >= mFirst, (position - mFirst) * 1000000 / mRate)) {
        return true;
    }
    WV_LOGW("too many damaged packets; the part ends");
    mPhase = Phase::kEnded;
    return false;
}

DecodeDamage FrameRangeCodec::damage() {
    std::lock_guard<std::mutex> guard(mLock);
    return mCore->tally().damage();
}

status_t FrameRangeCodec::read(MediaBuffer** out, const ReadOptions*) {
    *out = nullptr;
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return NO_INIT;
    for (;;) {
        switch (mPhase) {
            case Phase::kProbing:
                probeOriginLocked();
                break;
            case Phase::kSkipping:
                skipBatchLocked();
                if (mPhase == Phase::kSkipping) {
                    *out = mCore->emptyBuffer();  // a turn for the caller
                    return OK;
                }
                break;
            case Phase::kDecoding:
                *out = decodeStepLocked();
                if (*out != nullptr) return OK;
                break;
            case Phase::kEnded:
                return ERROR_END_OF_STREAM;
        }
    }
}

}  // namespace wv
