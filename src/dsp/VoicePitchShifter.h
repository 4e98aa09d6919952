// VoicePitchShifter: the male and female voices of a recording. Moves the
// pitch of a 16-bit interleaved stream by a number of semitones without
// changing its length, through SoundTouch (time-stretch plus resampling).
//
// SoundTouch is built for 32-bit float samples (full scale +-1.0): blocks
// are converted to float on the way in and back to 16-bit, rounded to the
// nearest and clamped to -32768 ... 32767, on the way out. Both conversions
// go through one scratch buffer of kScratchFrames frames made at
// construction, so processing never allocates here (SoundTouch's own FIFOs
// grow to their working size during the first blocks).
//
// Settings: sequence 40 ms, seek window 15 ms, overlap 8 ms. The output
// lags the input by roughly one sequence plus the seek window (about 55 ms);
// flush() pushes the tail out at the end of the stream.
//
// One thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace soundtouch {
class SoundTouch;
}

namespace wv {

class VoicePitchShifter {
public:
    static constexpr int kSequenceMs = 40;
    static constexpr int kSeekWindowMs = 15;
    static constexpr int kOverlapMs = 8;
    static constexpr uint32_t kScratchFrames = 1024;
    // The largest shift either way. SoundTouch stretches by
    // 2^(semitones / 12): far beyond two octaves one block grows without
    // bound, and its caller never gets control back.
    static constexpr int32_t kMostSemitones = 24;

    // `channels` 1 or 2, `sampleRate` in Hz (> 0), `semitones` signed,
    // clamped to +-kMostSemitones (a value that is no number means 0).
    VoicePitchShifter(uint32_t sampleRate, uint32_t channels, float semitones);
    ~VoicePitchShifter();
    VoicePitchShifter(const VoicePitchShifter&) = delete;
    VoicePitchShifter& operator=(const VoicePitchShifter&) = delete;

    // Feeds `frames` frames.
    void putSamples(const int16_t* data, uint32_t frames);
    // Takes up to `maxFrames` processed frames into `out`; returns how many.
    uint32_t receiveSamples(int16_t* out, uint32_t maxFrames);
    // Processes what is still buffered, so that receiveSamples() can drain
    // the end of the stream (padded with a little silence).
    void flush();

    uint32_t channels() const { return mChannels; }

private:
    std::unique_ptr<soundtouch::SoundTouch> mSoundTouch;
    const uint32_t mChannels;
    std::vector<float> mScratch;  // kScratchFrames * mChannels samples
};

}  // namespace wv
