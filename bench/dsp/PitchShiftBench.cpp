// Throughput of the exported phase-vocoder pitch shifter against SoundTouch
// shifting the same tone by the same ratio, in samples per second of mono
// 44.1 kHz audio. After the runs, the ratio of each shifter frame size to
// SoundTouch is printed (above 1: the vocoder is faster).
#include <benchmark/benchmark.h>
#include <soundtouch/SoundTouch.h>
#include <wavoryx/dsp.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr float kRate = 44100.0f;
constexpr float kRatio = 1.5f;
constexpr size_t kBlock = 4096;

std::vector<int16_t> toneBlock() {
    std::vector<int16_t> out(kBlock);
    for (size_t n = 0; n < kBlock; ++n) {
        out[n] = int16_t(8000.0 * std::sin(2.0 * M_PI * 440.0 * double(n) / kRate));
    }
    return out;
}

void BM_SmbPitchShift(benchmark::State& state) {
    const long frameSize = long(state.range(0));
    auto in = toneBlock();
    std::vector<int16_t> out(kBlock);
    for (auto _ : state) {
        smbPitchShift(kRatio, long(kBlock), frameSize, 4, kRate, in.data(), out.data());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kBlock));
}
BENCHMARK(BM_SmbPitchShift)->Arg(1024)->Arg(2048)->Unit(benchmark::kMicrosecond);

void BM_SoundTouch(benchmark::State& state) {
    const auto in = toneBlock();
    std::vector<float> inFloat(kBlock);
    std::vector<float> outFloat(kBlock * 2);
    soundtouch::SoundTouch touch;
    touch.setSampleRate(unsigned(kRate));
    touch.setChannels(1);
    touch.setPitch(kRatio);
    for (auto _ : state) {
        for (size_t n = 0; n < kBlock; ++n) inFloat[n] = in[n] * (1.0f / 32768.0f);
        touch.putSamples(inFloat.data(), unsigned(kBlock));
        while (touch.receiveSamples(outFloat.data(), unsigned(outFloat.size())) > 0) {
        }
        benchmark::DoNotOptimize(outFloat.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kBlock));
}
BENCHMARK(BM_SoundTouch)->Unit(benchmark::kMicrosecond);

// Console output as usual, plus the samples-per-second figure of each run.
class RateReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto it = run.counters.find("items_per_second");
            if (run.run_type == Run::RT_Iteration && it != run.counters.end()) {
                rates[run.benchmark_name()] = it->second.value;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    std::map<std::string, double> rates;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const auto touch = reporter.rates.find("BM_SoundTouch");
    if (touch == reporter.rates.end() || touch->second <= 0.0) return 0;
    for (const char* name : {"BM_SmbPitchShift/1024", "BM_SmbPitchShift/2048"}) {
        const auto it = reporter.rates.find(name);
        if (it == reporter.rates.end()) continue;
        std::printf("%s: %.3g samples/s, %.3fx SoundTouch (%.3g samples/s) at ratio %.2f\n", name, it->second,
                    it->second / touch->second, touch->second, double(kRatio));
    }
    return 0;
}
