// readPcm: an item's output read on the caller's thread through the reader
// chain a render uses, from any frame.
#define WV_LOG_TAG "WavoryxPriv"
#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "engine/ReadPositions.h"
#include "engine/WavoryxPriv.h"
#include "items/ClipEffects.h"
#include "items/PcmClipList.h"
#include "items/RenderSettings.h"
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

std::unique_ptr<ReadPositions::Entry> ReadPositions::takeBefore(pcm_id_t id, uint32_t frame) {
    std::lock_guard<std::mutex> guard(mLock);
    auto best = mEntries.end();
    for (auto it = mEntries.begin(); it != mEntries.end(); ++it) {
        if ((*it)->id == id && (*it)->next <= frame && (best == mEntries.end() || (*it)->next > (*best)->next)) {
            best = it;
        }
    }
    if (best == mEntries.end()) return nullptr;
    std::unique_ptr<Entry> entry = std::move(*best);
    mEntries.erase(best);
    return entry;
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

namespace {
// Whether a reader of the list converts a clip's rate: a converter started
// in the middle of a clip does not hand out the render's bytes there.
bool convertsRates(SPcmInfo* item, int32_t rate) {
    if (item->status.load() != CLIP_LIST) return false;
    // Every clip, whatever the list's placing (a list with effects places
    // its clips only once its output rate is set).
    for (const PcmClip& clip : item->clipList->clips()) {
        if (clip.source->status.load() == CLIP_LIST || clip.source->sampleRate.load() != rate) return true;
    }
    return false;
}

constexpr uint32_t kSkipBytes = 65536;
}  // namespace

std::unique_ptr<ReadPositions::Entry> WavoryxPriv::readerAt(SPcmInfo* item, uint32_t startFrame,
                                                             int32_t* result) {
    const pcm_id_t id = item->id;
    std::unique_ptr<ReadPositions::Entry> entry = mReadPositions.take(id, startFrame);
    if (entry) return entry;
    std::unique_ptr<PcmInfoReader> fresh = outputReader(item, startFrame, result);
    if (!fresh) return nullptr;
    // Exact from anywhere at equal rates; else read up to the frame from
    // the nearest reader before it, or from the start.
    const bool skips = startFrame > 0 && convertsRates(item, fresh->outSampleRate());
    if (skips) entry = mReadPositions.takeBefore(id, startFrame);
    if (!entry) {
        if (skips) fresh = outputReader(item, 0, result);
        if (!fresh) return nullptr;
        entry.reset(new (std::nothrow) ReadPositions::Entry);
        *result = WV_ERR_NO_MEMORY;
        if (!entry) return nullptr;
        // The kept reader's own reference: it outlives this call's hold.
        mInfoList.get(id, REF_PLAYER);
        entry->id = id;
        entry->reader = std::move(fresh);
        entry->next = skips ? 0 : startFrame;
    }
    if (entry->next == startFrame) return entry;
    std::unique_ptr<char[]> scratch(new (std::nothrow) char[kSkipBytes]);
    *result = WV_ERR_NO_MEMORY;
    if (!scratch) {
        releaseReads(mReadPositions.keep(std::move(entry)));
        return nullptr;
    }
    PcmInfoReader& reader = *entry->reader;
    const uint32_t frameBytes = uint32_t(reader.outChannels()) * sizeof(int16_t);
    while (entry->next < startFrame) {
        const uint64_t left = uint64_t(startFrame - entry->next) * frameBytes;
        const uint32_t bytes = uint32_t(std::min<uint64_t>(left, kSkipBytes - kSkipBytes % frameBytes));
        const int32_t got = reader.read(scratch.get(), bytes);
        if (got > 0) {
            entry->next += uint32_t(got);
            continue;
        }
        // Not decoded yet: keep the way made so far for the next call.
        const bool waiting = got == 0 && reader.endState() == PcmInfoReader::WAIT;
        *result = waiting ? WV_ERR_NOT_READY : got < 0 ? WV_ERR_WRONG_ITEM : 0;
        if (waiting) {
            releaseReads(mReadPositions.keep(std::move(entry)));
        } else {
            ReadPositions::Entries done;
            done.push_back(std::move(entry));
            releaseReads(std::move(done));
        }
        return nullptr;
    }
    return entry;
}

int32_t WavoryxPriv::readPcm(pcm_id_t id, uint32_t startFrame, int16_t* out, uint32_t frames) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kReadPcm);
    if (item == nullptr) return WV_ERR_NO_ITEM;
    if (out == nullptr || frames == 0) return WV_ERR_OUT_OF_RANGE;
    if (item->scan || item->status.load() == RECORDING) return WV_ERR_WRONG_ITEM;
    if (item->status.load() == CLIP_LIST && !item->clipList) return WV_ERR_WRONG_ITEM;

    int32_t result = 0;
    std::unique_ptr<ReadPositions::Entry> entry = readerAt(item, startFrame, &result);
    if (!entry) return result;
    PcmInfoReader& reader = *entry->reader;
    const uint64_t frameBytes = uint64_t(reader.outChannels()) * sizeof(int16_t);
    const uint32_t bytes =
        static_cast<uint32_t>(std::min<uint64_t>(uint64_t(frames) * frameBytes, 1u << 30));
    const int32_t got = reader.read(reinterpret_cast<char*>(out), bytes - bytes % frameBytes);
    result = got;
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

int32_t WavoryxPriv::getPcmOutputFrames(pcm_id_t id, uint32_t* frames) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetPcmOutputFrames);
    if (item == nullptr) return WV_ERR_NO_ITEM;
    if (frames == nullptr) return WV_ERR_OUT_OF_RANGE;
    if (item->scan || item->status.load() == RECORDING) return WV_ERR_WRONG_ITEM;
    if (item->status.load() != CLIP_LIST) {
        if (item->status.load() != PCM_READY) return WV_ERR_DURATION_UNKNOWN;
        *frames = item->frames.load();
        return WV_OK;
    }
    if (!item->clipList) return WV_ERR_WRONG_ITEM;
    PcmClipList& list = *item->clipList;
    int32_t result = 0;
    std::unique_ptr<PcmInfoReader> reader = outputReader(item, 0, &result);
    if (!reader) return result == WV_ERR_NOT_READY ? WV_ERR_DURATION_UNKNOWN : result;
    for (const PcmClip& clip : list.clips()) {
        if (clip.source->status.load() != PCM_READY && clip.source->status.load() != CLIP_LIST) {
            return WV_ERR_DURATION_UNKNOWN;
        }
    }
    const int32_t rate = reader->outSampleRate();
    uint64_t total = 0;
    if (list.hasEffects()) {
        // Placed as the mix places them: converted lengths, overlaps.
        std::vector<ClipPlacement> places;
        if (list.place(&places, false, rate) != 0) return WV_ERR_DURATION_UNKNOWN;
        if (!places.empty()) total = places.back().listStart + places.back().length;
    } else {
        const RenderSettings settings = item->renderSettings();
        const bool exact = AudioResampler::makesExactLength(
            AudioResampler::resolve(static_cast<AudioResampler::src_quality>(settings.resampleQuality)));
        if (!exact && convertsRates(item, rate)) return WV_ERR_DURATION_UNKNOWN;
        if (!list.convertedLength(rate, &total)) return WV_ERR_DURATION_UNKNOWN;
    }
    *frames = static_cast<uint32_t>(std::min<uint64_t>(total, UINT32_MAX));
    return WV_OK;
}
