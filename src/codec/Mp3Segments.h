// Mp3Segments: one MP3 stream encoded by several LAME encoders at once,
// each on its own segment of the input, joined so that the stream decodes
// as one encode does: same length, same place, no gap.
//
// Segment s holds the frames of the MP3 frame grid from s x kSegmentFrames
// on. Its encoder starts kPrimingFrames before (on the grid, so its frames
// fall on the one-encoder stream's frames) and encodes kJoinWindow +
// kLookahead frames past the segment's end; the frames outside are
// dropped. The join with the next segment is the first frame of the window
// where the next encoder's reservoir fits in the room this one leaves and
// the window shapes meet (Mp3Frames: joinFits, spliceJoin). In a
// variable-rate stream, where that room is seldom left, the last frame
// before the join may get a higher bit rate to make it (growFrame). When
// no join fits the next segment is encoded again without a reservoir. Only
// the first segment's encoder writes the info frame, restated at the end
// for the whole stream.
//
// Used by Mp3Encoder from one thread; the workers it starts are its own and
// are stopped (an encode in progress left after at most one block) when it
// is deleted.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "base/OrderedWorkers.h"
#include "codec/Mp3Frames.h"

struct lame_global_struct;

namespace wv {

class Mp3Segments {
public:
    static constexpr uint32_t kPrimingFrames = 4;
    static constexpr uint32_t kJoinWindow = 8;
    static constexpr uint32_t kLookahead = 3;

    // A started LAME: with the info frame, with the bit reservoir. Called on
    // the workers.
    using StartLame = std::function<lame_global_struct*(bool infoFrame, bool reservoir)>;

    // MP3 frames (of `frameSamples` input frames each) in a segment: about
    // 10 s at `rate`.
    static uint32_t segmentFrames(uint32_t rate, uint32_t frameSamples);
    // Input frames up to which a stream is one segment, encoded by one
    // encoder alone.
    static uint64_t soleSegmentSamples(uint32_t rate, uint32_t frameSamples);

    // `variableRate`: the frames' bit rates may differ (VBR); a constant
    // rate keeps every frame's header as LAME wrote it.
    Mp3Segments(StartLame start, int threads, uint32_t rate, uint32_t channels,
                uint32_t frameSamples, bool variableRate = false);
    ~Mp3Segments();
    Mp3Segments(const Mp3Segments&) = delete;
    Mp3Segments& operator=(const Mp3Segments&) = delete;

    // Takes `frames` interleaved input frames and appends to `ready` the
    // stream's bytes that are final, in order. False when LAME failed.
    bool push(const int16_t* pcm, size_t frames, std::vector<uint8_t>* ready);
    // Encodes what is left and appends the rest of the stream.
    bool finish(std::vector<uint8_t>* ready);
    // After finish(): the info frame stating the whole stream, to put in
    // the place of the first bytes handed out; empty when there is none.
    std::vector<uint8_t> infoFrame() const;
    // Joins so far whose next segment had to be encoded again without a
    // reservoir, and the bytes frames before joins grew by.
    size_t encodedAgain() const { return mEncodedAgain; }
    uint64_t grownBytes() const { return mGrownBytes; }

private:
    struct Segment;

    uint64_t segmentStart(size_t index) const;  // input frame its encoder starts at
    uint64_t segmentEnd(size_t index) const;    // input frame its encoder stops at, but the last
    void dispatch(bool last);
    bool encodeSegment(Segment& segment);
    // Joins every finished segment in order, waiting first as `wait` says.
    bool spliceReady(WaitFor wait, std::vector<uint8_t>* ready);
    bool join(std::unique_ptr<Segment> next, std::vector<uint8_t>* ready);
    void emitFrames(const Segment& segment, size_t from, size_t to, std::vector<uint8_t>* ready);

    const StartLame mStart;
    const bool mVariableRate;
    const uint32_t mChannels;
    const uint32_t mFrameSamples;
    const uint32_t mSegmentFrames;

    // Input not yet handed to a segment, from input frame mInputBase on.
    std::vector<int16_t> mInput;
    uint64_t mInputBase = 0;
    uint64_t mInputFrames = 0;

    std::unique_ptr<Segment> mHeld;  // the last segment joined; its frames from mHeldFrom on wait
    size_t mHeldFrom = 0;
    size_t mEncodedAgain = 0;
    uint64_t mGrownBytes = 0;
    std::vector<uint8_t> mInfoFrame;
    Mp3Totals mTotals;
    std::vector<uint64_t> mFrameOffsets;  // of every audio frame handed out

    OrderedWorkers<Segment> mPool;  // last: its workers stop before the rest goes
};

}  // namespace wv
