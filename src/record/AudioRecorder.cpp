#define WV_LOG_TAG "AudioRecorder"
#include "record/AudioRecorder.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "base/Log.h"

namespace wv {
namespace {

uint32_t channelMaskOf(uint32_t channelCount) {
    switch (channelCount) {
        case 1:
            return 0x10;
        case 2:
            return 0xC;
        case 6:
            return 0x3F0000;
        default:
            return 0;
    }
}

}  // namespace

AudioRecorder::AudioRecorder(int32_t inputSource, uint32_t sampleRate, uint32_t channelCount)
    : mSampleRate(sampleRate), mBuffers(MediaBufferGroup::create()) {
    open(nullptr, inputSource, channelCount);
}

AudioRecorder::AudioRecorder(std::unique_ptr<AudioInputDevice> device, uint32_t sampleRate,
                             uint32_t channelCount)
    : mSampleRate(sampleRate), mBuffers(MediaBufferGroup::create()) {
    open(std::move(device), 0, channelCount);
}

void AudioRecorder::open(std::unique_ptr<AudioInputDevice> device, int32_t inputSource,
                         uint32_t channelCount) {
    const uint32_t mask = channelMaskOf(channelCount);
    if (mask == 0) {
        WV_LOGE("cannot record %u channels", channelCount);
        mInitStatus = AudioInput::BAD_VALUE;
        return;
    }
    size_t minFrames = 0;
    const int32_t err = AudioInput::getMinFrameCount(&minFrames, mSampleRate,
                                                     AudioInput::AUDIO_FORMAT_PCM_16_BIT, mask);
    if (err != 0) {
        mInitStatus = err;
        return;
    }
    const size_t notificationFrames = kMaxBlockBytes / 2 / channelCount;
    size_t frameCount = 2 * notificationFrames;
    while (frameCount < minFrames) frameCount += notificationFrames;
    if (device) {
        mAudioRecord.reset(new AudioInput(
            std::move(device), mSampleRate, AudioInput::AUDIO_FORMAT_PCM_16_BIT, mask, frameCount,
            &AudioRecorder::inputCallback, this, uint32_t(notificationFrames)));
    } else {
        mAudioRecord.reset(new AudioInput(
            inputSource, mSampleRate, AudioInput::AUDIO_FORMAT_PCM_16_BIT, mask, frameCount,
            &AudioRecorder::inputCallback, this, uint32_t(notificationFrames)));
    }
    mInitStatus = mAudioRecord->initCheck();
    if (mInitStatus != 0) {
        mAudioRecord.reset();
        return;
    }
    mChannels = mAudioRecord->channelCount();
    mFrameSize = mAudioRecord->frameSize();
}

AudioRecorder::~AudioRecorder() {
    bool started;
    {
        std::lock_guard<std::mutex> guard(mLock);
        started = mStarted;
    }
    if (started) reset();
    // Joins the input's callback thread before the lock and queue go.
    mAudioRecord.reset();
    std::lock_guard<std::mutex> guard(mLock);
    releaseQueuedFrames_l();
}

void AudioRecorder::inputCallback(int event, void* user, void* info) {
    auto* self = static_cast<AudioRecorder*>(user);
    if (event == AudioInput::EVENT_MORE_DATA) {
        self->dataCallback(*static_cast<AudioInput::Buffer*>(info));
    } else if (event == AudioInput::EVENT_OVERRUN) {
        WV_LOGW("AudioRecord reported overrun!");
    }
}

status_t AudioRecorder::start(MetaData* params) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mInitStatus != 0 || !mAudioRecord) return NO_INIT;
    if (mStarted) return INVALID_STATE;
    mAmplitudeTracking = false;
    mPeakAmplitude = 0;
    mFirstCallbackTimeUs = 0;
    mStartTimeUs = 0;
    int64_t startTimeUs;
    if (params != nullptr && params->findInt64(kKeyTime, &startTimeUs)) mStartTimeUs = startTimeUs;
    // Set before the input runs, so that its first block is not taken for
    // a spurious one.
    mStarted = true;
    const status_t err = mAudioRecord->start();
    if (err != 0) {
        mStarted = false;
        mAudioRecord.reset();
    }
    return err;
}

status_t AudioRecorder::reset() {
    std::unique_lock<std::mutex> lock(mLock);
    if (mInitStatus != 0) return NO_INIT;
    if (!mStarted) return INVALID_STATE;
    mStarted = false;
    // The input does not wait for a callback under way, which may be
    // waiting for mLock.
    mAudioRecord->stop();
    mDataReady.notify_all();
    waitOutstandingEncodingFrames_l(lock);
    releaseQueuedFrames_l();
    return 0;
}

std::shared_ptr<MetaData> AudioRecorder::getFormat() {
    if (mInitStatus != 0) return nullptr;
    auto meta = std::make_shared<MetaData>();
    meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_RAW);
    meta->setInt32(kKeySampleRate, int32_t(mSampleRate));
    meta->setInt32(kKeyChannelCount, int32_t(mChannels));
    meta->setInt32(kKeyMaxInputSize, int32_t(kMaxBlockBytes));
    return meta;
}

status_t AudioRecorder::read(MediaBuffer** out, const ReadOptions*) {
    std::unique_lock<std::mutex> lock(mLock);
    *out = nullptr;
    if (mInitStatus != 0) return NO_INIT;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::microseconds(kReadTimeoutUs);
    while (mStarted && mQueue.empty()) {
        if (mDataReady.wait_until(lock, deadline) == std::cv_status::timeout && mQueue.empty()) {
            return mStarted ? TIMED_OUT : 0;
        }
    }
    if (!mStarted) return 0;

    MediaBuffer* buffer = mQueue.front();
    mQueue.pop_front();
    ++mBuffersOut;
    buffer->setObserver(this);
    // The ramp follows the buffers read, not the ones queued meanwhile: a
    // reader that lags behind the input ramps the same frames as one that
    // keeps up.
    mFramesRead += int64_t(buffer->range_length() / mFrameSize);

    int64_t timeUs = 0;
    WV_CHECK_AT(Check::kRecorderBufferTime, buffer->meta_data()->findInt64(kKeyTime, &timeUs));
    const int64_t elapsedUs = timeUs - mStartTimeUs;
    auto* data = static_cast<uint8_t*>(buffer->data()) + buffer->range_offset();
    if (elapsedUs < mMuteLeadUs) {
        std::memset(data, 0, buffer->range_length());
    } else if (elapsedUs < mMuteLeadUs + kRampDurationUs) {
        const int64_t rampDurationFrames = (kRampDurationUs * mSampleRate + 500000) / 1000000;
        const int64_t rampStartFrames = (mMuteLeadUs * mSampleRate + 500000) / 1000000;
        rampVolume(static_cast<int32_t>(mFramesRead - rampStartFrames),
                   static_cast<int32_t>(rampDurationFrames), data, buffer->range_length());
    }
    if (mAmplitudeTracking) {
        trackMaxAmplitude(reinterpret_cast<const int16_t*>(data), buffer->range_length() / 2);
    }
    *out = buffer;
    return 0;
}

int16_t AudioRecorder::getMaxAmplitude() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mAmplitudeTracking) mAmplitudeTracking = true;
    const int16_t peak = mPeakAmplitude;
    mPeakAmplitude = 0;
    return peak;
}

void AudioRecorder::dataCallback(const AudioInput::Buffer& block) {
    const int64_t timeUs = monotonicNs() / 1000;
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) {
        WV_LOGW("Spurious callback from AudioRecord. Drop the audio data.");
        return;
    }
    int64_t lostBytes = 0;
    if (mFramesQueued == 0) {
        if (timeUs < mStartTimeUs) {
            mAudioRecord->getInputFramesLost();
            return;
        }
        if (mNextSampleTimeUs == 0) {
            mFirstCallbackTimeUs = timeUs;
            if (mStartTimeUs > 0) {
                mStartTimeUs = timeUs - mStartTimeUs;
            } else {
                mStartTimeUs += int64_t(mAudioRecord->latency()) * 1000;
            }
            mNextSampleTimeUs = mStartTimeUs;
        }
    } else {
        lostBytes = int64_t(mAudioRecord->getInputFramesLost()) * int64_t(mFrameSize);
    }
    WV_CHECK_EQ_AT(Check::kRecorderLostBytesEven, "lostBytes & 1,0u", lostBytes & 1, 0);
    WV_CHECK_EQ_AT(Check::kRecorderBlockEven, "audioBuffer.size & 1,0u", block.size & 1, 0u);

    if (lostBytes > 0) {
        WV_LOGW("Lost audio record data: %d bytes", static_cast<int>(lostBytes));
    }
    while (lostBytes > 0) {
        const size_t bytes = size_t(std::min<int64_t>(lostBytes, kMaxBlockBytes));
        MediaBuffer* filler = mBuffers->acquire(bytes);
        std::memset(filler->data(), 0, bytes);
        filler->set_range(0, bytes);
        filler->meta_data()->setInt32(kKeyFilledFrames, int32_t(bytes / mFrameSize));
        queueInputBuffer_l(filler, timeUs);
        lostBytes -= int64_t(bytes);
    }
    if (block.size == 0) {
        WV_LOGW("Nothing is available from AudioRecord callback buffer");
        return;
    }
    MediaBuffer* buffer = mBuffers->acquire(block.size);
    std::memcpy(buffer->data(), block.raw, block.size);
    buffer->set_range(0, block.size);
    queueInputBuffer_l(buffer, timeUs);
}

void AudioRecorder::queueInputBuffer_l(MediaBuffer* buffer, int64_t timeUs) {
    const int64_t frames = int64_t(buffer->range_length() / mFrameSize);
    const int64_t durationUs = (frames * 1000000 + mSampleRate / 2) / mSampleRate;
    if (mFramesQueued == 0) buffer->meta_data()->setInt64(kKeyAnchorTime, mStartTimeUs);
    buffer->meta_data()->setInt64(kKeyTime, mNextSampleTimeUs);
    buffer->meta_data()->setInt64(kKeyDriftTime, timeUs - mFirstCallbackTimeUs);
    mNextSampleTimeUs += durationUs;
    mFramesQueued += frames;
    mQueue.push_back(buffer);
    mDataReady.notify_one();
}

void AudioRecorder::releaseQueuedFrames_l() {
    for (MediaBuffer* buffer : mQueue) buffer->release();
    mQueue.clear();
}

void AudioRecorder::waitOutstandingEncodingFrames_l(std::unique_lock<std::mutex>& lock) {
    while (mBuffersOut > 0) mBufferReturned.wait(lock);
}

void AudioRecorder::rampVolume(int32_t startFrame, int32_t rampDurationFrames, uint8_t* data,
                               size_t bytes) {
    if (rampDurationFrames <= 0) return;
    auto* samples = reinterpret_cast<int16_t*>(data);
    const int64_t frames = int64_t(bytes / mFrameSize);
    auto gainAt = [rampDurationFrames](int64_t frame) {
        return int32_t((std::max<int64_t>(frame, 0) << kRampFractionBits) / rampDurationFrames);
    };
    int64_t frame = startFrame;
    const int64_t stopFrame = std::min<int64_t>(frame + frames, rampDurationFrames);
    int32_t multiplier = gainAt(frame);
    while (frame < stopFrame) {
        for (uint32_t c = 0; c < mChannels; ++c) {
            *samples = static_cast<int16_t>((int32_t(*samples) * multiplier) >> kRampFractionBits);
            ++samples;
        }
        ++frame;
        if ((frame & 3) == 0) multiplier = gainAt(frame);
    }
}

void AudioRecorder::trackMaxAmplitude(const int16_t* data, size_t nSamples) {
    for (size_t i = 0; i < nSamples; ++i) {
        // As a 16-bit value, -32768 stays negative and never counts.
        const int16_t value = static_cast<int16_t>(data[i] < 0 ? -data[i] : data[i]);
        if (value > mPeakAmplitude) mPeakAmplitude = value;
    }
}

void AudioRecorder::signalBufferReturned(MediaBuffer* buffer) {
    std::lock_guard<std::mutex> guard(mLock);
    --mBuffersOut;
    buffer->setObserver(nullptr);
    buffer->release();
    mBufferReturned.notify_all();
}

}  // namespace wv
