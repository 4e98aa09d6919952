// Renders of lists with noise reduction and tempo: the public operations'
// checks, the rendered lengths the list reports, the tone's pitch, noise
// pulled down in place, reproducible bytes, and lists with both set back
// to off rendering as plain lists again.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "RenderFixture.h"

namespace {

using namespace rendertest;
using wv::SPcmInfo;
using Samples = std::vector<int16_t>;

constexpr int kRate = 44100;

Samples outputSamples(const std::string& path) {
    const std::vector<char> bytes = wvtest::readFile(path);
    return bytes.size() < 44 ? Samples() : asSamples(bytes, 44);
}

// A stereo 440 Hz tone at half scale.
Samples tone(uint32_t frames) {
    Samples out(size_t(frames) * 2);
    for (uint32_t k = 0; k < frames; ++k) {
        const auto v = int16_t(std::lrint(16000 * std::sin(2 * M_PI * 440 * double(k) / kRate)));
        out[2 * k] = out[2 * k + 1] = v;
    }
    return out;
}

// Stereo low-passed noise at about -45 dBFS, with a louder sweep over
// [sweepFrom, sweepTo).
Samples sweepInNoise(uint32_t frames, uint32_t sweepFrom, uint32_t sweepTo) {
    std::mt19937 gen(11);
    std::normal_distribution<double> white(0.0, 1.0);
    Samples out(size_t(frames) * 2);
    double state = 0;
    for (uint32_t k = 0; k < frames; ++k) {
        state = 0.9 * state + 0.1 * white(gen);
        const double u = double(k - sweepFrom) / kRate;
        const double sweep = k >= sweepFrom && k < sweepTo ? 0.3 * std::sin(2 * M_PI * (200 * u + 900 * u * u)) : 0;
        out[2 * k] = out[2 * k + 1] = int16_t(std::lrint(32767 * (sweep + 0.01 * 3.0 * state)));
    }
    return out;
}

double powerDb(const Samples& x, uint32_t from, uint32_t to) {
    double sum = 0;
    for (size_t i = size_t(from) * 2; i < size_t(to) * 2; ++i) sum += double(x[i]) * x[i];
    return 10 * std::log10(sum / (double(to - from) * 2) + 1e-9);
}

double zeroCrossingHz(const Samples& x, uint32_t from, uint32_t to) {
    uint32_t first = 0, last = 0, count = 0;
    for (uint32_t k = from + 1; k < to; ++k) {
        if ((x[2 * (k - 1)] < 0) != (x[2 * k] < 0)) {
            if (count == 0) first = k;
            last = k;
            ++count;
        }
    }
    return count < 2 ? 0 : double(count - 1) / 2 / (double(last - first) / kRate);
}

class SoundEffectsRender : public RenderTest {
protected:
    Samples renderTo(uint32_t list, const std::string& name) {
        const std::string path = dir.file(name);
        EXPECT_EQ(engine->setOutputPara(list, path.c_str(), ENCODE_WAV), 0);
        EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
        EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
        return outputSamples(path);
    }
};

TEST_F(SoundEffectsRender, OperationsCheckTheListAndTheRanges) {
    SPcmInfo* source = addPcmItem(patternSamples(1000, 1, 1), 8000, 1);
    const uint32_t list = newList({{source, 0, 1000}});
    for (int amount : {0, 1, 20, 97}) EXPECT_EQ(engine->setListDenoise(list, amount), WV_OK);
    for (int amount : {-1, 98}) EXPECT_EQ(engine->setListDenoise(list, amount), WV_ERR_OUT_OF_RANGE);
    for (int percent : {50, 100, 125, 200}) EXPECT_EQ(engine->setListTempo(list, percent), WV_OK);
    for (int percent : {0, 49, 201}) EXPECT_EQ(engine->setListTempo(list, percent), WV_ERR_OUT_OF_RANGE);
    for (uint32_t id : {source->id, 999u}) {
        const int32_t want = id == 999u ? WV_ERR_NO_ITEM : WV_ERR_WRONG_ITEM;
        EXPECT_EQ(engine->setListDenoise(id, 20), want);
        EXPECT_EQ(engine->setListTempo(id, 125), want);
    }
}

TEST_F(SoundEffectsRender, TempoRendersTheRoundedLengthAtTheSamePitch) {
    SPcmInfo* a = addPcmItem(tone(3 * kRate), kRate, 2);
    // Two clips crossfaded over 100 ms (4410 frames): 6 s less the overlap.
    const uint32_t list = newList({{a, 0, 3 * kRate}, {a, 0, 3 * kRate}});
    ASSERT_EQ(engine->setListCrossfade(list, 100, WV_FADE_EQUAL_POWER), 0);
    const uint32_t frames = 6 * kRate - 4410;
    for (int percent : {125, 50, 200}) {
        ASSERT_EQ(engine->setListTempo(list, percent), 0);
        const uint32_t expected = uint32_t(std::llround(double(frames) * 100 / percent));
        const Samples got = renderTo(list, "t" + std::to_string(percent) + ".wav");
        ASSERT_EQ(got.size(), size_t(expected) * 2) << percent << "%";
        EXPECT_EQ(engine->getPcmFrameLength(list), expected);
        EXPECT_NEAR(engine->getPcmDuration(list), double(expected) * 1000 / kRate, 2.0);
        EXPECT_NEAR(zeroCrossingHz(got, kRate / 4, expected - kRate / 4), 440.0, 1.0) << percent << "%";
    }
    // Twice the same bytes.
    EXPECT_EQ(renderTo(list, "again.wav"), renderTo(list, "again2.wav"));
}

TEST_F(SoundEffectsRender, DenoiseKeepsTheLengthAndEveryFrameInPlace) {
    const uint32_t frames = 3 * kRate;
    SPcmInfo* a = addPcmItem(sweepInNoise(frames, kRate, 2 * kRate), kRate, 2);
    const uint32_t list = newList({{a, 0, frames / 2}, {a, frames / 2, frames}});
    const Samples plain = renderTo(list, "plain.wav");
    ASSERT_EQ(engine->setListDenoise(list, 20), 0);
    const Samples cleaned = renderTo(list, "clean.wav");
    ASSERT_EQ(cleaned.size(), plain.size());
    EXPECT_EQ(engine->getPcmFrameLength(list), frames);
    // The noise before and after the sweep drops; the sweep stays.
    EXPECT_LE(powerDb(cleaned, kRate / 2, kRate - kRate / 20), powerDb(plain, kRate / 2, kRate - kRate / 20) - 10);
    EXPECT_LE(powerDb(cleaned, 2 * kRate + kRate / 20, frames), powerDb(plain, 2 * kRate + kRate / 20, frames) - 10);
    EXPECT_NEAR(powerDb(cleaned, kRate + kRate / 10, 2 * kRate - kRate / 10),
                powerDb(plain, kRate + kRate / 10, 2 * kRate - kRate / 10), 1.0);
    // In place: the sweep's samples match the source's closely.
    double error = 0, signal = 0;
    for (size_t i = size_t(kRate + kRate / 10) * 2; i < size_t(2 * kRate - kRate / 10) * 2; ++i) {
        error += std::pow(double(cleaned[i]) - plain[i], 2);
        signal += double(plain[i]) * plain[i];
    }
    EXPECT_LT(10 * std::log10(error / signal), -15.0);
    EXPECT_EQ(renderTo(list, "clean2.wav"), cleaned);
    // Both with the tempo, then both off: the plain bytes again.
    ASSERT_EQ(engine->setListTempo(list, 150), 0);
    EXPECT_EQ(renderTo(list, "both.wav").size(), size_t(std::llround(frames / 1.5)) * 2);
    ASSERT_EQ(engine->setListDenoise(list, 0), 0);
    ASSERT_EQ(engine->setListTempo(list, 100), 0);
    EXPECT_EQ(renderTo(list, "plain2.wav"), plain);
}

}  // namespace
