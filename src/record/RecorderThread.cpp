// Logs under the engine's tag, not its own: clients look for a recording
// that got no encoder there.
#define WV_LOG_TAG "WavoryxPriv"
#include "record/RecorderThread.h"

#include <string>

#include "base/Clock.h"
#include "base/Log.h"
#include "items/SPcmInfo.h"
#include "record/RecordJob.h"
#include "threads/ClientCallbackThread.h"

namespace wv {
namespace {

// The drain buffer at the end of a pitch-shifted recording.
constexpr uint32_t kDrainBytes = 512;

}  // namespace

RecorderThread::RecorderThread(JobContext* context) : mContext(context) {}

RecorderThread::~RecorderThread() = default;

bool RecorderThread::isRegistered(uint32_t id) {
    return mContext->getPcmInfo(id, REF_NONE) != nullptr;
}

void RecorderThread::deleteJob(void* job) { finishJob(static_cast<RecordJob*>(job)); }

void RecorderThread::notify(uint32_t code, pcm_id_t id, int32_t arg, int32_t delayMs) {
    mContext->notifyClient(WVThreadCmd(code, id, arg), delayMs);
}

SPcmInfo* RecorderThread::itemOf(const WVThreadCmd& cmd, const char* stage) {
    SPcmInfo* item = mContext->getPcmInfo(cmd.pcmId, REF_NONE);
    if (item != nullptr) return item;
    WV_LOGE("recorder: pcm %u of command %u (%s) doesn't exist; dropped", cmd.pcmId, cmd.code,
            stage);
    if (cmd.code == kCmdRecord && cmd.data != nullptr) deleteJob(cmd.data);
    return nullptr;
}

void RecorderThread::procCmd(WVThreadCmd& cmd) {
    SPcmInfo* item = itemOf(cmd, "run");
    if (item == nullptr) return;
    setCurrentId(cmd.pcmId);
    switch (cmd.code) {
        case kCmdStart:
            if (item->status.load() == RECORDING) startRecording(cmd, item);
            break;
        case kCmdRecord:
            recordBuffer(cmd, item, static_cast<RecordJob*>(cmd.data));
            break;
        default:
            WV_LOGE("recorder: unknown command %u for pcm %u", cmd.code, cmd.pcmId);
            break;
    }
    setCurrentId(0);
}

void RecorderThread::abortStart(pcm_id_t id, int32_t failure) {
    mContext->releasePcm(id, REF_RECORDER, false);
    mContext->releasePcm(id, REF_CLIENT, false);
    mContext->recordingEnded(id);
    notify(EVT_RECORD_FAILED, id, failure);
    notify(EVT_RECORD_ENDED, id, -1);
}

void RecorderThread::startRecording(const WVThreadCmd& cmd, SPcmInfo* item) {
    const pcm_id_t id = cmd.pcmId;
    const RenderSettings settings = item->renderSettings();
    const int32_t sampleRate = settings.sampleRate;
    const int32_t channels = settings.channels;
    std::unique_ptr<AudioRecorder> recorder(
        new AudioRecorder(settings.audioSource, uint32_t(sampleRate), uint32_t(channels)));
    if (recorder->initCheck() != 0) {
        WV_LOGE("init recorder failed.");
        recorder.reset();
        mContext->releasePcm(id, REF_RECORDER, false);
        notify(EVT_RECORD_FAILED, id, 5);
        return;
    }
    const std::string path = item->path.get();
    std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(
        static_cast<EncodeFormat>(settings.type), path.c_str()));
    if (!encoder) {
        WV_LOGE("createAudioEncoder failed.");
        recorder.reset();
        abortStart(id, 5);
        return;
    }
    EncodeOptions options;
    options.quality = settings.quality;
    options.vbr = settings.vbr;
    options.jointStereo = settings.jointStereo;
    encoder->setOptions(options);
    int err = encoder->initEncoder(uint32_t(sampleRate), uint32_t(channels),
                                   uint32_t(settings.bitRate), AudioEncoder::FORMAT_PCM_16);
    if (err != 0) {
        WV_LOGE("init encorder failed %d.", err);
        recorder.reset();
        encoder.reset();
        abortStart(id, 3);
        return;
    }
    err = recorder->start(nullptr);
    if (err != 0) {
        WV_LOGE("start encorder failed %d.", err);
        recorder.reset();
        encoder.reset();
        abortStart(id, 5);
        return;
    }

    item->takeOutputFormat(encoder->outputSampleRate(), encoder->outputChannels(),
                           encoder->outputBitRate());
    // A file being replaced is read under its new name until it is done.
    const std::string writing = encoder->writingPath();
    if (writing != path) item->writingPath.set(writing);

    auto* job = new RecordJob();
    job->audioSource = settings.audioSource;
    job->recorder = std::move(recorder);
    job->encoder = std::move(encoder);
    // Only a WAV file has a header to keep up to date.
    job->wave = settings.type == ENCODE_WAV
                    ? static_cast<WaveEncoder*>(job->encoder.get())
                    : nullptr;
    job->headerPeriod = uint32_t(sampleRate);
    job->waveform.reset(new WaveformState(uint32_t(sampleRate), uint32_t(channels)));
    openWaveformFile(job->waveform.get(), (path + ".wave").c_str());
    job->pacer.reset(new PacingTimer(kWaveformPeriodMs, timeOfDay()));
    job->fadeLength = RecordJob::fadeLengthFor(sampleRate);
    job->frameSize = item->frameSize();
    job->lostAudio.reset(new LostAudioReport(uint32_t(sampleRate)));
    if (settings.pitch != 0.0f) {
        job->pitchShifter.reset(
            new VoicePitchShifter(uint32_t(sampleRate), uint32_t(channels), settings.pitch));
    } else if (settings.robot == 1) {
        job->robotEffect.reset(new EffectRobot(2, 10, sampleRate, channels));
    }
    sendCmd(WVThreadCmd(kCmdRecord, id, -1, job), kRecordUrgency);
    notify(EVT_RECORD_STARTED, id, -1);
}

void RecorderThread::recordBuffer(WVThreadCmd& cmd, SPcmInfo* item, RecordJob* job) {
    const pcm_id_t id = cmd.pcmId;
    const int status = job->encoder->checkStatus();
    if (status == FileWriter::WRITE_ERROR) {
        WV_LOGE("Recording error in checkStatus!");
        notify(EVT_RECORD_FAILED, id, 1);
        cancelCmd(cmd);
    } else if (status == FileWriter::WRITE_STORAGE_FULL) {
        WV_LOGW("Pause recording due to low space in checkStatus");
        notify(EVT_RECORD_NO_SPACE, id, -1);
        suspendCmd(cmd);
    } else if (!job->recorder) {
        // Only a parked job lacks a source; park this one too.
        WV_LOGE("recorder: pcm %u has no capture source", id);
        suspendCmd(cmd);
    } else {
        MediaBuffer* buffer = nullptr;
        if (job->recorder->read(&buffer) != 0 || buffer == nullptr) {
            WV_LOGE("Recording read error!");
        } else {
            auto* data = reinterpret_cast<int16_t*>(static_cast<uint8_t*>(buffer->data()) +
                                                    buffer->range_offset());
            const uint32_t frameSize = item->frameSize();
            uint32_t frames = uint32_t(buffer->range_length()) / frameSize;
            const bool last = cutAtLimit(item, &frames);
            const uint32_t bytes = frames * frameSize;
            fadeIn(data, frames, frameSize / 2, &job->fadeCount, job->fadeLength);
            item->frames.fetch_add(frames);
            item->totalFrames.fetch_add(frames);
            reportLostAudio(id, job, buffer, false);
            if (frames > 0) {
                sendWaveformPoints(id, job, data, bytes);
                encodeBuffer(cmd, item, job, data, frames, bytes);
            }
            buffer->release();
            // Ended here rather than by the client's stop, which comes
            // whenever the client gets round to it.
            if (last) cancelCmd(cmd);
        }
    }
    sendCmd(cmd, kRecordUrgency);
}

bool RecorderThread::cutAtLimit(const SPcmInfo* item, uint32_t* frames) {
    const uint32_t limit = item->recordLimitFrames.load();
    if (limit == 0) return false;
    const uint32_t have = item->frames.load();
    const uint32_t room = limit > have ? limit - have : 0;
    if (*frames < room) return false;
    *frames = room;
    return true;
}

void RecorderThread::sendWaveformPoints(pcm_id_t id, RecordJob* job, const int16_t* data,
                                        uint32_t bytes) {
    uint8_t point = 0;
    while (bytes > 0) {
        if (addWaveformSamples(job->waveform.get(), &data, &bytes, &point) == 0) break;
        notify(EVT_RECORD_LEVEL, id, point, job->pacer->nextDelayMs());
    }
}

void RecorderThread::reportLostAudio(pcm_id_t id, RecordJob* job, const MediaBuffer* buffer,
                                     bool flush) {
    if (!job->lostAudio) return;
    int32_t filled = 0;
    if (buffer != nullptr && buffer->meta_data()->findInt32(kKeyFilledFrames, &filled) &&
        filled > 0) {
        job->lostAudio->add(uint32_t(filled));
    }
    const int32_t ms = flush ? job->lostAudio->flush() : job->lostAudio->due(monotonicUs());
    if (ms > 0) notify(EVT_RECORD_LOST_AUDIO, id, ms);
}

void RecorderThread::encodeBuffer(WVThreadCmd& cmd, SPcmInfo* item, RecordJob* job, int16_t* data,
                                  uint32_t frames, uint32_t bytes) {
    const pcm_id_t id = cmd.pcmId;
    if (job->pitchShifter) {
        // The shifter hands back at most `frames` frames per call, so its
        // output fits the captured buffer; a full or failed file shows in
        // the next checkStatus().
        job->pitchShifter->putSamples(data, frames);
        for (;;) {
            const uint32_t n = job->pitchShifter->receiveSamples(data, frames);
            if (n == 0) break;
            job->encoder->encoding(data, int(n * item->frameSize()));
        }
        refreshHeaderEvery(cmd, job, frames);
        return;
    }
    if (job->robotEffect) job->robotEffect->process(data, frames);
    int result = job->encoder->encoding(data, int(bytes));
    if (result == FileWriter::WRITE_OK) result = refreshHeaderEvery(cmd, job, frames);
    if (result == FileWriter::WRITE_ERROR) {
        WV_LOGE("Recording error!");
        notify(EVT_RECORD_FAILED, id, 1);
        cancelCmd(cmd);
    } else if (result == FileWriter::WRITE_STORAGE_FULL) {
        WV_LOGW("Pause recording due to low space");
        notify(EVT_RECORD_NO_SPACE, id, -1);
        suspendCmd(cmd);
    }
}

int RecorderThread::refreshHeaderEvery(WVThreadCmd& cmd, RecordJob* job, uint32_t frames) {
    job->sinceHeader += frames;
    if (job->wave == nullptr || job->sinceHeader < job->headerPeriod) return FileWriter::WRITE_OK;
    job->sinceHeader = 0;
    const int status = job->wave->refreshHeader();
    // Reported like a failed write of the samples; the pitch-shifted path
    // has nobody else to report it.
    if (status != FileWriter::WRITE_OK && job->pitchShifter) {
        if (status == FileWriter::WRITE_ERROR) {
            notify(EVT_RECORD_FAILED, cmd.pcmId, 1);
            cancelCmd(cmd);
        } else {
            notify(EVT_RECORD_NO_SPACE, cmd.pcmId, -1);
            suspendCmd(cmd);
        }
    }
    return status;
}

int32_t RecorderThread::onCmdSuspend(WVThreadCmd& cmd) {
    if (cmd.code != kCmdRecord) return -1;
    if (itemOf(cmd, "suspend") == nullptr) return -1;
    auto* job = static_cast<RecordJob*>(cmd.data);
    job->fadeCount = 0;
    job->dropRecorder();
    reportLostAudio(cmd.pcmId, job, nullptr, true);
    // A paused recording is a playable file up to the pause.
    if (job->wave != nullptr) {
        job->sinceHeader = 0;
        job->wave->refreshHeader();
    }
    notify(EVT_RECORD_PAUSED, cmd.pcmId, -1);
    return 0;
}

void RecorderThread::onCmdResume(WVThreadCmd& cmd) {
    if (cmd.code != kCmdRecord) return;
    SPcmInfo* item = itemOf(cmd, "resume");
    if (item == nullptr) return;
    auto* job = static_cast<RecordJob*>(cmd.data);
    job->resumeRetries = 1;
    for (;;) {
        job->recorder.reset(new AudioRecorder(job->audioSource,
                                              uint32_t(item->sampleRate.load()),
                                              uint32_t(item->channelCount.load())));
        if (job->recorder->initCheck() != 0) {
            WV_LOGE("init recorder failed in resume.");
        } else if (job->recorder->start(nullptr) == 0) {
            sendCmd(cmd, kRecordUrgency);
            notify(EVT_RECORD_RESUMED, cmd.pcmId, -1);
            return;
        } else {
            WV_LOGE("start recorder failed in resume.");
        }
        job->recorder.reset();
        if (job->resumeRetries <= 0) break;
        --job->resumeRetries;
        WV_LOGW("wait some time to retry");
        sleepUs(kResumeRetryDelayUs);
    }
    // Parked again through onCmdSuspend, which sends a further 66.
    sendCmd(cmd, kRecordUrgency);
    suspendCmd(cmd);
    notify(EVT_RECORD_FAILED, cmd.pcmId, 5);
    notify(EVT_RECORD_PAUSED, cmd.pcmId, -1);
}

void RecorderThread::onCmdCancel(WVThreadCmd& cmd) {
    const pcm_id_t id = cmd.pcmId;
    if (cmd.code == kCmdStart) {
        // Stopped before it started: nothing was opened.
        if (!isRegistered(id)) {
            WV_LOGE("recorder: pcm %u of command %u (cancel) doesn't exist; dropped", id, cmd.code);
            return;
        }
        mContext->releasePcm(id, REF_RECORDER, false);
        notify(EVT_RECORD_ENDED, id, 0);
        return;
    }
    if (cmd.code != kCmdRecord) return;
    SPcmInfo* item = itemOf(cmd, "cancel");
    if (item == nullptr) return;
    reportLostAudio(id, static_cast<RecordJob*>(cmd.data), nullptr, true);
    const int32_t result = finishJob(static_cast<RecordJob*>(cmd.data));
    item->writingPath.set("");
    mContext->releasePcm(id, REF_RECORDER, false);
    notify(EVT_RECORD_ENDED, id, result);
}

int32_t RecorderThread::finishJob(RecordJob* job) {
    const uint32_t frameSize = job->frameSize;
    int32_t result = 0;
    const int held = job->encoder->checkStatus();
    if (held == FileWriter::WRITE_ERROR) {
        WV_LOGE("Recording error in stop!");
        result = 1;
    } else {
        // What the storage would not take when the recording paused for it
        // (event 64) stays out: the file ends where the storage did.
        if (held == FileWriter::WRITE_STORAGE_FULL) job->encoder->dropHeld();
        if (job->pitchShifter) {
            int16_t tmp[kDrainBytes / 2];
            job->pitchShifter->flush();
            for (;;) {
                const uint32_t n = job->pitchShifter->receiveSamples(tmp, kDrainBytes / frameSize);
                if (n == 0) break;
                job->encoder->encoding(tmp, int(n * frameSize));
            }
        }
        int r = job->encoder->flushEncoding();
        // A waveform file that could not be finished is left out; the
        // recording does not depend on it.
        if (r == 0 && finishWaveformFile(job->waveform.get()) != 0) {
            WV_LOGW("recording waveform file not kept");
        }
        if (r == 0) r = job->encoder->finishOutput();
        if (r == FileWriter::WRITE_ERROR) {
            WV_LOGE("Recording error in finishEncoding!");
            result = 1;
        } else if (r == FileWriter::WRITE_STORAGE_FULL) {
            WV_LOGE("Recording no space in finishEncoding!");
            result = 3;
        }
    }
    delete job;
    return result;
}

void RecorderThread::onCmdDiscard(WVThreadCmd& cmd) {
    if (cmd.code == kCmdStart) {
        mContext->releasePcm(cmd.pcmId, REF_RECORDER, false);
        return;
    }
    if (cmd.code != kCmdRecord || cmd.data == nullptr) return;
    JobThread::onCmdDiscard(cmd);
    if (SPcmInfo* item = mContext->getPcmInfo(cmd.pcmId, REF_NONE)) item->writingPath.set("");
    mContext->releasePcm(cmd.pcmId, REF_RECORDER, false);
}

}  // namespace wv
