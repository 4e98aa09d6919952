#define WV_LOG_TAG "WavoryxPriv"
#include "engine/WavoryxPriv.h"

#include <algorithm>

#include "base/CheckSites.h"
#include "base/Log.h"
#include "codec/AudioEncoder.h"
#include "load/DecoderThread.h"
#include "platform/MediaService.h"
#include "record/RecorderThread.h"
#include "render/EncoderThread.h"

using namespace wv;

WavoryxPriv::WavoryxPriv()
    : mCallbackThread(new ClientCallbackThread(this)), mContext(&mInfoList, mCallbackThread.get()) {
    mDecoder.reset(new DecoderThread(&mContext));
    mDecoder->launch();
    mEncoder.reset(new EncoderThread(&mContext));
    mEncoder->launch();
    // Renders of sources still loading go on as the decoder writes.
    mContext.setDataWaiter(mEncoder.get());
    mRecorder.reset(new RecorderThread(&mContext));
    mRecorder->launch();
    const status_t connected = MediaService::connect();
    WV_CHECK_EQ_AT(Check::kEngineConnect, "mClient.connect(),(status_t)OK", connected, OK);
}

WavoryxPriv::~WavoryxPriv() {
    releaseReads(mReadPositions.drop(0));
    mDecoder->exit();
    mContext.setDataWaiter(nullptr);
    mEncoder->exit();
    mRecorder->exit();
    // Jobs whose next step will never run still own their contexts.
    mDecoder->discardAll();
    mEncoder->discardAll();
    mRecorder->discardAll();
    // Only the current item needs stopping; with none, there is nothing to
    // report either.
    if (mPlayingId.load() != 0) playStop(0);
    // Players post the end of playback to the callback worker from their
    // output threads, and its loop stops players: end the loop, then the
    // players, before the worker goes.
    mCallbackThread->exit();
    for (pcm_id_t id = 1; id <= mInfoList.lastId(); ++id) {
        if (SPcmInfo* item = mInfoList.get(id, REF_NONE)) item->player.reset();
    }
    mDecoder.reset();
    mCallbackThread.reset();
    mEncoder.reset();
    mRecorder.reset();
    MediaService::disconnect();
}

int32_t WavoryxPriv::startThreadLoop(int32_t inCallerThread) {
    if (inCallerThread != 0) {
        WVCmdThread::threadLoop(mCallbackThread.get());
    } else {
        mCallbackThread->launch();
    }
    return 0;
}

int32_t WavoryxPriv::stopThreadLoop() {
    mCallbackThread->exit();
    return 0;
}

int32_t WavoryxPriv::setCallback(ClientCallback callback, void* user) {
    mCallbackThread->setCallback(callback, user);
    return 0;
}

int32_t WavoryxPriv::setWorkingDir(const char* dir) {
    mContext.setWorkingDir(dir != nullptr ? dir : "");
    return 0;
}

int32_t WavoryxPriv::setThreadPriority(thread_priority_t priority) {
    const thread_priority_t previous = mContext.exchangeThreadPriority(priority);
    WV_LOGW("%s: %d to %d", reportSite(Report::kSetThreadPriority).signature, previous, priority);
    return 0;
}

int32_t WavoryxPriv::dump() {
    mDecoder->dump();
    mEncoder->dump();
    mRecorder->dump();
    mCallbackThread->dump();
    mInfoList.dump();
    return 0;
}

int32_t WavoryxPriv::removePcm(pcm_id_t id) {
    // A reader kept for readPcm would hold the item's file open and alive.
    releaseReads(mReadPositions.drop(id));
    return static_cast<int32_t>(mInfoList.release(id, REF_CLIENT, false));
}

int32_t WavoryxPriv::waitForJob(pcm_id_t id, int32_t kinds, int32_t timeoutMs, int32_t* value) {
    if (kinds < WV_JOB_LOAD || kinds > WV_JOB_ANY) return WV_ERR_OUT_OF_RANGE;
    const int32_t ended = mCallbackThread->jobEnds().wait(id, kinds, timeoutMs, value);
    if (ended != JobEnds::kNoJob) return ended;
    ItemHold hold(this, id);
    return hold.get() != nullptr ? WV_ERR_WRONG_ITEM : WV_ERR_NO_ITEM;
}

void WavoryxPriv::reportMissing(int line, const char* signature, uint32_t id) {
    reportWhere(line, signature);
    WV_LOGE("error: pcm %d doesn't exist", static_cast<int>(id));
}

void WavoryxPriv::reportWhere(int line, const char* signature) {
    // Operations added later have no fixed line of their own.
    if (line > 0) {
        WV_LOGE("line %d in %s:", line, signature);
    } else {
        WV_LOGE("in %s:", signature);
    }
}

void WavoryxPriv::reportStatus(int line, const char* signature, const SPcmInfo* item,
                               pcm_status_t wanted) {
    reportWhere(line, signature);
    WV_LOGE("error: pcm %d has status %s but not %s", static_cast<int>(item->id),
            SPcmInfo::statusName(item->status.load()), SPcmInfo::statusName(wanted));
}

SPcmInfo* WavoryxPriv::holdItemWithStatus(const ItemHold& hold, uint32_t id, pcm_status_t wanted,
                                          Report report, int32_t* result) {
    SPcmInfo* item = holdItem(hold, id, report);
    if (item == nullptr) {
        *result = -1;
        return nullptr;
    }
    if (item->status.load() != wanted) {
        const ReportSite& site = reportSite(report);
        reportStatus(site.statusLine, site.signature, item, wanted);
        *result = -2;
        return nullptr;
    }
    *result = 0;
    return item;
}

int32_t WavoryxPriv::getPcmSampleRate(uint32_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetPcmSampleRate);
    if (item == nullptr) return -1;
    // Once an encoder has started, what its file holds.
    const int32_t output = item->outputRate.load();
    return output > 0 ? output : item->sampleRate.load();
}

int32_t WavoryxPriv::getPcmChannelCount(uint32_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetPcmChannelCount);
    if (item == nullptr) return -1;
    const int32_t output = item->outputChannels.load();
    return output > 0 ? output : item->channelCount.load();
}

int32_t WavoryxPriv::getPcmFrameLength(uint32_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetPcmFrameLength);
    if (item == nullptr) return -1;
    const uint64_t frames = item->frames.load();
    // Counted at the file's rate when its encoder converts, so that frames
    // over the reported rate still give the duration.
    const uint64_t output = static_cast<uint64_t>(std::max(0, item->outputRate.load()));
    const uint64_t rate = static_cast<uint64_t>(std::max(0, item->sampleRate.load()));
    if (output == 0 || rate == 0 || output == rate) return static_cast<int32_t>(frames);
    return static_cast<int32_t>((frames * output + rate / 2) / rate);
}

int32_t WavoryxPriv::getOutputBitRate(uint32_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetOutputBitRate);
    if (item == nullptr) return -1;
    if (item->outputRate.load() > 0) return item->outputBitRate.load();
    // Not started yet: what the encoder will be asked for.
    const RenderSettings settings = item->renderSettings();
    const EncodeFormat format =
        isEncodeFormat(settings.type) ? EncodeFormat(settings.type) : EncodeFormat::Wav;
    if (!hasBitRate(format) || (format == EncodeFormat::Mp3 && settings.vbr > 0)) return 0;
    return settings.bitRate > 0 ? settings.bitRate : defaultBitRate(format);
}

int32_t WavoryxPriv::getPcmDuration(pcm_id_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetPcmDuration);
    if (item == nullptr) return -1;
    const int64_t rate = item->sampleRate.load();
    const int64_t total = item->totalFrames.load();
    if (rate == 0 || total == 0) return -3;
    return static_cast<int32_t>(total * 1000 / rate);
}
