// An engine driven through the public API for fault tests: its callback
// loop runs on its own thread, its events are collected, and its jobs are
// judged by their ending events. Inputs and outputs are the paced clock
// devices ("tone:440" in, "null" out) unless a test installs its own.
#pragma once

#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "TestSupport.h"

namespace faulttest {

using wvtest::namesIn;

using wvtest::Event;

// The codes that end a job of each kind. A failed recording start ends with
// 60 alone when the input cannot be opened (the client still stops it).
const std::vector<int> kLoadEndings = {0, 4, 5, 7};
const std::vector<int> kRenderEndings = {20, 22, 23, 25};
const std::vector<int> kRecordEndings = {63};

inline bool isOneOf(int code, const std::vector<int>& codes) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

// The events of item `id` whose code is one of `codes`.
inline std::vector<Event> eventsOf(const std::vector<Event>& events, int id, const std::vector<int>& codes) {
    std::vector<Event> out;
    for (const Event& e : events) {
        if (e.id == id && isOneOf(e.code, codes)) out.push_back(e);
    }
    return out;
}

class FaultEngine {
public:
    explicit FaultEngine(const std::string& workingDir) {
        setenv("WAVORYX_DEVICE_PACE", "8", 1);
        wavoryx_set_audio_input("tone:440");
        wavoryx_set_audio_output("null");
        api.setWorkingDir(workingDir.c_str());
        api.setCallback(wvtest::EventRecorder::callback);
        api.startThreadLoop(0);
    }
    ~FaultEngine() {
        api.stopThreadLoop();
        wavoryx_set_audio_input(nullptr);
        wavoryx_set_audio_output(nullptr);
        unsetenv("WAVORYX_DEVICE_PACE");
    }
    FaultEngine(const FaultEngine&) = delete;
    FaultEngine& operator=(const FaultEngine&) = delete;

    // Waits for the first ending of job `id`, then a little longer so that
    // a second one would be seen; returns every ending the job had.
    std::vector<Event> endingsOf(int id, const std::vector<int>& codes) {
        events.waitFor([&](const std::vector<Event>& seen) { return !eventsOf(seen, id, codes).empty(); });
        events.waitFor([](const std::vector<Event>&) { return false; }, std::chrono::milliseconds(300));
        return eventsOf(events.events(), id, codes);
    }
    // A load of `path` that has finished; 0 when it did not.
    int loaded(const std::string& path) {
        const int id = api.loadFile(path.c_str());
        const std::vector<Event> ends = endingsOf(id, kLoadEndings);
        return ends.size() == 1 && ends[0].code == 4 ? id : 0;
    }
    // A clip list of all of item `id`, rendered to `out`.
    int renderAll(int id, const std::string& out, encode_type type) {
        const int list = api.newClipList();
        if (api.addClip(list, id, 0, 0x7FFFFFFF) <= 0) return 0;
        if (api.setOutputPara(list, out.c_str(), type) != 0 || api.process(list) != 0) return 0;
        return list;
    }

    wvtest::EventRecorder events;  // outlives the engine's callbacks
    Wavoryx api;
};

}  // namespace faulttest
