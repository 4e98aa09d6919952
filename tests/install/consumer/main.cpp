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
                    engine.waitForJob(list, WV_JOB_ANY, 0, nullptr) == WV_ERR_WRONG_ITEM &&
                    engine.removePcm(list) == list;
    char file[8];
    const bool named = wavoryx_audio_device_file("file:a.wav", file, sizeof file) == 5 &&
                       wavoryx_file_format("/nonexistent/a.flac", file, sizeof file, nullptr) == 4;
    engine.stopThreadLoop();
    std::printf("consumer: %s\n", ok && named ? "ok" : "FAILED");
    return ok && named ? 0 : 1;
}
