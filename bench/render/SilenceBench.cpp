// Silence scans through the engine, end to end (scanSilence to event 29),
// of 10 minutes of 44.1 kHz stereo speech-like PCM read in place from a WAV
// (target: 500x real time or more), and the finder alone over the samples
// in memory (the floor: the rule's own work, with no reading or events).
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "dsp/SilenceFinder.h"
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
    if (code != wv::EVT_SILENCES && code != wv::EVT_RENDER_FAILED) return;
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

// Speech-like: 1.5 to 4 s of a wobbling tone under noise, then a pause of
// 0.3 to 2.3 s of digital silence or faint noise.
std::vector<int16_t> makeTalk() {
    std::vector<int16_t> out(size_t(kTenMinutes) * kChannels);
    uint32_t noise = 12345;
    uint32_t k = 0;
    int turn = 0;
    while (k < kTenMinutes) {
        const uint32_t talk = uint32_t((1.5 + (turn * 0.7) - std::floor(turn * 0.7 / 2.5) * 2.5) * kRate);
        const uint32_t pause = uint32_t((0.3 + (turn % 5) * 0.5) * kRate);
        for (uint32_t i = 0; i < talk + pause && k < kTenMinutes; ++i, ++k) {
            noise = noise * 1664525u + 1013904223u;
            const double t = double(k) / kRate;
            const double v = i < talk ? 0.3 * std::sin(2 * 3.14159265 * (180 + 40 * std::sin(t * 7)) * t) * 32767.0 +
                                            double(int16_t(noise >> 16)) / 32.0
                                      : (turn % 2 ? double(int16_t(noise >> 16)) / 1024.0 : 0.0);
            for (int c = 0; c < kChannels; ++c) out[size_t(k) * kChannels + c] = int16_t(v);
        }
        ++turn;
    }
    return out;
}

struct Setup {
    std::string dir;
    std::vector<int16_t> samples;
    std::unique_ptr<WavoryxPriv> engine;
    bool ready = false;

    Setup() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-silence-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ + "/";
        samples = makeTalk();
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

void BM_ScanTenMinutesOfPcm(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    for (auto _ : state) {
        const uint32_t id = s.addWavItem();
        const auto start = Clock::now();
        s.engine->scanSilence(int(id), -500, 1000);
        const int ending = waitForEnding(int(id));
        const double seconds = secondsSince(start);
        const int32_t found = s.engine->getSilences(int(id), nullptr, 0);
        s.engine->removePcm(id);
        if (ending != int(wv::EVT_SILENCES)) return state.SkipWithError("the scan failed");
        state.SetIterationTime(seconds);
        state.counters["x_real_time"] = 600.0 / seconds;
        std::printf("10 min stereo PCM: scan %.3f s, %.0fx real time, %d silences\n", seconds, 600.0 / seconds, found);
    }
}

void BM_FinderAloneOnTenMinutes(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    for (auto _ : state) {
        const auto start = Clock::now();
        wv::SilenceFinder finder(-50.0, kRate);
        for (size_t at = 0; at < kTenMinutes; at += 65536) {
            const size_t n = std::min<size_t>(65536, kTenMinutes - at);
            finder.feed(s.samples.data() + at * kChannels, uint32_t(n), kChannels);
        }
        finder.finish();
        const double seconds = secondsSince(start);
        state.SetIterationTime(seconds);
        std::printf("the finder alone: %.3f s, %.0fx real time, %zu silences\n", seconds, 600.0 / seconds,
                    finder.silences().size());
    }
}

BENCHMARK(BM_ScanTenMinutesOfPcm)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK(BM_FinderAloneOnTenMinutes)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
