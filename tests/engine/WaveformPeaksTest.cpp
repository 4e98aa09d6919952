// getWaveformPeaks against extremes computed here, bin by bin, from the very
// samples written to the items' PCM files.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "EventRecorder.h"
#include "TestSupport.h"
#include "engine/WavoryxPriv.h"

namespace {

using namespace wv;

// One frame's samples (one or two channels).
using Frame = std::vector<int16_t>;

// Bin i holds frames [i n / count, (i + 1) n / count); a bin without
// samples (no frames, or frames with none yet) is (0, 0).
std::vector<int16_t> expectedPeaks(const std::vector<Frame>& frames, uint32_t count) {
    std::vector<int16_t> out;
    const uint64_t n = frames.size();
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t from = i * n / count, to = (i + 1) * n / count;
        int lowest = INT_MAX, highest = INT_MIN;
        for (uint64_t f = from; f < to; ++f) {
            for (int16_t s : frames[f]) {
                lowest = std::min<int>(lowest, s);
                highest = std::max<int>(highest, s);
            }
        }
        const bool empty = lowest == INT_MAX;
        out.push_back(empty ? 0 : int16_t(lowest));
        out.push_back(empty ? 0 : int16_t(highest));
    }
    return out;
}

class WaveformPeaksTest : public ::testing::Test {
protected:
    struct Item {
        SPcmInfo* info;
        std::vector<Frame> frames;
        // Frames [from, to) of the item.
        std::vector<Frame> slice(uint64_t from, uint64_t to) const {
            return std::vector<Frame>(frames.begin() + long(from), frames.begin() + long(to));
        }
    };

    // A loaded item made by hand: `frames` frames of a noise-like signal
    // spanning `lowest`..`highest`, of which the first `present` are in its
    // file (all by default); the rest are still to be decoded.
    Item pcmItem(int rate, int channels, uint32_t frames, int lowest = -32768, int highest = 32767,
                 uint32_t present = UINT32_MAX) {
        Item item;
        const uint32_t inFile = std::min(frames, present);
        std::vector<int16_t> samples;
        uint32_t noise = 12345u + uint32_t(channels) * 77u + frames;
        for (uint32_t f = 0; f < inFile; ++f) {
            Frame frame;
            for (int c = 0; c < channels; ++c) {
                noise = noise * 1664525u + 1013904223u;
                frame.push_back(int16_t(lowest + int((noise >> 8) % uint32_t(highest - lowest + 1))));
                samples.push_back(frame.back());
            }
            item.frames.push_back(frame);
        }
        const int id = engine.newClipList();  // an id to borrow; made a file item below
        item.info = engine.getPcmInfo(id, REF_NONE);
        item.info->clipList.reset();
        item.info->status = inFile < frames ? DECODING : PCM_READY;
        item.info->sampleRate = rate;
        item.info->channelCount = channels;
        item.info->frames = inFile;
        item.info->totalFrames = frames;
        const std::string path = dir.file(std::to_string(id) + ".pcm");
        wvtest::writeFile(path, samples.data(), samples.size() * 2);
        item.info->pcmPath.set(path);
        return item;
    }

    std::vector<int16_t> peaks(int id, uint32_t startMs, uint32_t endMs, uint32_t count) {
        std::vector<int16_t> out(2 * size_t(count) + 2, 0x5A5A);
        EXPECT_EQ(engine.getWaveformPeaks(uint32_t(id), startMs, endMs, count, out.data()), int32_t(count));
        EXPECT_EQ(out[2 * size_t(count)], 0x5A5A) << "wrote past its count";
        out.resize(2 * size_t(count));
        return out;
    }

    wvtest::TempDir dir;
    WavoryxPriv engine;
};

TEST_F(WaveformPeaksTest, StereoAndMonoItemsGiveEachBinsExtremes) {
    // 3 s of stereo at 44.1 kHz: the range crosses many 64 KB reads.
    const Item stereo = pcmItem(44100, 2, 132300);
    for (uint32_t count : {1u, 7u, 640u, 4096u}) {
        EXPECT_EQ(peaks(stereo.info->id, 0, 3000, count), expectedPeaks(stereo.frames, count)) << count;
    }
    // Not from 0: 250 ms is frame 11025, 2750 ms frame 121275.
    EXPECT_EQ(peaks(stereo.info->id, 250, 2750, 333), expectedPeaks(stereo.slice(11025, 121275), 333));
    // An end past the item's is cut at its last frame.
    EXPECT_EQ(peaks(stereo.info->id, 1000, 60000, 50), expectedPeaks(stereo.slice(44100, 132300), 50));

    const Item mono = pcmItem(8000, 1, 24000);
    EXPECT_EQ(peaks(mono.info->id, 1500, 2999, 100), expectedPeaks(mono.slice(12000, 23992), 100));
}

TEST_F(WaveformPeaksTest, APositiveSignalKeepsAPositiveMinimum) {
    const Item raised = pcmItem(16000, 2, 16000, 1000, 9000);
    const std::vector<int16_t> got = peaks(raised.info->id, 0, 1000, 40);
    EXPECT_EQ(got, expectedPeaks(raised.frames, 40));
    for (size_t i = 0; i < got.size(); i += 2) {
        EXPECT_GE(got[i], 1000) << "bin " << i / 2;
        EXPECT_LE(got[i + 1], 9000) << "bin " << i / 2;
        EXPECT_LT(got[i], got[i + 1]) << "bin " << i / 2;
    }
}

TEST_F(WaveformPeaksTest, MoreBinsThanFramesLeaveEmptyBinsAtZero) {
    // 2 ms at 8 kHz is 16 frames for 40 bins.
    const Item tiny = pcmItem(8000, 1, 8000, 100, 200);
    const std::vector<int16_t> got = peaks(tiny.info->id, 500, 502, 40);
    EXPECT_EQ(got, expectedPeaks(tiny.slice(4000, 4016), 40));
    int filled = 0;
    for (size_t i = 0; i < got.size(); i += 2) filled += got[i] != 0;
    EXPECT_EQ(filled, 16) << "each frame in exactly one bin";
}

TEST_F(WaveformPeaksTest, ListsOfSeveralClipsMixMonoAndStereoUnconverted) {
    const Item stereo = pcmItem(22050, 2, 44100);
    const Item mono = pcmItem(22050, 1, 30000, -5000, 12000);
    const int list = engine.newClipList();
    ASSERT_GT(engine.addClip(uint32_t(list), stereo.info->id, 1000, 20000), 0);
    ASSERT_GT(engine.addClip(uint32_t(list), mono.info->id, 0, 30000), 0);
    ASSERT_GT(engine.addClip(uint32_t(list), stereo.info->id, 30000, 44100), 0);
    // A list inside the list: its frames follow as its own clips give them.
    const int inner = engine.newClipList();
    ASSERT_GT(engine.addClip(uint32_t(inner), mono.info->id, 100, 2305), 0);
    ASSERT_GT(engine.addClip(uint32_t(list), uint32_t(inner), 0, 2205), 0);

    std::vector<Frame> all = stereo.slice(1000, 20000);
    for (const auto& part : {mono.slice(0, 30000), stereo.slice(30000, 44100), mono.slice(100, 2305)})
        all.insert(all.end(), part.begin(), part.end());
    ASSERT_EQ(all.size(), 65305u);
    // The whole list (2961.68 ms at 22.05 kHz: an end at 2961 ms lies in its
    // last, partial millisecond and takes every frame), then a range that
    // starts in the second clip (1000 ms = frame 22050) and ends in the
    // nested list.
    EXPECT_EQ(peaks(list, 0, 2961, 500), expectedPeaks(all, 500));
    EXPECT_EQ(peaks(list, 1000, 2960, 97),
              expectedPeaks(std::vector<Frame>(all.begin() + 22050, all.begin() + 65268), 97));
}

TEST_F(WaveformPeaksTest, FramesNotDecodedYetGiveEmptyBins) {
    const Item loading = pcmItem(8000, 2, 16000, -32768, 32767, 6000);
    const std::vector<int16_t> got = peaks(loading.info->id, 0, 2000, 8);
    // Bins 0..2 hold present frames; bin 3 (frames 6000..7999) and the rest
    // have none of theirs yet.
    std::vector<Frame> whole = loading.frames;
    whole.resize(16000);  // frames to come hold no samples
    EXPECT_EQ(got, expectedPeaks(whole, 8));
    EXPECT_EQ(std::vector<int16_t>(got.begin() + 6, got.end()), std::vector<int16_t>(10, 0));
}

TEST_F(WaveformPeaksTest, RefusalsMirrorTheEightBitSampling) {
    wvtest::LogCapture log;
    int16_t out[8];
    EXPECT_EQ(engine.getWaveformPeaks(99, 0, 10, 4, out), WV_ERR_NO_ITEM);
    EXPECT_TRUE(log.contains(
        "in int32_t WavoryxPriv::getWaveformPeaks(pcm_id_t, duration_t, duration_t, uint32_t, int16_t*):"));
    EXPECT_TRUE(log.contains("error: pcm 99 doesn't exist"));
    const Item item = pcmItem(8000, 1, 800);
    EXPECT_EQ(engine.getWaveformPeaks(item.info->id, 50, 50, 4, out), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaks(item.info->id, 60, 50, 4, out), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaks(item.info->id, 0, 50, 0, out), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaks(item.info->id, 0, 50, 4, nullptr), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaks(item.info->id, 100, UINT_MAX, 4, out), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaks(engine.newClipList(), 0, 100, 4, out), WV_ERR_OUT_OF_RANGE);
}

TEST(WaveformPeaksPublicTest, ALoadedFileAndAListOfItThroughTheApplicationsCall) {
    // One second of 8 kHz stereo whose left channel climbs and whose right
    // one falls, each to its own extremes.
    std::vector<int16_t> samples;
    std::vector<Frame> frames;
    for (int i = 0; i < 8000; ++i) {
        const int16_t left = int16_t(i * 4 - 16000), right = int16_t(12000 - i * 3);
        samples.insert(samples.end(), {left, right});
        frames.push_back({left, right});
    }
    wvtest::TempDir dir;
    ASSERT_TRUE(wvtest::writeWav(dir.file("ramp.wav"), samples, 8000, 2));
    wvtest::EventRecorder events;
    Wavoryx engine;
    engine.setWorkingDir(dir.prefix().c_str());
    engine.setCallback(wvtest::EventRecorder::callback);
    engine.startThreadLoop(0);
    const int wav = engine.loadFile(dir.file("ramp.wav").c_str());
    ASSERT_TRUE(events.waitForCode(WV_EVENT_LOAD_DONE, wav));

    std::vector<int16_t> out(2 * 16);
    ASSERT_EQ(engine.getWaveformPeaks(wav, 0, 1000, 16, out.data()), 16);
    EXPECT_EQ(out, expectedPeaks(frames, 16));
    // A list: 250..750 ms given in ms, then the first 100 frames.
    const int list = engine.newClipList();
    ASSERT_GT(engine.addClipMs(list, wav, 250, 750), 0);
    ASSERT_GT(engine.addClip(list, wav, 0, 100), 0);
    std::vector<Frame> listFrames(frames.begin() + 2000, frames.begin() + 6000);
    listFrames.insert(listFrames.end(), frames.begin(), frames.begin() + 100);
    ASSERT_EQ(engine.getWaveformPeaks(list, 0, 513, 9, out.data()), 9);  // 513 ms: past its 4100 frames
    out.resize(18);
    EXPECT_EQ(out, expectedPeaks(listFrames, 9));
    EXPECT_EQ(engine.getWaveformPeaks(wav + 1000, 0, 1000, 16, out.data()), WV_ERR_NO_ITEM);
    engine.stopThreadLoop();
}

}  // namespace
