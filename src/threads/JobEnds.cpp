#include "threads/JobEnds.h"

#include <chrono>

#include "threads/ClientEvents.h"

namespace wv {
namespace {

thread_local bool tDelivering = false;

// The kind of job that `code` ends, as an index of Entry::kinds; -1 for none.
int endedKind(uint32_t code) {
    switch (code) {
        case EVT_LOAD_FAILED:
        case EVT_LOAD_DONE:
        case EVT_LOAD_CANCELLED:
        case EVT_LOAD_NO_SPACE: return 0;
        case EVT_RENDER_FAILED:
        case EVT_RENDER_DONE:
        case EVT_RENDER_CANCELLED:
        case EVT_RENDER_STOPPED:
        case EVT_LOUDNESS_RANGE:
        case EVT_SILENCES: return 1;
        default: return -1;
    }
}

}  // namespace

JobEnds::Delivering::Delivering() { tDelivering = true; }
JobEnds::Delivering::~Delivering() { tDelivering = false; }

void JobEnds::begin(uint32_t id, Kind kind) {
    std::lock_guard<std::mutex> hold(mLock);
    Jobs& jobs = mItems[id].kinds[kind == kLoad ? 0 : 1];
    jobs.begun = true;
    ++jobs.running;
}

void JobEnds::handingOut(uint32_t code, uint32_t id, int32_t value) {
    const int kind = endedKind(code);
    if (kind < 0) return;
    {
        std::lock_guard<std::mutex> hold(mLock);
        auto found = mItems.find(id);
        if (found == mItems.end()) return;
        Jobs& jobs = found->second.kinds[kind];
        // An ending with no job begun counts for none.
        if (jobs.running == 0) return;
        --jobs.running;
        jobs.code = static_cast<int32_t>(code);
        jobs.value = value;
        jobs.order = ++mEndings;
    }
    mEnded.notify_all();
}

int32_t JobEnds::state(const Entry& entry, int32_t kinds, int32_t* value) {
    const Jobs* last = nullptr;
    bool begun = false;
    for (int k = 0; k < 2; ++k) {
        if ((kinds & (1 << k)) == 0 || !entry.kinds[k].begun) continue;
        const Jobs& jobs = entry.kinds[k];
        begun = true;
        if (jobs.running > 0) return kNotYet;
        if (last == nullptr || jobs.order > last->order) last = &jobs;
    }
    if (!begun) return kNoJob;
    if (value != nullptr) *value = last->value;
    return last->code;
}

int32_t JobEnds::wait(uint32_t id, int32_t kinds, int32_t timeoutMs, int32_t* value) {
    std::unique_lock<std::mutex> hold(mLock);
    // Looked up each time: another item's first job may move the entries.
    auto now = [&] {
        auto found = mItems.find(id);
        return found == mItems.end() ? int32_t(kNoJob) : state(found->second, kinds, value);
    };
    int32_t answer = now();
    if (answer != kNotYet || tDelivering || timeoutMs == 0) return answer;
    auto ended = [&] { return (answer = now()) != kNotYet; };
    if (timeoutMs < 0) {
        mEnded.wait(hold, ended);
    } else {
        mEnded.wait_for(hold, std::chrono::milliseconds(timeoutMs), ended);
    }
    return answer;
}

}  // namespace wv
