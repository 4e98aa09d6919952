// Playback and recording jobs of the soak. Only one of each runs at a time,
// as the engine has one current play item and one current recording.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include <wavoryx/platform.h>

#include "SoakDriver.h"
#include "Wait.h"

namespace soak {

namespace {

std::string item(int id) { return "item " + std::to_string(id); }

}  // namespace

// ---- playback ----
//
// Phase 0: random pauses, resumes, seeks, speed changes, restarts and
// position reads. Then either a stop, or phase 1: pause and let any end
// event already posted arrive; phase 2: seek into the first half, resume
// forwards and wait for exactly one end event; phase 3: make sure no second
// one follows.

void Driver::startPlay() {
    if (chance(0.08)) {
        // A list with no output cannot play: -14 and one event 40.
        const int list = mEngine->newClipList();
        fault("play of a list without output");
        const int before = mViolations;
        const int32_t r = mEngine->playStart(list);
        if (r != -14) violation("playStart of an empty list returned " + std::to_string(r));
        wvtest::waitUntil([&] { return mLog.count(list, 40) != 0; },
                          std::chrono::milliseconds(long(timeout(5) * 1000)));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (mLog.count(list, 40) != 1) {
            violation("play of an empty list: " + std::to_string(mLog.count(list, 40)) + " events 40");
        }
        if (mEngine->removePcm(list) != list) violation("removePcm of the empty list failed");
        mLog.retire(list);
        count("play refused");
        if (mViolations == before) ++mCounters.faultsSurvived;
        return;
    }
    int id = pickReadyItem(true);
    if (chance(0.2)) {
        // An item still loading plays from its source file.
        for (auto& [candidate, entry] : mItems) {
            if (entry.type == Item::LOADED && !entry.loadEnded && !entry.removed && !entry.bad) id = candidate;
        }
    }
    if (id == 0) return;
    if (chance(0.2)) {
        const std::string tap = "file:" + mTapDir + "play" + std::to_string(++mOutputSerial) + ".wav";
        wavoryx_set_audio_output(tap.c_str());
    } else {
        wavoryx_set_audio_output("null");
    }
    mPlay = PlayJob();
    mPlay.id = id;
    mPlay.endsAtStart = mLog.count(id, 42);
    const int32_t r = mEngine->playStart(id);
    if (r == -14 && mItems[id].type != Item::LOADED && mEngine->getPcmFrameLength(id) == 0) {
        // A rendered list or a recording without a single frame leaves a
        // file with no audio in it: nothing to play.
        count("play refused-empty");
        mPlay = PlayJob();
        return;
    }
    if (r != 0) {
        static const char* const types[] = {"loaded", "list", "recording"};
        violation("playStart(" + std::to_string(id) + ") of a " + types[mItems[id].type] + " item returned " +
                  std::to_string(r));
        mPlay = PlayJob();
        return;
    }
    if (mEngine->playResume() != 0) violation("playResume after playStart failed");
    mPlay.mode = chance(0.6) ? 0 : 1;
    mPlay.rearms = 1;
    mPlay.durationMs = std::max(0, int(mEngine->getPcmDuration(id)));
    mPlay.nextAt = mLog.now() + randInt(20, 300) / 1000.0;
    mPlay.endBy = mLog.now() + randInt(200, 2000) / 1000.0;
}

void Driver::pollPlay() {
    if (mPlay.id == 0) return;
    const double now = mLog.now();
    const int id = mPlay.id;
    // A removed item goes once its last holder lets go, which may be a
    // worker finishing just now: until then it still answers.
    auto check = [&](const char* what, int32_t r) {
        if (r != 0 && !(mPlay.itemGone && r == -1)) {
            violation(std::string(what) + " on " + item(id) + " returned " + std::to_string(r));
        }
    };
    if (mPlay.phase == 0) {
        if (now >= mPlay.endBy) {
            if (mPlay.mode == 1 || mPlay.itemGone || mPlay.durationMs <= 0) {
                finishPlay(false);
            } else {
                check("playPause", mEngine->playPause());
                mPlay.phase = 1;
                mPlay.nextAt = now + timeout(0.3);
            }
            return;
        }
        if (now < mPlay.nextAt) return;
        mPlay.nextAt = now + randInt(20, 300) / 1000.0;
        static const int speeds[] = {-2, -1, 1, 2, 3, 4};
        switch (randInt(0, 7)) {
            case 0: check("playPause", mEngine->playPause()); break;
            case 1: check("playResume", mEngine->playResume()); break;
            case 2:
                check("playSeekTo", mEngine->playSeekTo(randInt(0, mPlay.durationMs + 500)));
                ++mPlay.rearms;
                break;
            case 3: {
                // Backwards play needs PCM data: a recording's file has none.
                const int speed = speeds[randInt(0, 5)];
                const int32_t r = mEngine->setPlaySpeed(speed);
                if (!(speed < 0 && r == -4)) check("setPlaySpeed", r);
                break;
            }
            case 4: {
                const int32_t pos = mEngine->getPlayPositionMs();
                if (pos < -1 || (pos == -1 && !mPlay.itemGone)) {
                    violation("getPlayPositionMs of " + item(id) + " returned " + std::to_string(pos));
                }
                break;
            }
            case 5:
                if (!mPlay.itemGone) {
                    check("playStart", mEngine->playStart(id));
                    ++mPlay.rearms;
                }
                break;
            case 6: {
                auto it = mItems.find(id);
                if (chance(0.2) && it != mItems.end() && !it->second.busy && !it->second.removed) {
                    removeItem(id, false);
                }
                break;
            }
            default: check("playResume", mEngine->playResume()); break;
        }
        return;
    }
    if (now < mPlay.nextAt) return;
    if (mPlay.phase == 1) {
        mPlay.endsBefore = mLog.count(id, 42);
        const int speed = randInt(1, 4);
        check("playSeekTo", mEngine->playSeekTo(randInt(0, mPlay.durationMs / 2)));
        check("setPlaySpeed", mEngine->setPlaySpeed(speed));
        check("playResume", mEngine->playResume());
        ++mPlay.rearms;
        mPlay.phase = 2;
        mPlay.endBy = now + timeout(mPlay.durationMs / 1000.0 / mOptions.pace / speed + 20);
        mPlay.nextAt = now;
        return;
    }
    const int ends = mLog.count(id, 42) - mPlay.endsBefore;
    if (mPlay.phase == 2) {
        if (mPlay.itemGone) {
            // Released while it played (e.g. its load was cancelled): the
            // player went with it, so no end comes.
            finishPlay(false);
        } else if (ends >= 1) {
            mPlay.phase = 3;
            mPlay.nextAt = now + timeout(0.3);
        } else if (now > mPlay.endBy) {
            auto entry = mItems.find(id);
            const std::string state = entry == mItems.end() ? "untracked"
                                                            : "type " + std::to_string(entry->second.type) + ", load " +
                                                                  (entry->second.loadEnded ? "ended" : "running");
            violation("playback of " + item(id) + " (" + state + ", " + std::to_string(mPlay.durationMs) +
                      " ms) did not end");
            finishPlay(false);
        }
        return;
    }
    if (ends != 1) violation("playback of " + item(id) + " ended with " + std::to_string(ends) + " events 42");
    finishPlay(true);
}

void Driver::finishPlay(bool reachedEnd) {
    const int id = mPlay.id;
    const int before = mViolations;
    const int32_t r = mEngine->playStop();
    if (r != 0 && !(mPlay.itemGone && r == -1)) violation("playStop on " + item(id) + " returned " + std::to_string(r));
    const int ends = mLog.count(id, 42) - mPlay.endsAtStart;
    // Every end needs a start or a seek before it; one more may still come
    // in from a previous play of the same item.
    if (ends > mPlay.rearms + 1) {
        violation("playback of " + item(id) + ": " + std::to_string(ends) + " ends for " +
                  std::to_string(mPlay.rearms) + " starts and seeks");
    }
    if (mLog.count(id, 40) != 0) violation("playback of " + item(id) + " reported event 40");
    count(mPlay.itemGone ? "play removed" : reachedEnd ? "play to-end" : "play stopped");
    if (mViolations == before) mCounters.faultsSurvived += mPlay.faults;
    if (mItems.find(id) == mItems.end()) mLog.retire(id);
    mPlay = PlayJob();
}

// ---- recording ----
//
// Phase 0: wait for the start (61); phase 1: pauses and resumes until the
// stop time; phase 2: stopped, waiting for the ending (63).

void Driver::startRecord() {
    const int input = randInt(0, 9);
    if (input < 5) {
        wavoryx_set_audio_input("tone:440");
    } else if (input < 7) {
        wavoryx_set_audio_input("silence");
    } else {
        std::vector<std::string> good;
        for (const Source& s : mSources) {
            if (!s.bad) good.push_back(s.path);
        }
        if (good.empty()) return;
        wavoryx_set_audio_input(("file:" + good[size_t(randInt(0, int(good.size()) - 1))]).c_str());
    }
    static const int rates[] = {0, 8000, 16000, 22050, 44100, 48000};
    static const int bitRates[] = {0, 32, 128};
    RecordJob job;
    job.type = chance(0.5) ? ENCODE_MP3 : ENCODE_WAV;
    job.effect = randInt(0, 4);
    const char* ext = job.type == ENCODE_MP3 ? ".mp3" : ".wav";
    const bool named = chance(0.8);
    const std::string path = named ? mOutDir + "c" + std::to_string(++mOutputSerial) + ext : "";
    job.id = mEngine->recordStart(path.c_str(), encode_type(job.type), rates[randInt(0, 5)], randInt(0, 2),
                                  bitRates[randInt(0, 2)], 0, job.effect);
    if (job.id <= 0) {
        violation("recordStart returned " + std::to_string(job.id));
        return;
    }
    job.output = named ? path : workFile(job.id, ext);
    job.start = mLog.now();
    Item entry;
    entry.type = Item::RECORDING;
    entry.busy = true;
    entry.outputs = {job.output, job.output + ".wave"};
    mItems[job.id] = entry;
    if (chance(0.1)) {
        // Stopped before its set-up has run.
        job.earlyStop = true;
        ++job.faults;
        fault("record stop before start");
        if (mEngine->recordStop() != 0) violation("recordStop right after recordStart failed");
        job.phase = 2;
    }
    job.stopAt = mLog.now() + randInt(100, 2000) / 1000.0;
    mRecord = job;
}

void Driver::pollRecord() {
    if (mRecord.id == 0) return;
    const double now = mLog.now();
    const int id = mRecord.id;
    if (mRecord.phase == 0) {
        if (mLog.count(id, 61) > 0) {
            mRecord.phase = 1;
        } else if (now - mRecord.start > timeout(20)) {
            violation("recording " + item(id) + " did not start");
            mRecord.phase = 1;
        }
    }
    if (mRecord.phase == 1) {
        if (now >= mRecord.stopAt) {
            if (mEngine->recordStop() != 0) violation("recordStop of " + item(id) + " failed");
            mRecord.phase = 2;
            mRecord.start = now;
        } else if (now >= mRecord.nextAt) {
            mRecord.nextAt = now + randInt(50, 500) / 1000.0;
            if (chance(0.3)) {
                const int32_t r = mRecord.paused ? mEngine->recordResume() : mEngine->recordPause();
                if (r != 0) violation("record pause/resume returned " + std::to_string(r));
                if (!mRecord.paused) {
                    ++mRecord.faults;
                    fault("record pause");
                }
                mRecord.paused = !mRecord.paused;
            }
        }
        return;
    }
    if (mLog.finalCode(id, Kind::Record) >= 0) {
        finishRecord();
    } else if (now - mRecord.start > timeout(30)) {
        violation("recording " + item(id) + " has no ending " + std::to_string(int(timeout(30))) + " s after its stop");
        mItems[id].busy = false;
        removeItem(id, false);
        mRecord = RecordJob();
    }
}

void Driver::finishRecord() {
    const int id = mRecord.id;
    const int before = mViolations;
    // Let events that were posted before the ending come in too.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    for (const std::string& p : mLog.checkEnding(id, Kind::Record)) violation(p);
    int endValue = -2;
    for (const Event& e : mLog.events(id)) {
        if (e.code == 63) endValue = e.value;
        if (e.code == 60) violation("recording " + item(id) + " failed with " + std::to_string(e.value));
    }
    if (endValue != 0) violation("recording " + item(id) + " ended with " + std::to_string(endValue));
    const int starts = mLog.count(id, 61);
    if (starts > 1 || (starts == 0 && !mRecord.earlyStop)) {
        violation("recording " + item(id) + ": " + std::to_string(starts) + " start events");
    }
    const long long size = fileSize(mRecord.output);
    if (starts == 1) {
        if (mRecord.type == ENCODE_WAV) {
            // Without a pitch shift every captured frame is written.
            const long long frames = mEngine->getPcmFrameLength(id);
            const long long expected = 44 + frames * 2 * std::max(1, int(mEngine->getPcmChannelCount(id)));
            const bool exact = mRecord.effect == 0 || mRecord.effect == 4;
            if (exact ? size != expected : size < 44) {
                violation(mRecord.output + " is " + std::to_string(size) + " bytes, " + std::to_string(frames) +
                          " frames make " + std::to_string(expected));
            }
        } else if (size < 0) {
            violation(mRecord.output + " missing after the recording");
        }
        if (!fileExists(mRecord.output + ".wave")) violation(mRecord.output + ".wave missing");
    } else if (size >= 0) {
        violation(mRecord.output + " made by a recording stopped before it started");
    }
    Item& entry = mItems[id];
    entry.busy = false;
    entry.ready = starts == 1 && size > 44;
    count(mRecord.earlyStop ? "record stopped-early" : "record ok");
    if (mViolations == before) mCounters.faultsSurvived += mRecord.faults;
    mRecord = RecordJob();
    if (!entry.ready || chance(0.5)) removeItem(id, false);
}

}  // namespace soak
