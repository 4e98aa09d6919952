// The recorder worker: captures the microphone into an item's output file,
// one captured buffer per command (continuations at urgency 1, ahead of
// everything but control requests).
//
// Commands
// - {1, id, -1, null}: set the recording of item id up (posted by
//   recordStart, urgency 7): capture source, encoder, waveform file, pacing
//   timer, voice effect; then event 61 and the first command 2.
// - {2, id, -1, job}: move one captured buffer (at most 2048 bytes) through
//   fade-in, waveform points (event 80, spaced 20 ms apart), the voice effect
//   and the encoder, then post itself again. A recording given a length
//   (recordLimitFrames) cuts the buffer that reaches it there and ends as
//   by a cancel, so that the file holds exactly that many frames.
// Control requests act on command 2: suspend parks it and drops the capture
// source (event 66), resume makes a new source (event 65; one retry after
// 500 ms, which blocks this worker), cancel finishes the file and ends the
// job (event 63 with 0, 1 for a write error or 3 for no space). A cancel
// that catches command 1 before it ran ends the recording before anything
// was opened (event 63 with 0). Storage full pauses (64, then 66); a write
// error cancels (60 with 1, then 63).
//
// Frames the input lost, which the capture source fills with silence, are
// reported as event 67 (value: ms) as their filler passes through, summed
// to at most one event per 100 ms and flushed before 66 and 63.
//
// Files: the output and its ".wave" file are outputs (see OutputFile),
// written beside an existing file of the same name and put in its place
// when the recording ends (writingPath names the file meanwhile). A WAV
// file's header is rewritten after every second of audio and at each pause,
// so the file on disk is always playable up to about a second ago. A start
// that fails creates nothing and changes nothing.
//
// A command whose item is no longer registered is dropped with an error log
// line; its job, if any, is freed and its file finished.
//
// onCmdDiscard (engine shutdown) frees the job of a queued or parked command
// without telling the client: the file is finished when the encoder still
// works, else removed.
//
// Of the job workers' common ground (JobThread) the recorder takes the
// command codes, the current item and the freeing of a dropped command's
// job. It is no ChunkedJobThread, whose rules would change what it does: a
// command of a missing item is dropped with an error line, its file still
// finished, instead of aborting the process with a recording in it; the
// current item is cleared after each command; its pace is the input's, whose
// read waits for each buffer, so steps are never delayed for the thread
// priority; suspend and resume replace the capture source and send events;
// and a cancel finishes the file and reports how that went.
#pragma once

#include "items/JobContext.h"
#include "items/PcmTypes.h"
#include "threads/JobThread.h"

namespace wv {

class MediaBuffer;
struct RecordJob;
struct SPcmInfo;

class RecorderThread : public JobThread {
public:
    static constexpr uint32_t kCmdStart = JobThread::kCmdStart;
    static constexpr uint32_t kCmdRecord = JobThread::kCmdContinue;
    static constexpr uint8_t kStartUrgency = 7;
    static constexpr uint8_t kRecordUrgency = 1;
    static constexpr int64_t kResumeRetryDelayUs = 500000;
    static constexpr int32_t kWaveformPeriodMs = 20;

    // context: the engine running the worker (not owned; outlives it).
    explicit RecorderThread(JobContext* context);
    ~RecorderThread() override;

    // currentId(): the item of the command being handled, 0 between
    // commands.

protected:
    void procCmd(WVThreadCmd& cmd) override;
    int32_t onCmdSuspend(WVThreadCmd& cmd) override;
    void onCmdResume(WVThreadCmd& cmd) override;
    void onCmdCancel(WVThreadCmd& cmd) override;
    void onCmdDiscard(WVThreadCmd& cmd) override;
    bool isRegistered(uint32_t id) override;
    // Finishes the file of the job (see finishJob) and frees it.
    void deleteJob(void* job) override;

private:
    void startRecording(const WVThreadCmd& cmd, SPcmInfo* item);
    void recordBuffer(WVThreadCmd& cmd, SPcmInfo* item, RecordJob* job);
    // Encodes one buffer of `frames` frames; posts the pause or cancel that
    // a full or failed file asks for.
    void encodeBuffer(WVThreadCmd& cmd, SPcmInfo* item, RecordJob* job, int16_t* data,
                      uint32_t frames, uint32_t bytes);
    // Shortens `frames`, the next captured buffer, to what the item's
    // length limit leaves room for; true when that reaches the limit and
    // the recording ends with this buffer.
    static bool cutAtLimit(const SPcmInfo* item, uint32_t* frames);
    void sendWaveformPoints(pcm_id_t id, RecordJob* job, const int16_t* data, uint32_t bytes);
    // Event 67 for silence the capture source put in place of lost frames:
    // what `buffer` holds of it is counted, and the sum posted when due
    // (`flush`: at once, before the recording pauses or ends).
    void reportLostAudio(pcm_id_t id, RecordJob* job, const MediaBuffer* buffer, bool flush);
    // Counts `frames` more encoded frames and rewrites a WAV file's header
    // once a second of audio has been added since the last time. A
    // FileWriter status.
    int refreshHeaderEvery(WVThreadCmd& cmd, RecordJob* job, uint32_t frames);
    // Ends the job: drains the pitch shifter, finishes the file and frees
    // everything. 0 finished, 1 write error, 3 no space.
    int32_t finishJob(RecordJob* job);
    // A start that failed after the encoder: both references go, the
    // recording stops being current, events 60 (arg) and 63 with -1.
    void abortStart(pcm_id_t id, int32_t failure);
    // The command's item, or null after an error log line (the job of a
    // command 2 is then finished and freed).
    SPcmInfo* itemOf(const WVThreadCmd& cmd, const char* stage);
    void notify(uint32_t code, pcm_id_t id, int32_t arg, int32_t delayMs = 0);

    JobContext* const mContext;
};

}  // namespace wv
