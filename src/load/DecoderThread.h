// The decoder worker: turns audio files into the engine's PCM items, about
// 64 KB of decoded audio per command, so that control requests act between
// chunks.
//
// Commands: {1, id} starts loading item id (posted by loadFile, urgency 7);
// {2, id, -1, job} decodes codec buffers until kStepBytes are gathered (or
// the stream ends) and writes them at once (posted by the
// worker itself, urgency 7, so loads in progress take turns). With the
// engine's thread priority at 1 a step is posted delayed by as long as it
// took, so the worker idles about as much as it works.
//
// Events to the client (third field in brackets):
//   6 (-1)  decoding has begun: rate, channels and expected length are set,
//           the PCM file exists. A raw item sends 6 and then 4 at once.
//   3 (%)   progress, frames / totalFrames, in steps of more than 20 %.
//   4 (-1)  the item is PCM_READY.
//   0 (2)   the file cannot be opened;  0 (1) no parser, no audio track or
//           no usable decoder;  0 (4) the PCM file cannot be created;
//   0 (-11) the PCM file cannot be written.
//   7 (-1)  stopped because the storage is full (after one held-back retry).
//   8 (n)   damaged packets were skipped: n so far, after a step that
//           skipped more (at most one per step, always before the ending).
//   5 (-1)  cancelled on request.
// Every ending releases the decoder's reference on the item; an ending other
// than 4 leaves the status as it was and removes a partial PCM file.
//
// PCM file: "<working dir><id>.pcm", no header, interleaved signed 16-bit
// little-endian samples as the codec delivers them (1 or 2 channels at the
// track's rate). It only grows while decoding; the item's `frames` is raised
// after each buffer is written, so readers on other threads may read any
// frame below it. A canonical 16-bit WAV is not decoded: it is read in place
// and gets no PCM file.
//
// A ranged item (loadFileRange) holds only frames [start, end) of the
// file, identical to those frames of a whole load; its expected length is
// the part's, cut at the file's stated length. While the file before the
// part is passed over (demuxed, not decoded) steps write nothing; a part
// starting past the end gives an empty item (0 frames, events 6 then 4).
// Such an item always gets a PCM file, also from a WAV.
//
// A scan item (scanFile) is loaded the same way, with the same events,
// but its decoded frames go to its SourceScan instead of a PCM file: no
// file is made in the working directory, a WAV is decoded rather than read
// in place, and event 7 never comes. A file of more than two channels
// whose loudness is asked for is also decoded at its own channels, step by
// step beside the item's decode, for the meter.
#pragma once

#include <memory>
#include <vector>

#include "codec/FileWriter.h"
#include "items/JobContext.h"
#include "items/SPcmInfo.h"
#include "load/AudioDecoder.h"
#include "platform/media/ChannelDecoder.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

struct SPcmInfo;

// The context of one load, carried by its step commands. Destroying it
// stops the codec first and then drops the writer, which removes the PCM
// file unless it was finished.
struct DecodeJob {
    DecodeJob(std::unique_ptr<AudioDecoder> d, std::unique_ptr<FileWriter> w)
        : decoder(std::move(d)), writer(std::move(w)) {}
    ~DecodeJob() {
        decoder.reset();
        writer.reset();
    }
    DecodeJob(const DecodeJob&) = delete;
    DecodeJob& operator=(const DecodeJob&) = delete;

    std::unique_ptr<AudioDecoder> decoder;
    std::unique_ptr<FileWriter> writer;  // null for a scan
    std::unique_ptr<ChannelDecoder> ownChannels;  // a scan's multichannel meter source, or null
    std::vector<float> floats;                    // ownChannels' samples of a step
    float lastProgress = 0.0f;  // the progress last reported for this load
    std::vector<char> staged;   // the step's decoded bytes, written at once
    uint64_t writtenBytes = 0;  // bytes that reached the PCM file
    uint32_t reportedDamage = 0;  // damaged packets already reported
};

class DecoderThread : public ChunkedJobThread {
public:
    static constexpr float kProgressStep = 0.2f;
    static constexpr uint8_t kStepUrgency = 7;
    // Decoded bytes a step gathers before it writes them (a step ends
    // sooner at the end of the stream): 16384 stereo frames.
    static constexpr size_t kStepBytes = 65536;
    // context: the engine running the worker (not owned; outlives it).
    explicit DecoderThread(JobContext* context);
    ~DecoderThread() override;

protected:
    bool isRegistered(uint32_t id) override;
    void startJob(WVThreadCmd& cmd) override;
    void runStep(WVThreadCmd& cmd) override;
    // A load dropped at shutdown or cancelled frees its job, and with it its
    // partial PCM file; at shutdown the item keeps its references.
    void deleteJob(void* job) override;
    // Sends an ending event and drops the decoder's reference on the item.
    void endJob(uint32_t id, uint32_t event, int32_t value) override;
    void dropReference(uint32_t id) override;
    bool lowPriority() override;

private:
    // The command's item, made the current one: the one look-up of a
    // command (see ChunkedJobThread::takeItem).
    SPcmInfo* itemOf(const WVThreadCmd& cmd);
    // `bytes` more of the load reached the file: the item's frames, the
    // waiting renders and the progress learn it.
    void countWritten(SPcmInfo* item, DecodeJob* job, uint32_t bytes);
    // Tells the item and the client about damaged packets skipped since the
    // last step.
    void noteDamage(SPcmInfo* item, DecodeJob* job);
    // A scan item's job, once its format is known; null when the scan
    // ended (with its event).
    DecodeJob* startScan(SPcmInfo* item, std::unique_ptr<AudioDecoder>& decoder,
                         uint32_t sourceChannels);
    // Feeds a scan's meter its multichannel samples: one block, or with
    // `all` everything left. False when they cannot be read or measured.
    bool feedOwnChannels(SPcmInfo* item, DecodeJob* job, bool all);

    JobContext* const mContext;
};

}  // namespace wv
