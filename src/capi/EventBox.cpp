#include "capi/EventBox.h"

#include <chrono>

namespace wvc {

void EventBox::deliver(const wv_event_record& event) {
    wv_event_fn fn;
    void* user;
    {
        std::lock_guard<std::mutex> guard(mLock);
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

int EventBox::next(wv_event_record* out, int timeoutMs) {
    if (out == nullptr) return WV_ERR_OUT_OF_RANGE;
    std::unique_lock<std::mutex> lock(mLock);
    const auto ready = [this] { return !mQueue.empty(); };
    if (timeoutMs < 0) {
        mChanged.wait(lock, ready);
    } else if (!mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready)) {
        return 0;
    }
    *out = mQueue.front();
    mQueue.pop_front();
    return 1;
}

}  // namespace wvc
