// One engine driven for a given time through the public API only: loads,
// renders, playback and recordings at once, with random cancels, removals,
// pauses, seeks and speed changes. After every job the driver checks its
// events (exactly one ending), the files it left in the working and output
// directories, and between rounds that the process's memory stays flat.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "SoakLog.h"

namespace soak {

struct Options {
    double seconds = 10;
    uint64_t seed = 0;
    std::string sources;  // folder of source audio (see scripts/soak)
    std::string dir;      // scratch folder: pcm/, out/ and tap/ are made in it
    double slow = 1;      // time-out factor, e.g. for a sanitizer build
    double pace = 8;      // WAVORYX_DEVICE_PACE the devices run at
    double roundSeconds = 60;
    long rssLimitKb = 16 * 1024;  // allowed growth after warm-up
    bool verbose = false;
    std::string command;  // the wavoryx command, run with closed descriptors; none when empty
};

struct Counters {
    std::map<std::string, long> jobs;  // "load ok", "render cancelled", ...
    long faultsInjected = 0;
    long faultsSurvived = 0;
};

class Driver {
public:
    explicit Driver(const Options& options);
    ~Driver();
    // Runs for the configured time; returns the number of violations.
    int run();
    void printSummary() const;

private:
    struct Source {
        std::string path;
        bool bad;
        bool inPlace;
    };
    // Every item the driver made and has not yet removed.
    struct Item {
        enum Type { LOADED, LIST, RECORDING } type = LOADED;
        bool inPlace = false;              // read in place: no working file
        bool bad = false;                  // a source the engine must refuse
        bool loadEnded = false;            // the load job has its ending
        bool ready = false;                // ended with 4: playable, usable in lists
        bool busy = false;                 // a job still runs on it
        bool removed = false;              // removePcm done, waits for its jobs
        int listUses = 0;                  // live lists with a clip of it
        std::vector<int> sources;          // lists: the items clipped
        std::vector<std::string> outputs;  // files the driver deletes with it
    };
    struct LoadJob {
        int id;
        bool bad;
        bool missing;
        int action;
        double actAt;
        bool acted;
        double start;
        bool hangCancelled;
        int faults;
    };
    struct RenderJob {
        int id;
        double cancelAt;
        bool cancelled;
        double start;
        std::string output;
        int type;
        int faults;
    };
    struct PlayJob {
        int id = 0;
        int mode = 0;
        int phase = 0;
        double nextAt = 0;
        double endBy = 0;
        int rearms = 0;
        int endsBefore = 0;
        int endsAtStart = 0;
        int durationMs = 0;
        bool itemGone = false;
        int faults = 0;
    };
    struct RecordJob {
        int id = 0;
        int phase = 0;
        double stopAt = 0;
        double nextAt = 0;
        double start = 0;
        std::string output;
        int type = 0;
        int effect = 0;
        bool earlyStop = false;
        int faults = 0;
        bool paused = false;
    };
    // A run of the command (SoakCommand.cpp).
    struct CommandJob {
        pid_t pid = 0;
        pid_t feeder = 0;  // the process feeding its standard input, if any
        int closed = 0;    // the standard descriptor closed for it
        int variant = 0;   // 0 file to file, 1 file to standard output, 2 standard input to file
        double start = 0;
        std::string work, output, errors, source;
    };
    struct Gone {
        std::string path;
        double deadline;
    };

    // Driver.cpp: the round loop and the bookkeeping of items and files.
    bool runRound(double until);
    void drain();
    void checkQuiet();
    void sampleMemory(bool afterWarmUp);
    void removeItem(int id, bool fault);
    void releaseIfFree(int id);
    void pollGone();
    void violation(const std::string& text);
    void fault(const std::string& what);
    void count(const std::string& what) { ++mCounters.jobs[what]; }
    int randInt(int lo, int hi);  // inclusive
    bool chance(double p);
    double timeout(double seconds) const { return seconds * mOptions.slow; }
    std::string workFile(int id, const char* ext) const;
    int pickReadyItem(bool includeLists);
    void sampleWaveform();

    // Jobs.cpp: one start and one poll per kind of job.
    void startLoad();
    void pollLoads();
    void finishLoad(LoadJob& job, int finalCode);
    void startRender();
    void pollRenders();
    void finishRender(RenderJob& job, int finalCode);
    // Whether a loaded file the list clips (directly or through a list) has
    // not finished loading well: a render of it may end with 20.
    bool hasUnreadySource(int list, int depth = 0);
    void startPlay();
    void pollPlay();
    void finishPlay(bool reachedEnd);
    void startRecord();
    void pollRecord();
    void finishRecord();
    void startCommand();
    void pollCommand();

    Options mOptions;
    std::mt19937_64 mRandom;
    EventLog mLog;
    Wavoryx* mEngine = nullptr;
    std::string mWorkDir, mOutDir, mTapDir;
    std::vector<Source> mSources;
    std::map<int, Item> mItems;
    std::vector<LoadJob> mLoads;
    std::vector<RenderJob> mRenders;
    PlayJob mPlay;
    RecordJob mRecord;
    CommandJob mCommand;
    std::vector<Gone> mGone;
    Counters mCounters;
    int mViolations = 0;
    int mOutputSerial = 0;
    bool mDraining = false;
    long mRssStartKb = -1, mRssBaseKb = -1, mRssEndKb = -1, mRssPeakKb = -1;
    int mRounds = 0;
};

}  // namespace soak
