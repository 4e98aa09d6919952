// Clip-list edits of the engine: creating lists and appending clips.
#define WV_LOG_TAG "WavoryxPriv"
#include "base/Log.h"
#include "engine/WavoryxPriv.h"

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
