// Rendering through the engine, end to end (process() to event 22), against
// the command-line tools doing the same work on the same bytes:
//  - a clip list of ten 1-minute clips covering a 10-minute 44.1 kHz stereo
//    source, to MP3 at 320 kbit/s, against `lame -b 320 -q 5 -m d` on the
//    source as a WAV (target: ratio <= 1.05);
//  - the same list to WAV, against `cp` of a file of the same size (target:
//    at least half of cp's throughput);
//  - getWaveformSamples over one hour of 44.1 kHz stereo (target: less than
//    16 MB of memory beyond what the process held before);
//  - getWaveformPeaks over the same hour, 2000 true (min, max) pairs, and
//    one pair per frame as the command gathers data files (5 s per call).
// Each render also reports its peak memory beyond the process's resident
// set before it started (target: under 30 MB).
// Peak memory comes from VmHWM, reset through /proc/self/clear_refs before
// each measured part.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
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
constexpr uint32_t kOneHour = 3600 * kRate;

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Resident-set figures of this process, in kB.
long statusKb(const char* field) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(field, 0) == 0) return std::atol(line.c_str() + std::strlen(field));
    }
    return -1;
}
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }
long residentKb() { return statusKb("VmRSS:"); }
long peakKb() { return statusKb("VmHWM:"); }

// Render endings reported by the engine.
struct Endings {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::pair<int, int>> seen;  // (code, id)
} gEndings;

void onEvent(int code, int id, int, char*, void*) {
    if (code != wv::EVT_RENDER_DONE && code != wv::EVT_RENDER_FAILED && code != wv::EVT_RENDER_STOPPED) return;
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

// Writes `frames` frames of two tones under a little noise, as a headerless
// PCM file and, when wavPath is not empty, as a canonical WAV of the same
// samples. Written in one-second pieces.
bool writeSource(const std::string& pcmPath, const std::string& wavPath, uint32_t frames) {
    FILE* pcm = std::fopen(pcmPath.c_str(), "wb");
    FILE* wav = wavPath.empty() ? nullptr : std::fopen(wavPath.c_str(), "wb");
    if (pcm == nullptr || (!wavPath.empty() && wav == nullptr)) return false;
    if (wav != nullptr) {
        const auto header = wvtest::canonicalWavHeader(kRate, kChannels, frames * 4);
        std::fwrite(header.data(), 1, header.size(), wav);
    }
    const std::vector<int16_t> second = wvtest::makeTone(kRate, kChannels, 1.0, 440.0, 0.4);
    std::vector<int16_t> piece(second.size());
    uint32_t noise = 12345;
    for (uint32_t done = 0; done < frames; done += kRate) {
        const uint32_t n = std::min<uint32_t>(kRate, frames - done);
        for (size_t i = 0; i < size_t(n) * kChannels; ++i) {
            noise = noise * 1664525u + 1013904223u;
            piece[i] = static_cast<int16_t>(second[i] + static_cast<int16_t>(noise >> 16) / 16);
        }
        std::fwrite(piece.data(), 4, n, pcm);
        if (wav != nullptr) std::fwrite(piece.data(), 4, n, wav);
    }
    const bool ok = std::fclose(pcm) == 0;
    return (wav == nullptr || std::fclose(wav) == 0) && ok;
}

// One engine, a 10-minute source item (and the same as a WAV) in a scratch
// directory, for the whole program.
struct Setup {
    std::string dir;
    std::unique_ptr<WavoryxPriv> engine;
    wv::SPcmInfo* source = nullptr;
    bool ready = false;

    Setup() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-render-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ + "/";
        if (!writeSource(dir + "source.pcm", dir + "source.wav", kTenMinutes)) return;
        engine.reset(new WavoryxPriv());
        engine->setWorkingDir(dir.c_str());
        engine->setCallback(onEvent);
        engine->startThreadLoop(0);
        source = addItem(dir + "source.pcm", kTenMinutes);
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
    wv::SPcmInfo* addItem(const std::string& pcmPath, uint32_t frames) {
        wv::SPcmInfo* item = new wv::SPcmInfo(wv::PCM_READY);
        item->sampleRate = kRate;
        item->channelCount = kChannels;
        item->format = 1;
        item->frames = frames;
        item->totalFrames = frames;
        item->pcmPath.set(pcmPath);
        item->refs[wv::REF_CLIENT] = 1;
        engine->infoList().add(item);
        return item;
    }
    // Ten one-minute clips, in order: the whole source.
    uint32_t newTenClipList(const std::string& out, encode_type type) {
        const int32_t list = engine->newClipList();
        for (uint32_t m = 0; m < 10; ++m) engine->addClip(list, source->id, m * 60 * kRate, (m + 1) * 60 * kRate);
        engine->setOutputPara(list, out.c_str(), type);
        engine->setEncodePara(list, kRate, 320, kChannels, 0);
        return static_cast<uint32_t>(list);
    }
};

Setup& setup() {
    static Setup s;
    return s;
}

// Renders one fresh list; returns the seconds it took (negative on failure)
// and the peak memory beyond the resident set before it, in MB.
double renderOnce(encode_type type, const std::string& out, double* peakExtraMb) {
    Setup& s = setup();
    const uint32_t list = s.newTenClipList(out, type);
    std::remove(out.c_str());  // dropping the last output's pages is not part of the render
    const long before = residentKb();
    resetPeak();
    const auto start = Clock::now();
    s.engine->process(list);
    const int ending = waitForEnding(static_cast<int>(list));
    const double seconds = secondsSince(start);
    *peakExtraMb = (peakKb() - before) / 1024.0;
    s.engine->removePcm(list);
    return ending == wv::EVT_RENDER_DONE ? seconds : -1.0;
}

double runCommand(const std::string& command) {
    const auto start = Clock::now();
    const int status = std::system(command.c_str());
    return status == 0 ? secondsSince(start) : -1.0;
}

void BM_RenderTenMinutesToMp3VsLame(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    const std::string lame = "lame --quiet -b 320 -q 5 -m d " + wvtest::shellQuote(s.dir + "source.wav") + " " +
                             wvtest::shellQuote(s.dir + "lame.mp3");
    for (auto _ : state) {
        double peakMb = 0;
        const double ours = renderOnce(ENCODE_MP3, s.dir + "render.mp3", &peakMb);
        const double theirs = runCommand(lame);
        if (ours < 0 || theirs < 0) return state.SkipWithError("render or lame failed");
        state.SetIterationTime(ours);
        state.counters["lame_s"] = theirs;
        state.counters["ratio"] = ours / theirs;
        state.counters["peak_MB"] = peakMb;
        std::printf("MP3 render %.2f s, lame %.2f s, ratio %.3f (target <= 1.05), peak +%.1f MB (target < 30)\n", ours,
                    theirs, ours / theirs, peakMb);
    }
}

void BM_RenderTenMinutesToWavVsCp(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    const std::string cp =
        "cp " + wvtest::shellQuote(s.dir + "source.wav") + " " + wvtest::shellQuote(s.dir + "copy.wav");
    // cp copies inside the kernel; a loop of 16384-byte reads and writes
    // (what a render step does besides its own work) shows the floor.
    const std::string dd = "dd status=none bs=16384 if=" + wvtest::shellQuote(s.dir + "source.wav") +
                           " of=" + wvtest::shellQuote(s.dir + "copy.wav");
    const double bytes = double(kTenMinutes) * 4 + 44;
    for (auto _ : state) {
        double peakMb = 0;
        const double ours = renderOnce(ENCODE_WAV, s.dir + "render.wav", &peakMb);
        const double theirs = runCommand(cp);
        std::remove((s.dir + "copy.wav").c_str());
        const double blocks = runCommand(dd);
        std::remove((s.dir + "copy.wav").c_str());
        if (ours < 0 || theirs < 0 || blocks < 0) return state.SkipWithError("render, cp or dd failed");
        state.SetIterationTime(ours);
        const double oursMbs = bytes / ours / 1e6, cpMbs = bytes / theirs / 1e6, ddMbs = bytes / blocks / 1e6;
        state.counters["MB_per_s"] = oursMbs;
        state.counters["cp_MB_per_s"] = cpMbs;
        state.counters["dd16k_MB_per_s"] = ddMbs;
        state.counters["of_cp"] = oursMbs / cpMbs;
        state.counters["peak_MB"] = peakMb;
        std::printf(
            "WAV render %.0f MB/s, cp %.0f MB/s, %.2f of cp (target >= 0.5); dd bs=16384 %.0f MB/s "
            "(%.2f of cp); peak +%.1f MB (target < 30)\n",
            oursMbs, cpMbs, oursMbs / cpMbs, ddMbs, ddMbs / cpMbs, peakMb);
    }
}

// The hour-long item the waveform benchmarks share, made once.
wv::SPcmInfo* oneHourItem(Setup& s) {
    static wv::SPcmInfo* hour = nullptr;
    if (hour == nullptr && writeSource(s.dir + "hour.pcm", "", kOneHour)) {
        hour = s.addItem(s.dir + "hour.pcm", kOneHour);
    }
    return hour;
}

void BM_WaveformSamplesOfOneHour(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    wv::SPcmInfo* hour = oneHourItem(s);
    if (hour == nullptr) return state.SkipWithError("no one-hour source");
    std::vector<uint8_t> points(2000);
    for (auto _ : state) {
        const long before = residentKb();
        resetPeak();
        const auto start = Clock::now();
        const int32_t got = s.engine->getWaveformSamples(hour->id, 0, 3600 * 1000, 2000, points.data());
        const double seconds = secondsSince(start);
        const double peakMb = (peakKb() - before) / 1024.0;
        if (got != 2000) return state.SkipWithError("getWaveformSamples failed");
        state.SetIterationTime(seconds);
        state.counters["peak_MB"] = peakMb;
        std::printf("getWaveformSamples of one hour: %.2f s, peak +%.1f MB (target < 16)\n", seconds, peakMb);
    }
}

void BM_WaveformPeaksOfOneHour(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    wv::SPcmInfo* hour = oneHourItem(s);
    if (hour == nullptr) return state.SkipWithError("no one-hour source");
    std::vector<int16_t> pairs(2 * 2000);
    for (auto _ : state) {
        const long before = residentKb();
        resetPeak();
        const auto start = Clock::now();
        const int32_t got = s.engine->getWaveformPeaks(hour->id, 0, 3600 * 1000, 2000, pairs.data());
        const double seconds = secondsSince(start);
        const double peakMb = (peakKb() - before) / 1024.0;
        if (got != 2000) return state.SkipWithError("getWaveformPeaks failed");
        state.SetIterationTime(seconds);
        state.counters["peak_MB"] = peakMb;
        std::printf("getWaveformPeaks of one hour, 2000 pairs: %.3f s, peak +%.1f MB\n", seconds, peakMb);
    }
}

void BM_WaveformPeaksPerFrameOfOneHour(benchmark::State& state) {
    Setup& s = setup();
    if (!s.ready) return state.SkipWithError("source could not be made");
    wv::SPcmInfo* hour = oneHourItem(s);
    if (hour == nullptr) return state.SkipWithError("no one-hour source");
    constexpr uint32_t kStepMs = 5000;
    std::vector<int16_t> pairs(2 * size_t(kStepMs) * kRate / 1000);
    for (auto _ : state) {
        const auto start = Clock::now();
        for (uint32_t ms = 0; ms < 3600 * 1000; ms += kStepMs) {
            const unsigned count = kStepMs * kRate / 1000;
            if (s.engine->getWaveformPeaks(hour->id, ms, ms + kStepMs, count, pairs.data()) != int32_t(count)) {
                return state.SkipWithError("getWaveformPeaks failed");
            }
        }
        const double seconds = secondsSince(start);
        state.SetIterationTime(seconds);
        std::printf("getWaveformPeaks of one hour, one pair per frame: %.2f s\n", seconds);
    }
}

BENCHMARK(BM_RenderTenMinutesToMp3VsLame)->Unit(benchmark::kSecond)->Iterations(1)->UseManualTime();
BENCHMARK(BM_RenderTenMinutesToWavVsCp)->Unit(benchmark::kMillisecond)->Iterations(5)->UseManualTime();
BENCHMARK(BM_WaveformSamplesOfOneHour)->Unit(benchmark::kMillisecond)->Iterations(2)->UseManualTime();
BENCHMARK(BM_WaveformPeaksOfOneHour)->Unit(benchmark::kMillisecond)->Iterations(3)->UseManualTime();
BENCHMARK(BM_WaveformPeaksPerFrameOfOneHour)->Unit(benchmark::kMillisecond)->Iterations(1)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
