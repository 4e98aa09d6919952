// The engine's waveform sampling: peaks of any range of any item, for
// drawing.
#define WV_LOG_TAG "WavoryxPriv"
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "dsp/WaveformData.h"
#include "engine/WavoryxPriv.h"
#include "items/PcmInfoReader.h"

using namespace wv;

namespace {
// The range is read in blocks of this size (4096 stereo frames), so an hour
// of audio costs no more memory than a second.
constexpr uint32_t kBlockBytes = 16384;
}  // namespace

int32_t WavoryxPriv::getWaveformSamples(pcm_id_t id, duration_t startMs, duration_t endMs,
                                        uint32_t count, void* buffer) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetWaveformSamples);
    if (item == nullptr) return -1;
    uint32_t remaining = startMs;
    const uint32_t startFrame = item->duration2frame(remaining, 0, 0xFFFFFFFF);
    remaining = endMs;
    const uint32_t endFrame = item->duration2frame(remaining, 0, 0xFFFFFFFF);
    if (startFrame >= endFrame || count == 0 || buffer == nullptr) return -4;

    PcmInfoReader reader(item);
    reader.setOutputFormat(item->sampleRate.load(), 2);
    reader.setPosition(startFrame, endFrame);
    const uint64_t wholeBytes = uint64_t(endFrame - startFrame) * 4;
    const uint32_t blockBytes = static_cast<uint32_t>(std::min<uint64_t>(wholeBytes, kBlockBytes));
    std::unique_ptr<char[]> block(new (std::nothrow) char[blockBytes]);
    if (!block) return -6;

    uint8_t* points = static_cast<uint8_t*>(buffer);
    std::memset(points, 0, count);
    WaveformReducer reducer(points, count, wholeBytes / 2);
    uint64_t fed = 0;
    uint64_t got = 0;
    bool done = false;
    while (fed < wholeBytes && !done) {
        const uint32_t bytes =
            static_cast<uint32_t>(std::min<uint64_t>(blockBytes, wholeBytes - fed));
        reader.readPiece(block.get(), bytes, wholeBytes, &got, &done);
        reducer.feed(reinterpret_cast<const int16_t*>(block.get()), bytes / 2);
        fed += bytes;
    }
    reducer.feedSilence((wholeBytes - fed) / 2);
    return static_cast<int32_t>(count);
}
