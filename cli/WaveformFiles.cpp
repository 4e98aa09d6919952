#include "WaveformFiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace wvcli {
namespace {

constexpr int32_t kVersion = 2;
constexpr int32_t kVersionWithoutChannels = 1;
constexpr uint32_t kEightBitFlag = 1;

void putLittle32(std::string& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out += char((value >> shift) & 0xFF);
}

int valueAt(const PeakData& data, size_t i) {
    if (data.bits == 16) return data.minMax[i];
    return data.sharedRules ? data.minMax[i] / 256 : data.minMax[i] >> 8;
}

}  // namespace

std::string datBytes(const PeakData& data) {
    std::string out;
    const uint32_t pixels = uint32_t(data.minMax.size() / 2 / size_t(data.channels));
    const int32_t version = data.sharedRules && data.channels == 1 ? kVersionWithoutChannels : kVersion;
    putLittle32(out, uint32_t(version));
    putLittle32(out, data.bits == 8 ? kEightBitFlag : 0);
    putLittle32(out, uint32_t(data.sampleRate));
    putLittle32(out, uint32_t(data.samplesPerPixel));
    putLittle32(out, pixels);
    if (version == kVersion) putLittle32(out, uint32_t(data.channels));
    out.reserve(out.size() + data.minMax.size() * size_t(data.bits / 8));
    for (size_t i = 0; i < data.minMax.size(); ++i) {
        const uint16_t value = uint16_t(valueAt(data, i));
        out += char(value & 0xFF);
        if (data.bits == 16) out += char(value >> 8);
    }
    return out;
}

std::string jsonText(const PeakData& data) {
    const size_t pixels = data.minMax.size() / 2 / size_t(data.channels);
    std::string out = "{\"version\":" + std::to_string(kVersion) + ",\"channels\":" + std::to_string(data.channels) +
                      ",\"sample_rate\":" + std::to_string(data.sampleRate) +
                      ",\"samples_per_pixel\":" + std::to_string(data.samplesPerPixel) +
                      ",\"bits\":" + std::to_string(data.bits) + ",\"length\":" + std::to_string(pixels) +
                      ",\"data\":[";
    for (size_t i = 0; i < data.minMax.size(); ++i) {
        if (i > 0) out += ',';
        out += std::to_string(valueAt(data, i));
    }
    out += "]}\n";
    return out;
}

bool writeNewFile(const std::string& path, const std::string& contents, std::string& why) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        why = std::string("cannot write (") + std::strerror(errno) + ")";
        return false;
    }
    size_t done = 0;
    int error = 0;
    while (done < contents.size()) {
        const ssize_t wrote = ::write(fd, contents.data() + done, contents.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote <= 0) {
            error = wrote < 0 ? errno : ENOSPC;  // no progress: the storage is full
            break;
        }
        done += size_t(wrote);
    }
    if (::close(fd) != 0 && error == 0) error = errno;
    if (error == 0) return true;
    why = error == ENOSPC ? "storage full" : std::string("write error (") + std::strerror(error) + ")";
    ::unlink(path.c_str());
    return false;
}

}  // namespace wvcli
