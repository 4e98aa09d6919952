// The exported pitch shifter: one process-wide PhaseVocoder behind a lock,
// plus the transform and arc-tangent helpers it is published with.
#define WV_LOG_TAG "PitchShifter"
#include "base/Log.h"

#include <wavoryx/dsp.h>

#include <cmath>
#include <cstring>
#include <mutex>
#include <utility>

#include "dsp/PhaseVocoder.h"

namespace {

// Constant-initialised, so the arrays live in zeroed static storage and cost
// nothing until the first call touches them.
wv::PhaseVocoder gShifter;
std::mutex gShifterLock;

bool isPowerOfTwo(long n) { return n >= 1 && (n & (n - 1)) == 0; }

}  // namespace

WAVORYX_API void smbPitchShift(float pitchShift, long numSampsToProcess, long fftFrameSize,
                               long osamp, float sampleRate, void* indata, void* outdata) {
    if (numSampsToProcess < 0) numSampsToProcess = 0;
    auto* out = static_cast<int16_t*>(outdata);
    const bool valid = wv::PhaseVocoder::validFrame(fftFrameSize, osamp) &&
                       std::isfinite(sampleRate) && sampleRate > 0.0f &&
                       std::isfinite(pitchShift) && (numSampsToProcess == 0 || indata != nullptr);
    if (!valid) {
        WV_LOGE(
            "smbPitchShift: unusable arguments (frame size %ld, overlap %ld, rate %f, "
            "shift %f); writing silence",
            fftFrameSize, osamp, double(sampleRate), double(pitchShift));
        // The stream's state stays as it was; the caller still gets defined
        // output instead of whatever its buffer held.
        if (out != nullptr && numSampsToProcess > 0) {
            std::memset(out, 0, sizeof(int16_t) * size_t(numSampsToProcess));
        }
        return;
    }
    if (numSampsToProcess > 0 && out == nullptr) {
        WV_LOGE("smbPitchShift: no output buffer for %ld samples", numSampsToProcess);
        return;
    }
    std::lock_guard<std::mutex> hold(gShifterLock);
    gShifter.process(pitchShift, numSampsToProcess, fftFrameSize, osamp, sampleRate,
                     static_cast<const int16_t*>(indata), out);
}

WAVORYX_API void smbFft(float* fftBuffer, long fftFrameSize, long sign) {
    if (fftBuffer == nullptr || !isPowerOfTwo(fftFrameSize)) {
        WV_LOGE("smbFft: frame size %ld is not a power of two", fftFrameSize);
        return;
    }
    const long length = 2 * fftFrameSize;  // floats: interleaved (re, im)

    // Bit-reversal permutation of the complex pairs.
    for (long i = 2; i < length - 2; i += 2) {
        long j = 0;
        for (long bitm = 2; bitm < length; bitm <<= 1) {
            if (i & bitm) ++j;
            j <<= 1;
        }
        if (i < j) {
            std::swap(fftBuffer[i], fftBuffer[j]);
            std::swap(fftBuffer[i + 1], fftBuffer[j + 1]);
        }
    }

    // Radix-2 butterflies, one pass per doubling of the sub-transform length.
    const long passes = long(std::log(double(fftFrameSize)) / std::log(2.0) + 0.5);
    long le = 2;
    for (long k = 0; k < passes; ++k) {
        le <<= 1;
        const long le2 = le >> 1;
        float ur = 1.0f;
        float ui = 0.0f;
        const float arg = float(M_PI / double(le2 >> 1));
        const float wr = float(std::cos(arg));
        const float wi = float(double(sign) * std::sin(arg));
        for (long j = 0; j < le2; j += 2) {
            for (long i = j; i < length; i += le) {
                float* p1 = fftBuffer + i;
                float* p2 = p1 + le2;
                const float tr = p2[0] * ur - p2[1] * ui;
                const float ti = p2[0] * ui + p2[1] * ur;
                p2[0] = p1[0] - tr;
                p2[1] = p1[1] - ti;
                p1[0] += tr;
                p1[1] += ti;
            }
            const float nextUr = ur * wr - ui * wi;
            ui = ur * wi + ui * wr;
            ur = nextUr;
        }
    }
}

WAVORYX_API double smbAtan2(double x, double y) {
    const double signx = x > 0.0 ? 1.0 : -1.0;
    if (x == 0.0) return 0.0;
    if (y == 0.0) return signx * M_PI / 2.0;
    return std::atan2(x, y);
}
