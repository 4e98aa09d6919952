// Which items have a job under way and how each item's last job of each
// kind ended, as the client callback loop hands the events out: what
// Wavoryx::waitForJob waits on.
//
// Two kinds, told apart by their ending events: a load (0, 4, 5, 7) and an
// encoder job, render, loudness measurement or silence scan (20, 22, 23, 25,
// 28, 29). A job counts from begin(), called before its first command is
// posted (so that its ending event cannot come first), to the hand-out of its
// one ending event. An item may have several at once (a loaded file measured
// while it loads, a list rendered and measured): a wait lasts until all of
// the kinds asked for have ended, and the last ending is the answer.
// Every method may be called from any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace wv {

class JobEnds {
public:
    enum Kind : int32_t { kLoad = 1, kEncode = 2 };
    enum : int32_t { kNoJob = -2, kNotYet = -5 };

    void begin(uint32_t id, Kind kind);
    // When the loop takes event (code, id, value) to hand it to the
    // callback (or to drop it, with no callback set). Codes that end no
    // job are ignored.
    void handingOut(uint32_t code, uint32_t id, int32_t value);
    // The ending code of the item's last job of `kinds` (a mask of Kind)
    // once every such job has ended, and its value in *value when not null;
    // kNoJob when the item never had one; kNotYet when one still runs after
    // timeoutMs (< 0: no limit). On the delivering thread it only looks: no
    // event can be handed out while it waits there.
    int32_t wait(uint32_t id, int32_t kinds, int32_t timeoutMs, int32_t* value);

    // Marks the calling thread as the delivering one while it lives.
    class Delivering {
    public:
        Delivering();
        ~Delivering();
        Delivering(const Delivering&) = delete;
        Delivering& operator=(const Delivering&) = delete;
    };

private:
    struct Jobs {
        int32_t running = 0;
        bool begun = false;
        int32_t code = kNotYet;
        int32_t value = 0;
        uint64_t order = 0;  // of the ending among all endings
    };
    struct Entry {
        Jobs kinds[2];  // kLoad, kEncode
    };
    // The state of `kinds` of `entry`: kNoJob, kNotYet or the ending code.
    static int32_t state(const Entry& entry, int32_t kinds, int32_t* value);

    std::mutex mLock;
    std::condition_variable mEnded;
    std::unordered_map<uint32_t, Entry> mItems;
    uint64_t mEndings = 0;
};

}  // namespace wv
