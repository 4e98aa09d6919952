// Logs under the engine's tag, not its own: clients look for a load stopped
// for lack of space there.
#define WV_LOG_TAG "WavoryxPriv"
#include "load/DecoderThread.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>

#include "codec/WorkingFile.h"
#include "items/SourceScan.h"

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "base/FrameTime.h"
#include "base/Log.h"

namespace wv {
DecoderThread::DecoderThread(JobContext* context)
    : ChunkedJobThread(context->events(),
                       ChunkedJobConfig{kProgressStep, EVT_LOAD_PROGRESS, EVT_LOAD_CANCELLED,
                                        kStepUrgency, Check::kDecoderJobItem}),
      mContext(context) {}

DecoderThread::~DecoderThread() = default;

bool DecoderThread::isRegistered(uint32_t id) {
    return mContext->getPcmInfo(id, REF_NONE) != nullptr;
}

SPcmInfo* DecoderThread::itemOf(const WVThreadCmd& cmd) {
    return takeItem(cmd, mContext->getPcmInfo(cmd.pcmId, REF_NONE));
}

bool DecoderThread::lowPriority() { return mContext->threadPriority() == WV_PRIORITY_LOW; }

void DecoderThread::deleteJob(void* job) { delete static_cast<DecodeJob*>(job); }

void DecoderThread::dropReference(uint32_t id) { mContext->releasePcm(id, REF_DECODER, false); }

void DecoderThread::endJob(uint32_t id, uint32_t event, int32_t value) {
    if (event != EVT_LOAD_DONE) {
        // Before the event: a render that sees it must already see the
        // failure instead of waiting for data that will never come.
        if (SPcmInfo* item = mContext->getPcmInfo(id, REF_NONE)) {
            item->loadFailed.store(true);
            item->dropPcmFile();
        }
    }
    mContext->notifyClient(WVThreadCmd(event, id, value), 0);
    // Renders waiting on the item see its end, whichever it is.
    mContext->dataArrived();
    mContext->releasePcm(id, REF_DECODER, false);
}

void DecoderThread::startJob(WVThreadCmd& cmd) {
    SPcmInfo* item = itemOf(cmd);
    // A second start for an item that is loading or loaded changes nothing.
    if (item->status.load() != ENCODED_FILE) return;
    const pcm_id_t id = item->id;

    std::unique_ptr<AudioDecoder> decoder(new AudioDecoder());
    if (item->ranged) decoder->setRangeMs(item->rangeStartMs, item->rangeEndMs);
    const int streamFd = item->streamFd.exchange(-1);
    if (streamFd >= 0) decoder->setStream(streamFd);
    int rate = 0, format = 0, channels = 0;
    int64_t durationUs = 0;
    bool isRaw = false;
    const std::string path = item->path.get();
    const int32_t loaded =
        decoder->load(path.c_str(), &rate, &format, &channels, &durationUs, &isRaw);
    if (loaded != AudioDecoder::LOAD_OK) {
        decoder.reset();
        endJob(id, EVT_LOAD_FAILED, loaded == AudioDecoder::LOAD_NOT_OPENABLE ? 2 : 1);
        return;
    }
    item->sampleRate.store(rate);
    item->format.store(format);
    item->channelCount.store(channels);
    // Counted in frames, never through a duration in ms, which would drop
    // the last partial millisecond.
    // A copy: a scan of a WAV replaces the decoder below.
    const SourceFacts facts = decoder->facts();
    int64_t total = facts.frames > 0 ? facts.frames : 0;
    if (item->ranged) {
        // The part's length, cut where the whole file's expected length ends.
        int64_t end = endFrameAtMs(item->rangeEndMs, rate,
                                                 facts.framesExact ? facts.frames : -1);
        if (end > total) end = total;
        const int64_t length = end - frameAtMs(item->rangeStartMs, rate);
        total = length > 0 ? length : 0;
    }
    const uint32_t totalFrames = static_cast<uint32_t>(std::min<int64_t>(total, UINT32_MAX));
    item->totalFrames.store(totalFrames);
    // After the length: whoever sees the facts sees the length they state.
    item->setSourceFacts(facts);
    if (item->scan) {
        if (isRaw) {
            // Nothing is kept to read in place: the WAV goes through the
            // codec, whose frames are those of a whole load.
            decoder.reset(new AudioDecoder());
            decoder->setRangeMs(0, UINT32_MAX);
            if (decoder->load(path.c_str(), &rate, &format, &channels, &durationUs, &isRaw) !=
                AudioDecoder::LOAD_OK) {
                decoder.reset();
                endJob(id, EVT_LOAD_FAILED, 1);
                return;
            }
        }
        if (DecodeJob* job = startScan(item, decoder, uint32_t(std::max(facts.channels, 0)))) {
            mContext->notifyClient(WVThreadCmd(EVT_LOAD_STARTED, id, -1), 0);
            postFirstStep(id, job);
        }
        return;
    }

    if (isRaw) {
        // Read in place by the PCM reader, after the 44-byte header.
        item->frames.store(totalFrames);
        item->status.store(PCM_READY);
        decoder.reset();
        mContext->notifyClient(WVThreadCmd(EVT_LOAD_STARTED, id, -1), 0);
        endJob(id, EVT_LOAD_DONE, -1);
        return;
    }

    const std::string pcmPath = mContext->workingDir() + std::to_string(id) + ".pcm";
    item->status.store(DECODING);
    // The item keeps the locked descriptor for its life; the writer gets a
    // duplicate that it closes when the load ends.
    const int lockFd = working_file::openLocked(pcmPath);
    const int writerFd = lockFd < 0 ? -1 : ::fcntl(lockFd, F_DUPFD_CLOEXEC, 0);
    if (writerFd < 0) {
        working_file::removeAndClose(pcmPath, lockFd);
        decoder.reset();
        endJob(id, EVT_LOAD_FAILED, 4);
        return;
    }
    item->pcmPath.set(pcmPath);
    item->pcmFd.store(lockFd);
    std::unique_ptr<FileWriter> writer(new FileWriter(nullptr));
    writer->adopt(writerFd, pcmPath.c_str());
    DecodeJob* job = new DecodeJob(std::move(decoder), std::move(writer));
    mContext->notifyClient(WVThreadCmd(EVT_LOAD_STARTED, id, -1), 0);
    mContext->dataArrived();  // a render waiting for the format has it
    postFirstStep(id, job);
}

void DecoderThread::runStep(WVThreadCmd& cmd) {
    SPcmInfo* item = itemOf(cmd);
    const pcm_id_t id = item->id;
    DecodeJob* job = static_cast<DecodeJob*>(cmd.data);

    // A remainder held back after a short write gets one retry here.
    const uint32_t held = job->writer ? job->writer->heldLength() : 0;
    switch (job->writer ? job->writer->checkStatus() : FileWriter::WRITE_OK) {
        case FileWriter::WRITE_OK:
            if (held > 0) countWritten(item, job, held);
            break;
        case FileWriter::WRITE_STORAGE_FULL:
            WV_LOGW("Cancel file decode due to low space");
            delete job;
            endJob(id, EVT_LOAD_NO_SPACE, -1);
            return;
        default:
            delete job;
            endJob(id, EVT_LOAD_FAILED, -11);
            return;
    }

    const TimeVal begin = timeOfDay();
    // Codec buffers are small (1152 frames of MP3): several go to the file
    // in one write, which saves system calls and queue round trips.
    bool ended = false;
    std::vector<char>& staged = job->staged;
    staged.clear();
    while (staged.size() < kStepBytes) {
        char* data = nullptr;
        unsigned int length = 0;
        if (job->decoder->getDataBuffer(&data, &length) != 0) {
            ended = true;
            break;
        }
        staged.insert(staged.end(), data, data + length);
        job->decoder->freeBuffer();
        // A range load passing over the file before its part takes turns.
        if (length == 0) break;
    }
    noteDamage(item, job);
    if (ended && staged.empty()) {
        // End of the stream, or a decode error that ends it early: what was
        // decoded is the item.
        if (!job->writer) {
            if (!feedOwnChannels(item, job, true) || !item->scan->finish()) {
                WV_LOGE("item %d: its scan could not measure the file", static_cast<int>(id));
                delete job;
                endJob(id, EVT_LOAD_FAILED, -11);
                return;
            }
        } else {
            job->writer->finishWrite();
        }
        delete job;
        item->status.store(PCM_READY);
        endJob(id, EVT_LOAD_DONE, -1);
        return;
    }
    // A short write is held by the writer and settled by the next step,
    // which also sees the end again.
    if (!staged.empty() && !job->writer) {
        const uint32_t frames = static_cast<uint32_t>(staged.size() / item->frameSize());
        if (!item->scan->feed(reinterpret_cast<const int16_t*>(staged.data()), frames) ||
            !feedOwnChannels(item, job, false)) {
            WV_LOGE("item %d: its scan could not measure the file", static_cast<int>(id));
            delete job;
            endJob(id, EVT_LOAD_FAILED, -11);
            return;
        }
        countWritten(item, job, static_cast<uint32_t>(staged.size()));
    } else if (!staged.empty()) {
        if (job->writer->write(staged.data(), static_cast<uint32_t>(staged.size())) ==
            FileWriter::WRITE_ERROR) {
            delete job;
            endJob(id, EVT_LOAD_FAILED, -11);
            return;
        }
        countWritten(item, job, static_cast<uint32_t>(staged.size()) - job->writer->heldLength());
    }
    postNextStep(cmd, elapsedMs(begin, timeOfDay()));
}

DecodeJob* DecoderThread::startScan(SPcmInfo* item, std::unique_ptr<AudioDecoder>& decoder,
                                    uint32_t sourceChannels) {
    SourceScan& scan = *item->scan;
    if (!scan.begin(static_cast<uint32_t>(item->sampleRate.load()),
                    static_cast<uint32_t>(item->channelCount.load()))) {
        WV_LOGE("item %d: its loudness cannot be measured at %d Hz", static_cast<int>(item->id),
                static_cast<int>(item->sampleRate.load()));
        decoder.reset();
        endJob(item->id, EVT_LOAD_FAILED, -11);
        return nullptr;
    }
    std::unique_ptr<ChannelDecoder> own;
    if (scan.wantsLoudness() && sourceChannels > 2) {
        // Measured on the file's own channels, as measureLoudness does.
        own.reset(new ChannelDecoder());
        std::vector<ChannelWeight> weights;
        if (own->open(item->path.get())) {
            for (uint32_t c = 0; c < own->channels(); ++c) {
                weights.push_back(weightOfPlace(own->place(c)));
            }
        }
        if (weights.size() <= 2 || !scan.meterOwnChannels(own->rate(), weights)) {
            WV_LOGW("item %d: its %u channels cannot be read again, its downmix is measured",
                    static_cast<int>(item->id), sourceChannels);
            own.reset();
        }
    }
    item->status.store(DECODING);
    DecodeJob* job = new DecodeJob(std::move(decoder), nullptr);
    job->ownChannels = std::move(own);
    return job;
}

bool DecoderThread::feedOwnChannels(SPcmInfo* item, DecodeJob* job, bool all) {
    if (!job->ownChannels) return true;
    const int maxFrames = static_cast<int>(kStepBytes / 2 / job->ownChannels->channels());
    job->floats.resize(static_cast<size_t>(maxFrames) * job->ownChannels->channels());
    do {
        const int n = job->ownChannels->read(job->floats.data(), maxFrames);
        if (n < 0) return false;
        if (n == 0) break;
        if (!item->scan->feedMeter(job->floats.data(), static_cast<size_t>(n))) return false;
    } while (all);
    return true;
}

void DecoderThread::noteDamage(SPcmInfo* item, DecodeJob* job) {
    const DecodeDamage damage = job->decoder->damage();
    if (damage.packets == job->reportedDamage) return;
    job->reportedDamage = damage.packets;
    // The time first, so that a reader who sees a count sees its time.
    item->firstDamageMs.store(static_cast<uint32_t>(damage.firstUs / 1000));
    item->damagedPackets.store(damage.packets);
    mContext->notifyClient(
        WVThreadCmd(EVT_LOAD_DAMAGED, item->id, static_cast<int32_t>(damage.packets)), 0);
}

void DecoderThread::countWritten(SPcmInfo* item, DecodeJob* job, uint32_t bytes) {
    if (bytes == 0) return;
    // Only bytes in the file are counted: readers may read any frame below.
    job->writtenBytes += bytes;
    const uint32_t frames = static_cast<uint32_t>(job->writtenBytes / item->frameSize());
    item->frames.store(frames);
    mContext->dataArrived();
    const float progress =
        static_cast<float>(frames) / static_cast<float>(item->totalFrames.load());
    update(progress, &job->lastProgress);
}

}  // namespace wv
