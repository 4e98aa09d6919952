// The worker that delivers client events. Workers never call the client
// directly: they post events here (through the engine's notifyClient), and
// this loop calls the client callback, one event at a time, on whichever
// thread the client lent or let the engine start.
#pragma once

#include <atomic>

#include "threads/ClientEvents.h"
#include "threads/EngineHooks.h"
#include "threads/JobEnds.h"
#include "threads/WVCmdThread.h"

namespace wv {

class ClientCallbackThread : public WVCmdThread, public EventSink {
public:
    explicit ClientCallbackThread(EngineHooks* engine) : mEngine(engine) {}
    ~ClientCallbackThread() override = default;

    // Null switches delivery off: events are then taken and dropped.
    void setCallback(ClientCallback callback) {
        mCallback.store(callback, std::memory_order_release);
    }
    ClientCallback callback() const { return mCallback.load(std::memory_order_acquire); }

    // Posts an event: dropped when it is a waveform level and no loop runs,
    // else queued after delayMs (0: at once, in posting order).
    void notify(const WVThreadCmd& event, int32_t delayMs);
    void notifyClient(WVThreadCmd event, int32_t delayMs) override { notify(event, delayMs); }

    // The jobs whose ending events this loop delivers.
    JobEnds& jobEnds() { return mJobEnds; }

protected:
    void procCmd(WVThreadCmd& event) override;

private:
    EngineHooks* mEngine;
    std::atomic<ClientCallback> mCallback{nullptr};
    JobEnds mJobEnds;
};

}  // namespace wv
