// Encoding throughput of the output encoders, fed the way the render job
// feeds them: 16384-byte blocks of 44.1 kHz stereo 16-bit PCM, ten minutes
// per iteration. "x_realtime" is seconds of audio encoded per second.
#include <benchmark/benchmark.h>

#include <stdlib.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "codec/AudioEncoder.h"

namespace {

constexpr uint32_t kRate = 44100;
constexpr uint32_t kChannels = 2;
constexpr uint32_t kSeconds = 600;
constexpr int kBlockBytes = 16384;

// One second of two tones, looped to make the ten minutes.
const std::vector<int16_t>& oneSecond() {
    static const std::vector<int16_t> pcm = [] {
        std::vector<int16_t> v(kRate * kChannels);
        for (uint32_t i = 0; i < kRate; ++i) {
            v[i * 2] = static_cast<int16_t>(12000 * std::sin(2 * M_PI * 440.0 * i / kRate));
            v[i * 2 + 1] = static_cast<int16_t>(12000 * std::sin(2 * M_PI * 1250.0 * i / kRate));
        }
        return v;
    }();
    return pcm;
}

std::string scratchDir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/wavoryx-bench-XXXXXX";
    return mkdtemp(&templ[0]) ? templ : std::string();
}

void encodeTenMinutes(benchmark::State& state, wv::EncodeFormat type, uint32_t kbps) {
    const std::string dir = scratchDir();
    if (dir.empty()) {
        state.SkipWithError("no scratch directory");
        return;
    }
    const std::string path = dir + "/out" + wv::formatSuffix(type);
    const auto& second = oneSecond();
    const auto* bytes = reinterpret_cast<const char*>(second.data());
    const int secondBytes = static_cast<int>(second.size() * 2);
    long long fileBytes = 0;
    for (auto _ : state) {
        std::unique_ptr<wv::AudioEncoder> encoder(wv::AudioEncoder::createAudioEncoder(type, path.c_str()));
        if (!encoder || encoder->initEncoder(kRate, kChannels, kbps, 1) != 0) {
            state.SkipWithError("encoder could not start");
            break;
        }
        for (uint32_t s = 0; s < kSeconds; ++s) {
            for (int at = 0; at < secondBytes; at += kBlockBytes) {
                const int n = std::min(kBlockBytes, secondBytes - at);
                if (encoder->checkStatus() != 0 ||
                    encoder->encoding(reinterpret_cast<const int16_t*>(bytes + at), n) != 0) {
                    state.SkipWithError("write failed");
                    return;
                }
            }
        }
        encoder->finishEncoding();
        encoder.reset();
        if (FILE* f = std::fopen(path.c_str(), "rb")) {
            std::fseek(f, 0, SEEK_END);
            fileBytes = std::ftell(f);
            std::fclose(f);
        }
        std::remove(path.c_str());
    }
    ::rmdir(dir.c_str());
    state.SetBytesProcessed(state.iterations() * int64_t(kSeconds) * secondBytes);
    state.counters["x_realtime"] =
        benchmark::Counter(double(kSeconds) * state.iterations(), benchmark::Counter::kIsRate);
    state.counters["file_MB"] = fileBytes / 1e6;
}

void BM_Mp3Encode320kTenMinutes(benchmark::State& state) { encodeTenMinutes(state, wv::EncodeFormat::Mp3, 320); }
void BM_WavWriteTenMinutes(benchmark::State& state) { encodeTenMinutes(state, wv::EncodeFormat::Wav, 0); }

void BM_FlacEncodeTenMinutes(benchmark::State& state) { encodeTenMinutes(state, wv::EncodeFormat::Flac, 0); }
void BM_OpusEncode128kTenMinutes(benchmark::State& state) { encodeTenMinutes(state, wv::EncodeFormat::Opus, 128); }
void BM_AacEncode192kTenMinutes(benchmark::State& state) { encodeTenMinutes(state, wv::EncodeFormat::Aac, 192); }
void BM_VorbisEncode192kTenMinutes(benchmark::State& state) { encodeTenMinutes(state, wv::EncodeFormat::Vorbis, 192); }

BENCHMARK(BM_FlacEncodeTenMinutes)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_OpusEncode128kTenMinutes)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_AacEncode192kTenMinutes)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_VorbisEncode192kTenMinutes)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_Mp3Encode320kTenMinutes)->Unit(benchmark::kSecond)->Iterations(1)->UseRealTime();
BENCHMARK(BM_WavWriteTenMinutes)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
