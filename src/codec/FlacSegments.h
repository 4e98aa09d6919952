// FlacSegments: one FLAC stream encoded by several libavcodec encoders at
// once, each on its own segment of the input, joined into the stream one
// encoder makes, byte for byte.
//
// FLAC frames are coded from their own samples alone, so an encoder opened
// with the same settings codes a run of whole blocks exactly as one encoder
// coding the whole input does. What differs is only what counts from the
// stream's start: each frame's number (a variable-length code, so the frame
// can grow or shrink) and with it both CRCs, which the workers rewrite; and
// the stream's totals (frame sizes, length, MD5 of the samples), which
// restateStreamInfo() states once every frame is out.
//
// Each worker keeps its encoder from segment to segment; the encoder's
// count of frames is then never ahead of the stream's numbers. One thing
// of a frame's coding does depend on its number: the codec falls back to
// a verbatim frame when its estimate, which counts the number's bytes,
// exceeds a verbatim frame's bound. A frame whose number is longer in the
// stream than in its encoder, and whose size comes near that bound, is
// coded again by an encoder whose own count has as many bytes (moved there
// with frames of silence, once per worker).
//
// Segment s holds blocks s x segmentBlocks() on; every segment but the last
// is whole, and the last holds at least one whole block before a short one,
// as one encoder's stream ends (its encoder then sees a whole block before
// the short one, as one encoder would).
//
// Used from one thread; the workers it starts are its own and are stopped
// (an encode in progress left after at most one block) when it is deleted.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "base/OrderedWorkers.h"

struct AVCodecContext;
struct AVMD5;

namespace wv {

class FlacSegments {
public:
    // An opened FLAC encoder taking interleaved 16-bit input, with the
    // settings of the stream's; null on failure. Called on the workers.
    using NewCodec = std::function<AVCodecContext*()>;

    // A frame of the stream, numbered in it.
    struct Frame {
        std::vector<uint8_t> bytes;
        uint32_t samples = 0;  // input frames it holds
    };

    // Blocks of `blockFrames` input frames in a segment: about 10 s at
    // `rate`, one at least.
    static uint32_t segmentBlocks(uint32_t rate, uint32_t blockFrames);

    // `blockFrames`: the codec's frame size, every frame's but the last.
    FlacSegments(NewCodec newCodec, int threads, uint32_t rate, uint32_t channels,
                 uint32_t blockFrames);
    ~FlacSegments();
    FlacSegments(const FlacSegments&) = delete;
    FlacSegments& operator=(const FlacSegments&) = delete;

    // Takes `frames` interleaved input frames and appends to `ready` the
    // stream's frames that are final, in order. False when an encoder
    // failed.
    bool push(const int16_t* pcm, size_t frames, std::vector<Frame>* ready);
    // Encodes what is left and appends the rest of the stream.
    bool finish(std::vector<Frame>* ready);
    // After finish(): restates `info`, the 34 bytes of STREAMINFO the codec
    // gave when it was opened, for the whole stream as one encoder states
    // it at its end. False when `info` is not that.
    bool restateStreamInfo(std::vector<uint8_t>* info) const;

private:
    struct Segment;
    struct Worker;

    void dispatch(bool last);
    bool encodeSegment(Worker& worker, Segment& segment);
    // Codes `count` frames at `pcm` again for frame `number`, with an
    // encoder whose count has as many bytes.
    bool recode(Worker& worker, const int16_t* pcm, int count, uint32_t number, Frame* out);
    // Hands out every finished segment in order, waiting first as `wait` says.
    bool collect(WaitFor wait, std::vector<Frame>* ready);

    const NewCodec mNewCodec;
    const uint32_t mChannels;
    const uint32_t mBlockFrames;
    const uint32_t mSegmentBlocks;

    std::vector<int16_t> mInput;  // not yet handed to a segment: the next one's
    // Buffers of segments collected, for the next ones' input: new memory
    // would be faulted in page by page again.
    std::vector<std::vector<int16_t>> mSpare;
    uint64_t mInputFrames = 0;
    AVMD5* mMd5 = nullptr;
    uint8_t mMd5Sum[16] = {};
    uint32_t mSmallestFrame = 0xFFFFFFFF;
    uint32_t mLargestFrame = 0;
    bool mFinished = false;

    OrderedWorkers<Segment, Worker> mPool;  // last: its workers stop before the rest goes
};

}  // namespace wv
