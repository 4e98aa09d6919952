#include "dsp/StageChain.h"

namespace wv {
namespace {

constexpr uint32_t kCarryFrames = 4096;

}  // namespace

void StageChain::put(const float* in, uint32_t frames) {
    if (mStages.empty()) return;
    mStages.front()->put(in, frames);
    for (size_t i = 0; i + 1 < mStages.size(); ++i) pass(i);
}

void StageChain::pass(size_t i) {
    mCarry.resize(size_t(kCarryFrames) * mChannels);
    for (;;) {
        const uint32_t n = mStages[i]->take(mCarry.data(), kCarryFrames);
        if (n == 0) break;
        mStages[i + 1]->put(mCarry.data(), n);
    }
}

void StageChain::finish() {
    for (size_t i = 0; i < mStages.size(); ++i) {
        mStages[i]->finish();
        if (i + 1 < mStages.size()) pass(i);
    }
}

uint32_t StageChain::take(float* out, uint32_t maxFrames) {
    if (mStages.empty()) return 0;
    return mStages.back()->take(out, maxFrames);
}

}  // namespace wv
