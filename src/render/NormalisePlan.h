// The state of a loudness-normalised render between its blocks: which pass
// it is in, the gain found so far, and the float work it needs.
//
// Passes, each reading the whole list from its start with a reader of its
// own:
//   kMeasure  the list's integrated loudness (and sample peak) as read;
//             with more than one thread in parts at once (MeasureParts),
//             whose results stand in for the meter and samplePeak here;
//   kCheck    only when the gain would push the sample peak within
//             kCheckMarginDb of the ceiling: the gained and limited audio
//             measured again, and the gain raised by what the limiter took
//             off the loudness; up to kMaxChecks times, by the secant
//             through the last two checks, until the check is within
//             kCloseEnoughLu of the target; the gain raised by at most
//             kMaxCorrectionDb in all;
//   kEncode   the gained and limited audio, dithered to 16-bit, encoded.
// The gain is target - measured, at most kMaxGainDb; a list with no
// integrated loudness (silence, or under 0.4 s) keeps gain 0 dB.
//
// The loudness reached, and what held it back when it falls short of the
// target, is the render's result: measured again in the encode pass after
// the limiter worked, else the measured loudness plus the gain.
//
// Memory: one float block (kBlockSamples), a meter (under 1 KB per second
// of audio) and a limiter (under 40 KB).
#pragma once

#include <climits>
#include <cstdint>
#include <memory>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "dsp/Dither.h"
#include "dsp/LoudnessMeter.h"
#include "dsp/TruePeakLimiter.h"
#include "items/SPcmInfo.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

struct NormalisePlan {
    enum Pass { kMeasure, kCheck, kEncode };

    static constexpr double kMaxGainDb = 40.0;
    static constexpr double kCheckMarginDb = 1.0;
    static constexpr double kMaxCorrectionDb = 15.0;
    static constexpr int kMaxChecks = 3;
    static constexpr double kCloseEnoughLu = 0.1;
    // How far under the target a render may end and still meet it.
    static constexpr double kMetWithinLu = 0.5;
    // Between the ceiling asked for and the limiter's: what dither and
    // meters with other interpolators may add to the peak.
    static constexpr double kCeilingMarginDb = 0.1;
    static constexpr double kLookaheadMs = 5.0;
    static constexpr double kReleaseMs = 100.0;

    // targetLufs, ceilingDbtp: the list's settings; rate, channels and
    // quality: the render's output format, which every pass reads in.
    // samples: room for one block of the reader, in samples.
    NormalisePlan(double targetLufs, double ceilingDbtp, uint32_t rate, uint32_t channels,
                  AudioResampler::src_quality quality, size_t samples)
        : targetLufs(targetLufs), ceilingDbtp(ceilingDbtp), rate(rate), channels(channels),
          quality(quality), block(samples) {}

    // A limiter at the plan's ceiling, for the check and encode passes.
    std::unique_ptr<TruePeakLimiter> newLimiter() const {
        LimiterSettings settings;
        settings.ceilingDbtp = ceilingDbtp - kCeilingMarginDb;
        settings.lookaheadMs = kLookaheadMs;
        settings.releaseMs = kReleaseMs;
        return std::unique_ptr<TruePeakLimiter>(new TruePeakLimiter(rate, channels, settings));
    }

    const double targetLufs;
    const double ceilingDbtp;
    const uint32_t rate;
    const uint32_t channels;
    const AudioResampler::src_quality quality;

    Pass pass = kMeasure;
    std::unique_ptr<LoudnessMeter> meter;      // each pass, but an encode pass that follows no check
    std::unique_ptr<TruePeakLimiter> limiter;  // during kCheck and kEncode
    double gainDb = 0.0;
    float gain = 1.0f;              // linear gainDb
    float samplePeak = 0.0f;        // of the list as read, full scale 1
    double measuredLufs = 0.0;      // by kMeasure, for the log and the result
    double plainGainDb = 0.0;       // the gain kMeasure found
    int checks = 0;                 // kCheck passes done
    double checkedGainDb = 0.0;     // the gain of the last one
    double checkedLufs = 0.0;       // and what it measured
    uint64_t passFrames = 0;        // read in the current pass
    LoudnessResult result{WV_LOUDNESS_NONE, INT32_MIN};  // set at the end of kEncode
    TpdfDither dither;              // the one conversion to 16-bit
    std::vector<float> block;       // one block, read and processed in place
};

}  // namespace wv
