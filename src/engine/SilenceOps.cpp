// The engine's silence requests: posting a scan of an item or a clip list to
// the encoder worker (the work is in src/render) and handing out what it
// found.
#define WV_LOG_TAG "WavoryxPriv"
#include <climits>

#include "base/Log.h"
#include "engine/WavoryxPriv.h"
#include "render/EncoderThread.h"

using namespace wv;

namespace {
constexpr int32_t kLowestTenthsDb = -1200;
constexpr uint32_t kLongestMinMs = 86400000;  // a day
}  // namespace

int32_t WavoryxPriv::scanSilence(uint32_t id, int32_t thresholdTenthsDb, uint32_t minMs) {
    if (thresholdTenthsDb < kLowestTenthsDb || thresholdTenthsDb > 0 || minMs > kLongestMinMs) {
        return -4;
    }
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kScanSilence);
    if (item == nullptr) return -1;
    if (item->scan) return -2;  // a scan keeps no audio to read
    if (item->status.load() == RECORDING) {
        const ReportSite& site = reportSite(Report::kScanSilence);
        reportStatus(site.statusLine, site.signature, item, PCM_READY);
        return -2;
    }
    // Cleared before the job is queued, so that no earlier scan's answer is
    // read as this one's.
    item->silences.clear();
    mInfoList.get(id, REF_ENCODER);
    mCallbackThread->jobEnds().begin(id, JobEnds::kEncode);
    mEncoder->queueSilenceScan(id, thresholdTenthsDb / 10.0, minMs);
    return 0;
}

int32_t WavoryxPriv::getSilences(uint32_t id, uint32_t* startEnd, uint32_t maxPairs) {
    if (startEnd == nullptr && maxPairs > 0) return -4;
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSilences);
    if (item == nullptr) return -1;
    const int64_t count = item->silences.copy(startEnd, maxPairs);
    if (count < 0) return -3;
    return count > INT32_MAX ? INT32_MAX : static_cast<int32_t>(count);
}

int32_t WavoryxPriv::getSilenceScanFrames(uint32_t id, uint32_t* frames) {
    if (frames == nullptr) return -4;
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSilenceScanFrames);
    if (item == nullptr) return -1;
    const uint32_t rate = item->silences.length(frames);
    return rate == 0 ? -3 : static_cast<int32_t>(rate);
}
