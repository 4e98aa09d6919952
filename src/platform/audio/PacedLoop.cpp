#include "platform/audio/PacedLoop.h"

#include <algorithm>
#include <chrono>

namespace wv {

PacedLoop::PacedLoop(double pace, MonotonicClock& clock)
    : mPace(pace > 0 ? pace : 1.0),
      mTickUs(std::clamp<int64_t>(int64_t(10000 / mPace), 250, 10000)),
      mClock(clock) {}

PacedLoop::~PacedLoop() { stop(); }

void PacedLoop::start(Tick tick) {
    if (mThread.joinable()) return;
    mTick = std::move(tick);
    mLastUs = mClock.nowUs();
    mRunning = true;
    mThread = std::thread(&PacedLoop::run, this);
}

void PacedLoop::startFrames(uint32_t rate, size_t maxPieceFrames, Piece piece) {
    if (mThread.joinable()) return;
    mRemainder = 0;
    start([this, rate, maxPieceFrames, piece = std::move(piece)](int64_t pacedUs) {
        mRemainder += pacedUs * int64_t(rate);
        size_t due = size_t(mRemainder / 1000000);
        mRemainder %= 1000000;
        // The client may hold each piece until the recorder takes it; a
        // stop in the meantime ends the hand-over.
        while (due > 0 && running()) {
            const size_t frames = std::min(due, maxPieceFrames);
            piece(frames);
            due -= frames;
        }
    });
}

void PacedLoop::stop() {
    if (!mThread.joinable()) return;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mRunning = false;
    }
    mWake.notify_all();
    mThread.join();
}

bool PacedLoop::running() {
    std::lock_guard<std::mutex> guard(mLock);
    return mRunning;
}

void PacedLoop::run() {
    std::unique_lock<std::mutex> lock(mLock);
    while (mRunning) {
        mWake.wait_for(lock, std::chrono::microseconds(mTickUs));
        if (!mRunning) break;
        const int64_t now = mClock.nowUs();
        const int64_t pacedUs = int64_t(double(now - mLastUs) * mPace);
        mLastUs = now;
        lock.unlock();
        mTick(pacedUs);
        lock.lock();
    }
}

}  // namespace wv
