#include "items/SourceScan.h"

#include <algorithm>
#include <cmath>

namespace wv {

SourceScan::SourceScan(const std::vector<PeakSetPlan>& sets, bool loudness)
    : mWantsLoudness(loudness) {
    mSets.resize(sets.size());
    for (size_t i = 0; i < sets.size(); ++i) {
        mSets[i].plan = sets[i];
        mSets[i].minMax.resize(size_t(sets[i].count) * 2);
        mSets[i].binner.reset(
            new PeakBinner(mSets[i].minMax.data(), sets[i].count, sets[i].frames));
    }
}

SourceScan::~SourceScan() = default;

bool SourceScan::begin(uint32_t rate, uint32_t channels) {
    mChannels = channels;
    mRate = rate;
    if (mSilenceOut != nullptr) {
        mSilences.reset(new SilenceFinder(
            mSilenceDb, static_cast<uint32_t>(std::llround(static_cast<double>(mSilenceMinMs) *
                                                           static_cast<double>(rate) / 1000.0))));
    }
    if (!mWantsLoudness) return true;
    mMeter.reset(new LoudnessMeter(rate, channels));
    return mMeter->valid();
}

bool SourceScan::meterOwnChannels(uint32_t rate, const std::vector<ChannelWeight>& weights) {
    std::unique_ptr<LoudnessMeter> meter(new LoudnessMeter(rate, uint32_t(weights.size())));
    if (!meter->valid()) return false;
    for (uint32_t c = 0; c < weights.size(); ++c) {
        if (!meter->weigh(c, weights[c])) return false;
    }
    mMeter = std::move(meter);
    mOwnChannels = true;
    return true;
}

void SourceScan::feedSet(Set& set, const int16_t* samples, uint32_t frames) {
    const uint64_t start = set.plan.startFrame;
    const uint64_t end = start + set.plan.frames;
    const uint64_t first = std::max(mPosition, start);
    const uint64_t last = std::min(mPosition + frames, end);
    if (first >= last) return;
    const int16_t* from = samples + (first - mPosition) * mChannels;
    const uint32_t n = uint32_t(last - first);
    const bool asFed = set.plan.channel == PeakSetPlan::kAllChannels;
    if (asFed || (mChannels == 1 && set.plan.channel <= 0)) {
        set.binner->feed(from, n, mChannels);
        return;
    }
    if (set.plan.channel >= int32_t(mChannels)) {
        set.binner->skipTo(last - start);
        return;
    }
    mOneChannel.resize(n);
    for (uint32_t f = 0; f < n; ++f) {
        const int16_t* frame = from + size_t(f) * mChannels;
        mOneChannel[f] = set.plan.channel == PeakSetPlan::kChannelMean
                             ? int16_t((int(frame[0]) + int(frame[1])) / 2)
                             : frame[set.plan.channel];
    }
    set.binner->feed(mOneChannel.data(), n, 1);
}

bool SourceScan::feed(const int16_t* samples, uint32_t frames) {
    for (Set& set : mSets) feedSet(set, samples, frames);
    if (mSilences) mSilences->feed(samples, frames, mChannels);
    mPosition += frames;
    if (mMeter && !mOwnChannels) return mMeter->add(samples, frames);
    return true;
}

bool SourceScan::feedMeter(const float* samples, size_t frames) {
    return !mMeter || !mOwnChannels || mMeter->add(samples, frames);
}

bool SourceScan::finish() {
    LoudnessFigures figures{};
    if (mMeter && !mMeter->figures(&figures)) return false;
    if (mSilences) {
        mSilences->finish();
        mSilenceOut->set(mSilences->silences(), static_cast<uint32_t>(mPosition), mRate);
    }
    std::lock_guard<std::mutex> guard(mLock);
    mFigures = figures;
    mFinished = true;
    return true;
}

int32_t SourceScan::peaks(uint32_t set, int16_t* minMax, uint32_t count) const {
    if (set >= mSets.size() || minMax == nullptr || count != mSets[set].plan.count) return -4;
    std::lock_guard<std::mutex> guard(mLock);
    if (!mFinished) return -3;
    std::copy(mSets[set].minMax.begin(), mSets[set].minMax.end(), minMax);
    return int32_t(count);
}

int32_t SourceScan::loudness(int32_t* integrated, int32_t* range, int32_t* truePeak) const {
    if (!mWantsLoudness) return -2;
    std::lock_guard<std::mutex> guard(mLock);
    if (!mFinished) return -3;
    *integrated = LoudnessMeter::tenths(mFigures.integratedLufs);
    *range = LoudnessMeter::tenths(mFigures.rangeLu);
    *truePeak = LoudnessMeter::tenths(mFigures.truePeakDbtp);
    return 0;
}

}  // namespace wv
