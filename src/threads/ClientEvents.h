// The events the engine reports to its client, and the one way every worker
// posts them.
#pragma once

#include <cstdint>

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
    EVT_LOUDNESS_INTEGRATED = 26,
    EVT_LOUDNESS_TRUE_PEAK = 27,
    EVT_LOUDNESS_RANGE = 28,
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

// Where workers and players post client events. The engine implements it by
// queueing on its ClientCallbackThread; implementations are callable from
// any thread.
class EventSink {
public:
    // Posts `event` (code, item id, value): at once (delayMs 0) or after
    // delayMs milliseconds.
    virtual void notifyClient(WVThreadCmd event, int32_t delayMs) = 0;

protected:
    ~EventSink() = default;
};

}  // namespace wv
