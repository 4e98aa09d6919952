#include "items/ListMixer.h"

#include <algorithm>
#include <cstring>

#include "items/PcmInfoReader.h"
#include "items/SPcmInfo.h"

namespace wv {

namespace {

// Frames mixed per clip read: bounds the scratch buffer.
constexpr uint32_t kStepFrames = 2048;

}  // namespace

ListMixer::ListMixer(SPcmInfo* list, int32_t outRate, int32_t outChannels,
                     AudioResampler::src_quality quality)
    : mList(list), mOutRate(outRate), mOutChannels(outChannels), mQuality(quality) {
    mScratch.resize(size_t(kStepFrames) * static_cast<uint32_t>(outChannels));
}

ListMixer::~ListMixer() = default;

ListMixer::ClipSource* ListMixer::sourceFor(const ClipPlacement& place, uint32_t from) {
    ClipSource* found = nullptr;
    for (ClipSource& source : mSources) {
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
    found->reader.reset(new PcmInfoReader(clip.source));
    found->reader->setOutputFormat(mOutRate, mOutChannels);
    found->reader->setResampleQuality(mQuality);
    // A converted clip starts its converter afresh at the source frame
    // nearest below; only a read from its first frame is exact.
    uint64_t sourceFrom = from;
    if (place.placedRate != place.sourceRate && place.placedRate > 0) {
        sourceFrom = uint64_t(from) * static_cast<uint32_t>(place.sourceRate) /
                     static_cast<uint32_t>(place.placedRate);
    }
    found->reader->setPosition(clip.start + static_cast<uint32_t>(sourceFrom), clip.end);
    found->next = from;
    found->holding = false;
    return found;
}

uint32_t ListMixer::addClip(const ClipPlacement& place, uint32_t from, uint32_t count, float* out,
                            bool* waiting) {
    const uint32_t channels = static_cast<uint32_t>(mOutChannels);
    uint32_t done = 0;
    while (done < count) {
        ClipSource* source = sourceFor(place, from + done);
        if (source == nullptr) return done;
        const uint32_t step = std::min(count - done, kStepFrames);
        uint32_t got;
        int32_t state = PcmInfoReader::MORE;
        const int16_t* samples = mScratch.data();
        if (source->holding) {
            got = 1;
            samples = source->held.data();
            source->holding = false;
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
                                    mScratch.begin() + size_t(got + 1) * channels);
                source->holding = true;
            }
        }
        for (uint32_t f = 0; f < got; ++f) {
            const float gain = static_cast<float>(clipEnvelope(place, from + done + f)) / 32768.0f;
            float* into = out + size_t(done + f) * channels;
            const int16_t* sample = samples + size_t(f) * channels;
            for (uint32_t c = 0; c < channels; ++c) into[c] += static_cast<float>(sample[c]) * gain;
        }
        done += got;
        source->next = from + done;
        if (state == PcmInfoReader::WAIT) {
            *waiting = true;
            return done;
        }
        if (state == PcmInfoReader::END) {
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

uint32_t ListMixer::mix(float* out, uint32_t position, uint32_t frames, uint32_t endFrame,
                        int32_t* state) {
    const uint32_t channels = static_cast<uint32_t>(mOutChannels);
    std::memset(out, 0, size_t(frames) * channels * sizeof(float));
    *state = PcmInfoReader::MORE;
    // The list may gain clips or effects between reads: place it anew.
    const uint32_t growing = mList->clipList->place(&mPlaces, true, mOutRate);
    const uint64_t total = mPlaces.empty() ? 0 : mPlaces.back().listStart + mPlaces.back().length;
    const uint64_t stop = std::min<uint64_t>(endFrame, total);
    if (position >= stop) {
        *state = position < endFrame && growing == 1 ? PcmInfoReader::WAIT : PcmInfoReader::END;
        return 0;
    }
    uint32_t made = static_cast<uint32_t>(std::min<uint64_t>(frames, stop - position));
    const uint64_t blockEnd = uint64_t(position) + made;
    bool waiting = false;
    for (const ClipPlacement& place : mPlaces) {
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
    const float listGain =
        static_cast<float>(gainOfMillibels(mList->clipList->listEffects().gainMb));
    if (listGain != 1.0f) {
        for (size_t i = 0; i < size_t(made) * channels; ++i) out[i] *= listGain;
    }
    std::memset(out + size_t(made) * channels, 0, size_t(frames - made) * channels * sizeof(float));
    if (waiting) {
        *state = PcmInfoReader::WAIT;
    } else if (uint64_t(position) + made >= stop) {
        *state = stop == endFrame || growing == 0 ? PcmInfoReader::END : PcmInfoReader::WAIT;
    }
    return made;
}

}  // namespace wv
