// The engine's scans: loads that keep no audio, only what their pass works
// out (see SourceScan), and the queries of those results.
#define WV_LOG_TAG "WavoryxPriv"
#include <memory>
#include <new>
#include <vector>

#include "engine/WavoryxPriv.h"
#include "items/SourceScan.h"
#include "load/DecoderThread.h"

using namespace wv;

int32_t WavoryxPriv::scanFile(const char* path, const WvPeakSet* sets, uint32_t setCount,
                              int32_t loudness) {
    if (setCount > 0 && sets == nullptr) return WV_ERR_OUT_OF_RANGE;
    std::vector<PeakSetPlan> plans;
    for (uint32_t i = 0; i < setCount; ++i) {
        const WvPeakSet& set = sets[i];
        const bool channelKnown = set.channel == WV_PEAKS_ALL_CHANNELS ||
                                  set.channel == WV_PEAKS_CHANNEL_MEAN || set.channel == 0 ||
                                  set.channel == 1;
        if (set.frames == 0 || set.count == 0 || !channelKnown ||
            uint64_t(set.startFrame) + set.frames > UINT32_MAX) {
            return WV_ERR_OUT_OF_RANGE;
        }
        plans.push_back({set.startFrame, set.frames, set.count, set.channel});
    }
    std::unique_ptr<SourceScan> scan;
    try {
        scan.reset(new SourceScan(plans, loudness != 0));
    } catch (const std::bad_alloc&) {
        return WV_ERR_NO_MEMORY;
    }
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set(path != nullptr ? path : "");
    item->scan = std::move(scan);
    return queueLoad(item);
}

int32_t WavoryxPriv::scanFileSilence(const char* path, int32_t thresholdTenthsDb, uint32_t minMs) {
    if (thresholdTenthsDb < -1200 || thresholdTenthsDb > 0 || minMs > 86400000) {
        return WV_ERR_OUT_OF_RANGE;
    }
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set(path != nullptr ? path : "");
    item->scan.reset(new SourceScan({}, false));
    item->scan->findSilences(thresholdTenthsDb / 10.0, minMs, &item->silences);
    return queueLoad(item);
}

int32_t WavoryxPriv::getScanPeaks(uint32_t id, uint32_t set, int16_t* minMax, uint32_t count) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetScanPeaks);
    if (item == nullptr) return WV_ERR_NO_ITEM;
    if (!item->scan) return WV_ERR_WRONG_ITEM;
    return item->scan->peaks(set, minMax, count);
}

int32_t WavoryxPriv::getScanLoudness(uint32_t id, int32_t* integrated, int32_t* range,
                                     int32_t* truePeak) {
    if (integrated == nullptr || range == nullptr || truePeak == nullptr) {
        return WV_ERR_OUT_OF_RANGE;
    }
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetScanLoudness);
    if (item == nullptr) return WV_ERR_NO_ITEM;
    if (!item->scan) return WV_ERR_WRONG_ITEM;
    return item->scan->loudness(integrated, range, truePeak);
}
