// What an item's last silence scan (scanSilence) found, for the client to
// read once the scan ended. Written by the encoder worker, read by any
// thread: one lock guards the whole list, so a reader never sees half of
// one scan.
#pragma once

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace wv {

class SilenceResults {
public:
    // A scan was queued: nothing to read until it ends.
    void clear() {
        std::lock_guard<std::mutex> guard(mLock);
        mReady = false;
        mSilences.clear();
    }
    // The scan ended with these [start, end) frame pairs, having read
    // `frames` frames at `rate` Hz.
    void set(std::vector<std::pair<uint32_t, uint32_t>> silences, uint32_t frames, uint32_t rate) {
        std::lock_guard<std::mutex> guard(mLock);
        mSilences = std::move(silences);
        mFrames = frames;
        mRate = rate;
        mReady = true;
    }
    // The rate the scan read at (0 while there is nothing to read), and the
    // frames it read into *frames.
    uint32_t length(uint32_t* frames) const {
        std::lock_guard<std::mutex> guard(mLock);
        *frames = mReady ? mFrames : 0;
        return mReady ? mRate : 0;
    }
    // Copies up to maxPairs pairs into startEnd (start, end, start, ...)
    // and returns how many there are in all; -1 while there are none to
    // read.
    int64_t copy(uint32_t* startEnd, uint32_t maxPairs) const {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mReady) return -1;
        const size_t n = mSilences.size() < maxPairs ? mSilences.size() : maxPairs;
        for (size_t i = 0; i < n; ++i) {
            startEnd[2 * i] = mSilences[i].first;
            startEnd[2 * i + 1] = mSilences[i].second;
        }
        return static_cast<int64_t>(mSilences.size());
    }

private:
    mutable std::mutex mLock;
    bool mReady = false;
    uint32_t mFrames = 0;
    uint32_t mRate = 0;
    std::vector<std::pair<uint32_t, uint32_t>> mSilences;
};

}  // namespace wv
