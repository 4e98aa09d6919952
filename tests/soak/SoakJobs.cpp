// The four kinds of soak job: how each starts, what is done to it while it
// runs, and what must hold once it has ended.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include <wavoryx/platform.h>

#include "SoakDriver.h"

namespace soak {

namespace {

constexpr double kNever = 1e18;

int frameBytes(int channels) { return channels == 0 ? 4 : 2 * channels; }

const char* loadOutcome(int code) {
    switch (code) {
        case 4: return "load ok";
        case 5: return "load cancelled";
        case 0: return "load failed";
        default: return "load stopped";
    }
}

const char* renderOutcome(int code) {
    switch (code) {
        case 22: return "render ok";
        case 23: return "render cancelled";
        case 20: return "render failed";
        default: return "render stopped";
    }
}

std::string item(int id) { return "item " + std::to_string(id); }

}  // namespace

// ---- loading ----

void Driver::startLoad() {
    const Source& source = mSources[size_t(randInt(0, int(mSources.size()) - 1))];
    const int id = mEngine->loadFile(source.path.c_str());
    if (id <= 0) {
        violation("loadFile(" + source.path + ") returned " + std::to_string(id));
        return;
    }
    const bool missing = !fileExists(source.path);
    LoadJob job{id, source.bad, missing, 0, 0, false, mLog.now(), false, 0};
    const int roll = randInt(0, 99);
    job.action = roll < 20 ? 1 : roll < 32 ? 2 : 0;  // cancel, remove early
    job.actAt = mLog.now() + randInt(0, 50) / 1000.0;
    if (job.action != 0) ++job.faults;
    if (source.bad) ++job.faults;
    for (int i = 0; i < job.faults; ++i) fault("load");
    Item entry;
    entry.type = Item::LOADED;
    entry.inPlace = source.inPlace;
    entry.bad = source.bad;
    entry.busy = true;
    mItems[id] = entry;
    mLoads.push_back(job);
}

void Driver::pollLoads() {
    const double now = mLog.now();
    for (size_t i = 0; i < mLoads.size();) {
        LoadJob& job = mLoads[i];
        if (!job.acted && job.action != 0 && now >= job.actAt) {
            job.acted = true;
            if (job.action == 1) {
                const int32_t r = mEngine->cancelLoadFile(job.id);
                if (r < -1) violation("cancelLoadFile(" + std::to_string(job.id) + ") returned " + std::to_string(r));
            } else {
                removeItem(job.id, false);
            }
        }
        const int code = mLog.finalCode(job.id, Kind::Load);
        if (code >= 0) {
            finishLoad(job, code);
            mLoads.erase(mLoads.begin() + long(i));
            continue;
        }
        if (now - job.start > timeout(60) && !job.hangCancelled) {
            violation("load of " + item(job.id) + " has no ending after " + std::to_string(int(timeout(60))) + " s");
            mEngine->cancelLoadFile(job.id);
            job.hangCancelled = true;
        }
        if (now - job.start > timeout(120)) {
            violation("load of " + item(job.id) + " not ended by its cancel either");
            mItems[job.id].busy = false;
            mItems[job.id].loadEnded = true;
            releaseIfFree(job.id);
            mLoads.erase(mLoads.begin() + long(i));
            continue;
        }
        ++i;
    }
}

void Driver::finishLoad(LoadJob& job, int code) {
    const int before = mViolations;
    const int id = job.id;
    for (const std::string& p : mLog.checkEnding(id, Kind::Load)) violation(p);
    const std::vector<Event> events = mLog.events(id);
    int value = 0;
    bool started = false;
    for (const Event& e : events) {
        if (e.code == 6) started = true;
        if (e.code == code) value = e.value;
        if (e.code == 4 && !started) violation("load of " + item(id) + ": event 4 before 6");
    }
    const bool cancelled = job.action == 1 && job.acted;
    if (job.bad) {
        const int expected = job.missing ? 2 : 1;
        if (!(code == 0 && value == expected) && !(cancelled && code == 5)) {
            violation("load of bad source, " + item(id) + ": ending " + std::to_string(code) + " (" +
                      std::to_string(value) + ")");
        }
    } else if (code != 4 && !(cancelled && code == 5)) {
        violation("load of " + item(id) + ": ending " + std::to_string(code) + " (" + std::to_string(value) + ")");
    }
    Item& entry = mItems[id];
    const std::string pcm = workFile(id, ".pcm");
    if (code == 4 && !entry.removed) {
        const long long size = fileSize(pcm);
        if (entry.inPlace) {
            if (size >= 0) violation(pcm + " made for a file read in place");
        } else {
            // Frames are counted by the decoder after each write, so the file
            // holds exactly that many.
            const long long frames = mEngine->getPcmFrameLength(id);
            const long long expected = frames * frameBytes(mEngine->getPcmChannelCount(id));
            if (size != expected) {
                violation(pcm + " holds " + std::to_string(size) + " bytes, " + std::to_string(frames) +
                          " frames make " + std::to_string(expected));
            }
        }
        if (mEngine->getPcmDuration(id) <= 0) violation("loaded " + item(id) + " has no duration");
    } else if (code != 4 && fileExists(pcm)) {
        violation(pcm + " left after load ending " + std::to_string(code));
    }
    entry.busy = false;
    entry.loadEnded = true;
    entry.ready = code == 4;
    count(loadOutcome(code));
    if (mViolations == before) mCounters.faultsSurvived += job.faults;
    if (!entry.ready) removeItem(id, false);
    releaseIfFree(id);
}

// ---- rendering ----

void Driver::startRender() {
    std::vector<int> candidates;
    for (auto& [id, entry] : mItems) {
        if (entry.removed) continue;
        if (entry.type == Item::LOADED && (!entry.loadEnded || entry.ready)) candidates.push_back(id);
        if (entry.type == Item::LIST && entry.ready && chance(0.3)) candidates.push_back(id);
    }
    if (candidates.empty()) return;
    const int list = mEngine->newClipList();
    if (list <= 0) {
        violation("newClipList returned " + std::to_string(list));
        return;
    }
    Item entry;
    entry.type = Item::LIST;
    entry.busy = true;
    const int clips = randInt(1, 3);
    for (int k = 1; k <= clips; ++k) {
        const int source = candidates[size_t(randInt(0, int(candidates.size()) - 1))];
        const unsigned start = unsigned(randInt(0, 8000));
        const unsigned length = unsigned(randInt(100, 6000));
        const int32_t r = chance(0.5) ? mEngine->addClipMs(list, source, start, start + length)
                                      : mEngine->addClip(list, source, start * 44, (start + length) * 44);
        if (r != k)
            violation("clip " + std::to_string(k) + " of list " + std::to_string(list) + " got " + std::to_string(r));
        entry.sources.push_back(source);
        ++mItems[source].listUses;
    }
    RenderJob job{list, kNever, false, mLog.now(), "", chance(0.4) ? ENCODE_MP3 : ENCODE_WAV, 0};
    const char* ext = job.type == ENCODE_MP3 ? ".mp3" : ".wav";
    // Now and then the engine names the output itself, in the working folder.
    job.output = chance(0.1) ? workFile(list, ext) : mOutDir + "r" + std::to_string(++mOutputSerial) + ext;
    const std::string given = job.output.compare(0, mWorkDir.size(), mWorkDir) == 0 ? "" : job.output;
    if (mEngine->setOutputPara(list, given.c_str(), encode_type(job.type)) != 0) violation("setOutputPara failed");
    if (chance(0.3)) {
        static const int rates[] = {0, 8000, 22050, 44100, 48000};
        static const int bitRates[] = {0, 64, 128};
        if (mEngine->setEncodePara(list, rates[randInt(0, 4)], bitRates[randInt(0, 2)], randInt(0, 2), randInt(0, 1)) !=
            0) {
            violation("setEncodePara failed");
        }
    }
    entry.outputs = {job.output, job.output + ".wave"};
    mItems[list] = entry;
    if (mEngine->process(list) != 0) violation("process(" + std::to_string(list) + ") failed");
    if (chance(0.2)) {
        job.cancelAt = mLog.now() + randInt(0, 400) / 1000.0;
        ++job.faults;
        fault("render cancel");
    }
    mRenders.push_back(job);
}

void Driver::pollRenders() {
    const double now = mLog.now();
    for (size_t i = 0; i < mRenders.size();) {
        RenderJob& job = mRenders[i];
        // A list whose source will never have data ends by itself (20).
        if (!job.cancelled && now >= job.cancelAt) {
            job.cancelled = true;
            if (mEngine->cancelProcess(job.id) != 0) violation("cancelProcess failed");
        }
        const int code = mLog.finalCode(job.id, Kind::Render);
        if (code >= 0) {
            finishRender(job, code);
            mRenders.erase(mRenders.begin() + long(i));
            continue;
        }
        if (now - job.start > timeout(120) && !job.cancelled) {
            violation("render of list " + std::to_string(job.id) + " has no ending after " +
                      std::to_string(int(timeout(120))) + " s");
            job.cancelled = true;
            mEngine->cancelProcess(job.id);
        }
        if (now - job.start > timeout(180)) {
            violation("render of list " + std::to_string(job.id) + " not ended by its cancel either");
            mItems[job.id].busy = false;
            removeItem(job.id, false);
            mRenders.erase(mRenders.begin() + long(i));
            continue;
        }
        ++i;
    }
}

bool Driver::hasUnreadySource(int list, int depth) {
    if (depth > 16) return false;
    for (int source : mItems[list].sources) {
        auto s = mItems.find(source);
        if (s == mItems.end()) continue;
        if (s->second.type == Item::LOADED && !s->second.ready) return true;
        if (s->second.type == Item::LIST && hasUnreadySource(source, depth + 1)) return true;
    }
    return false;
}

void Driver::finishRender(RenderJob& job, int code) {
    const int before = mViolations;
    const int id = job.id;
    for (const std::string& p : mLog.checkEnding(id, Kind::Render)) violation(p);
    const bool unready = hasUnreadySource(id);
    if (code == 20 && unready) {
        ++job.faults;
        fault("render of a failed source");
    }
    if (code != 22 && !(job.cancelled && code == 23) && !(code == 20 && unready)) {
        violation("render of list " + std::to_string(id) + ": ending " + std::to_string(code));
    }
    const long long size = fileSize(job.output);
    if (code == 22) {
        if (job.type == ENCODE_WAV) {
            const long long frames = mEngine->getPcmFrameLength(id);
            const long long expected = 44 + frames * frameBytes(mEngine->getPcmChannelCount(id));
            if (size != expected) {
                violation(job.output + " is " + std::to_string(size) + " bytes, " + std::to_string(frames) +
                          " frames make " + std::to_string(expected));
            }
        } else if (size <= 0) {
            violation(job.output + " missing or empty after render ending 22");
        }
        if (!fileExists(job.output + ".wave")) violation(job.output + ".wave missing after render ending 22");
    } else if (size >= 0) {
        violation(job.output + " left after render ending " + std::to_string(code));
    }
    Item& entry = mItems[id];
    entry.busy = false;
    entry.ready = code == 22;
    count(renderOutcome(code));
    if (mViolations == before) mCounters.faultsSurvived += job.faults;
    if (!entry.ready) removeItem(id, false);
}

}  // namespace soak
