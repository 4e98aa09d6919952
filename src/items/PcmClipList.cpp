#include "items/PcmClipList.h"

#include <algorithm>

#include "items/SPcmInfo.h"

namespace wv {

namespace {

// Frames of a clip at its source's rate `from` counted at a list's `to`
// (either 0: no conversion).
struct Rescale {
    int32_t to;
    int32_t from;
    bool converts() const { return to > 0 && from > 0 && to != from; }
    // A list frame of the clip to the source frame at or before it.
    uint32_t operator()(uint32_t listFrames) const {
        if (!converts()) return listFrames;
        return static_cast<uint32_t>(uint64_t(listFrames) * static_cast<uint32_t>(from) /
                                     static_cast<uint32_t>(to));
    }
    // A length in source frames to the length the converter makes of it.
    uint32_t converted(uint32_t sourceFrames) const {
        if (!converts()) return sourceFrames;
        const uint64_t f = static_cast<uint32_t>(from);
        const uint64_t twice = uint64_t(sourceFrames) * static_cast<uint32_t>(to) * 2;
        return static_cast<uint32_t>(std::min<uint64_t>((twice + f) / (2 * f), 0xFFFFFFFFu));
    }
};

}  // namespace

uint32_t PcmClipList::add(PcmClip& clip) {
    std::lock_guard<std::mutex> guard(mLock);
    clip.clipId = ++mLastClipId;
    mClips.push_back(clip);
    return clip.clipId;
}

void PcmClipList::appendCopy(const PcmClip& clip) {
    std::lock_guard<std::mutex> guard(mLock);
    mClips.push_back(clip);
}

bool PcmClipList::hasFailedSource() const {
    std::lock_guard<std::mutex> guard(mLock);
    for (const PcmClip& clip : mClips) {
        if (clip.source->loadFailed.load()) return true;
        if (clip.source->status.load() == CLIP_LIST && clip.source->clipList->hasFailedSource()) {
            return true;
        }
    }
    return false;
}

uint32_t PcmClipList::isPcmReady() {
    std::lock_guard<std::mutex> guard(mLock);
    for (PcmClip& clip : mClips) {
        const int32_t status = clip.source->status.load();
        if (status == ENCODED_FILE) return 0;
        if (status == CLIP_LIST) {
            if (clip.source->clipList->isPcmReady() == 0) return 0;
        }
        if (clip.inMs) {
            // Converted once, against the expected length while the source
            // still grows.
            clip.start = clip.source->duration2frame(clip.start, 0, 0xFFFFFFFF);
            clip.end = clip.source->endFrameAtMs(clip.end);
            clip.inMs = false;
        }
    }
    return 1;
}

int32_t PcmClipList::getSamplerate() {
    std::lock_guard<std::mutex> guard(mLock);
    int32_t result = 8000;
    for (const PcmClip& clip : mClips) {
        const int32_t status = clip.source->status.load();
        int32_t rate;
        if (status == CLIP_LIST) {
            rate = clip.source->clipList->getSamplerate();
        } else if (status == PCM_READY || status == DECODING) {
            rate = clip.source->sampleRate.load();
        } else {
            break;
        }
        result = std::max(result, rate);
    }
    return result;
}

int32_t PcmClipList::getChannelCount() {
    std::lock_guard<std::mutex> guard(mLock);
    int32_t result = 1;
    for (const PcmClip& clip : mClips) {
        const int32_t status = clip.source->status.load();
        int32_t channels;
        if (status == CLIP_LIST) {
            channels = clip.source->clipList->getChannelCount();
        } else if (status == PCM_READY || status == DECODING) {
            channels = clip.source->channelCount.load();
        } else {
            break;
        }
        result = std::max(result, channels);
    }
    return result;
}

uint32_t PcmClipList::getListBetweenFrame(PcmClipList& out, uint32_t& frameCount, uint32_t s,
                                          uint32_t e, bool useTotal, size_t maxClips,
                                          int32_t rate, uint32_t* firstStart) {
    const uint32_t from = s;
    frameCount = 0;
    if (s >= e) return 0;
    std::lock_guard<std::mutex> guard(mLock);
    const int32_t percent = mListEffects.tempoPercent;
    if (crossfading() || percent != 100) {
        // Overlapping clips do not cut into ranges of their own: the reader
        // of a crossfaded list mixes from the placement, and callers here
        // want the count; so does the reader of a stretched list.
        std::vector<ClipPlacement> places;
        const uint32_t growing = placeLocked(&places, useTotal, rate);
        const uint64_t placed = places.empty() ? 0 : places.back().listStart + places.back().length;
        const uint64_t total = tempoLength(placed, percent);
        if (s < total) frameCount = static_cast<uint32_t>(std::min<uint64_t>(e, total) - s);
        return growing == 1 && e > total ? 1 : 0;
    }
    bool started = false;
    for (const PcmClip& clip : mClips) {
        uint32_t length = 0;
        const int32_t growing =
            clip.source->availableFrames(length, clip.start, clip.end, useTotal);
        // A clip of another rate counts the frames its converter makes;
        // a cut inside it falls on the source frame at or before.
        const Rescale toSource{rate, rate > 0 ? clip.source->ownRate() : 0};
        length = toSource.converted(length);
        if (firstStart != nullptr && !started && s < length) *firstStart = from - s;
        if (e < length) {
            // The range ends inside this clip.
            PcmClip cut = clip;
            cut.end = clip.start + toSource(e);
            if (!started) {
                cut.start = clip.start + toSource(s);
                frameCount = e - s;
            } else {
                frameCount += e;
            }
            out.appendCopy(cut);
            return 0;
        }
        if (started) {
            frameCount += length;
            out.appendCopy(clip);
        } else if (s < length) {
            PcmClip cut = clip;
            cut.start = clip.start + toSource(s);
            frameCount = length - s;
            out.appendCopy(cut);
            started = true;
        }
        // The rest of the range lies beyond frames that do not exist yet.
        if (growing == 1) return 1;
        if (started && out.mClips.size() >= maxClips) return 0;
        s -= length;
        e -= length;
    }
    return 0;
}

std::vector<PcmClip> PcmClipList::clips() const {
    std::lock_guard<std::mutex> guard(mLock);
    return std::vector<PcmClip>(mClips.begin(), mClips.end());
}

size_t PcmClipList::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mClips.size();
}

uint32_t PcmClipList::lastClipId() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLastClipId;
}

bool PcmClipList::reaches(const SPcmInfo* item) const {
    std::lock_guard<std::mutex> guard(mLock);
    for (const PcmClip& clip : mClips) {
        if (clip.source == item) return true;
        if (clip.source->clipList && clip.source->clipList->reaches(item)) return true;
    }
    return false;
}

bool PcmClipList::convertedLength(int32_t outRate, uint64_t* frames) const {
    std::lock_guard<std::mutex> guard(mLock);
    // Overlaps are not rounded clip by clip like the converter's lengths.
    if (crossfading()) return false;
    uint64_t total = 0;
    for (const PcmClip& clip : mClips) {
        const int32_t status = clip.source->status.load();
        const int32_t rate = clip.source->ownRate();
        if ((status != DECODING && status != RECORDING && status != PCM_READY &&
             status != CLIP_LIST) ||
            rate < 1 || outRate < 1) {
            return false;
        }
        // A list source: the frames its reader hands out at its own rate.
        uint32_t listed = 0;
        if (status == CLIP_LIST) clip.source->availableFrames(listed, clip.start, clip.end, true);
        const uint64_t span =
            status == CLIP_LIST ? listed : clip.source->span(clip.start, clip.end);
        total += rate == outRate
                     ? span
                     : (span * uint64_t(outRate) * 2 + uint64_t(rate)) / (2 * uint64_t(rate));
    }
    *frames = tempoLength(total, mListEffects.tempoPercent);
    return true;
}

uint32_t PcmClipList::frame2duration() const {
    std::lock_guard<std::mutex> guard(mLock);
    uint32_t total = 0;
    for (const PcmClip& clip : mClips) {
        if (clip.source->status.load() != CLIP_LIST) {
            total += clip.source->frame2duration(clip.start, clip.end);
            continue;
        }
        // A list source: its own frames of the range, at its own rate.
        const uint64_t rate = static_cast<uint32_t>(clip.source->ownRate());
        uint32_t frames = 0;
        clip.source->availableFrames(frames, clip.start, clip.end, true);
        if (rate != 0) total += static_cast<uint32_t>(uint64_t(frames) * 1000 / rate);
    }
    const int32_t percent = mListEffects.tempoPercent;
    if (crossfading()) total = withoutOverlaps(total);
    return static_cast<uint32_t>(tempoLength(total, percent));
}

uint32_t PcmClipList::withoutOverlaps(uint32_t total) const {
    // Each overlap counts once, in the time of the clip before its join.
    std::vector<ClipPlacement> places;
    placeLocked(&places, true);
    auto clip = mClips.begin();
    for (size_t i = 0; i + 1 < places.size(); ++i, ++clip) {
        const uint64_t rate = static_cast<uint32_t>(clip->source->ownRate());
        const uint32_t overlapMs =
            rate == 0 ? 0 : static_cast<uint32_t>(uint64_t(places[i].overlapOut) * 1000 / rate);
        total = overlapMs > total ? 0 : total - overlapMs;
    }
    return total;
}

}  // namespace wv
