// An engine that records from a file through the "file:PATH" input, sped up,
// with its client callback collected; and small helpers over its events.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include <wavoryx/platform.h>

#include "TestSupport.h"
#include "Wait.h"
#include "engine/WavoryxPriv.h"

namespace rectest {

using wvtest::waitUntil;

// Sets the input ("file:" and `path`, or `path` itself when it is another
// input such as "tone:440") and the pace for its lifetime.
class FileInput {
public:
    FileInput(const std::string& path, const char* pace) {
        setenv("WAVORYX_DEVICE_PACE", pace, 1);
        const bool named = path.rfind("tone:", 0) == 0 || path == "silence";
        mSelected = wavoryx_set_audio_input(((named ? "" : "file:") + path).c_str()) == 0;
    }
    ~FileInput() {
        wavoryx_set_audio_input(nullptr);
        unsetenv("WAVORYX_DEVICE_PACE");
    }
    bool selected() const { return mSelected; }

private:
    bool mSelected = false;
};

// The events recorder outlives the engine, which runs its loop at once.
struct RecordingEngine {
    explicit RecordingEngine(const std::string& workingDir) {
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.setWorkingDir(workingDir.c_str());
        engine.startThreadLoop(0);
    }
    ~RecordingEngine() { engine.stopThreadLoop(); }

    // Waits until item `id` holds at least `frames` frames.
    bool waitForFrames(uint32_t id, int32_t frames) {
        return waitUntil([&] { return engine.getPcmFrameLength(id) >= frames; });
    }
    bool waitForCode(int code, int id) { return events.waitForCode(code, id); }

    wvtest::EventRecorder events;
    WavoryxPriv engine;
};

// The codes of `events` other than waveform levels, in order.
inline std::vector<int> controlCodes(const std::vector<wvtest::Event>& events) {
    std::vector<int> codes;
    for (const auto& e : events) {
        if (e.code != 80) codes.push_back(e.code);
    }
    return codes;
}

inline size_t countCode(const std::vector<wvtest::Event>& events, int code) {
    size_t n = 0;
    for (const auto& e : events) n += e.code == code;
    return n;
}

}  // namespace rectest
