#include "platform/audio/GeneratedInputDevice.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "base/Clock.h"

namespace wv {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kToneAmplitude = 16383.0;
constexpr size_t kMaxBlockFrames = 4096;

}  // namespace

GeneratedInputDevice::GeneratedInputDevice(double toneHz, double pace)
    : mToneHz(toneHz), mPace(pace > 0 ? pace : 1.0) {}

GeneratedInputDevice::~GeneratedInputDevice() { stop(); }

int32_t GeneratedInputDevice::open(uint32_t sampleRate, uint32_t channels,
                                   AudioInputClient* client) {
    if (sampleRate == 0 || channels == 0) return -22;
    mSampleRate = sampleRate;
    mChannels = channels;
    mClient = client;
    mBlock.assign(kMaxBlockFrames * channels, 0);
    return 0;
}

int32_t GeneratedInputDevice::start() {
    if (mThread.joinable()) return 0;
    mRunning = true;
    mThread = std::thread(&GeneratedInputDevice::run, this);
    return 0;
}

void GeneratedInputDevice::stop() {
    if (!mThread.joinable()) return;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mRunning = false;
    }
    mWake.notify_all();
    mThread.join();
}

uint32_t GeneratedInputDevice::latencyMs() const { return 10; }

void GeneratedInputDevice::generate(size_t frames) {
    const double step = kTwoPi * mToneHz / mSampleRate;
    for (size_t f = 0; f < frames; ++f) {
        int16_t sample = 0;
        if (mToneHz > 0) {
            sample = static_cast<int16_t>(std::lround(kToneAmplitude * std::sin(mPhase)));
            mPhase += step;
            if (mPhase >= kTwoPi) mPhase -= kTwoPi;
        }
        std::fill_n(&mBlock[f * mChannels], mChannels, sample);
    }
}

bool GeneratedInputDevice::running() {
    std::lock_guard<std::mutex> guard(mLock);
    return mRunning;
}

void GeneratedInputDevice::run() {
    const int64_t tickUs = std::clamp<int64_t>(int64_t(10000 / mPace), 250, 10000);
    std::unique_lock<std::mutex> lock(mLock);
    int64_t last = monotonicUs();
    int64_t remainder = 0;  // frame-microseconds not yet delivered
    while (mRunning) {
        mWake.wait_for(lock, std::chrono::microseconds(tickUs));
        if (!mRunning) break;
        const int64_t now = monotonicUs();
        remainder += int64_t(double(now - last) * mPace) * int64_t(mSampleRate);
        last = now;
        size_t due = size_t(remainder / 1000000);
        remainder %= 1000000;
        lock.unlock();
        // The client may hold each piece until the recorder takes it; a
        // stop in the meantime ends the hand-over.
        while (due > 0 && running()) {
            const size_t frames = std::min(due, kMaxBlockFrames);
            generate(frames);
            mClient->onCaptured(mBlock.data(), frames);
            due -= frames;
        }
        lock.lock();
    }
}

}  // namespace wv
