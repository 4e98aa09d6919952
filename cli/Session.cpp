#include "Session.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "StandardInput.h"
#include "WorkFolders.h"

namespace wvcli {
namespace {

std::atomic<Session*> gActive{nullptr};

// Above the highest priority: only the message before an abort gets out.
constexpr int kLogSilent = WAVORYX_LOG_FATAL + 1;
// The least priority that -v shows; kLogSilent without -v.
std::atomic<int> gShownFrom{kLogSilent};

std::string defaultParent() {
    const char* tmp = std::getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

// WAVORYX_LOG as the library reads it (an unknown name is `warn`);
// `fallback` when unset.
int levelFromEnvironment(int fallback) {
    static const struct {
        const char* name;
        int level;
    } kNames[] = {{"verbose", WAVORYX_LOG_VERBOSE}, {"debug", WAVORYX_LOG_DEBUG}, {"info", WAVORYX_LOG_INFO},
                  {"warn", WAVORYX_LOG_WARN},       {"error", WAVORYX_LOG_ERROR}, {"off", kLogSilent}};
    const char* text = std::getenv("WAVORYX_LOG");
    if (text == nullptr) return fallback;
    for (const auto& entry : kNames) {
        if (std::strcmp(text, entry.name) == 0) return entry.level;
    }
    return WAVORYX_LOG_WARN;
}

// What the user hears about a device that `auto` could not open, without
// -v: the engine only logs it (a warning for the input, a note for the
// output), and a silent recording or a playback nobody hears would
// otherwise look like success.
// Said once per run, however often the engine opens the device.
std::atomic<bool> gInputNoticeShown{false};
std::atomic<bool> gOutputNoticeShown{false};

const char* fallbackNotice(const char* message) {
    if (std::strncmp(message, "no audio input device", 21) == 0 && !gInputNoticeShown.exchange(true)) {
        return "no audio input device: recording silence (WAVORYX_AUDIO_IN=auto)";
    }
    if (std::strncmp(message, "no audio output device", 22) == 0 && !gOutputNoticeShown.exchange(true)) {
        return "no audio output device: playing to no sound (WAVORYX_AUDIO_OUT=auto)";
    }
    return nullptr;
}

// The engine's log, as its own sink writes it with -v, plus the notices.
void logSink(int priority, const char* tag, const char* message) {
    // The message before an abort always gets out, as with the engine's sink.
    if (priority >= gShownFrom.load() || priority >= WAVORYX_LOG_FATAL) {
        static const char kLetters[] = "??VDIWEF";
        const char letter = priority >= 0 && priority <= WAVORYX_LOG_FATAL ? kLetters[priority] : '?';
        const std::string line = std::string(1, letter) + "/" + (tag != nullptr ? tag : "") + ": " + message + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);
    } else if (const char* notice = fallbackNotice(message)) {
        reportLine(notice);
    }
}

}  // namespace

void reportError(const std::string& subject, const std::string& reason) { reportLine(subject + ": " + reason); }

void reportLine(const std::string& text) {
    // One write, so that lines from the engine's threads do not interleave.
    const std::string line = "wavoryx: " + text + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

Session::Session(const GlobalOptions& options) : mOptions(options) {}

Session::~Session() {
    if (mEngine) {
        if (mLoopRunning) mEngine->stopThreadLoop();
        mEngine->setCallback(nullptr);
        mEngine.reset();
    }
    Session* self = this;
    gActive.compare_exchange_strong(self, nullptr);
    wavoryx_set_log_sink(nullptr);
    if (!mWorkDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(mWorkDir, ignored);
    }
    // Only now may another run take the folder for a stale one.
    if (mFolderLock >= 0) ::close(mFolderLock);
}

bool Session::open(bool readsStandardInput) {
    const int shownFrom = mOptions.verbose ? levelFromEnvironment(WAVORYX_LOG_INFO) : kLogSilent;
    gShownFrom.store(shownFrom);
    wavoryx_set_log_sink(&logSink);
    wavoryx_set_log_level(shownFrom < WAVORYX_LOG_INFO ? shownFrom : WAVORYX_LOG_INFO);

    std::string parent = mOptions.workDir.empty() ? defaultParent() : mOptions.workDir;
    while (parent.size() > 1 && parent.back() == '/') parent.pop_back();
    removeStaleWorkFolders(parent);
    std::string folder;
    mFolderLock = makeWorkFolder(parent, folder);
    if (mFolderLock < 0) {
        const int error = errno;
        if (!folder.empty()) ::rmdir(folder.c_str());
        reportError(parent, std::string("cannot make a working folder (") + std::strerror(error) + ")");
        return false;
    }
    mWorkDir = folder + "/";
    if (readsStandardInput && !spoolStandardInput(mWorkDir)) return false;

    Session* expected = nullptr;
    if (!gActive.compare_exchange_strong(expected, this)) {
        reportError("internal", "a second engine session was opened");
        return false;
    }
    mEngine.reset(new Wavoryx());
    mEngine->setWorkingDir(mWorkDir.c_str());
    mEngine->setCallback(&Session::onEvent);
    mEngine->startThreadLoop(0);
    mLoopRunning = true;
    return true;
}

void Session::onEvent(int code, int id, int value, char*, void*) {
    Session* session = gActive.load();
    if (session == nullptr) return;
    EngineEvent event{code, id, value, 0};
    // Asked as the event is handed out, the engine says which of the item's
    // jobs are over: from the ending event on, and never before it.
    for (const int kind : {WV_JOB_LOAD, WV_JOB_RENDER}) {
        if (session->mEngine->waitForJob(id, kind, 0, nullptr) >= 0) event.ends |= kind;
    }
    session->push(event);
}

void Session::push(const EngineEvent& event) {
    {
        std::lock_guard<std::mutex> hold(mLock);
        mEvents.push_back(event);
    }
    mArrived.notify_one();
}

bool Session::waitEvent(EngineEvent& event, int timeoutMs) {
    std::unique_lock<std::mutex> hold(mLock);
    if (!mArrived.wait_for(hold, std::chrono::milliseconds(timeoutMs), [this] { return !mEvents.empty(); })) {
        return false;
    }
    event = mEvents.front();
    mEvents.pop_front();
    return true;
}

}  // namespace wvcli
