// What a scan (Wavoryx::scanFile) works out on its one pass through a file
// instead of keeping the decoded audio: the true extremes of frame ranges,
// in bins (PeakBinner), the programme loudness (LoudnessMeter) and the
// silences (SilenceFinder, into the item's SilenceResults).
//
// The decoder worker alone feeds it: begin() once the format is known, the
// decoded 16-bit frames in stream order, then finish() at the end of the
// stream. Clients read the results from any thread once finish() returned;
// before that (and after a scan that never finished) there are none.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "dsp/LoudnessMeter.h"
#include "dsp/PeakBinner.h"
#include "dsp/SilenceFinder.h"
#include "items/SilenceResults.h"

namespace wv {

// One set of bins: frames [startFrame, startFrame + frames) of the stream in
// `count` bins, as PeakBinner splits them; `channel` is kAllChannels (the
// extremes over every channel), kChannelMean (each frame is first made the
// sum of its channels divided by their number, rounded toward zero) or a
// channel's number (0 left or mono, 1 right).
struct PeakSetPlan {
    static constexpr int32_t kAllChannels = -1;
    static constexpr int32_t kChannelMean = -2;
    uint32_t startFrame = 0;
    uint32_t frames = 0;
    uint32_t count = 0;
    int32_t channel = kAllChannels;
};

class SourceScan {
public:
    // Allocates every set's bins: throws std::bad_alloc when they do not fit.
    SourceScan(const std::vector<PeakSetPlan>& sets, bool loudness);
    ~SourceScan();
    SourceScan(const SourceScan&) = delete;
    SourceScan& operator=(const SourceScan&) = delete;

    bool wantsLoudness() const { return mWantsLoudness; }
    // Also finds the silences (see SilenceFinder; minMs at the stream's
    // rate, rounded) and hands them to `out` at finish(). Before the scan.
    void findSilences(double thresholdDb, uint32_t minMs, SilenceResults* out) {
        mSilenceDb = thresholdDb;
        mSilenceMinMs = minMs;
        mSilenceOut = out;
    }
    // The stream's rate and channel count (1 or 2). False when the loudness
    // meter cannot measure at that rate.
    bool begin(uint32_t rate, uint32_t channels);
    // Measures the loudness on other samples than the fed frames: float
    // frames of weights.size() channels at `rate`, each weighed as given,
    // fed by feedMeter (for a file of more channels than the stream holds).
    // False when that meter cannot be set up; the stream's meter stays then.
    bool meterOwnChannels(uint32_t rate, const std::vector<ChannelWeight>& weights);
    // The next `frames` frames of the stream. False when the meter refused them.
    bool feed(const int16_t* samples, uint32_t frames);
    bool feedMeter(const float* samples, size_t frames);
    // The stream ended: the results become readable. False when the
    // loudness could not be computed.
    bool finish();

    // Set `set`'s count pairs into minMax: count, or -3 before finish(), -4
    // for a set or count that does not match one asked for.
    int32_t peaks(uint32_t set, int16_t* minMax, uint32_t count) const;
    // Tenths as LoudnessMeter::tenths gives them: 0, -2 when none was asked
    // for, -3 before finish().
    int32_t loudness(int32_t* integrated, int32_t* range, int32_t* truePeak) const;

private:
    struct Set {
        PeakSetPlan plan;
        std::vector<int16_t> minMax;
        std::unique_ptr<PeakBinner> binner;
    };
    // The frames of `samples` (mChannels each) that fall in set's range.
    void feedSet(Set& set, const int16_t* samples, uint32_t frames);

    std::vector<Set> mSets;
    bool mWantsLoudness;
    bool mOwnChannels = false;  // the meter is fed by feedMeter
    std::unique_ptr<LoudnessMeter> mMeter;
    uint32_t mChannels = 0;
    uint64_t mPosition = 0;        // stream frames fed so far
    std::vector<int16_t> mOneChannel;  // a block made one channel for a set
    double mSilenceDb = 0.0;
    uint32_t mSilenceMinMs = 0;
    SilenceResults* mSilenceOut = nullptr;  // the item's; null when no silences are asked
    std::unique_ptr<SilenceFinder> mSilences;
    uint32_t mRate = 0;
    mutable std::mutex mLock;      // guards the results below
    bool mFinished = false;
    LoudnessFigures mFigures{};
};

}  // namespace wv
