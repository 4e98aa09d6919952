// The clock of the devices that make their own time, driven by a clock the
// test steps: the frames handed over are exactly what the stepped time
// holds, carried across ticks, in bounded pieces, and a stop ends the
// hand-over between two pieces.
#include "platform/audio/PacedLoop.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "SteppedClock.h"
#include "Wait.h"

namespace {

// What the loop handed over, read from the test's thread.
struct Pieces {
    void add(size_t frames) {
        std::lock_guard<std::mutex> guard(lock);
        sizes.push_back(frames);
        total += frames;
    }
    size_t frames() {
        std::lock_guard<std::mutex> guard(lock);
        return total;
    }
    size_t largest() {
        std::lock_guard<std::mutex> guard(lock);
        size_t most = 0;
        for (size_t n : sizes) most = n > most ? n : most;
        return most;
    }
    std::mutex lock;
    std::vector<size_t> sizes;
    size_t total = 0;
};

TEST(PacedLoop, FramesAreWhatTheSteppedTimeHoldsCarriedAcrossTicks) {
    wvtest::SteppedClock clock;
    wv::PacedLoop loop(1.0, clock);
    Pieces pieces;
    loop.startFrames(8000, 512, [&](size_t frames) { pieces.add(frames); });
    clock.step(1000000);
    ASSERT_TRUE(wvtest::waitUntil([&] { return pieces.frames() >= 8000; }));
    EXPECT_EQ(pieces.frames(), 8000u);
    EXPECT_EQ(pieces.largest(), 512u);
    // 62.499 ms holds 499.992 frames: the fractions add up over the steps
    // (whichever ticks see them) and the last 3 us complete one more frame.
    for (int i = 0; i < 3; ++i) clock.step(62499);
    ASSERT_TRUE(wvtest::waitUntil([&] { return pieces.frames() >= 9499; }));
    clock.step(3);
    ASSERT_TRUE(wvtest::waitUntil([&] { return pieces.frames() >= 9500; }));
    loop.stop();
    EXPECT_EQ(pieces.frames(), 9500u);
}

TEST(PacedLoop, PaceScalesTheClockForFramesAndForPlainTicks) {
    wvtest::SteppedClock clock;
    {
        wv::PacedLoop loop(20.0, clock);
        Pieces pieces;
        loop.startFrames(44100, 4096, [&](size_t frames) { pieces.add(frames); });
        clock.step(50000);  // one second of capture
        ASSERT_TRUE(wvtest::waitUntil([&] { return pieces.frames() >= 44100; }));
        loop.stop();
        EXPECT_EQ(pieces.frames(), 44100u);
        EXPECT_EQ(pieces.largest(), 4096u);
    }
    wv::PacedLoop loop(2.5, clock);
    std::mutex lock;
    int64_t played = 0;
    loop.start([&](int64_t pacedUs) {
        std::lock_guard<std::mutex> guard(lock);
        played += pacedUs;
    });
    auto playedUs = [&] {
        std::lock_guard<std::mutex> guard(lock);
        return played;
    };
    for (int i = 0; i < 3; ++i) clock.step(1000);
    ASSERT_TRUE(wvtest::waitUntil([&] { return playedUs() >= 7500; }));
    loop.stop();
    EXPECT_EQ(playedUs(), 7500);
}

TEST(PacedLoop, StopEndsTheHandOverBetweenTwoPieces) {
    wvtest::SteppedClock clock;
    wv::PacedLoop loop(1.0, clock);
    std::mutex lock;
    std::condition_variable changed;
    int entered = 0;
    bool release = false;
    loop.startFrames(8000, 512, [&](size_t) {
        // The first piece is held, as a full recorder holds it.
        std::unique_lock<std::mutex> guard(lock);
        ++entered;
        changed.notify_all();
        changed.wait(guard, [&] { return release; });
    });
    clock.step(1000000);  // 16 pieces due
    {
        std::unique_lock<std::mutex> guard(lock);
        ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(20), [&] { return entered == 1; }));
    }
    std::thread stopper([&] { loop.stop(); });
    ASSERT_TRUE(wvtest::waitUntil([&] { return !loop.running(); }));
    {
        std::lock_guard<std::mutex> guard(lock);
        release = true;
    }
    changed.notify_all();
    stopper.join();
    EXPECT_EQ(entered, 1);
}

}  // namespace
