#include "dsp/VoicePitchShifter.h"

#include <soundtouch/SoundTouch.h>

#include <algorithm>
#include <cmath>

namespace wv {
namespace {

constexpr float kToFloat = 1.0f / 32768.0f;

int16_t toSample(float value) {
    const float scaled = std::nearbyint(value * 32768.0f);
    return static_cast<int16_t>(std::min(32767.0f, std::max(-32768.0f, scaled)));
}

}  // namespace

VoicePitchShifter::VoicePitchShifter(uint32_t sampleRate, uint32_t channels, float semitones)
    : mSoundTouch(new soundtouch::SoundTouch()), mChannels(channels),
      mScratch(size_t(kScratchFrames) * channels) {
    mSoundTouch->setSampleRate(sampleRate);
    mSoundTouch->setChannels(channels);
    const float most = float(kMostSemitones);
    mSoundTouch->setPitchSemiTones(std::isfinite(semitones) ? std::min(most, std::max(-most, semitones)) : 0.0f);
    mSoundTouch->setSetting(SETTING_SEQUENCE_MS, kSequenceMs);
    mSoundTouch->setSetting(SETTING_SEEKWINDOW_MS, kSeekWindowMs);
    mSoundTouch->setSetting(SETTING_OVERLAP_MS, kOverlapMs);
}

VoicePitchShifter::~VoicePitchShifter() = default;

void VoicePitchShifter::putSamples(const int16_t* data, uint32_t frames) {
    while (frames > 0) {
        const uint32_t n = std::min(frames, kScratchFrames);
        const size_t count = size_t(n) * mChannels;
        for (size_t i = 0; i < count; ++i) mScratch[i] = float(data[i]) * kToFloat;
        mSoundTouch->putSamples(mScratch.data(), n);
        data += count;
        frames -= n;
    }
}

uint32_t VoicePitchShifter::receiveSamples(int16_t* out, uint32_t maxFrames) {
    uint32_t total = 0;
    while (total < maxFrames) {
        const uint32_t want = std::min(maxFrames - total, kScratchFrames);
        const uint32_t got = mSoundTouch->receiveSamples(mScratch.data(), want);
        const size_t count = size_t(got) * mChannels;
        for (size_t i = 0; i < count; ++i) out[i] = toSample(mScratch[i]);
        out += count;
        total += got;
        if (got < want) break;
    }
    return total;
}

void VoicePitchShifter::flush() { mSoundTouch->flush(); }

}  // namespace wv
