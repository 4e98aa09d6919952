#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "items/PcmClipList.h"
#include "items/SPcmInfo.h"

namespace {

using namespace wv;

struct Range {
    uint32_t start, end;
    bool operator==(const Range& o) const { return start == o.start && end == o.end; }
};

std::vector<Range> ranges(const PcmClipList& list) {
    std::vector<Range> out;
    for (const PcmClip& clip : list.clips()) out.push_back({clip.start, clip.end});
    return out;
}

class ClipListTest : public ::testing::Test {
protected:
    SPcmInfo* source(pcm_status_t status, int rate, uint32_t frames, uint32_t total, int channels = 1) {
        items.emplace_back(new SPcmInfo(status));
        SPcmInfo* item = items.back().get();
        item->id = static_cast<pcm_id_t>(items.size());
        item->sampleRate = rate;
        item->channelCount = channels;
        item->frames = frames;
        item->totalFrames = total;
        return item;
    }
    uint32_t add(PcmClipList& list, SPcmInfo* from, uint32_t start, uint32_t end, bool inMs = false) {
        PcmClip clip;
        clip.source = from;
        clip.start = start;
        clip.end = end;
        clip.inMs = inMs;
        return list.add(clip);
    }
    std::vector<std::unique_ptr<SPcmInfo>> items;
};

TEST_F(ClipListTest, RangesAcrossCompleteClips) {
    PcmClipList list;
    SPcmInfo* a = source(PCM_READY, 8000, 5000, 5000);
    EXPECT_EQ(add(list, a, 0, 1000), 1u);
    EXPECT_EQ(add(list, a, 500, 1500), 2u);

    PcmClipList out;
    uint32_t count = 0;
    EXPECT_EQ(list.getListBetweenFrame(out, count, 800, 1200, false), 0u);
    EXPECT_EQ(ranges(out), (std::vector<Range>{{800, 1000}, {500, 700}}));
    EXPECT_EQ(count, 400u);

    PcmClipList whole;
    EXPECT_EQ(list.getListBetweenFrame(whole, count, 500, 3000, false), 0u);
    EXPECT_EQ(ranges(whole), (std::vector<Range>{{500, 1000}, {500, 1500}}));
    EXPECT_EQ(count, 1500u);

    PcmClipList empty;
    EXPECT_EQ(list.getListBetweenFrame(empty, count, 1200, 1200, false), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(empty.size(), 0u);
}

TEST_F(ClipListTest, RangeCutShortBySourceStillDecoding) {
    PcmClipList list;
    SPcmInfo* growing = source(DECODING, 8000, 300, 2000);
    SPcmInfo* after = source(PCM_READY, 8000, 100, 100);
    add(list, growing, 0, 1000);
    add(list, after, 0, 100);
    PcmClipList out;
    uint32_t count = 0;
    EXPECT_EQ(list.getListBetweenFrame(out, count, 0, 500, false), 1u);
    EXPECT_EQ(ranges(out), (std::vector<Range>{{0, 1000}}));
    EXPECT_EQ(count, 300u);
    // With the expected length, the clip is whole and the range ends in it.
    PcmClipList planned;
    EXPECT_EQ(list.getListBetweenFrame(planned, count, 0, 500, true), 0u);
    EXPECT_EQ(ranges(planned), (std::vector<Range>{{0, 500}}));
    EXPECT_EQ(count, 500u);
    // Clip ranges past a source's end are cut at its length.
    SPcmInfo* shortOne = source(PCM_READY, 8000, 50, 50);
    PcmClipList cut;
    add(cut, shortOne, 0, 0xFFFFFFFF);
    SPcmInfo holder(CLIP_LIST);
    EXPECT_EQ(cut.getListBetweenFrame(out, count, 0, 0xFFFFFFFF, false), 0u);
    EXPECT_EQ(count, 50u);
}

TEST_F(ClipListTest, ReadinessConvertsMillisecondClipsOnce) {
    SPcmInfo* pending = source(ENCODED_FILE, 0, 0, 0);
    PcmClipList list;
    add(list, pending, 1000, 2000, true);
    EXPECT_EQ(list.isPcmReady(), 0u);
    EXPECT_EQ(ranges(list), (std::vector<Range>{{1000, 2000}}));
    EXPECT_TRUE(list.clips()[0].inMs);

    pending->status = PCM_READY;
    pending->sampleRate = 44100;
    pending->frames = 441000;
    EXPECT_EQ(list.isPcmReady(), 1u);
    EXPECT_EQ(ranges(list), (std::vector<Range>{{44100, 88200}}));
    EXPECT_FALSE(list.clips()[0].inMs);
    EXPECT_EQ(list.isPcmReady(), 1u);
    EXPECT_EQ(ranges(list), (std::vector<Range>{{44100, 88200}}));

    // A source still decoding converts against its expected length, and a
    // time past the end stops at the end.
    SPcmInfo* decoding = source(DECODING, 8000, 10, 16000);
    PcmClipList growing;
    add(growing, decoding, 500, 9000, true);
    EXPECT_EQ(growing.isPcmReady(), 1u);
    EXPECT_EQ(ranges(growing), (std::vector<Range>{{4000, 16000}}));

    PcmClipList nothing;
    EXPECT_EQ(nothing.isPcmReady(), 1u);
}

TEST_F(ClipListTest, SuggestedFormatAndNestedLists) {
    PcmClipList list;
    EXPECT_EQ(list.getSamplerate(), 8000);
    EXPECT_EQ(list.getChannelCount(), 1);
    add(list, source(PCM_READY, 22050, 10, 10, 1), 0, 10);
    SPcmInfo* inner = source(CLIP_LIST, 0, 0, 0);
    inner->clipList.reset(new PcmClipList());
    add(*inner->clipList, source(DECODING, 44100, 10, 10, 2), 0, 10);
    add(list, inner, 0, 10);
    add(list, source(RECORDING, 96000, 10, 10, 2), 0, 10);  // the walk stops here
    add(list, source(PCM_READY, 48000, 10, 10, 2), 0, 10);
    EXPECT_EQ(list.getSamplerate(), 44100);
    EXPECT_EQ(list.getChannelCount(), 2);
    EXPECT_TRUE(list.reaches(inner));
    EXPECT_TRUE(list.reaches(inner->clipList->clips()[0].source));
    EXPECT_FALSE(inner->clipList->reaches(inner));

    PcmClipList recordingFirst;
    add(recordingFirst, source(RECORDING, 44100, 10, 10), 0, 10);
    EXPECT_EQ(recordingFirst.getSamplerate(), 8000);

    // A list's length in ms sums its clips'.
    SPcmInfo outer(CLIP_LIST);
    add(*outer.clipList, source(PCM_READY, 8000, 8000, 8000), 0, 4000);
    add(*outer.clipList, source(PCM_READY, 16000, 16000, 16000), 0, 0xFFFFFFFF);
    EXPECT_EQ(outer.frame2duration(0, 0), 1500u);
    // Its frames are its own at its own rate (16 kHz, the clips' highest):
    // the 8 kHz clip counts the frames its converter makes.
    uint32_t ms = 700;
    EXPECT_EQ(outer.duration2frame(ms, 0, 0), 8000u + 3200u);
    EXPECT_EQ(ms, 0u);
    uint32_t count = 0;
    EXPECT_EQ(outer.availableFrames(count, 3000, 5000, false), 0);
    EXPECT_EQ(count, 2000u);
}

}  // namespace
