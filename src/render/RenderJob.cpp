#define WV_LOG_TAG "EncoderThread"
#include "render/RenderJob.h"

#include <wavoryx/Wavoryx.h>

#include <algorithm>
#include <thread>

#include "base/Clock.h"
#include "base/Log.h"
#include "items/ListChapters.h"
#include "platform/OutputFile.h"
#include "base/Properties.h"
#include "render/EncoderThread.h"

namespace wv {

RenderJob::RenderJob(EncoderThread& worker, const RenderSettings& settings)
    : mWorker(worker), mSettings(settings) {}

RenderJob::~RenderJob() {
    mPipe.reset();
    mReader.reset();
    mEncoder.reset();
    mWaveform.reset();
    if (mSetWritingPath) mItem->writingPath.set("");
}

JobStep RenderJob::failed(int status) {
    if (status == FileWriter::WRITE_NAME_TAKEN) {
        WV_LOGW("the output's name was taken while it was made: not overwritten");
        return JobStep::end(EVT_RENDER_FAILED, -17);
    }
    if (status == FileWriter::WRITE_STORAGE_FULL) {
        WV_LOGW("Cancel file encode due to low space");
        return JobStep::end(EVT_RENDER_STOPPED, -1);
    }
    WV_LOGE("Encoder error!");
    return JobStep::end(EVT_RENDER_FAILED, -11);
}

JobStep RenderJob::missingSource() const {
    WV_LOGE("list %d holds an item whose load failed: it cannot be rendered",
            static_cast<int>(mItem->id));
    return JobStep::end(EVT_RENDER_FAILED, -1);
}

int RenderJob::encodeThreads(int32_t asked, uint32_t frames, int32_t rate) {
    if (asked > 0) return std::min<int32_t>(asked, kMaxEncodeThreads);
    const int32_t byProperty =
        property_get_int("af.encoder.threads", 0, 0, kMaxEncodeThreads);
    if (byProperty > 0) return byProperty;
    // Below a few seconds a second thread has nothing to share.
    constexpr uint32_t kShortestShared = 10;  // seconds
    if (frames < kShortestShared * static_cast<uint32_t>(rate)) return 1;
    return static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

void RenderJob::settleOutput() {
    PcmClipList& list = *mItem->clipList;
    OutputFormat& format = mFormat;
    format.rate = mSettings.sampleRate >= 1 ? mSettings.sampleRate : list.getSamplerate();
    format.channels = mSettings.channels >= 1 ? mSettings.channels : list.getChannelCount();
    mItem->sampleRate.store(format.rate);
    mItem->channelCount.store(format.channels);

    // Resolved here once: the length predicted and every resampler of the
    // render are of this one kind.
    format.resampleQuality = AudioResampler::resolve(
        static_cast<AudioResampler::src_quality>(mSettings.resampleQuality));
    mItem->frames.store(0);
    uint64_t exact = 0;
    if (AudioResampler::makesExactLength(format.resampleQuality) &&
        list.convertedLength(format.rate, &exact)) {
        mItem->totalFrames.store(static_cast<uint32_t>(std::min<uint64_t>(exact, 0xFFFFFFFFu)));
    } else {
        const double seconds = static_cast<double>(mItem->frame2duration(0, 0xFFFFFFFF)) / 1000.0;
        mItem->totalFrames.store(static_cast<uint32_t>(seconds * format.rate));
    }

    format.type = isEncodeFormat(mSettings.type) ? mSettings.type : ENCODE_WAV;
    format.bitRate = mSettings.bitRate > 0
                         ? mSettings.bitRate
                         : defaultBitRate(static_cast<EncodeFormat>(format.type));
    format.options.quality = mSettings.quality;
    format.options.vbr = mSettings.vbr;
    format.options.jointStereo = mSettings.jointStereo;
    format.options.threads = encodeThreads(mSettings.encodeThreads, mItem->totalFrames.load(),
                                           format.rate);
    mItem->outputRate.store(0);
    mItem->outputChannels.store(0);
    mItem->outputBitRate.store(0);
    mItem->loudnessResult.store(LoudnessResult::kNone);

    format.path = mSettings.path;
    if (format.path.empty()) {
        format.path = mWorker.context()->workingDir() + std::to_string(mItem->id) +
                      formatSuffix(static_cast<EncodeFormat>(format.type));
    }
    mItem->path.set(format.path);
}

JobStep RenderJob::start(WVThreadCmd& cmd) {
    mItem = mWorker.itemOf(cmd);
    const pcm_id_t id = mItem->id;

    // A source whose format is not known yet gives the list no format and
    // its millisecond clips no frames: wait for its load to begin.
    if (mItem->clipList->hasFailedSource()) return missingSource();
    if (mItem->clipList->isPcmReady() == 0) {
        WV_LOGD("wait some time till the list clips %d are ready", static_cast<int>(id));
        return JobStep::wait(mWorker.retryDelayMs());
    }

    settleOutput();
    // Where a source's chapters land depends on the lengths of the clips
    // before them: a source still loading holds the render until it ends.
    OutputTags tags = mSettings.outputTags;
    if (mSettings.carryChapters &&
        !carriedChapters(*mItem->clipList, mFormat.rate, &tags.chapters)) {
        WV_LOGD("list %d waits for its sources' lengths to place their chapters",
                static_cast<int>(id));
        return JobStep::wait(mWorker.retryDelayMs());
    }
    const uint32_t rate = static_cast<uint32_t>(mFormat.rate);
    const uint32_t channels = static_cast<uint32_t>(mFormat.channels);
    const std::string& path = mFormat.path;
    const int mode = mSettings.outputMode;
    const int placement =
        ((mode & (WV_OUTPUT_WHOLE | WV_OUTPUT_HOLD)) != 0 ? OutputFile::kCompleteOnly : 0) |
        ((mode & WV_OUTPUT_NO_REPLACE) != 0 ? OutputFile::kCompleteOnly | OutputFile::kNoReplace
                                            : 0);
    mEncoder.reset(AudioEncoder::createAudioEncoder(static_cast<EncodeFormat>(mFormat.type),
                                                    path.c_str(), placement));
    if (!mEncoder) {
        WV_LOGE("createAudioEncoder error!");
        return JobStep::end(EVT_RENDER_FAILED, -1);
    }
    mEncoder->setOptions(mFormat.options);
    if (!tags.empty()) {
        tags.expectedMs = static_cast<int64_t>(mItem->totalFrames.load()) * 1000 / rate;
        mEncoder->setTags(tags);
    }
    if (mEncoder->initEncoder(rate, channels, static_cast<uint32_t>(mFormat.bitRate),
                              AudioEncoder::FORMAT_PCM_16) != 0) {
        mEncoder.reset();
        WV_LOGW("Init encoder error!");
        return JobStep::end(EVT_RENDER_STOPPED, -1);
    }
    mItem->takeOutputFormat(mEncoder->outputSampleRate(), mEncoder->outputChannels(),
                            mEncoder->outputBitRate());
    // A file being replaced is read under its new name until it is done.
    const std::string writing = mEncoder->writingPath();
    if (writing != path) {
        mItem->writingPath.set(writing);
        mSetWritingPath = true;
    }

    const auto format = static_cast<EncodeFormat>(mFormat.type);
    // MP3 and FLAC share their encoding among threads of their own.
    if (mFormat.options.threads > 1 && format != EncodeFormat::Wav && format != EncodeFormat::Mp3 &&
        format != EncodeFormat::Flac) {
        mPipe.reset(new EncodePipe(*mEncoder));
    }
    mWaveform.reset(new WaveformState(rate, channels));
    if ((mode & WV_OUTPUT_NO_WAVEFORM) == 0) {
        openWaveformFile(mWaveform.get(), (path + ".wave").c_str());
    }
    mReader = passReader();
    return JobStep::next(0);
}

std::unique_ptr<PcmInfoReader> RenderJob::passReader() const {
    std::unique_ptr<PcmInfoReader> reader(new PcmInfoReader(mItem));
    reader->setOutputFormat(mFormat.rate, mFormat.channels);
    reader->setResampleQuality(mFormat.resampleQuality);
    return reader;
}

int RenderJob::writeBlock(const int16_t* pcm, uint32_t frames) {
    mItem->frames.store(mItem->frames.load() + frames);
    const uint32_t bytes = frames * mItem->frameSize();
    addWaveformBlock(mWaveform.get(), pcm, bytes);
    if (mWaveform->writeFailed) {
        return mWaveform->storageFull ? FileWriter::WRITE_STORAGE_FULL : FileWriter::WRITE_ERROR;
    }
    if (mPipe) return mPipe->send(pcm, static_cast<int>(bytes));
    return mEncoder->encoding(pcm, static_cast<int>(bytes));
}

int RenderJob::writerStatus() { return mPipe ? mPipe->status() : mEncoder->checkStatus(); }

JobStep RenderJob::finish() {
    // Every write first, then the files are put in place: a failure up to
    // there leaves both targets as they were.
    if (mPipe) {
        const int piped = mPipe->drain();
        mPipe.reset();
        if (piped != FileWriter::WRITE_OK) return failed(piped);
    }
    int finishedStatus = mEncoder->flushEncoding();
    if (finishedStatus == 0 && finishWaveformFile(mWaveform.get()) != 0) {
        finishedStatus = FileWriter::WRITE_ERROR;
    }
    if (finishedStatus == 0 && (mSettings.outputMode & WV_OUTPUT_HOLD) != 0) {
        mItem->holdOutput(mEncoder->releaseOutput());
    } else if (finishedStatus == 0) {
        finishedStatus = mEncoder->finishOutput();
    }
    if (finishedStatus != 0) return failed(finishedStatus);
    finished();
    return JobStep::end(EVT_RENDER_DONE, -1);
}

JobStep RenderJob::step(WVThreadCmd& cmd) {
    mWorker.itemOf(cmd);
    const pcm_id_t id = mItem->id;
    // A remainder held back after a short write gets its one retry here.
    const int status = writerStatus();
    if (status != FileWriter::WRITE_OK) return failed(status);
    const TimeVal begin = timeOfDay();
    int32_t elapsed = 0;

    char* block = mWorker.workBuffer();
    const int32_t n = mReader->read(block, EncoderThread::kBlockBytes);
    if (n < 0) return failed(FileWriter::WRITE_ERROR);
    if (n > 0) {
        const int written =
            writeBlock(reinterpret_cast<const int16_t*>(block), static_cast<uint32_t>(n));
        if (written != FileWriter::WRITE_OK) return failed(written);
        elapsed = ChunkedJobThread::elapsedMs(begin, timeOfDay());
        const float progress = static_cast<float>(mItem->frames.load()) /
                               static_cast<float>(mItem->totalFrames.load());
        mWorker.update(progress, &mLastProgress);
    }

    switch (mReader->endState()) {
        case PcmInfoReader::END:
            return finish();
        case PcmInfoReader::WAIT:
            if (mItem->clipList->hasFailedSource()) return missingSource();
            WV_LOGD("pcm %d not available, delayed encode", static_cast<int>(id));
            return JobStep::wait(mWorker.retryDelayMs());
        default:
            return JobStep::next(elapsed);
    }
}

}  // namespace wv
