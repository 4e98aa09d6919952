// Waveform data for display: one unsigned byte per point, 0 for silence up
// to 255 for full scale.
//
// WaveformState generates the ".wave" file of a render or a recording: one
// point per 20 ms of audio (all channels count), the peak scaled to 255, a
// point falling to no less than 85 % of the one before, and a random
// flicker from 246 to 255 while the level stays at the top.
//
// WaveformReducer reduces a run of samples to a given number of peak
// points; fed in pieces it gives exactly the points of one pass over the
// whole run, so long ranges need no memory in proportion to their length.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/OutputFile.h"

namespace wv {

struct WaveformState {
    uint32_t nextPoint = 1;  // 1-based number of the point being built
    uint32_t msPerPoint = 20;
    uint32_t samplesPerSecond = 0;  // channels x rate
    uint64_t samplesSeen = 0;       // 64-bit: a 32-bit count wraps after 13.5 h of stereo
    uint32_t peak = 0;
    uint32_t fullScale = 32768;        // the peak that maps to 255
    uint32_t previous = 0;             // the previous point before any flicker
    int32_t fd = 0;                    // 0: no file; negative: the open failed
    bool writeFailed = false;          // a write did not reach the file whole
    bool storageFull = false;          // ... for lack of space
    std::unique_ptr<OutputFile> file;  // the output behind fd

    WaveformState() = default;
    WaveformState(uint32_t sampleRate, uint32_t channels)
        : samplesPerSecond(sampleRate * channels) {}
    // An unfinished file is discarded (the target stays as it was).
    ~WaveformState();
    WaveformState(const WaveformState&) = delete;
    WaveformState& operator=(const WaveformState&) = delete;
};

// Opens the waveform file as an output (see OutputFile: an existing file is
// only replaced by a finished one); on failure logs and leaves a negative
// descriptor: points are then computed but not stored.
void openWaveformFile(WaveformState* state, const char* path);
// Puts a waveform file whose every write succeeded in place: 0. -1 when a
// write failed or the file could not be put in place; the file is then
// discarded. 0 when there was no file.
int finishWaveformFile(WaveformState* state);

// Takes samples from *data (*bytes bytes, even) until a point completes or
// the samples run out, advancing *data and lowering *bytes. Returns 1 with
// the point in *point (already written to the file), or 0 when the samples
// ran out first (the partial point carries over).
int addWaveformSamples(WaveformState* state, const int16_t** data, uint32_t* bytes, uint8_t* point);

// Feeds a whole block (bytes even), with the points that addWaveformSamples
// called until the block is used up would give, but writes them to the
// file together: one write per block rather than one per point. Returns
// the number of points completed.
uint32_t addWaveformBlock(WaveformState* state, const int16_t* data, uint32_t bytes);

class WaveformReducer {
public:
    // `count` points into `out`, over `totalSamples` samples to come.
    WaveformReducer(uint8_t* out, uint32_t count, uint64_t totalSamples);
    void feed(const int16_t* samples, uint64_t n);
    // Feeds n zero samples (data not produced).
    void feedSilence(uint64_t n);
    uint64_t samplesFed() const { return mIndex; }

private:
    void afterSample();

    uint8_t* mOut;
    uint64_t mCount;
    uint64_t mTotal;
    uint64_t mAcc;
    uint64_t mNext = 0;  // next point to write
    uint64_t mIndex = 0;
    uint32_t mPeak = 0;
};

}  // namespace wv
