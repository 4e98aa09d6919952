// Reads a clip list with its effects as float frames (full scale +-1.0) in
// the output format: each clip through a reader of its own, scaled by its
// envelope (ClipEffects.h), overlapping clips summed, then the list gain.
// No 16-bit rounding happens here; the list's reader does it once, at the
// end (or its user takes the floats: a later stage of the render).
//
// The result for a list frame depends only on the list and the frame, not
// on how reads are split or where they seek: playback and render agree.
// A list frame is an output frame here: a clip of another rate takes the
// place its converted length needs (PcmClipList::place with the output
// rate), converted by a reader of its own and cut or padded to that place.
// A converter started mid-clip (after a seek) is not primed the way a read
// from the clip's start leaves it, so those frames can differ slightly from
// a read straight through; at equal rates everything is exact.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "items/ClipEffects.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

struct SPcmInfo;
class PcmInfoReader;

class ListMixer {
public:
    // `list` is a clip list the owner keeps alive.
    ListMixer(SPcmInfo* list, int32_t outRate, int32_t outChannels,
              AudioResampler::src_quality quality);
    ~ListMixer();
    ListMixer(const ListMixer&) = delete;
    ListMixer& operator=(const ListMixer&) = delete;

    // Mixes list frames from `position` on, at most `frames` and not past
    // `endFrame`, into out (frames x channels floats; the rest is zero).
    // Returns the frames made; *state becomes 0 (more follows), 1 (the end
    // of the range or of a finished list was reached) or 2 (the data stops
    // here for now: a source still loading).
    uint32_t mix(float* out, uint32_t position, uint32_t frames, uint32_t endFrame, int32_t* state);

private:
    // A clip being read: where its reader stands, so a read that goes on
    // from there needs no seek.
    struct ClipSource {
        uint32_t clipId = 0;
        uint32_t next = 0;          // clip frame given next (held, or else the reader's)
        bool holding = false;       // `held` is frame `next`, read ahead
        std::vector<int16_t> held;  // one frame
        std::unique_ptr<PcmInfoReader> reader;
    };
    // Adds clip frames [from, from + count) of `place` to out (whose first
    // frame is clip frame `from`); returns the frames its source gave and
    // *waiting when it stopped at data still to come.
    uint32_t addClip(const ClipPlacement& place, uint32_t from, uint32_t count, float* out,
                     bool* waiting);
    ClipSource* sourceFor(const ClipPlacement& place, uint32_t from);

    SPcmInfo* mList;
    int32_t mOutRate;
    int32_t mOutChannels;
    AudioResampler::src_quality mQuality;
    std::vector<ClipPlacement> mPlaces;
    std::vector<ClipSource> mSources;
    std::vector<int16_t> mScratch;
};

}  // namespace wv
