// MuxerOutput: the byte stream an FFmpeg muxer writes, carried into a
// FileWriter under the writer's storage-full protocol.
//
// A muxer writes whenever its buffers fill, several times per encoded block,
// but the protocol allows one write of new data per checkStatus(). So what
// the muxer appends is gathered in memory and handed to the writer by
// commit(), in one write, at the end of each encoder call: a short write
// leaves the writer holding the remainder exactly as for the other encoders.
//
// Muxers also go back to fill in sizes and headers (the MP4 box sizes, the
// FLAC stream information). A write behind the end lands in the gathered
// bytes when they are still in memory and goes to the file in place
// (FileWriter::writeAt) when they already reached it; such a write while the
// writer still holds a remainder cannot be placed and fails the output.
//
// An output that cannot seek gets a context without a seek function, so the
// muxer knows not to go back.
#pragma once

#include <cstdint>
#include <vector>

struct AVIOContext;

namespace wv {

class FileWriter;

class MuxerOutput {
public:
    explicit MuxerOutput(FileWriter& writer);
    ~MuxerOutput();
    MuxerOutput(const MuxerOutput&) = delete;
    MuxerOutput& operator=(const MuxerOutput&) = delete;

    // The context to hand to the muxer (AVFormatContext::pb); null when it
    // could not be made. The object keeps ownership.
    AVIOContext* context() const { return mContext; }
    // Moves what the muxer wrote into the writer: the status of that write
    // (a short one leaves the remainder held, to be retried by the writer's
    // checkStatus()), or the status of a failed write behind the end, which
    // lost bytes and so fails every later commit too.
    int commit();

    // The writer dropped its held remainder (`bytes`): the file lacks them.
    // A container that never goes back (Ogg) carries on with a gap a
    // demuxer skips; one that goes back to fill in sizes would now put them
    // in the wrong place, so its next seek fails the output as full.
    void forgetHeld(uint32_t bytes);

private:
    static int writePacket(void* opaque, uint8_t* data, int size);
    static int64_t seekTo(void* opaque, int64_t offset, int whence);
    // Places `size` bytes at mPosition; false when they cannot be placed.
    bool place(const uint8_t* data, int size);
    int64_t end() const { return mCommitted + static_cast<int64_t>(mGathered.size()); }

    FileWriter& mWriter;
    AVIOContext* mContext = nullptr;
    std::vector<uint8_t> mGathered;  // appended bytes not yet passed to the writer
    int64_t mCommitted = 0;          // bytes passed to the writer (held ones included)
    int64_t mPosition = 0;           // where the muxer's next bytes go
    int mFailure = 0;                // FileWriter status of a failed write, 0 if none
    bool mGap = false;               // bytes were dropped: positions no longer match
};

}  // namespace wv
