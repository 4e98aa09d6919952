#define WV_LOG_TAG "ChunkedJobThread"
#include "threads/ChunkedJobThread.h"

#include "base/CheckSites.h"
#include "base/Log.h"

namespace wv {
ChunkedJobThread::ChunkedJobThread(EventSink* events, const ChunkedJobConfig& config)
    : ProgressNotifier(config.progressStep), mEvents(events), mConfig(config) {}

void ChunkedJobThread::markCurrent(const WVThreadCmd& cmd, bool present, Check site) {
    if (!present) {
        WV_FATAL_AT(site, "CHECK(%s) failed.", "info != NULL");
    }
    setCurrentId(cmd.pcmId);
}

void ChunkedJobThread::procCmd(WVThreadCmd& cmd) {
    // Read before the job looks for its data: a wake that comes after the
    // look but before the wait is posted must not be lost (see follow).
    mWakesSeen = wakeCount();
    if (cmd.code == kCmdContinue) {
        runStep(cmd);
    } else if (startsJob(cmd.code)) {
        startJob(cmd);
    }
}

void ChunkedJobThread::follow(WVThreadCmd& cmd, const JobStep& step) {
    switch (step.kind) {
        case JobStep::kNext:
            if (cmd.code == kCmdContinue) {
                postNextStep(cmd, step.ms);
            } else {
                postFirstStep(cmd.pcmId, cmd.data);
            }
            return;
        case JobStep::kWait:
            sendWaitingCmd(cmd, static_cast<uint32_t>(step.ms), mWakesSeen);
            return;
        case JobStep::kEnd:
            deleteJob(cmd.data);
            endJob(cmd.pcmId, step.event, step.value);
            return;
    }
}

void ChunkedJobThread::postFirstStep(uint32_t id, void* job) {
    sendCmd(WVThreadCmd(kCmdContinue, id, -1, job), mConfig.stepUrgency);
}

void ChunkedJobThread::postNextStep(const WVThreadCmd& cmd, int32_t elapsedMs) {
    if (lowPriority() && elapsedMs != 0) {
        sendDelayedCmd(cmd, static_cast<uint32_t>(elapsedMs));
        return;
    }
    sendCmd(cmd, mConfig.stepUrgency);
}

int32_t ChunkedJobThread::elapsedMs(const TimeVal& begin, const TimeVal& end) {
    const int32_t elapsedUs = (end.sec - begin.sec) * 1000000 + (end.usec - begin.usec);
    return elapsedUs / 1000 < 0 ? 0 : elapsedUs / 1000;
}

int32_t ChunkedJobThread::onCmdSuspend(WVThreadCmd& cmd) {
    if (cmd.code != kCmdContinue) {
        if (cmd.data != nullptr) deleteJob(cmd.data);
        return -1;
    }
    requireItem(cmd, Check::kChunkedJobItem);
    return 0;
}

void ChunkedJobThread::onCmdResume(WVThreadCmd& cmd) {
    if (cmd.code != kCmdContinue) return;
    requireItem(cmd, Check::kChunkedJobItem);
    sendCmd(cmd, mConfig.stepUrgency);
}

void ChunkedJobThread::onCmdCancel(WVThreadCmd& cmd) {
    if (cmd.code == kCmdContinue) {
        requireItem(cmd, mConfig.missingItemCheck);
        if (cmd.data != nullptr) deleteJob(cmd.data);
        endJob(cmd.pcmId, mConfig.cancelledEvent, -1);
    } else if (startsJob(cmd.code)) {
        if (cmd.data != nullptr) deleteJob(cmd.data);
        endJob(cmd.pcmId, mConfig.cancelledEvent, -1);
    } else {
        dropReference(cmd.pcmId);
    }
}

void ChunkedJobThread::onProgress(float progress) {
    // Truncation toward zero; +infinity saturates at the largest int32.
    const float percent = progress * 100.0f;
    const int32_t value = percent >= 2147483647.0f ? INT32_MAX : static_cast<int32_t>(percent);
    mEvents->notifyClient(WVThreadCmd(mConfig.progressEvent, currentId(), value), 0);
}

}  // namespace wv
