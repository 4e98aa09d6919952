// The recorder's own signal steps: the fade-in and the SoundTouch voice.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "AudioFixtures.h"
#include "dsp/VoicePitchShifter.h"
#include "record/RecordJob.h"

namespace {

TEST(FadeIn, RisesAsTheSquareOfTheFramePositionAndContinuesAcrossBuffers) {
    EXPECT_EQ(wv::RecordJob::fadeLengthFor(8000), 2400);
    EXPECT_EQ(wv::RecordJob::fadeLengthFor(44100), 13230);
    EXPECT_EQ(wv::RecordJob::fadeLengthFor(11025), 3307);  // 3307.5 truncated

    const int32_t length = 2400;
    std::vector<int16_t> input(3000);
    for (size_t i = 0; i < input.size(); ++i) input[i] = int16_t(i % 2 ? 32767 : -30001);
    std::vector<int16_t> faded = input;
    int32_t count = 0;
    // Uneven pieces must give what one pass gives.
    wv::fadeIn(faded.data(), 1000, 1, &count, length);
    wv::fadeIn(faded.data() + 1000, 7, 1, &count, length);
    wv::fadeIn(faded.data() + 1007, 1993, 1, &count, length);
    EXPECT_EQ(count, length);
    for (int32_t c = 0; c < length; ++c) {
        const float expected = float(input[c]) * float(c) * float(c) / float(length) / float(length);
        ASSERT_EQ(faded[c], int16_t(expected)) << c;
    }
    EXPECT_EQ(faded[0], 0);
    EXPECT_EQ(faded[1200], int16_t(-30001 / 4));  // half way: a quarter of the level
    for (size_t i = length; i < input.size(); ++i) ASSERT_EQ(faded[i], input[i]) << i;
}

TEST(FadeIn, StereoFramesShareOneGainAndOneStep) {
    const int32_t length = 100;
    std::vector<int16_t> stereo(2 * 150);
    for (size_t f = 0; f < 150; ++f) {
        stereo[2 * f] = 20000;
        stereo[2 * f + 1] = -8000;
    }
    int32_t count = 0;
    wv::fadeIn(stereo.data(), 150, 2, &count, length);
    EXPECT_EQ(count, length);  // per frame, not per sample
    const float l = float(length);
    for (int32_t c = 0; c < length; ++c) {
        const float f = float(c);
        ASSERT_EQ(stereo[2 * c], int16_t(20000.0f * f * f / l / l)) << c;
        ASSERT_EQ(stereo[2 * c + 1], int16_t(-8000.0f * f * f / l / l)) << c;
    }
    EXPECT_EQ(stereo[2 * 120], 20000);
    EXPECT_EQ(stereo[2 * 120 + 1], -8000);
}

// Feeds the shifter in captured-size blocks, as the recorder does, and
// returns everything it produced (drained at the end).
std::vector<int16_t> shift(const std::vector<int16_t>& input, uint32_t rate, uint32_t channels, float semitones) {
    wv::VoicePitchShifter shifter(rate, channels, semitones);
    std::vector<int16_t> out;
    const uint32_t block = 1024 / channels;
    std::vector<int16_t> buffer(block * channels);
    for (size_t pos = 0; pos < input.size() / channels; pos += block) {
        const uint32_t frames = uint32_t(std::min<size_t>(block, input.size() / channels - pos));
        std::copy_n(input.begin() + long(pos * channels), frames * channels, buffer.begin());
        shifter.putSamples(buffer.data(), frames);
        for (;;) {
            const uint32_t n = shifter.receiveSamples(buffer.data(), frames);
            EXPECT_LE(n, frames);
            if (n == 0) break;
            out.insert(out.end(), buffer.begin(), buffer.begin() + long(n * channels));
        }
    }
    shifter.flush();
    int16_t tail[256];
    for (;;) {
        const uint32_t n = shifter.receiveSamples(tail, 256 / channels);
        if (n == 0) break;
        out.insert(out.end(), tail, tail + n * channels);
    }
    return out;
}

TEST(VoicePitchShifter, MovesATonesPitchAndKeepsItsLength) {
    const uint32_t rate = 22050;
    const std::vector<int16_t> tone = wvtest::makeTone(rate, 1, 2.0, 440.0, 0.5);
    for (float semitones : {-4.0f, 4.0f, 9.0f}) {
        const std::vector<int16_t> out = shift(tone, rate, 1, semitones);
        // flush() pads the end with a little silence.
        EXPECT_GE(out.size(), tone.size() - rate / 20) << semitones;
        EXPECT_LE(out.size(), tone.size() + rate / 5) << semitones;
        const size_t from = rate / 2;
        const double hz = wvtest::estimateFrequency(out.data() + from, rate, 1, 0, int(rate));
        EXPECT_NEAR(hz, 440.0 * std::pow(2.0, semitones / 12.0), 440.0 * 0.02) << semitones;
    }
}

TEST(VoicePitchShifter, ShiftsBeyondTwoOctavesAreTwoOctaves) {
    // Far beyond, the stretch would grow one block without bound.
    const uint32_t rate = 8000;
    const std::vector<int16_t> tone = wvtest::makeTone(rate, 1, 0.5, 440.0, 0.5);
    EXPECT_EQ(shift(tone, rate, 1, 1000.0f), shift(tone, rate, 1, 24.0f));
    EXPECT_EQ(shift(tone, rate, 1, -1e9f), shift(tone, rate, 1, -24.0f));
    EXPECT_EQ(shift(tone, rate, 1, std::nanf("")), shift(tone, rate, 1, 0.0f));
}

TEST(VoicePitchShifter, SaturatesOnTheWayBackToSixteenBits) {
    const uint32_t rate = 16000;
    // A full-scale stereo tone: the overlap-add of the shifter overshoots
    // it, and the conversion back must saturate rather than wrap.
    const std::vector<int16_t> tone = wvtest::makeTone(rate, 2, 1.0, 500.0, 1.0);
    std::vector<int16_t> loud(tone.size());
    for (size_t f = 0; f < tone.size() / 2; ++f) loud[2 * f] = loud[2 * f + 1] = tone[2 * f];
    const std::vector<int16_t> out = shift(loud, rate, 2, 3.0f);
    ASSERT_GT(out.size(), size_t(rate));
    int maxJump = 0;
    size_t atRails = 0;
    for (size_t i = 2; i < out.size(); i += 2) {
        maxJump = std::max(maxJump, std::abs(int(out[i]) - int(out[i - 2])));
        atRails += out[i] == 32767 || out[i] == -32768;
        ASSERT_EQ(out[i], out[i + 1]) << i;  // both channels alike
    }
    EXPECT_GT(atRails, 0u);
    // A 595 Hz full-scale sine moves at most about 7700 per sample at
    // 16 kHz; a wrapped sample would jump by nearly 65536.
    EXPECT_LT(maxJump, 20000);
}

}  // namespace
