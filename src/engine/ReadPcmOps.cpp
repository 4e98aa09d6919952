// readPcm: an item's output read on the caller's thread through the reader
// chain a render uses, from any frame.
#define WV_LOG_TAG "WavoryxPriv"
#include <algorithm>
#include <memory>
#include <new>

#include "engine/ReadPositions.h"
#include "engine/WavoryxPriv.h"
#include "items/PcmClipList.h"
#include "platform/resample/AudioResampler.h"

using namespace wv;

std::unique_ptr<ReadPositions::Entry> ReadPositions::take(pcm_id_t id, uint32_t next) {
    std::lock_guard<std::mutex> guard(mLock);
    for (auto it = mEntries.begin(); it != mEntries.end(); ++it) {
        if ((*it)->id == id && (*it)->next == next) {
            std::unique_ptr<Entry> entry = std::move(*it);
            mEntries.erase(it);
            return entry;
        }
    }
    return nullptr;
}

ReadPositions::Entries ReadPositions::keep(std::unique_ptr<Entry> entry) {
    Entries out;
    std::lock_guard<std::mutex> guard(mLock);
    mEntries.push_back(std::move(entry));
    while (mEntries.size() > kKept) {
        out.push_back(std::move(mEntries.front()));
        mEntries.pop_front();
    }
    return out;
}

ReadPositions::Entries ReadPositions::drop(pcm_id_t id) {
    Entries out;
    std::lock_guard<std::mutex> guard(mLock);
    for (auto it = mEntries.begin(); it != mEntries.end();) {
        if (id == 0 || (*it)->id == id) {
            out.push_back(std::move(*it));
            it = mEntries.erase(it);
        } else {
            ++it;
        }
    }
    return out;
}

void WavoryxPriv::releaseReads(ReadPositions::Entries entries) {
    for (std::unique_ptr<ReadPositions::Entry>& entry : entries) {
        const pcm_id_t id = entry->id;
        entry.reset();  // the reader goes before its item may
        releasePcm(id, REF_PLAYER, false);
    }
}

namespace {
// A reader of `item` in the format its WAV render writes, at `start`; null
// with *result set when the item cannot be read (yet).
std::unique_ptr<PcmInfoReader> outputReader(SPcmInfo* item, uint32_t start, int32_t* result) {
    int32_t rate = item->sampleRate.load();
    int32_t channels = item->channelCount.load();
    AudioResampler::src_quality quality = AudioResampler::SRC_DEFAULT;
    if (item->status.load() == CLIP_LIST) {
        PcmClipList& list = *item->clipList;
        *result = WV_ERR_WRONG_ITEM;
        if (list.hasFailedSource()) return nullptr;
        *result = WV_ERR_NOT_READY;
        if (list.isPcmReady() == 0) return nullptr;
        // As the render settles its output (RenderJob::settleOutput).
        const RenderSettings settings = item->renderSettings();
        rate = settings.sampleRate >= 1 ? settings.sampleRate : list.getSamplerate();
        channels = settings.channels >= 1 ? settings.channels : list.getChannelCount();
        quality = AudioResampler::resolve(
            static_cast<AudioResampler::src_quality>(settings.resampleQuality));
    }
    *result = WV_ERR_NOT_READY;
    if (rate <= 0 || channels <= 0) return nullptr;
    std::unique_ptr<PcmInfoReader> reader(new (std::nothrow) PcmInfoReader(item));
    *result = WV_ERR_NO_MEMORY;
    if (!reader) return nullptr;
    reader->setOutputFormat(rate, channels);
    reader->setResampleQuality(quality);
    reader->setPosition(start, PcmInfoReader::kToEnd);
    return reader;
}
}  // namespace

int32_t WavoryxPriv::readPcm(pcm_id_t id, uint32_t startFrame, int16_t* out, uint32_t frames) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kReadPcm);
    if (item == nullptr) return WV_ERR_NO_ITEM;
    if (out == nullptr || frames == 0) return WV_ERR_OUT_OF_RANGE;
    if (item->scan || item->status.load() == RECORDING) return WV_ERR_WRONG_ITEM;
    if (item->status.load() == CLIP_LIST && !item->clipList) return WV_ERR_WRONG_ITEM;

    std::unique_ptr<ReadPositions::Entry> entry = mReadPositions.take(id, startFrame);
    if (!entry) {
        int32_t result = 0;
        std::unique_ptr<PcmInfoReader> reader = outputReader(item, startFrame, &result);
        if (!reader) return result;
        entry.reset(new (std::nothrow) ReadPositions::Entry);
        if (!entry) return WV_ERR_NO_MEMORY;
        // The kept reader's own reference: it outlives this call's hold.
        mInfoList.get(id, REF_PLAYER);
        entry->id = id;
        entry->reader = std::move(reader);
        entry->next = startFrame;
    }
    PcmInfoReader& reader = *entry->reader;
    const uint64_t frameBytes = uint64_t(reader.outChannels()) * sizeof(int16_t);
    const uint32_t bytes =
        static_cast<uint32_t>(std::min<uint64_t>(uint64_t(frames) * frameBytes, 1u << 30));
    const int32_t got = reader.read(reinterpret_cast<char*>(out), bytes - bytes % frameBytes);
    int32_t result = got;
    if (got < 0) {
        result = WV_ERR_WRONG_ITEM;  // a PCM file that cannot be opened
    } else if (got == 0 && reader.endState() == PcmInfoReader::WAIT) {
        const bool failed = item->status.load() == CLIP_LIST && item->clipList->hasFailedSource();
        result = failed ? WV_ERR_WRONG_ITEM : WV_ERR_NOT_READY;
    } else {
        entry->next = startFrame + static_cast<uint32_t>(got);
    }
    if (result < 0 || (got == 0 && reader.endState() == PcmInfoReader::END)) {
        ReadPositions::Entries done;
        done.push_back(std::move(entry));
        releaseReads(std::move(done));
    } else {
        releaseReads(mReadPositions.keep(std::move(entry)));
    }
    return result;
}
