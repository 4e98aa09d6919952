// waitForJob: the end of an item's load, render or measurement, as the one
// client callback saw it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "Wait.h"

namespace {

using wvtest::Event;

constexpr int kNoLimit = -1;

// Whether the recorder holds `code` for `id`: the wait returns only after
// the callback has had every event before the ending one.
bool saw(const wvtest::EventRecorder& recorder, int code, int id) {
    for (const Event& event : recorder.events()) {
        if (event.code == code && event.id == id) return true;
    }
    return false;
}

class JobWait : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(dir.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        ASSERT_TRUE(wvtest::writeToneWav(dir.file("tone.wav"), 44100, 2, 10.0, 440.0));
    }
    void TearDown() override { engine.stopThreadLoop(); }

    wvtest::TempDir dir;
    wvtest::EventRecorder recorder;
    Wavoryx engine;
};

// Every way of starting a decode is a load job: a wait on one that were
// not would never end.
TEST_F(JobWait, EveryKindOfLoadIsWaitedFor) {
    engine.startThreadLoop(0);
    const std::string tone = dir.file("tone.wav");
    const int fd = ::open(tone.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    const WvPeakSet set{0, 44100, 10, WV_PEAKS_ALL_CHANNELS};
    const int ids[] = {engine.loadFile(tone.c_str()), engine.loadFileRange(tone.c_str(), 1000, 2000),
                       engine.loadStream(fd), engine.scanFile(tone.c_str(), &set, 1, 0)};
    ::close(fd);
    for (const int id : ids) {
        ASSERT_GT(id, 0);
        EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE) << "item " << id;
    }
}

TEST_F(JobWait, JobsEndAfterTheirEarlierEventsAndAnswerAgain) {
    engine.startThreadLoop(0);
    const int good = engine.loadFile(dir.file("tone.wav").c_str());
    const int missing = engine.loadFile(dir.file("none.wav").c_str());
    int32_t value = 12345;
    EXPECT_EQ(engine.waitForJob(good, WV_JOB_LOAD, kNoLimit, &value), WV_EVENT_LOAD_DONE);
    EXPECT_TRUE(saw(recorder, WV_EVENT_LOAD_STARTED, good));
    EXPECT_EQ(engine.getPcmFrameLength(good), 441000);
    EXPECT_EQ(engine.waitForJob(missing, WV_JOB_ANY, kNoLimit, &value), WV_EVENT_LOAD_FAILED);
    EXPECT_EQ(value, 2);  // unreadable
    // An ended job answers at once, as often as asked, value or not.
    EXPECT_EQ(engine.waitForJob(good, WV_JOB_LOAD, 0, nullptr), WV_EVENT_LOAD_DONE);
    EXPECT_EQ(engine.waitForJob(missing, WV_JOB_LOAD, 0, &value), WV_EVENT_LOAD_FAILED);
    // ... but not of a kind it never had, nor of no kind.
    EXPECT_EQ(engine.waitForJob(good, WV_JOB_RENDER, 0, nullptr), WV_ERR_WRONG_ITEM);
    EXPECT_EQ(engine.waitForJob(good, 0, 0, nullptr), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.waitForJob(good, 4, 0, nullptr), WV_ERR_OUT_OF_RANGE);

    // Items without one of these jobs, and ids without an item.
    const int list = engine.newClipList();
    EXPECT_EQ(engine.waitForJob(list, WV_JOB_ANY, 10, nullptr), WV_ERR_WRONG_ITEM);
    EXPECT_EQ(engine.waitForJob(9999, WV_JOB_ANY, 10, nullptr), WV_ERR_NO_ITEM);
    // A removed item still tells how its job ended.
    engine.removePcm(missing);
    EXPECT_EQ(engine.waitForJob(missing, WV_JOB_ANY, 0, nullptr), WV_EVENT_LOAD_FAILED);

    // A new job of the item is waited for anew: the list's render ends
    // with 22, though the list had no job before.
    ASSERT_EQ(engine.addClip(list, good, 0, 44100), 1);
    ASSERT_EQ(engine.setOutputPara(list, dir.file("out.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine.process(list), 0);
    EXPECT_EQ(engine.waitForJob(list, WV_JOB_RENDER, kNoLimit, nullptr), WV_EVENT_RENDER_DONE);
    EXPECT_TRUE(wvtest::fileExists(dir.file("out.wav")));
    ASSERT_EQ(engine.measureLoudness(list), 0);
    EXPECT_EQ(engine.waitForJob(list, WV_JOB_ANY, kNoLimit, nullptr), WV_EVENT_LOUDNESS_RANGE);
    EXPECT_TRUE(saw(recorder, WV_EVENT_TRUE_PEAK, list));

    // A file measured while it loads: each kind ends on its own, and both
    // together end with whichever ended last.
    const int measured = engine.loadFile(dir.file("tone.wav").c_str());
    ASSERT_EQ(engine.measureLoudness(measured), 0);
    EXPECT_EQ(engine.waitForJob(measured, WV_JOB_LOAD, kNoLimit, nullptr), WV_EVENT_LOAD_DONE);
    EXPECT_EQ(engine.waitForJob(measured, WV_JOB_ANY, kNoLimit, nullptr), WV_EVENT_LOUDNESS_RANGE);
    EXPECT_EQ(engine.waitForJob(measured, WV_JOB_RENDER, 0, nullptr), WV_EVENT_LOUDNESS_RANGE);
}

TEST_F(JobWait, TimesOutWhileNoLoopDeliversAndNeverWaitsInTheCallback) {
    // The job ends on its worker, but its event waits for the loop.
    const int id = engine.loadFile(dir.file("tone.wav").c_str());
    EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 0, nullptr), WV_ERR_NOT_READY);
    EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 50, nullptr), WV_ERR_NOT_READY);

    // Inside the callback the wait answers at once instead of waiting for
    // an event that only this thread could deliver; on the ending event it
    // tells that ending.
    static Wavoryx* sEngine = nullptr;
    static std::atomic<int> sOnStart{0};
    static std::atomic<int> sOnEnd{0};
    sEngine = &engine;
    engine.setCallback([](int code, int itemId, int, char*, void*) {
        if (code == WV_EVENT_LOAD_STARTED) sOnStart = sEngine->waitForJob(itemId, WV_JOB_LOAD, kNoLimit, nullptr);
        if (code == WV_EVENT_LOAD_DONE) sOnEnd = sEngine->waitForJob(itemId, WV_JOB_LOAD, kNoLimit, nullptr);
    });
    engine.startThreadLoop(0);
    EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, kNoLimit, nullptr), WV_EVENT_LOAD_DONE);
    EXPECT_EQ(sOnStart.load(), WV_ERR_NOT_READY);
    EXPECT_TRUE(wvtest::waitUntil([] { return sOnEnd.load() == WV_EVENT_LOAD_DONE; }));

    // No callback at all: the events are dropped, the wait still ends.
    engine.setCallback(nullptr);
    const int again = engine.loadFile(dir.file("tone.wav").c_str());
    EXPECT_EQ(engine.waitForJob(again, WV_JOB_LOAD, kNoLimit, nullptr), WV_EVENT_LOAD_DONE);
}

TEST_F(JobWait, ManyThreadsWaitOnOneItemAndOnSeveral) {
    engine.startThreadLoop(0);
    std::vector<int> ids;
    for (int i = 0; i < 4; ++i) ids.push_back(engine.loadFile(dir.file("tone.wav").c_str()));
    std::vector<std::thread> waiters;
    std::vector<int> answers(12, -100);
    for (size_t w = 0; w < answers.size(); ++w) {
        const int id = ids[w % ids.size()];
        waiters.emplace_back([&, w, id] { answers[w] = engine.waitForJob(id, WV_JOB_LOAD, kNoLimit, nullptr); });
    }
    for (std::thread& waiter : waiters) waiter.join();
    for (int answer : answers) EXPECT_EQ(answer, WV_EVENT_LOAD_DONE);
    for (int id : ids) EXPECT_TRUE(saw(recorder, WV_EVENT_LOAD_STARTED, id));
}

TEST_F(JobWait, CancelledJobsEndWithTheirCancelEventAfterAllOfThemEnded) {
    engine.startThreadLoop(0);
    const int source = engine.loadFile(dir.file("tone.wav").c_str());
    ASSERT_EQ(engine.waitForJob(source, WV_JOB_LOAD, kNoLimit, nullptr), WV_EVENT_LOAD_DONE);
    // Long enough that neither job can end before the cancel.
    const int list = engine.newClipList();
    for (int i = 0; i < 200; ++i) ASSERT_GT(engine.addClip(list, source, 0, 441000), 0);
    ASSERT_EQ(engine.setOutputPara(list, dir.file("long.mp3").c_str(), ENCODE_MP3), 0);
    ASSERT_EQ(engine.process(list), 0);
    ASSERT_EQ(engine.measureLoudness(list), 0);
    EXPECT_EQ(engine.waitForJob(list, WV_JOB_RENDER, 0, nullptr), WV_ERR_NOT_READY);
    ASSERT_EQ(engine.cancelProcess(list), 0);
    int32_t value = 0;
    EXPECT_EQ(engine.waitForJob(list, WV_JOB_RENDER, kNoLimit, &value), WV_EVENT_RENDER_CANCELLED);
    // Both ended: the render's cancel and the measurement's were handed out.
    EXPECT_TRUE(recorder.waitFor([list](const std::vector<Event>& events) {
        int cancels = 0;
        for (const Event& event : events) cancels += event.id == list && event.code == WV_EVENT_RENDER_CANCELLED;
        return cancels == 2;
    }));
    EXPECT_FALSE(wvtest::fileExists(dir.file("long.mp3")));
}

}  // namespace
