// What the load tests share: an engine working in a temporary directory
// with its events recorded, a gate that holds the decoder worker still, and
// checks of a load's event sequence.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "Wait.h"
#include "engine/WavoryxPriv.h"
#include "wavoryx/platform.h"

namespace loadtest {

using wvtest::Event;

// An engine whose working directory is a fresh temporary directory (or the
// one given), with its events recorded and its callback loop running.
class LoadRig {
public:
    explicit LoadRig(const std::string& workingDir = std::string())
        : mWorkingDir(workingDir.empty() ? mDir.prefix() : workingDir), mEngine(new WavoryxPriv()) {
        mEngine->setWorkingDir(mWorkingDir.c_str());
        mEngine->setCallback(wvtest::EventRecorder::callback);
        mEngine->startThreadLoop(0);
    }
    ~LoadRig() { destroyEngine(); }

    WavoryxPriv& engine() { return *mEngine; }
    wvtest::EventRecorder& recorder() { return mRecorder; }
    const std::string& workingDir() const { return mWorkingDir; }
    std::string scratch(const std::string& name) const { return mDir.file(name); }
    std::string pcmPath(int id) const { return mWorkingDir + std::to_string(id) + ".pcm"; }

    // Ends the loop and destroys the engine (queued work is dropped).
    void destroyEngine() {
        if (!mEngine) return;
        mEngine->stopThreadLoop();
        mEngine.reset();
    }

    std::vector<Event> eventsOf(int id) const {
        std::vector<Event> mine;
        for (const Event& e : mRecorder.events()) {
            if (e.id == id) mine.push_back(e);
        }
        return mine;
    }
    // Waits for the event that ends a load of `id`: 0, 4, 5 or 7.
    bool waitForEnd(int id) const {
        return mRecorder.waitFor([id](const std::vector<Event>& events) {
            for (const Event& e : events) {
                if (e.id == id && (e.code == 0 || e.code == 4 || e.code == 5 || e.code == 7)) return true;
            }
            return false;
        });
    }
    // Waits until the decoder has dropped its reference on `id` (it does so
    // just after the ending event).
    bool waitForDecoderRelease(int id) {
        return wvtest::waitUntil([&] { return refs(id, wv::REF_DECODER) == 0; }, std::chrono::seconds(10));
    }
    uint32_t refs(int id, wv::pcm_ref_t ref) {
        return mEngine->infoList().refCount(static_cast<wv::pcm_id_t>(id), ref);
    }
    // Whether the id is still registered (safe without holding a reference).
    bool registered(int id) { return mEngine->getPcmInfo(static_cast<wv::pcm_id_t>(id), wv::REF_NONE) != nullptr; }
    // The item's status, or -1 when it is no longer registered. Only for an
    // item some holder keeps alive meanwhile.
    int status(int id) {
        wv::SPcmInfo* item = mEngine->getPcmInfo(static_cast<wv::pcm_id_t>(id), wv::REF_NONE);
        return item ? item->status.load() : -1;
    }

private:
    wvtest::TempDir mDir;
    std::string mWorkingDir;
    wvtest::EventRecorder mRecorder;  // outlives the engine's callback thread
    std::unique_ptr<WavoryxPriv> mEngine;
};

// Holds the decoder worker inside the start of a load. A FIFO is refused
// without being read, and the refusal is logged at debug level on the
// decoder's thread; the gate's log sink holds that thread there until the
// gate opens. Everything posted to the decoder meanwhile waits in its
// queue, so control requests are served in a known order once the gate
// opens. Declare it after the rig it blocks; one gate at a time.
class DecoderGate {
public:
    explicit DecoderGate(LoadRig& rig) : mPath(rig.scratch("gate.fifo")) {
        if (::mkfifo(mPath.c_str(), 0600) != 0) ADD_FAILURE() << "mkfifo " << mPath;
        {
            std::lock_guard<std::mutex> guard(state().lock);
            state().path = mPath;
            state().held = state().released = false;
        }
        wavoryx_set_log_level(WAVORYX_LOG_DEBUG);
        wavoryx_set_log_sink(&DecoderGate::sink);
        mId = rig.engine().loadFile(mPath.c_str());
    }
    ~DecoderGate() {
        open();
        wavoryx_set_log_sink(nullptr);
        wavoryx_set_log_level(WAVORYX_LOG_WARN);
    }
    // Lets the decoder go on once it has reached the gate; returns when it
    // has passed it.
    void open() {
        if (mOpened) return;
        mOpened = true;
        State& s = state();
        std::unique_lock<std::mutex> guard(s.lock);
        if (!s.changed.wait_for(guard, std::chrono::seconds(10), [&] { return s.held; })) {
            ADD_FAILURE() << "the decoder never reached the gate";
        }
        s.released = true;
        s.changed.notify_all();
        s.changed.wait_for(guard, std::chrono::seconds(10), [&] { return !s.held; });
    }
    int id() const { return mId; }

private:
    struct State {
        std::mutex lock;
        std::condition_variable changed;
        std::string path;
        bool held = false;
        bool released = false;
    };
    static State& state() {
        static State s;
        return s;
    }
    static void sink(int, const char*, const char* message) {
        State& s = state();
        std::unique_lock<std::mutex> guard(s.lock);
        if (s.path.empty() || std::strstr(message, s.path.c_str()) == nullptr) return;
        s.held = true;
        s.changed.notify_all();
        s.changed.wait(guard, [&] { return s.released; });
        s.held = false;
        s.path.clear();
        s.changed.notify_all();
    }

    std::string mPath;
    int mId = 0;
    bool mOpened = false;
};

// The events of a load that ran to its end: 6, then progress events 3 in
// rising steps of at least 20 % (the first may be 0 %, the last a smaller
// step to 100 % or beyond when the codec delivers more than the stated
// duration), then 4.
inline void expectCompleteLoad(const std::vector<Event>& events, int id) {
    ASSERT_GE(events.size(), 2u);
    EXPECT_EQ(events.front(), (Event{6, id, -1}));
    EXPECT_EQ(events.back(), (Event{4, id, -1}));
    int previous = -1;
    for (size_t i = 1; i + 1 < events.size(); ++i) {
        const bool last = i + 2 == events.size();
        EXPECT_EQ(events[i].code, 3) << "event " << i;
        EXPECT_GT(events[i].value, previous) << "event " << i;
        if (!last) {
            EXPECT_LT(events[i].value, 100) << "event " << i;
        }
        if (i > 1 && events[i].value < 100) {
            EXPECT_GE(events[i].value - previous, 20) << "event " << i;
        }
        previous = events[i].value;
    }
    EXPECT_LE(events.size(), 8u);
}

}  // namespace loadtest
