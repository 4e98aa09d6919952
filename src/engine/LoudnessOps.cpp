// The engine's loudness request: posting a measurement of an item or a
// clip list to the encoder worker (the work is in src/render).
#define WV_LOG_TAG "WavoryxPriv"
#include "base/Log.h"
#include "engine/WavoryxPriv.h"
#include "render/EncoderThread.h"

using namespace wv;

int32_t WavoryxPriv::measureLoudness(uint32_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kMeasureLoudness);
    if (item == nullptr) return -1;
    if (item->scan) return -2;  // a scan keeps no audio to measure
    // A recording grows until it stops: there is no end to measure up to.
    if (item->status.load() == RECORDING) {
        const ReportSite& site = reportSite(Report::kMeasureLoudness);
        reportStatus(site.statusLine, site.signature, item, PCM_READY);
        return -2;
    }
    // Taken while held, as process() does: the queued measurement always
    // finds its item and ends with its one ending event.
    mInfoList.get(id, REF_ENCODER);
    mCallbackThread->jobEnds().begin(id, JobEnds::kEncode);
    mEncoder->queueMeasure(id);
    return 0;
}
