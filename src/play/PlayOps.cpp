// The engine's play controls. One item at a time is the current play item
// (mPlayingId); every control but playStart addresses it.
#define WV_LOG_TAG "WavoryxPriv"
#include "engine/WavoryxPriv.h"
#include "platform/Log.h"

using namespace wv;

namespace {
// The current item, or null after the missing-item report.
SPcmInfo* currentItem(WavoryxPriv* engine, pcm_id_t id, int line, const char* signature) {
    return engine->findItem(id, line, signature);
}
}  // namespace

int32_t WavoryxPriv::playStart(pcm_id_t id) {
    if (findItem(id, 604, "int32_t WavoryxPriv::playStart(pcm_id_t)") == nullptr) return -1;
    // The audio player arrives with the output layer: nothing can start yet.
    mPlayingId = 0;
    notifyClient(WVThreadCmd(EVT_PLAY_FAILED, id, -1), 0);
    return -14;
}

int32_t WavoryxPriv::playPause(pcm_id_t) {
    return currentItem(this, mPlayingId, 651, "int32_t WavoryxPriv::playPause(pcm_id_t)") ? 0 : -1;
}

int32_t WavoryxPriv::playResume(pcm_id_t) {
    return currentItem(this, mPlayingId, 662, "int32_t WavoryxPriv::playResume(pcm_id_t)") ? -5 : -1;
}

int32_t WavoryxPriv::playStop(pcm_id_t id) {
    const pcm_id_t target = id != 0 ? id : mPlayingId.exchange(0);
    if (currentItem(this, target, 677, "int32_t WavoryxPriv::playStop(pcm_id_t)") == nullptr) return -1;
    return 0;
}

int32_t WavoryxPriv::playSeekTo(int32_t) {
    return currentItem(this, mPlayingId, 689, "int32_t WavoryxPriv::playSeekTo(int32_t)") ? -5 : -1;
}

int32_t WavoryxPriv::setPlaySpeed(int32_t) {
    return currentItem(this, mPlayingId, 700, "int32_t WavoryxPriv::setPlaySpeed(int32_t)") ? -5 : -1;
}

int32_t WavoryxPriv::getPlayPositionMs() {
    return currentItem(this, mPlayingId, 709, "int32_t WavoryxPriv::getPlayPositionMs()") ? 0 : -1;
}
