#include "studio/SourceFacts.h"

#include <algorithm>
#include <cctype>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "FileKind.h"
#include "studio/EventHub.h"
#include "studio/Json.h"
#include "studio/Sources.h"

namespace wvstudio {

namespace {
std::string tenths(int value) { return value == INT_MIN ? "null" : number(value / 10.0); }
}  // namespace

int SourceFacts::describe(int source, const std::string& path, std::string& json) {
    WvSourceInfo info;
    if (!mSources.known(source)) return 404;
    if (mEngine.getSourceInfo(source, &info) != 0) return 409;
    std::string format = wvcli::fileKind(path);
    std::transform(format.begin(), format.end(), format.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    // The decoded length once loaded; the stated one before.
    double duration = info.durationUs >= 0 ? double(info.durationUs) / 1e6 : 0.0;
    const int rate = mEngine.getPcmSampleRate(source);
    if (mSources.loaded(source) && rate > 0) duration = double(mEngine.getPcmFrameLength(source)) / rate;
    json = "{\"format\":" + quote(format) + ",\"codec\":" + quote(info.codec) +
           ",\"sample_rate\":" + std::to_string(info.sampleRate) + ",\"channels\":" + std::to_string(info.channels) +
           ",\"duration\":" + number(duration) + ",\"bit_rate\":" + std::to_string(info.bitRate) + ",\"tags\":{";
    bool first = true;
    for (const char* name : {"title", "artist", "album", "date", "track", "comment"}) {
        char value[1024];
        if (mEngine.getSourceTag(source, name, value, sizeof value) <= 0) continue;
        json += (first ? "" : ",") + quote(name) + ":" + quote(value);
        first = false;
    }
    json += "},\"loudness\":";
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mLoudness.find(source);
    if (it == mLoudness.end() || !it->second.done) {
        json += "null}";
    } else {
        json += "{\"integrated\":" + tenths(it->second.integrated) + ",\"range\":" + tenths(it->second.range) +
                ",\"true_peak\":" + tenths(it->second.truePeak) + "}}";
    }
    return 200;
}

int SourceFacts::measure(int source) {
    if (!mSources.known(source)) return 404;
    std::lock_guard<std::mutex> guard(mLock);
    Loudness& state = mLoudness[source];
    if (state.running) return 200;
    if (state.done) {
        mEvents.publish("loudness", "{\"source\":" + std::to_string(source) + "}");
        return 200;
    }
    if (mEngine.measureLoudness(source) != 0) return 409;
    state.running = true;
    return 200;
}

int SourceFacts::silences(int source, int tenthsDb, unsigned minMs, std::string& json) {
    if (!mSources.known(source)) return 404;
    std::lock_guard<std::mutex> guard(mScanLock);
    // A source still loading is scanned as its load goes on; this waits for
    // both. A scan's item (no audio) is refused.
    if (mEngine.scanSilence(source, tenthsDb, minMs) != 0) return 409;
    mEngine.waitForJob(source, WV_JOB_RENDER, -1, nullptr);
    const int32_t count = mEngine.getSilences(source, nullptr, 0);
    if (count < 0) return 409;
    std::vector<uint32_t> pairs(size_t(count) * 2);
    if (count > 0 && mEngine.getSilences(source, pairs.data(), uint32_t(count)) != count) return 409;
    json = "{\"silences\":[";
    for (size_t i = 0; i < size_t(count); ++i) {
        json += (i == 0 ? "{\"start\":" : ",{\"start\":") + std::to_string(pairs[2 * i]) +
                ",\"end\":" + std::to_string(pairs[2 * i + 1]) + "}";
    }
    json += "]}";
    return 200;
}

bool SourceFacts::take(int code, int id, int value) {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mLoudness.find(id);
    if (it == mLoudness.end() || !it->second.running) return false;
    Loudness& state = it->second;
    switch (code) {
        case WV_EVENT_LOUDNESS: state.integrated = value; break;
        case WV_EVENT_TRUE_PEAK: state.truePeak = value; break;
        case WV_EVENT_LOUDNESS_RANGE:
            state.range = value;
            state.running = false;
            state.done = true;
            mEvents.publish("loudness", "{\"source\":" + std::to_string(id) + "}");
            break;
        case WV_EVENT_RENDER_FAILED:
        case WV_EVENT_RENDER_CANCELLED: state.running = false; break;
        case WV_EVENT_RENDER_PROGRESS: break;
        default: return false;
    }
    return true;
}

}  // namespace wvstudio
