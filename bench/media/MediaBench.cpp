// Whole-file decoding through the load path (AudioDecoder), reading a WAV
// in place, and seeking. Counters: "x_realtime" is seconds of audio decoded
// per second of wall time.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "AudioFixtures.h"
#include "load/AudioDecoder.h"
#include "platform/MediaService.h"
#include "platform/media/AudioCodec.h"
#include "platform/media/DataSource.h"
#include "platform/media/MediaExtractor.h"

namespace {

constexpr double kSeconds = 20.0;

struct Corpus {
    std::string dir;
    bool ready = false;
    Corpus() {
        std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-media-bench-XXXXXX").string();
        if (mkdtemp(templ.data()) == nullptr) return;
        dir = templ;
        const std::string wav = dir + "/tone.wav";
        ready = wvtest::writeToneWav(wav, 44100, 2, kSeconds, 440.0) &&
                wvtest::encodeWithFfmpeg(wav, dir + "/tone.mp3", "-c:a libmp3lame -b:a 192k") &&
                wvtest::encodeWithFfmpeg(wav, dir + "/tone.m4a", "-c:a aac") &&
                wvtest::encodeWithFfmpeg(wav, dir + "/tone.ogg", "-c:a libvorbis") &&
                wvtest::encodeWithFfmpeg(wav, dir + "/tone.flac", "-c:a flac");
        wv::MediaService::connect();
    }
    ~Corpus() {
        wv::MediaService::disconnect();
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
};

Corpus& corpus() {
    static Corpus c;
    return c;
}

void decodeWhole(benchmark::State& state, const char* name) {
    if (!corpus().ready) {
        state.SkipWithError("test audio could not be made");
        return;
    }
    const std::string path = corpus().dir + "/" + name;
    int64_t bytes = 0;
    for (auto _ : state) {
        wv::AudioDecoder decoder;
        int rate, format, channels;
        int64_t durationUs = 0;
        bool raw = false;
        if (decoder.load(path.c_str(), &rate, &format, &channels, &durationUs, &raw) != 0) {
            state.SkipWithError("load failed");
            return;
        }
        char* data;
        unsigned length;
        while (decoder.getDataBuffer(&data, &length) == 0) {
            bytes += length;
            decoder.freeBuffer();
        }
    }
    state.SetBytesProcessed(bytes);
    state.counters["x_realtime"] =
        benchmark::Counter(kSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
}

void BM_DecodeMp3(benchmark::State& state) { decodeWhole(state, "tone.mp3"); }
void BM_DecodeAac(benchmark::State& state) { decodeWhole(state, "tone.m4a"); }
void BM_DecodeVorbis(benchmark::State& state) { decodeWhole(state, "tone.ogg"); }
void BM_DecodeFlac(benchmark::State& state) { decodeWhole(state, "tone.flac"); }

void BM_ReadWavInPlace(benchmark::State& state) {
    const std::string path = corpus().dir + "/tone.wav";
    int64_t bytes = 0;
    for (auto _ : state) {
        auto extractor = wv::MediaExtractor::Create(wv::DataSource::CreateFromURI(path.c_str()));
        auto track = extractor->getTrack(0);
        track->start();
        wv::MediaBuffer* buffer;
        while (track->read(&buffer) == wv::OK) {
            bytes += int64_t(buffer->range_length());
            buffer->release();
        }
        track->stop();
    }
    state.SetBytesProcessed(bytes);
    state.counters["x_realtime"] =
        benchmark::Counter(kSeconds * double(state.iterations()), benchmark::Counter::kIsRate);
}

// Seek to a point and get the first buffer there, as a player does.
void BM_SeekAndRead(benchmark::State& state, const char* name) {
    const std::string path = corpus().dir + "/" + name;
    auto extractor = wv::MediaExtractor::Create(wv::DataSource::CreateFromURI(path.c_str()));
    std::shared_ptr<wv::MediaSource> source;
    for (size_t i = 0; i < extractor->countTracks() && !source; ++i) {
        source = wv::AudioCodec::Create(extractor->getTrackMetaData(i), extractor->getTrack(i));
    }
    if (!source || source->start() != wv::OK) {
        state.SkipWithError("no decoder");
        return;
    }
    int64_t target = 0;
    for (auto _ : state) {
        wv::MediaSource::ReadOptions options;
        target = (target + 3700000) % int64_t(kSeconds * 1e6);
        options.setSeekTo(target);
        wv::MediaBuffer* buffer = nullptr;
        if (source->read(&buffer, &options) == wv::OK) buffer->release();
    }
    source->stop();
}

BENCHMARK(BM_DecodeMp3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeAac)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeVorbis)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeFlac)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadWavInPlace)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_SeekAndRead, mp3, "tone.mp3")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_SeekAndRead, ogg, "tone.ogg")->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
