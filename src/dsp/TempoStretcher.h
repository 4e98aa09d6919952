// TempoStretcher: plays a float stream faster or slower without moving its
// pitch, through SoundTouch's time stretch (WSOLA: pieces of the input
// overlapped at the best-matching offsets).
//
// Settings: sequence 40 ms, seek window 15 ms, overlap 8 ms, the ones the
// voice pitch shifter uses for speech. After finish() the output has
// exactly round(input frames x 100 / percent) frames: SoundTouch's tail is
// cut there, or silence pads it (it ends within one sequence of that).
//
// One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "dsp/StreamStage.h"

namespace soundtouch {
class SoundTouch;
}

namespace wv {

class TempoStretcher : public StreamStage {
public:
    static constexpr int32_t kMinPercent = 50;
    static constexpr int32_t kMaxPercent = 200;

    // `percent`: the speed, 100 being the input's own, kMinPercent to
    // kMaxPercent. `channels` 1 to 8, `rate` in Hz.
    TempoStretcher(int32_t rate, int32_t channels, int32_t percent);
    ~TempoStretcher() override;
    TempoStretcher(const TempoStretcher&) = delete;
    TempoStretcher& operator=(const TempoStretcher&) = delete;

    // The output length of `frames` input frames.
    static uint64_t stretchedLength(uint64_t frames, int32_t percent);

    void put(const float* in, uint32_t frames) override;
    void finish() override;
    uint32_t take(float* out, uint32_t maxFrames) override;

private:
    std::unique_ptr<soundtouch::SoundTouch> mSoundTouch;
    uint32_t mChannels;
    int32_t mPercent;
    uint64_t mInput = 0;   // frames put
    uint64_t mOutput = 0;  // frames handed out
    bool mFinished = false;
    std::vector<float> mTail;  // the exact end, once finished
    size_t mTailAt = 0;
};

}  // namespace wv
