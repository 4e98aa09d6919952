#define WV_LOG_TAG "WavoryxPriv"
#include "render/EncoderThread.h"

#include "engine/WavoryxPriv.h"
#include "platform/Log.h"

namespace wv {

EncoderThread::EncoderThread(WavoryxPriv* editor)
    : ChunkedJobThread(editor, kProgressStep, EVT_RENDER_PROGRESS, 2) {}

EncoderThread::~EncoderThread() = default;

void EncoderThread::procCmd(WVThreadCmd& cmd) {
    // Rendering arrives with the encoders; until then a render waits here.
    WV_LOGV("encoder: command %u for pcm %u not handled yet", cmd.code, cmd.pcmId);
}

void EncoderThread::onCmdCancel(WVThreadCmd& cmd) {
    WV_LOGV("encoder: cancel of command %u for pcm %u", cmd.code, cmd.pcmId);
}

}  // namespace wv
