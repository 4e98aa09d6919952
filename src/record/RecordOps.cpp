// The engine's record controls.
#define WV_LOG_TAG "WavoryxPriv"
#include "engine/WavoryxPriv.h"
#include "platform/Log.h"

using namespace wv;

int32_t WavoryxPriv::recordStart(const char*, encode_type, int32_t, int32_t, int32_t, int32_t, int32_t) {
    // The capture layer arrives with recording: the recorder cannot start.
    WV_LOGW("recording is not available yet");
    return -5;
}

int32_t WavoryxPriv::recordPause() { return -5; }
int32_t WavoryxPriv::recordResume() { return -5; }
int32_t WavoryxPriv::recordStop() { return -5; }
