// A silence scan of an item or a clip list (scanSilence): the item read like
// a render, at its own rate and channel count, into a SilenceFinder instead
// of an encoder. It writes nothing; what it finds goes to the item's
// SilenceResults before its ending event, so a client that gets the event
// reads the intervals at once.
//
// Events: it reuses the render's for progress (21), failure (20: -1 a source
// that will never load, -11 a read error) and cancel (23), as the
// measurement does, and ends with 29 (the number of silences found).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "items/SPcmInfo.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

class EncoderThread;
class PcmInfoReader;
class SilenceFinder;

class SilenceJob final : public ChunkedJob {
public:
    // Frames read per step: large, as finding silence costs little per
    // frame; cancel still acts within a few hundred ms of audio.
    static constexpr uint32_t kBlockBytes = 262144;

    // worker: the one that runs the job (outlives it). thresholdDb: -120
    // to 0; minMs: the shortest silence, in ms.
    SilenceJob(EncoderThread& worker, double thresholdDb, uint32_t minMs);
    ~SilenceJob() override;

    // Waits while the item's format is unknown, then opens the reader.
    JobStep start(WVThreadCmd& cmd) override;
    JobStep step(WVThreadCmd& cmd) override;

private:
    JobStep finish(SPcmInfo* item);

    EncoderThread& mWorker;
    const double mThresholdDb;
    const uint32_t mMinMs;
    std::unique_ptr<PcmInfoReader> mReader;
    std::unique_ptr<SilenceFinder> mFinder;
    std::vector<char> mBlock;
    uint32_t mChannels = 0;
    uint64_t mTotalFrames = 0;   // expected; 0 while unknown
    float mLastProgress = 0.0f;  // the progress last reported
};

}  // namespace wv
