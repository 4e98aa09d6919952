// End-to-end loads through the engine, from loadFile to event 4, of ten
// minutes of 44.1 kHz stereo audio as 320 kbit/s MP3 and as FLAC, next to
// the ffmpeg command doing the same job (`ffmpeg -i X -f s16le -y out`,
// timed as a whole command, start-up included).
//
// Each engine load runs in a fresh child process (this program started
// again with --load-child), so that its peak memory is its own: the child
// reports the wall time from loadFile to event 4, its peak resident size
// (VmHWM), the rise of that peak over the resident size just before
// loadFile, and the rise of its anonymous memory (heap and stacks). Most of
// the resident size of an idle engine is the shared libraries it maps.
// Counters: peak_MB, load_peak_MB, heap_MB, x_realtime (seconds of audio
// per second); a summary after the table prints engine / ffmpeg ratios.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"

namespace {

constexpr int kAudioSeconds = 600;

std::string selfPath() {
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (n <= 0) return std::string();
    buffer[n] = '\0';
    return buffer;
}

// A field of /proc/self/status in kB ("VmHWM", "VmRSS"); -1 when missing.
long statusKb(const char* field) {
    FILE* file = std::fopen("/proc/self/status", "r");
    if (file == nullptr) return -1;
    char line[256];
    long value = -1;
    const size_t length = std::strlen(field);
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strncmp(line, field, length) == 0 && line[length] == ':') {
            value = std::strtol(line + length + 1, nullptr, 10);
            break;
        }
    }
    std::fclose(file);
    return value;
}

double nowSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// --- the child: one load through the engine ---------------------------------

std::mutex gLock;
std::condition_variable gDone;
int gEndCode = -100;

void onEvent(int code, int, int, char*, void*) {
    if (code == 0 || code == 4 || code == 5 || code == 7) {
        std::lock_guard<std::mutex> guard(gLock);
        gEndCode = code;
        gDone.notify_all();
    }
}

// Prints "<seconds> <peak kB> <rise of the peak over the resident size
// before the load, kB> <rise of the anonymous (heap and stack) resident
// size, kB> <end event>" on standard output.
int runChild(const char* file, const char* workDir) {
    Wavoryx engine;
    engine.setWorkingDir(workDir);
    engine.setCallback(onEvent);
    engine.startThreadLoop(0);
    const long rssBefore = statusKb("VmRSS");
    const long anonBefore = statusKb("RssAnon");
    const double start = nowSeconds();
    const int id = engine.loadFile(file);
    {
        std::unique_lock<std::mutex> lock(gLock);
        gDone.wait(lock, [] { return gEndCode != -100; });
    }
    const double seconds = nowSeconds() - start;
    const long peak = statusKb("VmHWM");
    std::printf("%.6f %ld %ld %ld %d\n", seconds, peak, peak - rssBefore, statusKb("RssAnon") - anonBefore, gEndCode);
    engine.stopThreadLoop();
    engine.removePcm(id);
    return gEndCode == 4 ? 0 : 1;
}

// --- the parent: corpus, runs and summary -----------------------------------

struct Corpus {
    std::string dir;
    bool ready = false;
    Corpus() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-load-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ;
        // Two independent noise channels: every band busy, as in music.
        const std::string source =
            "-f lavfi -i \"anoisesrc=d=" + std::to_string(kAudioSeconds) +
            ":c=pink:r=44100:a=0.3:s=1\" -f lavfi -i \"anoisesrc=d=" + std::to_string(kAudioSeconds) +
            ":c=pink:r=44100:a=0.3:s=2\" -filter_complex amerge=inputs=2 ";
        ready = wvtest::runFfmpeg(source + "-c:a libmp3lame -b:a 320k " + wvtest::shellQuote(file("mp3"))) &&
                wvtest::runFfmpeg(source + "-c:a flac " + wvtest::shellQuote(file("flac")));
    }
    ~Corpus() {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    std::string file(const std::string& ext) const { return dir + "/source." + ext; }
};

Corpus& corpus() {
    static Corpus c;
    return c;
}

struct Totals {
    double seconds = 0;
    int runs = 0;
    double peakMb = 0;
    double loadPeakMb = 0;
    double heapMb = 0;
};

// Runs a shell command; its wall time and the peak resident size of it and
// its children (kB). False when it fails.
bool runMeasured(const std::string& command, double* seconds, long* peakKb) {
    const double start = nowSeconds();
    const pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) {
        ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    struct rusage usage {};
    if (::wait4(pid, &status, 0, &usage) != pid) return false;
    *seconds = nowSeconds() - start;
    *peakKb = usage.ru_maxrss;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
std::map<std::string, Totals> gTotals;  // "engine mp3", "ffmpeg flac", ...

void engineLoad(benchmark::State& state, const char* ext) {
    if (!corpus().ready) {
        state.SkipWithError("test audio could not be made");
        return;
    }
    const std::string command = wvtest::shellQuote(selfPath()) + " --load-child " +
                                wvtest::shellQuote(corpus().file(ext)) + " " + wvtest::shellQuote(corpus().dir + "/");
    Totals& totals = gTotals[std::string("engine ") + ext];
    for (auto _ : state) {
        FILE* pipe = ::popen(command.c_str(), "r");
        double seconds = 0;
        long peakKb = 0, riseKb = 0, heapKb = 0;
        int end = -1;
        const int fields =
            pipe ? std::fscanf(pipe, "%lf %ld %ld %ld %d", &seconds, &peakKb, &riseKb, &heapKb, &end) : 0;
        if (pipe) ::pclose(pipe);
        if (fields != 5 || end != 4) {
            state.SkipWithError("the engine's load did not finish");
            return;
        }
        state.SetIterationTime(seconds);
        totals.seconds += seconds;
        ++totals.runs;
        totals.peakMb = std::max(totals.peakMb, peakKb / 1024.0);
        totals.loadPeakMb = std::max(totals.loadPeakMb, riseKb / 1024.0);
        totals.heapMb = std::max(totals.heapMb, heapKb / 1024.0);
        std::remove((corpus().dir + "/1.pcm").c_str());
    }
    state.counters["peak_MB"] = totals.peakMb;
    state.counters["load_peak_MB"] = totals.loadPeakMb;
    state.counters["heap_MB"] = totals.heapMb;
    state.counters["x_realtime"] = kAudioSeconds * totals.runs / totals.seconds;
}

void ffmpegLoad(benchmark::State& state, const char* ext) {
    if (!corpus().ready) {
        state.SkipWithError("test audio could not be made");
        return;
    }
    const std::string out = corpus().dir + "/ffmpeg.raw";
    const std::string command = "ffmpeg -nostdin -hide_banner -loglevel error -i " +
                                wvtest::shellQuote(corpus().file(ext)) + " -f s16le -y " + wvtest::shellQuote(out) +
                                " </dev/null";
    Totals& totals = gTotals[std::string("ffmpeg ") + ext];
    for (auto _ : state) {
        double seconds = 0;
        long peakKb = 0;
        if (!runMeasured(command, &seconds, &peakKb)) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
        state.SetIterationTime(seconds);
        totals.seconds += seconds;
        ++totals.runs;
        totals.peakMb = std::max(totals.peakMb, peakKb / 1024.0);
    }
    std::remove(out.c_str());
    state.counters["peak_MB"] = totals.peakMb;
    state.counters["x_realtime"] = kAudioSeconds * totals.runs / totals.seconds;
}

void BM_EngineLoadMp3(benchmark::State& state) { engineLoad(state, "mp3"); }
void BM_FfmpegDecodeMp3(benchmark::State& state) { ffmpegLoad(state, "mp3"); }
void BM_EngineLoadFlac(benchmark::State& state) { engineLoad(state, "flac"); }
void BM_FfmpegDecodeFlac(benchmark::State& state) { ffmpegLoad(state, "flac"); }

BENCHMARK(BM_EngineLoadMp3)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_FfmpegDecodeMp3)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_EngineLoadFlac)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_FfmpegDecodeFlac)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

void printSummary() {
    std::printf("\n10 min 44.1 kHz stereo, loadFile to event 4, vs `ffmpeg -i X -f s16le -y out`:\n");
    for (const char* ext : {"mp3", "flac"}) {
        const Totals& engine = gTotals[std::string("engine ") + ext];
        const Totals& ffmpeg = gTotals[std::string("ffmpeg ") + ext];
        if (engine.runs == 0 || ffmpeg.runs == 0) continue;
        const double engineMean = engine.seconds / engine.runs;
        const double ffmpegMean = ffmpeg.seconds / ffmpeg.runs;
        std::printf("  %-4s engine %.3f s, ffmpeg %.3f s, ratio %.2f (target <= 1.00)\n", ext, engineMean, ffmpegMean,
                    engineMean / ffmpegMean);
        std::printf(
            "       peak memory: engine process %.1f MB, of it %.1f MB added by the load "
            "(%.1f MB heap; target < 30 MB); ffmpeg process %.1f MB\n",
            engine.peakMb, engine.loadPeakMb, engine.heapMb, ffmpeg.peakMb);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--load-child") == 0) return runChild(argv[2], argv[3]);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    printSummary();
    return 0;
}
