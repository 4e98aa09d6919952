#include "AudioFixtures.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace wvtest {
namespace {

void put16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(uint8_t(v));
    out.push_back(uint8_t(v >> 8));
}
void put32(std::vector<uint8_t>& out, uint32_t v) {
    put16(out, uint16_t(v));
    put16(out, uint16_t(v >> 16));
}
uint32_t get32(const uint8_t* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | (uint32_t(p[3]) << 24); }
uint16_t get16(const uint8_t* p) { return uint16_t(p[0] | (p[1] << 8)); }

}  // namespace

std::vector<int16_t> makeTone(int rate, int channels, double seconds, double freq, double amplitude) {
    const size_t frames = static_cast<size_t>(std::llround(seconds * rate));
    std::vector<int16_t> samples(frames * static_cast<size_t>(channels));
    const double step = 2.0 * M_PI * freq / rate;
    for (size_t i = 0; i < frames; ++i) {
        const double s = std::sin(step * static_cast<double>(i));
        for (int c = 0; c < channels; ++c) {
            const double level = amplitude * (1.0 - c / 8.0);
            samples[i * channels + c] = static_cast<int16_t>(std::lround(s * level * 32767.0));
        }
    }
    return samples;
}

std::vector<uint8_t> canonicalWavHeader(int rate, int channels, uint32_t dataBytes) {
    std::vector<uint8_t> h;
    h.insert(h.end(), {'R', 'I', 'F', 'F'});
    put32(h, 36 + dataBytes);
    h.insert(h.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
    put32(h, 16);
    put16(h, 1);
    put16(h, uint16_t(channels));
    put32(h, uint32_t(rate));
    put32(h, uint32_t(rate * channels * 2));
    put16(h, uint16_t(channels * 2));
    put16(h, 16);
    h.insert(h.end(), {'d', 'a', 't', 'a'});
    put32(h, dataBytes);
    return h;
}

bool writeWav(const std::string& path, const std::vector<int16_t>& samples, int rate, int channels) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    const auto header = canonicalWavHeader(rate, channels, uint32_t(samples.size() * 2));
    out.write(reinterpret_cast<const char*>(header.data()), std::streamsize(header.size()));
    std::vector<uint8_t> bytes;
    bytes.reserve(samples.size() * 2);
    for (int16_t s : samples) put16(bytes, uint16_t(s));
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return bool(out);
}

bool writeToneWav(const std::string& path, int rate, int channels, double seconds, double freq) {
    return writeWav(path, makeTone(rate, channels, seconds, freq), rate, channels);
}

bool readWavSamples(const std::string& path, std::vector<int16_t>* samples, int* rate, int* channels) {
    std::ifstream in(path, std::ios::binary);
    const std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (file.size() < 12 || std::memcmp(file.data(), "RIFF", 4) != 0 || std::memcmp(file.data() + 8, "WAVE", 4) != 0) {
        return false;
    }
    int fileRate = 0, fileChannels = 0, bits = 0;
    size_t at = 12;
    while (at + 8 <= file.size()) {
        const uint32_t size = get32(&file[at + 4]);
        const size_t body = at + 8;
        if (std::memcmp(&file[at], "fmt ", 4) == 0 && size >= 16 && body + 16 <= file.size()) {
            fileChannels = get16(&file[body + 2]);
            fileRate = int(get32(&file[body + 4]));
            bits = get16(&file[body + 14]);
        } else if (std::memcmp(&file[at], "data", 4) == 0) {
            if (bits != 16 || fileChannels == 0) return false;
            const size_t bytes = std::min<size_t>(size, file.size() - body) & ~size_t(1);
            samples->resize(bytes / 2);
            for (size_t i = 0; i < samples->size(); ++i) {
                (*samples)[i] = static_cast<int16_t>(get16(&file[body + 2 * i]));
            }
            if (rate) *rate = fileRate;
            if (channels) *channels = fileChannels;
            return true;
        }
        at = body + size + (size & 1);
    }
    return false;
}

std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += (c == '\'') ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

bool runFfmpeg(const std::string& args) {
    const std::string command = "ffmpeg -nostdin -hide_banner -loglevel error -y " + args + " </dev/null";
    return std::system(command.c_str()) == 0;
}

namespace {

bool readAll(const std::string& path, std::string* bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream all;
    all << in.rdbuf();
    *bytes = all.str();
    return !in.bad();
}

// Every test runs in a process of its own, so a suite's fixtures would be
// encoded again for each of its tests. With WAVORYX_TEST_FIXTURE_CACHE set
// (ctest sets it to a folder of the build), an encoding is kept there under
// a hash of its input bytes, arguments and output name's extension, and
// later asked-for copies are copied from it.
std::string cachedEncodingPath(const std::string& inPath, const std::string& outPath, const std::string& extraArgs) {
    const char* folder = std::getenv("WAVORYX_TEST_FIXTURE_CACHE");
    std::string input;
    if (folder == nullptr || *folder == '\0' || !readAll(inPath, &input)) return "";
    const size_t slash = outPath.find_last_of('/');
    const size_t dot = outPath.find_last_of('.');
    const std::string extension = (dot == std::string::npos || (slash != std::string::npos && dot < slash))
                                      ? std::string()
                                      : outPath.substr(dot);
    uint64_t hash = 14695981039346656037ull;  // FNV-1a
    for (const std::string* part : {static_cast<const std::string*>(&input), &extraArgs, &extension}) {
        for (unsigned char c : *part) hash = (hash ^ c) * 1099511628211ull;
        hash = (hash ^ 0xffu) * 1099511628211ull;
    }
    char name[32];
    std::snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(hash));
    return std::string(folder) + "/" + name + extension;
}

// Whole file or nothing: written beside `to` under a unique name, then
// renamed over it, so a concurrent test never reads half a fixture.
bool copyWhole(const std::string& from, const std::string& to) {
    std::string bytes;
    if (!readAll(from, &bytes)) return false;
    std::string temp = to + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) return false;
    bool ok = fchmod(fd, 0644) == 0;  // as ffmpeg would have made it
    for (size_t done = 0; ok && done < bytes.size();) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        ok = n > 0;
        if (ok) done += size_t(n);
    }
    ok = (close(fd) == 0) && ok;
    ok = ok && std::rename(temp.c_str(), to.c_str()) == 0;
    if (!ok) std::remove(temp.c_str());
    return ok;
}

}  // namespace

bool encodeWithFfmpeg(const std::string& inPath, const std::string& outPath, const std::string& extraArgs) {
    const std::string cached = cachedEncodingPath(inPath, outPath, extraArgs);
    if (!cached.empty() && access(cached.c_str(), R_OK) == 0 && copyWhole(cached, outPath)) return true;
    if (!runFfmpeg("-i " + shellQuote(inPath) + " " + extraArgs + " " + shellQuote(outPath))) return false;
    if (!cached.empty()) {
        mkdir(std::getenv("WAVORYX_TEST_FIXTURE_CACHE"), 0755);
        copyWhole(outPath, cached);  // a cache that cannot be written costs only time
    }
    return true;
}

bool ffmpegAvailable() {
    static const bool available = std::system("ffmpeg -version >/dev/null 2>&1") == 0;
    return available;
}

bool writeAmrNb(const std::string& path, double seconds) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write("#!AMR\n", 6);
    const int frames = static_cast<int>(std::lround(seconds * 50));
    uint32_t state = 12345;
    for (int f = 0; f < frames; ++f) {
        char frame[32];
        frame[0] = 0x3C;  // mode 7 (12.2 kbit/s), quality bit set
        for (int i = 1; i < 32; ++i) {
            state = state * 1103515245u + 12345u;
            frame[i] = char(state >> 24);
        }
        out.write(frame, sizeof frame);
    }
    return bool(out);
}

double estimateFrequency(const int16_t* samples, size_t frames, int channels, int channel, int rate) {
    double first = -1, last = -1;
    int crossings = 0;
    for (size_t i = 1; i < frames; ++i) {
        const double a = samples[(i - 1) * channels + channel];
        const double b = samples[i * channels + channel];
        if (a < 0 && b >= 0) {
            const double at = double(i - 1) + (-a) / (b - a);
            if (first < 0) first = at;
            last = at;
            ++crossings;
        }
    }
    if (crossings < 2) return 0;
    return (crossings - 1) * double(rate) / (last - first);
}

double channelRms(const int16_t* samples, size_t frames, int channels, int channel) {
    if (frames == 0) return 0;
    double sum = 0;
    for (size_t i = 0; i < frames; ++i) {
        const double v = samples[i * channels + channel] / 32768.0;
        sum += v * v;
    }
    return std::sqrt(sum / double(frames));
}

}  // namespace wvtest
