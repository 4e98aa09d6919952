// One run of the command with the engine: a private working folder, one
// Wavoryx engine with its callback loop on an engine thread, and the events
// it reports, queued for the command to wait on.
//
// The working folder (the prefix of the engine's PCM files) is made with
// mkdtemp inside --work-dir, or $TMPDIR, or /tmp, and is removed with all it
// holds when the Session is destroyed, after the engine's threads have been
// joined, so every return path of a command leaves nothing behind; folders
// of earlier runs that were killed are removed when a Session opens (see
// WorkFolders.h). Only one Session exists at a time (the engine's callback
// carries no user pointer).
//
// The engine's log goes through the Session's sink: shown with -v, and
// otherwise silent but for the line saying that an `auto` audio device was
// missing and silence is recorded or nothing heard.
#ifndef WAVORYX_CLI_SESSION_H
#define WAVORYX_CLI_SESSION_H

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>

#include "Overwrite.h"

class Wavoryx;

namespace wvcli {

// Options that every subcommand accepts.
struct GlobalOptions {
    bool quiet = false;                     // no progress, no result lines
    bool verbose = false;                   // the engine's own log on standard error
    std::string workDir;                    // where the private working folder is made
    Overwrite overwrite = Overwrite::kAsk;  // an existing output file
};

// One callback event: cb(code, id, value, NULL, NULL), and the WV_JOB_
// kinds of the item's jobs that were over when the engine handed it out: the
// first event of an item with a kind set is the one that ended that job.
struct EngineEvent {
    int code = 0;
    int id = 0;
    int value = 0;
    int ends = 0;
};

class Session {
public:
    explicit Session(const GlobalOptions& options);
    // Stops the callback loop, destroys the engine, removes the folder.
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Makes the working folder, the engine and starts its callback loop;
    // with `readsStandardInput`, first gets standard input ready: kept
    // there, or streamed (see StandardInput.h). On failure prints
    // "wavoryx: DIR: reason" (or "wavoryx: -: reason") and returns false;
    // after an ending signal it prints nothing.
    bool open(bool readsStandardInput = false);

    Wavoryx& engine() { return *mEngine; }
    const GlobalOptions& options() const { return mOptions; }
    // The working folder, with its trailing '/'.
    const std::string& workDir() const { return mWorkDir; }

    // Takes the oldest event; waits up to timeoutMs for one. False on time-out.
    bool waitEvent(EngineEvent& event, int timeoutMs);

private:
    static void onEvent(int code, int id, int value, char*, void*);
    void push(const EngineEvent& event);

    GlobalOptions mOptions;
    std::string mWorkDir;
    int mFolderLock = -1;  // the working folder's lock (see WorkFolders.h)
    std::unique_ptr<Wavoryx> mEngine;
    bool mLoopRunning = false;
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<EngineEvent> mEvents;
};

// "wavoryx: SUBJECT: reason" on standard error.
void reportError(const std::string& subject, const std::string& reason);
// "wavoryx: TEXT" on standard error, written whole.
void reportLine(const std::string& text);

}  // namespace wvcli

#endif
