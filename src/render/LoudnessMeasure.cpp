// The encoder worker's loudness measurement: an item or a clip list read
// like a render, at its own rate and channel count, into a LoudnessMeter
// instead of an encoder. A loaded file of more than two channels, whose item
// holds a stereo downmix, is decoded again from the file at its own channels,
// each weighed as ITU-R BS.1770 says. It shares the render's events for
// progress (21), failure (20) and cancel (23), and ends with 26, 27 and 28.
#define WV_LOG_TAG "EncoderThread"
#include <algorithm>

#include "base/Clock.h"
#include "base/Log.h"
#include "render/EncoderThread.h"

namespace wv {
namespace {

// The item's own format, as a render of it would read it: a list's when the
// client set one, else the one its clips suggest. False while unknown.
bool measuredFormat(SPcmInfo* item, uint32_t* rate, uint32_t* channels) {
    int32_t r = item->sampleRate.load();
    int32_t c = item->channelCount.load();
    if (item->status.load() == CLIP_LIST) {
        if (r < 1) r = item->clipList->getSamplerate();
        if (c < 1) c = item->clipList->getChannelCount();
    }
    if (r < 1 || c < 1) return false;
    *rate = static_cast<uint32_t>(r);
    *channels = static_cast<uint32_t>(c > 2 ? 2 : c);
    return true;
}

// Frames the measurement expects at `rate`; 0 while unknown.
uint64_t expectedFrames(SPcmInfo* item, uint32_t rate) {
    const int32_t status = item->status.load();
    if (status == CLIP_LIST) {
        return uint64_t(item->frame2duration(0, 0xFFFFFFFF)) * rate / 1000;
    }
    return status == PCM_READY ? item->frames.load() : item->totalFrames.load();
}

// A source whose data will never come: the item's own failed load, or one
// of a list's sources.
bool sourceFailed(SPcmInfo* item) {
    if (item->status.load() == CLIP_LIST) return item->clipList->hasFailedSource();
    return item->loadFailed.load();
}

// The item's file decoded at its own channels, when it has more than the
// item holds; null otherwise (or when it cannot be opened: the item's
// downmix is measured then).
std::unique_ptr<ChannelDecoder> multichannelSource(SPcmInfo* item) {
    SourceFacts facts;
    if (item->status.load() == CLIP_LIST || item->ranged || !item->sourceFacts(&facts) ||
        facts.channels <= 2) {
        return nullptr;
    }
    std::unique_ptr<ChannelDecoder> source(new ChannelDecoder());
    if (!source->open(item->path.get()) || source->channels() <= 2) {
        WV_LOGW("item %d: its %d channels cannot be read again, its downmix is measured",
                static_cast<int>(item->id), facts.channels);
        return nullptr;
    }
    return source;
}

}  // namespace

void EncoderThread::startMeasure(WVThreadCmd& cmd) {
    SPcmInfo* item = itemOf(cmd);
    const pcm_id_t id = item->id;
    if (sourceFailed(item)) {
        WV_LOGE("item %d has a source whose load failed: it cannot be measured",
                static_cast<int>(id));
        endMeasure(id, EVT_RENDER_FAILED, -1);
        return;
    }
    const int32_t status = item->status.load();
    const bool ready = status == CLIP_LIST ? item->clipList->isPcmReady() != 0
                                           : status == DECODING || status == PCM_READY;
    uint32_t rate = 0;
    uint32_t channels = 0;
    if (!ready || !measuredFormat(item, &rate, &channels)) {
        if (status == RECORDING) {
            endMeasure(id, EVT_RENDER_FAILED, -1);
            return;
        }
        WV_LOGD("item %d has no format yet: the measurement waits", static_cast<int>(id));
        sendWaitingCmd(cmd, kRetryDelayMs);
        return;
    }
    std::unique_ptr<LoudnessJob> job;
    if (std::unique_ptr<ChannelDecoder> source = multichannelSource(item)) {
        const uint32_t sourceRate = source->rate();
        const uint32_t sourceChannels = source->channels();
        job.reset(new LoudnessJob(std::move(source), sourceRate, sourceChannels));
        for (uint32_t c = 0; c < sourceChannels; ++c) {
            job->meter.weigh(c, weightOfPlace(job->source->place(c)));
        }
        rate = sourceRate;
    } else {
        std::unique_ptr<PcmInfoReader> reader(new PcmInfoReader(item));
        reader->setOutputFormat(static_cast<int32_t>(rate), static_cast<int32_t>(channels));
        job.reset(new LoudnessJob(std::move(reader), rate, channels));
    }
    if (!job->meter.valid()) {
        endMeasure(id, EVT_RENDER_FAILED, -11);
        return;
    }
    job->totalFrames = expectedFrames(item, rate);
    EncoderJob* any = job.release();
    postFirstStep(id, any);
}

void EncoderThread::measureStep(WVThreadCmd& cmd, LoudnessJob* job) {
    if (job->source) {
        measureSourceStep(cmd, job);
        return;
    }
    SPcmInfo* item = itemOf(cmd);
    const pcm_id_t id = item->id;
    const TimeVal begin = timeOfDay();

    const int32_t n = job->reader->read(mWorkBuffer, kBlockBytes);
    if (n < 0 || (n > 0 && !job->meter.add(reinterpret_cast<const int16_t*>(mWorkBuffer),
                                           static_cast<size_t>(n)))) {
        WV_LOGE("item %d could not be read or measured", static_cast<int>(id));
        delete job;
        endMeasure(id, EVT_RENDER_FAILED, -11);
        return;
    }
    job->frames += static_cast<uint64_t>(n);
    // A file still loading may learn its length meanwhile.
    if (job->totalFrames == 0) {
        job->totalFrames =
            expectedFrames(item, static_cast<uint32_t>(job->reader->outSampleRate()));
    }
    if (n > 0 && job->totalFrames > 0) {
        update(static_cast<float>(job->frames) / static_cast<float>(job->totalFrames),
               &job->lastProgress);
    }

    switch (job->reader->endState()) {
        case PcmInfoReader::END:
            finishMeasure(id, job);
            return;
        case PcmInfoReader::WAIT:
            if (sourceFailed(item)) {
                WV_LOGE("a source of item %d failed to load during the measurement",
                        static_cast<int>(id));
                delete job;
                endMeasure(id, EVT_RENDER_FAILED, -1);
                return;
            }
            sendWaitingCmd(cmd, kRetryDelayMs);
            return;
        default:
            postNextStep(cmd, elapsedMs(begin, timeOfDay()));
            return;
    }
}

void EncoderThread::measureSourceStep(WVThreadCmd& cmd, LoudnessJob* job) {
    SPcmInfo* item = itemOf(cmd);
    const pcm_id_t id = item->id;
    const TimeVal begin = timeOfDay();
    const int maxFrames = static_cast<int>(kBlockBytes / 2 / job->channels);
    job->floats.resize(static_cast<size_t>(maxFrames) * job->channels);
    const int n = job->source->read(job->floats.data(), maxFrames);
    if (n < 0 || (n > 0 && !job->meter.add(job->floats.data(), static_cast<size_t>(n)))) {
        WV_LOGE("item %d could not be read or measured", static_cast<int>(id));
        delete job;
        endMeasure(id, EVT_RENDER_FAILED, -11);
        return;
    }
    if (n == 0) {
        finishMeasure(id, job);
        return;
    }
    job->frames += static_cast<uint64_t>(n);
    if (job->totalFrames == 0) job->totalFrames = expectedFrames(item, job->source->rate());
    if (job->totalFrames > 0) {
        update(std::min(1.0f, static_cast<float>(job->frames) / static_cast<float>(job->totalFrames)),
               &job->lastProgress);
    }
    postNextStep(cmd, elapsedMs(begin, timeOfDay()));
}

void EncoderThread::finishMeasure(pcm_id_t id, LoudnessJob* job) {
    LoudnessFigures figures{};
    const bool measured = job->meter.figures(&figures);
    delete job;
    if (!measured) {
        endMeasure(id, EVT_RENDER_FAILED, -11);
        return;
    }
    WV_LOGI("item %d: %.1f LUFS, range %.1f LU, true peak %.1f dBTP", static_cast<int>(id),
            figures.integratedLufs, figures.rangeLu, figures.truePeakDbtp);
    mContext->notifyClient(
        WVThreadCmd(EVT_LOUDNESS_INTEGRATED, id, LoudnessMeter::tenths(figures.integratedLufs)), 0);
    mContext->notifyClient(
        WVThreadCmd(EVT_LOUDNESS_TRUE_PEAK, id, LoudnessMeter::tenths(figures.truePeakDbtp)), 0);
    // The last of the three ends the job and drops its reference.
    endMeasure(id, EVT_LOUDNESS_RANGE, LoudnessMeter::tenths(figures.rangeLu));
}

void EncoderThread::endMeasure(pcm_id_t id, uint32_t event, int32_t value) {
    // Unlike endJob, the list's writingPath stays: a render of the same list
    // may be under way, and a measurement never set it.
    mContext->notifyClient(WVThreadCmd(event, id, value), 0);
    mContext->releasePcm(id, REF_ENCODER, false);
}

}  // namespace wv
