// A clip list used as a clip of another list counts its frames as what its
// own reader hands out. The oracle: render the inner list to a WAV, load
// that, and use it in the inner list's place; the outer render must give
// the same bytes, and the list's frame count and duration must be the
// WAV's.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "TestSupport.h"

namespace {

struct Clip {
    int source;  // an item id, or kInner for the inner list being tested
    uint32_t start;
    uint32_t end;
    bool inMs = false;  // start and end in ms (addClipMs)
};
constexpr int kInner = -1;
constexpr uint32_t kAll = 0xFFFFFFFF;
constexpr size_t kSettleFrames = 200;

struct ListEffects {
    unsigned crossfadeMs = 0;
    int tempo = 100;
    int gainMb = 0;
};

class NestedListFrame : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(dir.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
        // Two rates, one channel count: tones that differ frame by frame.
        a = loaded("a.wav", 16000, 1.0, 440.0);
        b = loaded("b.wav", 16000, 0.8, 660.0);
        c = loaded("c.wav", 8000, 0.9, 330.0);
        d = loaded("d.wav", 8000, 0.7, 550.0);
    }
    void TearDown() override { engine.stopThreadLoop(); }

    int loaded(const std::string& name, int rate, double seconds, double freq) {
        const std::string path = dir.file(name);
        EXPECT_TRUE(wvtest::writeToneWav(path, rate, 1, seconds, freq));
        return loadWav(path);
    }
    int loadWav(const std::string& path) {
        const int id = engine.loadFile(path.c_str());
        EXPECT_GT(id, 0);
        EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE);
        return id;
    }
    // A new list of `clips` (kInner standing for `inner`) with `effects`.
    int list(const std::vector<Clip>& clips, const ListEffects& effects = {}, int inner = 0) {
        const int id = engine.newClipList();
        EXPECT_GT(id, 0);
        for (const Clip& clip : clips) {
            const int source = clip.source == kInner ? inner : clip.source;
            EXPECT_GT(clip.inMs ? engine.addClipMs(id, source, clip.start, clip.end)
                                : engine.addClip(id, source, clip.start, clip.end),
                      0);
        }
        if (effects.crossfadeMs != 0) {
            EXPECT_EQ(engine.setListCrossfade(id, effects.crossfadeMs, WV_FADE_EQUAL_POWER), 0);
        }
        if (effects.tempo != 100) {
            EXPECT_EQ(engine.setListTempo(id, effects.tempo), 0);
        }
        if (effects.gainMb != 0) {
            EXPECT_EQ(engine.setListGain(id, effects.gainMb), 0);
        }
        return id;
    }
    // Renders `id` to a WAV at `rate` (0: its own) with the exact
    // converter; returns the path ("" on failure).
    std::string render(int id, int rate = 0) {
        const std::string path = dir.file("r" + std::to_string(++renders) + ".wav");
        engine.setOutputPara(id, path.c_str(), ENCODE_WAV);
        engine.setEncodePara(id, rate, 0, 0, 0);
        engine.setResampleQuality(id, 1);
        if (engine.process(id) != 0) return "";
        if (engine.waitForJob(id, WV_JOB_RENDER, 120000, nullptr) != WV_EVENT_RENDER_DONE) return "";
        return path;
    }
    // The WAV of the inner list made by `makeInner` (a fresh one: the list
    // under test is never rendered before its outer list), loaded.
    int bounced(const std::function<int()>& makeInner) {
        const std::string path = render(makeInner());
        EXPECT_FALSE(path.empty());
        return loadWav(path);
    }
    // Renders `outer` over a fresh inner list and over its bounce; both
    // renders must agree byte for byte, or with `restarts` (the outer list
    // starts inside an inner clip of another rate) in length and within
    // one step after kSettleFrames. The rendered list's frame count and
    // duration must be its WAV's.
    void expectLikeTheBounce(const std::function<int()>& makeInner, const std::vector<Clip>& outer,
                             const ListEffects& effects = {}, int rate = 0,
                             bool restarts = false) {
        const int nested = list(outer, effects, makeInner());
        const int flat = list(outer, effects, bounced(makeInner));
        const std::string got = render(nested, rate);
        const std::string want = render(flat, rate);
        ASSERT_FALSE(got.empty());
        ASSERT_FALSE(want.empty());
        std::vector<int16_t> gotSamples;
        std::vector<int16_t> wantSamples;
        int gotRate = 0;
        int channels = 0;
        ASSERT_TRUE(wvtest::readWavSamples(got, &gotSamples, &gotRate, &channels));
        ASSERT_GT(channels, 0);
        const auto frames = static_cast<int32_t>(gotSamples.size() / size_t(channels));
        ASSERT_TRUE(wvtest::readWavSamples(want, &wantSamples));
        ASSERT_EQ(gotSamples.size(), wantSamples.size());
        if (!restarts) {
            EXPECT_EQ(wvtest::readFile(got), wvtest::readFile(want));
        } else {
            // A converter started inside a clip of another rate settles
            // within its first frames; after them one step of slack.
            for (size_t i = kSettleFrames * size_t(channels); i < gotSamples.size(); ++i) {
                ASSERT_LE(std::abs(gotSamples[i] - wantSamples[i]), 1) << "sample " << i;
            }
        }
        EXPECT_EQ(engine.getPcmFrameLength(nested), frames);
        const int loadedBack = loadWav(got);
        EXPECT_EQ(engine.getPcmFrameLength(loadedBack), frames);
        EXPECT_EQ(engine.getPcmDuration(nested), engine.getPcmDuration(loadedBack));
        ASSERT_GT(gotRate, 0);
    }

    wvtest::TempDir dir;
    wvtest::EventRecorder recorder;
    Wavoryx engine;
    int a = 0, b = 0, c = 0, d = 0;
    int renders = 0;
};

TEST_F(NestedListFrame, AnInnerCrossfadeIsNotCutShort) {
    const auto inner = [this] { return list({{a, 0, kAll}, {b, 0, kAll}}, {300, 100, 0}); };
    expectLikeTheBounce(inner, {{kInner, 0, kAll}});
    expectLikeTheBounce(inner, {{kInner, 0, kAll}, {b, 0, 4000}});
    // Outer effects over the nested list.
    expectLikeTheBounce(inner, {{a, 0, 8000}, {kInner, 0, kAll}}, {200, 100, -300});
}

TEST_F(NestedListFrame, ListsOfListsThreeLevelsDeep) {
    const auto level1 = [this] { return list({{a, 0, kAll}, {b, 0, kAll}}, {250, 100, 0}); };
    const auto level2 = [this, level1] {
        return list({{kInner, 0, kAll}, {a, 2000, 6000}}, {100, 100, 0}, level1());
    };
    // The middle list's oracle is itself checked first.
    expectLikeTheBounce(level1, {{kInner, 0, kAll}, {a, 2000, 6000}}, {100, 100, 0});
    expectLikeTheBounce(level2, {{kInner, 0, kAll}, {b, 0, 3000}});
}

TEST_F(NestedListFrame, PartsOfANestedListCountInItsOwnFrames) {
    const auto inner = [this] { return list({{a, 0, kAll}, {b, 0, kAll}}, {300, 100, 0}); };
    // A range across the crossfade, one past the sources' own frames, and
    // one reaching the list's end.
    expectLikeTheBounce(inner, {{kInner, 12000, 20000}});
    expectLikeTheBounce(inner, {{kInner, 20000, 24000}, {kInner, 1000, 5000}});
    expectLikeTheBounce(inner, {{kInner, 16000, kAll}});
    // In ms: the list's own time.
    expectLikeTheBounce(inner, {{kInner, 700, 1300, true}, {kInner, 1200, kAll, true}});
}

TEST_F(NestedListFrame, AnInnerTempoCountsItsStretchedFrames) {
    const auto inner = [this] { return list({{a, 0, kAll}, {b, 0, kAll}}, {0, 125, 0}); };
    expectLikeTheBounce(inner, {{kInner, 0, kAll}, {a, 0, 4000}});
    expectLikeTheBounce(inner, {{kInner, 3000, 15000}});
}

TEST_F(NestedListFrame, NestedListsAtOtherRates) {
    // An 8 kHz list inside a 16 kHz one: the inner list's frames are its
    // own rate's, converted as a file of that rate would be.
    const auto inner = [this] { return list({{c, 0, kAll}, {d, 0, kAll}}, {200, 100, 0}); };
    expectLikeTheBounce(inner, {{a, 0, 8000}, {kInner, 0, kAll}}, {}, 16000);
    expectLikeTheBounce(inner, {{a, 0, 8000}, {kInner, 2000, 9000}}, {}, 16000);
    const auto plain = [this] { return list({{c, 0, kAll}, {d, 0, kAll}}); };
    expectLikeTheBounce(plain, {{a, 0, 8000}, {kInner, 1000, 10000}}, {0, 100, -200}, 16000);
}

TEST_F(NestedListFrame, AMonoListInAStereoListIsMappedAfterItsOwnMix) {
    const std::string path = dir.file("e.wav");
    ASSERT_TRUE(wvtest::writeToneWav(path, 16000, 2, 0.5, 770.0));
    const int stereo = loadWav(path);
    const auto inner = [this] { return list({{a, 0, kAll}, {b, 0, kAll}}, {300, 100, -100}); };
    expectLikeTheBounce(inner, {{stereo, 0, kAll}, {kInner, 0, kAll}});
    expectLikeTheBounce(inner, {{stereo, 0, kAll}, {kInner, 4000, 20000}}, {100, 100, 0});
}

TEST_F(NestedListFrame, AnInnerListOfMixedRatesCountsItsConvertedFrames) {
    // At its own rate (16 kHz) the 8 kHz clip takes twice its frames.
    const auto inner = [this] { return list({{c, 0, kAll}, {a, 0, kAll}}); };
    expectLikeTheBounce(inner, {{kInner, 0, kAll}});
    expectLikeTheBounce(inner, {{b, 0, 4000}, {kInner, 0, kAll}}, {100, 100, 0});
    // From inside the converted clip: its converter starts there.
    expectLikeTheBounce(inner, {{kInner, 10000, 20000}}, {}, 0, true);
    // Past it, exact again.
    expectLikeTheBounce(inner, {{kInner, 16000, 26000}, {c, 0, 2000}});
}

}  // namespace
