#include "Jobs.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include <wavoryx/Wavoryx.h>

#include "Interrupt.h"
#include "Progress.h"
#include "Session.h"

namespace wvcli {
namespace {

constexpr int kPollMs = 100;
constexpr auto kCancelWait = std::chrono::seconds(10);

enum LoadEvent { kLoadFailed = 0, kLoadProgress = 3, kLoadDone = 4, kLoadCancelled = 5, kLoadNoSpace = 7 };
enum RenderEvent {
    kRenderFailed = 20,
    kRenderProgress = 21,
    kRenderDone = 22,
    kRenderCancelled = 23,
    kRenderStopped = 25
};

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Event 0 says 2 for "cannot open" and 1 for "not audio"; the file system
// tells the cause of the first more precisely.
std::string loadFailure(const std::string& path, int value, const Session& session) {
    switch (value) {
        case 2:
            if (::access(path.c_str(), R_OK) != 0) return std::strerror(errno);
            return "cannot be read";
        case 1: return "not an audio file (no audio track this engine can decode)";
        case 4: return "cannot create a working file in " + session.workDir();
        default: return "cannot write a working file in " + session.workDir();
    }
}

bool lowOnSpace(const std::string& folder) {
    struct statvfs fs;
    if (::statvfs(folder.c_str(), &fs) != 0) return false;
    return uint64_t(fs.f_bavail) * fs.f_frsize < (uint64_t(1) << 20);
}

// Why `path` is something other than a file to load, or "" (a missing
// path is the engine's to report).
std::string whyNotAFile(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return "";
    if (S_ISDIR(st.st_mode)) return "is a folder";
    return "is not a regular file (a FIFO, socket or device)";
}

bool isLoadEnd(int code) {
    return code == kLoadFailed || code == kLoadDone || code == kLoadCancelled || code == kLoadNoSpace;
}

bool isRenderEnd(int code) {
    return code == kRenderFailed || code == kRenderDone || code == kRenderCancelled || code == kRenderStopped;
}

}  // namespace

const LoadedSource* findSource(const std::vector<LoadedSource>& sources, const std::string& path) {
    for (const LoadedSource& source : sources) {
        if (source.path == path) return &source;
    }
    return nullptr;
}

int loadSources(Session& session, const std::vector<std::string>& paths, std::vector<LoadedSource>& sources) {
    Wavoryx& engine = session.engine();
    sources.clear();
    std::vector<bool> ended;
    bool failed = false;
    for (const std::string& path : paths) {
        if (findSource(sources, path) != nullptr) continue;
        LoadedSource source;
        source.path = path;
        // Opening a FIFO would wait for a writer, and Ctrl-C could not end
        // the wait; devices and sockets hold no audio file either.
        const std::string notAFile = whyNotAFile(path);
        if (notAFile.empty()) source.id = engine.loadFile(path.c_str());
        sources.push_back(source);
        ended.push_back(!notAFile.empty());
        if (!notAFile.empty()) {
            reportError(path, notAFile);
            failed = true;
        }
    }
    const std::string label = sources.size() == 1 ? "loading " + baseName(sources[0].path)
                                                  : "loading " + std::to_string(sources.size()) + " files";
    Progress progress(label, session.options().quiet);
    std::vector<int> percent(sources.size(), 0);
    size_t pending = 0;
    for (size_t i = 0; i < sources.size(); ++i) {
        if (ended[i]) {
            percent[i] = 100;
        } else {
            ++pending;
        }
    }
    bool cancelling = false;
    auto deadline = std::chrono::steady_clock::now();

    while (pending > 0) {
        if (!cancelling && interruptSignal() != 0) {
            cancelling = true;
            deadline = std::chrono::steady_clock::now() + kCancelWait;
            for (size_t i = 0; i < sources.size(); ++i) {
                if (!ended[i]) engine.cancelLoadFile(sources[i].id);
            }
        }
        if (cancelling && std::chrono::steady_clock::now() > deadline) break;
        EngineEvent event;
        if (!session.waitEvent(event, kPollMs)) continue;
        size_t index = 0;
        while (index < sources.size() && sources[index].id != event.id) ++index;
        if (index == sources.size() || ended[index]) continue;
        LoadedSource& source = sources[index];
        if (event.code == kLoadProgress) {
            percent[index] = event.value;
            int sum = 0;
            for (int p : percent) sum += p;
            progress.update(sum / int(percent.size()));
            continue;
        }
        if (!isLoadEnd(event.code)) continue;
        ended[index] = true;
        percent[index] = 100;
        --pending;
        if (event.code == kLoadDone) {
            source.ok = true;
            source.sampleRate = engine.getPcmSampleRate(source.id);
            source.channels = engine.getPcmChannelCount(source.id);
            source.frames = uint32_t(engine.getPcmFrameLength(source.id));
            continue;
        }
        failed = true;
        if (cancelling || event.code == kLoadCancelled) continue;
        progress.finish(false);
        if (event.code == kLoadNoSpace) {
            reportError(source.path, "storage full in " + session.workDir());
        } else {
            reportError(source.path, loadFailure(source.path, event.value, session));
        }
    }
    if (cancelling) {
        progress.finish(false);
        return interruptExitStatus();
    }
    progress.finish(!failed);
    return failed ? 1 : 0;
}

int renderList(Session& session, int listId, const std::string& workPath, const std::string& shownPath) {
    Wavoryx& engine = session.engine();
    const std::string wavePath = workPath + ".wave";
    Progress progress("writing " + baseName(shownPath), session.options().quiet);
    if (engine.process(listId) != 0) {
        reportError(shownPath, "the engine refused the render");
        return 1;
    }
    bool cancelling = false;
    auto deadline = std::chrono::steady_clock::now();
    EngineEvent end;
    for (;;) {
        if (!cancelling && interruptSignal() != 0) {
            cancelling = true;
            deadline = std::chrono::steady_clock::now() + kCancelWait;
            engine.cancelProcess(listId);
        }
        if (cancelling && std::chrono::steady_clock::now() > deadline) break;
        EngineEvent event;
        if (!session.waitEvent(event, kPollMs) || event.id != listId) continue;
        if (event.code == kRenderProgress) {
            progress.update(event.value);
        } else if (isRenderEnd(event.code)) {
            end = event;
            break;
        }
    }
    ::unlink(wavePath.c_str());
    if (end.code != kRenderDone || cancelling) ::unlink(workPath.c_str());
    if (cancelling) {
        progress.finish(false);
        return interruptExitStatus();
    }
    progress.finish(end.code == kRenderDone);
    switch (end.code) {
        case kRenderDone: return 0;
        case kRenderFailed:
            reportError(shownPath, end.value == -1 ? "cannot write (the file cannot be created)" : "write error");
            break;
        case kRenderStopped:
            reportError(shownPath, lowOnSpace(folderOf(workPath)) ? "storage full"
                                                                  : "the encoder does not accept this rate, channel "
                                                                    "count or bit rate");
            break;
        default: reportError(shownPath, "rendering was cancelled"); break;
    }
    return 1;
}

}  // namespace wvcli
