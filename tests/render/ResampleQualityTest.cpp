// A list's resampler quality: the high-quality converter gives every clip
// exactly round(N x out / in) frames at any pair of rates, removes what the
// new rate cannot hold, and is what a list left at 0 gets when the process
// default asks for it.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include <wavoryx/platform.h>

#include "AudioFiles.h"
#include "RenderFixture.h"
#include "platform/resample/AudioResampler.h"

namespace {

using namespace rendertest;
using wv::SPcmInfo;

constexpr int32_t kRates[] = {8000, 11025, 16000, 22050, 44100, 48000, 96000, 192000};

uint64_t rounded(uint64_t frames, int32_t in, int32_t out) {
    return (frames * uint64_t(out) * 2 + uint64_t(in)) / (2 * uint64_t(in));
}

double rms(const std::vector<int16_t>& samples, size_t from, size_t to) {
    double sum = 0;
    for (size_t i = from; i < to; ++i) sum += double(samples[i]) * samples[i];
    return std::sqrt(sum / double(to - from)) / 32768.0;
}

class ResampleQuality : public RenderTest {
protected:
    std::vector<int16_t> renderWav(uint32_t list, const std::string& name) {
        EXPECT_EQ(engine->setOutputPara(list, dir.file(name).c_str(), ENCODE_WAV), 0);
        EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
        const std::vector<char> bytes = wvtest::readFile(dir.file(name));
        return bytes.size() < 44 ? std::vector<int16_t>() : asSamples(bytes, 44);
    }
};

TEST_F(ResampleQuality, ValuesAndItemsAreChecked) {
    SPcmInfo* item = addPcmItem(patternSamples(100, 2, 1), 44100, 2);
    const uint32_t list = newList({{item, 0, 100}});
    EXPECT_EQ(engine->setResampleQuality(list, 3), -4);
    EXPECT_EQ(engine->setResampleQuality(list, -1), -4);
    EXPECT_EQ(engine->setResampleQuality(list + 100, 1), -1);
    EXPECT_EQ(engine->setResampleQuality(item->id, 1), -2);
    for (int q : {0, 1, 2}) EXPECT_EQ(engine->setResampleQuality(list, q), 0);
}

TEST_F(ResampleQuality, EveryClipBecomesItsRoundedLengthAtEveryRatePair) {
    // One clip per source rate, of an odd length, in each list; the clip
    // at the output rate itself is copied.
    std::vector<Range> clips;
    for (int32_t rate : kRates) {
        const uint32_t frames = uint32_t(rate) / 50 + 7;
        clips.push_back({addPcmItem(wvtest::makeTones(frames, uint32_t(rate), {440, 660}, 0.4), rate, 2), 0, frames});
    }
    for (int32_t out : kRates) {
        const uint32_t list = newList(clips);
        ASSERT_EQ(engine->setEncodePara(list, out, 0, 2, 0), 0);
        ASSERT_EQ(engine->setResampleQuality(list, out == 44100 ? 2 : 1), 0);
        uint64_t expected = 0;
        for (const Range& clip : clips) expected += rounded(clip.end, clip.source->sampleRate, out);
        const auto samples = renderWav(list, "len" + std::to_string(out) + ".wav");
        EXPECT_EQ(samples.size() / 2, expected) << out;
        EXPECT_EQ(uint64_t(engine->getPcmFrameLength(int(list))), expected) << out;
        // The expected length told at the start is that same figure.
        EXPECT_EQ(engine->getPcmDuration(int(list)), int32_t(expected * 1000 / uint64_t(out))) << out;
    }
}

TEST_F(ResampleQuality, MonoOutputKeepsTheExactLength) {
    SPcmInfo* item = addPcmItem(wvtest::makeTones(30011, 48000, {1000, 1000}), 48000, 2);
    const uint32_t list = newList({{item, 0, 30011}, {item, 5, 12345}});
    ASSERT_EQ(engine->setEncodePara(list, 11025, 0, 1, 0), 0);
    ASSERT_EQ(engine->setResampleQuality(list, 1), 0);
    const auto samples = renderWav(list, "mono.wav");
    EXPECT_EQ(samples.size(), rounded(30011, 48000, 11025) + rounded(12340, 48000, 11025));
}

TEST_F(ResampleQuality, AToneAboveTheNewNyquistIsRemovedNotFolded) {
    const auto tone = wvtest::makeTones(44100, 44100, {10000, 10000}, 0.99);
    SPcmInfo* item = addPcmItem(tone, 44100, 2);
    const uint32_t linear = newList({{item, 0, 44100}});
    const uint32_t high = newList({{item, 0, 44100}});
    for (uint32_t list : {linear, high}) ASSERT_EQ(engine->setEncodePara(list, 16000, 0, 2, 0), 0);
    ASSERT_EQ(engine->setResampleQuality(high, 1), 0);
    const auto folded = renderWav(linear, "linear.wav");
    const auto clean = renderWav(high, "high.wav");
    ASSERT_EQ(clean.size(), 2u * 16000);
    EXPECT_GT(rms(folded, 2000, 30000), 0.1);
    EXPECT_LT(rms(clean, 2000, 30000), 0.003);
}

TEST_F(ResampleQuality, TheListsChoiceWinsOverTheProcessDefault) {
    const auto source = wvtest::makeTones(22050 + 31, 22050, {500, 700});
    SPcmInfo* item = addPcmItem(source, 22050, 2);
    // Each render gets a list of its own (a list's ending event is looked
    // for by its id).
    const auto renderAt48k = [&](int quality, const std::string& name) {
        const uint32_t list = newList({{item, 0, 22050 + 31}});
        EXPECT_EQ(engine->setEncodePara(list, 48000, 0, 2, 0), 0);
        EXPECT_EQ(engine->setResampleQuality(list, quality), 0);
        return renderWav(list, name);
    };
    const auto high = renderAt48k(1, "chosen.wav");
    const auto plain = renderAt48k(0, "linear.wav");
    EXPECT_EQ(high.size() / 2, rounded(22050 + 31, 22050, 48000));
    EXPECT_NE(high.size(), plain.size());

    // A list left at 0 takes the property's converter; one set to 1 keeps
    // its own even when the property asks for the other recipe.
    wavoryx_set_property("af.resampler.quality", "5");
    wv::AudioResampler::resetDefaultQualityForTesting();
    EXPECT_EQ(renderAt48k(0, "default.wav"), high);
    wavoryx_set_property("af.resampler.quality", "6");
    wv::AudioResampler::resetDefaultQualityForTesting();
    EXPECT_EQ(renderAt48k(1, "chosen2.wav"), high);
    EXPECT_NE(renderAt48k(0, "best.wav"), high);
    wavoryx_set_property("af.resampler.quality", nullptr);
    wv::AudioResampler::resetDefaultQualityForTesting();
    EXPECT_EQ(renderAt48k(0, "default2.wav"), plain);
}

}  // namespace
