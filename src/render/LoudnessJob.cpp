#define WV_LOG_TAG "EncoderThread"
#include "render/LoudnessJob.h"

#include <algorithm>
#include <vector>

#include "base/Clock.h"
#include "base/Log.h"
#include "items/PcmInfoReader.h"
#include "platform/media/ChannelDecoder.h"
#include "render/EncoderThread.h"
#include "render/ItemFormat.h"

namespace wv {
namespace {

// The item's file decoded at its own channels, when it has more than the
// item holds; null otherwise (or when it cannot be opened: the item's
// downmix is measured then).
std::unique_ptr<ChannelDecoder> multichannelSource(SPcmInfo* item) {
    SourceFacts facts;
    if (item->status.load() == CLIP_LIST || item->ranged || !item->sourceFacts(&facts) ||
        facts.channels <= 2) {
        return nullptr;
    }
    std::unique_ptr<ChannelDecoder> source(new ChannelDecoder());
    if (!source->open(item->path.get()) || source->channels() <= 2) {
        WV_LOGW("item %d: its %d channels cannot be read again, its downmix is measured",
                static_cast<int>(item->id), facts.channels);
        return nullptr;
    }
    return source;
}

// The item as a render reads it, 16-bit, through the worker's work buffer.
class ItemInput final : public LoudnessJob::Input {
public:
    ItemInput(std::unique_ptr<PcmInfoReader> reader, char* block)
        : mReader(std::move(reader)), mBlock(block) {}
    int32_t feed(LoudnessMeter* meter) override {
        const int32_t n = mReader->read(mBlock, EncoderThread::kBlockBytes);
        if (n < 0 || (n > 0 && !meter->add(reinterpret_cast<const int16_t*>(mBlock),
                                           static_cast<size_t>(n)))) {
            return -1;
        }
        return n;
    }
    State state(int32_t) const override {
        switch (mReader->endState()) {
            case PcmInfoReader::END:
                return kEnd;
            case PcmInfoReader::WAIT:
                return kWait;
            default:
                return kMore;
        }
    }
    uint32_t rate() const override { return static_cast<uint32_t>(mReader->outSampleRate()); }
    float progress(uint64_t frames, uint64_t total) const override {
        return static_cast<float>(frames) / static_cast<float>(total);
    }

private:
    std::unique_ptr<PcmInfoReader> mReader;
    char* const mBlock;
};

// The file at its own channels, in float; it ends when it has no more.
class FileInput final : public LoudnessJob::Input {
public:
    explicit FileInput(std::unique_ptr<ChannelDecoder> source) : mSource(std::move(source)) {}
    int32_t feed(LoudnessMeter* meter) override {
        const uint32_t channels = mSource->channels();
        const int maxFrames = static_cast<int>(EncoderThread::kBlockBytes / 2 / channels);
        mFloats.resize(static_cast<size_t>(maxFrames) * channels);
        const int n = mSource->read(mFloats.data(), maxFrames);
        if (n < 0 || (n > 0 && !meter->add(mFloats.data(), static_cast<size_t>(n)))) return -1;
        return n;
    }
    State state(int32_t fed) const override { return fed == 0 ? kEnd : kMore; }
    uint32_t rate() const override { return mSource->rate(); }
    float progress(uint64_t frames, uint64_t total) const override {
        return std::min(1.0f, static_cast<float>(frames) / static_cast<float>(total));
    }

private:
    std::unique_ptr<ChannelDecoder> mSource;
    std::vector<float> mFloats;  // one block
};

}  // namespace

LoudnessJob::LoudnessJob(EncoderThread& worker) : mWorker(worker) {}

LoudnessJob::~LoudnessJob() = default;

JobStep LoudnessJob::start(WVThreadCmd& cmd) {
    SPcmInfo* item = mWorker.itemOf(cmd);
    uint32_t rate = 0;
    uint32_t channels = 0;
    JobStep instead = JobStep::next(0);
    if (!readableNow(item, "measured", "the measurement", &rate, &channels, &instead))
        return instead;
    if (std::unique_ptr<ChannelDecoder> source = multichannelSource(item)) {
        rate = source->rate();
        const uint32_t sourceChannels = source->channels();
        mMeter.reset(new LoudnessMeter(rate, sourceChannels));
        for (uint32_t c = 0; c < sourceChannels; ++c) {
            mMeter->weigh(c, weightOfPlace(source->place(c)));
        }
        mInput.reset(new FileInput(std::move(source)));
    } else {
        std::unique_ptr<PcmInfoReader> reader(new PcmInfoReader(item));
        reader->setOutputFormat(static_cast<int32_t>(rate), static_cast<int32_t>(channels));
        mMeter.reset(new LoudnessMeter(rate, channels));
        mInput.reset(new ItemInput(std::move(reader), mWorker.workBuffer()));
    }
    if (!mMeter->valid()) return JobStep::end(EVT_RENDER_FAILED, -11);
    mTotalFrames = expectedFrames(item, rate);
    return JobStep::next(0);
}

JobStep LoudnessJob::step(WVThreadCmd& cmd) {
    SPcmInfo* item = mWorker.itemOf(cmd);
    const pcm_id_t id = item->id;
    const TimeVal begin = timeOfDay();

    const int32_t n = mInput->feed(mMeter.get());
    if (n < 0) {
        WV_LOGE("item %d could not be read or measured", static_cast<int>(id));
        return JobStep::end(EVT_RENDER_FAILED, -11);
    }
    const Input::State state = mInput->state(n);
    if (state == Input::kEnd && n == 0) return finish(id);
    mFrames += static_cast<uint64_t>(n);
    // A file still loading may learn its length meanwhile.
    if (mTotalFrames == 0) mTotalFrames = expectedFrames(item, mInput->rate());
    if (n > 0 && mTotalFrames > 0) {
        mWorker.update(mInput->progress(mFrames, mTotalFrames), &mLastProgress);
    }

    switch (state) {
        case Input::kEnd:
            return finish(id);
        case Input::kWait:
            if (sourceFailed(item)) {
                WV_LOGE("a source of item %d failed to load during the measurement",
                        static_cast<int>(id));
                return JobStep::end(EVT_RENDER_FAILED, -1);
            }
            return JobStep::wait(EncoderThread::kRetryDelayMs);
        default:
            return JobStep::next(ChunkedJobThread::elapsedMs(begin, timeOfDay()));
    }
}

JobStep LoudnessJob::finish(pcm_id_t id) {
    LoudnessFigures figures{};
    if (!mMeter->figures(&figures)) return JobStep::end(EVT_RENDER_FAILED, -11);
    WV_LOGI("item %d: %.1f LUFS, range %.1f LU, true peak %.1f dBTP", static_cast<int>(id),
            figures.integratedLufs, figures.rangeLu, figures.truePeakDbtp);
    JobContext* context = mWorker.context();
    context->notifyClient(
        WVThreadCmd(EVT_LOUDNESS_INTEGRATED, id, LoudnessMeter::tenths(figures.integratedLufs)), 0);
    context->notifyClient(
        WVThreadCmd(EVT_LOUDNESS_TRUE_PEAK, id, LoudnessMeter::tenths(figures.truePeakDbtp)), 0);
    // The last of the three ends the job and drops its reference.
    return JobStep::end(EVT_LOUDNESS_RANGE, LoudnessMeter::tenths(figures.rangeLu));
}

}  // namespace wv
