#define WV_LOG_TAG "WavoryxPriv"
#include "record/RecorderThread.h"

#include "platform/Log.h"

namespace wv {

void RecorderThread::procCmd(WVThreadCmd& cmd) {
    // Recording arrives with the capture layer.
    WV_LOGV("recorder: command %u for pcm %u not handled yet", cmd.code, cmd.pcmId);
    (void)mEditor;
}

}  // namespace wv
