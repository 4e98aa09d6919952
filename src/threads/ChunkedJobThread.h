// What the decoder and the encoder workers share: jobs made of chunks, a
// current item, progress thinning, and parking of a job's continuation
// (command code 2) on suspend. A command of any other code cannot be parked:
// a suspend request drops it.
#pragma once

#include <atomic>
#include <cstdint>

#include "threads/ClientEvents.h"
#include "threads/ProgressNotifier.h"
#include "threads/WVCmdThread.h"

namespace wv {

class ChunkedJobThread : public WVCmdThread, public ProgressNotifier {
public:
    static constexpr uint32_t kCmdStart = 1;
    static constexpr uint32_t kCmdContinue = 2;

    // events: where progress goes (not owned; outlives the worker);
    // progressEvent: the event code of onProgress; resumeUrgency: how a
    // resumed continuation is queued again.
    ChunkedJobThread(EventSink* events, float progressStep, uint32_t progressEvent,
                     uint8_t resumeUrgency);

    // The item of the job being served; 0 before the first.
    uint32_t currentId() const { return mCurrentId.load(std::memory_order_relaxed); }

protected:
    int32_t onCmdSuspend(WVThreadCmd& cmd) override;
    void onCmdResume(WVThreadCmd& cmd) override;
    void onProgress(float progress) override;

    // Whether item `id` is registered. A queued job command's item always
    // is, since the job holds a reference on it.
    virtual bool isRegistered(uint32_t id) = 0;
    // Records the command's item as the current one; a missing item is a
    // broken invariant and aborts.
    void setCurrentFrom(const WVThreadCmd& cmd);

    EventSink* const mEvents;
    std::atomic<uint32_t> mCurrentId{0};

private:
    const uint32_t mProgressEvent;
    const uint8_t mResumeUrgency;
};

}  // namespace wv
