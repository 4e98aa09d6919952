#include "AudioFiles.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TestSupport.h"

namespace wvtest {
namespace {

// Reads a raw 16-bit file a decoder wrote, and removes it.
void takeRawPcm(const std::string& raw, std::vector<int16_t>* pcm) {
    const std::vector<char> bytes = readFile(raw);
    std::remove(raw.c_str());
    pcm->assign(bytes.size() / 2, 0);
    if (!pcm->empty()) std::memcpy(pcm->data(), bytes.data(), pcm->size() * 2);
}

// Single quotes for the shell; test paths never contain one.
std::string quoted(const std::string& text) { return "'" + text + "'"; }

bool runCapture(const std::string& command, std::string* output) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return false;
    char buffer[512];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) output->append(buffer, n);
    return ::pclose(pipe) == 0;
}

}  // namespace

std::vector<int16_t> makeTones(uint32_t frames, uint32_t sampleRate, const std::vector<double>& frequencies,
                               double amplitude) {
    const size_t channels = frequencies.size();
    std::vector<int16_t> pcm(static_cast<size_t>(frames) * channels);
    for (uint32_t i = 0; i < frames; ++i) {
        for (size_t c = 0; c < channels; ++c) {
            const double phase = 2.0 * M_PI * frequencies[c] * i / sampleRate;
            pcm[i * channels + c] = static_cast<int16_t>(std::lround(32767.0 * amplitude * std::sin(phase)));
        }
    }
    return pcm;
}

double tonePower(const std::vector<int16_t>& pcm, uint32_t channels, uint32_t channel, size_t first, size_t count,
                 uint32_t sampleRate, double frequency) {
    const double coeff = 2.0 * std::cos(2.0 * M_PI * frequency / sampleRate);
    double s1 = 0.0, s2 = 0.0;
    for (size_t i = first; i < first + count && (i * channels + channel) < pcm.size(); ++i) {
        const double s0 = pcm[i * channels + channel] / 32768.0 + coeff * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    const double power = s1 * s1 + s2 * s2 - coeff * s1 * s2;
    return count > 0 ? power / (static_cast<double>(count) * count) : 0.0;
}

bool haveFfmpeg() {
    return std::system("ffmpeg -version >/dev/null 2>&1") == 0 && std::system("ffprobe -version >/dev/null 2>&1") == 0;
}

bool probeAudio(const std::string& path, StreamInfo* info) {
    std::string output;
    const std::string command =
        "ffprobe -v error -select_streams a:0 "
        "-show_entries stream=codec_name,sample_rate,channels,bit_rate -of default=nw=1 " +
        quoted(path);
    if (!runCapture(command, &output)) return false;
    *info = StreamInfo();
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        if (end == std::string::npos) end = output.size();
        const std::string line = output.substr(start, end - start);
        const size_t eq = line.find('=');
        if (eq != std::string::npos) {
            const std::string key = line.substr(0, eq);
            const std::string value = line.substr(eq + 1);
            if (key == "sample_rate") info->sampleRate = std::atoi(value.c_str());
            if (key == "channels") info->channels = std::atoi(value.c_str());
            if (key == "bit_rate") info->bitRate = std::atol(value.c_str());
            if (key == "codec_name") info->codec = value;
        }
        start = end + 1;
    }
    return info->sampleRate > 0 && info->channels > 0;
}

long probeStreamFrames(const std::string& path) {
    std::string output;
    const std::string command = "ffprobe -v error -select_streams a:0 -show_entries stream=duration_ts "
                                "-of default=nw=1:nk=1 " + quoted(path);
    if (!runCapture(command, &output)) return -1;
    char* end = nullptr;
    const long frames = std::strtol(output.c_str(), &end, 10);
    return end == output.c_str() ? -1 : frames;
}

bool decodeToPcm16(const std::string& path, const std::string& scratchDir, std::vector<int16_t>* pcm) {
    const std::string raw = scratchDir + "/decoded.s16le";
    const std::string command =
        "ffmpeg -v error -nostdin -y -i " + quoted(path) + " -f s16le -acodec pcm_s16le " + quoted(raw);
    if (std::system(command.c_str()) != 0) return false;
    takeRawPcm(raw, pcm);
    return true;
}

Mp3Frames walkMp3Frames(const std::vector<char>& file) {
    // Rates by version (2.5, reserved, 2, 1), bit rates by MPEG-1 or not.
    static const int kRates[4][3] = {{11025, 12000, 8000}, {0, 0, 0}, {22050, 24000, 16000}, {44100, 48000, 32000}};
    static const int kKbps[2][15] = {{0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
                                     {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
    Mp3Frames s;
    size_t at = 0;
    if (file.size() >= 10 && file[0] == 'I' && file[1] == 'D' && file[2] == '3') {
        at = 10 + ((file[6] & 0x7F) << 21 | (file[7] & 0x7F) << 14 | (file[8] & 0x7F) << 7 | (file[9] & 0x7F));
    }
    s.firstOffset = static_cast<int>(at);
    while (at + 4 <= file.size()) {
        const auto b = [&](size_t i) { return static_cast<uint8_t>(file[at + i]); };
        if (b(0) != 0xFF || (b(1) & 0xE6) != 0xE2) break;  // sync, layer III
        const int version = (b(1) >> 3) & 3;
        const int mpeg1 = version == 3 ? 1 : 0;
        const int kbps = kKbps[mpeg1][b(2) >> 4];
        const int rate = kRates[version][(b(2) >> 2) & 3];
        if (rate == 0 || kbps == 0) break;
        const int padding = (b(2) >> 1) & 1;
        const int mode = b(3) >> 6;
        const size_t length = size_t(mpeg1 ? 144 : 72) * kbps * 1000 / rate + padding;
        if (s.frames == 0 && !s.infoFrame && at + length <= file.size()) {
            // Its bit rate is the one its tag needs: only audio frames count.
            const std::string frame(file.data() + at, length);
            if (frame.find("Info") != std::string::npos || frame.find("Xing") != std::string::npos) {
                s.infoFrame = true;
                at += length;
                continue;
            }
        }
        if (s.frames == 0) {
            s.bitrateKbps = kbps;
            s.mode = mode;
            s.sampleRate = rate;
        }
        if (kbps != s.bitrateKbps) s.bitrateKbps = -1;
        if (mode != s.mode) s.mode = -1;
        ++s.frames;
        at += length;
    }
    if (at != file.size()) s.frames = -s.frames;
    return s;
}

std::vector<int16_t> makeNoise(uint32_t frames, uint32_t channels) {
    std::vector<int16_t> pcm(size_t(frames) * channels);
    uint32_t state = 12345;
    for (uint32_t i = 0; i < frames; ++i) {
        state = state * 1664525u + 1013904223u;
        const int16_t v = static_cast<int16_t>(static_cast<int32_t>(state >> 16) / 4 - 8192);
        for (uint32_t c = 0; c < channels; ++c) pcm[size_t(i) * channels + c] = c == 0 ? v : int16_t(-v);
    }
    return pcm;
}

bool haveMpg123() { return std::system("mpg123 --version >/dev/null 2>&1") == 0; }

bool decodeWithMpg123(const std::string& path, const std::string& scratchDir, std::vector<int16_t>* pcm) {
    const std::string raw = scratchDir + "/decoded.mpg123.s16";
    const std::string command = "mpg123 -q -s " + quoted(path) + " > " + quoted(raw) + " 2>/dev/null";
    if (std::system(command.c_str()) != 0) return false;
    takeRawPcm(raw, pcm);
    return true;
}

int bestLag(const std::vector<int16_t>& original, const std::vector<int16_t>& decoded, uint32_t channels, int maxLag) {
    const long a = static_cast<long>(original.size() / channels);
    const long b = static_cast<long>(decoded.size() / channels);
    const long length = std::min(a, b);
    // A window of 8192 frames in the middle is plenty for a broadband
    // signal and keeps the search quick under the sanitizers.
    const long first = std::max<long>(maxLag, length / 2 - 4096);
    const long last = std::min<long>(length - maxLag, first + 8192);
    int best = 0;
    double bestScore = -2.0;
    for (int lag = -maxLag; lag <= maxLag; ++lag) {
        double dot = 0, x2 = 0, y2 = 0;
        for (long i = first; i < last; ++i) {
            const double x = original[static_cast<size_t>(i * channels)];
            const double y = decoded[static_cast<size_t>((i + lag) * channels)];
            dot += x * y;
            x2 += x * x;
            y2 += y * y;
        }
        const double score = x2 > 0 && y2 > 0 ? dot / std::sqrt(x2 * y2) : -1.0;
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    return best;
}

}  // namespace wvtest
