// Cost and latency of the recorder worker, recording 44.1 kHz stereo from a
// generated file through the "file:PATH" input.
//
// Cost: CPU time of the recorder thread alone (capture threads excluded) per
// second of recorded audio, as a percentage of one core ("cpu_pct"). The
// input runs at 4 x real time for 8 s of audio; frames it may drop on a busy
// machine come back as silent fillers, which cost the same to record.
//
// Latency: at real-time pace, the delay from the moment the input produced
// the last frame of a 20 ms waveform point to the client callback carrying
// that point (event 80): mean, 95th percentile and maximum in ms. The
// reference is the arrival of event 61 (the start), so the figures include
// the input's 10 ms tick, the 512-frame block and the pacing of events.
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "base/Clock.h"
#include "engine/WavoryxPriv.h"
#include "record/RecorderThread.h"

namespace {

constexpr int kRate = 44100;
constexpr int kChannels = 2;

std::string scratchDir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/wavoryx-bench-XXXXXX";
    return mkdtemp(&templ[0]) ? templ : std::string();
}

// A canonical 16-bit WAV of two tones, one per channel.
bool writeInput(const std::string& path, int seconds) {
    const uint32_t frames = uint32_t(kRate * seconds);
    std::vector<int16_t> pcm(size_t(frames) * kChannels);
    for (uint32_t i = 0; i < frames; ++i) {
        pcm[2 * i] = int16_t(12000 * std::sin(2 * M_PI * 440.0 * i / kRate));
        pcm[2 * i + 1] = int16_t(9000 * std::sin(2 * M_PI * 660.0 * i / kRate));
    }
    const uint32_t bytes = uint32_t(pcm.size() * 2);
    auto put32 = [](uint8_t* p, uint32_t v) {
        for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
    };
    uint8_t header[44] = {
        'R',       'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V',           'E', 'f', 'm', 't', ' ', 16,  0,   0, 0, 1, 0,
        kChannels, 0,   0,   0,   0, 0, 0, 0, 0,   0,   kChannels * 2, 0,   16,  0,   'd', 'a', 't', 'a', 0, 0, 0, 0};
    put32(header + 4, 36 + bytes);
    put32(header + 24, kRate);
    put32(header + 28, kRate * kChannels * 2);
    put32(header + 40, bytes);
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    const bool ok = std::fwrite(header, 1, 44, f) == 44 && std::fwrite(pcm.data(), 2, pcm.size(), f) == pcm.size();
    return std::fclose(f) == 0 && ok;
}

// The client side: arrival times of events on the monotonic clock.
struct Arrivals {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::pair<int, int64_t>> events;  // code, microseconds

    static Arrivals& get() {
        static Arrivals arrivals;
        return arrivals;
    }
    static void callback(int code, int, int, char*, void*) {
        Arrivals& a = get();
        std::lock_guard<std::mutex> guard(a.lock);
        a.events.emplace_back(code, wv::monotonicUs());
        a.changed.notify_all();
    }
    void clear() {
        std::lock_guard<std::mutex> guard(lock);
        events.clear();
    }
    bool waitFor(int code) {
        std::unique_lock<std::mutex> guard(lock);
        return changed.wait_for(guard, std::chrono::seconds(30), [&] {
            for (const auto& e : events) {
                if (e.first == code) return true;
            }
            return false;
        });
    }
};

// A recorder worker whose thread's CPU clock can be read.
class TimedRecorder : public wv::RecorderThread {
public:
    using wv::RecorderThread::RecorderThread;
    double cpuSeconds() {
        clockid_t clock;
        if (pthread_getcpuclockid(launchedThreadHandle(), &clock) != 0) return 0;
        timespec ts{};
        clock_gettime(clock, &ts);
        return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
    }
};

struct Session {
    explicit Session(const char* pace) : dir(scratchDir()) {
        wavoryx_set_log_level(WAVORYX_LOG_ERROR);
        setenv("WAVORYX_DEVICE_PACE", pace, 1);
        input = dir + "/in.wav";
        ok = !dir.empty() && writeInput(input, 10) && wavoryx_set_audio_input(("file:" + input).c_str()) == 0;
        Arrivals::get().clear();
        engine.setCallback(Arrivals::callback);
        engine.setWorkingDir((dir + "/").c_str());
        engine.startThreadLoop(0);
    }
    ~Session() {
        engine.stopThreadLoop();
        wavoryx_set_audio_input(nullptr);
        unsetenv("WAVORYX_DEVICE_PACE");
        std::remove(input.c_str());
        std::remove(output.c_str());
        std::remove((output + ".wave").c_str());
        std::remove(dir.c_str());
        wavoryx_set_log_level(WAVORYX_LOG_WARN);
    }
    wv::pcm_id_t addItem(encode_type type, int effect) {
        auto* item = new wv::SPcmInfo(wv::RECORDING);
        item->refs[wv::REF_CLIENT] = 1;
        item->refs[wv::REF_RECORDER] = 1;
        item->sampleRate = kRate;
        item->channelCount = kChannels;
        item->changeRenderSettings([type, effect](wv::RenderSettings& s) {
            s.sampleRate = kRate;
            s.channels = kChannels;
            s.bitRate = 128;
            s.type = type;
            if (effect == 1) s.pitch = -4.0f;
            if (effect == 2) s.pitch = 4.0f;
            if (effect == 3) s.pitch = 9.0f;
            if (effect == 4) s.robot = 1;
        });
        output = dir + (type == ENCODE_MP3 ? "/out.mp3" : "/out.wav");
        item->path.set(output);
        return engine.infoList().add(item);
    }
    bool waitForFrames(wv::pcm_id_t id, uint32_t frames) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (engine.getPcmFrameLength(id) < int32_t(frames)) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    std::string dir, input, output;
    bool ok = false;
    WavoryxPriv engine;
};

void BM_RecorderCost(benchmark::State& state, encode_type type, int effect) {
    for (auto _ : state) {
        Session session("4");
        if (!session.ok) {
            state.SkipWithError("cannot prepare the input");
            return;
        }
        const wv::pcm_id_t id = session.addItem(type, effect);
        TimedRecorder recorder(session.engine.jobContext());
        recorder.launch();
        recorder.sendCmd(wv::WVThreadCmd(wv::RecorderThread::kCmdStart, id, -1), 7);
        if (!session.waitForFrames(id, 8 * kRate)) {
            state.SkipWithError("the recording did not advance");
            recorder.exit();
            return;
        }
        const double cpu = recorder.cpuSeconds();
        const double audio = double(session.engine.getPcmFrameLength(id)) / kRate;
        recorder.cancelCmd(wv::WVThreadCmd(wv::RecorderThread::kCmdRecord, id, -1));
        Arrivals::get().waitFor(63);
        recorder.exit();
        state.counters["cpu_pct"] = 100.0 * cpu / audio;
        state.counters["audio_s"] = audio;
    }
}

void BM_WaveformLatency(benchmark::State& state) {
    for (auto _ : state) {
        Session session("1");
        if (!session.ok) {
            state.SkipWithError("cannot prepare the input");
            return;
        }
        const int32_t id = session.engine.recordStart("", ENCODE_WAV, kRate, kChannels, 0, 1, 0);
        session.output = session.dir + "/" + std::to_string(id) + ".wav";
        session.waitForFrames(uint32_t(id), 3 * kRate);
        session.engine.recordStop();
        Arrivals::get().waitFor(63);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));  // trailing levels
        std::vector<double> delays;
        {
            Arrivals& a = Arrivals::get();
            std::lock_guard<std::mutex> guard(a.lock);
            int64_t startUs = -1;
            int point = 0;
            for (const auto& e : a.events) {
                if (e.first == 61) startUs = e.second;
                if (e.first != 80 || startUs < 0) continue;
                ++point;
                delays.push_back(double(e.second - startUs - int64_t(point) * 20000) / 1000.0);
            }
        }
        if (delays.size() < 20) {
            state.SkipWithError("too few levels");
            return;
        }
        // The first points carry the start-up of the input.
        delays.erase(delays.begin(), delays.begin() + 5);
        std::sort(delays.begin(), delays.end());
        double sum = 0;
        for (double d : delays) sum += d;
        state.counters["mean_ms"] = sum / double(delays.size());
        state.counters["p95_ms"] = delays[delays.size() * 95 / 100];
        state.counters["max_ms"] = delays.back();
    }
}

}  // namespace

BENCHMARK_CAPTURE(BM_RecorderCost, wav, ENCODE_WAV, 0)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RecorderCost, mp3, ENCODE_MP3, 0)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RecorderCost, mp3_male, ENCODE_MP3, 1)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RecorderCost, mp3_female, ENCODE_MP3, 2)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RecorderCost, mp3_female_high, ENCODE_MP3, 3)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RecorderCost, mp3_robot, ENCODE_MP3, 4)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WaveformLatency)->Iterations(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
