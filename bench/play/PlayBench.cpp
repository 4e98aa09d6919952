// The player's fill, called as the output's thread would, for 10 ms of
// 44.1 kHz stereo (441 frames) at a time, from the PCM data (reader path)
// and from an MP3 file (media path). Counters: the median and the worst
// fill (and the 99th percentile) as a fraction of the 10 ms they fill;
// the worst is usually the first fill, which opens the file. StartLatency:
// playStart plus playResume to the first frame handed to a "null" output,
// in ms.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "base/Clock.h"
#include "engine/WavoryxPriv.h"
#include "platform/MediaService.h"
#include "play/AudioPlayer.h"

namespace {

constexpr int kRate = 44100;
constexpr double kSeconds = 30.0;
constexpr size_t kFillFrames = 441;  // 10 ms
constexpr size_t kFillBytes = kFillFrames * 4;

// A device that never takes a frame: the benchmark calls the fill itself.
class IdleDevice : public wv::AudioOutputDevice {
public:
    int32_t open(uint32_t, uint32_t, wv::AudioOutputClient*) override { return 0; }
    void close() override {}
    uint32_t deviceRate() const override { return 0; }
    size_t defaultBufferFrames(uint32_t) const override { return 4096; }
    const char* name() const override { return "idle"; }
};

std::unique_ptr<wv::AudioOutput> idleOutput(uint32_t rate, uint32_t mask, wv::AudioOutput::callback_t callback,
                                            void* user) {
    return std::unique_ptr<wv::AudioOutput>(
        new wv::AudioOutput(std::unique_ptr<wv::AudioOutputDevice>(new IdleDevice()), rate,
                            wv::AudioOutput::AUDIO_FORMAT_PCM_16_BIT, mask, 0, callback, user));
}

struct Corpus {
    std::string dir;
    bool ready = false;
    Corpus() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-play-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ;
        const std::vector<int16_t> tone = wvtest::makeTone(kRate, 2, kSeconds, 440.0);
        ready = wvtest::writeWav(dir + "/tone.wav", tone, kRate, 2) &&
                wvtest::encodeWithFfmpeg(dir + "/tone.wav", dir + "/tone.mp3", "-c:a libmp3lame -b:a 192k");
        wv::MediaService::connect();
    }
    ~Corpus() {
        wv::MediaService::disconnect();
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

Corpus& corpus() {
    static Corpus instance;
    return instance;
}

// An item over the corpus: the WAV read in place (PCM data present), or
// the MP3 with no PCM data yet (played from the file).
std::unique_ptr<wv::SPcmInfo> makeItem(bool pcmPresent) {
    std::unique_ptr<wv::SPcmInfo> item(new wv::SPcmInfo(pcmPresent ? wv::PCM_READY : wv::ENCODED_FILE));
    item->id = 1;
    if (pcmPresent) {
        item->sampleRate = kRate;
        item->channelCount = 2;
        item->frames = uint32_t(kSeconds * kRate);
        item->totalFrames = item->frames.load();
        item->path.set(corpus().dir + "/tone.wav");
    } else {
        item->path.set(corpus().dir + "/tone.mp3");
    }
    return item;
}

void fillCost(benchmark::State& state, bool pcmPresent) {
    if (!corpus().ready) {
        state.SkipWithError("test audio could not be made");
        return;
    }
    std::unique_ptr<wv::SPcmInfo> item = makeItem(pcmPresent);
    wv::AudioPlayer player(nullptr);
    player.setOutputFactory(&idleOutput);
    if (player.setDataSource(item->path.get().c_str()) != 0) {
        state.SkipWithError("no source");
        return;
    }
    player.setReader(item.get(), std::unique_ptr<wv::PcmInfoReader>(new wv::PcmInfoReader(item.get())));
    if (player.start(true) != 0 || player.usingReader() != pcmPresent) {
        state.SkipWithError("player did not start on the expected input");
        return;
    }
    std::vector<char> buffer(kFillBytes);
    std::vector<double> costs;
    costs.reserve(size_t(state.max_iterations));
    for (auto _ : state) {
        const int64_t start = wv::monotonicNs();
        const size_t got = player.fillBuffer(buffer.data(), kFillBytes);
        costs.push_back(double(wv::monotonicNs() - start) / 1e7);
        benchmark::DoNotOptimize(buffer.data());
        int32_t status;
        if (got < kFillBytes || player.reachedEOS(&status)) player.seekTo(0);
    }
    std::sort(costs.begin(), costs.end());
    state.counters["median_of_10ms"] = costs[costs.size() / 2];
    state.counters["p99_of_10ms"] = costs[costs.size() * 99 / 100];
    state.counters["worst_of_10ms"] = costs.back();
}

void BM_FillFromReader(benchmark::State& state) { fillCost(state, true); }
void BM_FillFromMediaFile(benchmark::State& state) { fillCost(state, false); }
BENCHMARK(BM_FillFromReader)->Iterations(20000);
BENCHMARK(BM_FillFromMediaFile)->Iterations(20000);

void BM_StartLatency(benchmark::State& state) {
    if (!corpus().ready) {
        state.SkipWithError("test audio could not be made");
        return;
    }
    wavoryx_set_audio_output("null");
    WavoryxPriv engine;
    for (auto _ : state) {
        auto* item = new wv::SPcmInfo(wv::PCM_READY);
        item->refs[wv::REF_CLIENT] = 1;
        const wv::pcm_id_t id = engine.infoList().add(item);
        item->sampleRate = kRate;
        item->channelCount = 2;
        item->frames = uint32_t(kSeconds * kRate);
        item->path.set(corpus().dir + "/tone.wav");
        const auto start = std::chrono::steady_clock::now();
        engine.playStart(id);
        engine.playResume(0);
        auto* player = static_cast<wv::AudioPlayer*>(item->player.get());
        while (player != nullptr && player->output()->framesHandedOut() == 0) {
            std::this_thread::yield();
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(took.count());
        engine.removePcm(id);
    }
    wavoryx_set_audio_output(nullptr);
}
BENCHMARK(BM_StartLatency)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(50);

}  // namespace

BENCHMARK_MAIN();
