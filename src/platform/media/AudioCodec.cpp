#define WV_LOG_TAG "MediaLayer"
#include "platform/media/AudioCodec.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cinttypes>

#include "base/Log.h"

namespace wv {

std::shared_ptr<MediaSource> AudioCodec::Create(const std::shared_ptr<MetaData>& meta,
                                                const std::shared_ptr<MediaSource>& source) {
    int rate = 0, channels = 0;
    if (!DecoderCore::pcmLayoutOf(meta, &rate, &channels)) {
        WV_LOGE("track states no usable sample rate and channel count");
        return nullptr;
    }
    std::unique_ptr<DecoderCore> core = DecoderCore::open(source, rate, channels);
    if (!core) return nullptr;
    const int64_t endUs = core->track().statedEndUs();
    std::shared_ptr<MetaData> format = DecoderCore::pcmFormat(rate, channels);
    int64_t durationUs;
    if (meta->findInt64(kKeyDuration, &durationUs)) format->setInt64(kKeyDuration, durationUs);
    return std::shared_ptr<MediaSource>(
        new AudioCodec(std::move(core), rate, std::move(format), endUs));
}

AudioCodec::AudioCodec(std::unique_ptr<DecoderCore> core, int rate,
                       std::shared_ptr<MetaData> format, int64_t endUs)
    : mCore(std::move(core)), mRate(rate), mFormat(std::move(format)), mEndUs(endUs) {}

AudioCodec::~AudioCodec() {
    if (mStarted) stop();
}

status_t AudioCodec::start(MetaData*) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mStarted) return INVALID_OPERATION;
    const status_t status = mCore->start();
    if (status != OK) return status;
    mOutputEnded = false;
    mTimeBaseUs = mFramesSinceBase = 0;
    mStarted = true;
    return OK;
}

status_t AudioCodec::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return INVALID_OPERATION;
    mCore->stop();
    mStarted = false;
    return OK;
}

void AudioCodec::seekLocked(int64_t timeUs, ReadOptions::SeekMode mode) {
    if (timeUs < 0) timeUs = 0;
    // Land before the time so that dropping decoded audio can reach it.
    mCore->track().seek(
        timeUs, mode == ReadOptions::SEEK_NEXT_SYNC ? mode : ReadOptions::SEEK_PREVIOUS_SYNC);
    mSkipUntilUs = timeUs;
    mDropFrames = 0;
    mCore->flush();
    mOutputEnded = false;
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
    mOutputEnded = true;
}

DecoderCore::Feed::Input AudioCodec::nextPacket(AVPacket* packet) {
    const status_t status = mCore->track().readPacket(packet, nullptr);
    if (status == OK) return Input::kPacket;
    if (status != ERROR_END_OF_STREAM) WV_LOGW("track read failed (%d); draining", status);
    return Input::kEnd;
}

bool AudioCodec::skipDamaged(bool refused, int error) {
    const char* why = refused ? "packet refused by the decoder" : "decode error";
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    WV_LOGW("%s (%s) at %" PRId64 " us; skipped", why, text, nextTimeUsLocked());
    if (mCore->tally().skipped(true, nextTimeUsLocked())) return true;
    endStreamLocked(refused ? "too many damaged packets" : why, error);
    return false;
}

DecodeDamage AudioCodec::damage() {
    std::lock_guard<std::mutex> guard(mLock);
    return mCore->tally().damage();
}

MediaBuffer* AudioCodec::convertLocked(const AVFrame* frame) {
    const DecoderCore::Converted converted = mCore->convert(frame);
    if (converted.failure != nullptr) {
        endStreamLocked(converted.failure, converted.error);
        return nullptr;
    }
    if (converted.buffer == nullptr) return nullptr;
    const int frames = converted.frames;
    const int drop = mDropFrames < frames ? mDropFrames : frames;
    mDropFrames = 0;
    mFramesSinceBase += drop;
    if (drop == frames) {
        converted.buffer->release();
        return nullptr;
    }
    const int64_t startUs = nextTimeUsLocked();
    int kept = frames - drop;
    if (mEndUs >= 0) {
        // Rounded to the nearest frame: the times are whole microseconds.
        const int64_t left = ((mEndUs - startUs) * mRate + 500000) / 1000000;
        if (left < kept) kept = left > 0 ? static_cast<int>(left) : 0;
        if (kept == 0) {
            converted.buffer->release();
            mOutputEnded = true;
            return nullptr;
        }
    }
    mFramesSinceBase += kept;
    return mCore->cut(converted.buffer, drop, kept, startUs);
}

bool AudioCodec::beforeSeekTargetLocked(const AVFrame* frame, int64_t frameUs) {
    if (mSkipUntilUs < 0) return false;
    const int inRate = frame->sample_rate > 0 ? frame->sample_rate : mRate;
    const int64_t endUs = frameUs + int64_t(frame->nb_samples) * 1000000 / inRate;
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
        MediaBuffer* buffer = nullptr;
        switch (mCore->decode(*this)) {
            case DecoderCore::Step::kFrame: {
                const AVFrame* frame = mCore->frame();
                if (frame->best_effort_timestamp != AV_NOPTS_VALUE) {
                    const AvPacketTrack& track = mCore->track();
                    mTimeBaseUs = track.demuxer()->toMediaUs(track.streamIndex(),
                                                             frame->best_effort_timestamp);
                    mFramesSinceBase = 0;
                    if (beforeSeekTargetLocked(frame, mTimeBaseUs)) continue;
                } else {
                    mSkipUntilUs = -1;  // no way to tell where the seek landed
                }
                buffer = convertLocked(frame);
                break;
            }
            case DecoderCore::Step::kDrained:
                // Hand out what a rate conversion still holds, then end.
                buffer = convertLocked(nullptr);
                if (buffer == nullptr) mOutputEnded = true;
                break;
            case DecoderCore::Step::kStopped:
            case DecoderCore::Step::kHungry:
                // Unless the feed ended it already: the codec's own failure.
                if (!mOutputEnded) endStreamLocked("decode error", mCore->error());
                break;
        }
        if (buffer != nullptr) {
            *out = buffer;
            return OK;
        }
    }
    return ERROR_END_OF_STREAM;
}

}  // namespace wv
