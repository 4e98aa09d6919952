#include "studio/Lists.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "Interrupt.h"
#include "studio/Json.h"
#include "studio/Sources.h"
#include "studio/Studio.h"

namespace wvstudio {

namespace {

constexpr size_t kKeptLists = 32;
constexpr size_t kMaxClips = 10000;
constexpr uint32_t kReadFrames = 16384;

bool secondsToMs(const JsonValue& value, uint32_t& ms) {
    if (value.isNull()) {
        ms = 0;
        return true;
    }
    if (!value.isNumber() || value.number < 0 || value.number > 86400.0) return false;
    ms = static_cast<uint32_t>(std::lround(value.number * 1000.0));
    return true;
}

bool frameValue(const JsonValue& value, uint32_t& frame) {
    if (!value.isNumber() || value.number < 0 || value.number > 4294967295.0 ||
        value.number != std::floor(value.number)) {
        return false;
    }
    frame = static_cast<uint32_t>(value.number);
    return true;
}

// The 44 bytes of a canonical WAV header, as the engine's WAV writer makes
// it for 16-bit PCM.
std::string wavHeader(int rate, int channels, uint64_t frames) {
    const uint32_t dataBytes = static_cast<uint32_t>(std::min<uint64_t>(frames * uint32_t(channels) * 2, 0xFFFFFFD3u));
    unsigned char h[44];
    const auto put32 = [&h](int at, uint32_t v) {
        for (int i = 0; i < 4; ++i) h[at + i] = static_cast<unsigned char>(v >> (8 * i));
    };
    const auto put16 = [&h](int at, uint32_t v) {
        h[at] = static_cast<unsigned char>(v);
        h[at + 1] = static_cast<unsigned char>(v >> 8);
    };
    std::memcpy(h, "RIFF", 4);
    put32(4, 36 + dataBytes);
    std::memcpy(h + 8, "WAVEfmt ", 8);
    put32(16, 16);
    put16(20, 1);
    put16(22, uint32_t(channels));
    put32(24, uint32_t(rate));
    put32(28, uint32_t(rate) * uint32_t(channels) * 2);
    put16(32, uint32_t(channels) * 2);
    put16(34, 16);
    std::memcpy(h + 36, "data", 4);
    put32(40, dataBytes);
    return std::string(reinterpret_cast<char*>(h), sizeof h);
}

}  // namespace

bool readPlan(const JsonValue& body, const Sources& sources, ListPlan& plan, std::string& why) {
    const JsonValue& clips = body["clips"];
    if (clips.kind != JsonValue::kArray || clips.items.empty() || clips.items.size() > kMaxClips) {
        why = "clips: a list of 1 to 10000 clips";
        return false;
    }
    for (const JsonValue& item : clips.items) {
        ListPlan::Clip clip;
        const JsonValue& source = item["source"];
        if (!source.isNumber() || source.number < 1 || source.number > 1e9 || !sources.known(int(source.number))) {
            why = "unknown source";
            return false;
        }
        clip.source = int(source.number);
        if (!frameValue(item["start"], clip.start) || !frameValue(item["end"], clip.end) || clip.end <= clip.start) {
            why = "each clip needs frames start < end";
            return false;
        }
        const JsonValue& gain = item["gain_db"];
        if (!gain.isNull()) {
            if (!gain.isNumber() || gain.number < -96.0 || gain.number > 24.0) {
                why = "gain_db: -96 to 24";
                return false;
            }
            clip.gainMillibels = int(std::lround(gain.number * 100.0));
        }
        if (!secondsToMs(item["fade_in"], clip.fadeInMs) || !secondsToMs(item["fade_out"], clip.fadeOutMs)) {
            why = "fades: seconds, 0 or more";
            return false;
        }
        plan.clips.push_back(clip);
    }
    if (!secondsToMs(body["crossfade"], plan.crossfadeMs)) {
        why = "crossfade: seconds, 0 or more";
        return false;
    }
    return true;
}

int buildList(Wavoryx& engine, const ListPlan& plan, std::string& why) {
    const int list = engine.newClipList();
    if (list <= 0) {
        why = "the engine made no list";
        return 0;
    }
    bool ok = true;
    for (const ListPlan::Clip& c : plan.clips) {
        const int clip = engine.addClip(list, c.source, c.start, c.end);
        ok = ok && clip > 0;
        if (!ok) break;
        // As edit: only the effects asked for are set.
        if (c.gainMillibels != 0) ok = engine.setClipGain(list, clip, c.gainMillibels) == 0;
        if (ok && (c.fadeInMs != 0 || c.fadeOutMs != 0)) {
            ok = engine.setClipFade(list, clip, c.fadeInMs, c.fadeOutMs, WV_FADE_EQUAL_POWER) == 0;
        }
        if (!ok) break;
    }
    if (ok && plan.crossfadeMs != 0) ok = engine.setListCrossfade(list, plan.crossfadeMs, WV_FADE_EQUAL_POWER) == 0;
    // edit's default converter: the high-quality one.
    if (ok) ok = engine.setResampleQuality(list, 1) == 0;
    if (!ok) {
        engine.removePcm(list);
        why = "the engine refused the list";
        return 0;
    }
    return list;
}

Lists::List::~List() {
    if (id > 0) engine.removePcm(id);
}

bool Lists::countFrames(List& list, const ListPlan& plan, std::string& why) {
    uint32_t told = 0;
    if (mEngine.getPcmOutputFrames(list.id, &told) == 0) {
        list.frames = told;
        return true;
    }
    // While a source loads: exact from the plan when no join overlaps and
    // every clip lies in what is decoded: the clips one after the other,
    // each converted clip round(N x out / in) frames long (halves up), as
    // the high-quality converter makes it (Wavoryx.h).
    bool plain = plan.crossfadeMs == 0;
    uint64_t total = 0;
    for (const ListPlan::Clip& c : plan.clips) {
        int rate = 0;
        int channels = 0;
        if (!plain || !mSources.format(c.source, rate, channels)) {
            plain = false;
            break;
        }
        // A clip within what a load still running has decoded is exact too.
        const int frames = mEngine.getPcmFrameLength(c.source);
        if (!mSources.loaded(c.source) && c.end > uint32_t(std::max(frames, 0))) {
            plain = false;
            break;
        }
        const uint32_t end = std::min<uint32_t>(c.end, uint32_t(std::max(frames, 0)));
        const uint64_t span = end > c.start ? end - c.start : 0;
        total += (span * uint64_t(list.rate) * 2 + uint64_t(rate)) / (2 * uint64_t(rate));
    }
    if (plain) {
        list.frames = total;
        return true;
    }
    std::vector<int16_t> block(size_t(kReadFrames) * uint32_t(list.channels));
    uint64_t at = 0;
    for (;;) {
        if (wvcli::interruptSignal() != 0) {
            why = "stopping";
            return false;
        }
        const int32_t got = mEngine.readPcm(list.id, uint32_t(at), block.data(), kReadFrames);
        if (got == WV_ERR_NOT_READY) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            continue;
        }
        if (got < 0) {
            why = "the list cannot be read";
            return false;
        }
        if (got == 0) break;
        at += uint32_t(got);
    }
    list.frames = at;
    return true;
}

void Lists::make(const JsonValue& body, HttpReply& reply) {
    ListPlan plan;
    std::string why;
    if (!readPlan(body, mSources, plan, why)) return fail(reply, 400, why);
    // The format edit's render takes: the largest rate (at least 8000 Hz)
    // and channel count of the clips' sources, known once their loads began.
    auto list = std::make_shared<List>(mEngine);
    list->rate = 8000;
    list->channels = 1;
    for (const ListPlan::Clip& c : plan.clips) {
        int rate = 0;
        int channels = 0;
        for (int waited = 0; !mSources.format(c.source, rate, channels); ++waited) {
            if (waited >= 500 || wvcli::interruptSignal() != 0) return fail(reply, 409, "a source has no format yet");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        list->rate = std::max(list->rate, rate);
        list->channels = std::max(list->channels, channels);
    }
    list->id = buildList(mEngine, plan, why);
    if (list->id == 0) return fail(reply, 500, why);
    if (!countFrames(*list, plan, why)) return fail(reply, 500, why);
    {
        std::lock_guard<std::mutex> guard(mLock);
        list->name = "L" + std::to_string(mNext++);
        mLists.push_back(list);
        while (mLists.size() > kKeptLists) mLists.pop_front();
    }
    reply.body = "{\"list\":" + quote(list->name) + ",\"frames\":" + std::to_string(list->frames) +
                 ",\"sample_rate\":" + std::to_string(list->rate) + ",\"channels\":" + std::to_string(list->channels) +
                 ",\"url\":" + quote("/api/list/" + list->name + ".wav") + "}";
}

std::shared_ptr<Lists::List> Lists::find(const std::string& name) {
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& list : mLists) {
        if (list->name == name) return list;
    }
    return nullptr;
}

void Lists::stream(const std::string& file, HttpReply& reply) {
    static const std::string kSuffix = ".wav";
    if (file.size() <= kSuffix.size() || file.compare(file.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0) {
        return fail(reply, 404, "no such list");
    }
    std::shared_ptr<List> list = find(file.substr(0, file.size() - kSuffix.size()));
    if (!list) return fail(reply, 404, "no such list");
    const std::string header = wavHeader(list->rate, list->channels, list->frames);
    const uint64_t frameBytes = uint64_t(list->channels) * 2;
    Wavoryx& engine = mEngine;
    reply.type = "audio/wav";
    reply.headers.emplace_back("Accept-Ranges", "bytes");
    reply.length = header.size() + list->frames * frameBytes;
    // The list stays alive while a reply reads it, even once pushed out.
    reply.provider = [list, header, frameBytes, &engine](uint64_t offset, uint64_t size, const HttpWrite& write) {
        const uint64_t end = offset + size;
        if (offset < header.size()) {
            const uint64_t n = std::min<uint64_t>(header.size(), end) - offset;
            if (!write(header.data() + offset, size_t(n))) return false;
            offset += n;
        }
        std::vector<int16_t> block(size_t(kReadFrames) * uint32_t(list->channels));
        while (offset < end) {
            const uint64_t dataAt = offset - header.size();
            const uint32_t frame = uint32_t(dataAt / frameBytes);
            const uint64_t skip = dataAt % frameBytes;
            const uint64_t wanted = std::min<uint64_t>((end - offset + skip + frameBytes - 1) / frameBytes, kReadFrames);
            const int32_t got = engine.readPcm(list->id, frame, block.data(), uint32_t(wanted));
            if (got == WV_ERR_NOT_READY) {
                if (wvcli::interruptSignal() != 0) return false;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                continue;
            }
            if (got <= 0) return false;
            const char* bytes = reinterpret_cast<const char*>(block.data()) + skip;
            const uint64_t n = std::min<uint64_t>(uint64_t(got) * frameBytes - skip, end - offset);
            if (!write(bytes, size_t(n))) return false;
            offset += n;
        }
        return true;
    };
}

}  // namespace wvstudio
