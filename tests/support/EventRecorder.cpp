#include "EventRecorder.h"

#include <atomic>

namespace wvtest {

namespace {
std::atomic<EventRecorder*> gActiveRecorder{nullptr};
}

EventRecorder::EventRecorder() { gActiveRecorder.store(this); }

EventRecorder::~EventRecorder() {
    EventRecorder* self = this;
    gActiveRecorder.compare_exchange_strong(self, nullptr);
}

void EventRecorder::callback(int code, int id, int value, char*, void*) {
    EventRecorder* recorder = gActiveRecorder.load();
    if (recorder == nullptr) return;
    std::lock_guard<std::mutex> guard(recorder->mLock);
    recorder->mEvents.push_back({code, id, value});
    recorder->mThreads.push_back(std::this_thread::get_id());
    recorder->mChanged.notify_all();
}

std::vector<Event> EventRecorder::events() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mEvents;
}

std::vector<std::thread::id> EventRecorder::threads() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mThreads;
}

bool EventRecorder::waitFor(const std::function<bool(const std::vector<Event>&)>& pred,
                            std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> guard(mLock);
    return mChanged.wait_for(guard, timeout, [&] { return pred(mEvents); });
}

bool EventRecorder::waitForCode(int code, int id, std::chrono::milliseconds timeout) const {
    return waitFor(
        [&](const std::vector<Event>& events) {
            for (const auto& e : events) {
                if (e.code == code && (id < 0 || e.id == id)) return true;
            }
            return false;
        },
        timeout);
}

void EventRecorder::clear() {
    std::lock_guard<std::mutex> guard(mLock);
    mEvents.clear();
    mThreads.clear();
}

}  // namespace wvtest
