// Stages one after the other: what the first hands out feeds the second,
// and so on; finish() passes down the chain as each stage runs dry.
//
// One thread at a time.
#pragma once

#include <memory>
#include <vector>

#include "dsp/StreamStage.h"

namespace wv {

class StageChain : public StreamStage {
public:
    explicit StageChain(uint32_t channels) : mChannels(channels) {}
    void add(std::unique_ptr<StreamStage> stage) { mStages.push_back(std::move(stage)); }
    bool empty() const { return mStages.empty(); }

    void put(const float* in, uint32_t frames) override;
    void finish() override;
    uint32_t take(float* out, uint32_t maxFrames) override;

private:
    // Moves what stage i hands out into stage i + 1.
    void pass(size_t i);

    uint32_t mChannels;
    std::vector<std::unique_ptr<StreamStage>> mStages;
    std::vector<float> mCarry;
};

}  // namespace wv
