// The effect settings of a clip list and where its clips sit once joins
// overlap (see PcmClipList.h and ClipEffects.h).
#include <algorithm>

#include "items/PcmClipList.h"
#include "items/SPcmInfo.h"

namespace wv {

bool PcmClipList::setClipGain(uint32_t clipId, int32_t millibels) {
    std::lock_guard<std::mutex> guard(mLock);
    for (PcmClip& clip : mClips) {
        if (clip.clipId != clipId) continue;
        clip.effects.gainMb = millibels;
        return true;
    }
    return false;
}

bool PcmClipList::setClipFade(uint32_t clipId, uint32_t inMs, uint32_t outMs, int32_t shape) {
    std::lock_guard<std::mutex> guard(mLock);
    for (PcmClip& clip : mClips) {
        if (clip.clipId != clipId) continue;
        clip.effects.fadeInMs = inMs;
        clip.effects.fadeOutMs = outMs;
        clip.effects.fadeShape = shape;
        return true;
    }
    return false;
}

void PcmClipList::setCrossfade(uint32_t ms, int32_t shape) {
    std::lock_guard<std::mutex> guard(mLock);
    mListEffects.crossfadeMs = ms;
    mListEffects.crossfadeShape = shape;
}

void PcmClipList::setListGain(int32_t millibels) {
    std::lock_guard<std::mutex> guard(mLock);
    mListEffects.gainMb = millibels;
}

void PcmClipList::setDenoise(int32_t amountDb) {
    std::lock_guard<std::mutex> guard(mLock);
    mListEffects.denoiseDb = amountDb;
}

void PcmClipList::setTempo(int32_t percent) {
    std::lock_guard<std::mutex> guard(mLock);
    mListEffects.tempoPercent = percent;
}

ListEffects PcmClipList::listEffects() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mListEffects;
}

bool PcmClipList::hasEffects() const {
    std::lock_guard<std::mutex> guard(mLock);
    if (mListEffects.any()) return true;
    for (const PcmClip& clip : mClips) {
        if (clip.effects.any()) return true;
    }
    return false;
}

uint32_t PcmClipList::place(std::vector<ClipPlacement>* out, bool useTotal, int32_t outRate,
                            uint64_t* settled) const {
    std::lock_guard<std::mutex> guard(mLock);
    return placeLocked(out, useTotal, outRate, settled);
}

uint32_t PcmClipList::placeLocked(std::vector<ClipPlacement>* out, bool useTotal, int32_t outRate,
                                  uint64_t* settled) const {
    out->clear();
    std::vector<int32_t> rates;
    uint32_t growing = 0;
    uint64_t fades = 0;  // the last clip's fades in and out before fitting
    for (const PcmClip& clip : mClips) {
        ClipPlacement place;
        place.clipId = clip.clipId;
        growing = static_cast<uint32_t>(
            clip.source->availableFrames(place.length, clip.start, clip.end, useTotal));
        // A list source counts in its own frames, at its own rate, and is
        // converted from there as a file of that rate is.
        place.sourceRate = clip.source->ownRate();
        int32_t rate = place.sourceRate;
        if (outRate > 0 && rate > 0 && rate != outRate) {
            const uint64_t from = static_cast<uint32_t>(rate);
            const uint64_t to = static_cast<uint32_t>(outRate);
            place.length =
                static_cast<uint32_t>((uint64_t(place.length) * to * 2 + from) / (2 * from));
            rate = outRate;
        }
        place.placedRate = rate;
        rates.push_back(rate);
        place.fadeIn = framesOfMs(clip.effects.fadeInMs, rate);
        place.fadeOut = framesOfMs(clip.effects.fadeOutMs, rate);
        fades = uint64_t(place.fadeIn) + place.fadeOut;
        if (fades > place.length) {
            place.fadeIn = static_cast<uint32_t>(uint64_t(place.length) * place.fadeIn / fades);
            place.fadeOut = place.length - place.fadeIn;
        }
        place.fadeShape = clip.effects.fadeShape;
        place.crossfadeShape = mListEffects.crossfadeShape;
        place.gain = gainOfMillibels(clip.effects.gainMb);
        out->push_back(place);
        if (growing == 1) break;
    }
    uint64_t at = 0;
    for (size_t i = 0; i < out->size(); ++i) {
        ClipPlacement& place = (*out)[i];
        if (i > 0) {
            ClipPlacement& before = (*out)[i - 1];
            const uint32_t shorter = std::min(before.length, place.length);
            const uint32_t overlap =
                std::min(framesOfMs(mListEffects.crossfadeMs, rates[i - 1]), shorter / 2);
            before.overlapOut = overlap;
            place.overlapIn = overlap;
            at -= overlap;
        }
        place.listStart = at;
        at += place.length;
    }
    if (settled != nullptr) {
        *settled = UINT64_MAX;
        if (growing == 1) *settled = settledEnd(*out, rates, fades);
    }
    return growing;
}

uint64_t PcmClipList::settledEnd(const std::vector<ClipPlacement>& places,
                                 const std::vector<int32_t>& rates, uint64_t fades) const {
    // The growing clip is the last placed; its length so far is the least
    // it can end with.
    const size_t last = places.size() - 1;
    const ClipPlacement& growing = places[last];
    if (last > 0) {
        // Its join with the clip before is final once it is long enough
        // that more frames cannot widen the overlap.
        const ClipPlacement& before = places[last - 1];
        const uint32_t widest =
            std::min(framesOfMs(mListEffects.crossfadeMs, rates[last - 1]), before.length / 2);
        if (growing.overlapIn != widest) return before.listStart + before.length - widest;
    }
    // Fades that do not fit yet would be shared anew as the clip grows.
    if (fades > growing.length) return growing.listStart;
    // Its last frames fade out, or cross into the next clip, wherever the
    // clip ends.
    const uint32_t tail =
        std::max(growing.fadeOut, framesOfMs(mListEffects.crossfadeMs, rates[last]));
    return growing.listStart + (growing.length > tail ? growing.length - tail : 0);
}

}  // namespace wv
