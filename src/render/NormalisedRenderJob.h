// A loudness-normalised render: a RenderJob whose commands 2 run the passes
// of a NormalisePlan over the list (see NormalisePlan.h), each a chain of
// blocks like a plain render's, reading the list's float stage; the encode
// pass converts to 16-bit once, with the plan's dither. With more than one
// thread the measuring pass reads the list in parts at once (MeasureParts)
// where the list allows it.
#pragma once

#include <memory>

#include "render/MeasureParts.h"
#include "render/NormalisePlan.h"
#include "render/RenderJob.h"

namespace wv {

class NormalisedRenderJob final : public RenderJob {
public:
    NormalisedRenderJob(EncoderThread& worker, const RenderSettings& settings);
    ~NormalisedRenderJob() override;

    // A plain render's start, then the plan and its first meter.
    JobStep start(WVThreadCmd& cmd) override;
    // One block of the current pass.
    JobStep step(WVThreadCmd& cmd) override;

private:
    // Encodes a block of float output: a FileWriter status.
    int encodeFloat(const float* samples, size_t frames);
    // Ends the current pass: decides the gain and starts the next pass
    // (JobStep::next), or ends the render.
    JobStep endPass();
    // One command of a measuring pass in parts.
    JobStep measureInParts();
    // Keeps the loudness reached for getListLoudnessResult.
    void finished() override;

    std::unique_ptr<NormalisePlan> mPlan;
    std::unique_ptr<MeasureParts> mParts;  // during a measuring pass in parts
};

}  // namespace wv
