// The true-peak limiter's speed on 60 s of 48 kHz stereo: music-like
// material pushed 12 dB into a -1 dBTP ceiling (the detector works near
// every transient), the same material 12 dB under it (the detector skips
// what cannot reach the ceiling), and a full-scale square wave (every
// frame is a peak). Frames per second are in the counters; 1 x real time
// is 48000.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "ProgrammeSignals.h"
#include "dsp/TruePeakLimiter.h"

namespace {

constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr size_t kBlockFrames = 4096;

std::vector<float> material(double gainDb) {
    std::vector<float> s = wvtest::musicLike(kRate, kChannels, 60.0, 5);
    const float gain = float(std::pow(10.0, gainDb / 20.0));
    for (float& v : s) v *= gain;
    return s;
}

void runLimiter(benchmark::State& state, const std::vector<float>& in) {
    wv::LimiterSettings settings;
    settings.ceilingDbtp = -1.0;
    std::vector<float> out(in.size());
    const size_t frames = in.size() / kChannels;
    float lowest = 1.0f;
    for (auto _ : state) {
        wv::TruePeakLimiter limiter(kRate, kChannels, settings);
        size_t written = 0;
        for (size_t at = 0; at < frames; at += kBlockFrames) {
            const size_t n = std::min(kBlockFrames, frames - at);
            written += limiter.process(in.data() + at * kChannels, n, out.data() + written * kChannels);
        }
        written += limiter.flush(out.data() + written * kChannels);
        benchmark::DoNotOptimize(out.data());
        lowest = limiter.lowestGain();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(frames));
    state.counters["x_realtime"] =
        benchmark::Counter(double(frames) / kRate * double(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["lowest_gain_db"] = 20.0 * std::log10(lowest);
}

void BM_LimiterMusicPushedIntoTheCeiling(benchmark::State& state) {
    static const std::vector<float> in = material(12.0);
    runLimiter(state, in);
}

void BM_LimiterMusicUnderTheCeiling(benchmark::State& state) {
    static const std::vector<float> in = material(-12.0);
    runLimiter(state, in);
}

void BM_LimiterFullScaleSquare(benchmark::State& state) {
    static const std::vector<float> in = wvtest::squareWave(kRate, kChannels, 60.0, 1000.0);
    runLimiter(state, in);
}

BENCHMARK(BM_LimiterMusicPushedIntoTheCeiling)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LimiterMusicUnderTheCeiling)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LimiterFullScaleSquare)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
