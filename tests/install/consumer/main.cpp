// An application's view of the library: only the installed headers.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/dsp.h>
#include <wavoryx/platform.h>

static std::atomic<int> gEvents{0};
static void onEvent(int, int, int, char*, void*) { ++gEvents; }

int main() {
    wavoryx_set_log_level(WAVORYX_LOG_FATAL);
    Wavoryx engine;
    engine.setCallback(onEvent);
    engine.startThreadLoop(0);
    const int list = engine.newClipList();
    const bool ok = list == 1 && engine.addClip(list, 42, 0, 100) == -1 && engine.getPcmDuration(list) == -3 &&
                    engine.setEncodePara(list, 44100, 128, 1, 1) == 0 && engine.getPcmChannelCount(list) == 2 &&
                    engine.removePcm(list) == list;
    engine.stopThreadLoop();
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
