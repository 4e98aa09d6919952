#include <fcntl.h>
#include <gtest/gtest.h>

#include "TestSupport.h"
#include "items/InfoList.h"
#include "items/SPcmInfo.h"

namespace {

using namespace wv;

SPcmInfo* readyItem(int rate, uint32_t frames, int channels = 1) {
    SPcmInfo* item = new SPcmInfo(PCM_READY);
    item->sampleRate = rate;
    item->channelCount = channels;
    item->frames = frames;
    item->totalFrames = frames;
    item->refs[REF_CLIENT] = 1;
    return item;
}

TEST(InfoList, IdsGrowAndAreNeverReused) {
    InfoList list;
    EXPECT_EQ(list.add(readyItem(8000, 1)), 1u);
    EXPECT_EQ(list.add(readyItem(8000, 1)), 2u);
    EXPECT_EQ(list.add(readyItem(8000, 1)), 3u);
    EXPECT_EQ(list.release(2, REF_CLIENT, false), 2u);
    EXPECT_EQ(list.get(2, REF_NONE), nullptr);
    EXPECT_EQ(list.add(readyItem(8000, 1)), 4u);
    EXPECT_EQ(list.release(99, REF_CLIENT, false), 0u);
}

TEST(InfoList, ItemLivesUntilEveryHolderLetsGoAndTakesItsFile) {
    wvtest::TempDir dir;
    InfoList list;
    SPcmInfo* item = readyItem(8000, 10);
    item->refs[REF_DECODER] = 1;
    item->pcmPath.set(dir.file("1.pcm"));
    wvtest::writeFile(dir.file("1.pcm"), "data", 4);
    // The item removes only the file it holds open.
    item->pcmFd = ::open(dir.file("1.pcm").c_str(), O_RDWR | O_CLOEXEC);
    const pcm_id_t id = list.add(item);

    EXPECT_EQ(list.release(id, REF_CLIENT, false), id);
    EXPECT_EQ(list.release(id, REF_CLIENT, false), id);  // nothing left to drop: no change
    EXPECT_EQ(list.get(id, REF_NONE), item);
    EXPECT_TRUE(wvtest::fileExists(dir.file("1.pcm")));

    list.get(id, REF_LIST);
    list.get(id, REF_LIST);
    EXPECT_EQ(list.refCount(id, REF_LIST), 2u);
    EXPECT_EQ(list.release(id, REF_LIST, true), id);  // `all` clears the holder at once
    EXPECT_EQ(list.refCount(id, REF_LIST), 0u);

    EXPECT_EQ(list.release(id, REF_DECODER, false), id);
    EXPECT_EQ(list.get(id, REF_NONE), nullptr);
    EXPECT_FALSE(wvtest::fileExists(dir.file("1.pcm")));
}

TEST(InfoList, ClipListReleasesItsSourcesAndCountersDoNotWrap) {
    InfoList list;
    const pcm_id_t source = list.add(readyItem(8000, 1000));
    SPcmInfo* clips = new SPcmInfo(CLIP_LIST);
    clips->refs[REF_CLIENT] = 1;
    const pcm_id_t listId = list.add(clips);
    for (int i = 0; i < 1000; ++i) {
        PcmClip clip;
        clip.source = list.get(source, REF_LIST);
        clip.end = 10;
        clips->clipList->add(clip);
    }
    EXPECT_EQ(list.refCount(source, REF_LIST), 1000u);
    list.release(source, REF_CLIENT, false);
    ASSERT_NE(list.get(source, REF_NONE), nullptr);  // the list keeps it
    list.release(listId, REF_CLIENT, false);
    EXPECT_EQ(list.get(source, REF_NONE), nullptr);
    EXPECT_EQ(list.size(), 0u);
}

TEST(SPcmInfo, ConversionsBetweenMillisecondsAndFrames) {
    std::unique_ptr<SPcmInfo> item(readyItem(8000, 16000));
    uint32_t ms = 1500;
    EXPECT_EQ(item->duration2frame(ms, 0, 0xFFFFFFFF), 12000u);
    EXPECT_EQ(ms, 0u);
    ms = 3000;
    EXPECT_EQ(item->duration2frame(ms, 0, 0xFFFFFFFF), 16000u);
    EXPECT_EQ(ms, 1000u);
    ms = 500;
    EXPECT_EQ(item->duration2frame(ms, 4000, 6000), 6000u);  // only 250 ms fit in the range
    EXPECT_EQ(ms, 250u);
    EXPECT_EQ(item->frame2duration(0, 0xFFFFFFFF), 2000u);
    EXPECT_EQ(item->frame2duration(8000, 4000), 0u);  // inverted range: nothing

    // While decoding, the expected length counts, not the frames so far.
    item->status = DECODING;
    item->frames = 800;
    item->totalFrames = 80000;
    EXPECT_EQ(item->frame2duration(0, 0xFFFFFFFF), 10000u);

    SPcmInfo pending(ENCODED_FILE);
    ms = 700;
    EXPECT_EQ(pending.duration2frame(ms, 0, 100), 0u);
    EXPECT_EQ(ms, 700u);
    EXPECT_EQ(pending.frame2duration(0, 100), 0u);
    EXPECT_EQ(pending.frameSize(), 4u);  // channels unknown
    pending.channelCount = 1;
    EXPECT_EQ(pending.frameSize(), 2u);

    // No rate yet: nothing is consumed and nothing is divided by zero.
    SPcmInfo rateless(DECODING);
    rateless.totalFrames = 100;
    ms = 10;
    EXPECT_EQ(rateless.duration2frame(ms, 5, 50), 5u);
    EXPECT_EQ(rateless.frame2duration(0, 50), 0u);
}

TEST(SPcmInfo, AvailableFramesFollowsWhatIsWrittenOrExpected) {
    SPcmInfo item(DECODING);
    item.sampleRate = 8000;
    item.frames = 1000;
    item.totalFrames = 4000;
    uint32_t count = 99;
    EXPECT_EQ(item.availableFrames(count, 500, 2000, false), 1);
    EXPECT_EQ(count, 500u);
    EXPECT_EQ(item.availableFrames(count, 500, 2000, true), 0);
    EXPECT_EQ(count, 1500u);
    EXPECT_EQ(item.availableFrames(count, 1200, 2000, false), 1);
    EXPECT_EQ(count, 0u);
    item.status = PCM_READY;
    EXPECT_EQ(item.availableFrames(count, 500, 2000, true), 0);  // final: frames count
    EXPECT_EQ(count, 500u);
    EXPECT_EQ(item.availableFrames(count, 2000, 2000, false), 0);
    EXPECT_EQ(count, 0u);
    SPcmInfo pending(ENCODED_FILE);
    EXPECT_EQ(pending.availableFrames(count, 0, 10, false), 1);
    EXPECT_EQ(count, 0u);
}

}  // namespace
