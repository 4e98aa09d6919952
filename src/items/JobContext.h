// What a job's worker may use of the engine that runs it: the item registry,
// the client's events, the settings, and the current recording. The engine
// owns one and hands it to each worker; it outlives them all. Every member
// may be called from any thread.
//
// A worker reaches the registry and the event queue through it directly, so
// a job's path never returns into the engine's own code.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "items/InfoList.h"
#include "items/PcmTypes.h"
#include "threads/ClientEvents.h"
#include "threads/WVCmdThread.h"

namespace wv {

class JobContext {
public:
    // Neither is owned; both outlive the context.
    JobContext(InfoList* items, EventSink* events) : mItems(items), mEvents(events) {}
    JobContext(const JobContext&) = delete;
    JobContext& operator=(const JobContext&) = delete;

    // The registered item `id`, taking one reference for `ref` unless it is
    // REF_NONE; null when there is none.
    SPcmInfo* getPcmInfo(pcm_id_t id, pcm_ref_t ref) { return mItems->get(id, ref); }
    // Drops one reference for `ref` (all of them with `all`); the item is
    // freed with its last reference.
    pcm_id_t releasePcm(pcm_id_t id, pcm_ref_t ref, bool all) {
        return mItems->release(id, ref, all);
    }
    // Posts a client event: at once (delayMs 0) or after delayMs.
    void notifyClient(WVThreadCmd event, int32_t delayMs) { mEvents->notifyClient(event, delayMs); }
    EventSink* events() const { return mEvents; }

    // The prefix of generated files' names, as the client set it: names are
    // appended to it as they are, so a folder needs its trailing slash.
    std::string workingDir() const {
        std::lock_guard<std::mutex> guard(mSettingsLock);
        return mWorkingDir;
    }
    void setWorkingDir(std::string dir) {
        std::lock_guard<std::mutex> guard(mSettingsLock);
        mWorkingDir = std::move(dir);
    }
    // WV_PRIORITY_LOW asks the chunked workers to leave the CPU idle as long
    // as each chunk took.
    thread_priority_t threadPriority() const {
        return mThreadPriority.load(std::memory_order_relaxed);
    }
    // Sets the priority; returns the previous one.
    thread_priority_t exchangeThreadPriority(thread_priority_t priority) {
        return mThreadPriority.exchange(priority);
    }

    // The worker whose jobs wait for items' data (renders reading sources
    // that still load); null for none. Not owned; set while both live.
    void setDataWaiter(WVCmdThread* waiter) { mDataWaiter.store(waiter); }
    // An item gained data, learned its format or stopped loading: a job
    // waiting on it goes on now instead of at the end of its wait.
    void dataArrived() {
        if (WVCmdThread* waiter = mDataWaiter.load()) waiter->wakeWaiting();
    }

    // The recording under way, 0 for none: set by recordStart, cleared by
    // its end.
    pcm_id_t currentRecording() const { return mRecordingId.load(); }
    void setCurrentRecording(pcm_id_t id) { mRecordingId.store(id); }
    // The recording `id` has ended (finished, failed or never started): it
    // stops being current, unless a newer one already took its place.
    void recordingEnded(pcm_id_t id) {
        pcm_id_t expected = id;
        mRecordingId.compare_exchange_strong(expected, 0);
    }

private:
    InfoList* const mItems;
    EventSink* const mEvents;
    mutable std::mutex mSettingsLock;  // guards mWorkingDir
    std::string mWorkingDir = "/mnt/sdcard/";
    std::atomic<thread_priority_t> mThreadPriority{WV_PRIORITY_NORMAL};
    std::atomic<pcm_id_t> mRecordingId{0};
    std::atomic<WVCmdThread*> mDataWaiter{nullptr};
};

}  // namespace wv
