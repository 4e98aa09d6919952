// Renders of a clip list with noise reduction, tempo and both, over the
// public API, from process() to the render's end: ten minutes of 44.1 kHz
// stereo speech-like material (a tone in bursts over low noise) to WAV.
// Reports the real-time factor of each (target: at least 20 x real time
// with the noise reduction) next to the same list rendered without them.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"

namespace {

constexpr int kRate = 44100;
constexpr uint32_t kSeconds = 600;

struct Setup {
    std::string dir;
    std::string source;
    Setup() {
        dir = (std::filesystem::temp_directory_path() / ("wv-sound-bench-" + std::to_string(getpid()))).string();
        std::filesystem::create_directories(dir);
        source = dir + "/speech.wav";
        std::mt19937 gen(3);
        std::normal_distribution<double> white(0.0, 1.0);
        std::vector<int16_t> samples(size_t(kSeconds) * kRate * 2);
        double state = 0;
        for (size_t k = 0; k < samples.size() / 2; ++k) {
            state = 0.9 * state + 0.1 * white(gen);
            const double t = double(k) / kRate;
            const bool talking = std::fmod(t, 1.5) < 1.0;
            const double v = (talking ? 0.3 * std::sin(2 * M_PI * 220 * t) : 0.0) + 0.01 * state;
            samples[2 * k] = samples[2 * k + 1] = int16_t(std::lrint(32767 * v));
        }
        wvtest::writeWav(source, samples, kRate, 2);
    }
    ~Setup() { std::filesystem::remove_all(dir); }
};

Setup& setup() {
    static Setup s;
    return s;
}

void renderWith(benchmark::State& state, int denoiseDb, int tempoPercent) {
    Wavoryx engine;
    const std::string work = setup().dir + "/engine-files/";
    std::filesystem::create_directories(work);
    engine.setWorkingDir(work.c_str());
    engine.startThreadLoop(0);
    const int id = engine.loadFile(setup().source.c_str());
    engine.waitForJob(id, WV_JOB_LOAD, -1, nullptr);
    const std::string out = setup().dir + "/out.wav";
    for (auto _ : state) {
        const int list = engine.newClipList();
        engine.addClip(list, id, 0, 0xFFFFFFFFu);
        if (denoiseDb != 0) engine.setListDenoise(list, denoiseDb);
        if (tempoPercent != 100) engine.setListTempo(list, tempoPercent);
        std::filesystem::remove(out);
        engine.setOutputPara(list, out.c_str(), ENCODE_WAV);
        engine.process(list);
        int32_t value = 0;
        if (engine.waitForJob(list, WV_JOB_RENDER, -1, &value) != WV_EVENT_RENDER_DONE) {
            state.SkipWithError("the render failed");
            break;
        }
    }
    state.counters["x_real_time"] =
        benchmark::Counter(double(kSeconds) * double(state.iterations()), benchmark::Counter::kIsRate);
    engine.stopThreadLoop();
}

void BM_RenderPlain(benchmark::State& state) { renderWith(state, 0, 100); }
void BM_RenderDenoise(benchmark::State& state) { renderWith(state, 20, 100); }
void BM_RenderTempo125(benchmark::State& state) { renderWith(state, 0, 125); }
void BM_RenderDenoiseTempo125(benchmark::State& state) { renderWith(state, 20, 125); }

BENCHMARK(BM_RenderPlain)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_RenderDenoise)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_RenderTempo125)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_RenderDenoiseTempo125)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
