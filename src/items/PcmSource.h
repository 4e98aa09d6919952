// The interfaces between the links of an item's reader.
//  - PcmSource: what a clip list's walker needs of the reader of one clip:
//    16-bit frames of one item in the format the walker asked for, over a
//    range of the item's own frames. PcmInfoReader is the one
//    implementation; the walker sees only this and a ClipOpener, so the
//    list's code and the reader's do not include each other.
//  - ChainHead: what PcmInfoReader reads from, a decoded item's chain or a
//    clip list's source.
//
// Threads: one thread at a time, like the reader.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/resample/AudioResampler.h"

namespace wv {

struct SPcmInfo;

class PcmSource {
public:
    // After every read: 0 more follows, 1 the end of the range (or of a
    // finished item) was reached, 2 the data ends where the item's data
    // ends for now but more will come.
    enum EndState : int32_t { MORE = 0, END = 1, WAIT = 2 };

    virtual ~PcmSource() = default;

    virtual void setPosition(uint32_t start, uint32_t end) = 0;  // [start, end)
    virtual uint32_t position() const = 0;
    virtual uint32_t endFrame() const = 0;
    virtual int32_t endState() const = 0;
    // Up to `bytes` bytes of frames from the position on; returns the frames
    // put in `buffer`, 0 when nothing can be read, -1 when a file cannot be
    // opened.
    virtual int32_t read(char* buffer, uint32_t bytes) = 0;
    // The item's frames from the position to the range's end that exist now.
    virtual uint32_t framesLeft() const = 0;
};

// The output format of a reader: 0 means the item's own.
struct PcmFormat {
    int32_t rate = 0;
    int32_t channels = 0;
    AudioResampler::src_quality quality = AudioResampler::SRC_DEFAULT;
};

// The first link a PcmInfoReader reads from: a decoded item's chain
// (FileChain) or a clip list's source (ClipListSource). Positions count the
// item's own frames.
class ChainHead {
public:
    virtual ~ChainHead() = default;

    // The output format of the next reads.
    virtual void setFormat(const PcmFormat& format) = 0;
    // Where the next frame is read; the next read seeks.
    virtual void moveTo(uint32_t position) = 0;
    virtual void setEnd(uint32_t end) = 0;
    virtual uint32_t position() const = 0;
    // Set by reads (PcmSource::EndState); cleared by the reader before one.
    virtual int32_t endState() const = 0;
    virtual void clearEndState() = 0;
    // Whether the item can be read in its present state.
    virtual bool readable() const = 0;
    // Up to `frames` output frames into a zeroed buffer; returns the frames
    // made, -1 when a file cannot be opened. A list fetches its next clip
    // only while gotBefore + the frames got in this call stay below
    // fetchLimit, and then sets *halted (when given).
    virtual int32_t read(char* buffer, uint32_t frames, uint64_t gotBefore, uint64_t fetchLimit,
                         bool* halted) = 0;
};

// Makes the reader of one clip's source in `format`.
using ClipOpener = std::unique_ptr<PcmSource> (*)(SPcmInfo* source, const PcmFormat& format);

}  // namespace wv
