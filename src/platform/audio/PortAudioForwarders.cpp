// The PortAudio functions the audio layer calls, forwarded to the library
// opened by loadPortAudio(). The definitions carry the prototypes of
// portaudio.h, so a mismatch does not compile.
#include "platform/audio/PortAudioForwarders.h"

#include <portaudio.h>

#include "platform/LazyLibraries.h"

namespace wv {
namespace {

// PortAudio v19 has kept this name since its first release.
const char* const kSonames[] = {"libportaudio.so.2", nullptr};

LazyLibraries& portAudio() {
    static LazyLibraries libraries(kSonames, nullptr);
    return libraries;
}

}  // namespace

bool loadPortAudio() { return portAudio().load(); }

}  // namespace wv

// The forwarders below read as a table of signatures, one a line; the
// formatter would split them and space the pointers of macro arguments.
// clang-format off
#define WV_FORWARD(ret, name, params, args)                                                              \
    extern "C" ret name params {                                                                         \
        static const auto real = reinterpret_cast<decltype(&::name)>(wv::portAudio().symbolOrDie(#name)); \
        return real args;                                                                                \
    }

WV_FORWARD(PaError, Pa_Initialize, (void), ())
WV_FORWARD(PaError, Pa_Terminate, (void), ())
WV_FORWARD(const char*, Pa_GetErrorText, (PaError error), (error))
WV_FORWARD(PaDeviceIndex, Pa_GetDefaultInputDevice, (void), ())
WV_FORWARD(PaDeviceIndex, Pa_GetDefaultOutputDevice, (void), ())
WV_FORWARD(const PaDeviceInfo*, Pa_GetDeviceInfo, (PaDeviceIndex device), (device))
WV_FORWARD(PaError, Pa_IsFormatSupported,
           (const PaStreamParameters* input, const PaStreamParameters* output, double rate),
           (input, output, rate))
WV_FORWARD(PaError, Pa_OpenStream,
           (PaStream** stream, const PaStreamParameters* input, const PaStreamParameters* output, double rate,
            unsigned long framesPerBuffer, PaStreamFlags flags, PaStreamCallback* callback, void* userData),
           (stream, input, output, rate, framesPerBuffer, flags, callback, userData))
WV_FORWARD(PaError, Pa_StartStream, (PaStream* stream), (stream))
WV_FORWARD(PaError, Pa_StopStream, (PaStream* stream), (stream))
WV_FORWARD(PaError, Pa_AbortStream, (PaStream* stream), (stream))
WV_FORWARD(PaError, Pa_CloseStream, (PaStream* stream), (stream))
WV_FORWARD(const PaStreamInfo*, Pa_GetStreamInfo, (PaStream* stream), (stream))
// clang-format on
