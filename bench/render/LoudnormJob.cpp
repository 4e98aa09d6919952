// One loudness-normalised render per invocation, over the public API only,
// for timing the whole process from outside next to ffmpeg's two-pass
// loudnorm (bench/compare/loudnorm):
//
//   wavoryx-loudnorm-job SRC OUT [LUFS-TENTHS [DBTP-TENTHS]]
//
// loads SRC, makes a list of all of it and renders it to OUT as WAV
// normalised to LUFS-TENTHS (default -160) under DBTP-TENTHS (default -10).
// The engine's working files go to a scratch directory that is removed at
// the end. Prints "load <s>" and "render <s>" (from the first engine call
// to the render's last event); exit status 0 when the render finished, 1
// when it failed, 2 on wrong usage.
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>

#include <wavoryx/Wavoryx.h>

namespace {

class Endings {
public:
    void post(int code, int id) {
        std::lock_guard<std::mutex> guard(mLock);
        mLast[id] = code;
        mChanged.notify_all();
    }
    int waitFor(int id, std::initializer_list<int> codes) {
        std::unique_lock<std::mutex> lock(mLock);
        for (;;) {
            auto it = mLast.find(id);
            if (it != mLast.end()) {
                for (int code : codes) {
                    if (it->second == code) return code;
                }
            }
            mChanged.wait(lock);
        }
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::map<int, int> mLast;
};

Endings gEndings;

void onEvent(int code, int id, int, char*, void*) {
    switch (code) {
        case WV_EVENT_LOAD_FAILED:
        case WV_EVENT_LOAD_DONE:
        case WV_EVENT_LOAD_CANCELLED:
        case WV_EVENT_LOAD_NO_SPACE:
        case WV_EVENT_RENDER_FAILED:
        case WV_EVENT_RENDER_DONE:
        case WV_EVENT_RENDER_CANCELLED:
        case WV_EVENT_RENDER_STOPPED: gEndings.post(code, id); break;
        default: break;
    }
}

double nowSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

int run(const char* source, const char* output, int lufs, int peak, const std::string& work) {
    Wavoryx engine;
    engine.setWorkingDir(work.c_str());
    engine.setCallback(onEvent);
    engine.startThreadLoop(0);
    int status = 1;
    const double start = nowSeconds();
    const int id = engine.loadFile(source);
    const int loaded = id > 0 ? gEndings.waitFor(id, {WV_EVENT_LOAD_FAILED, WV_EVENT_LOAD_DONE, WV_EVENT_LOAD_CANCELLED,
                                                      WV_EVENT_LOAD_NO_SPACE})
                              : -1;
    const double loadedAt = nowSeconds();
    if (loaded == WV_EVENT_LOAD_DONE) {
        const int list = engine.newClipList();
        const int frames = engine.getPcmFrameLength(id);
        if (engine.addClip(list, id, 0, unsigned(frames)) > 0 && engine.setOutputPara(list, output, ENCODE_WAV) == 0 &&
            engine.setListLoudness(list, lufs, peak) == 0 && engine.process(list) == 0) {
            const int end = gEndings.waitFor(list, {WV_EVENT_RENDER_FAILED, WV_EVENT_RENDER_DONE,
                                                    WV_EVENT_RENDER_CANCELLED, WV_EVENT_RENDER_STOPPED});
            if (end == WV_EVENT_RENDER_DONE)
                status = 0;
            else
                std::fprintf(stderr, "wavoryx-loudnorm-job: render ended with event %d\n", end);
        }
        engine.removePcm(list);
    } else {
        std::fprintf(stderr, "wavoryx-loudnorm-job: load of %s ended with event %d\n", source, loaded);
    }
    const double end = nowSeconds();
    engine.removePcm(id);
    engine.stopThreadLoop();
    std::printf("load %.3f\nrender %.3f\n", loadedAt - start, end - loadedAt);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || argc > 5) {
        std::fprintf(stderr, "usage: wavoryx-loudnorm-job SRC OUT [LUFS-TENTHS [DBTP-TENTHS]]\n");
        return 2;
    }
    const int lufs = argc > 3 ? std::atoi(argv[3]) : -160;
    const int peak = argc > 4 ? std::atoi(argv[4]) : -10;
    std::string templ = (std::filesystem::temp_directory_path() / "wavoryx-loudnorm-XXXXXX").string();
    if (mkdtemp(templ.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const int status = run(argv[1], argv[2], lufs, peak, templ + "/");
    std::error_code ignored;
    std::filesystem::remove_all(templ, ignored);
    return status;
}
