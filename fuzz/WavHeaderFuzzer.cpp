// Arbitrary bytes as the header of a canonical WAV file, the kind the
// engine reads in place instead of decoding. The input's first bytes
// replace the start of a valid 44-byte header (8 kHz mono), the rest of the
// input is the data. The file is loaded, sampled for drawing at the edges
// of its stated length, rendered resampled to stereo, and played briefly
// (to the null output, sped up), so every reader of in-place data sees the
// header's claims.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "FuzzSupport.h"

using namespace wvfuzz;

namespace {

constexpr size_t kHeaderBytes = 44;

void putLe32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (8 * i));
}

// A canonical header of 8 kHz mono 16-bit samples with `dataBytes` of data.
void baseHeader(uint8_t* h, uint32_t dataBytes) {
    std::memcpy(h, "RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\x40\x1f\0\0\x80\x3e\0\0\x02\0\x10\0data", 40);
    putLe32(h + 4, 36 + dataBytes);
    putLe32(h + 40, dataBytes);
}

struct Session {
    Session() {
        setenv("WAVORYX_DEVICE_PACE", "50", 1);
        wavoryx_set_audio_output("null");
        engine.reset(new Engine(dir.prefix()));
    }
    ScratchDir dir;
    std::unique_ptr<Engine> engine;
    unsigned inputs = 0;
};

void sampleEdges(Wavoryx& api, int id) {
    const int32_t durationMs = api.getPcmDuration(id);
    if (durationMs <= 0) return;
    const unsigned end = unsigned(durationMs);
    uint8_t points[32];
    api.getWaveformSamples(id, 0, end, sizeof points, points);
    api.getWaveformSamples(id, end / 2, end + 1000, sizeof points, points);
    api.getWaveformSamples(id, end - 1, end, 1, points);
}

void playBriefly(Wavoryx& api, int id) {
    if (api.playStart(id) != 0) return;
    api.playResume();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    api.playSeekTo(api.getPcmDuration(id) / 2);
    api.getPlayPositionMs();
    api.playStop();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Session& s = wvfuzz::processState<Session>();
    Wavoryx& api = s.engine->api();
    eventLog().clear();

    const size_t dataBytes = size > kHeaderBytes ? size - kHeaderBytes : 0;
    std::vector<uint8_t> file(kHeaderBytes + dataBytes);
    baseHeader(file.data(), uint32_t(dataBytes));
    std::memcpy(file.data(), data, std::min(size, kHeaderBytes));
    if (dataBytes > 0) std::memcpy(file.data() + kHeaderBytes, data + kHeaderBytes, dataBytes);
    const std::string path = s.dir.file("in" + std::to_string(++s.inputs) + ".wav");
    if (!writeBytes(path, file.data(), file.size())) fail("cannot write %s", path.c_str());

    const int id = api.loadFile(path.c_str());
    const Event ending = s.engine->waitForEnding(id, endsLoad);
    if (ending.code == 4) {
        api.getPcmSampleRate(id);
        api.getPcmChannelCount(id);
        api.getPcmFrameLength(id);
        sampleEdges(api, id);
        renderWhole(*s.engine, id, s.dir.file("out.wav"), 11025, true);
        playBriefly(api, id);
    }
    api.removePcm(id);
    ::remove(path.c_str());
    return 0;
}
