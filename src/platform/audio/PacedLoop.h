// The clock of the devices that make their own time (the "silence",
// "tone" and "file" inputs, the "null" and "file" outputs): a thread that
// wakes every tick, 10 ms of real time (shorter when sped up by `pace`,
// never under 250 us), and hands on the time passed since the last tick,
// times the pace, read from a clock that tests may step by hand.
//
// For an input, startFrames() turns that time into frames at its rate,
// carrying the part of a frame left over to the next tick, and hands them
// over in pieces of at most maxPieceFrames. A piece may block (the client
// waits for the recorder); the time spent so is made up at the next tick as
// fast as the pieces are taken, so none are lost, and a stop between two
// pieces ends the hand-over.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "base/Clock.h"

namespace wv {

class PacedLoop {
public:
    using Tick = std::function<void(int64_t pacedUs)>;
    using Piece = std::function<void(size_t frames)>;

    // `pace`: device time per clock time (not positive: 1). The clock must
    // outlive the loop.
    explicit PacedLoop(double pace, MonotonicClock& clock = MonotonicClock::system());
    ~PacedLoop();
    PacedLoop(const PacedLoop&) = delete;
    PacedLoop& operator=(const PacedLoop&) = delete;

    double pace() const { return mPace; }

    // Starts the thread, which calls `tick` after each tick with the paced
    // time passed since the one before (the first counts from this call).
    // Nothing when it runs already.
    void start(Tick tick);
    // The same, handing `piece` the frames at `rate` that the time holds.
    void startFrames(uint32_t rate, size_t maxPieceFrames, Piece piece);
    // Ends the thread; once it returns, no tick or piece is under way. From
    // any thread but the loop's own.
    void stop();
    // False once stop() has begun.
    bool running();

private:
    void run();

    const double mPace;
    const int64_t mTickUs;
    MonotonicClock& mClock;
    Tick mTick;               // the loop's thread only, while it runs
    int64_t mLastUs = 0;      // the loop's thread only, while it runs
    int64_t mRemainder = 0;   // frame-microseconds not yet delivered
    std::mutex mLock;
    std::condition_variable mWake;
    bool mRunning = false;
    std::thread mThread;
};

}  // namespace wv
