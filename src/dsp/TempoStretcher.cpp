#include "dsp/TempoStretcher.h"

#include <soundtouch/SoundTouch.h>

#include <algorithm>

namespace wv {
namespace {

constexpr int kSequenceMs = 40;
constexpr int kSeekWindowMs = 15;
constexpr int kOverlapMs = 8;
constexpr uint32_t kPieceFrames = 4096;

}  // namespace

TempoStretcher::TempoStretcher(int32_t rate, int32_t channels, int32_t percent)
    : mSoundTouch(new soundtouch::SoundTouch()),
      mChannels(static_cast<uint32_t>(channels)),
      mPercent(percent) {
    mSoundTouch->setSampleRate(static_cast<unsigned>(rate));
    mSoundTouch->setChannels(static_cast<unsigned>(channels));
    mSoundTouch->setTempo(static_cast<double>(percent) / 100.0);
    mSoundTouch->setSetting(SETTING_SEQUENCE_MS, kSequenceMs);
    mSoundTouch->setSetting(SETTING_SEEKWINDOW_MS, kSeekWindowMs);
    mSoundTouch->setSetting(SETTING_OVERLAP_MS, kOverlapMs);
}

TempoStretcher::~TempoStretcher() = default;

uint64_t TempoStretcher::stretchedLength(uint64_t frames, int32_t percent) {
    const uint64_t p = static_cast<uint32_t>(percent);
    return (frames * 200 + p) / (2 * p);
}

void TempoStretcher::put(const float* in, uint32_t frames) {
    if (mFinished) return;
    mInput += frames;
    mSoundTouch->putSamples(in, frames);
}

void TempoStretcher::finish() {
    if (mFinished) return;
    mFinished = true;
    mSoundTouch->flush();
    const uint64_t total = stretchedLength(mInput, mPercent);
    const uint64_t left = total > mOutput ? total - mOutput : 0;
    mTail.assign(size_t(left) * mChannels, 0.0f);
    size_t got = 0;
    while (got < left) {
        const uint32_t want = static_cast<uint32_t>(std::min<uint64_t>(left - got, kPieceFrames));
        const uint32_t n = mSoundTouch->receiveSamples(mTail.data() + got * mChannels, want);
        if (n == 0) break;
        got += n;
    }
    mSoundTouch->clear();
    mTailAt = 0;
}

uint32_t TempoStretcher::take(float* out, uint32_t maxFrames) {
    uint32_t n;
    if (!mFinished) {
        n = mSoundTouch->receiveSamples(out, maxFrames);
    } else {
        n = static_cast<uint32_t>(
            std::min<size_t>(maxFrames, (mTail.size() - mTailAt) / mChannels));
        std::copy(mTail.begin() + static_cast<std::ptrdiff_t>(mTailAt),
                  mTail.begin() + static_cast<std::ptrdiff_t>(mTailAt + size_t(n) * mChannels),
                  out);
        mTailAt += size_t(n) * mChannels;
    }
    mOutput += n;
    return n;
}

}  // namespace wv
