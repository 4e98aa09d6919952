// A clip list read through its noise reduction and tempo: the mix of its
// clips (ClipListSource::mix) feeds a chain of stream stages, and the
// list's positions count the chain's output (see ClipListSource.h).
#include <algorithm>

#include "dsp/NoiseReducer.h"
#include "dsp/StageChain.h"
#include "dsp/TempoStretcher.h"
#include "items/ClipListSource.h"
#include "items/PcmClipList.h"
#include "items/SPcmInfo.h"

namespace wv {

namespace {

// Mixed frames fed to the stages at a time.
constexpr uint32_t kFeedFrames = 4096;
constexpr uint32_t kSkipFrames = 4096;

}  // namespace

void ClipListSource::startStages(const ListEffects& effects) {
    const int32_t rate = mMixFormat.rate;
    const int32_t channels = mMixFormat.channels;
    std::unique_ptr<StageChain> chain(new StageChain(static_cast<uint32_t>(channels)));
    if (effects.denoiseDb > 0) {
        const int32_t amount = effects.denoiseDb;
        chain->add(std::unique_ptr<StreamStage>(new NoiseReducer(rate, channels, amount)));
    }
    const int32_t percent = effects.tempoPercent;
    if (percent != 100) {
        chain->add(std::unique_ptr<StreamStage>(new TempoStretcher(rate, channels, percent)));
    }
    mStages = std::move(chain);
    // The list frame the present position comes from, less a lead-in over
    // which the stages settle.
    const uint64_t from = (uint64_t(mPosition) * static_cast<uint32_t>(percent) + 50) / 100;
    const uint64_t lead = std::min<uint64_t>(from, static_cast<uint32_t>(rate) / 2);
    mMixPosition = static_cast<uint32_t>(from - lead);
    mSkip = tempoLength(lead, percent);
    mStagePosition = mPosition;
    mStagesFinished = false;
    mStagedEffects = effects;
}

int32_t ClipListSource::readStreamed(float* out, uint32_t frames, const ListEffects& effects) {
    const uint32_t channels = static_cast<uint32_t>(mMixFormat.channels);
    if (mStages && (mStagedEffects.denoiseDb != effects.denoiseDb ||
                    mStagedEffects.tempoPercent != effects.tempoPercent ||
                    mStagePosition != mPosition)) {
        mStages.reset();
    }
    if (!mStages) startStages(effects);
    uint32_t want = mEndFrame > mPosition ? std::min(frames, mEndFrame - mPosition) : 0;
    std::fill(out, out + size_t(frames) * channels, 0.0f);
    uint32_t made = 0;
    int32_t state = PcmSource::MORE;
    while (made < want) {
        if (mStagesFinished) {
            // The list ends where its whole length puts it, whichever frame
            // the stages started from: their own rounding can differ by one.
            const uint64_t left = mStageEnd > mPosition + made ? mStageEnd - mPosition - made : 0;
            want = static_cast<uint32_t>(std::min<uint64_t>(want, made + left));
            if (made >= want) break;
        }
        if (mSkip > 0) {
            mStageInput.resize(size_t(kSkipFrames) * channels);
            const uint32_t dropped = mStages->take(
                mStageInput.data(), static_cast<uint32_t>(std::min<uint64_t>(mSkip, kSkipFrames)));
            mSkip -= dropped;
            if (dropped > 0) continue;
        } else {
            const uint32_t n = mStages->take(out + size_t(made) * channels, want - made);
            made += n;
            if (n > 0) continue;
        }
        if (mStagesFinished) {
            // Stages that ran short end in silence (already in out).
            made = want;
            continue;
        }
        mStageInput.resize(size_t(kFeedFrames) * channels);
        const uint32_t got = mix(mMixPosition, 0xFFFFFFFFu, mStageInput.data(), kFeedFrames);
        mMixPosition += got;
        if (got > 0) mStages->put(mStageInput.data(), got);
        if (mEndState == PcmSource::END) {
            mStages->finish();
            mStagesFinished = true;
            mStageEnd = tempoLength(mMixPosition, effects.tempoPercent);
        } else if (mEndState == PcmSource::WAIT && got == 0) {
            state = PcmSource::WAIT;
            break;
        }
    }
    mPosition += made;
    mStagePosition = mPosition;
    if (state == PcmSource::MORE && (mPosition >= mEndFrame || (mStagesFinished && mPosition >= mStageEnd))) {
        state = PcmSource::END;
    }
    mEndState = state;
    return static_cast<int32_t>(made);
}

}  // namespace wv
