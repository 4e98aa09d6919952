#define WV_LOG_TAG "EncoderThread"
#include "render/MeasureParts.h"

#include <algorithm>
#include <cmath>
#include <system_error>

#include "base/Log.h"
#include "items/ClipEffects.h"
#include "items/PcmClipList.h"

namespace wv {
namespace {

// Whether a reader of the list set to any frame reads the frames a read
// from its start gives there (see MeasureParts.h).
bool readsTheSameFromAnyFrame(SPcmInfo* item, int32_t rate) {
    const PcmClipList& list = *item->clipList;
    if (list.listEffects().streamed()) return false;
    for (const PcmClip& clip : list.clips()) {
        const SPcmInfo* source = clip.source;
        if (source->status.load() != PCM_READY || source->sampleRate.load() != rate) return false;
    }
    return true;
}

}  // namespace

MeasureParts::MeasureParts(SPcmInfo* item, const Format& format, uint32_t blockFrames,
                           std::function<void()> wake)
    : mItem(item), mFormat(format), mBlockFrames(blockFrames), mWake(std::move(wake)) {}

std::unique_ptr<MeasureParts> MeasureParts::create(SPcmInfo* item, const Format& format,
                                                   int threads, uint32_t blockFrames,
                                                   std::function<void()> wake) {
    if (threads < 2 || blockFrames == 0 || item->status.load() != CLIP_LIST || !item->clipList ||
        !readsTheSameFromAnyFrame(item, format.rate)) {
        return nullptr;
    }
    std::vector<ClipPlacement> places;
    if (item->clipList->place(&places, false, format.rate) != 0 || places.empty()) return nullptr;
    const uint64_t length = places.back().listStart + places.back().length;
    const uint32_t rate = static_cast<uint32_t>(format.rate);
    const uint32_t channels = static_cast<uint32_t>(format.channels);
    const uint64_t hop = LoudnessMeter::blockHop(rate);
    const uint64_t hops = length / hop;
    const uint64_t count =
        std::min<uint64_t>(uint64_t(threads) * kPartsPerThread, hops / kShortestPartHops);
    if (count < 2 || length >= PcmInfoReader::kToEnd) return nullptr;

    std::unique_ptr<MeasureParts> parts(new MeasureParts(item, format, blockFrames, std::move(wake)));
    // The meters are made here, before any worker runs: the library's
    // set-up writes tables that its metering reads.
    parts->mParts.resize(static_cast<size_t>(count));
    for (uint64_t k = 0; k < count; ++k) {
        Part& part = parts->mParts[static_cast<size_t>(k)];
        part.start = static_cast<uint32_t>(hops * k / count * hop);
        if (k + 1 < count) part.end = static_cast<uint32_t>(hops * (k + 1) / count * hop);
        part.meter.reset(new LoudnessMeter(rate, channels, MeterScope::kIntegrated));
        if (!part.meter->valid()) return nullptr;
    }
    const size_t workers = std::min<size_t>(static_cast<size_t>(threads), parts->mParts.size()) - 1;
    for (size_t w = 0; w < workers; ++w) {
        try {
            parts->mWorkers.emplace_back(&MeasureParts::work, parts.get());
        } catch (const std::system_error&) {
            // Fewer threads read the same parts.
            WV_LOGW("list %d: measured on %zu threads, not %d", static_cast<int>(item->id),
                    w + 1, threads);
            break;
        }
    }
    WV_LOGI("list %d: measured in %zu parts on %zu threads", static_cast<int>(item->id),
            parts->mParts.size(), parts->mWorkers.size() + 1);
    return parts;
}

MeasureParts::~MeasureParts() {
    mStop.store(true);
    for (std::thread& worker : mWorkers) worker.join();
}

bool MeasureParts::take(Run* run) {
    const size_t next = mNextPart.fetch_add(1);
    if (next >= mParts.size()) return false;
    Part& part = mParts[next];
    std::unique_ptr<PcmInfoReader> reader(new PcmInfoReader(mItem));
    reader->setOutputFormat(mFormat.rate, mFormat.channels);
    reader->setResampleQuality(mFormat.quality);
    const uint32_t lead = LoudnessMeter::kPrimingHops * LoudnessMeter::blockHop(mFormat.rate);
    run->priming = std::min(part.start, lead);
    reader->setPosition(part.start - run->priming, part.end);
    run->reader = std::move(reader);
    run->part = &part;
    return true;
}

MeasureParts::Outcome MeasureParts::readBlock(Run* run, float* block) {
    Part& part = *run->part;
    // The priming is read apart from the part's frames, so that only those
    // count in the progress.
    const uint32_t asked = run->priming > 0 ? std::min(run->priming, mBlockFrames) : mBlockFrames;
    const int32_t n = run->reader->readFloat(block, asked);
    if (n < 0) return kError;
    const size_t frames = static_cast<size_t>(n);
    // The primed frames are the list's own too: they may count in the peak.
    for (size_t k = 0; k < frames * static_cast<uint32_t>(mFormat.channels); ++k) {
        part.peak = std::max(part.peak, std::fabs(block[k]));
    }
    if (frames > 0 && !part.meter->add(block, frames)) return kError;
    if (run->priming > 0) {
        run->priming -= std::min<uint32_t>(run->priming, static_cast<uint32_t>(n));
    } else {
        mMeasured.fetch_add(frames);
    }
    switch (run->reader->endState()) {
        case PcmInfoReader::END:
            return kEnded;
        case PcmInfoReader::WAIT:
            return kNotWhole;
        default:
            // A read that gives nothing yet is not at its end would spin.
            return n > 0 ? kRead : kNotWhole;
    }
}

void MeasureParts::ended(Outcome outcome, bool fromWorker) {
    if (outcome == kEnded) {
        mPartsDone.fetch_add(1);
    } else {
        int none = kRead;
        mProblem.compare_exchange_strong(none, outcome);
    }
    if (fromWorker) mWake();
}

void MeasureParts::work() {
    std::vector<float> block(size_t(mBlockFrames) * static_cast<uint32_t>(mFormat.channels));
    Run run;
    while (!mStop.load() && mProblem.load() == kRead) {
        if (run.part == nullptr && !take(&run)) break;
        const Outcome outcome = readBlock(&run, block.data());
        if (outcome == kRead) continue;
        run.part = nullptr;
        run.reader.reset();
        ended(outcome, true);
    }
}

MeasureParts::State MeasureParts::step(float* block) {
    const auto problem = [this]() {
        switch (mProblem.load()) {
            case kError:
                return kFailed;
            case kNotWhole:
                return kWhole;
            default:
                return kMore;
        }
    };
    if (problem() != kMore) return problem();
    if (mOwn.part == nullptr && !take(&mOwn)) {
        return mPartsDone.load() == mParts.size() ? kDone : kWaiting;
    }
    const Outcome outcome = readBlock(&mOwn, block);
    if (outcome != kRead) {
        mOwn.part = nullptr;
        mOwn.reader.reset();
        ended(outcome, false);
    }
    if (problem() != kMore) return problem();
    return mPartsDone.load() == mParts.size() ? kDone : kMore;
}

bool MeasureParts::integrated(double* lufs) const {
    std::vector<const LoudnessMeter*> meters;
    meters.reserve(mParts.size());
    for (const Part& part : mParts) meters.push_back(part.meter.get());
    return LoudnessMeter::integratedOf(meters.data(), meters.size(), lufs);
}

float MeasureParts::samplePeak() const {
    float peak = 0.0f;
    for (const Part& part : mParts) peak = std::max(peak, part.peak);
    return peak;
}

}  // namespace wv
