// The events the engine reports to its client, and the one way every worker
// posts them.
#pragma once

#include <cstdint>

#include <wavoryx/Wavoryx.h>

#include "threads/WVCmdThread.h"

namespace wv {

// The client callback: (event code, item id, value, NULL, NULL).
typedef void (*ClientCallback)(int, int, int, char*, void*);

// Event codes of the callback: the public names, under the workers' own.
enum : uint32_t {
    EVT_LOAD_FAILED = WV_EVENT_LOAD_FAILED,
    EVT_LOAD_PROGRESS = WV_EVENT_LOAD_PROGRESS,
    EVT_LOAD_DONE = WV_EVENT_LOAD_DONE,
    EVT_LOAD_CANCELLED = WV_EVENT_LOAD_CANCELLED,
    EVT_LOAD_STARTED = WV_EVENT_LOAD_STARTED,
    EVT_LOAD_NO_SPACE = WV_EVENT_LOAD_NO_SPACE,
    EVT_LOAD_DAMAGED = WV_EVENT_LOAD_DAMAGED,
    EVT_RENDER_FAILED = WV_EVENT_RENDER_FAILED,
    EVT_RENDER_PROGRESS = WV_EVENT_RENDER_PROGRESS,
    EVT_RENDER_DONE = WV_EVENT_RENDER_DONE,
    EVT_RENDER_CANCELLED = WV_EVENT_RENDER_CANCELLED,
    EVT_RENDER_STOPPED = WV_EVENT_RENDER_STOPPED,
    EVT_LOUDNESS_INTEGRATED = WV_EVENT_LOUDNESS,
    EVT_LOUDNESS_TRUE_PEAK = WV_EVENT_TRUE_PEAK,
    EVT_LOUDNESS_RANGE = WV_EVENT_LOUDNESS_RANGE,
    EVT_SILENCES = WV_EVENT_SILENCES,
    EVT_PLAY_FAILED = WV_EVENT_PLAY_FAILED,
    EVT_PLAY_END = WV_EVENT_PLAY_END,
    EVT_PLAY_WAITING = WV_EVENT_PLAY_WAITING,
    EVT_PLAY_RESUMED = WV_EVENT_PLAY_RESUMED,
    EVT_RECORD_FAILED = WV_EVENT_RECORD_FAILED,
    EVT_RECORD_STARTED = WV_EVENT_RECORD_STARTED,
    EVT_RECORD_ENDED = WV_EVENT_RECORD_ENDED,
    EVT_RECORD_NO_SPACE = WV_EVENT_RECORD_NO_SPACE,
    EVT_RECORD_RESUMED = WV_EVENT_RECORD_RESUMED,
    EVT_RECORD_PAUSED = WV_EVENT_RECORD_PAUSED,
    EVT_RECORD_LOST_AUDIO = WV_EVENT_RECORD_LOST_AUDIO,
    EVT_RECORD_LEVEL = WV_EVENT_RECORD_LEVEL,
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
