// Range loads against whole loads, end to end through the engine (from the
// request to event 4): the last ten seconds of ten minutes of 44.1 kHz
// stereo, as 128 kbit/s MP3, as FLAC and as Vorbis, next to a load of the
// whole file. The part is reached by demuxing, not decoding, so its load
// costs a fraction of the whole one; AAC and Opus (decoded from the start)
// are left out, their range costs about a whole decode without the writes.
// Counter x_whole: how many times faster than the whole load of the file.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"

namespace {

constexpr int kAudioSeconds = 600;

std::mutex gLock;
std::condition_variable gDone;
std::map<int, int> gEnds;  // id -> ending event

void onEvent(int code, int id, int, char*, void*) {
    if (code == 0 || code == 4 || code == 5 || code == 7) {
        std::lock_guard<std::mutex> guard(gLock);
        gEnds[id] = code;
        gDone.notify_all();
    }
}

struct Corpus {
    std::string dir;
    bool ready = false;
    Corpus() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-range-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ;
        const std::string source =
            "-f lavfi -i \"anoisesrc=d=" + std::to_string(kAudioSeconds) + ":c=pink:r=44100:a=0.3\" -ac 2 ";
        ready = wvtest::runFfmpeg(source + "-c:a libmp3lame -b:a 128k " + wvtest::shellQuote(file("mp3"))) &&
                wvtest::runFfmpeg(source + "-c:a flac " + wvtest::shellQuote(file("flac"))) &&
                wvtest::runFfmpeg(source + "-c:a libvorbis -q:a 4 " + wvtest::shellQuote(file("ogg")));
    }
    ~Corpus() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    std::string file(const char* ext) const { return dir + "/long." + ext; }
};

Corpus& corpus() {
    static Corpus c;
    return c;
}

std::map<std::string, double> gWholeSeconds;  // ext -> mean of the whole loads

void load(benchmark::State& state, const char* ext, bool lastTenSeconds) {
    if (!corpus().ready) {
        state.SkipWithError("ffmpeg could not make the test audio");
        return;
    }
    const std::string path = corpus().file(ext);
    const std::string work = corpus().dir + "/";
    Wavoryx engine;
    engine.setWorkingDir(work.c_str());
    engine.setCallback(onEvent);
    engine.startThreadLoop(0);
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const int id = lastTenSeconds
                           ? engine.loadFileRange(path.c_str(), (kAudioSeconds - 10) * 1000, kAudioSeconds * 1000)
                           : engine.loadFile(path.c_str());
        int end;
        {
            std::unique_lock<std::mutex> guard(gLock);
            gDone.wait(guard, [id] { return gEnds.count(id) != 0; });
            end = gEnds[id];
            gEnds.erase(id);  // the next engine numbers its items from 1 again
        }
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.SetIterationTime(seconds);
        total += seconds;
        engine.removePcm(id);
        if (end != 4) {
            state.SkipWithError("the load failed");
            break;
        }
    }
    engine.stopThreadLoop();
    if (state.iterations() == 0) return;
    const double mean = total / static_cast<double>(state.iterations());
    if (!lastTenSeconds) {
        gWholeSeconds[ext] = mean;
    } else if (gWholeSeconds.count(ext) != 0) {
        state.counters["x_whole"] = gWholeSeconds[ext] / mean;
    }
}

void BM_WholeMp3(benchmark::State& state) { load(state, "mp3", false); }
void BM_LastTenSecondsMp3(benchmark::State& state) { load(state, "mp3", true); }
void BM_WholeFlac(benchmark::State& state) { load(state, "flac", false); }
void BM_LastTenSecondsFlac(benchmark::State& state) { load(state, "flac", true); }
void BM_WholeVorbis(benchmark::State& state) { load(state, "ogg", false); }
void BM_LastTenSecondsVorbis(benchmark::State& state) { load(state, "ogg", true); }

BENCHMARK(BM_WholeMp3)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LastTenSecondsMp3)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_WholeFlac)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LastTenSecondsFlac)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_WholeVorbis)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LastTenSecondsVorbis)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
