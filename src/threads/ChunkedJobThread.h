// What the decoder and the encoder workers share: jobs made of chunks, run
// one chunk per command.
//
// {1, id} starts a job (startJob); {2, id, -1, job} runs its next chunk
// (runStep), which posts the following one through postNextStep or ends the
// job through endJob. Each begins with takeItem, the one registry look-up of
// the chunk: the worker's reference keeps its item registered while a command
// of its job exists, so a missing one is a broken invariant and aborts. The
// current item is the one last served and stays so between commands.
//
// Control requests: suspend parks a command 2 (a command of any other code
// cannot be parked: the request drops it) and resume queues it again at the
// step urgency; cancel ends the job with the worker's cancel event (a command
// 2 frees its job first); discard frees the job of a command 2 silently.
// Progress reports are thinned per job and posted to the event sink.
#pragma once

#include <cstdint>

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "threads/ClientEvents.h"
#include "threads/JobThread.h"
#include "threads/ProgressNotifier.h"

namespace wv {

// The constants that tell one chunked worker from another.
struct ChunkedJobConfig {
    float progressStep;       // see ProgressNotifier
    uint32_t progressEvent;   // the event of a progress report
    uint32_t cancelledEvent;  // the ending event of a cancelled job
    uint8_t stepUrgency;      // of every command 2, resumed ones included
    Check missingItemCheck;   // where a missing item's fatal check reports itself
};

class ChunkedJobThread : public JobThread, public ProgressNotifier {
public:
    // events: where progress goes (not owned; outlives the worker).
    ChunkedJobThread(EventSink* events, const ChunkedJobConfig& config);

protected:
    void procCmd(WVThreadCmd& cmd) final;
    int32_t onCmdSuspend(WVThreadCmd& cmd) override;
    void onCmdResume(WVThreadCmd& cmd) override;
    void onCmdCancel(WVThreadCmd& cmd) override;
    void onProgress(float progress) override;

    // Whether a command of `code` starts a job: command 1, and any code a
    // worker adds for a job of another kind. A start is served by startJob
    // and its cancel ends the job with the cancel event.
    virtual bool startsJob(uint32_t code) const { return code == kCmdStart; }
    // A start command and command 2. Each first passes its look-up of the
    // command's item through takeItem.
    virtual void startJob(WVThreadCmd& cmd) = 0;
    virtual void runStep(WVThreadCmd& cmd) = 0;
    // Ends the job of item `id`: sends `event` (value) and drops the
    // worker's reference on the item. The job itself is freed already.
    virtual void endJob(uint32_t id, uint32_t event, int32_t value) = 0;
    // Drops the worker's reference on item `id` without an event (the
    // cancel of a command that is not part of a job).
    virtual void dropReference(uint32_t id) = 0;
    // Whether the engine runs its workers at low priority: each chunk is
    // then followed by as long an idle time as it took.
    virtual bool lowPriority() = 0;

    // Posts the first chunk of a job of item `id`.
    void postFirstStep(uint32_t id, void* job);
    // Posts the next chunk at once, or `elapsedMs` later at low priority.
    void postNextStep(const WVThreadCmd& cmd, int32_t elapsedMs);
    // `item`, the worker's look-up of the command's item, made the current
    // one; null aborts with the worker's missing-item check.
    template <class Item>
    Item* takeItem(const WVThreadCmd& cmd, Item* item) {
        markCurrent(cmd, item != nullptr, mConfig.missingItemCheck);
        return item;
    }
    // Whole milliseconds from `begin` to `end`, never negative.
    static int32_t elapsedMs(const TimeVal& begin, const TimeVal& end);

    EventSink* const mEvents;

private:
    // Makes the command's item the current one; a missing item aborts with
    // the fatal check of `site`. The control requests look the item up here;
    // the job's own commands in takeItem.
    void requireItem(const WVThreadCmd& cmd, Check site) {
        markCurrent(cmd, isRegistered(cmd.pcmId), site);
    }
    void markCurrent(const WVThreadCmd& cmd, bool present, Check site);

    const ChunkedJobConfig mConfig;
};

}  // namespace wv
