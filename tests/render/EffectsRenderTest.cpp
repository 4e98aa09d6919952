// Renders of lists with effects: the public operations' checks, the output
// against envelopes computed here, reproducible bytes, and lists without
// effects left byte for byte as their sources.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "RenderFixture.h"
#include "items/PcmInfoReader.h"

namespace {

using namespace rendertest;
using wv::SPcmInfo;

std::vector<int16_t> outputSamples(const std::string& path) {
    const std::vector<char> bytes = wvtest::readFile(path);
    return bytes.size() < 44 ? std::vector<int16_t>() : asSamples(bytes, 44);
}

double equalPower(double x) { return x <= 0 ? 0 : x >= 1 ? 1 : std::sin(x * M_PI / 2); }

using EffectsRender = RenderTest;

TEST_F(EffectsRender, OperationsCheckTheListTheClipAndTheRanges) {
    SPcmInfo* source = addPcmItem(patternSamples(1000, 1, 1), 8000, 1);
    const uint32_t list = newList({{source, 0, 500}, {source, 500, 1000}});
    EXPECT_EQ(engine->setClipGain(list, 1, 2400), WV_OK);
    EXPECT_EQ(engine->setClipGain(list, 2, -9600), WV_OK);
    EXPECT_EQ(engine->setClipGain(list, 1, 2401), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setClipGain(list, 1, -9601), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setClipGain(list, 3, 0), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setClipGain(list, 0, 0), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setClipFade(list, 2, 10, 20, WV_FADE_LOG), WV_OK);
    EXPECT_EQ(engine->setClipFade(list, 2, 10, 20, 3), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setClipFade(list, 2, 10, 20, -1), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setListCrossfade(list, 10, WV_FADE_EQUAL_POWER), WV_OK);
    EXPECT_EQ(engine->setListCrossfade(list, 10, 7), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->setListGain(list, -9600), WV_OK);
    EXPECT_EQ(engine->setListGain(list, 2500), WV_ERR_OUT_OF_RANGE);
    // Not a list, and no item at all.
    for (uint32_t id : {source->id, 999u}) {
        const int32_t want = id == 999u ? WV_ERR_NO_ITEM : WV_ERR_WRONG_ITEM;
        EXPECT_EQ(engine->setClipGain(id, 1, 0), want);
        EXPECT_EQ(engine->setClipFade(id, 1, 0, 0, WV_FADE_LINEAR), want);
        EXPECT_EQ(engine->setListCrossfade(id, 0, WV_FADE_LINEAR), want);
        EXPECT_EQ(engine->setListGain(id, 0), want);
    }
}

TEST_F(EffectsRender, CrossfadedFadedListRendersTheMixTwiceAlike) {
    const auto a = wvtest::makeTone(8000, 2, 1.0, 440, 0.5);
    const auto b = wvtest::makeTone(8000, 2, 1.0, 660, 0.4);
    SPcmInfo* itemA = addPcmItem(a, 8000, 2);
    SPcmInfo* itemB = addPcmItem(b, 8000, 2);
    // Three clips, 3000 frames each, joined by 100 ms (800-frame) overlaps.
    const uint32_t list = newList({{itemA, 1000, 4000}, {itemB, 0, 3000}, {itemA, 5000, 8000}});
    ASSERT_EQ(engine->setClipFade(list, 1, 125, 0, WV_FADE_LINEAR), 0);  // 1000 frames
    ASSERT_EQ(engine->setClipGain(list, 2, -600), 0);
    ASSERT_EQ(engine->setListCrossfade(list, 100, WV_FADE_EQUAL_POWER), 0);
    ASSERT_EQ(engine->setListGain(list, 300), 0);

    const std::string first = dir.file("first.wav");
    ASSERT_EQ(engine->setOutputPara(list, first.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    ASSERT_TRUE(waitUntil([&] { return encoderReleased(list); }));
    const auto got = outputSamples(first);
    ASSERT_EQ(got.size(), size_t(9000 - 1600) * 2);
    EXPECT_EQ(engine->getPcmFrameLength(list), 9000 - 1600);
    EXPECT_EQ(engine->getPcmDuration(list), 1125 - 200);

    const double clipB = std::pow(10.0, -0.3);
    const double listGain = std::pow(10.0, 0.15);
    for (uint32_t k = 0; k < 7400; ++k) {
        for (int c = 0; c < 2; ++c) {
            double v = 0;
            if (k < 3000) {
                double g = k < 1000 ? k / 1000.0 : 1.0;
                if (k >= 2200) g *= equalPower(1 - (k - 2200 + 0.5) / 800);
                v += a[(1000 + k) * 2 + c] * g;
            }
            if (k >= 2200 && k < 5200) {
                const uint32_t j = k - 2200;
                double g = clipB;
                if (j < 800) g *= equalPower((j + 0.5) / 800);
                if (j >= 2200) g *= equalPower(1 - (j - 2200 + 0.5) / 800);
                v += b[j * 2 + c] * g;
            }
            if (k >= 4400) {
                const uint32_t j = k - 4400;
                v += a[(5000 + j) * 2 + c] * (j < 800 ? equalPower((j + 0.5) / 800) : 1.0);
            }
            ASSERT_LE(std::fabs(got[k * 2 + c] - v * listGain), 1.5) << "frame " << k << " channel " << c;
        }
    }

    // The same list again: the same bytes.
    const std::string second = dir.file("second.wav");
    ASSERT_EQ(engine->setOutputPara(list, second.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    ASSERT_TRUE(waitUntil([&] { return encoderReleased(list); }));
    EXPECT_EQ(wvtest::readFile(first), wvtest::readFile(second));
}

TEST_F(EffectsRender, ConvertedClipsTakeTheirConvertedLengthAndKeepTheirFades) {
    // Two 8 kHz clips of 0.5 s rendered at 16 kHz with the high-quality
    // converter: 8000 frames each, joined by a 100 ms (1600-frame) overlap.
    const auto tone = wvtest::makeTone(8000, 1, 1.0, 250, 0.5);
    SPcmInfo* source = addPcmItem(tone, 8000, 1);
    const uint32_t list = newList({{source, 0, 4000}, {source, 4000, 8000}});
    ASSERT_EQ(engine->setEncodePara(list, 16000, 0, 1, 0), 0);
    ASSERT_EQ(engine->setResampleQuality(list, 1), 0);
    ASSERT_EQ(engine->setClipFade(list, 1, 200, 0, WV_FADE_LINEAR), 0);  // 3200 output frames
    ASSERT_EQ(engine->setListCrossfade(list, 100, WV_FADE_LINEAR), 0);
    const std::string out = dir.file("converted.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    const auto got = outputSamples(out);
    ASSERT_EQ(got.size(), 16000u - 1600);
    // The level of each 20 ms stretch follows the fade in, then holds: a
    // linear crossfade of one continuous tone keeps it.
    for (uint32_t at = 0; at + 320 <= got.size(); at += 320) {
        const double rms = wvtest::channelRms(got.data() + at, 320, 1, 0);
        const double mid = at + 160.0;
        const double expected = 0.5 / std::sqrt(2.0) * (mid < 3200 ? mid / 3200 : 1.0);
        ASSERT_NEAR(rms, expected, 0.02) << "frames from " << at;
    }
}

TEST_F(EffectsRender, ListWithoutEffectsKeepsTheSourcesBytes) {
    const auto a = patternSamples(20000, 2, 5);
    const auto b = patternSamples(9000, 2, 6);
    SPcmInfo* itemA = addPcmItem(a, 22050, 2);
    SPcmInfo* itemB = addWavItem(b, 22050, 2);
    const uint32_t list = newList({{itemA, 10, 12000}, {itemB, 0, 9000}, {itemA, 15000, 20000}});
    // Effects set and taken back again count as none.
    ASSERT_EQ(engine->setClipGain(list, 2, 1000), 0);
    ASSERT_EQ(engine->setListCrossfade(list, 40, WV_FADE_LINEAR), 0);
    ASSERT_EQ(engine->setClipGain(list, 2, 0), 0);
    ASSERT_EQ(engine->setListCrossfade(list, 0, WV_FADE_LINEAR), 0);
    const std::string out = dir.file("plain.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    std::vector<int16_t> expected(a.begin() + 20, a.begin() + 24000);
    expected.insert(expected.end(), b.begin(), b.end());
    expected.insert(expected.end(), a.begin() + 30000, a.end());
    const auto got = outputSamples(out);
    ASSERT_EQ(got.size(), expected.size());
    EXPECT_TRUE(got == expected);
}

}  // namespace
