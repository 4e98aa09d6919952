#define WV_LOG_TAG "WavoryxPriv"
#include "engine/ChunkedJobThread.h"

#include "engine/WavoryxPriv.h"
#include "platform/Log.h"

namespace wv {

ChunkedJobThread::ChunkedJobThread(WavoryxPriv* editor, float progressStep, uint32_t progressEvent,
                                   uint8_t resumeUrgency)
    : ProgressNotifier(progressStep),
      mEditor(editor),
      mProgressEvent(progressEvent),
      mResumeUrgency(resumeUrgency) {}

void ChunkedJobThread::setCurrentFrom(const WVThreadCmd& cmd) {
    SPcmInfo* item = mEditor->getPcmInfo(cmd.pcmId, REF_NONE);
    if (item == nullptr) {
        fatalCheck(WV_LOG_TAG, "WavoryxPriv", __LINE__, "CHECK(%s) failed.", "info != NULL");
    }
    mCurrentId.store(item->id, std::memory_order_relaxed);
}

int32_t ChunkedJobThread::onCmdSuspend(WVThreadCmd& cmd) {
    if (cmd.code != kCmdContinue) return -1;
    setCurrentFrom(cmd);
    return 0;
}

void ChunkedJobThread::onCmdResume(WVThreadCmd& cmd) {
    if (cmd.code != kCmdContinue) return;
    setCurrentFrom(cmd);
    sendCmd(cmd, mResumeUrgency);
}

void ChunkedJobThread::onProgress(float progress) {
    // Truncation toward zero; +infinity saturates at the largest int32.
    const float percent = progress * 100.0f;
    const int32_t value = percent >= 2147483647.0f ? INT32_MAX : static_cast<int32_t>(percent);
    mEditor->notifyClient(WVThreadCmd(mProgressEvent, currentId(), value), 0);
}

}  // namespace wv
