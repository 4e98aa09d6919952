// What `wavoryx info --loudness` tells of a source: its container and codec,
// rate, channels, duration, bit rate and tags, and the loudness measured on
// request (integrated, range, true peak), announced by a `loudness` event,
// and its silences, found on request.
#ifndef WAVORYX_CLI_STUDIO_SOURCEFACTS_H
#define WAVORYX_CLI_STUDIO_SOURCEFACTS_H

#include <climits>
#include <map>
#include <mutex>
#include <string>

class Wavoryx;

namespace wvstudio {

class EventHub;
class Sources;

class SourceFacts {
public:
    SourceFacts(Wavoryx& engine, Sources& sources, EventHub& events)
        : mEngine(engine), mSources(sources), mEvents(events) {}

    // The info object; false (with a status) when there is none yet.
    int describe(int source, const std::string& path, std::string& json);
    // Starts the measurement; the HTTP status.
    int measure(int source);
    // Scans for silences (as `wavoryx silence`) and waits for the scan;
    // `json` gets the reply's object, intervals in the source's frames.
    // The HTTP status: 404 unknown source, 409 refused or failed.
    int silences(int source, int tenthsDb, unsigned minMs, std::string& json);
    // Takes a measurement's events (20, 23, 26, 27, 28): true when it was one.
    bool take(int code, int id, int value);

private:
    struct Loudness {
        bool running = false;
        bool done = false;
        int integrated = INT_MIN;
        int truePeak = INT_MIN;
        int range = INT_MIN;
    };
    Wavoryx& mEngine;
    Sources& mSources;
    EventHub& mEvents;
    std::mutex mLock;
    std::map<int, Loudness> mLoudness;
    // One scan at a time: a new scan of an item forgets the last one's
    // silences, and a waiting request reads them after its own scan.
    std::mutex mScanLock;
};

}  // namespace wvstudio

#endif
