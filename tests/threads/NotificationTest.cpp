#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "TestSupport.h"
#include "Wait.h"
#include "threads/ClientCallbackThread.h"
#include "threads/PacingTimer.h"
#include "threads/ProgressNotifier.h"

namespace {

class CollectingNotifier : public wv::ProgressNotifier {
public:
    explicit CollectingNotifier(float step) : ProgressNotifier(step) {}
    std::vector<int> reported;

protected:
    void onProgress(float progress) override { reported.push_back(static_cast<int>(progress * 100.0f)); }
};

TEST(ProgressNotifier, ThinsByStepReportsFirstAndCompletionOnce) {
    CollectingNotifier decoder(0.2f);
    for (float p : {0.05f, 0.1f, 0.3f, 0.31f, 0.6f, 0.99f, 1.0f, 1.0f}) decoder.update(p);
    EXPECT_EQ(decoder.reported, (std::vector<int>{5, 30, 60, 99, 100}));

    CollectingNotifier encoder(0.1f);
    float last = 0.0f;  // a per-job record leaves mLast alone
    for (float p : {0.0f, 0.0f, 1.0f, 1.0f}) encoder.update(p, &last);
    EXPECT_EQ(encoder.reported, (std::vector<int>{100}));
    EXPECT_EQ(last, 1.0f);

    CollectingNotifier odd(0.1f);
    odd.update(std::numeric_limits<float>::quiet_NaN());
    odd.update(0.0f);
    EXPECT_TRUE(odd.reported.empty());
    float infinite = 0.0f;
    odd.update(std::numeric_limits<float>::infinity(), &infinite);
    odd.update(std::numeric_limits<float>::infinity(), &infinite);
    EXPECT_EQ(odd.reported.size(), 1u);
}

wv::TimeVal at(int64_t us) {
    wv::TimeVal t;
    t.sec = static_cast<int32_t>(100 + us / 1000000);
    t.usec = static_cast<int32_t>(us % 1000000);
    return t;
}

TEST(PacingTimer, SpreadsBurstsAndRestartsWhenBehindOrFarAhead) {
    wv::PacingTimer burst(20, at(0));
    std::vector<int32_t> delays;
    for (int i = 0; i < 10; ++i) delays.push_back(burst.nextDelayMs(at(500)));
    EXPECT_EQ(delays, (std::vector<int32_t>{19, 39, 59, 78, 97, 115, 133, 150, 167, 183}));
    // The lead can never grow past 40 periods.
    int32_t delay = 0;
    for (int i = 0; i < 2000; ++i) delay = burst.nextDelayMs(at(500));
    EXPECT_LE(delay, 800);

    wv::PacingTimer steady(20, at(0));
    for (int i = 1; i <= 5; ++i) EXPECT_EQ(steady.nextDelayMs(at(i * 20000 - 19500)), 19);

    wv::PacingTimer gap(20, at(0));
    EXPECT_EQ(gap.nextDelayMs(at(1000)), 19);
    EXPECT_EQ(gap.nextDelayMs(at(600000)), 0);
    EXPECT_EQ(gap.nextDelayMs(at(600000)), 20);
}

class FakeEngine : public wv::EngineHooks {
public:
    int32_t playStop(uint32_t id) override {
        stopped.push_back(static_cast<int>(id));
        stoppedBeforeCallback = recorder != nullptr && recorder->events().empty();
        return 0;
    }
    std::vector<int> stopped;
    bool stoppedBeforeCallback = false;
    wvtest::EventRecorder* recorder = nullptr;
};

TEST(ClientCallbackThread, QueuedEventsWaitForTheLoopAndLevelsAreDropped) {
    FakeEngine engine;
    wvtest::EventRecorder recorder;
    wv::ClientCallbackThread thread(&engine);
    thread.setCallback(wvtest::EventRecorder::callback);
    thread.notify(wv::WVThreadCmd(4, 1, -1), 0);
    thread.notify(wv::WVThreadCmd(80, 2, 200), 0);  // no loop: lost
    thread.notify(wv::WVThreadCmd(22, 3, -1), 30);
    thread.notify(wv::WVThreadCmd(3, 1, 40), 0);
    thread.launch();
    ASSERT_TRUE(recorder.waitFor([](const auto& e) { return e.size() >= 3; }));
    thread.notify(wv::WVThreadCmd(80, 2, 100), 0);  // loop running: delivered
    ASSERT_TRUE(recorder.waitFor([](const auto& e) { return e.size() >= 4; }));
    thread.exit();
    EXPECT_EQ(recorder.events(), (std::vector<wvtest::Event>{{4, 1, -1}, {3, 1, 40}, {22, 3, -1}, {80, 2, 100}}));
}

TEST(ClientCallbackThread, EndOfPlaybackStopsThePlayerFirstAndNullCallbackDrops) {
    FakeEngine engine;
    wvtest::EventRecorder recorder;
    engine.recorder = &recorder;
    wv::ClientCallbackThread thread(&engine);
    thread.launch();
    thread.notify(wv::WVThreadCmd(5, 9, -1), 0);  // no callback yet: consumed, dropped
    thread.notify(wv::WVThreadCmd(99, 0, 0), 0);
    wvtest::waitUntil([&] { return thread.loopRunning(); }, std::chrono::seconds(1));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    thread.setCallback(wvtest::EventRecorder::callback);
    thread.notify(wv::WVThreadCmd(42, 7, -1), 0);
    ASSERT_TRUE(recorder.waitForCode(42));
    thread.exit();
    EXPECT_EQ(engine.stopped, (std::vector<int>{7}));
    EXPECT_TRUE(engine.stoppedBeforeCallback);
    EXPECT_EQ(recorder.events(), (std::vector<wvtest::Event>{{42, 7, -1}}));
}

}  // namespace
