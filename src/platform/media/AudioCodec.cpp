#define WV_LOG_TAG "MediaLayer"
#include "platform/media/AudioCodec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cinttypes>

#include "base/Log.h"
#include "platform/media/MediaExtractor.h"

namespace wv {

std::shared_ptr<MediaSource> AudioCodec::Create(const std::shared_ptr<MetaData>& meta,
                                                const std::shared_ptr<MediaSource>& source) {
    auto track = std::dynamic_pointer_cast<AvPacketTrack>(source);
    if (!track || !meta) {
        WV_LOGE("no decoder for this kind of source");
        return nullptr;
    }
    int32_t rate = 0, channels = 0;
    if (!meta->findInt32(kKeySampleRate, &rate) || rate <= 0 ||
        !meta->findInt32(kKeyChannelCount, &channels) || channels < 1 || channels > 2) {
        WV_LOGE("track states no usable sample rate and channel count");
        return nullptr;
    }
    const AVCodecParameters* params = track->codecParameters();
    const AVCodec* codec = avcodec_find_decoder(params->codec_id);
    if (codec == nullptr || params->codec_type != AVMEDIA_TYPE_AUDIO) {
        WV_LOGE("no audio decoder for codec %s", avcodec_get_name(params->codec_id));
        return nullptr;
    }
    AVCodecContext* context = avcodec_alloc_context3(codec);
    if (context == nullptr) return nullptr;
    int ret = avcodec_parameters_to_context(context, params);
    if (ret >= 0) {
        context->pkt_timebase = track->demuxer()->stream(track->streamIndex())->time_base;
        context->thread_count = 1;
        ret = avcodec_open2(context, codec, nullptr);
    }
    if (ret < 0) {
        WV_LOGE("cannot open the %s decoder", codec->name);
        avcodec_free_context(&context);
        return nullptr;
    }
    const int64_t endUs = track->statedEndUs();
    auto format = std::make_shared<MetaData>();
    format->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);
    format->setInt32(kKeySampleRate, rate);
    format->setInt32(kKeyChannelCount, channels);
    format->setInt32(kKeyChannelMask, channelMaskForCount(channels));
    format->setInt32(kKeyPcmEncoding, 1);
    int64_t durationUs;
    if (meta->findInt64(kKeyDuration, &durationUs)) format->setInt64(kKeyDuration, durationUs);
    auto* codecSource = new AudioCodec(std::move(track), context, rate, channels, std::move(format));
    codecSource->mEndUs = endUs;
    return std::shared_ptr<MediaSource>(codecSource);
}

AudioCodec::AudioCodec(std::shared_ptr<AvPacketTrack> track, AVCodecContext* context, int rate,
                       int channels, std::shared_ptr<MetaData> format)
    : mTrack(std::move(track)), mContext(context), mRate(rate), mFormat(std::move(format)),
      mConverter(rate, channels) {}

AudioCodec::~AudioCodec() {
    if (mStarted) stop();
    avcodec_free_context(&mContext);
}

status_t AudioCodec::start(MetaData*) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mStarted) return INVALID_OPERATION;
    mPacket = av_packet_alloc();
    mFrame = av_frame_alloc();
    if (mPacket == nullptr || mFrame == nullptr) {
        av_packet_free(&mPacket);
        av_frame_free(&mFrame);
        return NO_INIT;
    }
    const status_t status = mTrack->start();
    if (status != OK) {
        av_packet_free(&mPacket);
        av_frame_free(&mFrame);
        return status;
    }
    mGroup = MediaBufferGroup::create();
    mInputEnded = mOutputEnded = false;
    mTimeBaseUs = mFramesSinceBase = 0;
    mDamage = DamageTally();
    mStarted = true;
    return OK;
}

status_t AudioCodec::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return INVALID_OPERATION;
    mTrack->stop();
    avcodec_flush_buffers(mContext);
    mConverter.reset();
    av_packet_free(&mPacket);
    av_frame_free(&mFrame);
    mGroup.reset();
    mStarted = false;
    return OK;
}

void AudioCodec::seekLocked(int64_t timeUs, ReadOptions::SeekMode mode) {
    if (timeUs < 0) timeUs = 0;
    // Land before the time so that dropping decoded audio can reach it.
    mTrack->seek(timeUs,
                 mode == ReadOptions::SEEK_NEXT_SYNC ? mode : ReadOptions::SEEK_PREVIOUS_SYNC);
    mSkipUntilUs = timeUs;
    mDropFrames = 0;
    avcodec_flush_buffers(mContext);
    mConverter.reset();
    mInputEnded = mOutputEnded = false;
    // Until a decoded frame says where the seek landed, assume the target.
    mTimeBaseUs = timeUs;
    mFramesSinceBase = 0;
}

void AudioCodec::endStreamLocked(const char* why, int error) {
    if (error != 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(error, text, sizeof text);
        WV_LOGW("%s (%s) at %" PRId64 " us; the stream ends here", why, text, nextTimeUsLocked());
    }
    mInputEnded = mOutputEnded = true;
}

bool AudioCodec::skipDamagedLocked(const char* why, int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    WV_LOGW("%s (%s) at %" PRId64 " us; skipped", why, text, nextTimeUsLocked());
    return mDamage.skipped(true, nextTimeUsLocked());
}

DecodeDamage AudioCodec::damage() {
    std::lock_guard<std::mutex> guard(mLock);
    return mDamage.damage();
}

MediaBuffer* AudioCodec::convertLocked(const AVFrame* frame) {
    const int capacity = mConverter.maxOutputFrames(frame);
    if (capacity < 0) {
        endStreamLocked("unconvertible decoded format", AVERROR(EINVAL));
        return nullptr;
    }
    if (capacity == 0) return nullptr;
    const size_t frameBytes = 2 * static_cast<size_t>(mConverter.outChannels());
    MediaBuffer* buffer = mGroup->acquire(static_cast<size_t>(capacity) * frameBytes);
    const int frames = mConverter.convert(frame, static_cast<int16_t*>(buffer->data()), capacity);
    if (frames <= 0) {
        buffer->release();
        if (frames < 0) endStreamLocked("sample conversion failed", frames);
        return nullptr;
    }
    const int drop = mDropFrames < frames ? mDropFrames : frames;
    mDropFrames = 0;
    mFramesSinceBase += drop;
    if (drop == frames) {
        buffer->release();
        return nullptr;
    }
    const int64_t startUs = nextTimeUsLocked();
    int kept = frames - drop;
    if (mEndUs >= 0) {
        // Rounded to the nearest frame: the times are whole microseconds.
        const int64_t left = ((mEndUs - startUs) * mRate + 500000) / 1000000;
        if (left < kept) kept = left > 0 ? static_cast<int>(left) : 0;
        if (kept == 0) {
            buffer->release();
            mInputEnded = mOutputEnded = true;
            return nullptr;
        }
    }
    buffer->set_range(static_cast<size_t>(drop) * frameBytes,
                      static_cast<size_t>(kept) * frameBytes);
    buffer->meta_data()->setInt64(kKeyTime, startUs);
    mFramesSinceBase += kept;
    return buffer;
}

bool AudioCodec::beforeSeekTargetLocked(int64_t frameUs) {
    if (mSkipUntilUs < 0) return false;
    const int inRate = mFrame->sample_rate > 0 ? mFrame->sample_rate : mRate;
    const int64_t endUs = frameUs + int64_t(mFrame->nb_samples) * 1000000 / inRate;
    if (endUs <= mSkipUntilUs) return true;
    if (frameUs < mSkipUntilUs) {
        mDropFrames = static_cast<int>((mSkipUntilUs - frameUs) * mRate / 1000000);
    }
    mSkipUntilUs = -1;
    return false;
}

status_t AudioCodec::read(MediaBuffer** out, const ReadOptions* options) {
    *out = nullptr;
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return NO_INIT;
    int64_t seekUs;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekUs, &mode)) seekLocked(seekUs, mode);

    while (!mOutputEnded) {
        int ret = avcodec_receive_frame(mContext, mFrame);
        if (ret == 0) {
            mDamage.decoded();
            if (mFrame->best_effort_timestamp != AV_NOPTS_VALUE) {
                mTimeBaseUs = mTrack->demuxer()->toMediaUs(mTrack->streamIndex(),
                                                           mFrame->best_effort_timestamp);
                mFramesSinceBase = 0;
                if (beforeSeekTargetLocked(mTimeBaseUs)) {
                    av_frame_unref(mFrame);
                    continue;
                }
            } else {
                mSkipUntilUs = -1;  // no way to tell where the seek landed
            }
            MediaBuffer* buffer = convertLocked(mFrame);
            av_frame_unref(mFrame);
            if (buffer != nullptr) {
                *out = buffer;
                return OK;
            }
        } else if (ret == AVERROR_EOF) {
            // Hand out what a rate conversion still holds, then end.
            MediaBuffer* buffer = convertLocked(nullptr);
            if (buffer != nullptr) {
                *out = buffer;
                return OK;
            }
            mOutputEnded = true;
        } else if (ret == AVERROR(EAGAIN) && !mInputEnded) {
            const status_t status = mTrack->readPacket(mPacket, nullptr);
            if (status != OK) {
                if (status != ERROR_END_OF_STREAM)
                    WV_LOGW("track read failed (%d); draining", status);
                mInputEnded = true;
                avcodec_send_packet(mContext, nullptr);  // drain
                continue;
            }
            ret = avcodec_send_packet(mContext, mPacket);
            av_packet_unref(mPacket);
            if (ret < 0 && ret != AVERROR(EAGAIN) &&
                !skipDamagedLocked("packet refused by the decoder", ret)) {
                endStreamLocked("too many damaged packets", ret);
            }
        } else if (ret == AVERROR(EAGAIN) || ret == AVERROR(ENOMEM) ||
                   !skipDamagedLocked("decode error", ret)) {
            // EAGAIN here: the input ended and the codec still asks for more.
            endStreamLocked("decode error", ret);
        }
    }
    return ERROR_END_OF_STREAM;
}

}  // namespace wv
