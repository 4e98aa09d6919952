// Short-time Fourier transform pitch shifter working on 16-bit mono PCM.
//
// Each analysis frame of `frameSize` samples (a power of two, 2 ... 8192)
// starts `frameSize / osamp` samples after the previous one. Every frame is
// Hann-windowed, transformed, its bins' true frequencies are estimated from
// the phase advance since the previous frame, moved to bin k * pitchShift,
// resynthesised with accumulated phases and overlap-added.
//
// Latency: exactly one frame. A sample entering at index n leaves at index
// n + frameSize (1024 samples at a frame size of 1024): the input FIFO holds
// frameSize - frameSize/osamp samples (768 at 1024 with overlap 4) before a
// frame is analysed, and the overlap-add releases each step of output only
// one step later; frameSize - frameSize/osamp is the FIFO's share alone.
//
// Gain: at a pitchShift of 1 the Hann window applied twice makes the overall
// gain 3/8 * osamp (1.5 at overlap 4; flat over time from overlap 3 up).
// Output beyond full scale is clamped to +-32767.
//
// Memory: about 416 KiB of fixed arrays inside the object, no allocation.
// One object serves one stream on one thread at a time.
#pragma once

#include <cstdint>

namespace wv {

class PhaseVocoder {
public:
    static constexpr long kMaxFrameSize = 8192;

    // Whether a frame size and overlap factor can be served: frameSize a
    // power of two in 2 ... kMaxFrameSize, osamp >= 1 dividing it.
    static bool validFrame(long frameSize, long osamp);

    // Shifts `count` samples of `in` into `out` (which may be `in`). The
    // first call, and every call whose frameSize or osamp differ from the
    // previous call's, starts a new stream with cleared state; other calls
    // continue the stream. Arguments must be valid (validFrame, sampleRate
    // positive); the caller checks them.
    void process(float pitchShift, long count, long frameSize, long osamp, float sampleRate,
                 const int16_t* in, int16_t* out);

    // Read access for diagnostics and tests.
    const float* inputFifo() const { return mInputFifo; }
    long rover() const { return mRover; }
    long frameSize() const { return mFrameSize; }

private:
    void startStream(long frameSize, long osamp);
    void processFrame(float pitchShift, float sampleRate);
    void analyse(double freqPerBin, double expected);
    void shift(float pitchShift);
    void synthesise(double freqPerBin, double expected);
    void overlapAdd();

    float mInputFifo[kMaxFrameSize] = {};
    float mOutputFifo[kMaxFrameSize] = {};
    float mFftWorkspace[2 * kMaxFrameSize] = {};
    float mLastPhase[kMaxFrameSize / 2 + 1] = {};
    float mSumPhase[kMaxFrameSize / 2 + 1] = {};
    float mOutputAccum[2 * kMaxFrameSize] = {};
    float mAnalysisFreq[kMaxFrameSize] = {};
    float mAnalysisMagn[kMaxFrameSize] = {};
    float mSynthesisFreq[kMaxFrameSize] = {};
    float mSynthesisMagn[kMaxFrameSize] = {};
    double mWindow[kMaxFrameSize] = {};  // Hann window of the current frame size
    long mRover = 0;                     // write position in mInputFifo
    long mFrameSize = 0;                 // parameters of the current stream; 0 before the first
    long mOsamp = 0;
    long mStepSize = 0;
    long mFifoLatency = 0;
};

}  // namespace wv
