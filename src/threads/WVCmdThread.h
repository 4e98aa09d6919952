// A worker thread with a private command queue, served one command at a
// time. Every background activity of the engine is one of these.
//
// A long job is a chain of commands: each procCmd() does one chunk and posts
// the job's next command to its own queue. Control requests (cancel,
// suspend, resume) are queued ahead of ordinary commands, so they act between
// two chunks; a command that is executing cannot be reached by them.
//
// Service order within one queue: exit (priority 1), control requests (2),
// then ordinary commands by priority (urgency + 3), first in first out within
// a priority, then delayed commands in order of their due times once due.
// A delayed command never runs while an ordinary one is waiting.
//
// Threads: every method but the hooks may be called from any thread. Hooks
// run on the worker's thread with no lock held, so they may post to any
// queue, their own included.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <thread>

#include "base/Clock.h"

namespace wv {

// The command (and event) record, copied by value everywhere.
struct WVThreadCmd {
    uint32_t code = 0;     // meaning belongs to the receiving worker
    uint32_t pcmId = 0;    // the item concerned, or 0xFFFFFFFF
    int32_t arg = -1;      // argument or event value; -1 when unused
    void* data = nullptr;  // job context handed from chunk to chunk; never matched

    WVThreadCmd() = default;
    WVThreadCmd(uint32_t c, uint32_t id, int32_t a, void* d = nullptr)
        : code(c), pcmId(id), arg(a), data(d) {}
};

// In a pattern, a code, pcmId or arg equal to this matches every value.
constexpr uint32_t WVCMD_ANY = 0xFFFFFFFF;

// Container kinds; also what getCmd() returns.
enum : int32_t {
    WVCMD_NONE = 0,
    WVCMD_RUN = 1,
    WVCMD_DELAYED = 2,
    WVCMD_CANCEL = 3,
    WVCMD_SUSPEND = 4,
    WVCMD_RESUME = 5,
    WVCMD_EXIT = 6,
};

struct WVThreadCmdContainer {
    int32_t kind = WVCMD_NONE;
    TimeVal due;            // WVCMD_DELAYED only
    uint8_t priority = 0;   // lower values are served first
    bool wakeable = false;  // WVCMD_DELAYED from sendWaitingCmd: wakeWaiting() makes it due
    WVThreadCmd cmd;        // the pattern, for control kinds
};

// Whether `cmd` matches `pattern` on code, pcmId and arg (WVCMD_ANY matches
// every value; data never takes part).
bool cmdMatches(const WVThreadCmd& pattern, const WVThreadCmd& cmd);

class WVCmdThread {
public:
    WVCmdThread();
    // Discards queued and parked commands without calling any hook (their
    // data is not freed). The owner calls exit() before destroying.
    virtual ~WVCmdThread();
    WVCmdThread(const WVCmdThread&) = delete;
    WVCmdThread& operator=(const WVCmdThread&) = delete;

    // Queues cmd to run with priority (urgency + 3) mod 256. Returns 0.
    int32_t sendCmd(WVThreadCmd cmd, uint8_t urgency);
    // Queues cmd to run once delayMs have passed and no ordinary command
    // waits. Returns 0.
    int32_t sendDelayedCmd(WVThreadCmd cmd, uint32_t delayMs);
    // Queues cmd like sendDelayedCmd, for a job waiting on something another
    // thread produces: wakeWaiting() makes it due at once, so the job goes
    // on as soon as that comes rather than at the end of maxDelayMs.
    // `wakesSeen` is wakeCount() as read before the job looked for what it
    // waits on: a wake that came in between found nothing to wake, so the
    // command is then due at once instead of sleeping out maxDelayMs.
    int32_t sendWaitingCmd(WVThreadCmd cmd, uint32_t maxDelayMs, uint64_t wakesSeen);
    // How many times wakeWaiting() has been called.
    uint64_t wakeCount();
    // Makes every command queued by sendWaitingCmd due now, keeping their
    // order. Cheap when none waits (a lock and an empty scan); any thread
    // may call it, as often as it produces. Returns how many woke.
    int32_t wakeWaiting();
    // Control requests on the first queued (or, for cancel and resume,
    // parked) command matching `pattern`. They return at once; the effect
    // happens on the worker. A pattern that matches nothing is dropped.
    int32_t cancelCmd(WVThreadCmd pattern);
    int32_t suspendCmd(WVThreadCmd pattern);
    int32_t resumeCmd(WVThreadCmd pattern);

    // Starts the loop on a new thread.
    int32_t launch();
    // Queues the exit request and, when the loop runs on a thread started by
    // launch(), joins that thread: the command in progress finishes, queued
    // and parked commands are never executed. Returns 0.
    int32_t exit();
    // Empties the queue and the parked list, handing each command to
    // onCmdDiscard on the calling thread. The owner calls it after exit(),
    // so that a job whose next command will never run frees its context.
    int32_t discardAll();
    // The loop; runs on the calling thread until it takes an exit request.
    static void* threadLoop(void* self);
    // Visits the queue under the lock; produces no output.
    int32_t dump();

    // Whether a loop runs on this object now.
    bool loopRunning() const;
    // The thread started by launch() (for reading its CPU clock), or a
    // default handle when none runs.
    std::thread::native_handle_type launchedThreadHandle();

protected:
    // Executes one command.
    virtual void procCmd(WVThreadCmd& cmd);
    // A command just taken from the queue by a suspend request: 0 parks it,
    // anything else discards it.
    virtual int32_t onCmdSuspend(WVThreadCmd& cmd);
    // A command just taken from the parked list: post it again to go on.
    virtual void onCmdResume(WVThreadCmd& cmd);
    // A command just taken from the queue or the parked list by a cancel
    // request: end its job (free data, tell the client, drop references).
    virtual void onCmdCancel(WVThreadCmd& cmd);
    // A command dropped by discardAll: free what its job owns, without
    // telling the client. Default: nothing.
    virtual void onCmdDiscard(WVThreadCmd& cmd);

    // Queue primitives, with mLock held by the caller.
    void enqueueLocked(const WVThreadCmdContainer& entry);
    int32_t getCmd(WVThreadCmd* out);
    int32_t findCmd(WVThreadCmd* pattern);

    int32_t enqueue(const WVThreadCmdContainer& entry);
    static WVThreadCmdContainer runEntry(const WVThreadCmd& cmd, uint8_t urgency);
    static WVThreadCmdContainer delayedEntry(const WVThreadCmd& cmd, uint32_t delayMs);

    // The queue in two parts: ordinary and control entries by priority, then
    // delayed entries by due time. Together they are the service order.
    std::list<WVThreadCmdContainer> mQueue;
    std::list<WVThreadCmdContainer> mDelayed;
    std::list<WVThreadCmd> mSuspended;
    int32_t mLoopCount = 0;
    int32_t mWaiting = 0;  // loops asleep on mCond: only they need a signal
    // Upper bound of the wakeable entries in mDelayed (reset by wakeWaiting),
    // so that a producer's call finds nothing to scan most of the time.
    int32_t mWakeable = 0;
    // Calls of wakeWaiting(), for sendWaitingCmd's wakesSeen: changed under
    // mLock, read without it by wakeCount() before every chunk.
    std::atomic<uint64_t> mWakes{0};
    mutable std::mutex mLock;
    std::condition_variable mCond;

private:
    // `launched`: the loop of the thread started by launch().
    void runLoop(bool launched);

    // launch() and exit() may race each other from any threads, the loop's
    // own included. mThreadLock guards mThread; the loop's own thread never
    // takes it (an exit joining that thread holds it), and is recognised by
    // mLaunchedId instead.
    std::mutex mThreadLock;
    std::thread mThread;
    std::atomic<std::thread::id> mLaunchedId{std::thread::id()};
    std::atomic<bool> mLaunchedRunning{false};
    bool takeParked(WVThreadCmd* pattern);
    int32_t sendControl(int32_t kind, uint8_t priority, WVThreadCmd pattern);
};

}  // namespace wv
