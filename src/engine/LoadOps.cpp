// The engine's loading requests: they register items and post to the
// decoder worker.
#define WV_LOG_TAG "WavoryxPriv"
#include "engine/WavoryxPriv.h"
#include "load/DecoderThread.h"

using namespace wv;

int32_t WavoryxPriv::loadFile(const char* path) {
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set(path != nullptr ? path : "");
    item->refs[REF_CLIENT] = 1;
    item->refs[REF_DECODER] = 1;
    const pcm_id_t id = mInfoList.add(item);
    mDecoder->sendCmd(WVThreadCmd(DecoderThread::kCmdStart, id, -1), 7);
    return static_cast<int32_t>(id);
}

int32_t WavoryxPriv::loadFileRange(const char* path, uint32_t startMs, uint32_t endMs) {
    if (endMs <= startMs) return -4;
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set(path != nullptr ? path : "");
    item->ranged = true;
    item->rangeStartMs = startMs;
    item->rangeEndMs = endMs;
    item->refs[REF_CLIENT] = 1;
    item->refs[REF_DECODER] = 1;
    const pcm_id_t id = mInfoList.add(item);
    mDecoder->sendCmd(WVThreadCmd(DecoderThread::kCmdStart, id, -1), 7);
    return static_cast<int32_t>(id);
}

int32_t WavoryxPriv::cancelLoadFile(pcm_id_t id) {
    ItemHold hold(this, id);
    if (holdItem(hold, id, Report::kCancelLoadFile) == nullptr) return -1;
    // The first pattern removes a load that has not started, the second
    // the next chunk of one in progress.
    mDecoder->cancelCmd(WVThreadCmd(DecoderThread::kCmdStart, id, static_cast<int32_t>(WVCMD_ANY)));
    mDecoder->cancelCmd(
        WVThreadCmd(DecoderThread::kCmdContinue, id, static_cast<int32_t>(WVCMD_ANY)));
    return 0;
}
