// OrderedWorkers: segments of one job done on a pool of worker threads and
// handed back strictly in the order they were given.
//
// Threads: `threads` workers (one at least) start in the constructor; each
// makes its own `State` (default-constructed, destroyed on that thread when
// it ends) and calls `work` on one segment at a time, outside the lock.
// Every other operation is the owner's, from one thread.
//
// Order: segments are numbered as dispatch() takes them; collect() passes
// them on by that number only, whichever worker finished first.
//
// Stop: the destructor stops the pool and joins every worker. Queued
// segments are dropped; a segment being worked on is finished or left at
// the worker's own look at stopped(), its result unused.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace wv {

struct NoWorkerState {};

// What OrderedWorkers::collect() waits for first: nothing, room to dispatch
// more (see mostInFlight()), or every segment dispatched.
enum class WaitFor { kNothing, kRoom, kAll };

template <typename Segment, typename State = NoWorkerState>
class OrderedWorkers {
public:
    // Does `segment` on a worker; false when it failed.
    using Work = std::function<bool(State&, Segment&)>;

    OrderedWorkers(int threads, Work work) : mWork(std::move(work)) {
        for (int i = std::max(1, threads); i > 0; --i) mWorkers.emplace_back([this] { workerLoop(); });
    }
    ~OrderedWorkers() {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mStop = true;
        }
        mQueued.notify_all();
        for (std::thread& worker : mWorkers) worker.join();
    }

    // Segments given so far, and passed on by collect().
    size_t dispatched() const { return mDispatched; }
    size_t collected() const { return mCollected; }
    // Twice the workers: collect(WaitFor::kRoom) waits while more than this
    // are dispatched and not collected, so that the input held is bounded.
    size_t mostInFlight() const { return 2 * mWorkers.size(); }

    // Queues `segment` as number dispatched().
    void dispatch(std::unique_ptr<Segment> segment) {
        std::lock_guard<std::mutex> guard(mLock);
        Slot& slot = mSlots[mDispatched++];
        slot.segment = std::move(segment);
        mQueue.push_back(&slot);
        mQueued.notify_one();
    }

    // Passes every finished segment, in order, to `take`. False when a
    // segment's work or `take` failed.
    template <typename Take>
    bool collect(WaitFor wait, const Take& take) {
        while (mCollected < mDispatched) {
            std::unique_ptr<Segment> segment;
            bool ok = false;
            {
                std::unique_lock<std::mutex> lock(mLock);
                auto found = mSlots.find(mCollected);
                if (!found->second.done) {
                    const bool full = mDispatched - mCollected > mostInFlight();
                    if (wait == WaitFor::kNothing || (wait == WaitFor::kRoom && !full)) return true;
                    mDone.wait(lock, [&] { return found->second.done; });
                }
                segment = std::move(found->second.segment);
                ok = found->second.ok;
                mSlots.erase(found);
            }
            ++mCollected;
            if (!ok || !take(std::move(segment))) return false;
        }
        return true;
    }

    // True once the pool is being deleted: work in progress may end early.
    bool stopped() {
        std::lock_guard<std::mutex> guard(mLock);
        return mStop;
    }

private:
    struct Slot {
        std::unique_ptr<Segment> segment;
        bool done = false, ok = false;
    };

    void workerLoop() {
        State state;
        std::unique_lock<std::mutex> lock(mLock);
        for (;;) {
            mQueued.wait(lock, [this] { return mStop || !mQueue.empty(); });
            if (mStop) return;
            Slot* slot = mQueue.front();
            mQueue.pop_front();
            lock.unlock();
            const bool ok = mWork(state, *slot->segment);
            lock.lock();
            slot->ok = ok;
            slot->done = true;
            mDone.notify_all();
        }
    }

    const Work mWork;
    size_t mDispatched = 0;
    size_t mCollected = 0;

    std::mutex mLock;
    std::condition_variable mQueued;
    std::condition_variable mDone;
    std::deque<Slot*> mQueue;
    std::map<size_t, Slot> mSlots;  // std::map: a slot stays where it is while others come and go
    bool mStop = false;
    std::vector<std::thread> mWorkers;
};

}  // namespace wv
