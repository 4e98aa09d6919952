// The round loop of the soak and its bookkeeping of items, files and memory.
// A round runs jobs at random until its time is up; then every job is ended
// (cancelled or stopped), every item removed, and the working and output
// folders must be empty: whatever is left there was lost track of.
#include "SoakDriver.h"

#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include <wavoryx/platform.h>

namespace soak {

namespace {

bool startsWith(const std::string& s, const char* prefix) { return s.rfind(prefix, 0) == 0; }

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Rounds whose memory is not yet compared: the first one fills the caches
// of the codec libraries and the allocator's arenas.
constexpr int kWarmUpRounds = 1;

// An end of playback is posted 30 ms ahead and queued behind undelayed
// events; on a busy machine it may come this much later than that.
constexpr double kEndGraceSeconds = 2;

}  // namespace

Driver::Driver(const Options& options)
    : mOptions(options), mRandom(options.seed), mLog(kEndGraceSeconds * options.slow) {
    mWorkDir = mOptions.dir + "/pcm/";
    mOutDir = mOptions.dir + "/out/";
    mTapDir = mOptions.dir + "/tap/";
    for (const std::string& d : {mWorkDir, mOutDir, mTapDir}) mkdir(d.c_str(), 0777);
    for (const std::string& name : listDir(mOptions.sources)) {
        const std::string path = mOptions.sources + "/" + name;
        mSources.push_back(Source{path, startsWith(name, "bad"), startsWith(name, "inplace")});
    }
    std::sort(mSources.begin(), mSources.end(), [](const Source& a, const Source& b) { return a.path < b.path; });
    // A file that is not there at all.
    mSources.push_back(Source{mOptions.sources + "/missing.mp3", true, false});
    wavoryx_set_audio_output("null");
    mEngine = new Wavoryx();
    mEngine->setWorkingDir(mWorkDir.c_str());
    mEngine->setCallback(&EventLog::callback);
    mEngine->startThreadLoop(0);
}

Driver::~Driver() {
    mEngine->stopThreadLoop();
    delete mEngine;
}

int Driver::randInt(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(mRandom); }

bool Driver::chance(double p) { return std::uniform_real_distribution<double>(0, 1)(mRandom) < p; }

std::string Driver::workFile(int id, const char* ext) const { return mWorkDir + std::to_string(id) + ext; }

void Driver::violation(const std::string& text) {
    ++mViolations;
    std::fprintf(stderr, "VIOLATION at %.1f s: %s\n", mLog.now(), text.c_str());
}

void Driver::fault(const std::string& what) {
    ++mCounters.faultsInjected;
    if (mOptions.verbose) std::fprintf(stderr, "fault: %s\n", what.c_str());
}

int Driver::run() {
    const double end = mLog.now() + mOptions.seconds;
    mRssStartKb = rssKb();
    while (mLog.now() < end) {
        runRound(std::min(end, mLog.now() + mOptions.roundSeconds));
        drain();
        checkQuiet();
        sampleMemory(mRounds >= kWarmUpRounds);
        ++mRounds;
    }
    if (mRssBaseKb > 0 && mRssEndKb - mRssBaseKb > mOptions.rssLimitKb) {
        violation("memory grew from " + std::to_string(mRssBaseKb) + " KiB after warm-up to " +
                  std::to_string(mRssEndKb) + " KiB");
    }
    return mViolations;
}

bool Driver::runRound(double until) {
    while (mLog.now() < until) {
        pollLoads();
        pollRenders();
        pollPlay();
        pollRecord();
        pollGone();
        pollCommand();
        for (const std::string& late : mLog.takeLateEvents()) violation(late);
        if (mLoads.size() < 3 && chance(0.15)) startLoad();
        if (mRenders.size() < 2 && chance(0.08)) startRender();
        if (mPlay.id == 0 && chance(0.08)) startPlay();
        if (mRecord.id == 0 && chance(0.03)) startRecord();
        if (chance(0.05)) sampleWaveform();
        if (!mOptions.command.empty() && mCommand.pid == 0 && chance(0.02)) startCommand();
        // Items are dropped now and then, sooner when many have piled up.
        int idle = 0;
        for (auto& [id, item] : mItems) idle += !item.busy && !item.removed && id != mPlay.id;
        if (idle > 0 && (idle > 8 || chance(0.004))) {
            std::vector<int> ids;
            for (auto& [id, item] : mItems) {
                if (!item.busy && !item.removed && id != mPlay.id) ids.push_back(id);
            }
            removeItem(ids[randInt(0, int(ids.size()) - 1)], false);
        }
        sleepMs(10);
    }
    return true;
}

void Driver::drain() {
    mDraining = true;
    const double now = mLog.now();
    for (LoadJob& job : mLoads) {
        if (!job.acted) {
            job.action = 1;
            job.actAt = now;
        }
    }
    for (RenderJob& job : mRenders) job.cancelAt = std::min(job.cancelAt, now);
    if (mRecord.id != 0) mRecord.stopAt = now;
    const double giveUp = now + timeout(300);
    while ((!mLoads.empty() || !mRenders.empty() || mPlay.id != 0 || mRecord.id != 0 || mCommand.pid != 0) &&
           mLog.now() < giveUp) {
        if (mPlay.id != 0 && mPlay.phase == 0) mPlay.endBy = 0;
        pollCommand();
        pollLoads();
        pollRenders();
        pollPlay();
        pollRecord();
        sleepMs(10);
    }
    if (!mLoads.empty() || !mRenders.empty() || mPlay.id != 0 || mRecord.id != 0) {
        violation("jobs still running " + std::to_string(int(timeout(300))) + " s after the round ended");
    }
    std::vector<int> ids;
    for (auto& [id, item] : mItems) {
        if (!item.removed) ids.push_back(id);
    }
    for (int id : ids) removeItem(id, false);
    while (!mGone.empty()) {
        pollGone();
        sleepMs(10);
    }
    for (const std::string& late : mLog.takeLateEvents()) violation(late);
    mDraining = false;
}

// Between rounds nothing runs and nothing is held: both folders are empty.
void Driver::checkQuiet() {
    if (!mItems.empty()) violation(std::to_string(mItems.size()) + " items still tracked after draining");
    mItems.clear();
    for (const std::string& dir : {mWorkDir, mOutDir}) {
        for (const std::string& name : listDir(dir)) {
            violation("stray file " + dir + name);
            unlink((dir + name).c_str());
        }
    }
    for (const std::string& name : listDir(mTapDir)) unlink((mTapDir + name).c_str());
}

void Driver::sampleMemory(bool afterWarmUp) {
    // Freed blocks the allocator keeps are not growth.
    malloc_trim(0);
    const long kb = rssKb();
    mRssPeakKb = std::max(mRssPeakKb, kb);
    mRssEndKb = kb;
    if (afterWarmUp && mRssBaseKb < 0) mRssBaseKb = kb;
    if (mOptions.verbose) std::fprintf(stderr, "round %d: rss %ld KiB\n", mRounds, kb);
}

// Drops the client's reference. The item's working file must go once no job
// and no list holds it any more.
void Driver::removeItem(int id, bool isFault) {
    auto it = mItems.find(id);
    if (it == mItems.end() || it->second.removed) return;
    Item& item = it->second;
    if (isFault) fault("remove of a busy item");
    const int32_t r = mEngine->removePcm(id);
    if (r != id) violation("removePcm(" + std::to_string(id) + ") returned " + std::to_string(r));
    item.removed = true;
    if (id == mPlay.id) {
        mPlay.itemGone = true;
        fault("remove of the item being played");
        ++mPlay.faults;
    }
    releaseIfFree(id);
}

void Driver::releaseIfFree(int id) {
    auto it = mItems.find(id);
    if (it == mItems.end()) return;
    Item& item = it->second;
    if (!item.removed || item.busy || item.listUses > 0) return;
    if (item.type == Item::LOADED && item.ready && !item.inPlace) {
        mGone.push_back(Gone{workFile(id, ".pcm"), mLog.now() + timeout(10)});
    }
    // Outputs are the driver's to delete; the engine must have closed them.
    for (const std::string& path : item.outputs) unlink(path.c_str());
    const std::vector<int> sources = item.sources;
    if (item.type == Item::LOADED) {
        for (const std::string& p : mLog.checkEnding(id, Kind::Load)) violation(p + " (at removal)");
    }
    mItems.erase(it);
    if (id != mPlay.id) mLog.retire(id);
    for (int source : sources) {
        auto s = mItems.find(source);
        if (s == mItems.end()) continue;
        --s->second.listUses;
        releaseIfFree(source);
    }
}

void Driver::pollGone() {
    const double now = mLog.now();
    for (size_t i = 0; i < mGone.size();) {
        if (!fileExists(mGone[i].path)) {
            mGone.erase(mGone.begin() + long(i));
        } else if (now > mGone[i].deadline) {
            violation(mGone[i].path + " still there after its item was released");
            unlink(mGone[i].path.c_str());
            mGone.erase(mGone.begin() + long(i));
        } else {
            ++i;
        }
    }
}

// Waveform peaks of a loaded item, which may still be growing: the count
// asked for, or -4 when the range holds no frame (yet).
void Driver::sampleWaveform() {
    std::vector<int> ids;
    for (auto& [id, item] : mItems) {
        if (item.type == Item::LOADED && !item.removed && !item.bad) ids.push_back(id);
    }
    if (ids.empty()) return;
    const int id = ids[size_t(randInt(0, int(ids.size()) - 1))];
    const unsigned start = unsigned(randInt(0, 15000));
    const unsigned wanted = unsigned(randInt(1, 400));
    std::vector<uint8_t> points(wanted + 16, 0xAB);
    const int32_t r =
        mEngine->getWaveformSamples(id, start, start + unsigned(randInt(1, 20000)), wanted, points.data());
    if (r != int32_t(wanted) && r != -4) {
        violation("getWaveformSamples of item " + std::to_string(id) + " returned " + std::to_string(r));
    }
    for (size_t i = wanted; i < points.size(); ++i) {
        if (points[i] != 0xAB) {
            violation("getWaveformSamples of item " + std::to_string(id) + " wrote past its count");
            break;
        }
    }
    count("waveform sampled");
}

int Driver::pickReadyItem(bool includeLists) {
    std::vector<int> ids;
    for (auto& [id, item] : mItems) {
        if (item.removed || !item.ready) continue;
        if (item.type == Item::LIST && !includeLists) continue;
        ids.push_back(id);
    }
    return ids.empty() ? 0 : ids[randInt(0, int(ids.size()) - 1)];
}

void Driver::printSummary() const {
    std::printf("wavoryx-soak: seed %llu, %.0f s, %d rounds, device pace %g\n",
                static_cast<unsigned long long>(mOptions.seed), mOptions.seconds, mRounds, mOptions.pace);
    std::map<std::string, long> perKind;
    for (const auto& [what, n] : mCounters.jobs) perKind[what.substr(0, what.find(' '))] += n;
    for (const auto& [kind, total] : perKind) {
        std::printf("  %-7s %6ld jobs:", kind.c_str(), total);
        for (const auto& [what, n] : mCounters.jobs) {
            if (what.compare(0, kind.size() + 1, kind + " ") == 0) {
                std::printf(" %s %ld,", what.c_str() + kind.size() + 1, n);
            }
        }
        std::printf("\n");
    }
    std::printf("  waveform level events: %ld; ends of playback after the item went: %ld\n", mLog.levelEvents(),
                mLog.lateEnds());
    std::printf("  faults injected %ld, survived %ld\n", mCounters.faultsInjected, mCounters.faultsSurvived);
    std::printf("  rss: start %ld KiB, after warm-up %ld KiB, end %ld KiB, peak %ld KiB\n", mRssStartKb, mRssBaseKb,
                mRssEndKb, mRssPeakKb);
    std::printf("  violations: %d\n", mViolations);
}

}  // namespace soak
