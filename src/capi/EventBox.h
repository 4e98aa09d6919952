// What the C API keeps of an engine's events: the callback and its data,
// or the queue a caller pulls from while no callback is set.
#pragma once

#include <wavoryx/wavoryx_c.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>

namespace wvc {

class EventBox {
public:
    static constexpr size_t kQueueLimit = 65536;

    // On the engine's event thread.
    void deliver(const wv_event_record& event);
    // Only then are events queued (a callback takes them otherwise).
    void setCallback(wv_event_fn fn, void* user);

    int next(wv_event_record* out, int timeoutMs);

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<wv_event_record> mQueue;
    wv_event_fn mFn = nullptr;
    void* mUser = nullptr;
};

}  // namespace wvc
