// Recording takes: the engine records the input (WAVORYX_AUDIO_IN applies)
// into the working folder as "take-N.wav", mono at 44.1 kHz as `wavoryx
// record` does by default, with its level events passed on; a stopped take
// becomes a file of the studio and is opened as a source.
#ifndef WAVORYX_CLI_STUDIO_TAKES_H
#define WAVORYX_CLI_STUDIO_TAKES_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "studio/HttpServer.h"

class Wavoryx;

namespace wvstudio {

class EventHub;
class FileRegistry;
class Sources;
struct JsonValue;

class Takes {
public:
    Takes(Wavoryx& engine, Sources& sources, FileRegistry& files, EventHub& events, std::string workDir)
        : mEngine(engine), mSources(sources), mFiles(files), mEvents(events), mWorkDir(std::move(workDir)) {}

    void start(HttpReply& reply);
    void stop(const JsonValue& body, HttpReply& reply);
    // Takes a recording event (60 to 80) of the current take: true when it was one.
    bool take(int code, int id, int value);
    // Stops a take still recording.
    void stopAll();

private:
    Wavoryx& mEngine;
    Sources& mSources;
    FileRegistry& mFiles;
    EventHub& mEvents;
    std::string mWorkDir;
    std::mutex mLock;
    std::condition_variable mEnded;
    int mId = 0;  // the take recording, or stopping
    int mNumber = 0;
    std::string mPath;
    bool mEnd = false;
    int mEndValue = 0;
    int mLevel = 0;
    std::chrono::steady_clock::time_point mTold;
};

}  // namespace wvstudio

#endif
