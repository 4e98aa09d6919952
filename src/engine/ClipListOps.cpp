// Clip-list edits of the engine: creating lists, appending clips, effects.
#define WV_LOG_TAG "WavoryxPriv"
#include "base/Log.h"
#include "engine/WavoryxPriv.h"
#include "items/ClipEffects.h"

using namespace wv;

int32_t WavoryxPriv::newClipList() {
    SPcmInfo* item = new SPcmInfo(CLIP_LIST);
    item->refs[REF_CLIENT] = 1;
    return static_cast<int32_t>(mInfoList.add(item));
}

int32_t WavoryxPriv::addClip(uint32_t listId, uint32_t pcmId, uint32_t startFrame,
                             uint32_t endFrame) {
    return addClipTo(listId, pcmId, startFrame, endFrame, false, Report::kAddClip);
}

int32_t WavoryxPriv::addClipMs(uint32_t listId, uint32_t pcmId, duration_t startMs,
                               duration_t endMs) {
    return addClipTo(listId, pcmId, startMs, endMs, true, Report::kAddClipMs);
}

int32_t WavoryxPriv::addClipTo(uint32_t listId, uint32_t pcmId, uint32_t start, uint32_t end,
                               bool inMs, Report report) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, report, &result);
    if (list == nullptr) return result;
    SPcmInfo* source = mInfoList.get(pcmId, REF_LIST);
    if (source == nullptr) {
        const ReportSite& site = reportSite(report);
        reportMissing(site.sourceMissingLine, site.signature, pcmId);
        return -1;
    }
    // A scan keeps no audio to read.
    if (source->scan) {
        mInfoList.release(pcmId, REF_LIST, false);
        return -2;
    }
    // A list inside itself would make every walk of it endless. The check
    // and the append are one step for the whole engine: two lists added to
    // each other at once would each pass the check alone.
    std::lock_guard<std::mutex> guard(mClipLock);
    if (source == list || (source->clipList && source->clipList->reaches(list))) {
        WV_LOGE("error: pcm %d cannot be a clip of list %d: the list would contain itself",
                static_cast<int>(pcmId), static_cast<int>(listId));
        mInfoList.release(pcmId, REF_LIST, false);
        return -4;
    }
    PcmClip clip;
    clip.source = source;
    clip.start = start;
    clip.end = end;
    clip.inMs = inMs;
    return static_cast<int32_t>(list->clipList->add(clip));
}

static_assert(int(WV_FADE_LINEAR) == int(kFadeLinear) &&
                  int(WV_FADE_EQUAL_POWER) == int(kFadeEqualPower) &&
                  int(WV_FADE_LOG) == int(kFadeLog),
              "the public shapes are the reader's");

namespace {

bool gainInRange(int32_t millibels) { return millibels >= kMinGainMb && millibels <= kMaxGainMb; }
bool shapeInRange(int32_t shape) { return shape >= 0 && shape < kFadeShapeCount; }

}  // namespace

int32_t WavoryxPriv::setClipGain(uint32_t listId, uint32_t clip, int32_t millibels) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetClipGain, &result);
    if (list == nullptr) return result;
    if (!gainInRange(millibels) || !list->clipList->setClipGain(clip, millibels)) {
        WV_LOGE("setClipGain: clip %u of list %u, gain %d mB out of range", clip, listId,
                millibels);
        return -4;
    }
    return 0;
}

int32_t WavoryxPriv::setClipFade(uint32_t listId, uint32_t clip, uint32_t inMs, uint32_t outMs,
                                 int32_t shape) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetClipFade, &result);
    if (list == nullptr) return result;
    if (!shapeInRange(shape) || !list->clipList->setClipFade(clip, inMs, outMs, shape)) {
        WV_LOGE("setClipFade: clip %u of list %u, shape %d out of range", clip, listId, shape);
        return -4;
    }
    return 0;
}

int32_t WavoryxPriv::setListCrossfade(uint32_t listId, uint32_t ms, int32_t shape) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list =
        holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListCrossfade, &result);
    if (list == nullptr) return result;
    if (!shapeInRange(shape)) {
        WV_LOGE("setListCrossfade: shape %d out of range", shape);
        return -4;
    }
    list->clipList->setCrossfade(ms, shape);
    return 0;
}

int32_t WavoryxPriv::setListGain(uint32_t listId, int32_t millibels) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListGain, &result);
    if (list == nullptr) return result;
    if (!gainInRange(millibels)) {
        WV_LOGE("setListGain: gain %d mB out of range", millibels);
        return -4;
    }
    list->clipList->setListGain(millibels);
    return 0;
}

int32_t WavoryxPriv::setListDenoise(uint32_t listId, int32_t amountDb) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListDenoise, &result);
    if (list == nullptr) return result;
    if (amountDb < 0 || amountDb > kMaxDenoiseDb) {
        WV_LOGE("setListDenoise: %d dB out of range", amountDb);
        return -4;
    }
    list->clipList->setDenoise(amountDb);
    return 0;
}

int32_t WavoryxPriv::setListTempo(uint32_t listId, int32_t percent) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListTempo, &result);
    if (list == nullptr) return result;
    if (percent < kMinTempoPercent || percent > kMaxTempoPercent) {
        WV_LOGE("setListTempo: %d %% out of range", percent);
        return -4;
    }
    list->clipList->setTempo(percent);
    return 0;
}
