// Export jobs: a list rendered by the engine as `wavoryx edit` renders it
// (the same list, encoding and loudness settings, the same working file and
// the same commit of the finished file onto its name), into the --out
// folder, with progress, cancel and the names that may be downloaded.
#ifndef WAVORYX_CLI_STUDIO_EXPORTS_H
#define WAVORYX_CLI_STUDIO_EXPORTS_H

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "OutputFile.h"
#include "studio/HttpServer.h"

class Wavoryx;

namespace wvstudio {

class EventHub;
class Sources;
struct JsonValue;

class Exports {
public:
    Exports(Wavoryx& engine, Sources& sources, EventHub& events, std::string workDir, std::string outDir)
        : mEngine(engine), mSources(sources), mEvents(events), mWorkDir(std::move(workDir)), mOutDir(std::move(outDir)) {}

    // POST /api/export, /api/export/cancel; GET /api/download.
    void start(const JsonValue& body, HttpReply& reply);
    void cancel(const JsonValue& body, HttpReply& reply);
    void download(const std::string& name, HttpReply& reply);

    // Takes a render event (20, 21, 22, 23, 25) of an export's list: true
    // when it was one.
    bool take(int code, int id, int value);
    // Cancels every job still running.
    void cancelAll();

    // Whether `name` may name a file in the --out folder: no slash, no
    // "..", no leading dot, not empty.
    static bool plainName(const std::string& name);

private:
    struct Job {
        std::string name;  // "J1"
        std::string file;  // the file's name in the out folder
        std::string rendering;
        wvcli::OutputTarget target;
        int lastPercent = -1;
    };
    void finish(int list, Job& job, bool rendered);

    Wavoryx& mEngine;
    Sources& mSources;
    EventHub& mEvents;
    std::string mWorkDir;
    std::string mOutDir;
    std::mutex mLock;
    std::map<int, Job> mJobs;  // by list id
    std::set<std::string> mWritten;
    int mNext = 1;
};

}  // namespace wvstudio

#endif
