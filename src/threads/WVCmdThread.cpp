#include "threads/WVCmdThread.h"

#include <chrono>
#include <iterator>

namespace wv {

namespace {
constexpr uint8_t kPriorityExit = 1;
constexpr uint8_t kPriorityControl = 2;
constexpr uint8_t kPriorityDelayed = 255;
// Entries due this close together keep their posting order, and a head
// entry due this soon is served rather than slept for.
constexpr int64_t kDueSlackUs = 999;
}  // namespace

bool cmdMatches(const WVThreadCmd& pattern, const WVThreadCmd& cmd) {
    return (pattern.code == WVCMD_ANY || pattern.code == cmd.code) &&
           (pattern.pcmId == WVCMD_ANY || pattern.pcmId == cmd.pcmId) &&
           (static_cast<uint32_t>(pattern.arg) == WVCMD_ANY || pattern.arg == cmd.arg);
}

WVCmdThread::WVCmdThread() = default;

WVCmdThread::~WVCmdThread() {
    // exit() should have joined; never leave a joinable thread behind.
    if (mThread.joinable()) mThread.detach();
}

void WVCmdThread::procCmd(WVThreadCmd&) {}
int32_t WVCmdThread::onCmdSuspend(WVThreadCmd&) { return 0; }
void WVCmdThread::onCmdResume(WVThreadCmd&) {}
void WVCmdThread::onCmdCancel(WVThreadCmd&) {}
void WVCmdThread::onCmdDiscard(WVThreadCmd&) {}

int32_t WVCmdThread::discardAll() {
    std::list<WVThreadCmd> dropped;
    {
        std::lock_guard<std::mutex> guard(mLock);
        for (auto* part : {&mQueue, &mDelayed}) {
            for (const auto& entry : *part) {
                if (entry.kind == WVCMD_RUN || entry.kind == WVCMD_DELAYED)
                    dropped.push_back(entry.cmd);
            }
            part->clear();
        }
        dropped.splice(dropped.end(), mSuspended);
    }
    for (WVThreadCmd& cmd : dropped) onCmdDiscard(cmd);
    return 0;
}

void WVCmdThread::enqueueLocked(const WVThreadCmdContainer& entry) {
    if (entry.kind != WVCMD_DELAYED) {
        // After every entry of the same or a smaller priority value. Bursts
        // of equal priority append, so the scan runs from the back.
        auto it = mQueue.end();
        while (it != mQueue.begin() && std::prev(it)->priority > entry.priority) --it;
        mQueue.insert(it, entry);
    } else {
        // Before the first entry due more than the slack later.
        auto it = mDelayed.begin();
        while (it != mDelayed.end() && diffUs(it->due, entry.due) <= kDueSlackUs) ++it;
        mDelayed.insert(it, entry);
    }
    if (mWaiting > 0) mCond.notify_one();
}

int32_t WVCmdThread::enqueue(const WVThreadCmdContainer& entry) {
    std::lock_guard<std::mutex> guard(mLock);
    enqueueLocked(entry);
    return 0;
}

WVThreadCmdContainer WVCmdThread::runEntry(const WVThreadCmd& cmd, uint8_t urgency) {
    WVThreadCmdContainer entry;
    entry.kind = WVCMD_RUN;
    entry.priority = static_cast<uint8_t>(urgency + 3);
    entry.cmd = cmd;
    return entry;
}

WVThreadCmdContainer WVCmdThread::delayedEntry(const WVThreadCmd& cmd, uint32_t delayMs) {
    WVThreadCmdContainer entry;
    entry.kind = WVCMD_DELAYED;
    entry.priority = kPriorityDelayed;
    entry.due = addMs(timeOfDay(), delayMs);
    entry.cmd = cmd;
    return entry;
}

int32_t WVCmdThread::sendCmd(WVThreadCmd cmd, uint8_t urgency) {
    return enqueue(runEntry(cmd, urgency));
}

int32_t WVCmdThread::sendDelayedCmd(WVThreadCmd cmd, uint32_t delayMs) {
    return enqueue(delayedEntry(cmd, delayMs));
}

int32_t WVCmdThread::sendWaitingCmd(WVThreadCmd cmd, uint32_t maxDelayMs, uint64_t wakesSeen) {
    WVThreadCmdContainer entry = delayedEntry(cmd, maxDelayMs);
    std::lock_guard<std::mutex> guard(mLock);
    if (mWakes.load() != wakesSeen) {
        entry.due = timeOfDay();  // woken before it could wait
    } else {
        entry.wakeable = true;
        ++mWakeable;
    }
    enqueueLocked(entry);
    return 0;
}

uint64_t WVCmdThread::wakeCount() { return mWakes.load(); }

int32_t WVCmdThread::wakeWaiting() {
    std::lock_guard<std::mutex> guard(mLock);
    mWakes.fetch_add(1);
    if (mWakeable == 0) return 0;
    std::list<WVThreadCmdContainer> woken;
    for (auto it = mDelayed.begin(); it != mDelayed.end();) {
        const auto next = std::next(it);
        if (it->wakeable) woken.splice(woken.end(), mDelayed, it);
        it = next;
    }
    const TimeVal now = timeOfDay();
    int32_t count = 0;
    for (WVThreadCmdContainer& entry : woken) {
        entry.wakeable = false;
        entry.due = now;
        enqueueLocked(entry);
        ++count;
    }
    mWakeable = 0;
    return count;
}

int32_t WVCmdThread::sendControl(int32_t kind, uint8_t priority, WVThreadCmd pattern) {
    WVThreadCmdContainer entry;
    entry.kind = kind;
    entry.priority = priority;
    entry.cmd = pattern;
    return enqueue(entry);
}

int32_t WVCmdThread::cancelCmd(WVThreadCmd pattern) {
    return sendControl(WVCMD_CANCEL, kPriorityControl, pattern);
}
int32_t WVCmdThread::suspendCmd(WVThreadCmd pattern) {
    return sendControl(WVCMD_SUSPEND, kPriorityControl, pattern);
}
int32_t WVCmdThread::resumeCmd(WVThreadCmd pattern) {
    return sendControl(WVCMD_RESUME, kPriorityControl, pattern);
}

int32_t WVCmdThread::getCmd(WVThreadCmd* out) {
    if (!mQueue.empty()) {
        const int32_t kind = mQueue.front().kind;
        *out = mQueue.front().cmd;
        mQueue.pop_front();
        return kind;
    }
    if (mDelayed.empty()) return WVCMD_NONE;
    if (diffUs(timeOfDay(), mDelayed.front().due) < -kDueSlackUs) return WVCMD_DELAYED;
    *out = mDelayed.front().cmd;
    mDelayed.pop_front();
    return WVCMD_RUN;
}

int32_t WVCmdThread::findCmd(WVThreadCmd* pattern) {
    for (auto* part : {&mQueue, &mDelayed}) {
        for (auto it = part->begin(); it != part->end(); ++it) {
            if (it->kind != WVCMD_RUN && it->kind != WVCMD_DELAYED) continue;
            if (!cmdMatches(*pattern, it->cmd)) continue;
            const int32_t kind = it->kind;
            *pattern = it->cmd;
            part->erase(it);
            return kind;
        }
    }
    return WVCMD_NONE;
}

bool WVCmdThread::takeParked(WVThreadCmd* pattern) {
    for (auto it = mSuspended.begin(); it != mSuspended.end(); ++it) {
        if (cmdMatches(*pattern, *it)) {
            *pattern = *it;
            mSuspended.erase(it);
            return true;
        }
    }
    return false;
}

void* WVCmdThread::threadLoop(void* self) {
    static_cast<WVCmdThread*>(self)->runLoop(false);
    return nullptr;
}

void WVCmdThread::runLoop(bool launched) {
    std::unique_lock<std::mutex> lock(mLock);
    ++mLoopCount;
    for (;;) {
        WVThreadCmd local(WVCMD_ANY, WVCMD_ANY, static_cast<int32_t>(WVCMD_ANY), nullptr);
        switch (getCmd(&local)) {
            case WVCMD_NONE:
                ++mWaiting;
                mCond.wait(lock);
                --mWaiting;
                break;
            case WVCMD_RUN:
                lock.unlock();
                procCmd(local);
                lock.lock();
                break;
            case WVCMD_DELAYED: {
                const int64_t waitMs =
                    std::max<int64_t>(0, diffUs(mDelayed.front().due, timeOfDay()) / 1000);
                ++mWaiting;
                mCond.wait_for(lock, std::chrono::milliseconds(waitMs));
                --mWaiting;
                break;
            }
            case WVCMD_CANCEL:
                if (findCmd(&local) != WVCMD_NONE || takeParked(&local)) {
                    lock.unlock();
                    onCmdCancel(local);
                    lock.lock();
                }
                break;
            case WVCMD_SUSPEND:
                if (findCmd(&local) != WVCMD_NONE) {
                    lock.unlock();
                    const int32_t keep = onCmdSuspend(local);
                    lock.lock();
                    if (keep == 0) mSuspended.push_back(local);
                }
                break;
            case WVCMD_RESUME:
                if (takeParked(&local)) {
                    lock.unlock();
                    onCmdResume(local);
                    lock.lock();
                }
                break;
            case WVCMD_EXIT:
                if (launched) {
                    // Ids of ended threads are reused: forget this one now,
                    // and let the next launch reap it.
                    mLaunchedId = std::thread::id();
                    mLaunchedRunning = false;
                }
                --mLoopCount;
                return;
            default:
                break;
        }
    }
}

int32_t WVCmdThread::launch() {
    // Called from the launched loop itself (a callback starting the loop it
    // runs on): that loop is there already.
    if (mLaunchedId.load() == std::this_thread::get_id()) return 0;
    std::lock_guard<std::mutex> guard(mThreadLock);
    if (mThread.joinable()) {
        // A second launch without an exit in between would lose the first
        // thread's handle; the running loop keeps serving the queue instead.
        if (mLaunchedRunning.load()) return 0;
        // The loop ended on an exit from its own thread: reap it first.
        mThread.join();
    }
    mLaunchedRunning = true;
    mThread = std::thread([this] {
        mLaunchedId = std::this_thread::get_id();
        runLoop(true);
    });
    return 0;
}

int32_t WVCmdThread::exit() {
    sendControl(WVCMD_EXIT, kPriorityExit,
                WVThreadCmd(WVCMD_ANY, WVCMD_ANY, static_cast<int32_t>(WVCMD_ANY), nullptr));
    const std::thread::id self = std::this_thread::get_id();
    if (mLaunchedId.load() == self) return 0;
    std::lock_guard<std::mutex> guard(mThreadLock);
    if (mThread.joinable() && mThread.get_id() != self) {
        mThread.join();
    }
    return 0;
}

int32_t WVCmdThread::dump() {
    std::lock_guard<std::mutex> guard(mLock);
    // Nothing is printed; the walk only proves the lists are consistent.
    size_t visited = 0;
    for (auto it = mQueue.begin(); it != mQueue.end(); ++it) ++visited;
    for (auto it = mDelayed.begin(); it != mDelayed.end(); ++it) ++visited;
    for (auto it = mSuspended.begin(); it != mSuspended.end(); ++it) ++visited;
    (void)visited;
    return 0;
}

std::thread::native_handle_type WVCmdThread::launchedThreadHandle() {
    std::lock_guard<std::mutex> guard(mThreadLock);
    return mThread.joinable() ? mThread.native_handle() : std::thread::native_handle_type();
}

bool WVCmdThread::loopRunning() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLoopCount > 0;
}

}  // namespace wv
