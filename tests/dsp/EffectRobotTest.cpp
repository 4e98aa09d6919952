#include "dsp/EffectRobot.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "TestSupport.h"

namespace {

using Samples = std::vector<int16_t>;

// y[n] = sat(x[n] + trunc(y[n - delay] * gain)) sample by sample, every
// `stride`-th sample from `first` (one channel of interleaved audio).
Samples combReference(Samples x, size_t delay, float gain, size_t stride = 1, size_t first = 0) {
    for (size_t n = first + delay * stride; n < x.size(); n += stride) {
        const int32_t v = int32_t(x[n]) + int32_t(float(x[n - delay * stride]) * gain);
        x[n] = int16_t(v > 32767 ? 32767 : v < -32768 ? -32768 : v);
    }
    return x;
}

Samples noise(size_t count, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> dist(-20000, 20000);
    Samples out(count);
    for (auto& s : out) s = int16_t(dist(gen));
    return out;
}

// Feeds `input` to a new 10 ms / 8 kHz robot in blocks of the given frame
// counts, cycled until the input is used up.
Samples runInBlocks(Samples input, const std::vector<uint32_t>& blocks, int channels = 1) {
    wv::EffectRobot robot(2, 10, 8000, channels);
    const size_t frames = input.size() / size_t(channels);
    for (size_t done = 0, b = 0; done < frames; ++b) {
        const uint32_t n = uint32_t(std::min<size_t>(blocks[b % blocks.size()], frames - done));
        robot.process(input.data() + done * size_t(channels), n);
        done += n;
    }
    return input;
}

TEST(EffectRobot, ImpulseEchoesEveryTenMillisecondsTruncatedTowardZero) {
    wvtest::LogCapture log;
    wv::EffectRobot robot(2, 10, 8000);
    EXPECT_FLOAT_EQ(robot.decay(), 0.7943282f);
    EXPECT_EQ(wv::EffectRobot(2, 10, 44100).interval(), 441);
    EXPECT_TRUE(log.contains("EffectRobot construct decay 0.794328, interval 80, mBufferSize 160", "EffectRobot"));

    Samples data(400, 0);
    data[0] = 10000;
    data[1] = -10000;
    robot.process(data.data(), uint32_t(data.size()));
    EXPECT_EQ(data[0], 10000);  // the delay line starts silent
    EXPECT_EQ(data[80], 7943);
    EXPECT_EQ(data[160], 6309);
    EXPECT_EQ(data[240], 5011);
    EXPECT_EQ(data[161], -6309);
    EXPECT_EQ(data[79] | data[82] | data[159], 0);
}

TEST(EffectRobot, HeldFullScaleSaturatesInsteadOfWrapping) {
    for (int16_t level : {int16_t(32767), int16_t(-32768)}) {
        EXPECT_EQ(runInBlocks(Samples(300, level), {300}), Samples(300, level));
    }
}

TEST(EffectRobot, MatchesTheCombFilterWhateverTheBlockSizes) {
    const Samples input = noise(5000, 7);
    const Samples expected = combReference(input, 80, 0.7943282f);
    // Blocks below, at and above the 80-sample delay, and empty ones.
    for (const auto& plan :
         std::vector<std::vector<uint32_t>>{{5000}, {7, 100, 893}, {1}, {79}, {80}, {81}, {160, 0, 3, 250, 79, 1}}) {
        EXPECT_EQ(runInBlocks(input, plan), expected) << "first block " << plan[0];
    }
}

TEST(EffectRobot, StereoIsFilteredPerChannelWithTheDelayInFrames) {
    const Samples input = noise(6000, 3);  // 3000 interleaved frames
    const Samples expected = combReference(combReference(input, 80, 0.7943282f, 2, 0), 80, 0.7943282f, 2, 1);
    for (const auto& plan : std::vector<std::vector<uint32_t>>{{3000}, {7, 100, 893}, {50}}) {
        EXPECT_EQ(runInBlocks(input, plan, 2), expected) << "first block " << plan[0];
    }
}

TEST(EffectRobot, ResetSilencesTheDelayLine) {
    wv::EffectRobot robot(2, 10, 8000);
    Samples burst(100, 12000);
    robot.process(burst.data(), 100);
    robot.reset();
    Samples silence(200, 0);
    robot.process(silence.data(), 200);
    EXPECT_EQ(silence, Samples(200, 0));
}

TEST(EffectRobot, DelayBelowOneFramePassesAudioThrough) {
    wvtest::LogCapture log;
    wv::EffectRobot robot(2, 1, 999);  // 0.999 samples
    Samples data = {1, 2, 3};
    robot.process(data.data(), 3);
    EXPECT_EQ(data, (Samples{1, 2, 3}));
}

}  // namespace
