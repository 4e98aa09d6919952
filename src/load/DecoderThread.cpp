#define WV_LOG_TAG "WavoryxPriv"
#include "load/DecoderThread.h"

#include "engine/WavoryxPriv.h"
#include "platform/Log.h"

namespace wv {

DecoderThread::DecoderThread(WavoryxPriv* editor)
    : ChunkedJobThread(editor, kProgressStep, EVT_LOAD_PROGRESS, 7) {}

DecoderThread::~DecoderThread() = default;

void DecoderThread::procCmd(WVThreadCmd& cmd) {
    // Decoding arrives with the media layer; until then a load waits here.
    WV_LOGV("decoder: command %u for pcm %u not handled yet", cmd.code, cmd.pcmId);
}

void DecoderThread::onCmdCancel(WVThreadCmd& cmd) {
    WV_LOGV("decoder: cancel of command %u for pcm %u", cmd.code, cmd.pcmId);
}

}  // namespace wv
