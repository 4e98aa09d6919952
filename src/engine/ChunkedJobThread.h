// What the decoder and the encoder workers share: jobs made of chunks, a
// current item, progress thinning, and parking of a job's continuation
// (command code 2) on suspend. A command of any other code cannot be parked:
// a suspend request drops it.
#pragma once

#include <atomic>

#include "engine/PcmTypes.h"
#include "threads/ProgressNotifier.h"
#include "threads/WVCmdThread.h"

class WavoryxPriv;

namespace wv {

class ChunkedJobThread : public WVCmdThread, public ProgressNotifier {
public:
    static constexpr uint32_t kCmdStart = 1;
    static constexpr uint32_t kCmdContinue = 2;

    // progressEvent: the event code of onProgress; resumeUrgency: how a
    // resumed continuation is queued again.
    ChunkedJobThread(WavoryxPriv* editor, float progressStep, uint32_t progressEvent,
                     uint8_t resumeUrgency);

    pcm_id_t currentId() const { return mCurrentId.load(std::memory_order_relaxed); }

protected:
    int32_t onCmdSuspend(WVThreadCmd& cmd) override;
    void onCmdResume(WVThreadCmd& cmd) override;
    void onProgress(float progress) override;

    // Records the command's item as the current one; the item of a queued
    // job command is always registered, so a missing one aborts.
    void setCurrentFrom(const WVThreadCmd& cmd);

    WavoryxPriv* mEditor;
    std::atomic<pcm_id_t> mCurrentId{0};

private:
    const uint32_t mProgressEvent;
    const uint8_t mResumeUrgency;
};

}  // namespace wv
