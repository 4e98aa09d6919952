#define WV_LOG_TAG "EncoderThread"
#include "render/NormalisedRenderJob.h"

#include <algorithm>
#include <cmath>

#include "base/Clock.h"
#include "base/Log.h"
#include "render/EncoderThread.h"

namespace wv {
namespace {

float dbToLinear(double db) { return static_cast<float>(std::pow(10.0, db / 20.0)); }

// The gain (dB) that brings `measured` LUFS to `target`: none for a list
// that has no loudness, never more than the cap.
double gainFor(double target, double measured) {
    if (!std::isfinite(measured)) return 0.0;
    return std::min(target - measured, NormalisePlan::kMaxGainDb);
}

// Whether `reached` LUFS meets the plan's target and, if not, what held it
// back: a wv_loudness_result.
int32_t outcome(const NormalisePlan& plan, double reached) {
    if (!std::isfinite(plan.measuredLufs)) return WV_LOUDNESS_NONE;
    if (reached >= plan.targetLufs - NormalisePlan::kMetWithinLu) return WV_LOUDNESS_MET;
    if (plan.targetLufs - plan.measuredLufs > NormalisePlan::kMaxGainDb) return WV_LOUDNESS_GAIN_LIMIT;
    return WV_LOUDNESS_PEAK_CEILING;
}

// Where a pass's progress (0..1) lies in the render's: the check passes
// share 25-50 % (a pass not needed is skipped over).
float overallProgress(const NormalisePlan& plan, float withinPass) {
    switch (plan.pass) {
        case NormalisePlan::kMeasure:
            return 0.25f * withinPass;
        case NormalisePlan::kCheck:
            return 0.25f + 0.25f * (static_cast<float>(plan.checks) + withinPass) /
                               static_cast<float>(NormalisePlan::kMaxChecks);
        default:
            return 0.5f + 0.5f * withinPass;
    }
}

// After a check pass that measured `lufs` at plan->gainDb: the gain of the
// next pass, and whether that is another check or the encoding. The
// limiter only lowers the loudness, so the first step assumes it follows
// the gain one for one; later ones follow the slope the checks showed.
void nextCheck(NormalisePlan* plan, double lufs) {
    const double shortfall = std::isfinite(lufs) ? plan->targetLufs - lufs : 0.0;
    double slope = 1.0;
    if (plan->checks > 0 && plan->gainDb != plan->checkedGainDb) {
        slope = (lufs - plan->checkedLufs) / (plan->gainDb - plan->checkedGainDb);
        slope = std::min(std::max(slope, 0.1), 1.0);
    }
    plan->checkedGainDb = plan->gainDb;
    plan->checkedLufs = lufs;
    ++plan->checks;
    if (std::fabs(shortfall) <= NormalisePlan::kCloseEnoughLu) {
        plan->pass = NormalisePlan::kEncode;
        return;
    }
    const double highest =
        std::min(plan->plainGainDb + NormalisePlan::kMaxCorrectionDb, NormalisePlan::kMaxGainDb);
    plan->gainDb = std::min(std::max(plan->gainDb + shortfall / slope, plan->plainGainDb), highest);
    plan->pass =
        plan->checks < NormalisePlan::kMaxChecks ? NormalisePlan::kCheck : NormalisePlan::kEncode;
}

}  // namespace

NormalisedRenderJob::NormalisedRenderJob(EncoderThread& worker, const RenderSettings& settings)
    : RenderJob(worker, settings) {}

// The parts' workers stop first; the plan goes before the reader, the
// encoder and the point generator.
NormalisedRenderJob::~NormalisedRenderJob() {
    mParts.reset();
    mPlan.reset();
}

JobStep NormalisedRenderJob::start(WVThreadCmd& cmd) {
    const JobStep started = RenderJob::start(cmd);
    if (started.kind != JobStep::kNext) return started;
    const uint32_t rate = static_cast<uint32_t>(mFormat.rate);
    const uint32_t channels = static_cast<uint32_t>(mFormat.channels);
    mPlan.reset(new NormalisePlan(mSettings.loudnessTarget / 10.0,
                                  mSettings.truePeakCeiling / 10.0, rate, channels,
                                  mFormat.resampleQuality, EncoderThread::kBlockBytes / 2));
    mPlan->meter.reset(new LoudnessMeter(rate, channels, MeterScope::kIntegrated));
    const MeasureParts::Format format{mFormat.rate, mFormat.channels, mFormat.resampleQuality};
    EncoderThread* worker = &mWorker;
    mParts = MeasureParts::create(mItem, format, mFormat.options.threads,
                                  static_cast<uint32_t>(mPlan->block.size() / channels),
                                  [worker]() { worker->wakeWaiting(); });
    return started;
}

JobStep NormalisedRenderJob::measureInParts() {
    NormalisePlan& plan = *mPlan;
    const TimeVal begin = timeOfDay();
    const MeasureParts::State state = mParts->step(plan.block.data());
    const uint32_t total = mItem->totalFrames.load();
    if (total > 0) {
        const float within =
            std::min(1.0f, static_cast<float>(mParts->framesMeasured()) / static_cast<float>(total));
        mWorker.update(overallProgress(plan, within), &mLastProgress);
    }
    switch (state) {
        case MeasureParts::kMore:
            return JobStep::next(ChunkedJobThread::elapsedMs(begin, timeOfDay()));
        case MeasureParts::kWaiting:
            // The workers wake the render as each of their parts ends.
            return JobStep::wait(EncoderThread::kRetryDelayMs);
        case MeasureParts::kDone:
            return endPass();
        case MeasureParts::kWhole:
            // Data still to come after all: the list measured in one piece
            // from its start, as a render with one thread does.
            WV_LOGI("list %d: measured in one piece", static_cast<int>(mItem->id));
            mParts.reset();
            plan.samplePeak = 0.0f;
            plan.passFrames = 0;
            plan.meter.reset(new LoudnessMeter(plan.rate, plan.channels, MeterScope::kIntegrated));
            mReader = passReader();
            return JobStep::next(ChunkedJobThread::elapsedMs(begin, timeOfDay()));
        default:
            WV_LOGE("list %d could not be measured", static_cast<int>(mItem->id));
            return failed(FileWriter::WRITE_ERROR);
    }
}

void NormalisedRenderJob::finished() { mItem->loudnessResult.store(mPlan->result.pack()); }

int NormalisedRenderJob::encodeFloat(const float* samples, size_t frames) {
    if (frames == 0) return FileWriter::WRITE_OK;
    NormalisePlan& plan = *mPlan;
    int16_t* pcm = reinterpret_cast<int16_t*>(mWorker.workBuffer());
    // The one place where a normalised render becomes 16-bit.
    plan.dither.toInt16(samples, pcm, frames * plan.channels);
    return writeBlock(pcm, static_cast<uint32_t>(frames));
}

JobStep NormalisedRenderJob::step(WVThreadCmd& cmd) {
    mWorker.itemOf(cmd);
    NormalisePlan& plan = *mPlan;
    const pcm_id_t id = mItem->id;
    if (plan.pass == NormalisePlan::kEncode) {
        // A remainder held back after a short write gets its one retry here.
        const int status = writerStatus();
        if (status != FileWriter::WRITE_OK) return failed(status);
    }
    if (mParts) return measureInParts();
    const TimeVal begin = timeOfDay();
    // The list's float stage: clip and list effects applied, not yet
    // quantised, so the gain and the limiter work on the whole resolution.
    float* samples = plan.block.data();
    const int32_t n =
        mReader->readFloat(samples, static_cast<uint32_t>(plan.block.size() / plan.channels));
    if (n < 0) return failed(FileWriter::WRITE_ERROR);
    const size_t frames = static_cast<size_t>(n);

    bool fed = true;
    if (plan.pass == NormalisePlan::kMeasure) {
        for (size_t k = 0; k < frames * plan.channels; ++k) {
            plan.samplePeak = std::max(plan.samplePeak, std::fabs(samples[k]));
        }
        fed = frames == 0 || plan.meter->add(samples, frames);
    } else {
        for (size_t k = 0; k < frames * plan.channels; ++k) samples[k] *= plan.gain;
        const size_t limited = plan.limiter->process(samples, frames, samples);
        fed = limited == 0 || !plan.meter || plan.meter->add(samples, limited);
        if (fed && plan.pass == NormalisePlan::kEncode) {
            const int written = encodeFloat(samples, limited);
            if (written != FileWriter::WRITE_OK) return failed(written);
        }
    }
    if (!fed) {
        WV_LOGE("list %d could not be measured", static_cast<int>(id));
        return failed(FileWriter::WRITE_ERROR);
    }
    plan.passFrames += frames;
    const uint32_t total = mItem->totalFrames.load();
    if (frames > 0 && total > 0) {
        const float within = std::min(1.0f, static_cast<float>(plan.passFrames) / total);
        mWorker.update(overallProgress(plan, within), &mLastProgress);
    }

    switch (mReader->endState()) {
        case PcmInfoReader::END: {
            JobStep next = endPass();
            if (next.kind == JobStep::kNext) {
                next.ms = ChunkedJobThread::elapsedMs(begin, timeOfDay());
            }
            return next;
        }
        case PcmInfoReader::WAIT:
            if (mItem->clipList->hasFailedSource()) return missingSource();
            WV_LOGD("pcm %d not available, delayed normalised render", static_cast<int>(id));
            return JobStep::wait(mWorker.retryDelayMs());
        default:
            return JobStep::next(ChunkedJobThread::elapsedMs(begin, timeOfDay()));
    }
}

JobStep NormalisedRenderJob::endPass() {
    NormalisePlan& plan = *mPlan;
    const pcm_id_t id = mItem->id;
    float* samples = plan.block.data();
    switch (plan.pass) {
        case NormalisePlan::kMeasure: {
            double lufs = 0.0;
            if (mParts) {
                if (!mParts->integrated(&lufs)) return failed(FileWriter::WRITE_ERROR);
                plan.samplePeak = mParts->samplePeak();
                mParts.reset();
            } else if (!plan.meter->integrated(&lufs)) {
                return failed(FileWriter::WRITE_ERROR);
            }
            plan.measuredLufs = lufs;
            plan.gainDb = gainFor(plan.targetLufs, lufs);
            plan.plainGainDb = plan.gainDb;
            const double peakAfterDb = plan.samplePeak > 0.0f
                                           ? 20.0 * std::log10(plan.samplePeak) + plan.gainDb
                                           : -HUGE_VAL;
            const bool limits = std::isfinite(lufs) &&
                                peakAfterDb > plan.ceilingDbtp - NormalisePlan::kCheckMarginDb;
            plan.pass = limits ? NormalisePlan::kCheck : NormalisePlan::kEncode;
            // Unlimited, the encode pass is the measured audio at gainDb:
            // its loudness is known without metering it again.
            plan.meter.reset(limits ? new LoudnessMeter(plan.rate, plan.channels, MeterScope::kIntegrated)
                                    : nullptr);
            break;
        }
        case NormalisePlan::kCheck: {
            const size_t tail = plan.limiter->flush(samples);
            double lufs = 0.0;
            if ((tail > 0 && !plan.meter->add(samples, tail)) || !plan.meter->integrated(&lufs)) {
                return failed(FileWriter::WRITE_ERROR);
            }
            nextCheck(&plan, lufs);
            WV_LOGI("list %d: limited to %.2f LUFS, next at %+.2f dB", static_cast<int>(id), lufs,
                    plan.gainDb);
            plan.meter.reset(new LoudnessMeter(plan.rate, plan.channels, MeterScope::kIntegrated));
            break;
        }
        case NormalisePlan::kEncode: {
            const size_t tail = plan.limiter->flush(samples);
            double reached = plan.measuredLufs + plan.gainDb;
            if (plan.meter &&
                ((tail > 0 && !plan.meter->add(samples, tail)) || !plan.meter->integrated(&reached))) {
                return failed(FileWriter::WRITE_ERROR);
            }
            const int written = encodeFloat(samples, tail);
            if (written != FileWriter::WRITE_OK) return failed(written);
            WV_LOGI("list %d: %.2f LUFS rendered at %+.2f dB, limiter down to %.2f dB",
                    static_cast<int>(id), plan.measuredLufs, plan.gainDb,
                    20.0 * std::log10(plan.limiter->lowestGain()));
            plan.result = {outcome(plan, reached), LoudnessMeter::tenths(reached)};
            if (plan.result.reason != WV_LOUDNESS_MET) {
                WV_LOGW("list %d: reached %.1f LUFS, not %.1f (%d)", static_cast<int>(id), reached,
                        plan.targetLufs, plan.result.reason);
            }
            return finish();
        }
    }
    // The next pass starts from the list's start.
    plan.gain = dbToLinear(plan.gainDb);
    plan.limiter = plan.newLimiter();
    plan.passFrames = 0;
    mReader = passReader();
    return JobStep::next(0);
}

}  // namespace wv
