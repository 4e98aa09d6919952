#include "record/LostAudioReport.h"

#include <algorithm>
#include <limits>

namespace wv {

int32_t LostAudioReport::due(int64_t nowUs) {
    if (mPosted && nowUs - mLastPostUs < kPeriodUs) return 0;
    return take(nowUs);
}

int32_t LostAudioReport::flush() { return take(mLastPostUs); }

int32_t LostAudioReport::take(int64_t nowUs) {
    if (mSampleRate == 0) return 0;
    const uint64_t totalMs = (mFrames * 1000 + mSampleRate - 1) / mSampleRate;
    const int64_t value =
        std::min<int64_t>(int64_t(totalMs) - mReportedMs, std::numeric_limits<int32_t>::max());
    if (value <= 0) return 0;
    mReportedMs += value;
    mLastPostUs = nowUs;
    mPosted = true;
    return int32_t(value);
}

}  // namespace wv
