// Loudness measurement through the engine, end to end (measureLoudness to
// event 28), of 10 minutes of 44.1 kHz stereo read in place from a WAV,
// against `ffmpeg -af ebur128=peak=true -f null -` on the same file, and
// against libebur128 alone over the samples in memory (the floor: the
// meter's own work, with no reading or events).
#include <benchmark/benchmark.h>

#include <ebur128.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "engine/WavoryxPriv.h"
#include "threads/ClientCallbackThread.h"

namespace {

constexpr int kRate = 44100;
constexpr int kChannels = 2;
constexpr uint32_t kTenMinutes = 600 * kRate;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

struct Endings {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::pair<int, int>> seen;  // (code, id)
} gEndings;

void onEvent(int code, int id, int, char*, void*) {
    if (code != wv::EVT_LOUDNESS_RANGE && code != wv::EVT_RENDER_FAILED) return;
    std::lock_guard<std::mutex> guard(gEndings.lock);
    gEndings.seen.emplace_back(code, id);
    gEndings.changed.notify_all();
}

int waitForEnding(int id) {
    std::unique_lock<std::mutex> guard(gEndings.lock);
    for (;;) {
        for (const auto& e : gEndings.seen) {
            if (e.second == id) return e.first;
        }
        if (gEndings.changed.wait_for(guard, std::chrono::minutes(5)) == std::cv_status::timeout) return -1;
    }
}

// Music-like material: two tones whose level swells and falls over
// 20 s, under a little noise, so that the gates and the range have work.
std::vector<int16_t> makeProgramme() {
    std::vector<int16_t> out(size_t(kTenMinutes) * kChannels);
    uint32_t noise = 12345;
    for (uint32_t k = 0; k < kTenMinutes; ++k) {
        const double t = double(k) / kRate;
        const double level = 0.05 + 0.3 * (0.5 + 0.5 * std::sin(2 * 3.14159265 * t / 20.0));
        for (int c = 0; c < kChannels; ++c) {
            noise = noise * 1664525u + 1013904223u;
            const double tone = std::sin(2 * 3.14159265 * (c == 0 ? 440.0 : 660.0) * t);
            out[size_t(k) * kChannels + c] = int16_t(level * tone * 32767.0 + double(int16_t(noise >> 16)) / 64.0);
        }
    }
    return out;
}

struct Setup {
    std::string dir;
    std::vector<int16_t> samples;
    std::unique_ptr<WavoryxPriv> engine;
    bool ready = false;

    Setup() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-loudness-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ + "/";
        samples = makeProgramme();
        if (!wvtest::writeWav(dir + "source.wav", samples, kRate, kChannels)) return;
        engine.reset(new WavoryxPriv());
        engine->setWorkingDir(dir.c_str());
        engine->setCallback(onEvent);
        engine->startThreadLoop(0);
        ready = true;
    }
    ~Setup() {
        if (engine) {
            engine->stopThreadLoop();
            engine.reset();
        }
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    // The WAV as an item read in place.
    uint32_t addWavItem() {
        wv::SPcmInfo* item = new wv::SPcmInfo(wv::PCM_READY);
        item->sampleRate = kRate;
        item->channelCount = kChannels;
        item->format = 1;
        item->frames = kTenMinutes;
        item->totalFrames = kTenMinutes;
        item->path.set(dir + "source.wav");
        item->refs[wv::REF_CLIENT] = 1;
        engine->infoList().add(item);
        return item->id;
    }
};

Setup& setup() {
    static Setup s;
    return s;
}

double runCommand(const std::string& command) {
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    return status == 0 ? secondsSince(start) : -1.0;
}

void BM_MeasureTenMinutesVsFfmpeg(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    const std::string ffmpeg = "ffmpeg -nostdin -hide_banner -nostats -loglevel error -i " +
                               wvtest::shellQuote(s.dir + "source.wav") + " -af ebur128=peak=true -f null -";
    for (auto _ : state) {
        const uint32_t id = s.addWavItem();
        const auto start = Clock::now();
        s.engine->measureLoudness(int(id));
        const int ending = waitForEnding(int(id));
        const double ours = secondsSince(start);
        s.engine->removePcm(id);
        const double theirs = runCommand(ffmpeg);
        if (ending != int(wv::EVT_LOUDNESS_RANGE) || theirs < 0) {
            return state.SkipWithError("measurement or ffmpeg failed");
        }
        state.SetIterationTime(ours);
        state.counters["ffmpeg_s"] = theirs;
        state.counters["ratio"] = ours / theirs;
        std::printf("10 min stereo: engine %.2f s, ffmpeg ebur128=peak=true %.2f s, ratio %.2f\n", ours, theirs,
                    ours / theirs);
    }
}

void BM_LibraryAloneOnTenMinutes(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    for (auto _ : state) {
        const auto start = Clock::now();
        ebur128_state* meter =
            ebur128_init(kChannels, kRate, EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
        for (size_t at = 0; at < kTenMinutes; at += 4096) {
            const size_t n = std::min<size_t>(4096, kTenMinutes - at);
            ebur128_add_frames_short(meter, s.samples.data() + at * kChannels, n);
        }
        double integrated = 0, range = 0;
        ebur128_loudness_global(meter, &integrated);
        ebur128_loudness_range(meter, &range);
        ebur128_destroy(&meter);
        const double seconds = secondsSince(start);
        state.SetIterationTime(seconds);
        std::printf("libebur128 alone: %.2f s (%.1f LUFS, %.1f LU)\n", seconds, integrated, range);
    }
}

BENCHMARK(BM_MeasureTenMinutesVsFfmpeg)->Unit(benchmark::kSecond)->Iterations(2)->UseManualTime();
BENCHMARK(BM_LibraryAloneOnTenMinutes)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
