// NoiseReducer: broadband noise reduction of a float stream by FFmpeg's
// afftdn filter (spectral gating in the frequency domain, needing no model
// file), run through a libavfilter graph.
//
// `amountDb` is how far it pulls the noise down (its nr); the noise is
// taken to lie at kNoiseFloorDb (afftdn's scale) with the spectrum of its
// "shellac" profile, falling towards high frequencies like the pink noise
// of rooms and microphones: a flat (white) profile gates the fricatives of
// speech and costs it over 1 LU. Measured on speech (espeak-ng, 22 to 48
// kHz) with pink noise 20 dB below it, 20 dB takes the floor between words
// down by 19 to 20 dB while the speech's loudness drops by 0.3 to 0.6 LU.
//
// The filter answers one hop of frames for each hop it is given, two hops
// late (a hop is its first output frame, 12.5 ms); the first two hops it
// answers are dropped, and at the end silence is fed until it has answered
// the last input frame (what it answers for the silence is cut), so output
// frame i is input frame i and the output has exactly the input's length.
//
// One thread at a time.
#pragma once

#include <cstdint>
#include <deque>

#include "dsp/StreamStage.h"

struct AVFilterGraph;
struct AVFilterContext;
struct AVFrame;

namespace wv {

class NoiseReducer : public StreamStage {
public:
    static constexpr int32_t kNoiseFloorDb = -30;
    // afftdn's range for its amount.
    static constexpr int32_t kMaxAmountDb = 97;

    // `rate` in Hz, `channels` 1 to 8, `amountDb` 1 to kMaxAmountDb.
    // ok() tells whether the filter could be set up.
    NoiseReducer(int32_t rate, int32_t channels, int32_t amountDb);
    ~NoiseReducer() override;
    NoiseReducer(const NoiseReducer&) = delete;
    NoiseReducer& operator=(const NoiseReducer&) = delete;

    bool ok() const { return mSink != nullptr; }
    void put(const float* in, uint32_t frames) override;
    void finish() override;
    uint32_t take(float* out, uint32_t maxFrames) override;

private:
    void send(const float* in, uint32_t frames);
    void drain();

    int32_t mRate;
    uint32_t mChannels;
    AVFilterGraph* mGraph = nullptr;
    AVFilterContext* mSource = nullptr;
    AVFilterContext* mSink = nullptr;
    AVFrame* mFrame = nullptr;
    int64_t mSent = 0;      // frames given to the filter
    uint64_t mInput = 0;    // frames put
    uint64_t mOutput = 0;   // frames handed out
    int64_t mLatency = -1;  // frames still to drop at the start; -1 until known
    bool mFinished = false;
    std::deque<float> mReady;  // aligned samples waiting for take()
};

}  // namespace wv
