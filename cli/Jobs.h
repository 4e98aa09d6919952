// The two long jobs of the command, each run to its end while showing its
// progress and watching for Ctrl-C and the other ending signals:
//   loadSources  loads files into the engine (events 6, 3, 8, then 4 or a
//                failure 0, 5, 7), each distinct path once; a load that
//                skipped damaged packets is told in one line
//                "wavoryx: FILE: N damaged packets skipped near M:SS.mmm";
//   renderList   renders a clip list to its output file (events 21, then 22
//                or a failure 20, 23, 25).
// On a signal they cancel through the engine (cancelLoadFile,
// cancelProcess), wait up to 10 s for the engine to confirm, remove a
// partial output and return the interrupt status (128 + the signal).
// Failures are reported as one line "wavoryx: FILE: reason" and return 1.
#ifndef WAVORYX_CLI_JOBS_H
#define WAVORYX_CLI_JOBS_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

namespace wvcli {

class Progress;
class Session;
struct EngineEvent;

struct LoadedSource {
    std::string path;
    int id = 0;
    bool ok = false;     // loaded completely
    bool begun = false;  // its format is known (event 6), or it ended
    bool ended = false;  // loaded, failed or cancelled
    int sampleRate = 0;  // known from `begun` on
    int channels = 0;
    uint32_t frames = 0;         // once ok: exact
    uint32_t expected = 0;       // from `begun` on: the length the container states, in frames
    bool lengthStated = false;   // from `begun` on: whether the container states a length at all
    bool expectedExact = false;  // ... and whether `expected` is exact, counted by the container
    uint32_t needed = 0;         // frames a list cut before the load ended counts on
    uint32_t stated = 0;         // from `begun` on: the whole file's stated length, in frames
    bool ranged = false;         // a load of [fromMs, toMs) of the file only (loadFileRange)
    uint32_t fromMs = 0;
    uint32_t toMs = 0;

    uint64_t durationMs() const { return sampleRate > 0 ? uint64_t(frames) * 1000 / uint32_t(sampleRate) : 0; }
};

// Loads started together and followed event by event, each distinct path
// once. Failures are reported as they come, one line each.
class SourceLoads {
public:
    explicit SourceLoads(Session& session) : mSession(session) {}
    SourceLoads(const SourceLoads&) = delete;
    SourceLoads& operator=(const SourceLoads&) = delete;

    // Starts loading every distinct path, in first-seen order; a path that
    // is not a file is reported and counts as failed.
    void start(const std::vector<std::string>& paths);
    // The index of the load of the whole file `path`, or of [fromMs, toMs)
    // of it, started now unless the same load was started before.
    size_t startWhole(const std::string& path);
    size_t startRange(const std::string& path, uint32_t fromMs, uint32_t toMs);
    // Takes over a load started by other loads (the stream of standard
    // input, which cannot be read twice), as it stands.
    void adopt(const LoadedSource& source);
    // Takes `event` when it is about one of these loads: true then.
    bool take(const EngineEvent& event);
    // Waits, taking events, until `done()` holds, or a load failed when
    // `stopOnFailure`. On Ctrl-C cancels every load still running and
    // returns the interrupt status; otherwise 0, or 1 when a load failed.
    int waitUntil(const std::function<bool()>& done, bool stopOnFailure);
    // The bar shown while waiting (mean load progress) and finished before
    // a failure is reported; null for none.
    void setProgress(Progress* progress, bool showLoads) {
        mProgress = progress;
        mShowLoads = showLoads;
    }
    // Whole files started from now on are scanned (Wavoryx::scanFile) with
    // these peak sets and, with `loudness`, measured: they need no working
    // space and keep no audio. `tellDamage` false: damaged packets are
    // not told (a file scanned again has told them already).
    void scanInstead(const std::vector<WvPeakSet>& sets, bool loudness, bool tellDamage = true) {
        mScan = true;
        mScanSets = sets;
        mScanLoudness = loudness;
        mTellDamage = tellDamage;
    }
    // Whole files started from now on are scanned for their silences only
    // (Wavoryx::scanFileSilence), keeping no audio.
    void scanSilencesInstead(int tenthsDb, unsigned minMs) {
        mScanSilences = true;
        mSilenceTenthsDb = tenthsDb;
        mSilenceMinMs = minMs;
    }
    // Cancels the loads that have not ended; their events are not waited for.
    void cancelRunning();
    // Cancels them and waits up to 10 s for the engine to end them, taking
    // their events.
    void cancelAndWait();
    // The same for loads nothing needs any more (the command is done with
    // them): each that skipped damaged packets gets its line, whether the
    // cancel or its own end ended it, with the count the engine holds once
    // the load is over.
    void endUnneeded();

    bool failed() const { return mFailed; }
    // Whether a source loaded whole with fewer frames than `needed`: a list
    // cut while it loaded has clips past its end and must be cut again.
    bool shortOfNeeds() const;
    bool allBegun() const;
    bool allEnded() const;
    std::vector<LoadedSource>& sources() { return mSources; }
    LoadedSource* find(const std::string& path);

private:
    // One line for a load that skipped damaged packets: how many, and where
    // the first lay in the file.
    void reportDamage(LoadedSource& source);
    // Takes events until every load has ended, waiting up to 10 s in all.
    void takeEndings();

    Session& mSession;
    std::vector<LoadedSource> mSources;
    std::vector<int> mPercent;
    std::vector<std::string> mReported;  // files whose failure has its line
    bool mFailed = false;
    Progress* mProgress = nullptr;
    bool mShowLoads = false;
    bool mScan = false;
    std::vector<WvPeakSet> mScanSets;
    bool mScanLoudness = false;
    bool mTellDamage = true;
    bool mScanSilences = false;
    int mSilenceTenthsDb = 0;
    unsigned mSilenceMinMs = 0;
    bool mEndingUnneeded = false;  // a cancelled load tells its damage too
};

// Loads `paths` (duplicates once) into `sources`, one entry per distinct
// path in first-seen order. Returns 0 when all loaded, 1 when some failed
// (their lines printed, their entries not ok), or the interrupt status.
int loadSources(Session& session, const std::vector<std::string>& paths, std::vector<LoadedSource>& sources);

// What keeps a file from being created and written in `folder` now, as an
// errno (ENOSPC, EMFILE, ...), or 0 when a probe of 64 KiB can be. For
// failures the engine's events do not explain.
int folderProblem(const std::string& folder);
// Whether a folderProblem is a full storage (ENOSPC, EDQUOT).
bool isStorageFull(int error);
// A folderProblem in words: "storage full", "too many open files in this
// process (raise ulimit -n)", ..., else the system's.
std::string folderProblemText(int error);

// The entry of `path` in `sources`, or nullptr.
const LoadedSource* findSource(const std::vector<LoadedSource>& sources, const std::string& path);

// Follows a job of the engine's render worker on item `id` (a render, a
// measurement, a scan) to its ending event, which it returns: `isJobs`
// tells the job's events from others (handed to `loads`, when given);
// `progress` gets each progress percentage. On Ctrl-C cancels the job and
// the running loads and sets *cancelling; the returned event is then the
// job's end if the engine confirmed within 10 s, else empty.
EngineEvent followRenderJob(Session& session, int id, SourceLoads* loads,
                            const std::function<bool(const EngineEvent&)>& isJobs,
                            const std::function<void(int)>& progress, bool* cancelling);
// Whether a job that ended with `end` ended because one of `loads` failed:
// its failure is waited for (up to 2 s, its line printed) and true then.
bool loadFailureFollows(Session& session, const EngineEvent& end, SourceLoads* loads);

// Renders clip list `listId`, whose output was set to `workPath` (in the
// working folder, or the user's file: see `inPlace`); failures are reported against `shownPath`, the file the
// user named. The engine's waveform file "<workPath>.wave" is removed in
// every case, and so is `workPath` unless the render finished. Returns 0,
// 1 or the interrupt status. `inPlace`: the engine writes `workPath`, the
// user's file, itself and puts it there only whole (setOutputMode, without
// a waveform file); nothing is removed here then.
// `loads` (may be null): loads that go on while the list renders; their
// events are taken on the way, and a failed one is reported as a load
// failure rather than as a failed render. `measuresFirst`: the list is
// loudness-normalised, and its measuring half is shown as such.
int renderList(Session& session, int listId, const std::string& workPath, const std::string& shownPath,
               SourceLoads* loads = nullptr, bool measuresFirst = false, bool inPlace = false);

}  // namespace wvcli

#endif
