#include "items/SPcmInfo.h"

#include <unistd.h>

#include <cstdio>

#include "base/FrameTime.h"
#include "codec/WorkingFile.h"
#include "items/SourceScan.h"

namespace wv {

const char* const SPcmInfo::status_name[kStatusCount] = {"ENCODED_FILE", "DECODING", "RECORDING",
                                                         "CLIP_LIST", "PCM_READY"};
const char* const SPcmInfo::ref_name[kRefCount] = {"REF_NONE",    "REF_CLIENT",   "REF_LIST",
                                                   "REF_ENCODER", "REF_RECORDER", "REF_DECODER",
                                                   "REF_PLAYER"};

const char* SPcmInfo::statusName(int32_t value) {
    return value >= 0 && value < kStatusCount ? status_name[value] : "UNKNOWN";
}

SPcmInfo::SPcmInfo(pcm_status_t initial) : status(initial) {
    if (initial == CLIP_LIST) clipList.reset(new PcmClipList());
}

// An item destroyed without release (the engine's teardown) keeps its file
// on the disk, as it always has; only the lock goes.
SPcmInfo::~SPcmInfo() {
    const int fd = pcmFd.exchange(-1);
    if (fd >= 0) ::close(fd);
    const int stream = streamFd.exchange(-1);
    if (stream >= 0) ::close(stream);
}

uint32_t SPcmInfo::frameSize() const {
    const int32_t channels = channelCount.load(std::memory_order_relaxed);
    return channels == 0 ? 4 : 2 * static_cast<uint32_t>(channels);
}

int32_t SPcmInfo::ownRate() const {
    if (status.load() != CLIP_LIST || !clipList) return sampleRate.load();
    const int32_t chosen = renderSettings().sampleRate;
    return chosen >= 1 ? chosen : clipList->getSamplerate();
}

int32_t SPcmInfo::ownChannels() const {
    if (status.load() != CLIP_LIST || !clipList) return channelCount.load();
    const int32_t chosen = renderSettings().channels;
    return chosen >= 1 ? chosen : clipList->getChannelCount();
}

uint32_t SPcmInfo::span(uint32_t s, uint32_t e) const {
    // An empty or inverted range (clips are not checked when added) has no
    // frames rather than a wrapped-around count.
    if (s >= e) return 0;
    const uint32_t length = status.load() == PCM_READY ? frames.load() : totalFrames.load();
    if (length > e) return e - s;
    if (length > s) return length - s;
    return 0;
}

uint32_t SPcmInfo::duration2frame(uint32_t& durationMs, uint32_t s, uint32_t e) const {
    switch (status.load()) {
        case DECODING:
        case RECORDING:
        case PCM_READY: {
            const uint64_t rate = static_cast<uint32_t>(sampleRate.load());
            // A rate is always known once data is produced; without one
            // nothing can be consumed.
            if (rate == 0) return s;
            const uint64_t spanMs = uint64_t(span(s, e)) * 1000 / rate;
            if (durationMs > spanMs) {
                durationMs -= static_cast<uint32_t>(spanMs);
                return s + static_cast<uint32_t>(spanMs * rate / 1000);
            }
            const uint32_t frame = s + static_cast<uint32_t>(uint64_t(durationMs) * rate / 1000);
            durationMs = 0;
            return frame;
        }
        case CLIP_LIST: {
            if (!clipList) return 0;
            // A list's own frames at its own rate (PcmClipList.h), from its
            // start.
            const uint64_t rate = static_cast<uint32_t>(ownRate());
            if (rate == 0) return 0;
            uint32_t length = 0;
            availableFrames(length, 0, 0xFFFFFFFF, true);
            const uint64_t wanted = uint64_t(durationMs) * rate / 1000;
            if (wanted < length) {
                durationMs = 0;
                return static_cast<uint32_t>(wanted);
            }
            const uint64_t usedMs = uint64_t(length) * 1000 / rate;
            durationMs = usedMs >= durationMs ? 0 : durationMs - static_cast<uint32_t>(usedMs);
            return length;
        }
        default:
            return 0;
    }
}

uint32_t SPcmInfo::endFrameAtMs(uint32_t ms) const {
    const int32_t current = status.load();
    if (current == DECODING || current == RECORDING || current == PCM_READY) {
        const int64_t rate = static_cast<uint32_t>(sampleRate.load());
        return static_cast<uint32_t>(wv::endFrameAtMs(ms, rate, span(0, 0xFFFFFFFF)));
    }
    if (current == CLIP_LIST && clipList) {
        uint32_t length = 0;
        availableFrames(length, 0, 0xFFFFFFFF, true);
        return static_cast<uint32_t>(wv::endFrameAtMs(ms, ownRate(), length));
    }
    return 0;
}

uint32_t SPcmInfo::frame2duration(uint32_t s, uint32_t e) const {
    switch (status.load()) {
        case DECODING:
        case RECORDING:
        case PCM_READY: {
            const uint64_t rate = static_cast<uint32_t>(sampleRate.load());
            if (rate == 0) return 0;
            return static_cast<uint32_t>(uint64_t(span(s, e)) * 1000 / rate);
        }
        case CLIP_LIST:
            return clipList ? clipList->frame2duration() : 0;
        default:
            return 0;
    }
}

int32_t SPcmInfo::availableFrames(uint32_t& frameCount, uint32_t s, uint32_t e,
                                  bool useTotal) const {
    frameCount = 0;
    if (s >= e) return 0;
    const int32_t current = status.load();
    switch (current) {
        case ENCODED_FILE:
            return 1;
        case DECODING:
        case RECORDING:
        case PCM_READY: {
            const uint32_t length =
                (current == PCM_READY || !useTotal) ? frames.load() : totalFrames.load();
            if (length > e) {
                frameCount = e - s;
                return 0;
            }
            if (length > s) frameCount = length - s;
            return current == PCM_READY ? 0 : 1;
        }
        case CLIP_LIST: {
            if (!clipList) return 0;
            PcmClipList scratch;
            return static_cast<int32_t>(clipList->getListBetweenFrame(
                scratch, frameCount, s, e, useTotal, SIZE_MAX, ownRate()));
        }
        default:
            return 0;
    }
}

std::string SPcmInfo::currentPath() const {
    std::string writing = writingPath.get();
    return writing.empty() ? path.get() : writing;
}

void SPcmInfo::release() {
    // The player first: its output thread reads this item (and through a
    // clip list its sources) until the player's destruction has stopped it.
    player.reset();
    clipList.reset();
    dropPcmFile();
    takeHeldOutput().reset();
}

void SPcmInfo::dropPcmFile() { working_file::removeAndClose(pcmPath.get(), pcmFd.exchange(-1)); }

}  // namespace wv
