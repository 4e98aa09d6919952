// Playing a list with effects: the "file:" output records what is played,
// which must be the list's render byte for byte, forwards and backwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include <wavoryx/platform.h>

#include "PlayTestSupport.h"

namespace {

using namespace wv;
using Samples = std::vector<int16_t>;

constexpr int kRate = 8000;

class EffectsPlayTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("WAVORYX_DEVICE_PACE", "20", 1); }
    void SetUp() override {
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override {
        engine.stopThreadLoop();
        wavoryx_set_audio_output(nullptr);
    }
    // A list of two marked items with a fade in, a crossfade and gains,
    // rendered; its rendered samples into *rendered.
    pcm_id_t renderedList(Samples* rendered) {
        SPcmInfo* a = wvtest::addMarkedItem(engine, dir, kRate, 8000);
        SPcmInfo* b = wvtest::addMarkedItem(engine, dir, kRate, 8000);
        const int32_t list = engine.newClipList();
        EXPECT_EQ(engine.addClip(list, a->id, 0, 6000), 1);
        EXPECT_EQ(engine.addClip(list, b->id, 2000, 8000), 2);
        EXPECT_EQ(engine.setClipFade(list, 1, 600, 0, WV_FADE_EQUAL_POWER), 0);
        EXPECT_EQ(engine.setClipGain(list, 2, -400), 0);
        EXPECT_EQ(engine.setListCrossfade(list, 250, WV_FADE_EQUAL_POWER), 0);
        EXPECT_EQ(engine.setListGain(list, 200), 0);
        const std::string out = dir.file("list.wav");
        EXPECT_EQ(engine.setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
        EXPECT_EQ(engine.process(list), 0);
        EXPECT_TRUE(events.waitForCode(22, list));
        EXPECT_TRUE(wvtest::readWavSamples(out, rendered));
        return static_cast<pcm_id_t>(list);
    }
    // Plays the item after `setup` until its end; the samples played.
    Samples playToEnd(pcm_id_t id, const std::function<void()>& setup) {
        const std::string wav = dir.file(std::to_string(id) + "." + std::to_string(++plays) + ".out.wav");
        EXPECT_EQ(wavoryx_set_audio_output(("file:" + wav).c_str()), 0);
        EXPECT_EQ(engine.playStart(id), 0);
        setup();
        EXPECT_EQ(engine.playResume(0), 0);
        EXPECT_TRUE(events.waitForCode(42, int(id)));
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        EXPECT_EQ(engine.playStop(0), 0);
        // The output file is finished once the player is gone.
        engine.removePcm(id);
        Samples samples;
        EXPECT_TRUE(wvtest::readWavSamples(wav, &samples));
        return samples;
    }
    // Whether `part` appears in `whole` at a frame boundary.
    static bool containsFrames(const Samples& whole, const Samples& part) {
        if (part.size() > whole.size()) return false;
        for (size_t at = 0; at + part.size() <= whole.size(); at += 2) {
            if (std::equal(part.begin(), part.end(), whole.begin() + at)) return true;
        }
        return false;
    }

    wvtest::EventRecorder events;
    wvtest::TempDir dir;
    WavoryxPriv engine;
    int plays = 0;
};

TEST_F(EffectsPlayTest, PlayingHandsOutTheRenderedBytes) {
    Samples rendered;
    const pcm_id_t list = renderedList(&rendered);
    // 6000 + 6000 frames, one join of 2000.
    ASSERT_EQ(rendered.size(), size_t(10000) * 2);
    const Samples played = playToEnd(list, [] {});
    EXPECT_TRUE(containsFrames(played, rendered));
    // Nothing but silence around it.
    size_t loud = 0;
    for (int16_t v : played) loud += std::abs(v) > 1;
    size_t renderedLoud = 0;
    for (int16_t v : rendered) renderedLoud += std::abs(v) > 1;
    EXPECT_EQ(loud, renderedLoud);
}

TEST_F(EffectsPlayTest, NoiseReductionAndTempoPlayAsTheyRender) {
    SPcmInfo* a = wvtest::addMarkedItem(engine, dir, kRate, 8000);
    const int32_t list = engine.newClipList();
    ASSERT_EQ(engine.addClip(list, a->id, 0, 8000), 1);
    ASSERT_EQ(engine.setListDenoise(list, 20), 0);
    ASSERT_EQ(engine.setListTempo(list, 125), 0);
    const std::string out = dir.file("stages.wav");
    ASSERT_EQ(engine.setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine.process(list), 0);
    ASSERT_TRUE(events.waitForCode(22, list));
    Samples rendered;
    ASSERT_TRUE(wvtest::readWavSamples(out, &rendered));
    ASSERT_EQ(rendered.size(), size_t(6400) * 2);
    const Samples played = playToEnd(static_cast<pcm_id_t>(list), [] {});
    EXPECT_TRUE(containsFrames(played, rendered));
}

TEST_F(EffectsPlayTest, BackwardsThroughTheFadeIsTheRenderReversed) {
    Samples rendered;
    const pcm_id_t list = renderedList(&rendered);
    ASSERT_GE(rendered.size(), size_t(6000) * 2);
    const Samples played = playToEnd(list, [&] {
        EXPECT_EQ(engine.setPlaySpeed(-1), 0);
        EXPECT_EQ(engine.playSeekTo(750), 0);  // frame 6000: the fade in and the crossfade's start
    });
    Samples reversed;
    for (size_t k = 6000; k-- > 0;) {
        reversed.push_back(rendered[k * 2]);
        reversed.push_back(rendered[k * 2 + 1]);
    }
    EXPECT_TRUE(containsFrames(played, reversed));
}

}  // namespace
