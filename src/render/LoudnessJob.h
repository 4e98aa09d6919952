// A loudness measurement of an item or a clip list (measureLoudness): the
// item read like a render, at its own rate and channel count, into a
// LoudnessMeter instead of an encoder. A loaded file of more than two
// channels, whose item holds a stereo downmix, is decoded again from the
// file at its own channels, each weighed as ITU-R BS.1770 says.
//
// Events: it reuses the render's for progress (21), failure (20: -1 a source
// that will never load, -11 a read or meter error) and cancel (23), as
// Wavoryx.h documents, and ends with 26, 27 and 28. It writes nothing, so
// the item's own counters and writingPath are left alone; its frames are
// counted here.
#pragma once

#include <cstdint>
#include <memory>

#include "dsp/LoudnessMeter.h"
#include "items/SPcmInfo.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

class EncoderThread;

class LoudnessJob final : public ChunkedJob {
public:
    // Where the frames come from: the item as a render reads it, or the
    // file at its own channels. Chosen when the measurement starts.
    class Input {
    public:
        enum State { kMore, kEnd, kWait };
        virtual ~Input() = default;
        // Feeds the next block to `meter`: frames fed, -1 on a read or
        // meter error.
        virtual int32_t feed(LoudnessMeter* meter) = 0;
        // After a feed of `fed` frames: more to come, the end, or a wait
        // for a source still loading.
        virtual State state(int32_t fed) const = 0;
        virtual uint32_t rate() const = 0;
        // The progress of `frames` read of `total` expected.
        virtual float progress(uint64_t frames, uint64_t total) const = 0;
    };

    // worker: the one that runs the job (outlives it).
    explicit LoudnessJob(EncoderThread& worker);
    ~LoudnessJob() override;

    // Waits while the item's format is unknown, then chooses the input.
    JobStep start(WVThreadCmd& cmd) override;
    JobStep step(WVThreadCmd& cmd) override;

private:
    // Sends 26 and 27 and ends with 28; a meter without figures ends with
    // 20 (-11).
    JobStep finish(pcm_id_t id);

    EncoderThread& mWorker;
    std::unique_ptr<Input> mInput;
    std::unique_ptr<LoudnessMeter> mMeter;
    uint64_t mFrames = 0;        // read so far
    uint64_t mTotalFrames = 0;   // expected at the measured rate; 0 while unknown
    float mLastProgress = 0.0f;  // the progress last reported
};

}  // namespace wv
