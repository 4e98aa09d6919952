#include "items/ClipListSource.h"

#include <algorithm>
#include <cstring>

#include "dsp/Dither.h"
#include "dsp/StreamStage.h"
#include "items/PcmClipList.h"
#include "items/SPcmInfo.h"

namespace wv {

namespace {

// Frames mixed per clip read: bounds the scratch buffer.
constexpr uint32_t kStepFrames = 2048;

}  // namespace

ClipListSource::ClipListSource(SPcmInfo* list, ClipOpener opener)
    : mList(list), mOpener(opener) {}

ClipListSource::~ClipListSource() = default;

void ClipListSource::moveTo(uint32_t position) {
    mPosition = position;
    mClipReader.reset();
}

bool ClipListSource::usesEffects() const {
    return mList->clipList && mList->clipList->hasEffects();
}

uint32_t ClipListSource::ditherSeed(uint32_t frame) {
    // An odd step unlike the generator's own keeps frames' noise apart.
    return TpdfDither::kDefaultSeed + frame * 0x632BE5ABu;
}

int32_t ClipListSource::read(char* buffer, uint32_t frames, uint64_t gotBefore,
                             uint64_t fetchLimit, bool* halted) {
    // Reads with effects fill the whole buffer when they can.
    if (usesEffects()) return readWithEffects(buffer, frames);
    return readPlain(buffer, frames, gotBefore, fetchLimit, halted);
}

int32_t ClipListSource::readPlain(char* buffer, uint32_t frames, uint64_t gotBefore,
                                  uint64_t fetchLimit, bool* halted) {
    const uint32_t outFrameBytes = 2 * static_cast<uint32_t>(mFormat.channels);
    uint32_t got = 0;
    // A clip reader that hands out all it is asked for is read on until the
    // buffer is full, so the limit matters where the next clip would be
    // fetched, and after a clip reader that gave fewer frames than asked
    // while its clip goes on (a stereo item read as mono): asked again for
    // less than it can fold, it would give nothing.
    while (mPosition < mEndFrame && got < frames) {
        if (!mClipReader && gotBefore + got >= fetchLimit) {
            if (halted != nullptr) *halted = true;
            break;
        }
        if (!mClipReader) {
            PcmClipList clips;
            uint32_t count = 0;
            const uint32_t more = mList->clipList->getListBetweenFrame(
                clips, count, mPosition, mEndFrame, false, 1, mFormat.rate, &mClipStart);
            if (clips.size() == 0) {
                mEndState = more ? PcmSource::WAIT : PcmSource::END;
                return static_cast<int32_t>(got);
            }
            const PcmClip first = clips.clips().front();
            mClipReader = mOpener(first.source, mFormat);
            mClipReader->setPosition(first.start, first.end);
            mClipConverts = first.source->ownRate() != mFormat.rate;
        }
        const uint32_t before = mClipReader->position();
        const uint32_t asked = frames - got;
        const int32_t n = mClipReader->read(buffer + got * outFrameBytes, asked * outFrameBytes);
        uint32_t moved = mClipReader->position() - before;
        // List frames are the frames handed out, not the source's.
        if (mClipConverts) moved = n > 0 ? static_cast<uint32_t>(n) : 0;
        mPosition += moved;
        if (n > 0) got += static_cast<uint32_t>(n);
        const int32_t clipState = mClipReader->endState();
        if (clipState == PcmSource::MORE && n > 0 && static_cast<uint32_t>(n) < asked &&
            gotBefore + got >= fetchLimit) {
            if (halted != nullptr) *halted = true;
            break;
        }
        if (clipState == PcmSource::END) {
            mClipReader.reset();
            // The next clip starts where this one's counted length ends,
            // whatever the converter gave.
            if (mClipConverts) mPosition = clipEnd();
            if (mPosition >= mEndFrame) mEndState = PcmSource::END;
        } else if (clipState == PcmSource::WAIT) {
            mEndState = PcmSource::WAIT;
            return static_cast<int32_t>(got);
        } else if (n <= 0 && moved == 0) {
            // A source whose file cannot be opened: its frames are skipped
            // rather than stalling the list.
            const uint32_t end = clipEnd();
            const uint32_t left = !mClipConverts ? mClipReader->framesLeft()
                                  : end > mPosition ? end - mPosition : 0;
            mClipReader.reset();
            if (left == 0) {
                mEndState = PcmSource::WAIT;
                return static_cast<int32_t>(got);
            }
            mPosition += left;
        }
    }
    return static_cast<int32_t>(got);
}

uint32_t ClipListSource::clipEnd() const {
    // The clip is the one at its own first frame; counted from there to the
    // range's end, as far as its source has frames now.
    PcmClipList clip;
    uint32_t count = 0;
    mList->clipList->getListBetweenFrame(clip, count, mClipStart, mEndFrame, false, 1,
                                         mFormat.rate);
    return mClipStart + count;
}

int32_t ClipListSource::readFloat(float* out, uint32_t frames) {
    // The plain path's clip reader would stand at a stale place when the
    // effects go away again.
    mClipReader.reset();
    if (!mMixing) {
        mMixing = true;
        mMixFormat = mFormat;
        mScratch.resize(size_t(kStepFrames) * static_cast<uint32_t>(mMixFormat.channels));
    }
    const ListEffects effects = mList->clipList->listEffects();
    if (effects.streamed()) return readStreamed(out, frames, effects);
    mStages.reset();
    const uint32_t n = mix(mPosition, mEndFrame, out, frames);
    mPosition += n;
    return static_cast<int32_t>(n);
}

int32_t ClipListSource::readWithEffects(char* buffer, uint32_t frames) {
    const uint32_t channels = static_cast<uint32_t>(mFormat.channels);
    if (mFloatBlock.size() < size_t(frames) * channels)
        mFloatBlock.resize(size_t(frames) * channels);
    const uint32_t first = mPosition;
    const int32_t n = readFloat(mFloatBlock.data(), frames);
    int16_t* out = reinterpret_cast<int16_t*>(buffer);
    for (int32_t f = 0; f < n; ++f) {
        TpdfDither dither(ditherSeed(first + static_cast<uint32_t>(f)));
        dither.toInt16(mFloatBlock.data() + size_t(f) * channels, out + size_t(f) * channels,
                       channels);
    }
    return n;
}

ClipListSource::MixSource* ClipListSource::sourceFor(const ClipPlacement& place, uint32_t from) {
    MixSource* found = nullptr;
    for (MixSource& source : mSources) {
        if (source.clipId == place.clipId) found = &source;
    }
    if (found != nullptr && found->next == from) return found;
    PcmClip clip;
    bool known = false;
    for (const PcmClip& candidate : mList->clipList->clips()) {
        if (candidate.clipId != place.clipId) continue;
        clip = candidate;
        known = true;
    }
    if (!known) return nullptr;
    if (found == nullptr) {
        // At most two clips sound at once; a third is a clip left behind.
        if (mSources.size() >= 2) mSources.erase(mSources.begin());
        mSources.emplace_back();
        found = &mSources.back();
        found->clipId = place.clipId;
    }
    found->reader = mOpener(clip.source, mMixFormat);
    // A converted clip starts its converter afresh at the source frame
    // nearest below; only a read from its first frame is exact.
    uint64_t sourceFrom = from;
    if (place.placedRate != place.sourceRate && place.placedRate > 0) {
        sourceFrom = uint64_t(from) * static_cast<uint32_t>(place.sourceRate) /
                     static_cast<uint32_t>(place.placedRate);
    }
    found->reader->setPosition(clip.start + static_cast<uint32_t>(sourceFrom), clip.end);
    found->next = from;
    found->held.clear();
    return found;
}

void ClipListSource::giveBack(const ClipPlacement& place, uint32_t cut) {
    const size_t channels = static_cast<uint32_t>(mMixFormat.channels);
    for (MixSource& source : mSources) {
        if (source.clipId != place.clipId || source.next <= cut || cut < source.takenFrom) continue;
        const size_t keep = size_t(cut - source.takenFrom) * channels;
        if (keep > source.taken.size()) continue;
        source.held.insert(source.held.begin(), source.taken.begin() + keep, source.taken.end());
        source.taken.resize(keep);
        source.next = cut;
    }
}

uint32_t ClipListSource::addClip(const ClipPlacement& place, uint32_t from, uint32_t count,
                                 float* out, bool* waiting) {
    const uint32_t channels = static_cast<uint32_t>(mMixFormat.channels);
    uint32_t done = 0;
    bool first = true;
    while (done < count) {
        MixSource* source = sourceFor(place, from + done);
        if (source == nullptr) return done;
        if (first) {
            source->takenFrom = from;
            source->taken.clear();
            first = false;
        }
        const uint32_t step = std::min(count - done, kStepFrames);
        uint32_t got;
        int32_t state = PcmSource::MORE;
        const int16_t* samples = mScratch.data();
        if (!source->held.empty()) {
            got = std::min(static_cast<uint32_t>(source->held.size() / channels), step);
            std::copy(source->held.begin(), source->held.begin() + size_t(got) * channels,
                      mScratch.begin());
            source->held.erase(source->held.begin(), source->held.begin() + size_t(got) * channels);
        } else {
            // A converted mono read folds stereo frames, giving half of
            // what it is asked: asked for one frame it gives none. Two are
            // asked then, and the second is kept for the next read.
            const uint32_t ask = std::max(step, 2u);
            const int32_t n =
                source->reader->read(reinterpret_cast<char*>(mScratch.data()), ask * channels * 2);
            state = source->reader->endState();
            const uint32_t made = n > 0 ? std::min(static_cast<uint32_t>(n), ask) : 0;
            got = std::min(made, step);
            if (made > got) {
                source->held.assign(mScratch.begin() + size_t(got) * channels,
                                    mScratch.begin() + size_t(made) * channels);
            }
        }
        source->taken.insert(source->taken.end(), samples, samples + size_t(got) * channels);
        for (uint32_t f = 0; f < got; ++f) {
            const float gain = static_cast<float>(clipEnvelope(place, from + done + f)) / 32768.0f;
            float* into = out + size_t(done + f) * channels;
            const int16_t* sample = samples + size_t(f) * channels;
            for (uint32_t c = 0; c < channels; ++c) into[c] += static_cast<float>(sample[c]) * gain;
        }
        done += got;
        source->next = from + done;
        if (state == PcmSource::WAIT) {
            *waiting = true;
            return done;
        }
        if (state == PcmSource::END) {
            // A source shorter than its place (it cannot open) is silence.
            return count;
        }
        if (got == 0) {
            *waiting = true;
            return done;
        }
    }
    return done;
}

uint32_t ClipListSource::mix(uint32_t position, uint32_t end, float* out, uint32_t frames) {
    const uint32_t channels = static_cast<uint32_t>(mMixFormat.channels);
    std::memset(out, 0, size_t(frames) * channels * sizeof(float));
    mEndState = PcmSource::MORE;
    for (MixSource& source : mSources) source.taken.clear();
    // The list may gain clips or effects between reads: place it anew.
    // A clip still loading counts the frames it has, not the length it
    // expects, and frames that its final length may still change wait for
    // it: a mix made while sources load is the mix of the loaded list.
    uint64_t settled = UINT64_MAX;
    const uint32_t growing = mList->clipList->place(&mPlaces, false, mMixFormat.rate, &settled);
    const uint64_t total = mPlaces.empty() ? 0 : mPlaces.back().listStart + mPlaces.back().length;
    const uint64_t stop = std::min<uint64_t>({end, total, settled});
    if (position >= stop) {
        mEndState = position < end && growing == 1 ? PcmSource::WAIT : PcmSource::END;
        return 0;
    }
    uint32_t made = static_cast<uint32_t>(std::min<uint64_t>(frames, stop - position));
    bool waiting = false;
    for (const ClipPlacement& place : mPlaces) {
        // Clips come in list order: a later one reads no further than an
        // earlier one could, or its reader, gone past frames the next mix
        // needs, would be sought back (and a converter restarted mid-clip
        // gives other frames).
        const uint64_t blockEnd = uint64_t(position) + made;
        const uint64_t clipEnd = place.listStart + place.length;
        if (clipEnd <= position || place.listStart >= blockEnd) continue;
        const uint64_t first = std::max<uint64_t>(position, place.listStart);
        const uint64_t last = std::min<uint64_t>(blockEnd, clipEnd);
        const uint32_t from = static_cast<uint32_t>(first - place.listStart);
        const uint32_t count = static_cast<uint32_t>(last - first);
        bool clipWaits = false;
        const uint32_t got =
            addClip(place, from, count, out + (first - position) * channels, &clipWaits);
        if (clipWaits) {
            // Frames past the first missing one are not handed out.
            waiting = true;
            made = std::min(made, static_cast<uint32_t>(first - position + got));
        }
    }
    // A clip that waited after others were read: what they read past it is
    // kept for the next mix.
    for (const ClipPlacement& place : mPlaces) {
        const uint64_t cut = std::max<uint64_t>(uint64_t(position) + made, place.listStart);
        if (cut - place.listStart < place.length) {
            giveBack(place, static_cast<uint32_t>(cut - place.listStart));
        }
    }
    const float listGain =
        static_cast<float>(gainOfMillibels(mList->clipList->listEffects().gainMb));
    if (listGain != 1.0f) {
        for (size_t i = 0; i < size_t(made) * channels; ++i) out[i] *= listGain;
    }
    std::memset(out + size_t(made) * channels, 0, size_t(frames - made) * channels * sizeof(float));
    if (waiting) {
        mEndState = PcmSource::WAIT;
    } else if (uint64_t(position) + made >= stop) {
        mEndState = stop == end || growing == 0 ? PcmSource::END : PcmSource::WAIT;
    }
    return made;
}

}  // namespace wv
