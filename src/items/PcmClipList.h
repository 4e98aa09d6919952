// Clip lists: the audio of a list is the concatenation of its clips, frame
// ranges of other items, in the order they were added. A list never copies
// audio; readers follow the clips to their sources.
//
// A frame of a list is a frame of what the list's reader hands out at the
// list's own rate (SPcmInfo::ownRate): frame 0 is the first available
// frame of the first clip; each clip contributes the frames of its range
// that are available now, a clip of another rate as many as its converter
// makes (round(frames x rate / its rate)), and the next clip follows
// directly. A list used as a clip counts the same way, recursively: its
// ranges are in its own frames, as if its render were the clip's source.
// getListBetweenFrame with that rate (SPcmInfo::availableFrames) is the
// count the walks of lengths and ranges, and a clip's ms over a list, ask.
//
// Effects (see ClipEffects.h) ride with the clips. A crossfade of the list
// changes its frame numbering: each join of consecutive clips overlaps by
// the crossfade's frames (at the rate of the clip before the join), clamped
// to half of the shorter of the two clips so that no frame ever mixes more
// than two clips; the list is shorter by the overlaps, and so is every
// count. A tempo stretches every count to the list's stretched length.
//
// Threads: the client adds clips while workers walk and rewrite them, so
// every operation takes the list's own lock. Walks recurse into lists used
// as sources; since a list never contains itself, the locks of nested lists
// are always taken outer first.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>
#include <vector>

#include "items/ClipEffects.h"
#include "items/PcmTypes.h"

namespace wv {

struct SPcmInfo;

struct PcmClip {
    uint32_t clipId = 0;         // 1 for the first clip of a list, then 2, 3, ...
    SPcmInfo* source = nullptr;  // kept alive by a REF_LIST reference per clip
    uint32_t start = 0;          // first frame (milliseconds while inMs)
    uint32_t end = 0;            // frame after the last (milliseconds while inMs)
    bool inMs = false;           // start and end still to be converted
    ClipEffects effects;
};

class PcmClipList {
public:
    PcmClipList() = default;
    virtual ~PcmClipList() = default;
    PcmClipList(const PcmClipList&) = delete;
    PcmClipList& operator=(const PcmClipList&) = delete;

    // Numbers the clip and appends a copy; returns its clipId.
    uint32_t add(PcmClip& clip);
    // 1 when every clip's source has at least begun to produce data (an
    // empty list is ready); converts millisecond clips whose sources have a
    // length. 0 at the first source that is still an unloaded file.
    uint32_t isPcmReady();
    // True when a clip's source (or a source of a nested list) is a file
    // whose load failed or was cancelled: its data will never come.
    bool hasFailedSource() const;
    // The format the clips suggest: the largest rate (at least 8000) and
    // channel count (at least 1) of the sources up to the first one that is
    // not loading or loaded.
    int32_t getSamplerate();
    int32_t getChannelCount();
    // Appends to `out` the clips covering list frames [startFrame, endFrame),
    // cut to the range; sets frameCount to the frames available now. Returns
    // 1 when the range is cut short by a source that may still grow.
    // With `maxClips`, appends at most that many clips and stops there
    // (frameCount then counts those only): a reader that walks a list clip
    // by clip needs the next one, and copying the rest each time makes a
    // long list quadratic. A crossfaded or stretched list appends nothing
    // and counts the frames its reader hands out at `rate` (the list's own,
    // SPcmInfo::ownRate; 0: each clip at its source's rate). With a rate,
    // a clip of another rate counts the frames its converter makes, and
    // *firstStart (when given) is the list frame its whole range starts at.
    uint32_t getListBetweenFrame(PcmClipList& out, uint32_t& frameCount, uint32_t startFrame,
                                 uint32_t endFrame, bool useTotal, size_t maxClips = SIZE_MAX,
                                 int32_t rate = 0, uint32_t* firstStart = nullptr);

    // Effects. The clip setters return false for a clip id not in the list;
    // values are stored as given (the engine checks their ranges).
    bool setClipGain(uint32_t clipId, int32_t millibels);
    bool setClipFade(uint32_t clipId, uint32_t inMs, uint32_t outMs, int32_t shape);
    void setCrossfade(uint32_t ms, int32_t shape);
    void setListGain(int32_t millibels);
    // Noise reduction (0 off) and tempo (100 off) of the mixed list; a
    // tempo makes every frame count, duration and position of the list
    // count in the stretched list.
    void setDenoise(int32_t amountDb);
    void setTempo(int32_t percent);
    ListEffects listEffects() const;
    // Whether any effect of the list or of one of its clips is set: without
    // one the list reads exactly as plain concatenated clips.
    bool hasEffects() const;
    // Where each clip sits (see availableFrames for useTotal), in order, up
    // to and including the first clip whose source may still grow (whose
    // crossfade out is then unknown, so none). Returns 1 when it stopped at
    // such a clip. With outRate > 0 a clip of another rate is placed as
    // the converter makes it: round(frames x outRate / rate) frames, and
    // every length in ms counts at outRate (ClipPlacement::sourceRate tells
    // the clip's own rate). A list source counts in its own frames at its
    // own rate (SPcmInfo::ownRate) and is converted from there like a file.
    // *settled (when given) is the list frame before which the mix can no
    // longer change however long the growing clip turns out to be: its
    // fades, its crossfades and where the next clip starts depend on that
    // length (UINT64_MAX when no clip grows).
    uint32_t place(std::vector<ClipPlacement>* out, bool useTotal, int32_t outRate = 0,
                   uint64_t* settled = nullptr) const;

    // A copy of the clips, in order.
    std::vector<PcmClip> clips() const;
    size_t size() const;
    uint32_t lastClipId() const;
    // Whether `item` is a source of this list or of a list inside it.
    bool reaches(const SPcmInfo* item) const;
    // The duration of the list in ms, of the owning item (its frames from
    // ms count at its own rate: SPcmInfo::duration2frame).
    uint32_t frame2duration() const;
    // The length of the list converted clip by clip to outRate Hz the way
    // the high-quality resampler does: the sum of round(span x outRate /
    // rate) over the clips, a list source's span being its own frames.
    // False (and *frames untouched) when the list crossfades or a clip's
    // source has no rate yet.
    bool convertedLength(int32_t outRate, uint64_t* frames) const;

private:
    void appendCopy(const PcmClip& clip);
    // A duration in ms less the overlaps of crossfaded joins; lock held.
    uint32_t withoutOverlaps(uint32_t total) const;
    uint32_t placeLocked(std::vector<ClipPlacement>* out, bool useTotal, int32_t outRate = 0,
                         uint64_t* settled = nullptr) const;
    // The list frame where the mix may change with the growing clip's
    // length (see place): `rates` are the placed rates, `fades` the growing
    // clip's fades in and out before fitting. The lock is held.
    uint64_t settledEnd(const std::vector<ClipPlacement>& places,
                        const std::vector<int32_t>& rates, uint64_t fades) const;
    bool crossfading() const { return mListEffects.crossfadeMs != 0 && mClips.size() > 1; }

    mutable std::mutex mLock;
    std::list<PcmClip> mClips;
    uint32_t mLastClipId = 0;
    ListEffects mListEffects;
};

}  // namespace wv
