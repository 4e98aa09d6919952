#define WV_LOG_TAG "AudioDevice"
#include "platform/audio/PortAudioSession.h"

#include <dlfcn.h>
#include <portaudio.h>

#include <cstdlib>
#include <mutex>

#include "base/Log.h"
#include "platform/audio/PortAudioForwarders.h"

namespace wv {
namespace {

std::mutex gSessionLock;
int gUsers = 0;
bool gQuieted = false;

void quietAlsa(const char*, int, const char*, int, const char*, ...) {}
void quietJack(const char*) {}

// The back-end libraries are loaded with PortAudio; their handlers are found
// at run time so that we do not link them ourselves.
void quietBackends() {
    using AlsaHandler = void (*)(const char*, int, const char*, int, const char*, ...);
    using JackHandler = void (*)(const char*);
    if (void* setAlsa = dlsym(RTLD_DEFAULT, "snd_lib_error_set_handler")) {
        reinterpret_cast<int (*)(AlsaHandler)>(setAlsa)(quietAlsa);
    }
    for (const char* name : {"jack_set_error_function", "jack_set_info_function"}) {
        if (void* setJack = dlsym(RTLD_DEFAULT, name)) {
            reinterpret_cast<void (*)(JackHandler)>(setJack)(quietJack);
        }
    }
    setenv("JACK_NO_START_SERVER", "1", 0);
}

}  // namespace

bool PortAudioSession::acquire() {
    std::lock_guard<std::mutex> guard(gSessionLock);
    // Before quietBackends, which finds the back ends' handlers among the
    // loaded libraries.
    if (!loadPortAudio()) {
        WV_LOGE("audio system unavailable: PortAudio cannot be loaded");
        return false;
    }
    if (!gQuieted) {
        quietBackends();
        gQuieted = true;
    }
    const PaError err = Pa_Initialize();
    if (err != paNoError) {
        WV_LOGE("audio system unavailable: %s", Pa_GetErrorText(err));
        return false;
    }
    ++gUsers;
    return true;
}

void PortAudioSession::release() {
    std::lock_guard<std::mutex> guard(gSessionLock);
    if (gUsers == 0) return;
    --gUsers;
    Pa_Terminate();
}

}  // namespace wv
