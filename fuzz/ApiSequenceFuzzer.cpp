// Arbitrary sequences of public operations with small arguments against one
// engine: every byte picks an operation, the following bytes its arguments
// (ids 0..7 and a few bad ones, numbers from short tables of ordinary and
// extreme values). Loads use a few tiny files made at start-up, playback
// goes to a file: output and recording comes from the silence or tone:
// inputs, all sped up. When the sequence is done every job still running is
// cancelled, and each job must then have ended exactly once.
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "FuzzSupport.h"

using namespace wvfuzz;

namespace {

constexpr size_t kMaxOperations = 48;

template <typename T, size_t N>
T pick(const T (&table)[N], uint8_t byte) {
    return table[byte % N];
}

// The input, read one byte at a time; zeros after its end.
class Reader {
public:
    Reader(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
    bool done() const { return mPos >= mSize; }
    uint8_t next() { return mPos < mSize ? mData[mPos++] : 0; }

private:
    const uint8_t* mData;
    size_t mSize;
    size_t mPos = 0;
};

const int kIds[] = {1, 2, 3, 4, 5, 6, 7, 0, -1, INT_MIN, INT_MAX};
const unsigned kFrames[] = {0, 1, 100, 800, 1600, 4000, 0x7FFFFFFFu, 0xFFFFFFFFu};
const unsigned kMs[] = {0, 1, 20, 50, 100, 250, 1000, 0xFFFFFFFFu};
const int kRates[] = {0, 8000, 11025, 22050, 44100, 48000, -1, 1, 96000};
const int kBitRates[] = {0, 8, 32, 128, 320, 1000, -5};
const int kChannels[] = {0, 1, 2, 3, 6, -1};
const unsigned kCounts[] = {0, 1, 7, 64, 255};
const int kSeeks[] = {0, 20, 100, 1000000, -1, INT_MIN, INT_MAX};
const int kSpeeds[] = {1, 2, 3, -1, -2, 0, INT_MIN, INT_MAX};
const int kTypes[] = {ENCODE_WAV, ENCODE_MP3, 2, -1};

// Files made once per process, and the input choices of a load.
struct Sources {
    explicit Sources(const ScratchDir& dir) {
        const std::string wav = dir.file("mono8k.wav");
        wvtest::writeToneWav(wav, 8000, 1, 0.2, 440);
        paths.push_back(wav);
        const std::string stereo = dir.file("stereo44k.wav");
        wvtest::writeToneWav(stereo, 44100, 2, 0.1, 1000);
        paths.push_back(stereo);
        const std::string mp3 = dir.file("tone.mp3");
        if (wvtest::ffmpegAvailable() && wvtest::encodeWithFfmpeg(wav, mp3, "-c:a libmp3lame")) {
            paths.push_back(mp3);
        }
        const std::string junk = dir.file("junk.bin");
        const uint8_t bytes[] = {'n', 'o', 't', ' ', 'a', 'u', 'd', 'i', 'o'};
        writeBytes(junk, bytes, sizeof bytes);
        paths.push_back(junk);
        paths.push_back(dir.file("missing.wav"));
        paths.push_back("");
    }
    std::vector<std::string> paths;
};

struct Process {
    Process() : sources(files) { setenv("WAVORYX_DEVICE_PACE", "50", 1); }
    ScratchDir files;
    ScratchDir work;
    Sources sources;
};

// Jobs started by the sequence: per item id, how many.
struct Jobs {
    std::map<int, int> loads, renders, recordings;
};

class Sequence {
public:
    Sequence(Process& p, Reader& in) : mP(p), mIn(in), mEngine(new Engine(p.work.prefix())) {
        wavoryx_set_audio_output(("file:" + p.work.file("played.wav")).c_str());
        wavoryx_set_audio_input("silence");
    }

    void run() {
        for (size_t i = 0; i < kMaxOperations && !mIn.done(); ++i) step(mIn.next());
        finish();
    }

private:
    Wavoryx& api() { return mEngine->api(); }
    int id() { return pick(kIds, mIn.next()); }
    std::string outPath(const char* suffix) {
        switch (mIn.next() % 4) {
            case 0: return "";
            case 1: return mP.work.file(std::string("out") + suffix);
            case 2: return mP.work.file(std::string("missing/out") + suffix);
            default: return mP.work.file(std::string("other") + suffix);
        }
    }

    void step(uint8_t op) {
        uint8_t points[256];
        switch (op % 30) {
            case 0: {
                const std::string& path = mP.sources.paths[mIn.next() % mP.sources.paths.size()];
                const int id = api().loadFile(mIn.next() % 8 == 0 ? nullptr : path.c_str());
                if (id > 0) ++mJobs.loads[id];
                break;
            }
            case 1: api().cancelLoadFile(id()); break;
            case 2: api().removePcm(id()); break;
            case 3: api().getPcmSampleRate(id()); break;
            case 4: api().getPcmChannelCount(id()); break;
            case 5: api().getPcmFrameLength(id()); break;
            case 6: api().getPcmDuration(id()); break;
            case 7: {
                const int item = id();
                const unsigned start = pick(kMs, mIn.next()), end = pick(kMs, mIn.next());
                const unsigned count = pick(kCounts, mIn.next());
                api().getWaveformSamples(item, start, end, count, mIn.next() % 8 ? points : nullptr);
                break;
            }
            case 8: api().newClipList(); break;
            case 9: {
                const int list = id(), item = id();
                api().addClip(list, item, pick(kFrames, mIn.next()), pick(kFrames, mIn.next()));
                break;
            }
            case 10: {
                const int list = id(), item = id();
                api().addClipMs(list, item, pick(kMs, mIn.next()), pick(kMs, mIn.next()));
                break;
            }
            case 11: {
                const int list = id();
                const int type = pick(kTypes, mIn.next());
                const std::string path = outPath(type == ENCODE_MP3 ? ".mp3" : ".wav");
                api().setOutputPara(list, mIn.next() % 8 ? path.c_str() : nullptr, static_cast<encode_type>(type));
                break;
            }
            case 12: {
                const int list = id();
                const int rate = pick(kRates, mIn.next()), bits = pick(kBitRates, mIn.next());
                const int channels = pick(kChannels, mIn.next());
                api().setEncodePara(list, rate, bits, channels, mIn.next() % 2);
                break;
            }
            case 13: {
                const int list = id();
                if (api().process(list) == 0) ++mJobs.renders[list];
                break;
            }
            case 14: api().cancelProcess(id()); break;
            case 15: api().playStart(id()); break;
            case 16: api().playPause(); break;
            case 17: api().playResume(); break;
            case 18: api().playStop(); break;
            case 19: api().playSeekTo(pick(kSeeks, mIn.next())); break;
            case 20: api().setPlaySpeed(pick(kSpeeds, mIn.next())); break;
            case 21: api().getPlayPositionMs(); break;
            case 22: {
                wavoryx_set_audio_input(mIn.next() % 2 ? "silence" : "tone:440");
                const int type = pick(kTypes, mIn.next());
                const std::string path = outPath(type == ENCODE_MP3 ? ".mp3" : ".wav");
                const int rate = pick(kRates, mIn.next()), channels = pick(kChannels, mIn.next());
                const int bits = pick(kBitRates, mIn.next());
                const int id =
                    api().recordStart(mIn.next() % 8 ? path.c_str() : nullptr, static_cast<encode_type>(type), rate,
                                      channels, bits, 1, mIn.next() % 6);
                if (id > 0) ++mJobs.recordings[id];
                break;
            }
            case 23: api().recordPause(); break;
            case 24: api().recordResume(); break;
            case 25: api().recordStop(); break;
            case 26: std::this_thread::sleep_for(std::chrono::milliseconds(mIn.next() % 16)); break;
            case 27: api().setThreadPriority(mIn.next() % 3); break;
            case 28:
                api().setWorkingDir(mIn.next() % 4 ? mP.work.prefix().c_str() : mP.work.file("missing/").c_str());
                break;
            default:
                // Events wait while no loop runs, and are delivered after.
                api().stopThreadLoop();
                api().startThreadLoop(0);
                api().dump();
                break;
        }
    }

    // Ends every job and checks that each ended exactly once.
    void finish() {
        api().playStop();
        api().recordStop();
        for (const auto& job : mJobs.loads) api().cancelLoadFile(job.first);
        // A cancel takes one queued render: a list processed twice needs two.
        for (const auto& job : mJobs.renders) {
            for (int i = 0; i < job.second; ++i) api().cancelProcess(job.first);
        }
        waitForAll(mJobs.loads, endsLoad, "load");
        waitForAll(mJobs.renders, endsRender, "render");
        waitForAll(mJobs.recordings, endsRecording, "recording");
        mEngine.reset();
        // Nothing may end after the engine is gone, nor twice meanwhile.
        checkExact(mJobs.loads, endsLoad, "load");
        checkExact(mJobs.renders, endsRender, "render");
        checkExact(mJobs.recordings, endsRecording, "recording");
    }

    void waitForAll(const std::map<int, int>& jobs, bool (*ends)(int), const char* kind) {
        for (const auto& job : jobs) {
            const int id = job.first, started = job.second;
            const auto allEnded = [&](const std::vector<Event>& events) {
                return int(countEndings(events, id, ends)) >= started;
            };
            const bool ended = eventLog().waitFor(allEnded, std::chrono::seconds(20));
            if (!ended) fail("%s of item %d: %d started, not all ended", kind, id, started);
        }
    }

    void checkExact(const std::map<int, int>& jobs, bool (*ends)(int), const char* kind) {
        for (const auto& job : jobs) {
            const size_t n = countEndings(eventLog().events(), job.first, ends);
            if (n != size_t(job.second)) {
                fail("%s of item %d: %d started, %zu ended", kind, job.first, job.second, n);
            }
        }
    }

    Process& mP;
    Reader& mIn;
    std::unique_ptr<Engine> mEngine;
    Jobs mJobs;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Process& p = wvfuzz::processState<Process>();
    eventLog().clear();
    Reader in(data, size);
    Sequence(p, in).run();
    p.work.empty();
    return 0;
}
