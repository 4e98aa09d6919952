// The worker that delivers client events. Workers never call the client
// directly: they post events here (through the engine's notifyClient), and
// this loop calls the client callback, one event at a time, on whichever
// thread the client lent or let the engine start.
#pragma once

#include <mutex>

#include "threads/ClientEvents.h"
#include "threads/EngineHooks.h"
#include "threads/JobEnds.h"
#include "threads/WVCmdThread.h"

namespace wv {

class ClientCallbackThread : public WVCmdThread, public EventSink {
public:
    explicit ClientCallbackThread(EngineHooks* engine) : mEngine(engine) {}
    ~ClientCallbackThread() override = default;

    // Null switches delivery off: events are then taken and dropped. The
    // pair changes at once, so no event reaches one callback with the
    // other's data (an engine per language binding tells its events apart
    // by the data alone).
    void setCallback(ClientCallback callback, void* user = nullptr) {
        std::lock_guard<std::mutex> guard(mTargetLock);
        mCallback = callback;
        mUser = user;
    }

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
    std::mutex mTargetLock;
    ClientCallback mCallback = nullptr;
    void* mUser = nullptr;
    JobEnds mJobEnds;
};

}  // namespace wv
