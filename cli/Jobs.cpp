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
enum RenderEvent { kRenderFailed = 20, kRenderProgress = 21, kRenderDone = 22, kRenderCancelled = 23,
                   kRenderStopped = 25 };

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

// The process's file-creation mask, read without changing it (umask()
// would, for a moment, for the engine's threads too).
mode_t currentUmask() {
    FILE* status = std::fopen("/proc/self/status", "r");
    unsigned mask = 022;
    if (status != nullptr) {
        char line[128];
        while (std::fgets(line, sizeof line, status) != nullptr) {
            if (std::sscanf(line, "Umask: %o", &mask) == 1) break;
        }
        std::fclose(status);
    }
    return mode_t(mask);
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

std::string whyNotWritable(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return "is a folder";
    const std::string folder = folderOf(path);
    if (::access(folder.c_str(), W_OK) != 0) return "cannot write (" + std::string(std::strerror(errno)) + ")";
    return "";
}

void giveDocumentMode(const std::string& path) {
    ::chmod(path.c_str(), 0666 & ~currentUmask());
}

int loadSources(Session& session, const std::vector<std::string>& paths, std::vector<LoadedSource>& sources) {
    Wavoryx& engine = session.engine();
    sources.clear();
    for (const std::string& path : paths) {
        if (findSource(sources, path) != nullptr) continue;
        LoadedSource source;
        source.path = path;
        source.id = engine.loadFile(path.c_str());
        sources.push_back(source);
    }
    const std::string label =
        sources.size() == 1 ? "loading " + baseName(sources[0].path) : "loading " + std::to_string(sources.size()) + " files";
    Progress progress(label, session.options().quiet);
    std::vector<int> percent(sources.size(), 0);
    std::vector<bool> ended(sources.size(), false);
    size_t pending = sources.size();
    bool failed = false;
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

int renderList(Session& session, int listId, const std::string& outPath) {
    Wavoryx& engine = session.engine();
    const std::string wavePath = outPath + ".wave";
    Progress progress("writing " + baseName(outPath), session.options().quiet);
    if (engine.process(listId) != 0) {
        reportError(outPath, "the engine refused the render");
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
    if (cancelling) {
        // The engine removes an unfinished output itself; a render that
        // finished just as Ctrl-C came (or never confirmed) is removed here,
        // so an interrupted edit leaves no file.
        if (end.code == kRenderDone || end.code == 0) ::unlink(outPath.c_str());
        progress.finish(false);
        return interruptExitStatus();
    }
    progress.finish(end.code == kRenderDone);
    switch (end.code) {
        case kRenderDone:
            // The engine makes its files executable by all; an edit's
            // output gets the mode of any new document.
            giveDocumentMode(outPath);
            return 0;
        case kRenderFailed:
            reportError(outPath, end.value == -1 ? "cannot write (the file cannot be created)" : "write error");
            break;
        case kRenderStopped:
            reportError(outPath, lowOnSpace(folderOf(outPath)) ? "storage full"
                                                              : "the encoder does not accept this rate, channel "
                                                                "count or bit rate");
            break;
        default: reportError(outPath, "rendering was cancelled"); break;
    }
    return 1;
}

}  // namespace wvcli
