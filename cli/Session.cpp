#include "Session.h"

#include <sys/stat.h>

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

namespace wvcli {
namespace {

std::atomic<Session*> gActive{nullptr};

// Above the highest priority: only the message before an abort gets out.
constexpr int kLogSilent = WAVORYX_LOG_FATAL + 1;

std::string defaultParent() {
    const char* tmp = std::getenv("TMPDIR");
    return tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp";
}

}  // namespace

void reportError(const std::string& subject, const std::string& reason) {
    std::fprintf(stderr, "wavoryx: %s: %s\n", subject.c_str(), reason.c_str());
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
    if (!mWorkDir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(mWorkDir, ignored);
    }
}

bool Session::open() {
    if (mOptions.verbose) {
        // WAVORYX_LOG, when set, chooses the level; else show the engine's notes.
        if (std::getenv("WAVORYX_LOG") == nullptr) wavoryx_set_log_level(WAVORYX_LOG_INFO);
    } else {
        wavoryx_set_log_level(kLogSilent);
    }

    std::string parent = mOptions.workDir.empty() ? defaultParent() : mOptions.workDir;
    while (parent.size() > 1 && parent.back() == '/') parent.pop_back();
    std::vector<char> pattern(parent.begin(), parent.end());
    const char suffix[] = "/wavoryx-XXXXXX";
    pattern.insert(pattern.end(), suffix, suffix + sizeof suffix);
    if (mkdtemp(pattern.data()) == nullptr) {
        reportError(parent, std::string("cannot make a working folder (") + std::strerror(errno) + ")");
        return false;
    }
    mWorkDir = std::string(pattern.data()) + "/";

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
    if (session != nullptr) session->push(EngineEvent{code, id, value});
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
