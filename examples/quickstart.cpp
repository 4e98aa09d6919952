// The smallest application of the library: an engine, a callback loop on an
// engine thread, a clip list cut from the files named on the command line,
// and every event it hears, printed as it arrives.
//
//   wavoryx_quickstart [FILE...]
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include <wavoryx/Wavoryx.h>

static std::atomic<int> gEvents{0};

static void onEvent(int code, int id, int value, char*, void*) {
    std::printf("  event %d for item %d, value %d\n", code, id, value);
    std::fflush(stdout);
    ++gEvents;
}

int main(int argc, char** argv) {
    char workTemplate[] = "/tmp/wavoryx-quickstart-XXXXXX";
    const char* workDir = mkdtemp(workTemplate);
    if (workDir == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const std::string prefix = std::string(workDir) + "/";

    Wavoryx engine;
    engine.setWorkingDir(prefix.c_str());
    engine.setCallback(onEvent);
    engine.startThreadLoop(0);
    std::printf("engine created, working directory %s\n", prefix.c_str());

    const int list = engine.newClipList();
    std::printf("clip list %d\n", list);
    for (int i = 1; i < argc; ++i) {
        const int item = engine.loadFile(argv[i]);
        const int clip = engine.addClipMs(list, item, 0, 5000);
        std::printf("loading %s as item %d; its first 5 s are clip %d\n", argv[i], item, clip);
    }
    engine.setEncodePara(list, 44100, 128, 2, 0);
    std::printf("list %d: %d Hz, %d channels, duration %d (-3: known once rendering starts)\n",
                list, engine.getPcmSampleRate(list), engine.getPcmChannelCount(list),
                engine.getPcmDuration(list));

    std::this_thread::sleep_for(std::chrono::seconds(argc > 1 ? 3 : 0));
    engine.stopThreadLoop();
    std::printf("%d event(s) heard; engine stopped\n", gEvents.load());
    std::remove(workDir);
    return 0;
}
