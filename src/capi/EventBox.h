// What the C API keeps of an engine's events: the queue a caller pulls
// from, and each item's job count and last ending, so that a wait for a job
// that has already ended returns at once.
#pragma once

#include <wavoryx/wavoryx_c.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <unordered_map>

namespace wvc {

class EventBox {
public:
    static constexpr size_t kQueueLimit = 65536;

    // On the engine's event thread.
    void deliver(const wv_event_record& event);
    // Only then are events queued (a callback takes them otherwise).
    void setCallback(wv_event_fn fn, void* user);

    int next(wv_event_record* out, int timeoutMs);
    // A job of `id` was started: its ending is awaited from now on.
    void jobStarted(int32_t id);
    int wait(int32_t id, int timeoutMs, wv_event_record* ending);

private:
    struct Jobs {
        uint64_t started = 0;
        uint64_t ended = 0;
        wv_event_record last{};
    };
    template <class Ready>
    bool waitFor(std::unique_lock<std::mutex>& lock, int timeoutMs, Ready ready);

    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<wv_event_record> mQueue;
    std::unordered_map<int32_t, Jobs> mJobs;
    wv_event_fn mFn = nullptr;
    void* mUser = nullptr;
};

bool isEnding(int code);

}  // namespace wvc
