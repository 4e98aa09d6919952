#include "capi/EventBox.h"

#include <chrono>

namespace wvc {

bool isEnding(int code) {
    switch (code) {
        case WV_EVENT_LOAD_FAILED:
        case WV_EVENT_LOAD_DONE:
        case WV_EVENT_LOAD_CANCELLED:
        case WV_EVENT_LOAD_NO_SPACE:
        case WV_EVENT_RENDER_FAILED:
        case WV_EVENT_RENDER_DONE:
        case WV_EVENT_RENDER_CANCELLED:
        case WV_EVENT_RENDER_STOPPED:
        case WV_EVENT_LOUDNESS_RANGE:
        case WV_EVENT_PLAY_FAILED:
        case WV_EVENT_PLAY_END:
        case WV_EVENT_RECORD_ENDED:
            return true;
        default:
            return false;
    }
}

void EventBox::deliver(const wv_event_record& event) {
    wv_event_fn fn;
    void* user;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (isEnding(event.code)) {
            Jobs& jobs = mJobs[event.id];
            ++jobs.ended;
            jobs.last = event;
        }
        fn = mFn;
        user = mUser;
        if (fn == nullptr) {
            if (mQueue.size() == kQueueLimit) mQueue.pop_front();
            mQueue.push_back(event);
        }
    }
    mChanged.notify_all();
    // Outside the lock: the callback may call any function, wv_wait too.
    if (fn != nullptr) fn(event.code, event.id, event.value, user);
}

void EventBox::setCallback(wv_event_fn fn, void* user) {
    std::lock_guard<std::mutex> guard(mLock);
    mFn = fn;
    mUser = user;
}

template <class Ready>
bool EventBox::waitFor(std::unique_lock<std::mutex>& lock, int timeoutMs, Ready ready) {
    if (timeoutMs < 0) {
        mChanged.wait(lock, ready);
        return true;
    }
    return mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready);
}

int EventBox::next(wv_event_record* out, int timeoutMs) {
    if (out == nullptr) return WV_ERR_OUT_OF_RANGE;
    std::unique_lock<std::mutex> lock(mLock);
    if (!waitFor(lock, timeoutMs, [this] { return !mQueue.empty(); })) return 0;
    *out = mQueue.front();
    mQueue.pop_front();
    return 1;
}

void EventBox::jobStarted(int32_t id) {
    std::lock_guard<std::mutex> guard(mLock);
    ++mJobs[id].started;
}

int EventBox::wait(int32_t id, int timeoutMs, wv_event_record* ending) {
    std::unique_lock<std::mutex> lock(mLock);
    auto found = mJobs.find(id);
    if (found == mJobs.end() || found->second.started == 0) return WV_ERR_WRONG_ITEM;
    // An ending may come before its start is counted (the job ran while the
    // starting call returned): counts, not order, decide.
    const uint64_t awaited = found->second.started;
    const bool ended =
        waitFor(lock, timeoutMs, [this, id, awaited] { return mJobs[id].ended >= awaited; });
    if (!ended) return 0;
    if (ending != nullptr) *ending = mJobs[id].last;
    return 1;
}

}  // namespace wvc
