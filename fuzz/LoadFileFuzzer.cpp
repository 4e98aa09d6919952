// Arbitrary bytes as an audio file: loaded through the public API to its
// ending event; a file that loads is then queried, sampled for drawing and
// rendered to WAV, so every stage that reads the decoded data sees it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "FuzzSupport.h"

using namespace wvfuzz;

namespace {

struct Session {
    ScratchDir dir;
    std::unique_ptr<Engine> engine{new Engine(dir.prefix())};
    unsigned inputs = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Session& s = wvfuzz::processState<Session>();
    Wavoryx& api = s.engine->api();
    eventLog().clear();
    const std::string path = s.dir.file("in" + std::to_string(++s.inputs));
    if (!writeBytes(path, data, size)) fail("cannot write %s", path.c_str());

    const int id = api.loadFile(path.c_str());
    const Event ending = s.engine->waitForEnding(id, endsLoad);
    if (ending.code == 4) {
        api.getPcmSampleRate(id);
        api.getPcmChannelCount(id);
        const int32_t frames = api.getPcmFrameLength(id);
        const int32_t durationMs = api.getPcmDuration(id);
        if (frames < 0) fail("loaded item %d has %d frames", id, frames);
        uint8_t points[64];
        if (durationMs > 0) api.getWaveformSamples(id, 0, unsigned(durationMs), sizeof points, points);
        renderWhole(*s.engine, id, s.dir.file("out.wav"));
    }
    api.removePcm(id);
    ::remove(path.c_str());
    return 0;
}
