// The measuring pass of a normalised render on several threads: the list is
// cut at multiples of the meter's block hop (LoudnessMeter::blockHop) into
// parts, each read from its own place by a reader of its own into a meter
// of its own, primed with the kPrimingHops hops before it; the render's own
// thread reads parts too, one block per call of step(), and up to
// threads - 1 workers read the others. A part is taken by whichever thread
// is free, so a slow thread holds up the end by one part at most. The
// loudness is that of every part's blocks together
// (LoudnessMeter::integratedOf), the sample peak the largest of the parts'.
//
// Only a list that reads the same frames from any place is cut: every
// source loaded (no read waits for data), at the output rate (a converter
// started mid-clip is not primed the way a read from the clip's start
// leaves it), none of them a list, and no noise reduction or tempo (whose
// output depends on everything before). Others, and lists shorter than two
// parts, are measured in one piece by the render as before (create gives
// null). A part that still meets data to come ends the parts (kWhole): the
// render measures the list in one piece from its start.
//
// Threads: create, step and the results on the render's thread; the
// workers call `wake` (any thread) whenever a part ends or fails, so a
// render waiting for them goes on. Destroying the parts stops the workers
// within a block and joins them: none outlives its render.
//
// Memory: per part a meter (under 1 KB per second of its audio); per worker
// a reader and one block of floats.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "dsp/LoudnessMeter.h"
#include "items/PcmInfoReader.h"
#include "items/SPcmInfo.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

class MeasureParts {
public:
    // The parts read by each thread on average: a thread that ends early
    // takes another instead of waiting for a long one.
    static constexpr uint32_t kPartsPerThread = 4;
    // A part lasts at least this many hops (1 s), so priming stays small.
    static constexpr uint32_t kShortestPartHops = 10;

    struct Format {
        int32_t rate;
        int32_t channels;
        AudioResampler::src_quality quality;
    };
    enum State {
        kMore,     // step again
        kWaiting,  // every part is taken: step again when woken
        kDone,     // every part is measured: the results are ready
        kFailed,   // a read or the meter failed
        kWhole,    // a part met data still to come: measure in one piece
    };

    // The parts of list `item` (which the caller keeps alive and loaded in
    // its render) read in `format` with up to `threads` threads, in blocks
    // of `blockFrames`; null when the list is measured in one piece.
    static std::unique_ptr<MeasureParts> create(SPcmInfo* item, const Format& format, int threads,
                                                uint32_t blockFrames, std::function<void()> wake);
    ~MeasureParts();
    MeasureParts(const MeasureParts&) = delete;
    MeasureParts& operator=(const MeasureParts&) = delete;

    // Reads one block of a part into `block` (blockFrames x channels
    // floats) on the render's thread, or tells what is left to do.
    State step(float* block);
    // The list frames measured so far (priming not counted), any thread.
    uint64_t framesMeasured() const { return mMeasured.load(); }
    // After kDone: the integrated loudness (LUFS, -infinity without any)
    // of the whole list; false when it could not be computed.
    bool integrated(double* lufs) const;
    // After kDone: the largest sample magnitude (full scale 1).
    float samplePeak() const;
    // The parts the list was cut into.
    size_t partCount() const { return mParts.size(); }

private:
    struct Part {
        uint32_t start = 0;
        uint32_t end = PcmInfoReader::kToEnd;
        std::unique_ptr<LoudnessMeter> meter;
        float peak = 0.0f;
    };
    // A thread's part in progress.
    struct Run {
        Part* part = nullptr;
        std::unique_ptr<PcmInfoReader> reader;
        uint32_t priming = 0;  // frames still to read before the part's start
    };
    enum Outcome { kRead, kEnded, kError, kNotWhole };

    MeasureParts(SPcmInfo* item, const Format& format, uint32_t blockFrames,
                 std::function<void()> wake);
    // Gives `run` the next part not taken yet; false when none is left.
    bool take(Run* run);
    // Reads and measures one block of run's part.
    Outcome readBlock(Run* run, float* block);
    // A worker: parts until none is left, a failure or the stop.
    void work();
    // Records the end of a thread's reading (a part done or a failure).
    void ended(Outcome outcome, bool fromWorker);

    SPcmInfo* const mItem;
    const Format mFormat;
    const uint32_t mBlockFrames;
    const std::function<void()> mWake;
    std::vector<Part> mParts;  // fixed once the workers run
    std::atomic<size_t> mNextPart{0};
    std::atomic<size_t> mPartsDone{0};
    std::atomic<uint64_t> mMeasured{0};
    std::atomic<int> mProblem{kRead};  // the first kError or kNotWhole met
    std::atomic<bool> mStop{false};
    Run mOwn;  // the render thread's
    std::vector<std::thread> mWorkers;
};

}  // namespace wv
