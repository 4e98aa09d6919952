// The encoder worker: renders clip lists into output files, one block per
// command, so that cancel and suspend requests act between blocks.
//
// Commands:
//   {1, listId, -1, null}  start a render (posted by process, urgency 7;
//                          posted again by the worker while a clip's source
//                          has not begun to load).
//   {2, listId, -1, job}   render the next block (posted by the worker
//                          itself, urgency 2, so one render runs to its end
//                          before the next starts; posted again while a
//                          source has no more data yet, or delayed by as long
//                          as the step took when the engine's thread
//                          priority is 1).
//   {3, id, -1, null}      start a loudness measurement of an item or a list
//                          (posted by measureLoudness, urgency 7; posted
//                          again while the item's format is unknown). Its
//                          blocks are commands 2 carrying a LoudnessJob; see
//                          LoudnessMeasure.cpp.
// A list with a loudness target (RenderSettings::loudnessTarget, set by
// setListLoudness) renders in passes (see NormalisePlan): its commands 2
// first measure the list (and check the limited result when the limiter
// will act), then encode it with the gain found, through a TruePeakLimiter,
// dithered to 16-bit once. Every pass is a chain of commands 2 like a
// plain render's, so cancel, suspend and resume act in each of them; the
// output is created when the render starts, as for a plain render, and
// removed by any ending but 22. Progress: the first pass 0-25 %, the check
// passes 25-50 % (a third each), the encoding 50-100 %.
//
// A render waiting for a source runs again as soon as the decoder reports
// data, a known format or the end of a load (JobContext::dataArrived), and
// after kRetryDelayMs (1000 ms) at the latest.
//
// A render settles the list's output format (the format its clips suggest
// when the client set none), its encoding (an unknown type is WAV; bit rate
// 320 kbit/s when unset), its resampler (the list's quality, else the
// process default) and its output path ("<working dir><id>.wav" or ".mp3"
// when unset), then reads the list through a PcmInfoReader in blocks
// of at most kBlockBytes (16384 bytes: 4096 stereo or 8192 mono frames),
// feeding each block to the waveform point generator (the ".wave" file
// beside the output, one byte per 20 ms) and to the encoder.
//
// Events (third field in brackets), each render ending with exactly one of
// 22, 20, 25, 23:
//   21 (%)   progress, frames / totalFrames, in steps of more than 10 %.
//   22 (-1)  the output file is complete.
//   20 (-1)  the encoder could not be created (the file cannot be made).
//   20 (-11) a read, write or encoding error.
//   25 (-1)  storage full, or the encoder could not be initialised.
//   23 (-1)  cancelled on request.
// Every ending releases the render's REF_ENCODER reference on the list. The
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
#include <memory>
#include <string>
#include <vector>

#include "codec/AudioEncoder.h"
#include "dsp/LoudnessMeter.h"
#include "dsp/WaveformData.h"
#include "items/JobContext.h"
#include "items/PcmInfoReader.h"
#include "items/SPcmInfo.h"
#include "platform/media/ChannelDecoder.h"
#include "render/NormalisePlan.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

struct SPcmInfo;

// What the step commands of the worker carry: a render or a measurement.
struct EncoderJob {
    virtual ~EncoderJob() = default;
};

// The context of one render, carried by its step commands. Destroying it
// drops the reader, then the encoder (which removes its file unless it was
// finished), then the point generator (which discards an unfinished
// ".wave" file).
struct EncodeJob final : EncoderJob {
    EncodeJob(std::unique_ptr<PcmInfoReader> r, std::unique_ptr<AudioEncoder> e,
              std::unique_ptr<WaveformState> w)
        : reader(std::move(r)), encoder(std::move(e)), waveform(std::move(w)) {}
    ~EncodeJob() override {
        normalise.reset();
        reader.reset();
        encoder.reset();
        waveform.reset();
    }
    EncodeJob(const EncodeJob&) = delete;
    EncodeJob& operator=(const EncodeJob&) = delete;

    std::unique_ptr<PcmInfoReader> reader;
    std::unique_ptr<AudioEncoder> encoder;
    std::unique_ptr<WaveformState> waveform;
    std::unique_ptr<NormalisePlan> normalise;  // null for a plain render
    float lastProgress = 0.0f;                 // the progress last reported for this render
};

// The context of one loudness measurement: it writes nothing, so the item's
// own counters are left alone and the frames are counted here.
struct LoudnessJob final : EncoderJob {
    LoudnessJob(std::unique_ptr<PcmInfoReader> r, uint32_t rate, uint32_t channels)
        : reader(std::move(r)), meter(rate, channels), channels(channels) {}
    // A file of more than two channels, read from the file itself.
    LoudnessJob(std::unique_ptr<ChannelDecoder> s, uint32_t rate, uint32_t channels)
        : source(std::move(s)), meter(rate, channels), channels(channels) {}

    std::unique_ptr<PcmInfoReader> reader;     // null when source is set
    std::unique_ptr<ChannelDecoder> source;
    std::vector<float> floats;  // one block of source
    LoudnessMeter meter;
    const uint32_t channels;
    uint64_t frames = 0;        // read so far
    uint64_t totalFrames = 0;   // expected at the measured rate; 0 while unknown
    float lastProgress = 0.0f;  // the progress last reported
};

class EncoderThread : public ChunkedJobThread {
public:
    static constexpr float kProgressStep = 0.1f;
    static constexpr uint8_t kStepUrgency = 2;
    static constexpr uint32_t kBlockBytes = 16384;
    static constexpr uint32_t kRetryDelayMs = 1000;
    static constexpr uint32_t kCmdMeasure = 3;

    // context: the engine running the worker (not owned; outlives it).
    explicit EncoderThread(JobContext* context);
    ~EncoderThread() override;

    // The longest a render waiting for a source sleeps before it looks
    // again when nothing wakes it (kRetryDelayMs unless set). Tests set it
    // far beyond their time-outs to show that the wake alone moves renders.
    void setRetryDelayMs(uint32_t ms) { mRetryDelayMs.store(ms); }

protected:
    // The hooks of ChunkedJobThread. A cancel of code 1 sends 23 and
    // releases; of code 2 it deletes the job first (its unfinished output
    // removed); of any other code it only releases.
    bool isRegistered(uint32_t id) override;
    bool startsJob(uint32_t code) const override {
        return code == kCmdStart || code == kCmdMeasure;
    }
    void startJob(WVThreadCmd& cmd) override;
    void runStep(WVThreadCmd& cmd) override;
    // A render dropped at shutdown frees its job (and its unfinished
    // output) without an event; the list keeps its references.
    void deleteJob(void* job) override;
    // Sends an ending event and drops the render's reference on the list.
    void endJob(uint32_t id, uint32_t event, int32_t value) override;
    void dropReference(uint32_t id) override;
    bool lowPriority() override;

private:
    // What a render writes, fixed when it starts.
    struct OutputFormat {
        int32_t rate = 0;      // Hz, at least 1
        int32_t channels = 0;  // at least 1
        int32_t type = 0;      // an encode_type value
        int32_t bitRate = 0;   // kbit/s
        EncodeOptions options;
        AudioResampler::src_quality resampleQuality = AudioResampler::SRC_DEFAULT;
        std::string path;
    };
    // Fills in what the client left unset (format, encoding, bit rate,
    // output path) and resets the progress counters. Returns the settings
    // as read once here: the client may change the item's meanwhile.
    OutputFormat settleOutput(SPcmInfo* item, const RenderSettings& settings);
    // The command's item, made the current one: the one look-up of a
    // command (the render's reference keeps the list registered while its
    // commands exist; see ChunkedJobThread::takeItem).
    SPcmInfo* itemOf(const WVThreadCmd& cmd);
    // Deletes the job and ends the render for a writer or encoder status
    // (1 storage full, anything else an error).
    void failRender(pcm_id_t id, EncodeJob* job, int status);
    // Feeds `frames` output frames to the point generator and the encoder
    // and counts them in the item's frames; false after ending the render
    // on a failure.
    bool writeBlock(SPcmInfo* item, EncodeJob* job, const int16_t* pcm, uint32_t frames);
    // Puts the output in place and ends the render (22), or ends it on the
    // failed write.
    void finishRender(SPcmInfo* item, EncodeJob* job);
    // A reader of the list from its start, in the render's output format.
    static std::unique_ptr<PcmInfoReader> passReader(SPcmInfo* item, int32_t rate, int32_t channels,
                                                     AudioResampler::src_quality quality);

    // The normalised render (NormalisedRender.cpp): one block of the
    // current pass, and the step from one pass to the next.
    void normaliseStep(WVThreadCmd& cmd, SPcmInfo* item, EncodeJob* job);
    // Encodes a block of float output; false after ending the render.
    bool encodeFloat(SPcmInfo* item, EncodeJob* job, const float* samples, size_t frames);
    // Ends the current pass: decides the gain and starts the next pass, or
    // finishes the render. False when the render ended.
    bool endPass(SPcmInfo* item, EncodeJob* job);

    // Ends the render with event 20 (-1) when a source of the list will never
    // produce its data (its load failed or was cancelled); false otherwise.
    bool failMissingSource(SPcmInfo* item, EncodeJob* job);

    // The loudness measurement (LoudnessMeasure.cpp): its start, one block,
    // and its ending with the three result events.
    void startMeasure(WVThreadCmd& cmd);
    void measureStep(WVThreadCmd& cmd, LoudnessJob* job);
    // One block of a file read again at its own channels.
    void measureSourceStep(WVThreadCmd& cmd, LoudnessJob* job);
    void finishMeasure(pcm_id_t id, LoudnessJob* job);
    // Sends a measurement's ending event and drops its reference.
    void endMeasure(pcm_id_t id, uint32_t event, int32_t value);

    alignas(8) char mWorkBuffer[kBlockBytes];

    JobContext* const mContext;
    std::atomic<uint32_t> mRetryDelayMs{kRetryDelayMs};
};

}  // namespace wv
