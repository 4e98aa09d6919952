// The engine's record controls: they validate, register the recording's
// item and post to the recorder worker; all work happens there. At most one
// recording is current (JobContext::currentRecording); only recordStop ends that, also
// after the recording itself failed. The controls run one at a time
// (mRecordLock): two starts must not both see no current recording, and a
// stop must not clear a recording that a start made after it looked.
#define WV_LOG_TAG "WavoryxPriv"
#include <algorithm>
#include <cstdio>
#include <string>

#include "base/Log.h"
#include "base/Properties.h"
#include "codec/AudioEncoder.h"
#include "dsp/VoicePitchShifter.h"
#include "engine/WavoryxPriv.h"
#include "record/RecorderThread.h"

using namespace wv;

namespace {

constexpr int32_t kDefaultSampleRate = 8000;

enum : int32_t { EFFECT_MALE = 1, EFFECT_FEMALE = 2, EFFECT_FEMALE_HIGH = 3, EFFECT_ROBOT = 4 };

// A voice effect's shift in semitones, as far either way as the shifter goes.
int32_t pitchProperty(const char* key, int32_t defaultValue) {
    return property_get_int(key, defaultValue, -VoicePitchShifter::kMostSemitones,
                            VoicePitchShifter::kMostSemitones);
}

// The control pattern of a recording's buffer commands.
WVThreadCmd recordPattern(pcm_id_t id) {
    return WVThreadCmd(RecorderThread::kCmdRecord, id, static_cast<int32_t>(WVCMD_ANY));
}

}  // namespace

int32_t WavoryxPriv::recordStart(const char* path, int32_t type, int32_t sampleRate,
                                 int32_t channelCount, int32_t bitRate, int32_t audioSource,
                                 int32_t effect) {
    std::lock_guard<std::mutex> guard(mRecordLock);
    if (mContext.currentRecording() != 0) return -5;
    if (!isEncodeFormat(type)) return -4;
    if (channelCount < 1) channelCount = 1;
    // The capture source and the voice effects serve mono and stereo.
    if (channelCount > 2) {
        WV_LOGE("cannot record %d channels", channelCount);
        return -4;
    }
    RenderSettings settings;
    settings.sampleRate = sampleRate < 1 ? kDefaultSampleRate : sampleRate;
    settings.channels = channelCount;
    settings.type = type;
    settings.bitRate = bitRate < 1 ? defaultBitRate(static_cast<EncodeFormat>(type)) : bitRate;
    settings.quality = mRecordQuality;
    settings.vbr = mRecordVbr;
    settings.jointStereo = mRecordJointStereo;
    settings.audioSource = audioSource;
    switch (effect) {
        case EFFECT_MALE:
            settings.pitch = -float(pitchProperty("persist.wavoryx.malepitch", 4));
            break;
        case EFFECT_FEMALE:
            settings.pitch = float(pitchProperty("persist.wavoryx.femalepitch", 4));
            break;
        case EFFECT_FEMALE_HIGH:
            settings.pitch = float(pitchProperty("persist.wavoryx.femalepitch", 9));
            break;
        case EFFECT_ROBOT:
            settings.robot = 1;
            break;
        default:
            break;
    }
    SPcmInfo* item = new SPcmInfo(RECORDING);
    item->refs[REF_CLIENT] = 1;
    item->refs[REF_RECORDER] = 1;
    item->sampleRate = settings.sampleRate;
    item->channelCount = settings.channels;
    // Fixed before the item is registered: nothing can change a
    // recording's settings once it exists.
    item->changeRenderSettings([&settings](RenderSettings& s) { s = settings; });
    const bool named = path != nullptr && *path != '\0';
    if (named) item->path.set(path);
    const pcm_id_t id = mInfoList.add(item);
    if (!named) {
        item->path.set(workingDir() + std::to_string(id) +
                       formatSuffix(static_cast<EncodeFormat>(type)));
    }
    mContext.setCurrentRecording(id);
    mRecorder->sendCmd(WVThreadCmd(RecorderThread::kCmdStart, id, -1),
                       RecorderThread::kStartUrgency);
    return static_cast<int32_t>(id);
}

int32_t WavoryxPriv::recordPause() {
    std::lock_guard<std::mutex> guard(mRecordLock);
    const pcm_id_t id = mContext.currentRecording();
    if (id == 0) return -5;
    mRecorder->suspendCmd(recordPattern(id));
    return 0;
}

int32_t WavoryxPriv::recordResume() {
    std::lock_guard<std::mutex> guard(mRecordLock);
    const pcm_id_t id = mContext.currentRecording();
    if (id == 0) return -5;
    mRecorder->resumeCmd(recordPattern(id));
    return 0;
}

int32_t WavoryxPriv::recordStop() {
    std::lock_guard<std::mutex> guard(mRecordLock);
    const pcm_id_t id = mContext.currentRecording();
    if (id == 0) return -5;
    // The first request ends a recording whose set-up has not run yet, the
    // second one in progress or paused.
    mRecorder->cancelCmd(
        WVThreadCmd(RecorderThread::kCmdStart, id, static_cast<int32_t>(WVCMD_ANY)));
    mRecorder->cancelCmd(recordPattern(id));
    mContext.recordingEnded(id);
    return 0;
}

int32_t WavoryxPriv::setRecordDuration(int32_t ms) {
    if (ms < 0) return -4;
    std::lock_guard<std::mutex> guard(mRecordLock);
    const pcm_id_t id = mContext.currentRecording();
    if (id == 0) return -5;
    ItemHold hold(this, id);
    SPcmInfo* item = hold.get();
    if (item == nullptr) return -5;
    const uint64_t rate = static_cast<uint64_t>(std::max(0, item->sampleRate.load()));
    const uint64_t frames = (static_cast<uint64_t>(ms) * rate + 500) / 1000;
    // A length too short to hold one frame still ends the recording.
    item->recordLimitFrames = ms == 0 ? 0u : static_cast<uint32_t>(std::max<uint64_t>(frames, 1));
    return 0;
}
