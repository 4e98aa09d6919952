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
// A worker may also let its jobs run their own commands: a ChunkedJob rides
// in the data of its start command and of every command 2, and what each of
// its commands returns (a JobStep) is carried out by follow().
//
// Control requests: suspend parks a command 2 (a command of any other code
// cannot be parked: the request drops it, freeing the job it carries) and
// resume queues it again at the step urgency; cancel ends the job with the
// worker's cancel event (freeing the job of any command that carries one
// first); discard frees a carried job silently.
// Progress reports are thinned per job and posted to the event sink.
#pragma once

#include <cstdint>

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "threads/ClientEvents.h"
#include "threads/JobThread.h"
#include "threads/ProgressNotifier.h"

namespace wv {

// What a job's command leaves for its worker to do.
struct JobStep {
    enum Kind { kNext, kWait, kEnd };
    Kind kind;
    int32_t ms;      // kNext: how long the command took; kWait: the longest wait
    uint32_t event;  // kEnd: the ending event and its value
    int32_t value;

    // Go on with the next chunk (after a start: the first).
    static JobStep next(int32_t elapsedMs) { return {kNext, elapsedMs, 0, 0}; }
    // Run this command again once woken (WVCmdThread::wakeWaiting), at the
    // latest after maxDelayMs.
    static JobStep wait(uint32_t maxDelayMs) {
        return {kWait, static_cast<int32_t>(maxDelayMs), 0, 0};
    }
    // Free the job, then send `event` (value) and drop the worker's reference.
    static JobStep end(uint32_t event, int32_t value) { return {kEnd, 0, event, value}; }
};

// A job that runs its own commands, on its worker's thread. The worker frees
// it (deleteJob) when it ends, is cancelled or discarded.
class ChunkedJob {
public:
    virtual ~ChunkedJob() = default;
    // The start command; kNext posts the first chunk.
    virtual JobStep start(WVThreadCmd& cmd) = 0;
    // One command 2.
    virtual JobStep step(WVThreadCmd& cmd) = 0;
};

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

    // Whole milliseconds from `begin` to `end`, never negative.
    static int32_t elapsedMs(const TimeVal& begin, const TimeVal& end);

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

    // Carries out what a command of the job in cmd.data (a ChunkedJob)
    // returned.
    void follow(WVThreadCmd& cmd, const JobStep& step);
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
    EventSink* const mEvents;

private:
    uint64_t mWakesSeen = 0;  // wakeCount() when the command in progress began
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
