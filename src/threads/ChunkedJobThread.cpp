#define WV_LOG_TAG "ChunkedJobThread"
#include "threads/ChunkedJobThread.h"

#include "base/CheckSites.h"
#include "base/Log.h"

namespace wv {

ChunkedJobThread::ChunkedJobThread(EventSink* events, float progressStep, uint32_t progressEvent,
                                   uint8_t resumeUrgency)
    : ProgressNotifier(progressStep),
      mEvents(events),
      mProgressEvent(progressEvent),
      mResumeUrgency(resumeUrgency) {}

void ChunkedJobThread::setCurrentFrom(const WVThreadCmd& cmd) {
    if (!isRegistered(cmd.pcmId)) {
        WV_FATAL_AT(Check::kChunkedJobItem, "CHECK(%s) failed.", "info != NULL");
    }
    mCurrentId.store(cmd.pcmId, std::memory_order_relaxed);
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
    mEvents->notifyClient(WVThreadCmd(mProgressEvent, currentId(), value), 0);
}

}  // namespace wv
