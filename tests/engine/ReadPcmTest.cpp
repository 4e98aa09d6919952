// readPcm and getWaveformPeaksFrames, the calls an application uses to show
// and play an edit without rendering it: what they give against a WAV render
// of the same list, and against the samples of the files themselves.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFiles.h"
#include "AudioFixtures.h"
#include "EventRecorder.h"
#include "TestSupport.h"

namespace {

class ReadPcm : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(dir.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override { engine.stopThreadLoop(); }

    // A WAV of noise, loaded; its samples in `samples`.
    int loaded(const std::string& name, int rate, int channels, uint32_t frames, std::vector<int16_t>* samples) {
        *samples = wvtest::makeNoise(frames, uint32_t(channels));
        EXPECT_TRUE(wvtest::writeWav(dir.file(name), *samples, rate, channels));
        const int id = engine.loadFile(dir.file(name).c_str());
        EXPECT_GT(id, 0);
        EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 20000, nullptr), WV_EVENT_LOAD_DONE);
        return id;
    }

    // The data of a WAV render of the list.
    std::vector<int16_t> rendered(int list) {
        const std::string out = dir.file("render" + std::to_string(list) + ".wav");
        EXPECT_EQ(engine.setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
        EXPECT_EQ(engine.process(list), 0);
        EXPECT_EQ(engine.waitForJob(list, WV_JOB_RENDER, 60000, nullptr), WV_EVENT_RENDER_DONE);
        std::vector<int16_t> samples;
        EXPECT_TRUE(wvtest::readWavSamples(out, &samples));
        return samples;
    }

    // The whole output from `from`, read `piece` frames at a time.
    std::vector<int16_t> readAll(int id, uint32_t from, uint32_t piece, int channels) {
        std::vector<int16_t> out;
        std::vector<int16_t> block(size_t(piece) * size_t(channels));
        for (uint32_t at = from;;) {
            const int32_t got = engine.readPcm(id, at, block.data(), piece);
            EXPECT_GE(got, 0);
            if (got <= 0) break;
            out.insert(out.end(), block.begin(), block.begin() + got * channels);
            at += uint32_t(got);
        }
        return out;
    }

    wvtest::TempDir dir;
    wvtest::EventRecorder recorder;
    Wavoryx engine;
};

TEST_F(ReadPcm, AListReadsAsItsWavRenderWithEffectsAndRateConversion) {
    std::vector<int16_t> a, b;
    const int first = loaded("a.wav", 44100, 2, 66150, &a);
    const int second = loaded("b.wav", 48000, 1, 48000, &b);
    const int list = engine.newClipList();
    const int c1 = engine.addClip(list, first, 4410, 60000);
    const int c2 = engine.addClip(list, second, 0, 40000);
    const int c3 = engine.addClip(list, first, 0, 22050);
    ASSERT_GT(c3, 0);
    ASSERT_EQ(engine.setClipGain(list, c1, -300), 0);
    ASSERT_EQ(engine.setClipFade(list, c2, 100, 250, WV_FADE_EQUAL_POWER), 0);
    ASSERT_EQ(engine.setListCrossfade(list, 120, WV_FADE_EQUAL_POWER), 0);
    ASSERT_EQ(engine.setResampleQuality(list, 1), 0);
    // Read before the render, as a player does: the render must not be
    // needed, and reading must not change what the render makes.
    const std::vector<int16_t> inPieces = readAll(list, 0, 777, 2);
    const std::vector<int16_t> whole = readAll(list, 0, 1 << 20, 2);
    uint32_t predicted = 0;
    ASSERT_EQ(engine.getPcmOutputFrames(list, &predicted), WV_OK);
    const std::vector<int16_t> render = rendered(list);
    ASSERT_FALSE(render.empty());
    EXPECT_EQ(size_t(predicted) * 2, render.size());
    EXPECT_EQ(inPieces, render);
    EXPECT_EQ(whole, render);
    // Two readers of the same list taking turns each get the render.
    std::vector<int16_t> x, y, block(1000 * 2);
    for (uint32_t at = 0;; at += 1000) {
        const int32_t gotX = engine.readPcm(list, at, block.data(), 1000);
        x.insert(x.end(), block.begin(), block.begin() + std::max(gotX, 0) * 2);
        const int32_t gotY = engine.readPcm(list, at, block.data(), 1000);
        y.insert(y.end(), block.begin(), block.begin() + std::max(gotY, 0) * 2);
        if (gotX <= 0 || gotY <= 0) break;
    }
    EXPECT_EQ(x, render);
    EXPECT_EQ(y, render);
    // Seeks into converted clips, forwards and backwards, from a fresh
    // engine place or a kept one, give the render's bytes from there.
    for (uint32_t from : {70000u, 30001u, 65000u, 1u, 90000u}) {
        const std::vector<int16_t> tail = readAll(list, from, 3000, 2);
        ASSERT_LE(size_t(from) * 2, render.size());
        EXPECT_EQ(tail, std::vector<int16_t>(render.begin() + long(from) * 2, render.end())) << from;
    }
}

TEST_F(ReadPcm, ASeekIntoAListOfOneRateGivesTheRendersBytesFromThere) {
    std::vector<int16_t> a;
    const int source = loaded("a.wav", 44100, 2, 44100, &a);
    const int list = engine.newClipList();
    ASSERT_GT(engine.addClip(list, source, 1000, 30000), 0);
    ASSERT_GT(engine.addClip(list, source, 20000, 44100), 0);
    ASSERT_EQ(engine.setClipFade(list, 2, 200, 0, WV_FADE_LINEAR), 0);
    uint32_t predicted = 0;
    ASSERT_EQ(engine.getPcmOutputFrames(list, &predicted), WV_OK);
    const std::vector<int16_t> render = rendered(list);
    EXPECT_EQ(size_t(predicted) * 2, render.size());
    uint32_t own = 0;
    ASSERT_EQ(engine.getPcmOutputFrames(source, &own), WV_OK);
    EXPECT_EQ(own, 44100u);
    EXPECT_EQ(engine.getPcmOutputFrames(source, nullptr), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getPcmOutputFrames(999, &own), WV_ERR_NO_ITEM);
    for (uint32_t from : {0u, 1u, 28999u, 29000u, 40000u}) {
        const std::vector<int16_t> tail = readAll(list, from, 4096, 2);
        EXPECT_EQ(tail, std::vector<int16_t>(render.begin() + long(from) * 2, render.end())) << from;
    }
    // A file item reads as its own frames.
    EXPECT_EQ(readAll(source, 0, 5000, 2), a);
    EXPECT_EQ(readAll(source, 44000, 5000, 2), std::vector<int16_t>(a.end() - 200, a.end()));
}

TEST_F(ReadPcm, RefusesWhatItCannotRead) {
    std::vector<int16_t> a, out(64);
    const int source = loaded("a.wav", 8000, 1, 800, &a);
    EXPECT_EQ(engine.readPcm(999, 0, out.data(), 10), WV_ERR_NO_ITEM);
    EXPECT_EQ(engine.readPcm(source, 0, nullptr, 10), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.readPcm(source, 0, out.data(), 0), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.readPcm(source, 800, out.data(), 10), 0);
    EXPECT_EQ(engine.readPcm(source, 790, out.data(), 64), 10);
    // A list whose source never loads.
    const int missing = engine.loadFile(dir.file("none.wav").c_str());
    engine.waitForJob(missing, WV_JOB_LOAD, 20000, nullptr);
    const int list = engine.newClipList();
    engine.addClipMs(list, missing, 0, 1000);
    EXPECT_LT(engine.readPcm(list, 0, out.data(), 10), 0);
    // A released item is released by its reader too: nothing stays open.
    EXPECT_EQ(engine.readPcm(source, 0, out.data(), 10), 10);
    EXPECT_EQ(engine.removePcm(source), source);
    EXPECT_EQ(engine.readPcm(source, 10, out.data(), 10), WV_ERR_NO_ITEM);
}

// Bin i over frames [start + i n / count, start + (i + 1) n / count), all
// channels; a bin with no frame (0, 0).
std::vector<int16_t> binsOf(const std::vector<int16_t>& samples, int channels, uint32_t start, uint32_t end,
                            uint32_t count) {
    std::vector<int16_t> out;
    const uint64_t n = end - start;
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t from = start + i * n / count, to = start + (i + 1) * n / count;
        int lowest = INT_MAX, highest = INT_MIN;
        for (uint64_t s = from * uint64_t(channels); s < to * uint64_t(channels); ++s) {
            lowest = std::min<int>(lowest, samples[s]);
            highest = std::max<int>(highest, samples[s]);
        }
        out.push_back(lowest == INT_MAX ? 0 : int16_t(lowest));
        out.push_back(highest == INT_MIN ? 0 : int16_t(highest));
    }
    return out;
}

TEST_F(ReadPcm, FramePeaksAreTheBinsOfThoseFramesAndTheMsPeaksTheSame) {
    std::vector<int16_t> a, m;
    const int stereo = loaded("a.wav", 44100, 2, 132300, &a);
    const int mono = loaded("m.wav", 8000, 1, 24000, &m);
    const auto framePeaks = [this](int id, uint32_t start, uint32_t end, uint32_t count) {
        std::vector<int16_t> out(2 * size_t(count) + 1, 0x5A5A);
        EXPECT_EQ(engine.getWaveformPeaksFrames(id, start, end, count, out.data()), int32_t(count));
        EXPECT_EQ(out.back(), 0x5A5A) << "wrote past its count";
        out.pop_back();
        return out;
    };
    for (uint32_t count : {1u, 7u, 640u}) {
        EXPECT_EQ(framePeaks(stereo, 0, 132300, count), binsOf(a, 2, 0, 132300, count)) << count;
    }
    EXPECT_EQ(framePeaks(stereo, 11025, 121275, 333), binsOf(a, 2, 11025, 121275, 333));
    // One bin a frame, and more bins than frames.
    EXPECT_EQ(framePeaks(mono, 100, 164, 64), binsOf(m, 1, 100, 164, 64));
    EXPECT_EQ(framePeaks(mono, 100, 110, 40), binsOf(m, 1, 100, 110, 40));
    // An end past the item's is cut there; UINT32_MAX is "to the end".
    EXPECT_EQ(framePeaks(mono, 23000, UINT32_MAX, 9), binsOf(m, 1, 23000, 24000, 9));
    // The ms call is the frame call on the frames its times name.
    std::vector<int16_t> byMs(2 * 333);
    ASSERT_EQ(engine.getWaveformPeaks(stereo, 250, 2750, 333, byMs.data()), 333);
    EXPECT_EQ(byMs, framePeaks(stereo, 11025, 121275, 333));
    // A list's frames: its clips one after the other, unconverted.
    const int list = engine.newClipList();
    engine.addClip(list, mono, 0, 1000);
    engine.addClip(list, stereo, 500, 1500);
    std::vector<int16_t> joined = binsOf(m, 1, 0, 1000, 1);
    const std::vector<int16_t> second = binsOf(a, 2, 500, 1500, 1);
    EXPECT_EQ(framePeaks(list, 0, 1000, 1), joined);
    EXPECT_EQ(framePeaks(list, 1000, 2000, 1), second);

    std::vector<int16_t> out(2);
    EXPECT_EQ(engine.getWaveformPeaksFrames(mono, 24000, 24010, 1, out.data()), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaksFrames(mono, 10, 10, 1, out.data()), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaksFrames(mono, 0, 10, 0, out.data()), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaksFrames(mono, 0, 10, 1, nullptr), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getWaveformPeaksFrames(999, 0, 10, 1, out.data()), WV_ERR_NO_ITEM);
}

}  // namespace
