// The last step of choosing an audio input or output: open the chosen
// device and hand it to the caller only when it opened.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

namespace wv {

// Opens `device` for `sampleRate` Hz and `channels` channels, feeding or fed
// by `client`. 0 with *out holding the device, or the device's own error
// with *out untouched and the device destroyed; -19 (no such device) when
// there is no device at all (a test's maker that made none).
template <class Device, class Client>
int32_t openDevice(std::unique_ptr<Device> device, uint32_t sampleRate, uint32_t channels,
                   Client* client, std::unique_ptr<Device>* out) {
    if (!device) return -19;
    const int32_t err = device->open(sampleRate, channels, client);
    if (err != 0) return err;
    *out = std::move(device);
    return 0;
}

}  // namespace wv
