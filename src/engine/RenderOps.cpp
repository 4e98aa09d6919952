// The engine's rendering requests: output settings of clip lists, and
// posting renders to the encoder worker.
#define WV_LOG_TAG "WavoryxPriv"
#include <cerrno>
#include <string>

#include "base/Log.h"
#include "codec/AudioEncoder.h"
#include "engine/WavoryxPriv.h"
#include "platform/resample/AudioResampler.h"
#include "render/EncoderThread.h"

using namespace wv;

// Items hold the client's encode_type as it came; the workers hand it on to
// the encoder factory as an EncodeFormat, value for value.
static_assert(static_cast<int32_t>(EncodeFormat::Wav) == ENCODE_WAV &&
                  static_cast<int32_t>(EncodeFormat::Mp3) == ENCODE_MP3 &&
                  static_cast<int32_t>(EncodeFormat::Flac) == ENCODE_FLAC &&
                  static_cast<int32_t>(EncodeFormat::Opus) == ENCODE_OPUS &&
                  static_cast<int32_t>(EncodeFormat::Aac) == ENCODE_AAC &&
                  static_cast<int32_t>(EncodeFormat::Vorbis) == ENCODE_VORBIS,
              "the encoder's formats have the values of encode_type");

int32_t WavoryxPriv::setOutputPara(uint32_t listId, const char* path, int32_t type) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetOutputPara, &result);
    if (list == nullptr) return result;
    const std::string output = path != nullptr ? path : "";
    list->changeRenderSettings([&output, type](RenderSettings& s) {
        s.path = output;
        s.type = type;
    });
    // The list's file as players and waveform queries find it until a
    // render names it.
    list->path.set(output);
    return 0;
}

int32_t WavoryxPriv::setEncodePara(uint32_t listId, int32_t sampleRate, int32_t bitRate,
                                   int32_t channelCount, int32_t forceStereo) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetEncodePara, &result);
    if (list == nullptr) return result;
    const int32_t channels = forceStereo != 0 ? 2 : channelCount;
    list->changeRenderSettings([=](RenderSettings& s) {
        s.sampleRate = sampleRate;
        s.channels = channels;
        s.bitRate = bitRate;
    });
    // The list's format as the queries report it until a render settles it.
    list->sampleRate = sampleRate;
    list->channelCount = channels;
    return 0;
}

int32_t WavoryxPriv::setEncodeOptions(uint32_t id, int32_t quality, int32_t vbr,
                                      int32_t jointStereo) {
    if (quality < 0 || quality > 9 || vbr < 0 || vbr > 9 || jointStereo < 0 || jointStereo > 2) {
        WV_LOGE("setEncodeOptions: quality %d, vbr %d, joint stereo %d out of range", quality, vbr,
                jointStereo);
        return -4;
    }
    if (id == 0) {
        std::lock_guard<std::mutex> guard(mRecordLock);
        mRecordQuality = quality;
        mRecordVbr = vbr;
        mRecordJointStereo = jointStereo;
        return 0;
    }
    int32_t result;
    ItemHold hold(this, id);
    SPcmInfo* list = holdItemWithStatus(hold, id, CLIP_LIST, Report::kSetEncodeOptions, &result);
    if (list == nullptr) return result;
    list->changeRenderSettings([=](RenderSettings& s) {
        s.quality = quality;
        s.vbr = vbr;
        s.jointStereo = jointStereo;
    });
    return 0;
}

int32_t WavoryxPriv::setResampleQuality(uint32_t listId, int32_t quality) {
    static const AudioResampler::src_quality kKinds[] = {
        AudioResampler::SRC_DEFAULT, AudioResampler::SRC_HQ_HIGH, AudioResampler::SRC_HQ_VERY_HIGH};
    if (quality < 0 || quality > 2) {
        WV_LOGE("setResampleQuality: quality %d out of range", quality);
        return -4;
    }
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list =
        holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetResampleQuality, &result);
    if (list == nullptr) return result;
    const AudioResampler::src_quality kind = kKinds[quality];
    list->changeRenderSettings([kind](RenderSettings& s) { s.resampleQuality = kind; });
    return 0;
}

int32_t WavoryxPriv::setOutputMode(uint32_t listId, int32_t flags) {
    constexpr int32_t kKnown =
        WV_OUTPUT_WHOLE | WV_OUTPUT_NO_REPLACE | WV_OUTPUT_NO_WAVEFORM | WV_OUTPUT_HOLD;
    if ((flags & ~kKnown) != 0) {
        WV_LOGE("setOutputMode: flags %d out of range", flags);
        return -4;
    }
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetOutputMode, &result);
    if (list == nullptr) return result;
    list->changeRenderSettings([flags](RenderSettings& s) { s.outputMode = flags; });
    return 0;
}

int32_t WavoryxPriv::placeOutput(uint32_t listId, int32_t keep) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kPlaceOutput, &result);
    if (list == nullptr) return result;
    std::unique_ptr<OutputFile> output = list->takeHeldOutput();
    if (!output) return -3;
    if (keep == 0) return 0;  // discarded with `output`
    const int committed = output->commit();
    if (committed == 0) return 0;
    return committed == -EEXIST ? -17 : -11;
}

int32_t WavoryxPriv::setEncodeThreads(uint32_t listId, int32_t threads) {
    if (threads < 0 || threads > kMaxEncodeThreads) {
        WV_LOGE("setEncodeThreads: %d threads out of range", threads);
        return -4;
    }
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetEncodeThreads, &result);
    if (list == nullptr) return result;
    list->changeRenderSettings([threads](RenderSettings& s) { s.encodeThreads = threads; });
    return 0;
}

int32_t WavoryxPriv::setListLoudness(uint32_t listId, int32_t lufsTenths, int32_t truePeakTenths) {
    const bool off = lufsTenths == 0;
    if (!off && (lufsTenths < kMinLoudnessTenths || lufsTenths > kMaxLoudnessTenths ||
                 truePeakTenths < kMinTruePeakTenths || truePeakTenths > kMaxTruePeakTenths)) {
        WV_LOGE("setListLoudness: %d LUFS, %d dBTP (tenths) out of range", lufsTenths,
                truePeakTenths);
        return -4;
    }
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListLoudness, &result);
    if (list == nullptr) return result;
    list->changeRenderSettings([=](RenderSettings& s) {
        s.loudnessTarget = off ? 0 : lufsTenths;
        if (!off) s.truePeakCeiling = truePeakTenths;
    });
    return 0;
}

int32_t WavoryxPriv::getListLoudnessResult(uint32_t listId, int32_t* reachedTenths) {
    if (reachedTenths == nullptr) return -4;
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list =
        holdItemWithStatus(hold, listId, CLIP_LIST, Report::kGetListLoudnessResult, &result);
    if (list == nullptr) return result;
    const LoudnessResult outcome = LoudnessResult::unpack(list->loudnessResult.load());
    if (outcome.reason < 0) return -3;
    *reachedTenths = outcome.reachedTenths;
    return outcome.reason;
}

int32_t WavoryxPriv::process(uint32_t listId) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kProcess, &result);
    if (list == nullptr) return result;
    // Taken while held: a removePcm racing this call cannot free the list
    // between the check and the reference, so the queued render always
    // finds its list and ends with its one event.
    mInfoList.get(listId, REF_ENCODER);
    mCallbackThread->jobEnds().begin(listId, JobEnds::kEncode);
    // The render goes on with the settings as they are now, whatever the
    // client changes before or while it runs.
    mEncoder->queueRender(listId, list->renderSettings());
    return 0;
}

int32_t WavoryxPriv::cancelProcess(uint32_t listId) {
    ItemHold hold(this, listId);
    if (holdItem(hold, listId, Report::kCancelProcess) == nullptr) return -1;
    mEncoder->cancelCmd(
        WVThreadCmd(EncoderThread::kCmdStart, listId, static_cast<int32_t>(WVCMD_ANY)));
    mEncoder->cancelCmd(
        WVThreadCmd(EncoderThread::kCmdContinue, listId, static_cast<int32_t>(WVCMD_ANY)));
    mEncoder->cancelCmd(
        WVThreadCmd(EncoderThread::kCmdMeasure, listId, static_cast<int32_t>(WVCMD_ANY)));
    mEncoder->cancelCmd(
        WVThreadCmd(EncoderThread::kCmdSilence, listId, static_cast<int32_t>(WVCMD_ANY)));
    return 0;
}
