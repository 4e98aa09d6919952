// The encoder worker: renders clip lists into output files, one block per
// command, so that cancel and suspend requests act between blocks.
//
// Every job is a ChunkedJob that runs its own commands: a RenderJob, a
// NormalisedRenderJob or a LoudnessJob, carried in the data of each.
// Commands:
//   {1, listId, -1, job}   start a render (queued by queueRender from
//                          process, urgency 7, with the settings process
//                          copied; posted again by the worker while a clip's
//                          source has not begun to load).
//   {2, id, -1, job}       the job's next block (posted by the worker
//                          itself, urgency 2, so one job runs to its end
//                          before the next starts; posted again while a
//                          source has no more data yet, or delayed by as long
//                          as the step took when the engine's thread
//                          priority is 1).
//   {3, id, -1, job}       start a loudness measurement of an item or a list
//                          (queued by queueMeasure from measureLoudness,
//                          urgency 7; posted again while the item's format
//                          is unknown); see LoudnessJob.h.
//   {4, id, -1, job}       start a silence scan of an item or a list
//                          (queued by queueSilenceScan from scanSilence,
//                          urgency 7, waiting as a measurement does); see
//                          SilenceJob.h.
// A list with a loudness target (RenderSettings::loudnessTarget, set by
// setListLoudness) renders in passes (NormalisedRenderJob): its commands 2
// first measure the list (and check the limited result when the limiter
// will act), then encode it with the gain found, through a TruePeakLimiter,
// dithered to 16-bit once. Every pass is a chain of commands 2 like a
// plain render's, so cancel, suspend and resume act in each of them; the
// output is created when the render starts, as for a plain render, and
// removed by any ending but 22. Progress: the first pass 0-25 %, the check
// passes 25-50 % (a third each), the encoding 50-100 %. With more than one
// encoder thread the first pass may read parts of the list on workers of
// its own (MeasureParts): its commands 2 read parts too, and wait for the
// workers' last parts; suspend parks those commands, not the workers.
//
// A render waiting for a source runs again as soon as the decoder reports
// data, a known format or the end of a load (JobContext::dataArrived), and
// after kRetryDelayMs (1000 ms) at the latest.
//
// A render settles the list's output format (the format its clips suggest
// when the client set none), its encoding (an unknown type is WAV; bit rate
// 320 kbit/s when unset), its resampler (the list's quality, else the
// process default, resolved once) and its output path ("<working dir><id>"
// and the format's suffix when unset), then reads the list through a
// PcmInfoReader in blocks of at most kBlockBytes (16384 bytes: 4096 stereo
// or 8192 mono frames), feeding each block to the waveform point generator
// (the ".wave" file beside the output, one byte per 20 ms) and to the
// encoder.
//
// Events (third field in brackets), each render ending with exactly one of
// 22, 20, 25, 23:
//   21 (%)   progress, frames / totalFrames, in steps of more than 10 %.
//   22 (-1)  the output file is complete.
//   20 (-1)  the encoder could not be created (the file cannot be made).
//   20 (-11) a read, write or encoding error.
//   25 (-1)  storage full, or the encoder could not be initialised.
//   23 (-1)  cancelled on request.
// Every ending releases the job's REF_ENCODER reference on the item. The
// output and its ".wave" file are outputs (see OutputFile): put in place
// only at 22, after every write of both succeeded (LAME's last frames and
// the WAV header included); any other ending leaves both targets as they
// were. While an existing file is replaced, the list's writingPath names
// the file being written, so the list can be played as it renders.
//
// Memory: one fixed work buffer per worker, and per render a reader (5120
// bytes plus a resampler and one sub-reader at a time), an encoder (147456
// bytes for MP3) and the point generator; nothing grows with the length
// but a normalised render's loudness meter, during its measuring passes
// (under 1 KB per second of audio; see NormalisePlan).
#pragma once

#include <atomic>

#include "items/JobContext.h"
#include "items/RenderSettings.h"
#include "items/SPcmInfo.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

class EncoderThread : public ChunkedJobThread {
public:
    static constexpr float kProgressStep = 0.1f;
    static constexpr uint8_t kStepUrgency = 2;
    static constexpr uint8_t kStartUrgency = 7;
    static constexpr uint32_t kBlockBytes = 16384;
    static constexpr uint32_t kRetryDelayMs = 1000;
    static constexpr uint32_t kCmdMeasure = 3;
    static constexpr uint32_t kCmdSilence = 4;

    // context: the engine running the worker (not owned; outlives it).
    explicit EncoderThread(JobContext* context);
    ~EncoderThread() override;

    // Queue a render of list `id` with `settings` (the copy process() took
    // under the list's lock) and a loudness measurement of item `id`. The
    // caller has taken the job's REF_ENCODER reference. Any thread.
    void queueRender(pcm_id_t id, const RenderSettings& settings);
    void queueMeasure(pcm_id_t id);
    // A silence scan of item `id` (see SilenceJob.h), the same way.
    void queueSilenceScan(pcm_id_t id, double thresholdDb, uint32_t minMs);

    // The longest a render waiting for a source sleeps before it looks
    // again when nothing wakes it (kRetryDelayMs unless set). Tests set it
    // far beyond their time-outs to show that the wake alone moves renders.
    void setRetryDelayMs(uint32_t ms) { mRetryDelayMs.store(ms); }
    uint32_t retryDelayMs() const { return mRetryDelayMs.load(); }

    // For the jobs, during their commands on this worker's thread only: the
    // command's item, made the current one (the job's reference keeps it
    // registered while its commands exist; see ChunkedJobThread::takeItem),
    // the engine, and one block of work space shared by every job.
    SPcmInfo* itemOf(const WVThreadCmd& cmd);
    JobContext* context() const { return mContext; }
    char* workBuffer() { return mWorkBuffer; }

protected:
    // The hooks of ChunkedJobThread: each command is its job's. A cancel
    // frees the job a command carries (an unfinished output removed), sends
    // 23 and releases.
    bool isRegistered(uint32_t id) override;
    bool startsJob(uint32_t code) const override {
        return code == kCmdStart || code == kCmdMeasure || code == kCmdSilence;
    }
    void startJob(WVThreadCmd& cmd) override;
    void runStep(WVThreadCmd& cmd) override;
    // A job dropped at shutdown is freed (its unfinished output removed)
    // without an event; the item keeps its references.
    void deleteJob(void* job) override;
    // Sends an ending event and drops the job's reference on the item.
    void endJob(uint32_t id, uint32_t event, int32_t value) override;
    void dropReference(uint32_t id) override;
    bool lowPriority() override;

private:
    alignas(8) char mWorkBuffer[kBlockBytes];

    JobContext* const mContext;
    std::atomic<uint32_t> mRetryDelayMs{kRetryDelayMs};
};

}  // namespace wv
