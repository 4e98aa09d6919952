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

AVCodecContext* openContext(const AVCodec* codec, const AVCodecParameters* params,
                            AVRational timeBase) {
    AVCodecContext* context = avcodec_alloc_context3(codec);
    if (context == nullptr) return nullptr;
    int ret = avcodec_parameters_to_context(context, params);
    if (ret >= 0) {
        context->pkt_timebase = timeBase;
        context->thread_count = 1;  // one frame out per packet in, no lag
        ret = avcodec_open2(context, codec, nullptr);
    }
    if (ret < 0) avcodec_free_context(&context);
    return context;
}
}  // namespace

std::shared_ptr<MediaSource> FrameRangeCodec::Create(const std::shared_ptr<MetaData>& meta,
                                                     const std::shared_ptr<MediaSource>& source,
                                                     int64_t firstFrame, int64_t endFrame) {
    auto track = std::dynamic_pointer_cast<AvPacketTrack>(source);
    int32_t rate = 0, channels = 0;
    if (!track || !meta || !meta->findInt32(kKeySampleRate, &rate) || rate <= 0 ||
        !meta->findInt32(kKeyChannelCount, &channels) || channels < 1 || channels > 2) {
        WV_LOGE("no range decoder for this source");
        return nullptr;
    }
    const AVCodecParameters* params = track->codecParameters();
    const AVCodec* codec = avcodec_find_decoder(params->codec_id);
    if (codec == nullptr || params->codec_type != AVMEDIA_TYPE_AUDIO) {
        WV_LOGE("no audio decoder for codec %s", avcodec_get_name(params->codec_id));
        return nullptr;
    }
    const AVRational timeBase = track->demuxer()->stream(track->streamIndex())->time_base;
    AVCodecContext* context = openContext(codec, params, timeBase);
    if (context == nullptr) {
        WV_LOGE("cannot open the %s decoder", codec->name);
        return nullptr;
    }
    auto format = std::make_shared<MetaData>();
    format->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);
    format->setInt32(kKeySampleRate, rate);
    format->setInt32(kKeyChannelCount, channels);
    format->setInt32(kKeyChannelMask, channelMaskForCount(channels));
    format->setInt32(kKeyPcmEncoding, 1);
    // Opus state after a cold start only converges towards the full
    // decode's; AAC noise substitution (PNS) draws from a generator whose
    // state is the whole stream's history. Both are decoded from the start.
    const bool decodeAll =
        params->codec_id == AV_CODEC_ID_OPUS || params->codec_id == AV_CODEC_ID_AAC;
    // Where a whole load ends too: the padding after a stated end is none
    // of the track's frames.
    const int64_t statedEndUs = track->statedEndUs();
    if (statedEndUs >= 0) {
        const int64_t statedEnd = (statedEndUs * rate + 500000) / 1000000;
        if (endFrame > statedEnd) endFrame = statedEnd;
    }
    return std::shared_ptr<MediaSource>(new FrameRangeCodec(std::move(track), context,
                                                            std::move(format), rate, channels,
                                                            firstFrame, endFrame, decodeAll));
}

FrameRangeCodec::FrameRangeCodec(std::shared_ptr<AvPacketTrack> track, AVCodecContext* context,
                                 std::shared_ptr<MetaData> format, int rate, int channels,
                                 int64_t first, int64_t end, bool decodeAll)
    : mTrack(std::move(track)), mContext(context), mFormat(std::move(format)), mRate(rate),
      mFirst(first < 0 ? 0 : first), mEnd(end), mDecodeAll(decodeAll), mConverter(rate, channels) {}

FrameRangeCodec::~FrameRangeCodec() {
    if (mStarted) stop();
    avcodec_free_context(&mContext);
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
    mFrame = av_frame_alloc();
    if (mFrame == nullptr) return NO_INIT;
    const status_t status = mTrack->start();
    if (status != OK) {
        av_frame_free(&mFrame);
        return status;
    }
    mGroup = MediaBufferGroup::create();
    mInputEnded = mDrainSent = mLastSentPreroll = false;
    mOriginFrame = mNextPacketFrame = mNextOutFrame = 0;
    mPrerollLeft = 0;
    mDamage = DamageTally();
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
    mTrack->stop();
    avcodec_flush_buffers(mContext);
    mConverter.reset();
    clearHeld();
    av_frame_free(&mFrame);
    mGroup.reset();
    mStarted = false;
    return OK;
}

bool FrameRangeCodec::readHeld(HeldPacket* held) {
    AVPacket* packet = av_packet_alloc();
    if (packet == nullptr) return false;
    const status_t status = mTrack->readPacket(packet, nullptr);
    if (status != OK) {
        if (status != ERROR_END_OF_STREAM) WV_LOGW("track read failed (%d); the part ends", status);
        av_packet_free(&packet);
        return false;
    }
    const AVRational timeBase = mTrack->demuxer()->stream(mTrack->streamIndex())->time_base;
    const AVRational frameBase{1, mRate};
    held->packet = packet;
    held->frame = packet->pts != AV_NOPTS_VALUE ? av_rescale_q(packet->pts, timeBase, frameBase)
                                                : mNextPacketFrame;
    // A packet without a time stamp follows on from the one before.
    const int64_t duration =
        packet->duration > 0 ? av_rescale_q(packet->duration, timeBase, frameBase) : 0;
    mNextPacketFrame = held->frame + duration;
    return true;
}

void FrameRangeCodec::probeOriginLocked() {
    const AVCodecParameters* params = mTrack->codecParameters();
    const AVRational timeBase = mTrack->demuxer()->stream(mTrack->streamIndex())->time_base;
    AVCodecContext* probe = openContext(mContext->codec, params, timeBase);
    AVFrame* frame = av_frame_alloc();
    bool found = false;
    bool drained = false;
    while (!found && probe != nullptr && frame != nullptr && !drained &&
           static_cast<int>(mToOffer.size()) < kProbePackets) {
        HeldPacket held{};
        if (readHeld(&held)) {
            mToOffer.push_back(held);
            if (mToOffer.size() == 1) mOriginFrame = held.frame;
            avcodec_send_packet(probe, held.packet);
        } else {
            mInputEnded = true;
            drained = true;
            avcodec_send_packet(probe, nullptr);
        }
        while (avcodec_receive_frame(probe, frame) == 0) {
            if (!found && frame->nb_samples > 0) {
                if (frame->best_effort_timestamp != AV_NOPTS_VALUE) {
                    mOriginFrame =
                        av_rescale_q(frame->best_effort_timestamp, timeBase, AVRational{1, mRate});
                }
                found = true;
            }
            av_frame_unref(frame);
        }
    }
    av_frame_free(&frame);
    avcodec_free_context(&probe);
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
        const AVRational timeBase = mTrack->demuxer()->stream(mTrack->streamIndex())->time_base;
        position = av_rescale_q(frame->best_effort_timestamp, timeBase, AVRational{1, mRate}) -
                   mOriginFrame;
    }
    // Converted whole, as the full decode converts it, then cut.
    const int capacity = mConverter.maxOutputFrames(frame);
    if (capacity < 0) {
        WV_LOGW("unconvertible decoded format; the part ends");
        mPhase = Phase::kEnded;
        return nullptr;
    }
    if (capacity == 0) return nullptr;
    const size_t frameBytes = 2 * static_cast<size_t>(mConverter.outChannels());
    MediaBuffer* buffer = mGroup->acquire(static_cast<size_t>(capacity) * frameBytes);
    const int frames = mConverter.convert(frame, static_cast<int16_t*>(buffer->data()), capacity);
    if (frames <= 0) {
        buffer->release();
        if (frames < 0) {
            WV_LOGW("sample conversion failed; the part ends");
            mPhase = Phase::kEnded;
        }
        return nullptr;
    }
    mNextOutFrame = position + frames;
    const int64_t from = position < mFirst ? mFirst : position;
    const int64_t to = position + frames > mEnd ? mEnd : position + frames;
    if (position >= mEnd) mPhase = Phase::kEnded;
    if (to <= from) {
        buffer->release();
        return nullptr;
    }
    if (to == mEnd) mPhase = Phase::kEnded;
    buffer->set_range(static_cast<size_t>(from - position) * frameBytes,
                      static_cast<size_t>(to - from) * frameBytes);
    buffer->meta_data()->setInt64(kKeyTime, from * 1000000 / mRate);
    return buffer;
}

MediaBuffer* FrameRangeCodec::decodeStepLocked() {
    int dropped = 0;
    while (mPhase == Phase::kDecoding) {
        int ret = avcodec_receive_frame(mContext, mFrame);
        if (ret == 0) {
            mDamage.decoded();
            MediaBuffer* buffer = cutLocked(mFrame);
            av_frame_unref(mFrame);
            if (buffer != nullptr) return buffer;
            // Decoding a long way up to the part (Opus, AAC) takes turns
            // too, so that a cancel is not held up until the part begins.
            if (++dropped >= kDropTurnFrames) return mGroup->acquire(0);
        } else if (ret == AVERROR_EOF) {
            MediaBuffer* buffer = cutLocked(nullptr);  // what a rate conversion holds
            mPhase = Phase::kEnded;
            return buffer;
        } else if (ret == AVERROR(EAGAIN)) {
            HeldPacket held{};
            if (!mHeld.empty()) {
                held = mHeld.front();
                mHeld.pop_front();
                mLastSentPreroll = mPrerollLeft > 0;
                if (mPrerollLeft > 0) --mPrerollLeft;
            } else if (mInputEnded || !readHeld(&held)) {
                mInputEnded = true;
                if (mDrainSent) {
                    mPhase = Phase::kEnded;
                    break;
                }
                mDrainSent = true;
                avcodec_send_packet(mContext, nullptr);
                continue;
            } else {
                mLastSentPreroll = false;
            }
            ret = avcodec_send_packet(mContext, held.packet);
            av_packet_free(&held.packet);
            if (ret < 0 && ret != AVERROR(EAGAIN) && !mLastSentPreroll) {
                skipDamagedLocked("packet refused by the decoder");
            }
        } else if (!mLastSentPreroll) {
            // A cold decoder may reject a pre-roll packet (an MP3 frame whose
            // reservoir lies before it); only later errors count as damage.
            skipDamagedLocked("decode error");
        }
    }
    return nullptr;
}

void FrameRangeCodec::skipDamagedLocked(const char* why) {
    // As the whole decode does (see AudioCodec): the packet is passed over
    // and the codec goes on with its state.
    WV_LOGW("%s; skipped", why);
    // Counted from the part's first frame, as the item's frames are.
    const int64_t position = mNextOutFrame > 0 ? mNextOutFrame : 0;
    if (!mDamage.skipped(position >= mFirst, (position - mFirst) * 1000000 / mRate)) {
        WV_LOGW("too many damaged packets; the part ends");
        mPhase = Phase::kEnded;
    }
}

DecodeDamage FrameRangeCodec::damage() {
    std::lock_guard<std::mutex> guard(mLock);
    return mDamage.damage();
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
                    *out = mGroup->acquire(0);  // a turn for the caller
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
