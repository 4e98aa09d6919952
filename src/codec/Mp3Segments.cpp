#define WV_LOG_TAG "Mp3Segments"
#include "codec/Mp3Segments.h"

#include <lame/lame.h>

#include <algorithm>
#include <atomic>

#include "base/Log.h"

namespace wv {

struct Mp3Segments::Segment {
    size_t index = 0;
    std::vector<int16_t> input;
    uint64_t firstFrame = 0;  // grid frame of its first audio frame
    bool infoFrame = false;
    bool last = false;
    bool reservoir = true;
    // Results.
    std::vector<uint8_t> output;
    std::vector<Mp3Frame> frames;  // the info frame, if any, first
    std::vector<uint8_t> tag;      // LAME's info frame for this segment
    size_t audioFrom() const { return infoFrame ? 1 : 0; }
    // Index in `frames` of grid frame `grid`, or frames.size() when it has none.
    size_t at(uint64_t grid) const {
        if (grid < firstFrame) return frames.size();
        return std::min(frames.size(), static_cast<size_t>(grid - firstFrame) + audioFrom());
    }
};

uint32_t Mp3Segments::segmentFrames(uint32_t rate, uint32_t frameSamples) {
    constexpr uint32_t kSeconds = 10;
    return std::max<uint32_t>(4 * (kPrimingFrames + kJoinWindow + kLookahead),
                              kSeconds * rate / frameSamples);
}

uint64_t Mp3Segments::soleSegmentSamples(uint32_t rate, uint32_t frameSamples) {
    return static_cast<uint64_t>(segmentFrames(rate, frameSamples) + kJoinWindow + kLookahead) *
           frameSamples;
}

Mp3Segments::Mp3Segments(StartLame start, int threads, uint32_t rate, uint32_t channels,
                         uint32_t frameSamples, bool variableRate)
    : mStart(std::move(start)),
      mVariableRate(variableRate),
      mChannels(channels),
      mFrameSamples(frameSamples),
      mSegmentFrames(segmentFrames(rate, frameSamples)),
      mPool(threads, [this](NoWorkerState&, Segment& segment) { return encodeSegment(segment); }) {
    mTotals.frameSamples = frameSamples;
}

Mp3Segments::~Mp3Segments() = default;

uint64_t Mp3Segments::segmentStart(size_t index) const {
    if (index == 0) return 0;
    return (static_cast<uint64_t>(index) * mSegmentFrames - kPrimingFrames) * mFrameSamples;
}

uint64_t Mp3Segments::segmentEnd(size_t index) const {
    return (static_cast<uint64_t>(index + 1) * mSegmentFrames + kJoinWindow + kLookahead) *
           mFrameSamples;
}

bool Mp3Segments::push(const int16_t* pcm, size_t frames, std::vector<uint8_t>* ready) {
    mInput.insert(mInput.end(), pcm, pcm + frames * mChannels);
    mInputFrames += frames;
    // A segment goes once the input reaches past its end: the next then
    // has its join window, whatever comes after.
    while (mInputFrames > segmentEnd(mPool.dispatched())) {
        dispatch(false);
        if (!spliceReady(WaitFor::kRoom, ready)) return false;
    }
    return spliceReady(WaitFor::kNothing, ready);
}

bool Mp3Segments::finish(std::vector<uint8_t>* ready) {
    dispatch(true);
    if (!spliceReady(WaitFor::kAll, ready)) return false;
    if (mHeld) emitFrames(*mHeld, mHeldFrom, mHeld->frames.size(), ready);
    mHeld.reset();
    mTotals.samples = mInputFrames;
    WV_LOGI("%zu joins: %zu encoded again without a reservoir, frames grown by %llu bytes",
            mPool.collected() > 0 ? mPool.collected() - 1 : 0, mEncodedAgain,
            static_cast<unsigned long long>(mGrownBytes));
    for (size_t i = 0; i < 100; ++i) {
        const size_t frame = i * mFrameOffsets.size() / 100;
        mTotals.percentOffsets.push_back(frame < mFrameOffsets.size() ? mFrameOffsets[frame] : 0);
    }
    if (!mInfoFrame.empty() && !restateInfoFrame(mInfoFrame.data(), mInfoFrame.size(), mTotals)) {
        WV_LOGW("the info frame could not be restated; left out");
        mInfoFrame.clear();
    }
    return true;
}

std::vector<uint8_t> Mp3Segments::infoFrame() const { return mInfoFrame; }

void Mp3Segments::dispatch(bool last) {
    std::unique_ptr<Segment> segment(new Segment);
    segment->index = mPool.dispatched();
    segment->infoFrame = segment->index == 0;
    segment->last = last;
    const uint64_t start = segmentStart(segment->index);
    const uint64_t end = last ? mInputFrames : segmentEnd(segment->index);
    segment->firstFrame = start / mFrameSamples;
    segment->input.assign(mInput.begin() + static_cast<ptrdiff_t>((start - mInputBase) * mChannels),
                          mInput.begin() + static_cast<ptrdiff_t>((end - mInputBase) * mChannels));
    // The next segment's encoder starts before this one's end.
    const uint64_t keep = last ? mInputFrames : segmentStart(segment->index + 1);
    mInput.erase(mInput.begin(),
                 mInput.begin() + static_cast<ptrdiff_t>((keep - mInputBase) * mChannels));
    mInputBase = keep;
    mPool.dispatch(std::move(segment));
}

bool Mp3Segments::encodeSegment(Segment& segment) {
    lame_global_struct* lame = mStart(segment.infoFrame, segment.reservoir);
    if (lame == nullptr) return false;
    constexpr size_t kBlock = 16384;
    std::vector<unsigned char> buffer(kBlock + kBlock / 4 + 7200);
    segment.output.clear();
    segment.tag.clear();
    const size_t frames = segment.input.size() / mChannels;
    bool ok = true;
    for (size_t at = 0; ok && at < frames; at += kBlock) {
        ok = !mPool.stopped();
        if (!ok) break;
        const int count = static_cast<int>(std::min(kBlock, frames - at));
        short* pcm = segment.input.data() + at * mChannels;
        const int bytes =
            mChannels == 2
                ? lame_encode_buffer_interleaved(lame, pcm, count, buffer.data(),
                                                 static_cast<int>(buffer.size()))
                : lame_encode_buffer(lame, pcm, nullptr, count, buffer.data(),
                                     static_cast<int>(buffer.size()));
        if (bytes < 0) ok = false;
        if (ok) segment.output.insert(segment.output.end(), buffer.data(), buffer.data() + bytes);
    }
    if (ok) {
        const int bytes = lame_encode_flush(lame, buffer.data(), static_cast<int>(buffer.size()));
        if (bytes < 0) ok = false;
        if (ok) segment.output.insert(segment.output.end(), buffer.data(), buffer.data() + bytes);
    }
    if (ok && segment.infoFrame) {
        unsigned char tag[2881];
        const size_t bytes = lame_get_lametag_frame(lame, tag, sizeof tag);
        if (bytes <= sizeof tag) segment.tag.assign(tag, tag + bytes);
    }
    lame_close(lame);
    if (ok && !scanMp3Frames(segment.output.data(), segment.output.size(), &segment.frames)) {
        WV_LOGE("segment %zu: LAME's output is not a run of frames", segment.index);
        ok = false;
    }
    if (ok && segment.infoFrame && segment.tag.empty()) segment.infoFrame = false;
    return ok;
}

bool Mp3Segments::spliceReady(WaitFor wait, std::vector<uint8_t>* ready) {
    return mPool.collect(wait, [&](std::unique_ptr<Segment> segment) {
        return join(std::move(segment), ready);
    });
}

bool Mp3Segments::join(std::unique_ptr<Segment> next, std::vector<uint8_t>* ready) {
    if (!mHeld) {
        if (next->infoFrame) {
            const Mp3Frame& info = next->frames[0];
            mInfoFrame = next->tag;
            mInfoFrame.resize(info.bytes, 0);
            ready->insert(ready->end(), next->output.begin(),
                          next->output.begin() + static_cast<ptrdiff_t>(info.bytes));
        }
        mHeldFrom = next->audioFrom();
        mHeld = std::move(next);
        return true;
    }
    const uint64_t first = static_cast<uint64_t>(next->index) * mSegmentFrames;
    uint64_t chosen = 0;
    uint32_t grown = 0;  // the new length of the last frame before the join; 0: as it is
    auto pick = [&](bool any) {
        uint32_t least = 0;
        for (uint64_t grid = first; grid < first + kJoinWindow; ++grid) {
            const size_t last = mHeld->at(grid - 1);
            const size_t nextAt = next->at(grid);
            if (last >= mHeld->frames.size() || nextAt >= next->frames.size() || nextAt == 0) continue;
            const Mp3Frame& before = mHeld->frames[last];
            const Mp3Frame& after = next->frames[nextAt];
            if (any || joinFits(before, after)) {
                chosen = grid;
                grown = 0;
                return true;
            }
            // A variable rate picks the smallest frame that holds its data,
            // so the room a join needs is seldom there: the last frame
            // before it may get a higher bit rate instead, the one that
            // costs the fewest bytes in the window.
            if (!mVariableRate || !shapesMeet(before, after)) continue;
            const uint32_t more = after.dataBegin - roomAfterData(before);
            const uint32_t bytes = grownFrameBytes(mHeld->output.data(), before, more);
            if (bytes != 0 && (least == 0 || bytes - before.bytes < least)) {
                least = bytes - before.bytes;
                chosen = grid;
                grown = bytes;
            }
        }
        return least != 0;
    };
    if (!pick(false)) {
        // Rare: then no frame of the window reaches back at all.
        WV_LOGI("segment %zu: no join in the window fits; encoded again without a reservoir",
                next->index);
        ++mEncodedAgain;
        next->reservoir = false;
        if (!encodeSegment(*next)) return false;
        if (!pick(false) && !pick(true)) return false;
    }
    std::vector<int16_t>().swap(next->input);
    const size_t last = mHeld->at(chosen - 1);
    const size_t nextAt = next->at(chosen);
    if (grown != 0) {
        mGrownBytes += grown - mHeld->frames[last].bytes;
        growFrame(&mHeld->output, &mHeld->frames, last, grown);
    }
    spliceJoin(&mHeld->output, mHeld->frames, last, next->output, next->frames, nextAt);
    emitFrames(*mHeld, mHeldFrom, last + 1, ready);
    mHeld = std::move(next);
    mHeldFrom = nextAt;
    return true;
}

void Mp3Segments::emitFrames(const Segment& segment, size_t from, size_t to,
                             std::vector<uint8_t>* ready) {
    if (from >= to) return;
    const size_t begin = segment.frames[from].offset;
    const size_t end = segment.frames[to - 1].offset + segment.frames[to - 1].bytes;
    for (size_t i = from; i < to; ++i) {
        mFrameOffsets.push_back(mTotals.audioBytes + segment.frames[i].offset - begin);
    }
    const uint8_t* bytes = segment.output.data();
    ready->insert(ready->end(), bytes + begin, bytes + end);
    mTotals.musicCrc = mp3Crc16(mTotals.musicCrc, bytes + begin, end - begin);
    mTotals.audioBytes += end - begin;
    mTotals.frames += static_cast<uint32_t>(to - from);
}

}  // namespace wv
