// What `wavoryx info --loudness` tells of a source: its container and codec,
// rate, channels, duration, bit rate and tags, and the loudness measured on
// request (integrated, range, true peak), announced by a `loudness` event.
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
};

}  // namespace wvstudio

#endif
