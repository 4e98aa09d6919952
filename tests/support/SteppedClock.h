// A clock that moves only when the test steps it: code paced by a
// wv::MonotonicClock then does exactly what the stepped time holds, however
// slowly the machine runs.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/Clock.h"

namespace wvtest {

class SteppedClock : public wv::MonotonicClock {
public:
    int64_t nowUs() override { return mNowUs.load(); }
    void step(int64_t us) { mNowUs += us; }

private:
    std::atomic<int64_t> mNowUs{1000000};
};

}  // namespace wvtest
