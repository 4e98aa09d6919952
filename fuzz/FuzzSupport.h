// What the fuzz targets share: a scratch directory, the events of the
// engine's client callback, and waits that turn a job that never ends, or
// ends twice, into a crash, so that the fuzzer keeps the input that did it.
//
// Everything here drives the engine through its public API only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "EventRecorder.h"

namespace wvfuzz {

// Prints the message and aborts: libFuzzer then saves the input.
[[noreturn]] void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A fresh directory under $TMPDIR (or /tmp); removed with its contents.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;
    const std::string& path() const { return mPath; }
    std::string prefix() const { return mPath + "/"; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }
    // Removes everything inside, keeping the directory.
    void empty() const;

private:
    std::string mPath;
};

bool writeBytes(const std::string& path, const uint8_t* data, size_t size);

using wvtest::Event;

// Which codes end a job of each kind.
bool endsLoad(int code);       // 0, 4, 5, 7
bool endsRender(int code);     // 20, 22, 23, 25
bool endsRecording(int code);  // 63

// How many of `events` are of item `id` and have a code for which `ends`
// holds.
size_t countEndings(const std::vector<Event>& events, int id, bool (*ends)(int));

// The recorder of the callback's events, process-wide: the callback is a
// plain function pointer, so there is one, and it outlives every engine.
wvtest::EventRecorder& eventLog();

// An engine with the log's callback and its loop running, working in `dir`.
class Engine {
public:
    explicit Engine(const std::string& workingDir);
    ~Engine();  // stops the loop, then destroys the engine
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    Wavoryx& api() { return *mApi; }

    // The ending event of the one job of item `id`; fails (aborts) when none
    // comes within `timeout` or when there are more than one.
    Event waitForEnding(int id, bool (*ends)(int), std::chrono::milliseconds timeout = std::chrono::seconds(20));

private:
    Wavoryx* mApi;
};

// The ending of a whole-file render of a one-clip list over item `sourceId`
// into `outPath` as WAV, at `sampleRate` (0: the source's) and in stereo
// when asked; the list is removed again. Returns the ending code.
int renderWhole(Engine& engine, int sourceId, const std::string& outPath, int sampleRate = 0, bool stereo = false);

// The one `State` of the fuzzing process, made at the first input and
// destroyed at exit, so its engine stops and its files go before the
// sanitizers look for leaks.
template <typename State>
State& processState() {
    static State* state = nullptr;
    if (state == nullptr) {
        state = new State();
        std::atexit([] {
            delete state;
            state = nullptr;
        });
    }
    return *state;
}

}  // namespace wvfuzz
