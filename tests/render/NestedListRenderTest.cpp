// A clip list used as a clip of another list, its clips at rates other than
// the output's: every render of it, plain or with effects on the outer
// list, holds the inner list's converted length.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "TestSupport.h"

namespace {

class NestedListRender : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(dir.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        ASSERT_TRUE(wvtest::writeToneWav(dir.file("a.wav"), 44100, 2, 4.0, 440.0));
        ASSERT_TRUE(wvtest::writeToneWav(dir.file("b.wav"), 22050, 2, 3.0, 660.0));
        engine.startThreadLoop(0);
        for (const char* name : {"a.wav", "b.wav"}) {
            const int id = engine.loadFile(dir.file(name).c_str());
            ASSERT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE);
            sources.push_back(id);
        }
    }
    void TearDown() override { engine.stopThreadLoop(); }

    // The frames of `list` rendered to a WAV at 44.1 kHz with the exact
    // converter, or -1.
    long framesRendered(int list, const std::string& name) {
        const std::string path = dir.file(name);
        engine.setOutputPara(list, path.c_str(), ENCODE_WAV);
        engine.setEncodePara(list, 44100, 0, 2, 0);
        engine.setResampleQuality(list, 1);
        if (engine.process(list) != 0) return -1;
        if (engine.waitForJob(list, WV_JOB_RENDER, 120000, nullptr) != WV_EVENT_RENDER_DONE) return -1;
        std::vector<int16_t> samples;
        if (!wvtest::readWavSamples(path, &samples)) return -1;
        return long(samples.size() / 2);
    }

    wvtest::TempDir dir;
    wvtest::EventRecorder recorder;
    Wavoryx engine;
    std::vector<int> sources;
};

TEST_F(NestedListRender, AnInnerListOfOtherRatesKeepsItsConvertedLengthUnderOuterEffects) {
    const long expected = 4 * 44100 + 3 * 44100;
    const int inner = engine.newClipList();
    ASSERT_EQ(engine.addClip(inner, sources[0], 0, 0xFFFFFFFF), 1);
    ASSERT_EQ(engine.addClip(inner, sources[1], 0, 0xFFFFFFFF), 2);
    EXPECT_EQ(framesRendered(inner, "inner.wav"), expected);

    const int plain = engine.newClipList();
    ASSERT_EQ(engine.addClip(plain, inner, 0, 0xFFFFFFFF), 1);
    EXPECT_EQ(framesRendered(plain, "plain.wav"), expected);

    // Effects on the outer list place the inner list's clips in output
    // frames: none is cut short.
    const int gained = engine.newClipList();
    ASSERT_EQ(engine.addClip(gained, inner, 0, 0xFFFFFFFF), 1);
    ASSERT_EQ(engine.setListGain(gained, -300), 0);
    EXPECT_EQ(framesRendered(gained, "gained.wav"), expected);

    const int faded = engine.newClipList();
    ASSERT_EQ(engine.addClip(faded, sources[0], 0, 44100), 1);
    ASSERT_EQ(engine.addClip(faded, inner, 0, 0xFFFFFFFF), 2);
    ASSERT_EQ(engine.setClipFade(faded, 2, 0, 500, WV_FADE_LINEAR), 0);
    EXPECT_EQ(framesRendered(faded, "faded.wav"), 44100 + expected);

    const int normalised = engine.newClipList();
    ASSERT_EQ(engine.addClip(normalised, inner, 0, 0xFFFFFFFF), 1);
    ASSERT_EQ(engine.setListLoudness(normalised, -160, -10), 0);
    EXPECT_EQ(framesRendered(normalised, "normalised.wav"), expected);
}

}  // namespace
