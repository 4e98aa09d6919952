#define WV_LOG_TAG "EncoderThread"
#include "render/EncoderThread.h"

#include "base/CheckSites.h"
#include "render/LoudnessJob.h"
#include "render/NormalisedRenderJob.h"
#include "render/RenderJob.h"
#include "render/SilenceJob.h"

namespace wv {
EncoderThread::EncoderThread(JobContext* context)
    : ChunkedJobThread(context->events(),
                       ChunkedJobConfig{kProgressStep, EVT_RENDER_PROGRESS, EVT_RENDER_CANCELLED,
                                        kStepUrgency, Check::kEncoderJobItem}),
      mContext(context) {}

EncoderThread::~EncoderThread() = default;

void EncoderThread::queueRender(pcm_id_t id, const RenderSettings& settings) {
    ChunkedJob* job = settings.loudnessTarget != 0 ? new NormalisedRenderJob(*this, settings)
                                                   : new RenderJob(*this, settings);
    sendCmd(WVThreadCmd(kCmdStart, id, -1, job), kStartUrgency);
}

void EncoderThread::queueMeasure(pcm_id_t id) {
    sendCmd(WVThreadCmd(kCmdMeasure, id, -1, static_cast<ChunkedJob*>(new LoudnessJob(*this))),
            kStartUrgency);
}

void EncoderThread::queueSilenceScan(pcm_id_t id, double thresholdDb, uint32_t minMs) {
    sendCmd(WVThreadCmd(kCmdSilence, id, -1,
                        static_cast<ChunkedJob*>(new SilenceJob(*this, thresholdDb, minMs))),
            kStartUrgency);
}

bool EncoderThread::isRegistered(uint32_t id) {
    return mContext->getPcmInfo(id, REF_NONE) != nullptr;
}

SPcmInfo* EncoderThread::itemOf(const WVThreadCmd& cmd) {
    return takeItem(cmd, mContext->getPcmInfo(cmd.pcmId, REF_NONE));
}

bool EncoderThread::lowPriority() { return mContext->threadPriority() == WV_PRIORITY_LOW; }

void EncoderThread::startJob(WVThreadCmd& cmd) {
    follow(cmd, static_cast<ChunkedJob*>(cmd.data)->start(cmd));
}

void EncoderThread::runStep(WVThreadCmd& cmd) {
    follow(cmd, static_cast<ChunkedJob*>(cmd.data)->step(cmd));
}

void EncoderThread::deleteJob(void* job) { delete static_cast<ChunkedJob*>(job); }

void EncoderThread::dropReference(uint32_t id) { mContext->releasePcm(id, REF_ENCODER, false); }

void EncoderThread::endJob(uint32_t id, uint32_t event, int32_t value) {
    mContext->notifyClient(WVThreadCmd(event, id, value), 0);
    mContext->releasePcm(id, REF_ENCODER, false);
}

}  // namespace wv
