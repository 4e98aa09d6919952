#include "items/RateConverter.h"

#include "items/PcmSource.h"

namespace wv {

RateConverter::~RateConverter() = default;

RateConverter::Plan RateConverter::plan() const {
    Plan plan;
    plan.itemRate = mSource->rate();
    plan.itemChannels = mSource->channels();
    plan.converting = plan.itemRate != mOutRate;
    return plan;
}

uint32_t RateConverter::read(const Plan& plan, char* buffer, uint32_t frames, int32_t* state) {
    if (!plan.converting) {
        const uint32_t n = mSource->read(buffer, frames);
        *state = mSource->endState();
        return n;
    }
    if (!mResampler) {
        mResampler.reset(
            AudioResampler::create(16, plan.itemChannels == 1 ? 1 : 2, mOutRate, mQuality));
        mResampler->init();
        mResampler->setVolume(1, 1);
    }
    mResampler->setSampleRate(plan.itemRate);
    int16_t* out = reinterpret_cast<int16_t*>(buffer);
    mResampler->resample(out, frames, mSource);
    uint32_t made = static_cast<uint32_t>(mResampler->getOutputFrames());
    int32_t end = mSource->endState();
    if (end == PcmSource::END && !mSource->lending()) {
        // All input is handed over: a resampler that holds a filter's tail
        // gives it out now, and the end waits until it has.
        mResampler->endInput();
        if (mResampler->outputPending() && made < frames) {
            mResampler->resample(out + size_t(made) * 2, frames - made, mSource);
            made += static_cast<uint32_t>(mResampler->getOutputFrames());
            end = mSource->endState();
        }
        if (mResampler->outputPending()) end = PcmSource::MORE;
    }
    // The last input was fetched, but the output filled up before the
    // resampler used all of it: the end comes with the next read, which
    // converts the rest, not now (a user would drop the tail).
    if (end == PcmSource::END && mSource->lending()) end = PcmSource::MORE;
    *state = end;
    return made;
}

}  // namespace wv
