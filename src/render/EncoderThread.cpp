#define WV_LOG_TAG "EncoderThread"
#include "render/EncoderThread.h"

#include <algorithm>
#include <string>

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "base/Log.h"

namespace wv {
EncoderThread::EncoderThread(JobContext* context)
    : ChunkedJobThread(context->events(),
                       ChunkedJobConfig{kProgressStep, EVT_RENDER_PROGRESS, EVT_RENDER_CANCELLED,
                                        kStepUrgency, Check::kEncoderJobItem}),
      mContext(context) {}

EncoderThread::~EncoderThread() = default;

bool EncoderThread::isRegistered(uint32_t id) {
    return mContext->getPcmInfo(id, REF_NONE) != nullptr;
}

SPcmInfo* EncoderThread::itemOf(const WVThreadCmd& cmd) {
    return takeItem(cmd, mContext->getPcmInfo(cmd.pcmId, REF_NONE));
}

bool EncoderThread::lowPriority() { return mContext->threadPriority() == WV_PRIORITY_LOW; }

void EncoderThread::deleteJob(void* job) { delete static_cast<EncoderJob*>(job); }

void EncoderThread::dropReference(uint32_t id) { mContext->releasePcm(id, REF_ENCODER, false); }

void EncoderThread::endJob(uint32_t id, uint32_t event, int32_t value) {
    // The output, if any, is in place or gone by now: readers go back to
    // the item's own path.
    if (SPcmInfo* item = mContext->getPcmInfo(id, REF_NONE)) item->writingPath.set("");
    mContext->notifyClient(WVThreadCmd(event, id, value), 0);
    mContext->releasePcm(id, REF_ENCODER, false);
}

void EncoderThread::failRender(pcm_id_t id, EncodeJob* job, int status) {
    if (status == FileWriter::WRITE_STORAGE_FULL) {
        WV_LOGW("Cancel file encode due to low space");
        delete job;
        endJob(id, EVT_RENDER_STOPPED, -1);
    } else {
        WV_LOGE("Encoder error!");
        delete job;
        endJob(id, EVT_RENDER_FAILED, -11);
    }
}

bool EncoderThread::failMissingSource(SPcmInfo* item, EncodeJob* job) {
    if (!item->clipList->hasFailedSource()) return false;
    WV_LOGE("list %d holds an item whose load failed: it cannot be rendered",
            static_cast<int>(item->id));
    delete job;
    endJob(item->id, EVT_RENDER_FAILED, -1);
    return true;
}

EncoderThread::OutputFormat EncoderThread::settleOutput(SPcmInfo* item,
                                                       const RenderSettings& settings) {
    // The settings are one copy: the client may change the list's while the
    // render starts, and a render goes on with what it started with.
    PcmClipList& list = *item->clipList;
    OutputFormat format;
    format.rate = settings.sampleRate >= 1 ? settings.sampleRate : list.getSamplerate();
    format.channels = settings.channels >= 1 ? settings.channels : list.getChannelCount();
    item->sampleRate.store(format.rate);
    item->channelCount.store(format.channels);

    // Resolved here once: the length predicted and every resampler of the
    // render are of this one kind.
    format.resampleQuality = AudioResampler::resolve(
        static_cast<AudioResampler::src_quality>(settings.resampleQuality));
    item->frames.store(0);
    uint64_t exact = 0;
    if (AudioResampler::makesExactLength(format.resampleQuality) &&
        list.convertedLength(format.rate, &exact)) {
        item->totalFrames.store(static_cast<uint32_t>(std::min<uint64_t>(exact, 0xFFFFFFFFu)));
    } else {
        const double seconds = static_cast<double>(item->frame2duration(0, 0xFFFFFFFF)) / 1000.0;
        item->totalFrames.store(static_cast<uint32_t>(seconds * format.rate));
    }

    format.type = isEncodeFormat(settings.type) ? settings.type : ENCODE_WAV;
    format.bitRate = settings.bitRate > 0
                         ? settings.bitRate
                         : defaultBitRate(static_cast<EncodeFormat>(format.type));
    format.options.quality = settings.quality;
    format.options.vbr = settings.vbr;
    format.options.jointStereo = settings.jointStereo;
    item->outputRate.store(0);
    item->outputChannels.store(0);
    item->outputBitRate.store(0);
    item->loudnessResult.store(LoudnessResult::kNone);

    format.path = item->path.get();
    if (format.path.empty()) {
        format.path = mContext->workingDir() + std::to_string(item->id) +
                      formatSuffix(static_cast<EncodeFormat>(format.type));
        item->path.set(format.path);
    }
    return format;
}

void EncoderThread::startJob(WVThreadCmd& cmd) {
    if (cmd.code == kCmdMeasure) {
        startMeasure(cmd);
        return;
    }
    SPcmInfo* item = itemOf(cmd);
    if (item->status.load() != CLIP_LIST) return;
    const pcm_id_t id = item->id;

    // A source whose format is not known yet gives the list no format and
    // its millisecond clips no frames: wait for its load to begin.
    if (failMissingSource(item, nullptr)) return;
    if (item->clipList->isPcmReady() == 0) {
        WV_LOGD("wait some time till the list clips %d are ready", static_cast<int>(id));
        sendWaitingCmd(cmd, mRetryDelayMs.load());
        return;
    }

    const RenderSettings settings = item->renderSettings();
    const OutputFormat format = settleOutput(item, settings);
    const int32_t rate = format.rate;
    const int32_t channels = format.channels;
    const std::string& path = format.path;
    std::unique_ptr<AudioEncoder> encoder(
        AudioEncoder::createAudioEncoder(static_cast<EncodeFormat>(format.type), path.c_str()));
    if (!encoder) {
        WV_LOGE("createAudioEncoder error!");
        endJob(id, EVT_RENDER_FAILED, -1);
        return;
    }
    encoder->setOptions(format.options);
    if (encoder->initEncoder(static_cast<uint32_t>(rate), static_cast<uint32_t>(channels),
                             static_cast<uint32_t>(format.bitRate),
                             AudioEncoder::FORMAT_PCM_16) != 0) {
        encoder.reset();
        WV_LOGW("Init encoder error!");
        endJob(id, EVT_RENDER_STOPPED, -1);
        return;
    }
    item->takeOutputFormat(encoder->outputSampleRate(), encoder->outputChannels(),
                           encoder->outputBitRate());
    // A file being replaced is read under its new name until it is done.
    const std::string writing = encoder->writingPath();
    if (writing != path) item->writingPath.set(writing);

    std::unique_ptr<WaveformState> waveform(
        new WaveformState(static_cast<uint32_t>(rate), static_cast<uint32_t>(channels)));
    openWaveformFile(waveform.get(), (path + ".wave").c_str());
    EncodeJob* job = new EncodeJob(passReader(item, rate, channels, format.resampleQuality),
                                   std::move(encoder), std::move(waveform));
    if (settings.loudnessTarget != 0) {
        job->normalise.reset(new NormalisePlan(
            settings.loudnessTarget / 10.0, settings.truePeakCeiling / 10.0,
            static_cast<uint32_t>(rate),
            static_cast<uint32_t>(channels), format.resampleQuality, kBlockBytes / 2));
        job->normalise->meter.reset(new LoudnessMeter(
            static_cast<uint32_t>(rate), static_cast<uint32_t>(channels), MeterScope::kIntegrated));
    }
    postFirstStep(id, static_cast<EncoderJob*>(job));
}

std::unique_ptr<PcmInfoReader> EncoderThread::passReader(SPcmInfo* item, int32_t rate,
                                                         int32_t channels,
                                                         AudioResampler::src_quality quality) {
    std::unique_ptr<PcmInfoReader> reader(new PcmInfoReader(item));
    reader->setOutputFormat(rate, channels);
    reader->setResampleQuality(quality);
    return reader;
}

bool EncoderThread::writeBlock(SPcmInfo* item, EncodeJob* job, const int16_t* pcm,
                               uint32_t frames) {
    item->frames.store(item->frames.load() + frames);
    const uint32_t bytes = frames * item->frameSize();
    addWaveformBlock(job->waveform.get(), pcm, bytes);
    if (job->waveform->writeFailed) {
        failRender(
            item->id, job,
            job->waveform->storageFull ? FileWriter::WRITE_STORAGE_FULL : FileWriter::WRITE_ERROR);
        return false;
    }
    const int encoded = job->encoder->encoding(pcm, static_cast<int>(bytes));
    if (encoded != FileWriter::WRITE_OK) {
        failRender(item->id, job, encoded);
        return false;
    }
    return true;
}

void EncoderThread::finishRender(SPcmInfo* item, EncodeJob* job) {
    const pcm_id_t id = item->id;
    // Every write first, then the files are put in place: a failure up to
    // there leaves both targets as they were.
    int finished = job->encoder->flushEncoding();
    if (finished == 0 && finishWaveformFile(job->waveform.get()) != 0) {
        finished = FileWriter::WRITE_ERROR;
    }
    if (finished == 0) finished = job->encoder->finishOutput();
    if (finished != 0) {
        failRender(id, job, finished);
        return;
    }
    // Known before the client hears of the end.
    if (job->normalise) item->loudnessResult.store(job->normalise->result.pack());
    delete job;
    endJob(id, EVT_RENDER_DONE, -1);
}

void EncoderThread::runStep(WVThreadCmd& cmd) {
    EncoderJob* any = static_cast<EncoderJob*>(cmd.data);
    if (LoudnessJob* measure = dynamic_cast<LoudnessJob*>(any)) {
        measureStep(cmd, measure);
        return;
    }
    SPcmInfo* item = itemOf(cmd);
    const pcm_id_t id = item->id;
    EncodeJob* job = static_cast<EncodeJob*>(any);
    if (job->normalise) {
        normaliseStep(cmd, item, job);
        return;
    }

    // A remainder held back after a short write gets its one retry here.
    const int writerStatus = job->encoder->checkStatus();
    if (writerStatus != FileWriter::WRITE_OK) {
        failRender(id, job, writerStatus);
        return;
    }
    const TimeVal begin = timeOfDay();
    int32_t elapsed = 0;

    const int32_t n = job->reader->read(mWorkBuffer, kBlockBytes);
    if (n < 0) {
        failRender(id, job, FileWriter::WRITE_ERROR);
        return;
    }
    if (n > 0) {
        if (!writeBlock(item, job, reinterpret_cast<const int16_t*>(mWorkBuffer),
                        static_cast<uint32_t>(n))) {
            return;
        }
        elapsed = elapsedMs(begin, timeOfDay());
        const float progress =
            static_cast<float>(item->frames.load()) / static_cast<float>(item->totalFrames.load());
        update(progress, &job->lastProgress);
    }

    switch (job->reader->endState()) {
        case PcmInfoReader::END:
            finishRender(item, job);
            return;
        case PcmInfoReader::WAIT:
            if (failMissingSource(item, job)) return;
            WV_LOGD("pcm %d not available, delayed encode", static_cast<int>(id));
            sendWaitingCmd(cmd, mRetryDelayMs.load());
            return;
        default:
            postNextStep(cmd, elapsed);
            return;
    }
}

}  // namespace wv
