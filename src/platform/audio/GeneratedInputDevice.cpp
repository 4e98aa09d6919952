#include "platform/audio/GeneratedInputDevice.h"

#include <algorithm>
#include <cmath>

namespace wv {
namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kToneAmplitude = 16383.0;
constexpr size_t kMaxBlockFrames = 4096;

}  // namespace

GeneratedInputDevice::GeneratedInputDevice(double toneHz, double pace, MonotonicClock& clock)
    : mToneHz(toneHz), mLoop(pace, clock) {}

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
    mLoop.startFrames(mSampleRate, kMaxBlockFrames, [this](size_t frames) {
        generate(frames);
        mClient->onCaptured(mBlock.data(), frames);
    });
    return 0;
}

void GeneratedInputDevice::stop() { mLoop.stop(); }

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

}  // namespace wv
