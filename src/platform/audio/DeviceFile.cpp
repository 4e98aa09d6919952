// The file a device text names, for applications that check it as the
// library reads it (see wavoryx_audio_device_file).
#include <cstring>
#include <string>

#include <wavoryx/platform.h>

#include "platform/audio/DeviceSelection.h"

extern "C" int wavoryx_audio_device_file(const char* spec, char* path, unsigned int size) {
    if (spec == nullptr || path == nullptr || size == 0) return -1;
    const std::string file = wv::kindArgument(spec, "file");
    const size_t n = file.size() < size - 1 ? file.size() : size - 1;
    std::memcpy(path, file.data(), n);
    path[n] = '\0';
    return static_cast<int>(file.size());
}
