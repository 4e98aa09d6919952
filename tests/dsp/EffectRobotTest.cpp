#include "dsp/EffectRobot.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "TestSupport.h"

namespace {

// Straightforward sample-by-sample comb filter on one channel:
// y[n] = sat(x[n] + trunc(y[n - delay] * gain)), silence before the start.
std::vector<int16_t> combReference(const std::vector<int16_t>& x, size_t delay, float gain) {
    std::vector<int16_t> y(x.size());
    for (size_t n = 0; n < x.size(); ++n) {
        const int32_t echo = n >= delay ? int32_t(float(y[n - delay]) * gain) : 0;
        int32_t v = int32_t(x[n]) + echo;
        if (v > 32767) v = 32767;
        if (v < -32768) v = -32768;
        y[n] = int16_t(v);
    }
    return y;
}

std::vector<int16_t> noise(size_t count, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> dist(-20000, 20000);
    std::vector<int16_t> out(count);
    for (auto& s : out) s = int16_t(dist(gen));
    return out;
}

// Runs `input` through `robot` in consecutive blocks of the given frame
// counts (cycled until the input is used up).
std::vector<int16_t> runInBlocks(wv::EffectRobot& robot, std::vector<int16_t> input,
                                 const std::vector<uint32_t>& blockFrames, int channels) {
    const size_t frames = input.size() / size_t(channels);
    size_t done = 0;
    for (size_t b = 0; done < frames; ++b) {
        uint32_t n = blockFrames[b % blockFrames.size()];
        if (n > frames - done) n = uint32_t(frames - done);
        robot.process(input.data() + done * size_t(channels), n);
        done += n;
    }
    return input;
}

TEST(EffectRobot, ConstructionDerivesGainAndDelayAndLogsThem) {
    wvtest::LogCapture log;
    wv::EffectRobot robot(2, 10, 8000);
    EXPECT_FLOAT_EQ(robot.decay(), 0.7943282f);
    EXPECT_EQ(robot.interval(), 80);
    EXPECT_TRUE(log.contains("EffectRobot construct decay 0.794328, interval 80, mBufferSize 160",
                             "EffectRobot"));
    wv::EffectRobot cd(2, 10, 44100);
    EXPECT_EQ(cd.interval(), 441);
}

TEST(EffectRobot, ImpulseEchoesDecayAndTruncateTowardZero) {
    wv::EffectRobot robot(2, 10, 8000);
    std::vector<int16_t> data(400, 0);
    data[0] = 10000;
    data[1] = -10000;
    robot.process(data.data(), uint32_t(data.size()));
    EXPECT_EQ(data[0], 10000);  // nothing in the silent delay line yet
    EXPECT_EQ(data[80], 7943);
    EXPECT_EQ(data[160], 6309);
    EXPECT_EQ(data[240], 5011);
    EXPECT_EQ(data[81], -7943);
    EXPECT_EQ(data[161], -6309);
    EXPECT_EQ(data[79], 0);
    EXPECT_EQ(data[82], 0);
}

TEST(EffectRobot, HeldFullScaleSaturatesInsteadOfWrapping) {
    wv::EffectRobot robot(2, 10, 8000);
    std::vector<int16_t> high(300, 32767);
    robot.process(high.data(), uint32_t(high.size()));
    for (int16_t s : high) ASSERT_EQ(s, 32767);

    wv::EffectRobot low(2, 10, 8000);
    std::vector<int16_t> neg(300, -32768);
    low.process(neg.data(), uint32_t(neg.size()));
    for (int16_t s : neg) ASSERT_EQ(s, -32768);
}

TEST(EffectRobot, MatchesCombFilterWhateverTheBlockSizes) {
    const auto input = noise(5000, 7);
    const auto expected = combReference(input, 80, wv::EffectRobot(2, 10, 8000).decay());
    // Blocks below, at and above the 80-sample delay, including empty ones.
    const std::vector<std::vector<uint32_t>> plans = {
        {5000}, {7, 100, 893}, {1}, {79}, {80}, {81}, {160, 0, 3, 250, 79, 1}, {13, 401}};
    for (const auto& plan : plans) {
        wv::EffectRobot robot(2, 10, 8000);
        EXPECT_EQ(runInBlocks(robot, input, plan, 1), expected) << "first block " << plan[0];
    }
}

TEST(EffectRobot, StereoIsFilteredPerChannelWithDelayInFrames) {
    const size_t frames = 3000;
    const auto left = noise(frames, 1);
    const auto right = noise(frames, 2);
    std::vector<int16_t> interleaved(2 * frames);
    for (size_t i = 0; i < frames; ++i) {
        interleaved[2 * i] = left[i];
        interleaved[2 * i + 1] = right[i];
    }
    wv::EffectRobot probe(2, 10, 8000, 2);
    EXPECT_EQ(probe.interval(), 80);
    const auto expLeft = combReference(left, 80, probe.decay());
    const auto expRight = combReference(right, 80, probe.decay());

    for (const auto& plan : std::vector<std::vector<uint32_t>>{{3000}, {7, 100, 893}, {50}}) {
        wv::EffectRobot robot(2, 10, 8000, 2);
        const auto out = runInBlocks(robot, interleaved, plan, 2);
        for (size_t i = 0; i < frames; ++i) {
            ASSERT_EQ(out[2 * i], expLeft[i]) << "frame " << i;
            ASSERT_EQ(out[2 * i + 1], expRight[i]) << "frame " << i;
        }
    }
}

TEST(EffectRobot, ResetSilencesTheDelayLineAndZeroCountIsANoOp) {
    wv::EffectRobot robot(2, 10, 8000);
    std::vector<int16_t> burst(100, 12000);
    robot.process(burst.data(), 100);

    std::vector<int16_t> empty = {42};
    robot.process(empty.data(), 0);
    EXPECT_EQ(empty[0], 42);

    robot.reset();
    std::vector<int16_t> silence(200, 0);
    robot.process(silence.data(), 200);
    for (int16_t s : silence) ASSERT_EQ(s, 0);
}

TEST(EffectRobot, DelayBelowOneFramePassesAudioThrough) {
    wvtest::LogCapture log;
    wv::EffectRobot robot(2, 1, 999);  // 0.999 samples
    EXPECT_EQ(robot.interval(), 0);
    std::vector<int16_t> data = {1, 2, 3};
    robot.process(data.data(), 3);
    EXPECT_EQ(data, (std::vector<int16_t>{1, 2, 3}));
}

}  // namespace
