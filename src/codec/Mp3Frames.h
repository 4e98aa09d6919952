// Mp3Frames: what the segment encoder needs to know of the layer III frames
// LAME wrote, and the edits it makes on them.
//
// A frame's audio data (its "main data") need not lie in the frame: it
// starts main_data_begin bytes before the frame's own data area, in the
// areas of the frames before it (LAME's bit reservoir). Two encodes of
// neighbouring segments are joined by taking the frames before the join
// from the first and the frames from the join on from the second; the
// second's first frame may reach back into frames that are not kept, so
// the bytes it reaches back to are copied into the unused end of the first
// encode's last kept frames (spliceJoin), where its main_data_begin then
// points. When that end is too small, a variable-rate stream's last kept
// frame is made longer first (growFrame). No side information changes, so
// no frame's audio does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wv {

struct Mp3Frame {
    size_t offset = 0;     // of its header in the stream
    uint32_t bytes = 0;    // header to the next header
    uint32_t areaAt = 0;   // of its data area (after the side information), from `offset`
    uint32_t dataBegin = 0;  // main_data_begin, bytes
    uint32_t dataBits = 0;   // its main data, all granules and channels
    // Block type of the first and last granule, per channel (0 long, 1
    // start, 2 short, 3 stop); the second channel repeats the first in mono.
    uint8_t firstBlock[2] = {0, 0};
    uint8_t lastBlock[2] = {0, 0};
    // Where its data area starts in the stream of all areas of its encode.
    uint64_t areaStart = 0;
    uint32_t areaBytes() const { return bytes - areaAt; }
};

// The frames of `stream` from its start, one after the other; stops at the
// first byte that starts no layer III frame (false when that is before the
// end).
bool scanMp3Frames(const uint8_t* stream, size_t bytes, std::vector<Mp3Frame>* frames);

// Bytes frame `last` leaves unused at the end of its data area, after its
// main data.
uint32_t roomAfterData(const Mp3Frame& last);

// Whether the window shapes of frame `last` of a first encode and frame
// `next` of a second meet (a long block ends where a long or start block
// begins, a short or start block where a short or stop block begins), so
// the decoder's overlap cancels as in one encode.
bool shapesMeet(const Mp3Frame& last, const Mp3Frame& next);

// Whether frame `next` of a second encode may follow frame `last` of a
// first as they are: what `next` reaches back to fits in the room `last`
// leaves (roomAfterData), and their shapes meet.
bool joinFits(const Mp3Frame& last, const Mp3Frame& next);

// A variable-rate stream may change the bit rate from frame to frame: the
// length of `frame` (of `stream`) at the smallest bit rate and padding
// that make it at least `more` bytes longer; 0 when none does.
uint32_t grownFrameBytes(const uint8_t* stream, const Mp3Frame& frame, uint32_t more);

// Gives frame `index` of `stream` the length `bytes` from grownFrameBytes:
// its header gets that bit rate and padding (and its CRC again, when it has
// one), its data area zero bytes at the end; its main data stays where it
// was, so no frame's audio changes. The frames after it are dropped (their
// main data would no longer be where they point).
void growFrame(std::vector<uint8_t>* stream, std::vector<Mp3Frame>* frames, size_t index,
               uint32_t bytes);

// Copies the main_data_begin bytes frame `nextIndex` of `second` reaches
// back to into the end of the data areas of `first`'s frames up to
// `lastIndex`. joinFits() must hold.
void spliceJoin(std::vector<uint8_t>* first, const std::vector<Mp3Frame>& firstFrames,
                size_t lastIndex, const std::vector<uint8_t>& second,
                const std::vector<Mp3Frame>& secondFrames, size_t nextIndex);

// What the info frame of the whole file states.
struct Mp3Totals {
    uint32_t frames = 0;         // audio frames, the info frame not counted
    uint64_t audioBytes = 0;     // their bytes
    uint64_t samples = 0;        // input frames encoded
    uint32_t frameSamples = 0;   // 1152 or 576
    uint16_t musicCrc = 0;       // CRC-16 of the audio frames' bytes
    // Byte position of every hundredth of the audio frames after the info
    // frame (the table of contents).
    std::vector<uint64_t> percentOffsets;
};

// Rewrites an info frame LAME made for part of the stream so that it states
// `totals` (frames, bytes, table of contents, padding, length and both
// CRCs), keeping LAME's delay. False when `frame` holds no such tag.
bool restateInfoFrame(uint8_t* frame, size_t bytes, const Mp3Totals& totals);

// CRC-16 (polynomial 0x8005, reflected) as the info frame uses it.
uint16_t mp3Crc16(uint16_t crc, const uint8_t* data, size_t bytes);

}  // namespace wv
