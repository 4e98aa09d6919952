#include "studio/Sources.h"

#include <wavoryx/Wavoryx.h>

#include "studio/FileRegistry.h"
#include "studio/Json.h"

namespace wvstudio {

int Sources::open(const StudioFile& file, std::string& why) {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mByFile.find(file.id);
    if (it != mByFile.end()) return it->second;
    const int id = mEngine.loadFile(file.path.c_str());
    if (id <= 0) {
        why = "the engine refused the file";
        return 0;
    }
    State& state = mStates[id];
    state.file = file.id;
    state.name = file.name;
    mByFile[file.id] = id;
    return id;
}

void Sources::adopt(int id, const StudioFile& file) {
    std::lock_guard<std::mutex> guard(mLock);
    State& state = mStates[id];
    state.file = file.id;
    state.name = file.name;
    state.begun = true;
    state.done = true;
    mByFile[file.id] = id;
}

bool Sources::known(int id) const {
    std::lock_guard<std::mutex> guard(mLock);
    return mStates.count(id) != 0;
}

std::string Sources::fileOf(int id) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mStates.find(id);
    return it == mStates.end() ? std::string() : it->second.file;
}

bool Sources::format(int id, int& rate, int& channels) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mStates.find(id);
    if (it == mStates.end() || !it->second.begun || !it->second.error.empty()) return false;
    rate = mEngine.getPcmSampleRate(id);
    channels = mEngine.getPcmChannelCount(id);
    return rate > 0 && channels > 0;
}

bool Sources::loaded(int id) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mStates.find(id);
    return it != mStates.end() && it->second.done && it->second.error.empty();
}

std::string Sources::describeLocked(int id, const State& state) {
    const int rate = state.begun ? mEngine.getPcmSampleRate(id) : 0;
    const int channels = state.begun ? mEngine.getPcmChannelCount(id) : 0;
    const int present = mEngine.getPcmFrameLength(id);
    const uint32_t loaded = present > 0 ? uint32_t(present) : 0;
    uint32_t frames = loaded;
    if (!state.done && state.begun) {
        uint32_t expected = 0;
        if (mEngine.getSourceFrames(id, &expected) >= 0 && expected > frames) frames = expected;
    }
    return "{\"source\":" + std::to_string(id) + ",\"file\":" + quote(state.file) + ",\"name\":" + quote(state.name) +
           ",\"sample_rate\":" + std::to_string(rate) + ",\"channels\":" + std::to_string(channels) +
           ",\"frames\":" + std::to_string(frames) + ",\"loaded\":" + std::to_string(loaded) +
           ",\"done\":" + (state.done ? "true" : "false") +
           ",\"error\":" + (state.error.empty() ? std::string("null") : quote(state.error)) + "}";
}

std::string Sources::loadEventLocked(int id, const State& state) {
    const int present = mEngine.getPcmFrameLength(id);
    const uint32_t loaded = present > 0 ? uint32_t(present) : 0;
    uint32_t frames = loaded;
    uint32_t expected = 0;
    if (!state.done && mEngine.getSourceFrames(id, &expected) >= 0 && expected > frames) frames = expected;
    return "{\"source\":" + std::to_string(id) + ",\"loaded\":" + std::to_string(loaded) +
           ",\"frames\":" + std::to_string(frames) + ",\"done\":" + (state.done ? "true" : "false") + "}";
}

bool Sources::describe(int id, std::string& json) {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mStates.find(id);
    if (it == mStates.end()) return false;
    json = describeLocked(id, it->second);
    return true;
}

bool Sources::take(int code, int id, int value, std::string& loadEvent) {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mStates.find(id);
    if (it == mStates.end()) return false;
    State& state = it->second;
    const auto now = std::chrono::steady_clock::now();
    switch (code) {
        case WV_EVENT_LOAD_STARTED: state.begun = true; break;
        case WV_EVENT_LOAD_PROGRESS:
            if (now - state.told < std::chrono::milliseconds(100)) return true;
            break;
        case WV_EVENT_LOAD_DONE:
            state.begun = true;
            state.done = true;
            break;
        case WV_EVENT_LOAD_FAILED:
            state.done = true;
            state.error = value == 1 ? "not audio" : "the file cannot be read";
            break;
        case WV_EVENT_LOAD_CANCELLED:
            state.done = true;
            state.error = "cancelled";
            break;
        case WV_EVENT_LOAD_NO_SPACE:
            state.done = true;
            state.error = "storage full";
            break;
        default: return false;  // another job's event about the item
    }
    state.told = now;
    loadEvent = loadEventLocked(id, state);
    return true;
}

void Sources::cancelAll() {
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& entry : mStates) {
        if (!entry.second.done) mEngine.cancelLoadFile(entry.first);
    }
}

}  // namespace wvstudio
