// wavoryx-large: one long file through the public API, with the process's
// resident memory sampled all along. scripts/large-files runs it.
//
//   wavoryx-large DIR FILE [--render wav|mp3|none] [--play] [--at MS]...
//
// Loads FILE (working files in DIR/pcm/), then optionally renders the whole
// item to DIR/whole.wav or .mp3 and plays it to its end (on the null output;
// WAVORYX_DEVICE_PACE speeds that up). For every --at MS it renders one
// second from MS to DIR/at-MS.wav, for comparison with a reference decoder,
// and checks that a seek of the player there reports that position. Prints
// one line of figures per step; exit status 1 when a step fails.
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "EventRecorder.h"
#include "SoakLog.h"

namespace {

double now() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + ts.tv_nsec * 1e-9;
}

// Waits for one of `codes` for item `id`, sampling the memory every 50 ms.
// Returns the code, or -1 after `limitSeconds`.
struct Step {
    double seconds = 0;
    long rssStartKb = 0, rssMaxKb = 0, rssEndKb = 0;
};
int waitFor(const wvtest::EventRecorder& events, int id, std::vector<int> codes, double limitSeconds, Step* step) {
    const double start = now();
    step->rssStartKb = step->rssMaxKb = soak::rssKb();
    int code = -1;
    const auto ended = [&](const std::vector<wvtest::Event>& seen) {
        for (const wvtest::Event& e : seen) {
            if (e.id == id && std::find(codes.begin(), codes.end(), e.code) != codes.end()) {
                code = e.code;
                return true;
            }
        }
        return false;
    };
    while (!events.waitFor(ended, std::chrono::milliseconds(50))) {
        step->rssMaxKb = std::max(step->rssMaxKb, soak::rssKb());
        if (now() - start > limitSeconds) return -1;
    }
    step->seconds = now() - start;
    step->rssEndKb = soak::rssKb();
    step->rssMaxKb = std::max(step->rssMaxKb, step->rssEndKb);
    return code;
}

void report(const char* what, const Step& s, const std::string& extra) {
    std::printf("%-8s %8.1f s   rss start %6.1f MB, max %6.1f MB, end %6.1f MB (max growth %.1f MB)%s\n", what,
                s.seconds, s.rssStartKb / 1024.0, s.rssMaxKb / 1024.0, s.rssEndKb / 1024.0,
                (s.rssMaxKb - s.rssStartKb) / 1024.0, extra.c_str());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: wavoryx-large DIR FILE [--render wav|mp3|none] [--play] [--at MS]...\n");
        return 2;
    }
    const std::string dir = argv[1];
    const std::string file = argv[2];
    std::string render = "none";
    bool play = false;
    std::vector<unsigned> positions;
    for (int i = 3; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--render" && i + 1 < argc)
            render = argv[++i];
        else if (arg == "--play")
            play = true;
        else if (arg == "--at" && i + 1 < argc)
            positions.push_back(unsigned(std::strtoul(argv[++i], nullptr, 10)));
        else
            return 2;
    }
    const std::string work = dir + "/pcm/";
    mkdir(work.c_str(), 0777);
    wavoryx_set_audio_output("null");
    int failures = 0;
    wvtest::EventRecorder events;  // outlives the engine's callbacks
    {
        Wavoryx engine;
        engine.setWorkingDir(work.c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);

        Step step;
        const int id = engine.loadFile(file.c_str());
        if (waitFor(events, id, {0, 4, 5, 7}, 7200, &step) != 4) {
            std::printf("load failed\n");
            return 1;
        }
        const long long frames = engine.getPcmFrameLength(id);
        const int channels = engine.getPcmChannelCount(id);
        char extra[160];
        std::snprintf(extra, sizeof extra, "; %lld frames, %.2f GiB of PCM", frames,
                      double(frames) * 2 * channels / (1 << 30));
        report("load", step, extra);

        if (render != "none") {
            const int list = engine.newClipList();
            engine.addClip(list, id, 0, 0xFFFFFFFFu);
            const std::string out = dir + "/whole." + render;
            engine.setOutputPara(list, out.c_str(), render == "mp3" ? ENCODE_MP3 : ENCODE_WAV);
            engine.process(list);
            const int code = waitFor(events, list, {20, 22, 23, 25}, 7200, &step);
            struct stat st;
            const long long size = stat(out.c_str(), &st) == 0 ? (long long)st.st_size : -1;
            std::snprintf(extra, sizeof extra, "; %s %.2f GiB", out.c_str(), double(size) / (1 << 30));
            report(code == 22 ? "render" : "render!", step, extra);
            failures += code != 22;
            engine.removePcm(list);
            std::remove(out.c_str());
            std::remove((out + ".wave").c_str());
        }
        if (play) {
            engine.playStart(id);
            engine.playResume();
            const int code = waitFor(events, id, {42}, 7200, &step);
            report(code == 42 ? "play" : "play!", step, "");
            failures += code != 42;
            engine.playStop();
        }
        for (unsigned ms : positions) {
            const int list = engine.newClipList();
            engine.addClipMs(list, id, ms, ms + 1000);
            const std::string out = dir + "/at-" + std::to_string(ms) + ".wav";
            engine.setOutputPara(list, out.c_str(), ENCODE_WAV);
            engine.process(list);
            const int code = waitFor(events, list, {20, 22, 23, 25}, 600, &step);
            engine.removePcm(list);
            std::remove((out + ".wave").c_str());
            // The player seeks there too and reports the position it seeked.
            engine.playStart(id);
            engine.playSeekTo(int(ms));
            const int position = engine.getPlayPositionMs();
            engine.playStop();
            std::printf("at %u ms: render %s, play position %d ms\n", ms, code == 22 ? "ok" : "FAILED", position);
            failures += code != 22 || position != int(ms);
        }
        engine.removePcm(id);
        engine.stopThreadLoop();
    }
    return failures == 0 ? 0 : 1;
}
