#include "ChannelPeaks.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

#include <wavoryx/Wavoryx.h>

#include "Interrupt.h"
#include "Session.h"

namespace wvcli {
namespace {

uint32_t little32(const unsigned char* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

// The WAV's channels and the position and size of its sample data.
bool findData(FILE* file, int& channels, long& dataAt, uint32_t& dataSize) {
    unsigned char head[12];
    if (std::fread(head, 1, 12, file) != 12 || std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 8, "WAVE", 4) != 0)
        return false;
    channels = 0;
    unsigned char chunk[8];
    while (std::fread(chunk, 1, 8, file) == 8) {
        const uint32_t size = little32(chunk + 4);
        if (std::memcmp(chunk, "fmt ", 4) == 0) {
            unsigned char fmt[16];
            if (size < 16 || std::fread(fmt, 1, 16, file) != 16) return false;
            channels = fmt[2] | fmt[3] << 8;
            if ((fmt[14] | fmt[15] << 8) != 16) return false;
            if (std::fseek(file, long(size - 16 + (size & 1)), SEEK_CUR) != 0) return false;
        } else if (std::memcmp(chunk, "data", 4) == 0) {
            dataAt = std::ftell(file);
            dataSize = size;
            return channels > 0;
        } else if (std::fseek(file, long(size + (size & 1)), SEEK_CUR) != 0) {
            return false;
        }
    }
    return false;
}

}  // namespace

int channelPeaks(Session& session, const LoadedSource& source, uint64_t firstFrame, uint64_t endFrame,
                 uint32_t perPixel, const std::string& shownPath, std::vector<int16_t>& minMax) {
    Wavoryx& engine = session.engine();
    const int list = engine.newClipList();
    const std::string work = session.workDir() + "channels.wav";
    engine.addClip(list, source.id, unsigned(firstFrame), unsigned(endFrame));
    engine.setOutputPara(list, work.c_str(), ENCODE_WAV);
    engine.setEncodePara(list, source.sampleRate, 0, source.channels, 0);
    const int rendered = renderList(session, list, work, shownPath);
    engine.removePcm(list);
    if (rendered != 0) return rendered;
    std::unique_ptr<FILE, FileCloser> file(std::fopen(work.c_str(), "rbe"));
    ::unlink(work.c_str());
    int channels = 0;
    long dataAt = 0;
    uint32_t dataSize = 0;
    if (!file || !findData(file.get(), channels, dataAt, dataSize) || channels != source.channels) {
        reportError(source.path, "could not read its channels back");
        return 1;
    }
    const size_t frameBytes = size_t(channels) * 2;
    std::vector<unsigned char> block(frameBytes * 4096);
    std::vector<int16_t> lowest(static_cast<size_t>(channels)), highest(static_cast<size_t>(channels));
    uint64_t frames = dataSize / frameBytes;
    uint32_t inPixel = 0;
    minMax.clear();
    while (frames > 0) {
        if (interruptSignal() != 0) return interruptExitStatus();
        const size_t want = size_t(std::min<uint64_t>(frames, 4096));
        if (std::fread(block.data(), frameBytes, want, file.get()) != want) {
            reportError(source.path, "could not read its channels back");
            return 1;
        }
        for (size_t f = 0; f < want; ++f) {
            for (size_t c = 0; c < size_t(channels); ++c) {
                const unsigned char* p = &block[f * frameBytes + c * 2];
                const int16_t value = int16_t(uint16_t(p[0] | p[1] << 8));
                lowest[c] = inPixel == 0 ? value : std::min(lowest[c], value);
                highest[c] = inPixel == 0 ? value : std::max(highest[c], value);
            }
            if (++inPixel == perPixel) {
                for (size_t c = 0; c < size_t(channels); ++c) minMax.insert(minMax.end(), {lowest[c], highest[c]});
                inPixel = 0;
            }
        }
        frames -= want;
    }
    if (inPixel > 0) {
        for (size_t c = 0; c < size_t(channels); ++c) minMax.insert(minMax.end(), {lowest[c], highest[c]});
    }
    return 0;
}

}  // namespace wvcli
