#define WV_LOG_TAG "AudioOutput"
#include "platform/audio/AudioOutput.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace {

constexpr uint32_t kMaxChannels = 8;
// The queue is sized from the rate, so a rate no device plays (a file's
// header may claim up to 2^31 - 1 Hz) would ask for gigabytes.
constexpr uint32_t kMaxOpenRate = 768000;
// How long the output's thread waits after a callback that wrote nothing.
constexpr auto kEmptyCallbackBackoff = std::chrono::milliseconds(2);

uint32_t channelsOfMask(uint32_t mask) { return static_cast<uint32_t>(__builtin_popcount(mask)); }

}  // namespace

AudioOutput::AudioOutput(uint32_t sampleRate, int32_t format, uint32_t channelMask,
                         size_t frameCount, callback_t callback, void* user,
                         uint32_t notificationFrames)
    : mOpenRate(sampleRate), mCallback(callback), mUser(user), mRate(sampleRate) {
    mChannels = channelsOfMask(channelMask);
    if (format != AUDIO_FORMAT_PCM_16_BIT || mChannels == 0 || mChannels > kMaxChannels ||
        sampleRate == 0 || sampleRate > kMaxOpenRate || callback == nullptr) {
        WV_LOGE("cannot play format %d, channel mask %#x, %u Hz", format, channelMask, sampleRate);
        mStatus = BAD_VALUE;
        return;
    }
    open(nullptr, true, frameCount, notificationFrames);
}

AudioOutput::AudioOutput(std::unique_ptr<AudioOutputDevice> device, uint32_t sampleRate,
                         int32_t format, uint32_t channelMask, size_t frameCount,
                         callback_t callback, void* user, uint32_t notificationFrames)
    : mOpenRate(sampleRate), mCallback(callback), mUser(user), mRate(sampleRate) {
    mChannels = channelsOfMask(channelMask);
    if (format != AUDIO_FORMAT_PCM_16_BIT || mChannels == 0 || mChannels > kMaxChannels ||
        sampleRate == 0 || sampleRate > kMaxOpenRate || callback == nullptr || device == nullptr) {
        WV_LOGE("cannot play format %d, channel mask %#x, %u Hz", format, channelMask, sampleRate);
        mStatus = BAD_VALUE;
        return;
    }
    open(std::move(device), false, frameCount, notificationFrames);
}

void AudioOutput::open(std::unique_ptr<AudioOutputDevice> device, bool selected, size_t frameCount,
                       uint32_t notificationFrames) {
    int32_t err;
    if (selected) {
        err = openAudioOutputDevice(selectedAudioOutput(), mOpenRate, mChannels, this, &device);
    } else {
        err = device->open(mOpenRate, mChannels, this);
    }
    if (err != 0) {
        mStatus = err;
        return;
    }
    const uint32_t deviceRate = device->deviceRate();
    if (deviceRate > 0) {
        // A fixed-rate device hears the queue through the linear resampler,
        // which steps at most 4 input frames per output frame.
        if (uint64_t(mOpenRate) >= uint64_t(deviceRate) * 4) {
            WV_LOGE("cannot play %u Hz on a %u Hz device", mOpenRate, deviceRate);
            device->close();
            mStatus = BAD_VALUE;
            return;
        }
        mResampler.reset(AudioResampler::create(16, int(mChannels), int32_t(deviceRate),
                                                AudioResampler::SRC_DEFAULT));
        mResampler->init();
        mResampler->setVolume(1, 1);
        mResampler->setSampleRate(int32_t(mOpenRate));
    }
    mFrameCount = frameCount > 0 ? frameCount : device->defaultBufferFrames(mOpenRate);
    mFrameCount = std::max<size_t>(mFrameCount, 2);
    if (notificationFrames == 0 || notificationFrames > mFrameCount) {
        notificationFrames = uint32_t(mFrameCount / 2);
    }
    mNotificationFrames = notificationFrames;
    mScratch.resize(size_t(mNotificationFrames) * mChannels);
    mQueue.reset(new FrameQueue(mFrameCount, mChannels));
    mDevice = std::move(device);
    WV_LOGV("opened on %s: %u Hz, %u channels, %zu frames", mDevice->name(), mOpenRate, mChannels,
            mFrameCount);
    mThread = std::thread(&AudioOutput::feedLoop, this);
}

AudioOutput::~AudioOutput() { close(); }

void AudioOutput::close() {
    if (mClosed) return;
    mClosed = true;
    if (mThread.joinable()) {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mExiting = true;
        }
        mChanged.notify_all();
        mThread.join();
    }
    // After this the device no longer calls renderStereo or advance.
    if (mDevice) mDevice->close();
}

const char* AudioOutput::deviceName() const { return mDevice ? mDevice->name() : ""; }

int32_t AudioOutput::start() {
    if (mStatus != 0) return NO_INIT;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mState = ACTIVE;
    }
    mChanged.notify_all();
    return 0;
}

void AudioOutput::pause() {
    if (mStatus != 0) return;
    std::lock_guard<std::mutex> guard(mLock);
    if (mState == ACTIVE || mState == STOPPING) mState = PAUSED;
}

void AudioOutput::stop() {
    if (mStatus != 0) return;
    std::lock_guard<std::mutex> guard(mLock);
    if (mState == ACTIVE) {
        mState = mQueue->used() > 0 ? STOPPING : STOPPED;
    } else if (mState == PAUSED) {
        mQueue->clear();
        if (mResampler) mResampler->reset();
        mState = STOPPED;
    }
    mChanged.notify_all();
}

void AudioOutput::flush() {
    if (mStatus != 0) return;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mQueue->clear();
        if (mResampler) mResampler->reset();
        if (mState == STOPPING) mState = STOPPED;
    }
    mChanged.notify_all();
}

bool AudioOutput::stopped() const {
    if (mStatus != 0) return true;
    std::lock_guard<std::mutex> guard(mLock);
    return mState == STOPPED;
}

int32_t AudioOutput::setSampleRate(int32_t sampleRate) {
    if (mStatus != 0) return NO_INIT;
    if (sampleRate <= 0 || uint64_t(sampleRate) > uint64_t(mOpenRate) * kMaxRateFactor) {
        return BAD_VALUE;
    }
    std::lock_guard<std::mutex> guard(mLock);
    if (mResampler) {
        if (uint64_t(sampleRate) >= uint64_t(mResampler->sampleRate()) * 4) return BAD_VALUE;
        mResampler->setSampleRate(sampleRate);
    }
    mRate = uint32_t(sampleRate);
    return 0;
}

uint32_t AudioOutput::getSampleRate() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mRate;
}

uint64_t AudioOutput::framesHandedOut() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mHandedOut;
}

uint64_t AudioOutput::framesPlayed() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mPlayed;
}

size_t AudioOutput::framesQueued() const {
    if (mStatus != 0) return 0;
    std::lock_guard<std::mutex> guard(mLock);
    return mQueue->used();
}

uint64_t AudioOutput::framesPresented() const {
    if (mStatus != 0) return 0;
    std::lock_guard<std::mutex> guard(mLock);
    return mHandedOut - mQueue->used();
}

void AudioOutput::feedLoop() {
    pthread_setname_np(pthread_self(), "WavoryxOutput");
    const size_t frameBytes = frameSize();
    std::unique_lock<std::mutex> lock(mLock);
    while (!mExiting) {
        if (mState != ACTIVE || mQueue->room() < mNotificationFrames) {
            mChanged.wait(lock);
            continue;
        }
        lock.unlock();
        Buffer buffer;
        buffer.frameCount = mNotificationFrames;
        buffer.size = size_t(mNotificationFrames) * frameBytes;
        buffer.raw = mScratch.data();
        mCallback(EVENT_MORE_DATA, mUser, &buffer);
        const size_t frames = std::min<size_t>(buffer.size / frameBytes, mNotificationFrames);
        if (frames > 0) mDevice->onQueued(mScratch.data(), frames);
        lock.lock();
        if (frames == 0) {
            mChanged.wait_for(lock, kEmptyCallbackBackoff);
            continue;
        }
        // Room only grows while the lock is released, so all of it fits.
        mQueue->write(mScratch.data(), frames);
        mHandedOut += frames;
    }
}

void AudioOutput::tookFrames_l(uint64_t count) {
    mPlayed += count;
    if (mState == STOPPING && mQueue->used() == 0) mState = STOPPED;
    if (count > 0 || mState == STOPPED) mChanged.notify_all();
}

void AudioOutput::renderStereo(int16_t* out, size_t frames) {
    std::memset(out, 0, frames * 2 * sizeof(int16_t));
    std::lock_guard<std::mutex> guard(mLock);
    if (mState != ACTIVE && mState != STOPPING) return;
    const uint64_t before = mQueue->consumed();
    mResampler->resample(out, frames, mQueue.get());
    tookFrames_l(mQueue->consumed() - before);
}

void AudioOutput::advance(int64_t playedUs) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mState != ACTIVE && mState != STOPPING) {
        mClockRemainder = 0;
        return;
    }
    mClockRemainder += playedUs * int64_t(mRate);
    const int64_t due = mClockRemainder / 1000000;
    mClockRemainder %= 1000000;
    // Time that finds the queue empty plays silence: it is not owed later.
    tookFrames_l(mQueue->discard(size_t(due)));
}

}  // namespace wv
