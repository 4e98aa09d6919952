// The engine's waveform sampling: peaks of any range of any item, for
// drawing, as 8-bit levels (getWaveformSamples) or true minimum and maximum
// pairs (getWaveformPeaks).
#define WV_LOG_TAG "WavoryxPriv"
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "dsp/PeakBinner.h"
#include "dsp/WaveformData.h"
#include "engine/WavoryxPriv.h"
#include "items/PcmClipList.h"
#include "items/PcmInfoReader.h"

using namespace wv;

namespace {
// The range is read in blocks of this size (4096 stereo frames), so an hour
// of audio costs no more memory than a second.
constexpr uint32_t kBlockBytes = 16384;
}  // namespace

int32_t WavoryxPriv::getWaveformSamples(pcm_id_t id, duration_t startMs, duration_t endMs,
                                        uint32_t count, void* buffer) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetWaveformSamples);
    if (item == nullptr) return -1;
    if (item->scan) return -2;  // a scan keeps no audio to draw
    uint32_t remaining = startMs;
    const uint32_t startFrame = item->duration2frame(remaining, 0, 0xFFFFFFFF);
    const uint32_t endFrame = item->endFrameAtMs(endMs);
    if (startFrame >= endFrame || count == 0 || buffer == nullptr) return -4;

    PcmInfoReader reader(item);
    reader.setOutputFormat(item->sampleRate.load(), 2);
    reader.setPosition(startFrame, endFrame);
    const uint64_t wholeBytes = uint64_t(endFrame - startFrame) * 4;
    const uint32_t blockBytes = static_cast<uint32_t>(std::min<uint64_t>(wholeBytes, kBlockBytes));
    std::unique_ptr<char[]> block(new (std::nothrow) char[blockBytes]);
    if (!block) return -6;

    uint8_t* points = static_cast<uint8_t*>(buffer);
    std::memset(points, 0, count);
    WaveformReducer reducer(points, count, wholeBytes / 2);
    uint64_t fed = 0;
    uint64_t got = 0;
    bool done = false;
    while (fed < wholeBytes && !done) {
        const uint32_t bytes =
            static_cast<uint32_t>(std::min<uint64_t>(blockBytes, wholeBytes - fed));
        reader.readPiece(block.get(), bytes, wholeBytes, &got, &done);
        reducer.feed(reinterpret_cast<const int16_t*>(block.get()), bytes / 2);
        fed += bytes;
    }
    reducer.feedSilence((wholeBytes - fed) / 2);
    return static_cast<int32_t>(count);
}

namespace {
// Each read moves 64 KB: large enough that an hour costs few system calls,
// small enough to stay in the cache while its extremes are taken.
constexpr uint32_t kPeakReadBytes = 65536;

// The frames of [start, start + frames) of `item` that count: those present
// or still to come (an item being decoded counts its expected length), so
// that a drawing made while loading has its final time axis.
uint32_t countedFrames(SPcmInfo* item, uint32_t start, uint32_t end) {
    uint32_t length = 0;
    if (item->status.load() == CLIP_LIST && item->clipList) {
        // The peaks walk a list's clips in their own frames, unconverted,
        // not in the list's frames.
        PcmClipList scratch;
        item->clipList->getListBetweenFrame(scratch, length, start, end, true);
        return length;
    }
    item->availableFrames(length, start, end, true);
    return length;
}

// A time as an exact fraction of seconds: a list whose clips have different
// rates adds up their durations (frames / rate) without rounding, so a
// list of one rate turns ms into frames as an item does (ms x rate / 1000).
struct ExactTime {
    unsigned __int128 num;
    unsigned __int128 den;
};

unsigned __int128 greatestDivisor(unsigned __int128 a, unsigned __int128 b) {
    while (b != 0) {
        const unsigned __int128 rest = a % b;
        a = b;
        b = rest;
    }
    return a;
}

// Walks [start, end) of `item` (clip by clip for a list) until `time` has
// passed: true with the frame reached added to *frame; false when the range
// is shorter, with all its frames added and its duration taken from `time`.
bool frameAtTime(SPcmInfo* item, uint32_t start, uint32_t end, ExactTime& time, uint64_t* frame) {
    if (item->status.load() == CLIP_LIST) {
        if (!item->clipList) return false;
        PcmClipList clips;
        uint32_t available = 0;
        item->clipList->getListBetweenFrame(clips, available, start, end, true);
        for (const PcmClip& clip : clips.clips()) {
            const uint32_t length = countedFrames(clip.source, clip.start, clip.end);
            if (frameAtTime(clip.source, clip.start, clip.start + length, time, frame)) return true;
        }
        return false;
    }
    const unsigned __int128 rate = static_cast<uint32_t>(item->sampleRate.load());
    const uint32_t length = countedFrames(item, start, end);
    if (rate == 0) return false;
    const unsigned __int128 reached = time.num * rate / time.den;
    if (reached < length) {
        *frame += static_cast<uint64_t>(reached);
        return true;
    }
    *frame += length;
    time.num = time.num * rate - length * time.den;
    time.den *= rate;
    const unsigned __int128 divisor = greatestDivisor(time.num, time.den);
    time.num /= divisor;
    time.den /= divisor;
    return false;
}

uint32_t frameAtMs(SPcmInfo* item, uint32_t ms) {
    ExactTime time{ms, 1000};
    uint64_t frame = 0;
    frameAtTime(item, 0, PcmInfoReader::kToEnd, time, &frame);
    return static_cast<uint32_t>(std::min<uint64_t>(frame, UINT32_MAX));
}

// The end of a range at `ms`: an end in the last, partial millisecond (or
// past it) is the last frame, so that a range to the end misses nothing.
uint32_t endFrameAtMs(SPcmInfo* item, uint32_t ms) {
    ExactTime next{uint64_t(ms) + 1, 1000};
    uint64_t frame = 0;
    if (!frameAtTime(item, 0, PcmInfoReader::kToEnd, next, &frame) && next.num > 0) {
        return static_cast<uint32_t>(std::min<uint64_t>(frame, UINT32_MAX));
    }
    return frameAtMs(item, ms);
}

// Feeds frames [start, start + frames) of `item` to the binner, each source
// in its own rate and channels, then moves the binner to the frame after
// them whether or not all could be read (frames not decoded yet, a file
// that cannot be opened).
void scanPeaks(SPcmInfo* item, uint32_t start, uint32_t frames, PeakBinner& binner, char* block) {
    const uint64_t after = binner.position() + frames;
    if (item->status.load() == CLIP_LIST) {
        if (!item->clipList) return;
        PcmClipList clips;
        uint32_t available = 0;
        item->clipList->getListBetweenFrame(clips, available, start, start + frames, true);
        for (const PcmClip& clip : clips.clips()) {
            const uint32_t length = countedFrames(clip.source, clip.start, clip.end);
            scanPeaks(clip.source, clip.start, length, binner, block);
        }
    } else {
        const int32_t channels = item->channelCount.load();
        PcmInfoReader reader(item);
        reader.setOutputFormat(item->sampleRate.load(), channels);
        reader.setPosition(start, start + frames);
        while (channels > 0) {
            const int32_t got = reader.read(block, kPeakReadBytes);
            if (got <= 0) break;
            binner.feed(reinterpret_cast<const int16_t*>(block), uint32_t(got), uint32_t(channels));
            if (reader.endState() != PcmInfoReader::MORE) break;
        }
    }
    binner.skipTo(after);
}

// The frames an item counts from its start: a list's clips one after the
// other, unconverted, as the peaks walk them.
uint32_t countedTotal(SPcmInfo* item) {
    if (item->status.load() != CLIP_LIST) return countedFrames(item, 0, PcmInfoReader::kToEnd);
    if (!item->clipList) return 0;
    PcmClipList clips;
    uint32_t available = 0;
    item->clipList->getListBetweenFrame(clips, available, 0, PcmInfoReader::kToEnd, true);
    uint64_t total = 0;
    for (const PcmClip& clip : clips.clips()) total += countedFrames(clip.source, clip.start, clip.end);
    return static_cast<uint32_t>(std::min<uint64_t>(total, UINT32_MAX));
}

int32_t peaksOfFrames(SPcmInfo* item, uint32_t startFrame, uint32_t endFrame, uint32_t count,
                      int16_t* minMax) {
    if (startFrame >= endFrame || count == 0 || minMax == nullptr) return WV_ERR_OUT_OF_RANGE;
    std::unique_ptr<char[]> block(new (std::nothrow) char[kPeakReadBytes]);
    if (!block) return WV_ERR_NO_MEMORY;
    PeakBinner binner(minMax, count, endFrame - startFrame);
    scanPeaks(item, startFrame, endFrame - startFrame, binner, block.get());
    return static_cast<int32_t>(count);
}

// The item to draw, held; null with the result to return.
SPcmInfo* drawnItem(WavoryxPriv* engine, const WavoryxPriv::ItemHold& hold, pcm_id_t id, Report report, int32_t* result) {
    SPcmInfo* item = engine->holdItem(hold, id, report);
    *result = WV_ERR_NO_ITEM;
    if (item == nullptr) return nullptr;
    *result = WV_ERR_WRONG_ITEM;
    if (item->scan) return nullptr;  // a scan keeps no audio to draw
    // Clips added in ms count in frames once their sources have a length;
    // a list not rendered yet has not had them converted.
    if (item->status.load() == CLIP_LIST && item->clipList) item->clipList->isPcmReady();
    return item;
}
}  // namespace

int32_t WavoryxPriv::getWaveformPeaks(pcm_id_t id, duration_t startMs, duration_t endMs,
                                      uint32_t count, int16_t* minMax) {
    ItemHold hold(this, id);
    int32_t result = 0;
    SPcmInfo* item = drawnItem(this, hold, id, Report::kGetWaveformPeaks, &result);
    if (item == nullptr) return result;
    return peaksOfFrames(item, frameAtMs(item, startMs), endFrameAtMs(item, endMs), count, minMax);
}

int32_t WavoryxPriv::getWaveformPeaksFrames(pcm_id_t id, uint32_t startFrame, uint32_t endFrame,
                                            uint32_t count, int16_t* minMax) {
    ItemHold hold(this, id);
    int32_t result = 0;
    SPcmInfo* item = drawnItem(this, hold, id, Report::kGetWaveformPeaksFrames, &result);
    if (item == nullptr) return result;
    return peaksOfFrames(item, startFrame, std::min(endFrame, countedTotal(item)), count, minMax);
}
