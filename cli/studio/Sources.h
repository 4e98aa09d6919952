// The files the page opened, each loaded once into the engine (a second
// open of the same file gives the same source), with what their loads have
// reached, told to the pages as `load` events at most ten times a second.
#ifndef WAVORYX_CLI_STUDIO_SOURCES_H
#define WAVORYX_CLI_STUDIO_SOURCES_H

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

class Wavoryx;

namespace wvstudio {

struct StudioFile;

class Sources {
public:
    explicit Sources(Wavoryx& engine) : mEngine(engine) {}

    // The source of `file`, its load started now unless it was before;
    // 0 with `why` set when the engine refuses it.
    int open(const StudioFile& file, std::string& why);
    // Registers an item loaded elsewhere (a take) as the source of `file`.
    void adopt(int id, const StudioFile& file);
    // The source object of the API; false for an unknown id.
    bool describe(int id, std::string& json);
    bool known(int id) const;
    // The id of the file the source was opened from; "" for none.
    std::string fileOf(int id) const;
    // Rate and channels once known (false before the load began).
    bool format(int id, int& rate, int& channels) const;
    // Whether the load ended well.
    bool loaded(int id) const;

    // Takes a load event of the engine (codes 0, 3, 4, 5, 6, 7) about a
    // source: true, with the `load` event's data when one is due.
    bool take(int code, int id, int value, std::string& loadEvent);
    // Cancels every load still running.
    void cancelAll();

private:
    struct State {
        std::string file;
        std::string name;
        bool begun = false;
        bool done = false;
        std::string error;
        std::chrono::steady_clock::time_point told;
    };
    std::string describeLocked(int id, const State& state);
    std::string loadEventLocked(int id, const State& state);

    Wavoryx& mEngine;
    mutable std::mutex mLock;
    std::map<int, State> mStates;
    std::map<std::string, int> mByFile;
};

}  // namespace wvstudio

#endif
