// Clip lists the page asks for, built in the engine as `wavoryx edit` builds
// them (ranges in frames, per-clip gain and fades, a crossfade at the
// joins, equal-power shapes, the high-quality converter, the rate and
// channels the clips suggest), and read back through the engine as a WAV
// stream whose bytes are those of the list's WAV render. The 32 most recent
// lists are kept.
#ifndef WAVORYX_CLI_STUDIO_LISTS_H
#define WAVORYX_CLI_STUDIO_LISTS_H

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "studio/HttpServer.h"

class Wavoryx;

namespace wvstudio {

class Sources;
struct JsonValue;

// One list as the page describes it: {"clips":[...],"crossfade":s}.
struct ListPlan {
    struct Clip {
        int source = 0;
        uint32_t start = 0;
        uint32_t end = 0;
        int gainMillibels = 0;
        uint32_t fadeInMs = 0;
        uint32_t fadeOutMs = 0;
    };
    std::vector<Clip> clips;
    uint32_t crossfadeMs = 0;
};

// Reads the plan from a request body; false with `why` for a bad one
// (unknown sources included).
bool readPlan(const JsonValue& body, const Sources& sources, ListPlan& plan, std::string& why);
// Makes the engine's list of `plan`; returns its id, or 0 with `why`.
// The output settings (format, bit rate, loudness) are the caller's.
int buildList(Wavoryx& engine, const ListPlan& plan, std::string& why);

class Lists {
public:
    Lists(Wavoryx& engine, Sources& sources) : mEngine(engine), mSources(sources) {}

    // POST /api/list: the reply's status and JSON.
    void make(const JsonValue& body, HttpReply& reply);
    // GET /api/list/NAME.wav
    void stream(const std::string& file, HttpReply& reply);

private:
    // The engine's list goes with the last reply that reads it.
    struct List {
        explicit List(Wavoryx& e) : engine(e) {}
        ~List();
        List(const List&) = delete;
        List& operator=(const List&) = delete;
        Wavoryx& engine;
        std::string name;  // "L3"
        int id = 0;
        int rate = 0;
        int channels = 0;
        uint64_t frames = 0;
    };
    std::shared_ptr<List> find(const std::string& name);
    // The frames the list hands out: as the engine tells them, or from the
    // plan when that is exact, else counted by reading the list once.
    bool countFrames(List& list, const ListPlan& plan, std::string& why);

    Wavoryx& mEngine;
    Sources& mSources;
    std::mutex mLock;
    std::deque<std::shared_ptr<List>> mLists;
    int mNext = 1;
};

}  // namespace wvstudio

#endif
