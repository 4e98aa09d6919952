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
    // The scan ended with these [start, end) frame pairs.
    void set(std::vector<std::pair<uint32_t, uint32_t>> silences) {
        std::lock_guard<std::mutex> guard(mLock);
        mSilences = std::move(silences);
        mReady = true;
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
    std::vector<std::pair<uint32_t, uint32_t>> mSilences;
};

}  // namespace wv
