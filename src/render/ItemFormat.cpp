#define WV_LOG_TAG "EncoderThread"
#include "render/ItemFormat.h"

#include "base/Log.h"
#include "render/EncoderThread.h"

namespace wv {

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

uint64_t expectedFrames(SPcmInfo* item, uint32_t rate) {
    const int32_t status = item->status.load();
    if (status == CLIP_LIST) {
        return uint64_t(item->frame2duration(0, 0xFFFFFFFF)) * rate / 1000;
    }
    return status == PCM_READY ? item->frames.load() : item->totalFrames.load();
}

bool sourceFailed(SPcmInfo* item) {
    if (item->status.load() == CLIP_LIST) return item->clipList->hasFailedSource();
    return item->loadFailed.load();
}

bool readyToRead(SPcmInfo* item) {
    const int32_t status = item->status.load();
    return status == CLIP_LIST ? item->clipList->isPcmReady() != 0
                               : status == DECODING || status == PCM_READY;
}

bool readableNow(SPcmInfo* item, const char* done, const char* job, uint32_t* rate,
                 uint32_t* channels, JobStep* step) {
    const int id = static_cast<int>(item->id);
    if (sourceFailed(item)) {
        WV_LOGE("item %d has a source whose load failed: it cannot be %s", id, done);
        *step = JobStep::end(EVT_RENDER_FAILED, -1);
        return false;
    }
    if (readyToRead(item) && measuredFormat(item, rate, channels)) return true;
    if (item->status.load() == RECORDING) {
        *step = JobStep::end(EVT_RENDER_FAILED, -1);
    } else {
        WV_LOGD("item %d has no format yet: %s waits", id, job);
        *step = JobStep::wait(EncoderThread::kRetryDelayMs);
    }
    return false;
}

}  // namespace wv
