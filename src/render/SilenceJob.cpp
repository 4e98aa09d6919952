#define WV_LOG_TAG "EncoderThread"
#include "render/SilenceJob.h"

#include <cmath>

#include "base/Clock.h"
#include "base/Log.h"
#include "dsp/SilenceFinder.h"
#include "items/PcmInfoReader.h"
#include "render/EncoderThread.h"
#include "render/ItemFormat.h"

namespace wv {

SilenceJob::SilenceJob(EncoderThread& worker, double thresholdDb, uint32_t minMs)
    : mWorker(worker), mThresholdDb(thresholdDb), mMinMs(minMs) {}

SilenceJob::~SilenceJob() = default;

JobStep SilenceJob::start(WVThreadCmd& cmd) {
    SPcmInfo* item = mWorker.itemOf(cmd);
    uint32_t rate = 0;
    uint32_t channels = 0;
    JobStep instead = JobStep::next(0);
    if (!readableNow(item, "scanned", "the silence scan", &rate, &channels, &instead))
        return instead;
    mReader.reset(new PcmInfoReader(item));
    mReader->setOutputFormat(static_cast<int32_t>(rate), static_cast<int32_t>(channels));
    // The shortest silence in frames, as ffmpeg's silencedetect rounds it.
    const auto minFrames = static_cast<uint32_t>(
        std::llround(static_cast<double>(mMinMs) * static_cast<double>(rate) / 1000.0));
    mFinder.reset(new SilenceFinder(mThresholdDb, minFrames));
    mChannels = channels;
    mBlock.resize(kBlockBytes);
    mTotalFrames = expectedFrames(item, rate);
    return JobStep::next(0);
}

JobStep SilenceJob::step(WVThreadCmd& cmd) {
    SPcmInfo* item = mWorker.itemOf(cmd);
    const pcm_id_t id = item->id;
    const TimeVal begin = timeOfDay();

    const int32_t n = mReader->read(mBlock.data(), kBlockBytes);
    if (n < 0) {
        WV_LOGE("item %d could not be read for its silences", static_cast<int>(id));
        return JobStep::end(EVT_RENDER_FAILED, -11);
    }
    if (n > 0) {
        mFinder->feed(reinterpret_cast<const int16_t*>(mBlock.data()), static_cast<uint32_t>(n),
                      mChannels);
    }
    if (mTotalFrames == 0)
        mTotalFrames = expectedFrames(item, static_cast<uint32_t>(mReader->outSampleRate()));
    if (n > 0 && mTotalFrames > 0) {
        mWorker.update(static_cast<float>(mFinder->position()) / static_cast<float>(mTotalFrames),
                       &mLastProgress);
    }
    switch (mReader->endState()) {
        case PcmInfoReader::END:
            return finish(item);
        case PcmInfoReader::WAIT:
            if (sourceFailed(item)) {
                WV_LOGE("a source of item %d failed to load during the silence scan",
                        static_cast<int>(id));
                return JobStep::end(EVT_RENDER_FAILED, -1);
            }
            return JobStep::wait(EncoderThread::kRetryDelayMs);
        default:
            return JobStep::next(ChunkedJobThread::elapsedMs(begin, timeOfDay()));
    }
}

JobStep SilenceJob::finish(SPcmInfo* item) {
    mFinder->finish();
    const auto count = static_cast<int32_t>(mFinder->silences().size());
    WV_LOGI("item %d: %d silences in %llu frames", static_cast<int>(item->id), count,
            static_cast<unsigned long long>(mFinder->position()));
    item->silences.set(mFinder->silences(), static_cast<uint32_t>(mFinder->position()),
                       static_cast<uint32_t>(mReader->outSampleRate()));
    return JobStep::end(EVT_SILENCES, count);
}

}  // namespace wv
