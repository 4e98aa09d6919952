// The frames of a clip list, walked clip by clip, each clip through a
// reader of its own source (made by the ClipOpener, so nested lists work
// the same way).
//
// Positions count list frames: frames of what this source hands out (see
// PcmClipList.h), a clip of another rate counting the frames its converter
// makes, a nested list its own frames (read at its own rate and converted
// from there: ConvertedList).
//
// Without effects the clips' 16-bit frames are handed out as they come,
// bit for bit, each clip of another rate converted on its own, so the
// list's length is the sum of its clips' converted lengths; the next clip
// starts where the last one's counted length ends.
//
// With effects (ClipEffects.h) the clips are mixed in float: each scaled by
// its envelope, overlapping clips summed, then the list gain; a clip of
// another rate takes the place its converted length needs
// (PcmClipList::place with the output rate), cut or padded to it. The
// 16-bit frames come from one rounding with TPDF dither
// (dsp/Dither.h); the noise of list frame p comes from a TpdfDither seeded
// with ditherSeed(p) = TpdfDither::kDefaultSeed + p x 0x632BE5AB (mod 2^32),
// one value per channel in channel order: the bytes of a frame depend only
// on the list and the frame, so the same list renders to the same bytes
// every time and playback (forwards, backwards, after any seek) hands out
// exactly what a render writes. A converter started mid-clip (after a seek)
// is not primed the way a read from the clip's start leaves it, so those
// frames can differ slightly from a read straight through; at equal rates
// everything is exact.
//
// Noise reduction and tempo run over the whole mix as one stream
// (ClipListStages.cpp): a list frame is then a frame of their output.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "items/ClipEffects.h"
#include "items/PcmSource.h"

namespace wv {

class StreamStage;

class ClipListSource : public ChainHead {
public:
    // `list` is a clip list item the reader's user keeps alive.
    ClipListSource(SPcmInfo* list, ClipOpener opener);
    ~ClipListSource() override;
    ClipListSource(const ClipListSource&) = delete;
    ClipListSource& operator=(const ClipListSource&) = delete;

    // The mix keeps the format of its first read.
    void setFormat(const PcmFormat& format) override { mFormat = format; }
    // Also drops the clip being read.
    void moveTo(uint32_t position) override;
    void setEnd(uint32_t end) override { mEndFrame = end; }
    uint32_t position() const override { return mPosition; }
    int32_t endState() const override { return mEndState; }
    void clearEndState() override { mEndState = PcmSource::MORE; }
    bool readable() const override { return true; }
    // The mix when an effect is set now, else the plain walk.
    int32_t read(char* buffer, uint32_t frames, uint64_t gotBefore, uint64_t fetchLimit,
                 bool* halted) override;
    // Whether the list or one of its clips has an effect set now.
    bool usesEffects() const;

    // Up to `frames` frames mixed with the effects as floats (full scale
    // +-1.0, frames x channels values; the rest is zero); returns the
    // frames made.
    int32_t readFloat(float* out, uint32_t frames);
    // The seed of the dither noise of list frame `frame`.
    static uint32_t ditherSeed(uint32_t frame);

private:
    // The clips' frames as they are. Clips are read only while
    // gotBefore + the frames got in this call stay below fetchLimit;
    // *halted (when given) tells that this stopped the read.
    int32_t readPlain(char* buffer, uint32_t frames, uint64_t gotBefore, uint64_t fetchLimit,
                      bool* halted);
    // The list frame after the plain walk's clip: where the next one
    // starts.
    uint32_t clipEnd() const;
    // readFloat, then the dithered rounding to 16 bits.
    int32_t readWithEffects(char* buffer, uint32_t frames);
    // A clip being mixed: where its reader stands, so a read that goes on
    // from there needs no seek.
    struct MixSource {
        uint32_t clipId = 0;
        uint32_t next = 0;           // clip frame given next (held, or else the reader's)
        std::vector<int16_t> held;   // frames read ahead, from `next` on
        uint32_t takenFrom = 0;      // clip frame of taken's first
        std::vector<int16_t> taken;  // the frames the present mix took, as read
        std::unique_ptr<PcmSource> reader;
    };
    // Mixes list frames from `position` on, at most `frames` and not past
    // `end`, into out; sets the end state.
    uint32_t mix(uint32_t position, uint32_t end, float* out, uint32_t frames);
    // readFloat through the list's noise reduction and tempo
    // (ClipListStages.cpp): the mix feeds the stages, the position counts
    // their output. A read that does not go on from the last one starts
    // them anew a little before the place (the lead-in, half a second of
    // the mix, is dropped), so frames after a seek may differ slightly
    // from a read straight through.
    int32_t readStreamed(float* out, uint32_t frames, const ListEffects& effects);
    void startStages(const ListEffects& effects);
    // Adds clip frames [from, from + count) of `place` to out (whose first
    // frame is clip frame `from`); returns the frames its source gave and
    // *waiting when it stopped at data still to come.
    uint32_t addClip(const ClipPlacement& place, uint32_t from, uint32_t count, float* out,
                     bool* waiting);
    MixSource* sourceFor(const ClipPlacement& place, uint32_t from);
    // Gives the frames of `place` from clip frame `cut` on, taken by the
    // present mix but not handed out, back to its source's held frames.
    void giveBack(const ClipPlacement& place, uint32_t cut);

    SPcmInfo* mList;
    ClipOpener mOpener;
    PcmFormat mFormat;
    uint32_t mPosition = 0;
    uint32_t mEndFrame = 0xFFFFFFFF;
    int32_t mEndState = PcmSource::MORE;
    std::unique_ptr<PcmSource> mClipReader;  // the clip read without effects
    uint32_t mClipStart = 0;                 // the list frame its whole range starts at
    bool mClipConverts = false;              // its source's rate is not the list's

    // The mix, set up at its first read.
    bool mMixing = false;
    PcmFormat mMixFormat;
    std::vector<ClipPlacement> mPlaces;
    std::vector<MixSource> mSources;
    std::vector<int16_t> mScratch;
    std::vector<float> mFloatBlock;  // floats before dither

    // The stages, set up at the first streamed read.
    std::unique_ptr<StreamStage> mStages;
    ListEffects mStagedEffects;
    uint32_t mStagePosition = 0;  // the position their next frame has
    uint32_t mMixPosition = 0;    // the list frame they are fed next
    uint64_t mSkip = 0;           // frames of the lead-in still to drop
    bool mStagesFinished = false;
    uint64_t mStageEnd = 0;  // the list's length, once the mix has ended
    std::vector<float> mStageInput;
};

}  // namespace wv
