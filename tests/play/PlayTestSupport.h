// Helpers of the playback tests: items whose every frame tells its own
// index, and an output device whose time the test moves by hand while it
// keeps every frame handed to the output.
#pragma once

#include <fcntl.h>

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "Wait.h"
#include "engine/WavoryxPriv.h"
#include "platform/audio/AudioOutput.h"
#include "platform/audio/AudioOutputDevice.h"
#include "play/AudioPlayer.h"

namespace wvtest {

// Frame k of a marked stereo stream: left (k % 30000) + 1, right
// k / 30000 + 1, so no frame is silent and each names its index.
inline std::vector<int16_t> markedFrames(uint32_t frames) {
    std::vector<int16_t> samples(size_t(frames) * 2);
    for (uint32_t k = 0; k < frames; ++k) {
        samples[2 * k] = int16_t(k % 30000 + 1);
        samples[2 * k + 1] = int16_t(k / 30000 + 1);
    }
    return samples;
}
// The index a marked frame names; -1 for silence.
inline int64_t markOf(const int16_t* frame) {
    if (frame[0] == 0 && frame[1] == 0) return -1;
    return int64_t(frame[1] - 1) * 30000 + (frame[0] - 1);
}
// Indices of the non-silent frames of interleaved stereo samples.
inline std::vector<int64_t> marksOf(const std::vector<int16_t>& samples) {
    std::vector<int64_t> marks;
    for (size_t i = 0; i + 1 < samples.size(); i += 2) {
        const int64_t mark = markOf(&samples[i]);
        if (mark >= 0) marks.push_back(mark);
    }
    return marks;
}
inline std::vector<int64_t> range(int64_t first, int64_t end) {
    std::vector<int64_t> out;
    for (int64_t k = first; k < end; ++k) out.push_back(k);
    return out;
}

// A stereo item of `frames` marked frames at `rate` in the engine's
// registry: its PCM file, and a canonical WAV of the same audio at path.
// `present` frames are readable now (all of them by default).
inline wv::SPcmInfo* addMarkedItem(WavoryxPriv& engine, const TempDir& dir, int rate, uint32_t frames,
                                   wv::pcm_status_t status = wv::PCM_READY, int64_t present = -1) {
    const std::vector<int16_t> samples = markedFrames(frames);
    auto* item = new wv::SPcmInfo(status);
    item->refs[wv::REF_CLIENT] = 1;
    const wv::pcm_id_t id = engine.infoList().add(item);
    const std::string pcm = dir.file(std::to_string(id) + ".pcm");
    const std::string wav = dir.file(std::to_string(id) + ".wav");
    writeFile(pcm, samples.data(), samples.size() * 2);
    writeWav(wav, samples, rate, 2);
    item->sampleRate = rate;
    item->channelCount = 2;
    item->format = 1;
    item->totalFrames = frames;
    item->frames = present < 0 ? frames : uint32_t(present);
    item->pcmPath.set(pcm);
    item->pcmFd = ::open(pcm.c_str(), O_RDWR | O_CLOEXEC);  // the item removes the file it holds
    item->path.set(wav);
    return item;
}

// A clock device moved by the test; it keeps the frames handed to the
// output, in order.
class HandDevice : public wv::AudioOutputDevice {
public:
    explicit HandDevice(size_t bufferFrames) : mBufferFrames(bufferFrames) {}
    int32_t open(uint32_t, uint32_t channels, wv::AudioOutputClient* client) override {
        mClient = client;
        mChannels = channels;
        return 0;
    }
    void close() override {}
    uint32_t deviceRate() const override { return 0; }
    size_t defaultBufferFrames(uint32_t) const override { return mBufferFrames; }
    void onQueued(const int16_t* frames, size_t count) override {
        std::lock_guard<std::mutex> guard(mLock);
        mHanded.insert(mHanded.end(), frames, frames + count * mChannels);
    }
    const char* name() const override { return "hand"; }

    void advance(int64_t us) { mClient->advance(us); }
    std::vector<int16_t> handed() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mHanded;
    }

private:
    const size_t mBufferFrames;
    wv::AudioOutputClient* mClient = nullptr;
    uint32_t mChannels = 2;
    mutable std::mutex mLock;
    std::vector<int16_t> mHanded;
};

// An output factory for a player that opens on a HandDevice, which it
// reports through `device`.
inline wv::AudioPlayer::OutputFactory handOutput(HandDevice** device, size_t bufferFrames) {
    return [device, bufferFrames](uint32_t rate, uint32_t mask, wv::AudioOutput::callback_t cb, void* user) {
        auto owned = std::unique_ptr<HandDevice>(new HandDevice(bufferFrames));
        *device = owned.get();
        return std::unique_ptr<wv::AudioOutput>(
            new wv::AudioOutput(std::move(owned), rate, wv::AudioOutput::AUDIO_FORMAT_PCM_16_BIT, mask, 0, cb, user));
    };
}

}  // namespace wvtest
