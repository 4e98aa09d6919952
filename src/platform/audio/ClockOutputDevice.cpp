#define WV_LOG_TAG "AudioOutput"
#include "platform/audio/ClockOutputDevice.h"

#include <algorithm>
#include <chrono>

#include "base/Clock.h"
#include "base/Log.h"

namespace wv {
namespace {

// The queue of a paced device grows with the pace (up to 64 x), so that one
// tick's worth of play time can be held.
constexpr int64_t kQueueUs = 40000;
constexpr double kMaxQueueScale = 64.0;

}  // namespace

ClockOutputDevice::ClockOutputDevice(double pace, std::string wavPath)
    : mPace(pace > 0 ? pace : 1.0), mWavPath(std::move(wavPath)) {}

ClockOutputDevice::~ClockOutputDevice() { close(); }

int32_t ClockOutputDevice::open(uint32_t sampleRate, uint32_t channels, AudioOutputClient* client) {
    if (!mWavPath.empty()) {
        const int32_t err = mWav.open(mWavPath, sampleRate, channels);
        if (err != 0) return err;
    }
    mClient = client;
    mClosing = false;
    mThread = std::thread(&ClockOutputDevice::run, this);
    return 0;
}

void ClockOutputDevice::close() {
    if (mThread.joinable()) {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mClosing = true;
        }
        mWake.notify_all();
        mThread.join();
    }
    mWav.close();
}

size_t ClockOutputDevice::defaultBufferFrames(uint32_t sampleRate) const {
    const double scale = std::min(std::max(mPace, 1.0), kMaxQueueScale);
    return std::max<size_t>(256, size_t(double(sampleRate) * kQueueUs / 1e6 * scale));
}

void ClockOutputDevice::onQueued(const int16_t* frames, size_t count) {
    if (mWav.isOpen() && mWav.write(frames, count) != 0) {
        WV_LOGE("writing %s failed; recording stops", mWavPath.c_str());
        // An unfinished file is no copy of what was played.
        mWav.discard();
    }
}

void ClockOutputDevice::run() {
    const int64_t tickUs = std::clamp<int64_t>(int64_t(10000 / mPace), 250, 10000);
    std::unique_lock<std::mutex> lock(mLock);
    int64_t last = monotonicUs();
    while (!mClosing) {
        mWake.wait_for(lock, std::chrono::microseconds(tickUs));
        if (mClosing) break;
        const int64_t now = monotonicUs();
        const int64_t played = int64_t(double(now - last) * mPace);
        last = now;
        lock.unlock();
        mClient->advance(played);
        lock.lock();
    }
}

}  // namespace wv
