// The worker that delivers client events. Workers never call the client
// directly: they post events here (through the engine's notifyClient), and
// this loop calls the client callback, one event at a time, on whichever
// thread the client lent or let the engine start.
#pragma once

#include <atomic>

#include "threads/EngineHooks.h"
#include "threads/WVCmdThread.h"

namespace wv {

// The client callback: (event code, item id, value, NULL, NULL).
typedef void (*ClientCallback)(int, int, int, char*, void*);

// Event codes of the callback.
enum : uint32_t {
    EVT_LOAD_FAILED = 0,
    EVT_LOAD_PROGRESS = 3,
    EVT_LOAD_DONE = 4,
    EVT_LOAD_CANCELLED = 5,
    EVT_LOAD_STARTED = 6,
    EVT_LOAD_NO_SPACE = 7,
    EVT_RENDER_FAILED = 20,
    EVT_RENDER_PROGRESS = 21,
    EVT_RENDER_DONE = 22,
    EVT_RENDER_CANCELLED = 23,
    EVT_RENDER_STOPPED = 25,
    EVT_PLAY_FAILED = 40,
    EVT_PLAY_END = 42,
    EVT_RECORD_FAILED = 60,
    EVT_RECORD_STARTED = 61,
    EVT_RECORD_ENDED = 63,
    EVT_RECORD_NO_SPACE = 64,
    EVT_RECORD_RESUMED = 65,
    EVT_RECORD_PAUSED = 66,
    EVT_RECORD_LOST_AUDIO = 67,
    EVT_RECORD_LEVEL = 80,
};

class JavaCallbackThread : public WVCmdThread {
public:
    explicit JavaCallbackThread(EngineHooks* editor) : mEditor(editor) {}
    ~JavaCallbackThread() override = default;

    // Null switches delivery off: events are then taken and dropped.
    void setCallback(ClientCallback callback) { mCallback.store(callback, std::memory_order_release); }
    ClientCallback callback() const { return mCallback.load(std::memory_order_acquire); }

    // Posts an event: dropped when it is a waveform level and no loop runs,
    // else queued after delayMs (0: at once, in posting order).
    void notify(const WVThreadCmd& event, int32_t delayMs);

protected:
    void procCmd(WVThreadCmd& event) override;

private:
    EngineHooks* mEditor;
    std::atomic<ClientCallback> mCallback{nullptr};
};

// The engine's periodic housekeeping: a dump now and every 300,000 ms.
class DaemonThread : public WVCmdThread {
public:
    static constexpr uint32_t kPeriodMs = 300000;
    explicit DaemonThread(EngineHooks* editor) : mEditor(editor) {}

protected:
    void procCmd(WVThreadCmd& cmd) override;

private:
    EngineHooks* mEditor;
};

}  // namespace wv
