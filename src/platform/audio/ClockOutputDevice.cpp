#define WV_LOG_TAG "AudioOutput"
#include "platform/audio/ClockOutputDevice.h"

#include <algorithm>

#include "base/Log.h"

namespace wv {
namespace {

// The queue of a paced device grows with the pace (up to 64 x), so that one
// tick's worth of play time can be held.
constexpr int64_t kQueueUs = 40000;
constexpr double kMaxQueueScale = 64.0;

}  // namespace

ClockOutputDevice::ClockOutputDevice(double pace, std::string wavPath)
    : mWavPath(std::move(wavPath)), mLoop(pace) {}

ClockOutputDevice::~ClockOutputDevice() { close(); }

int32_t ClockOutputDevice::open(uint32_t sampleRate, uint32_t channels, AudioOutputClient* client) {
    if (!mWavPath.empty()) {
        const int32_t err = mWav.open(mWavPath, sampleRate, channels);
        if (err != 0) return err;
    }
    mClient = client;
    mLoop.start([this](int64_t playedUs) { mClient->advance(playedUs); });
    return 0;
}

void ClockOutputDevice::close() {
    mLoop.stop();
    mWav.close();
}

size_t ClockOutputDevice::defaultBufferFrames(uint32_t sampleRate) const {
    const double scale = std::min(std::max(mLoop.pace(), 1.0), kMaxQueueScale);
    return std::max<size_t>(256, size_t(double(sampleRate) * kQueueUs / 1e6 * scale));
}

void ClockOutputDevice::onQueued(const int16_t* frames, size_t count) {
    if (mWav.isOpen() && mWav.write(frames, count) != 0) {
        WV_LOGE("writing %s failed; recording stops", mWavPath.c_str());
        // An unfinished file is no copy of what was played.
        mWav.discard();
    }
}

}  // namespace wv
