#include "Jobs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "Interrupt.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Session.h"
#include "StandardInput.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

constexpr int kPollMs = 100;
// A load takes a few descriptors (its file, its working file, the
// decoder's); fewer free than this is taken as running out.
constexpr rlim_t kDescriptorMargin = 8;
constexpr int kCancelWaitMs = 10000;
// Where a render that measures its loudness first starts writing.
constexpr int kMeasuredPercent = 50;

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Whether the process uses all but a few of the descriptors it may have:
// loads that fail for want of one may have given theirs back before their
// event arrives, while the others still hold theirs.
bool nearDescriptorLimit() {
    struct rlimit limit;
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return false;
    DIR* fds = ::opendir("/proc/self/fd");
    if (fds == nullptr) return errno == EMFILE || errno == ENFILE;
    rlim_t open = 0;
    while (::readdir(fds) != nullptr) ++open;
    ::closedir(fds);
    // ".", "..", and the listing's own descriptor are no descriptors in use.
    open = open > 3 ? open - 3 : 0;
    return open + kDescriptorMargin >= limit.rlim_cur;
}

std::string megabytes(uint64_t bytes) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f MB", double(bytes) / 1e6);
    return text;
}

std::string folderName(const std::string& folder) {
    return folder.size() > 1 && folder.back() == '/' ? folder.substr(0, folder.size() - 1) : folder;
}

// A load's working file that could not be made (`verb` "create") or
// written, and why, as far as the folder tells.
std::string workingFileFailure(const char* verb, const std::string& workDir) {
    const int problem = folderProblem(workDir);
    if (isStorageFull(problem)) return "storage full in the working folder " + folderName(workDir);
    return std::string("cannot ") + verb + " a working file in " + workDir +
           (problem == 0 ? "" : ": " + folderProblemText(problem));
}

// Event 0 says 2 for "cannot open" and 1 for "not audio"; the file system
// tells the cause of the first more precisely.
std::string loadFailure(const std::string& path, int value, const Session& session) {
    switch (value) {
        case 2:
            if (::access(inputFile(path).c_str(), R_OK) != 0) return std::strerror(errno);
            if (nearDescriptorLimit()) return "cannot be opened: " + folderProblemText(EMFILE);
            return "cannot be read";
        case 1: return "not an audio file (no audio track this engine can decode)";
        case 4: return workingFileFailure("create", session.workDir());
        default: return workingFileFailure("write", session.workDir());
    }
}

// Why a render stopped (event 25: storage full, or an encoder that could
// not start). `writtenMs`: audio the encoder had taken, 0 when it never
// started; the engine has removed what it wrote by now.
std::string whyRenderStopped(const std::string& workPath, uint64_t writtenMs, bool wrote) {
    const std::string folder = folderOf(workPath);
    const int problem = folderProblem(folder);
    if (isStorageFull(problem) || (problem == 0 && wrote)) {
        return "storage full in the working folder " + folder + " while writing the output" +
               (wrote ? " (it filled after " + formatTimeMs(writtenMs) + " of audio)" : "");
    }
    if (problem != 0) {
        return "cannot write the output in the working folder " + folder + ": " + folderProblemText(problem);
    }
    return "the encoder does not accept this rate, channel count or bit rate";
}

// Why a render writing the user's file itself stopped: the storage of that
// file (the engine has removed what it wrote by now), or the encoder.
std::string whyStoppedInPlace(const std::string& path, bool wrote) {
    const int problem = folderProblem(folderOf(path));
    if (isStorageFull(problem) || (problem == 0 && wrote)) return "storage full";
    if (problem != 0) return "cannot write (" + folderProblemText(problem) + ")";
    return "the encoder does not accept this rate, channel count or bit rate";
}

// Why `path` is something other than a file to load, or "" (a missing
// path is the engine's to report).
std::string whyNotAFile(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || S_ISREG(st.st_mode)) return "";
    if (S_ISDIR(st.st_mode)) return "is a folder";
    return "is not a regular file (a FIFO, socket or device)";
}

}  // namespace

std::string folderProblemText(int error) {
    switch (error) {
        case ENOSPC:
        case EDQUOT: return "storage full";
        case EMFILE: return "too many open files in this process (raise ulimit -n)";
        case ENFILE: return "too many open files on this system";
        default: return std::strerror(error);
    }
}

// The engine's events do not say why its file failed; the conditions that
// fail it (a full storage, no descriptor left) still hold when the event
// arrives.
int folderProblem(const std::string& folder) {
    std::string probe = folder + "/.wavoryx-probe-XXXXXX";
    const int fd = ::mkostemp(&probe[0], O_CLOEXEC);
    if (fd < 0) return errno;
    if (nearDescriptorLimit()) {
        ::close(fd);
        ::unlink(probe.c_str());
        return EMFILE;
    }
    static const char kZeros[64 * 1024] = {};
    const ssize_t written = ::write(fd, kZeros, sizeof kZeros);
    const int error = written < 0 ? errno : ENOSPC;
    ::close(fd);
    ::unlink(probe.c_str());
    return written == ssize_t(sizeof kZeros) ? 0 : error;
}

bool isStorageFull(int error) { return error == ENOSPC || error == EDQUOT; }

const LoadedSource* findSource(const std::vector<LoadedSource>& sources, const std::string& path) {
    for (const LoadedSource& source : sources) {
        if (source.path == path) return &source;
    }
    return nullptr;
}

void SourceLoads::start(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) startWhole(path);
}

size_t SourceLoads::startWhole(const std::string& path) { return startRange(path, 0, 0); }

size_t SourceLoads::startRange(const std::string& path, uint32_t fromMs, uint32_t toMs) {
    const bool ranged = toMs > fromMs;
    for (size_t i = 0; i < mSources.size(); ++i) {
        const LoadedSource& s = mSources[i];
        if (s.path == path && s.ranged == ranged && (!ranged || (s.fromMs == fromMs && s.toMs == toMs))) return i;
    }
    Wavoryx& engine = mSession.engine();
    LoadedSource source;
    source.path = path;
    source.ranged = ranged;
    source.fromMs = fromMs;
    source.toMs = toMs;
    // Opening a FIFO would wait for a writer, and Ctrl-C could not end
    // the wait; devices and sockets hold no audio file either. A path is
    // reported once, however many of its ranges are loaded.
    const std::string file = inputFile(path);
    const bool stream = streamsStandardInput(path);
    const std::string notAFile = stream ? "" : whyNotAFile(file);
    if (stream) {
        // Read once: every range of it shares this load (see adopt).
        const int fd = takeStandardInputStream();
        source.id = engine.loadStream(fd);
        if (fd >= 0) ::close(fd);
        if (source.id < 0) {
            source.begun = source.ended = true;
            reportError(path, "standard input was read already");
            mFailed = true;
        }
    } else if (notAFile.empty()) {
        source.id = ranged          ? engine.loadFileRange(file.c_str(), fromMs, toMs)
                    : mScanSilences ? engine.scanFileSilence(file.c_str(), mSilenceTenthsDb, mSilenceMinMs)
                    : mScan ? engine.scanFile(file.c_str(), mScanSets.data(), unsigned(mScanSets.size()), mScanLoudness)
                            : engine.loadFile(file.c_str());
        if (source.id < 0) {
            // Only a scan refuses: its peaks do not fit in memory.
            source.begun = source.ended = true;
            reportError(path, "not enough memory for its peaks");
            mFailed = true;
        }
    } else {
        source.begun = source.ended = true;
        bool reported = false;
        for (const LoadedSource& s : mSources) reported = reported || s.path == path;
        if (!reported) reportError(path, notAFile);
        mFailed = true;
    }
    mSources.push_back(source);
    mPercent.push_back(source.ended ? 100 : 0);
    return mSources.size() - 1;
}

void SourceLoads::adopt(const LoadedSource& source) {
    mSources.push_back(source);
    mPercent.push_back(source.ended ? 100 : 0);
}

LoadedSource* SourceLoads::find(const std::string& path) {
    for (LoadedSource& source : mSources) {
        if (source.path == path && !source.ranged) return &source;
    }
    return nullptr;
}

bool SourceLoads::allBegun() const {
    for (const LoadedSource& source : mSources) {
        if (!source.begun) return false;
    }
    return true;
}

bool SourceLoads::shortOfNeeds() const {
    for (const LoadedSource& source : mSources) {
        if (source.ok && source.frames < source.needed) return true;
    }
    return false;
}

bool SourceLoads::allEnded() const {
    for (const LoadedSource& source : mSources) {
        if (!source.ended) return false;
    }
    return true;
}

bool SourceLoads::take(const EngineEvent& event) {
    size_t index = 0;
    while (index < mSources.size() && mSources[index].id != event.id) ++index;
    if (index == mSources.size()) return false;
    LoadedSource& source = mSources[index];
    if (source.ended) return true;
    Wavoryx& engine = mSession.engine();
    if (event.code == WV_EVENT_LOAD_PROGRESS) {
        mPercent[index] = event.value;
        if (mProgress != nullptr && mShowLoads) {
            int sum = 0;
            for (int p : mPercent) sum += p;
            mProgress->update(sum / int(mPercent.size()));
        }
        return true;
    }
    if (event.code == WV_EVENT_LOAD_STARTED) {
        source.begun = true;
        source.sampleRate = engine.getPcmSampleRate(source.id);
        source.channels = engine.getPcmChannelCount(source.id);
        uint32_t frames = 0;
        const int32_t length = engine.getSourceFrames(source.id, &frames);
        source.expected = length >= 0 ? frames : 0;
        source.lengthStated = length >= 0;
        source.expectedExact = length == 1;
        WvSourceInfo facts;
        source.stated = source.expected;
        if (source.ranged && engine.getSourceInfo(source.id, &facts) == 0 && facts.durationUs >= 0) {
            source.stated = uint32_t(uint64_t(facts.durationUs) * uint32_t(source.sampleRate) / 1000000);
        }
        return true;
    }
    if ((event.ends & WV_JOB_LOAD) == 0) return true;
    source.ended = source.begun = true;
    mPercent[index] = 100;
    if (event.code == WV_EVENT_LOAD_DONE) {
        source.ok = true;
        source.sampleRate = engine.getPcmSampleRate(source.id);
        source.channels = engine.getPcmChannelCount(source.id);
        source.frames = uint32_t(engine.getPcmFrameLength(source.id));
        if (mTellDamage) reportDamage(source);
        return true;
    }
    mFailed = true;
    if (event.code == WV_EVENT_LOAD_CANCELLED && mEndingUnneeded && mTellDamage && interruptSignal() == 0) {
        reportDamage(source);
    }
    if (event.code == WV_EVENT_LOAD_CANCELLED || interruptSignal() != 0) return true;
    if (mProgress != nullptr) mProgress->finish(false);
    // Ranges of one file fail alike: one line for the file.
    for (const std::string& path : mReported) {
        if (path == source.path) return true;
    }
    mReported.push_back(source.path);
    if (event.code == WV_EVENT_LOAD_NO_SPACE) {
        // The decoded audio is 16-bit PCM of the length the file states.
        const uint64_t needed = uint64_t(source.expected) * uint32_t(std::max(source.channels, 0)) * 2;
        reportError(source.path, "storage full in the working folder " + folderName(mSession.workDir()) +
                                     " while decoding it" +
                                     (needed > 0 ? " (its audio needs " + megabytes(needed) + ")" : ""));
    } else {
        reportError(source.path, loadFailure(source.path, event.value, mSession));
    }
    return true;
}

void SourceLoads::reportDamage(LoadedSource& source) {
    unsigned int firstMs = 0;
    const int32_t packets = mSession.engine().getLoadDamage(source.id, &firstMs);
    if (packets <= 0) return;
    // A range's times are the file's: the part starts at fromMs.
    const uint64_t atMs = uint64_t(firstMs) + (source.ranged ? source.fromMs : 0);
    const std::string line = "wavoryx: " + source.path + ": " + std::to_string(packets) + " damaged packet" +
                             (packets == 1 ? "" : "s") + " skipped near " + formatTimeMs(atMs) + "\n";
    if (mProgress != nullptr) {
        mProgress->interject(line);
    } else {
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
}

void SourceLoads::cancelRunning() {
    for (const LoadedSource& source : mSources) {
        if (!source.ended) mSession.engine().cancelLoadFile(source.id);
    }
}

void SourceLoads::cancelAndWait() {
    cancelRunning();
    takeEndings();
}

void SourceLoads::endUnneeded() {
    // A load may have ended before the cancel with its ending event not yet
    // taken, or end by the cancel: either way its damage is told only from
    // its ending event on, when the count is final.
    mEndingUnneeded = true;
    cancelRunning();
    takeEndings();
    mEndingUnneeded = false;
}

void SourceLoads::takeEndings() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kCancelWaitMs);
    for (const LoadedSource& source : mSources) {
        if (source.ended) continue;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || mSession.engine().waitForJob(source.id, WV_JOB_LOAD, int(left.count()), nullptr) < 0) {
            break;
        }
    }
    // The events up to the endings are queued by now.
    EngineEvent event;
    while (!allEnded() && mSession.waitEvent(event, kPollMs)) take(event);
}

int SourceLoads::waitUntil(const std::function<bool()>& done, bool stopOnFailure) {
    while (!done() && !(stopOnFailure && mFailed)) {
        if (interruptSignal() != 0) {
            cancelAndWait();
            return interruptExitStatus();
        }
        EngineEvent event;
        if (mSession.waitEvent(event, kPollMs)) take(event);
    }
    return mFailed ? 1 : 0;
}

int loadSources(Session& session, const std::vector<std::string>& paths, std::vector<LoadedSource>& sources) {
    SourceLoads loads(session);
    loads.start(paths);
    const std::vector<LoadedSource>& started = loads.sources();
    const std::string label = started.size() == 1 ? "loading " + baseName(started[0].path)
                                                  : "loading " + std::to_string(started.size()) + " files";
    Progress progress(label, session.options().quiet);
    loads.setProgress(&progress, true);
    // Every load runs to its end, so that each failure is reported.
    const int status = loads.waitUntil([&] { return loads.allEnded(); }, false);
    progress.finish(status == 0);
    sources = loads.sources();
    return status;
}

EngineEvent followRenderJob(Session& session, int id, SourceLoads* loads,
                            const std::function<bool(const EngineEvent&)>& isJobs,
                            const std::function<void(int)>& progress, bool* cancelling) {
    Wavoryx& engine = session.engine();
    EngineEvent end;
    for (;;) {
        if (!*cancelling && interruptSignal() != 0) {
            *cancelling = true;
            engine.cancelProcess(id);
            if (loads != nullptr) loads->cancelRunning();
            // Once the engine confirms, the events up to its ending one are
            // queued, and are taken below.
            if (engine.waitForJob(id, WV_JOB_RENDER, kCancelWaitMs, nullptr) < 0) break;
        }
        EngineEvent event;
        if (!session.waitEvent(event, kPollMs)) continue;
        if (!isJobs(event)) {
            if (loads != nullptr) loads->take(event);
            continue;
        }
        if (event.code == WV_EVENT_RENDER_PROGRESS) {
            progress(event.value);
        } else if ((event.ends & WV_JOB_RENDER) != 0) {
            end = event;
            break;
        }
    }
    return end;
}

bool loadFailureFollows(Session& session, const EngineEvent& end, SourceLoads* loads) {
    if (end.code != WV_EVENT_RENDER_FAILED || end.value != -1 || loads == nullptr) return false;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    EngineEvent event;
    while (!loads->failed() && std::chrono::steady_clock::now() < until) {
        if (session.waitEvent(event, kPollMs)) loads->take(event);
    }
    return loads->failed();
}

int renderList(Session& session, int listId, const std::string& workPath, const std::string& shownPath,
               SourceLoads* loads, bool measuresFirst, bool inPlace) {
    Wavoryx& engine = session.engine();
    const std::string wavePath = workPath + ".wave";
    // A render that measures first does so in its first half (see
    // setListLoudness); each half is shown as a job of its own.
    bool measuring = measuresFirst;
    auto bar = std::make_unique<Progress>((measuring ? "measuring " : "writing ") + baseName(shownPath),
                                          session.options().quiet);
    if (loads != nullptr) loads->setProgress(bar.get(), false);
    if (engine.process(listId) != 0) {
        reportError(shownPath, "the engine refused the render");
        return 1;
    }
    bool cancelling = false;
    const EngineEvent end = followRenderJob(
        session, listId, loads, [&](const EngineEvent& event) { return event.id == listId; },
        [&](int percent) {
            if (measuring && percent >= kMeasuredPercent) {
                bar->finish(true);
                measuring = false;
                bar = std::make_unique<Progress>("writing " + baseName(shownPath), session.options().quiet);
                if (loads != nullptr) loads->setProgress(bar.get(), false);
            }
            if (!measuresFirst) {
                bar->update(percent);
            } else {
                bar->update(measuring ? percent * 100 / kMeasuredPercent
                                      : (percent - kMeasuredPercent) * 100 / (100 - kMeasuredPercent));
            }
        },
        &cancelling);
    if (loads != nullptr) loads->setProgress(nullptr, false);
    std::string stopped;
    if (end.code == WV_EVENT_RENDER_STOPPED && !cancelling) {
        // Frames are counted as the encoder takes them, once it started.
        const int32_t frames = engine.getPcmFrameLength(listId);
        const int32_t rate = engine.getPcmSampleRate(listId);
        const uint64_t ms = frames > 0 && rate > 0 ? uint64_t(frames) * 1000 / uint32_t(rate) : 0;
        stopped = inPlace ? whyStoppedInPlace(workPath, frames > 0) : whyRenderStopped(workPath, ms, frames > 0);
    }
    if (!inPlace) {
        ::unlink(wavePath.c_str());
        if (end.code != WV_EVENT_RENDER_DONE || cancelling) ::unlink(workPath.c_str());
    }
    if (cancelling) {
        bar->finish(false);
        return interruptExitStatus();
    }
    bar->finish(end.code == WV_EVENT_RENDER_DONE && (loads == nullptr || !loads->shortOfNeeds()));
    // A source that failed to load ends the render; its own line says why.
    // The render may tell first: the load's event follows at once.
    if (loadFailureFollows(session, end, loads)) return 1;
    switch (end.code) {
        case WV_EVENT_RENDER_DONE: return 0;
        case WV_EVENT_RENDER_FAILED:
            reportError(shownPath, end.value == -1 ? "cannot write (the file cannot be created)" : "write error");
            break;
        case WV_EVENT_RENDER_STOPPED: reportError(shownPath, stopped); break;
        default: reportError(shownPath, "rendering was cancelled"); break;
    }
    return 1;
}

}  // namespace wvcli
