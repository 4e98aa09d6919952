#define WV_LOG_TAG "MediaLayer"
#include "platform/media/DecoderCore.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "base/Log.h"
#include "platform/media/MediaExtractor.h"
#include "platform/media/SampleConverter.h"

namespace wv {
namespace {

AVRational timeBaseOf(const AvPacketTrack& track) {
    return track.demuxer()->stream(track.streamIndex())->time_base;
}

AVCodecContext* openContext(const AvPacketTrack& track) {
    const AVCodecParameters* params = track.codecParameters();
    const AVCodec* codec = avcodec_find_decoder(params->codec_id);
    if (codec == nullptr || params->codec_type != AVMEDIA_TYPE_AUDIO) {
        WV_LOGE("no audio decoder for codec %s", avcodec_get_name(params->codec_id));
        return nullptr;
    }
    AVCodecContext* context = avcodec_alloc_context3(codec);
    if (context == nullptr) return nullptr;
    int ret = avcodec_parameters_to_context(context, params);
    if (ret >= 0) {
        context->pkt_timebase = timeBaseOf(track);
        context->thread_count = 1;  // one frame out per packet in, no lag
        ret = avcodec_open2(context, codec, nullptr);
    }
    if (ret < 0) {
        WV_LOGE("cannot open the %s decoder", codec->name);
        avcodec_free_context(&context);
    }
    return context;
}

}  // namespace

std::unique_ptr<DecoderCore> DecoderCore::open(const std::shared_ptr<MediaSource>& source,
                                               int pcmRate, int pcmChannels) {
    auto track = std::dynamic_pointer_cast<AvPacketTrack>(source);
    if (!track) {
        WV_LOGE("no decoder for this kind of source");
        return nullptr;
    }
    AVCodecContext* context = openContext(*track);
    if (context == nullptr) return nullptr;
    return std::unique_ptr<DecoderCore>(
        new DecoderCore(std::move(track), context, pcmRate, pcmChannels, false));
}

std::unique_ptr<DecoderCore> DecoderCore::openTwin() const {
    AVCodecContext* context = openContext(*mTrack);
    if (context == nullptr) return nullptr;
    return std::unique_ptr<DecoderCore>(new DecoderCore(mTrack, context, 0, 0, true));
}

DecoderCore::DecoderCore(std::shared_ptr<AvPacketTrack> track, AVCodecContext* context,
                         int pcmRate, int pcmChannels, bool twin)
    : mTrack(std::move(track)), mContext(context), mPcmChannels(pcmChannels), mTwin(twin) {
    if (pcmRate > 0) mConverter.reset(new SampleConverter(pcmRate, pcmChannels));
}

DecoderCore::~DecoderCore() {
    if (mStarted) stop();
    avcodec_free_context(&mContext);
}

bool DecoderCore::pcmLayoutOf(const std::shared_ptr<MetaData>& meta, int* rate, int* channels) {
    int32_t r = 0, c = 0;
    if (!meta || !meta->findInt32(kKeySampleRate, &r) || r <= 0 ||
        !meta->findInt32(kKeyChannelCount, &c) || c < 1 || c > 2) {
        return false;
    }
    *rate = r;
    *channels = c;
    return true;
}

std::shared_ptr<MetaData> DecoderCore::pcmFormat(int rate, int channels) {
    auto format = std::make_shared<MetaData>();
    format->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);
    format->setInt32(kKeySampleRate, rate);
    format->setInt32(kKeyChannelCount, channels);
    format->setInt32(kKeyChannelMask, channelMaskForCount(channels));
    format->setInt32(kKeyPcmEncoding, 1);
    return format;
}

status_t DecoderCore::start() {
    if (mStarted) return INVALID_OPERATION;
    mPacket = av_packet_alloc();
    mFrame = av_frame_alloc();
    status_t status = mPacket != nullptr && mFrame != nullptr ? OK : NO_INIT;
    if (status == OK && !mTwin) status = mTrack->start();
    if (status != OK) {
        av_packet_free(&mPacket);
        av_frame_free(&mFrame);
        return status;
    }
    mGroup = MediaBufferGroup::create();
    mInputEnded = false;
    mError = 0;
    mTally = DamageTally();
    mStarted = true;
    return OK;
}

void DecoderCore::stop() {
    if (!mStarted) return;
    if (!mTwin) mTrack->stop();
    flush();
    av_packet_free(&mPacket);
    av_frame_free(&mFrame);
    mGroup.reset();
    mStarted = false;
}

void DecoderCore::flush() {
    avcodec_flush_buffers(mContext);
    if (mConverter) mConverter->reset();
    mInputEnded = false;
}

DecoderCore::Step DecoderCore::decode(Feed& feed) {
    if (!mStarted) return Step::kStopped;
    for (;;) {
        int ret = avcodec_receive_frame(mContext, mFrame);
        if (ret == 0) {
            mTally.decoded();
            return Step::kFrame;
        }
        if (ret == AVERROR_EOF) return Step::kDrained;
        if (ret == AVERROR(EAGAIN) && !mInputEnded) {
            switch (feed.nextPacket(mPacket)) {
                case Feed::Input::kLater:
                    return Step::kHungry;
                case Feed::Input::kEnd:
                    mInputEnded = true;
                    avcodec_send_packet(mContext, nullptr);  // drain
                    continue;
                case Feed::Input::kPacket:
                    break;
            }
            ret = avcodec_send_packet(mContext, mPacket);
            av_packet_unref(mPacket);
            if (ret < 0 && ret != AVERROR(EAGAIN) && !feed.skipDamaged(true, ret)) {
                mError = ret;
                return Step::kStopped;
            }
            continue;
        }
        // EAGAIN here: the input ended and the codec still asks for more.
        if (ret == AVERROR(EAGAIN) || ret == AVERROR(ENOMEM) || !feed.skipDamaged(false, ret)) {
            mError = ret;
            return Step::kStopped;
        }
    }
}

DecoderCore::Converted DecoderCore::convert(const AVFrame* frame) {
    Converted converted;
    const int capacity = mConverter->maxOutputFrames(frame);
    if (capacity < 0) {
        converted.failure = "unconvertible decoded format";
        converted.error = AVERROR(EINVAL);
        return converted;
    }
    if (capacity == 0) return converted;
    const size_t frameBytes = 2 * static_cast<size_t>(mConverter->outChannels());
    MediaBuffer* buffer = mGroup->acquire(static_cast<size_t>(capacity) * frameBytes);
    const int frames = mConverter->convert(frame, static_cast<int16_t*>(buffer->data()), capacity);
    if (frames <= 0) {
        buffer->release();
        if (frames < 0) {
            converted.failure = "sample conversion failed";
            converted.error = frames;
        }
        return converted;
    }
    converted.buffer = buffer;
    converted.frames = frames;
    return converted;
}

MediaBuffer* DecoderCore::cut(MediaBuffer* buffer, int64_t from, int64_t count,
                              int64_t timeUs) const {
    if (count <= 0) {
        buffer->release();
        return nullptr;
    }
    const size_t frameBytes = 2 * static_cast<size_t>(mPcmChannels);
    buffer->set_range(static_cast<size_t>(from) * frameBytes,
                      static_cast<size_t>(count) * frameBytes);
    buffer->meta_data()->setInt64(kKeyTime, timeUs);
    return buffer;
}

int64_t DecoderCore::framesOf(int64_t pts, int rate) const {
    return av_rescale_q(pts, timeBaseOf(*mTrack), AVRational{1, rate});
}

}  // namespace wv
