// One render of a clip list into its output file (see EncoderThread.h for
// the commands, events and files): the settings process() copied, and from
// its start on the reader, the encoder and the point generator. Each
// command 2 renders one block; a NormalisedRenderJob renders in passes
// instead, with the same start, writes and ending.
//
// Destroying it drops the reader, then the encoder (which removes its file
// unless it was finished), then the point generator (which discards an
// unfinished ".wave" file); then, if this render set the list's writingPath,
// it clears it: the output is in place or gone, and readers go back to the
// list's own path.
#pragma once

#include <memory>
#include <string>

#include "codec/AudioEncoder.h"
#include "dsp/WaveformData.h"
#include "items/PcmInfoReader.h"
#include "items/RenderSettings.h"
#include "items/SPcmInfo.h"
#include "platform/resample/AudioResampler.h"
#include "render/EncodePipe.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

class EncoderThread;

class RenderJob : public ChunkedJob {
public:
    // worker: the one that runs the job (outlives it).
    RenderJob(EncoderThread& worker, const RenderSettings& settings);
    ~RenderJob() override;
    RenderJob(const RenderJob&) = delete;
    RenderJob& operator=(const RenderJob&) = delete;

    // Waits while a source's format is unknown, then settles the output,
    // creates the encoder, the ".wave" file and the reader.
    JobStep start(WVThreadCmd& cmd) override;
    JobStep step(WVThreadCmd& cmd) override;

protected:
    // What the render writes, settled when it starts.
    struct OutputFormat {
        int32_t rate = 0;      // Hz, at least 1
        int32_t channels = 0;  // at least 1
        int32_t type = 0;      // an encode_type value
        int32_t bitRate = 0;   // kbit/s
        EncodeOptions options;
        // Resolved once: SRC_DEFAULT never reaches a resampler of the render.
        AudioResampler::src_quality resampleQuality = AudioResampler::SRC_DEFAULT;
        std::string path;
    };

    // A reader of the list from its start, in the output format.
    std::unique_ptr<PcmInfoReader> passReader() const;
    // The ending for a writer or encoder status (1 storage full, anything
    // else an error).
    static JobStep failed(int status);
    // The ending when a source of the list will never produce its data
    // (its load failed or was cancelled): 20 (-1).
    JobStep missingSource() const;
    // Feeds `frames` output frames to the point generator and the encoder
    // and counts them in the item's frames: a FileWriter status.
    int writeBlock(const int16_t* pcm, uint32_t frames);
    // The writer's status before new data: a held remainder's retry, or
    // with a pipe the failure its thread met.
    int writerStatus();
    // Puts the output in place: 22, or the failed write's ending.
    JobStep finish();
    // Called once the output is in place, before the client hears of it.
    virtual void finished() {}

    EncoderThread& mWorker;
    const RenderSettings mSettings;
    SPcmInfo* mItem = nullptr;  // from the start on
    OutputFormat mFormat;
    std::unique_ptr<PcmInfoReader> mReader;
    std::unique_ptr<AudioEncoder> mEncoder;
    // With more than one thread, formats whose encoder has no threads of
    // its own encode on the pipe's (see EncodePipe).
    std::unique_ptr<EncodePipe> mPipe;
    std::unique_ptr<WaveformState> mWaveform;
    float mLastProgress = 0.0f;  // the progress last reported

private:
    // The encoder threads of a render of `frames` frames at `rate` Hz when
    // the client asked for `asked` (0: the process default).
    static int encodeThreads(int32_t asked, uint32_t frames, int32_t rate);
    // Fills in what the client left unset (format, encoding, bit rate,
    // output path) and resets the list's progress counters.
    void settleOutput();

    bool mSetWritingPath = false;
};

}  // namespace wv
