// Throughput of the resamplers, in output frames per second, with the
// provider lending pieces of the size a PCM reader would (4096 frames): the
// linear kind for the common 22050 -> 44100 Hz stereo case and a
// downsampling case, the high-quality kinds for the common conversions.
// "x realtime" is output seconds made per second of one core.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/resample/AudioResampler.h"

namespace {

// Lends an endless looped signal in fixed-size pieces.
class LoopProvider : public wv::AudioBufferProvider {
public:
    LoopProvider(int channels, uint32_t frames) : mChannels(channels), mFrames(frames) {
        mSamples.resize(size_t(frames) * channels);
        uint32_t state = 1;
        for (auto& s : mSamples) {
            state = state * 1664525u + 1013904223u;
            s = static_cast<int16_t>(state >> 16);
        }
    }
    int32_t getNextBuffer(Buffer* buffer, int64_t) override {
        const uint32_t count = std::min(buffer->frameCount, mFrames);
        buffer->i16 = mSamples.data();
        buffer->frameCount = count;
        return 0;
    }
    void releaseBuffer(Buffer* buffer) override {
        buffer->raw = nullptr;
        buffer->frameCount = 0;
    }

private:
    int mChannels;
    uint32_t mFrames;
    std::vector<int16_t> mSamples;
};

void convert(benchmark::State& state, int channels, int32_t inRate, int32_t outRate,
             wv::AudioResampler::src_quality quality = wv::AudioResampler::SRC_DEFAULT) {
    constexpr size_t kOutFrames = 4096;
    LoopProvider provider(channels, 4096);
    std::unique_ptr<wv::AudioResampler> r(wv::AudioResampler::create(16, channels, outRate, quality));
    r->init();
    r->setVolume(1, 1);
    r->setSampleRate(inRate);
    std::vector<int16_t> out(kOutFrames * 2);
    for (auto _ : state) {
        std::fill(out.begin(), out.end(), 0);
        r->resample(out.data(), kOutFrames, &provider);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kOutFrames);
    state.counters["frames/s"] =
        benchmark::Counter(double(state.iterations()) * kOutFrames, benchmark::Counter::kIsRate);
    state.counters["x realtime"] =
        benchmark::Counter(double(state.iterations()) * kOutFrames / outRate, benchmark::Counter::kIsRate);
}

void BM_Stereo22050To44100(benchmark::State& state) { convert(state, 2, 22050, 44100); }
void BM_Mono22050To44100(benchmark::State& state) { convert(state, 1, 22050, 44100); }
void BM_Stereo48000To44100(benchmark::State& state) { convert(state, 2, 48000, 44100); }

constexpr auto kHigh = wv::AudioResampler::SRC_HQ_HIGH;
constexpr auto kVeryHigh = wv::AudioResampler::SRC_HQ_VERY_HIGH;
void BM_HighStereo44100To48000(benchmark::State& s) { convert(s, 2, 44100, 48000, kHigh); }
void BM_HighStereo48000To44100(benchmark::State& s) { convert(s, 2, 48000, 44100, kHigh); }
void BM_HighStereo44100To16000(benchmark::State& s) { convert(s, 2, 44100, 16000, kHigh); }
void BM_HighStereo22050To44100(benchmark::State& s) { convert(s, 2, 22050, 44100, kHigh); }
void BM_HighMono44100To48000(benchmark::State& s) { convert(s, 1, 44100, 48000, kHigh); }
void BM_HighStereo11025To192000(benchmark::State& s) { convert(s, 2, 11025, 192000, kHigh); }
void BM_VeryHighStereo44100To48000(benchmark::State& s) { convert(s, 2, 44100, 48000, kVeryHigh); }
void BM_VeryHighStereo48000To44100(benchmark::State& s) { convert(s, 2, 48000, 44100, kVeryHigh); }

}  // namespace

BENCHMARK(BM_Stereo22050To44100);
BENCHMARK(BM_Mono22050To44100);
BENCHMARK(BM_Stereo48000To44100);
BENCHMARK(BM_HighStereo44100To48000);
BENCHMARK(BM_HighStereo48000To44100);
BENCHMARK(BM_HighStereo44100To16000);
BENCHMARK(BM_HighStereo22050To44100);
BENCHMARK(BM_HighMono44100To48000);
BENCHMARK(BM_HighStereo11025To192000);
BENCHMARK(BM_VeryHighStereo44100To48000);
BENCHMARK(BM_VeryHighStereo48000To44100);

BENCHMARK_MAIN();
