#include "dsp/PhaseVocoder.h"

#include <wavoryx/dsp.h>

#include <cmath>
#include <cstring>

namespace wv {

namespace {

constexpr double kPi = M_PI;
constexpr float kInt16ToFloat = 3.0517578e-5f;  // 1 / 32768

int16_t toSample(float v) {
    if (v > 1.0f) {
        v = 1.0f;
    } else if (v < -1.0f) {
        v = -1.0f;
    } else if (v != v) {
        v = 0.0f;
    }
    return static_cast<int16_t>(v * 32767.0);
}

}  // namespace

bool PhaseVocoder::validFrame(long frameSize, long osamp) {
    if (frameSize < 2 || frameSize > kMaxFrameSize || (frameSize & (frameSize - 1)) != 0) {
        return false;
    }
    return osamp >= 1 && frameSize % osamp == 0;
}

void PhaseVocoder::startStream(long frameSize, long osamp) {
    std::memset(mInputFifo, 0, sizeof mInputFifo);
    std::memset(mOutputFifo, 0, sizeof mOutputFifo);
    std::memset(mFftWorkspace, 0, sizeof mFftWorkspace);
    std::memset(mLastPhase, 0, sizeof mLastPhase);
    std::memset(mSumPhase, 0, sizeof mSumPhase);
    std::memset(mOutputAccum, 0, sizeof mOutputAccum);
    std::memset(mAnalysisFreq, 0, sizeof mAnalysisFreq);
    std::memset(mAnalysisMagn, 0, sizeof mAnalysisMagn);
    std::memset(mSynthesisFreq, 0, sizeof mSynthesisFreq);
    std::memset(mSynthesisMagn, 0, sizeof mSynthesisMagn);
    mFrameSize = frameSize;
    mOsamp = osamp;
    mStepSize = frameSize / osamp;
    mFifoLatency = frameSize - mStepSize;
    mRover = mFifoLatency;
    // The same Hann window shapes analysis and overlap-add of every frame.
    for (long k = 0; k < frameSize; ++k) {
        mWindow[k] = -0.5 * std::cos(2.0 * kPi * double(k) / double(frameSize)) + 0.5;
    }
}

void PhaseVocoder::process(float pitchShift, long count, long frameSize, long osamp,
                           float sampleRate, const int16_t* in, int16_t* out) {
    if (frameSize != mFrameSize || osamp != mOsamp) startStream(frameSize, osamp);
    for (long i = 0; i < count; ++i) {
        // Read before write: `in` and `out` may be the same buffer.
        mInputFifo[mRover] = in[i] * kInt16ToFloat;
        out[i] = toSample(mOutputFifo[mRover - mFifoLatency]);
        if (++mRover >= mFrameSize) {
            mRover = mFifoLatency;
            processFrame(pitchShift, sampleRate);
        }
    }
}

void PhaseVocoder::processFrame(float pitchShift, float sampleRate) {
    const double freqPerBin = double(sampleRate) / double(mFrameSize);
    const double expected = 2.0 * kPi * double(mStepSize) / double(mFrameSize);

    for (long k = 0; k < mFrameSize; ++k) {
        mFftWorkspace[2 * k] = float(mInputFifo[k] * mWindow[k]);
        mFftWorkspace[2 * k + 1] = 0.0f;
    }
    smbFft(mFftWorkspace, mFrameSize, -1);
    analyse(freqPerBin, expected);
    shift(pitchShift);
    synthesise(freqPerBin, expected);
    smbFft(mFftWorkspace, mFrameSize, 1);
    overlapAdd();
    std::memmove(mInputFifo, mInputFifo + mStepSize, sizeof(float) * size_t(mFifoLatency));
}

// Turns each bin into a magnitude and its true frequency, estimated from how
// far its phase advanced beyond what the bin's centre frequency explains.
void PhaseVocoder::analyse(double freqPerBin, double expected) {
    const long half = mFrameSize / 2;
    for (long k = 0; k <= half; ++k) {
        const double re = mFftWorkspace[2 * k];
        const double im = mFftWorkspace[2 * k + 1];
        const double magn = 2.0 * std::sqrt(re * re + im * im);
        const double phase = std::atan2(im, re);
        double delta = phase - mLastPhase[k];
        mLastPhase[k] = float(phase);
        delta -= double(k) * expected;
        // Wrap into -pi ... pi.
        long qpd = long(delta / kPi);
        if (qpd >= 0) {
            qpd += qpd & 1;
        } else {
            qpd -= qpd & 1;
        }
        delta -= kPi * double(qpd);
        delta = double(mOsamp) * delta / (2.0 * kPi);
        mAnalysisMagn[k] = float(magn);
        mAnalysisFreq[k] = float(double(k) * freqPerBin + delta * freqPerBin);
    }
}

void PhaseVocoder::shift(float pitchShift) {
    const long half = mFrameSize / 2;
    std::memset(mSynthesisMagn, 0, sizeof(float) * size_t(mFrameSize));
    std::memset(mSynthesisFreq, 0, sizeof(float) * size_t(mFrameSize));
    for (long k = 0; k <= half; ++k) {
        const float target = float(k) * pitchShift;
        // Bins moved above the top (or below 0, or to no number at all) are
        // dropped; the comparison is done in float so no conversion can
        // overflow.
        if (!(target >= 0.0f && target < float(half + 1))) continue;
        const long index = long(target);
        if (index > half) continue;
        mSynthesisMagn[index] += mAnalysisMagn[k];
        mSynthesisFreq[index] = mAnalysisFreq[k] * pitchShift;
    }
}

void PhaseVocoder::synthesise(double freqPerBin, double expected) {
    const long half = mFrameSize / 2;
    for (long k = 0; k <= half; ++k) {
        double delta = double(mSynthesisFreq[k]) - double(k) * freqPerBin;
        delta /= freqPerBin;
        delta = 2.0 * kPi * delta / double(mOsamp);
        delta += double(k) * expected;
        mSumPhase[k] = float(mSumPhase[k] + delta);
        const double phase = mSumPhase[k];
        const double magn = mSynthesisMagn[k];
        mFftWorkspace[2 * k] = float(magn * std::cos(phase));
        mFftWorkspace[2 * k + 1] = float(magn * std::sin(phase));
    }
    // Negative frequencies stay empty: the real part of the inverse
    // transform carries the signal.
    std::memset(mFftWorkspace + mFrameSize + 2, 0, sizeof(float) * size_t(mFrameSize - 2));
}

void PhaseVocoder::overlapAdd() {
    const double scale = double(mFrameSize / 2) * double(mOsamp);
    for (long k = 0; k < mFrameSize; ++k) {
        mOutputAccum[k] = float(mOutputAccum[k] + 2.0 * mWindow[k] * mFftWorkspace[2 * k] / scale);
    }
    std::memcpy(mOutputFifo, mOutputAccum, sizeof(float) * size_t(mStepSize));
    std::memmove(mOutputAccum, mOutputAccum + mStepSize, sizeof(float) * size_t(mFrameSize));
}

}  // namespace wv
