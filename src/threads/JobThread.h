// What every job worker (decoder, encoder, recorder) shares: a job is started
// by command 1 and carried on by commands 2 that hold its context in `data`
// (a start command may carry it too); the worker names the item it serves; a
// command dropped at shutdown frees the job it carries. How a job runs,
// pauses and ends is each worker's own (see ChunkedJobThread for the decoder
// and the encoder).
#pragma once

#include <atomic>
#include <cstdint>

#include "threads/WVCmdThread.h"

namespace wv {

class JobThread : public WVCmdThread {
public:
    static constexpr uint32_t kCmdStart = 1;
    static constexpr uint32_t kCmdContinue = 2;

    // The item of the job being served; 0 before the first. Whether it is
    // kept between commands is the worker's choice.
    uint32_t currentId() const { return mCurrentId.load(std::memory_order_relaxed); }

protected:
    // Whether item `id` is registered.
    virtual bool isRegistered(uint32_t id) = 0;
    // Frees the job a command carries (never null), with whatever it holds.
    virtual void deleteJob(void* job) = 0;
    // Frees the job the command carries, if any. Tells nobody.
    void onCmdDiscard(WVThreadCmd& cmd) override;

    void setCurrentId(uint32_t id) { mCurrentId.store(id, std::memory_order_relaxed); }

private:
    std::atomic<uint32_t> mCurrentId{0};
};

}  // namespace wv
