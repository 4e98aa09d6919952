#define WV_LOG_TAG "AudioInput"
#include "platform/audio/AudioInput.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <utility>

#include "base/Log.h"

namespace wv {
namespace {

constexpr uint32_t kMaxChannels = 8;

std::mutex gHookLock;
std::atomic<bool> gHookSet{false};
std::function<void()> gDeliveryHook;

void runDeliveryHook() {
    if (!gHookSet.load(std::memory_order_acquire)) return;
    std::function<void()> hook;
    {
        std::lock_guard<std::mutex> guard(gHookLock);
        hook = gDeliveryHook;
    }
    if (hook) hook();
}

uint32_t channelsOfMask(uint32_t mask) { return static_cast<uint32_t>(__builtin_popcount(mask)); }

bool usable(uint32_t sampleRate, int32_t format, uint32_t channels) {
    return format == AudioInput::AUDIO_FORMAT_PCM_16_BIT && sampleRate > 0 && channels > 0 &&
           channels <= kMaxChannels;
}

}  // namespace

void setAudioInputDeliveryHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> guard(gHookLock);
    gHookSet.store(static_cast<bool>(hook), std::memory_order_release);
    gDeliveryHook = std::move(hook);
}

int32_t AudioInput::getMinFrameCount(size_t* frameCount, uint32_t sampleRate, int32_t format,
                                     uint32_t channelMask) {
    if (frameCount == nullptr || !usable(sampleRate, format, channelsOfMask(channelMask))) {
        return BAD_VALUE;
    }
    *frameCount = std::max<size_t>(256, sampleRate / 50);
    return 0;
}

AudioInput::AudioInput(int32_t inputSource, uint32_t sampleRate, int32_t format,
                       uint32_t channelMask, size_t frameCount, callback_t callback, void* user,
                       uint32_t notificationFrames)
    : mSampleRate(sampleRate), mCallback(callback), mUser(user) {
    (void)inputSource;
    mChannels = channelsOfMask(channelMask);
    if (!usable(sampleRate, format, mChannels) || callback == nullptr) {
        WV_LOGE("cannot capture format %d, channel mask %#x, %u Hz", format, channelMask,
                sampleRate);
        mStatus = BAD_VALUE;
        return;
    }
    open(nullptr, true, frameCount, notificationFrames);
}

AudioInput::AudioInput(std::unique_ptr<AudioInputDevice> device, uint32_t sampleRate,
                       int32_t format, uint32_t channelMask, size_t frameCount, callback_t callback,
                       void* user, uint32_t notificationFrames)
    : mSampleRate(sampleRate), mCallback(callback), mUser(user) {
    mChannels = channelsOfMask(channelMask);
    if (!usable(sampleRate, format, mChannels) || callback == nullptr || device == nullptr) {
        WV_LOGE("cannot capture format %d, channel mask %#x, %u Hz", format, channelMask,
                sampleRate);
        mStatus = BAD_VALUE;
        return;
    }
    open(std::move(device), false, frameCount, notificationFrames);
}

void AudioInput::open(std::unique_ptr<AudioInputDevice> device, bool selected, size_t frameCount,
                      uint32_t notificationFrames) {
    size_t minimum = 0;
    getMinFrameCount(&minimum, mSampleRate, AUDIO_FORMAT_PCM_16_BIT, (1u << mChannels) - 1);
    mFrameCount = std::max(frameCount, minimum);
    if (notificationFrames == 0 || notificationFrames > mFrameCount) {
        notificationFrames = uint32_t(mFrameCount / 2);
    }
    mNotificationFrames = notificationFrames;
    mScratch.resize(size_t(mNotificationFrames) * mChannels);
    mQueue.reset(new FrameQueue(mFrameCount, mChannels));

    const int32_t err =
        selected ? openAudioInputDevice(selectedAudioInput(), mSampleRate, mChannels, this, &device)
                 : device->open(mSampleRate, mChannels, this);
    if (err != 0) {
        mStatus = err;
        return;
    }
    mDevice = std::move(device);
    mDeviceWaits = mDevice->canWait();
    mThread = std::thread(&AudioInput::deliverLoop, this);
}

AudioInput::~AudioInput() {
    if (mStatus != 0) return;
    stop();
    {
        std::lock_guard<std::mutex> guard(mLock);
        mExiting = true;
    }
    mChanged.notify_all();
    mThread.join();
}

const char* AudioInput::deviceName() const { return mDevice ? mDevice->name() : ""; }

uint32_t AudioInput::latency() const {
    if (mStatus != 0) return 0;
    return mDevice->latencyMs() + uint32_t(uint64_t(mFrameCount) * 1000 / mSampleRate);
}

int32_t AudioInput::start() {
    if (mStatus != 0) return NO_INIT;
    std::lock_guard<std::mutex> control(mControlLock);
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mStarted) return 0;
        mQueue->clear();
        mFramesLost = 0;
        mOverrunPending = false;
        mStarted = true;
    }
    const int32_t err = mDevice->start();
    if (err != 0) {
        std::lock_guard<std::mutex> guard(mLock);
        mStarted = false;
    }
    return err;
}

void AudioInput::stop() {
    if (mStatus != 0) return;
    std::lock_guard<std::mutex> control(mControlLock);
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mStarted) return;
        mStarted = false;
    }
    // A device held for room must let go before it can stop.
    mRoom.notify_all();
    // Not under mLock: the device's thread may be waiting for it.
    mDevice->stop();
    mChanged.notify_all();
}

bool AudioInput::stopped() const {
    std::lock_guard<std::mutex> guard(mLock);
    return !mStarted;
}

uint32_t AudioInput::getInputFramesLost() {
    std::lock_guard<std::mutex> guard(mLock);
    const uint32_t lost = mFramesLost;
    mFramesLost = 0;
    return lost;
}

void AudioInput::onCaptured(const int16_t* frames, size_t count) {
    std::unique_lock<std::mutex> lock(mLock);
    if (mDeviceWaits) {
        // Hand over what fits, then wait for the input's thread to make
        // room. A partial block wakes it too: the ring may be smaller than
        // the rest of the hand-over, never than a block.
        while (mStarted && count > 0) {
            const size_t written = mQueue->write(frames, count);
            frames += written * mChannels;
            count -= written;
            if (count == 0) break;
            mChanged.notify_all();
            mRoom.wait(lock, [this] { return !mStarted || mQueue->room() > 0; });
        }
        if (mQueue->used() >= mNotificationFrames) mChanged.notify_all();
        return;
    }
    if (!mStarted) return;
    const size_t written = mQueue->write(frames, count);
    if (written < count) {
        mFramesLost += uint32_t(count - written);
        mOverrunPending = true;
    }
    if (mQueue->used() >= mNotificationFrames || mOverrunPending) mChanged.notify_all();
}

void AudioInput::deliverLoop() {
    pthread_setname_np(pthread_self(), "WavoryxInput");
    std::unique_lock<std::mutex> lock(mLock);
    while (!mExiting) {
        if (!mStarted || (mQueue->used() < mNotificationFrames && !mOverrunPending)) {
            mChanged.wait(lock);
            continue;
        }
        const bool overrun = mOverrunPending;
        mOverrunPending = false;
        size_t frames = 0;
        if (mQueue->used() >= mNotificationFrames) {
            frames = mQueue->read(mScratch.data(), mNotificationFrames);
        }
        lock.unlock();
        if (frames > 0) mRoom.notify_all();
        runDeliveryHook();
        if (overrun) mCallback(EVENT_OVERRUN, mUser, nullptr);
        if (frames > 0) {
            Buffer buffer;
            buffer.frameCount = frames;
            buffer.size = frames * frameSize();
            buffer.raw = mScratch.data();
            mCallback(EVENT_MORE_DATA, mUser, &buffer);
        }
        lock.lock();
    }
}

}  // namespace wv
