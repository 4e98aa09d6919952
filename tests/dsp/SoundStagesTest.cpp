// The stream stages of a list's sound effects: noise reduction keeps every
// frame in its place and the stream's length while pulling noise down;
// the tempo gives the promised length and keeps the pitch.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <vector>

#include "dsp/NoiseReducer.h"
#include "dsp/StageChain.h"
#include "dsp/TempoStretcher.h"

namespace {

using namespace wv;
using Floats = std::vector<float>;

// Feeds `in` in blocks of varying size, taking out as it goes, then
// finishes and drains.
Floats runStage(StreamStage& stage, const Floats& in, uint32_t channels, unsigned seed = 1) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<uint32_t> sizes(1, 3000);
    Floats out;
    Floats block(4096 * channels);
    const auto drain = [&] {
        for (;;) {
            const uint32_t n = stage.take(block.data(), 4096);
            if (n == 0) break;
            out.insert(out.end(), block.begin(), block.begin() + size_t(n) * channels);
        }
    };
    const size_t frames = in.size() / channels;
    for (size_t at = 0; at < frames;) {
        const uint32_t n = static_cast<uint32_t>(std::min<size_t>(sizes(gen), frames - at));
        stage.put(in.data() + at * channels, n);
        at += n;
        drain();
    }
    stage.finish();
    drain();
    return out;
}

// A tone (or a sweep, whose every stretch differs from the next) over
// pink-ish noise (white noise through a one-pole low-pass).
Floats toneInNoise(int rate, uint32_t channels, double seconds, double toneFrom, double toneTo,
                   double noiseLevel, unsigned seed = 7, bool sweep = false) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> white(0.0, 1.0);
    const size_t frames = size_t(seconds * rate);
    Floats out(frames * channels);
    double state = 0;
    for (size_t k = 0; k < frames; ++k) {
        state = 0.9 * state + 0.1 * white(gen);
        const double t = double(k) / rate;
        const double u = t - toneFrom;
        const double phase = sweep ? 2 * M_PI * (200 * u + 900 * u * u) : 2 * M_PI * 330 * t;
        const double tone = t >= toneFrom && t < toneTo ? 0.3 * std::sin(phase) : 0.0;
        for (uint32_t c = 0; c < channels; ++c) out[k * channels + c] = float(tone + noiseLevel * 3.0 * state);
    }
    return out;
}

double powerDb(const Floats& x, uint32_t channels, size_t from, size_t to) {
    double sum = 0;
    for (size_t k = from * channels; k < to * channels; ++k) sum += double(x[k]) * x[k];
    return 10 * std::log10(sum / double((to - from) * channels) + 1e-30);
}

// The lag (in frames, within +-maxLag) at which `b` best matches `a`,
// channel 0.
long bestLag(const Floats& a, const Floats& b, uint32_t channels, size_t from, size_t count, long maxLag) {
    long best = 0;
    double bestSum = -1e300;
    for (long lag = -maxLag; lag <= maxLag; ++lag) {
        double sum = 0;
        for (size_t k = from; k < from + count; ++k) sum += double(a[k * channels]) * b[(k + lag) * channels];
        if (sum > bestSum) {
            bestSum = sum;
            best = lag;
        }
    }
    return best;
}

// Hz of a steady tone from its zero crossings over [from, to).
double zeroCrossingHz(const Floats& x, uint32_t channels, int rate, size_t from, size_t to) {
    size_t first = 0, last = 0, count = 0;
    for (size_t k = from + 1; k < to; ++k) {
        if ((x[(k - 1) * channels] < 0) != (x[k * channels] < 0)) {
            if (count == 0) first = k;
            last = k;
            ++count;
        }
    }
    return count < 2 ? 0 : double(count - 1) / 2 / (double(last - first) / rate);
}

TEST(NoiseReducer, KeepsEveryFrameInPlaceAndTheLengthAtEveryRate) {
    for (int rate : {22050, 44100, 48000}) {
        for (uint32_t channels : {1u, 2u}) {
            const Floats in = toneInNoise(rate, channels, 2.0, 0.5, 1.5, 0.01, 7, true);
            NoiseReducer reducer(rate, int32_t(channels), 20);
            ASSERT_TRUE(reducer.ok());
            const Floats out = runStage(reducer, in, channels);
            ASSERT_EQ(out.size(), in.size()) << rate << " Hz, " << channels << " channels";
            EXPECT_EQ(bestLag(in, out, channels, size_t(rate * 0.7), 2000, 300), 0) << rate << " Hz";
            // The tone's onset stays where it was: quiet before, loud after.
            const size_t onset = size_t(rate * 0.5);
            EXPECT_LT(powerDb(out, channels, onset - rate / 20, onset - rate / 100),
                      powerDb(out, channels, onset + rate / 100, onset + rate / 20) - 20);
        }
    }
}

TEST(NoiseReducer, PullsTheNoiseDownAndLeavesTheToneAlone) {
    const int rate = 44100;
    const Floats in = toneInNoise(rate, 2, 3.0, 1.0, 2.0, 0.01);
    NoiseReducer reducer(rate, 2, 20);
    const Floats out = runStage(reducer, in, 2, 3);
    // Noise alone (after the filter's first half second) and the tone.
    const double noiseBefore = powerDb(in, 2, rate / 2, rate - rate / 10);
    const double noiseAfter = powerDb(out, 2, rate / 2, rate - rate / 10);
    EXPECT_LE(noiseAfter, noiseBefore - 10) << noiseBefore << " dB to " << noiseAfter << " dB";
    const double toneBefore = powerDb(in, 2, rate + rate / 10, 2 * rate - rate / 10);
    const double toneAfter = powerDb(out, 2, rate + rate / 10, 2 * rate - rate / 10);
    EXPECT_NEAR(toneAfter, toneBefore, 1.0);
    const double tailAfter = powerDb(out, 2, 2 * rate + rate / 10, 3 * rate);
    EXPECT_LE(tailAfter, noiseBefore - 10);
}

TEST(NoiseReducer, StreamsShorterThanItsDelayAndEmptyOnesKeepTheirLength) {
    for (uint32_t frames : {0u, 1u, 100u, 1102u, 1103u, 5000u}) {
        const Floats in(size_t(frames) * 2, 0.25f);
        NoiseReducer reducer(44100, 2, 12);
        EXPECT_EQ(runStage(reducer, in, 2).size(), in.size()) << frames << " frames";
    }
}

TEST(TempoStretcher, GivesRoundedLengthsForEveryTempoAndBlocking) {
    const Floats in = toneInNoise(44100, 2, 1.5, 0.0, 1.5, 0.001);
    const uint64_t frames = in.size() / 2;
    for (int32_t percent : {50, 67, 80, 100, 125, 150, 199, 200}) {
        for (unsigned seed : {1u, 2u}) {
            TempoStretcher stretcher(44100, 2, percent);
            const Floats out = runStage(stretcher, in, 2, seed);
            const uint64_t expected = uint64_t(std::llround(double(frames) * 100.0 / percent));
            EXPECT_EQ(out.size() / 2, expected) << percent << "%";
            EXPECT_EQ(TempoStretcher::stretchedLength(frames, percent), expected);
        }
    }
    TempoStretcher empty(44100, 1, 125);
    EXPECT_EQ(runStage(empty, Floats(), 1).size(), 0u);
}

TEST(TempoStretcher, KeepsThePitch) {
    const int rate = 44100;
    Floats in(size_t(rate) * 4);
    for (size_t k = 0; k < in.size(); ++k) in[k] = float(0.5 * std::sin(2 * M_PI * 440 * double(k) / rate));
    for (int32_t percent : {50, 125, 200}) {
        TempoStretcher stretcher(rate, 1, percent);
        const Floats out = runStage(stretcher, in, 1);
        const double hz = zeroCrossingHz(out, 1, rate, rate / 4, out.size() - rate / 4);
        EXPECT_NEAR(hz, 440.0, 1.0) << percent << "%";
    }
}

TEST(StageChain, FeedsEachStageFromTheOneBefore) {
    const Floats in = toneInNoise(48000, 1, 2.0, 0.5, 1.5, 0.01);
    StageChain chain(1);
    chain.add(std::unique_ptr<StreamStage>(new NoiseReducer(48000, 1, 20)));
    chain.add(std::unique_ptr<StreamStage>(new TempoStretcher(48000, 1, 150)));
    const Floats out = runStage(chain, in, 1);
    EXPECT_EQ(out.size(), TempoStretcher::stretchedLength(in.size(), 150));
    StageChain none(1);
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(runStage(none, in, 1).size(), 0u);
}

}  // namespace
