// The frames an audio output or input holds between its client and its
// device: a ring of interleaved 16-bit frames, written by one side and taken
// by the other, either copied out, discarded by count, or lent in place
// through the AudioBufferProvider interface (so a resampler can read them
// without a copy).
//
// Not synchronised: the owner calls every method under its lock.
// Lent frames stay counted as used, and their memory is not written, until
// releaseBuffer; clear() forgets a lent buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/resample/AudioBufferProvider.h"

namespace wv {

class FrameQueue : public AudioBufferProvider {
public:
    FrameQueue(size_t capacityFrames, uint32_t channels);

    size_t capacity() const { return mCapacity; }
    size_t used() const { return mUsed; }
    size_t room() const { return mCapacity - mUsed; }

    // Appends up to room() frames; returns how many were taken.
    size_t write(const int16_t* frames, size_t count);
    // Copies out and consumes up to `count` of the oldest frames (none while
    // a buffer is lent); returns how many.
    size_t read(int16_t* frames, size_t count);
    // Drops up to `count` of the oldest frames (not lent ones); returns how
    // many were dropped.
    size_t discard(size_t count);
    void clear();

    // Lends the oldest frames, contiguous in memory, at most the request.
    int32_t getNextBuffer(Buffer* buffer, int64_t pts = kInvalidPts) override;
    // Consumes the lent frames.
    void releaseBuffer(Buffer* buffer) override;

    // Frames taken out by discard() or releaseBuffer() since construction.
    uint64_t consumed() const { return mConsumed; }

private:
    std::vector<int16_t> mSamples;
    const size_t mCapacity;
    const uint32_t mChannels;
    size_t mRead = 0;  // index of the oldest frame
    size_t mUsed = 0;
    size_t mLent = 0;
    uint64_t mConsumed = 0;
};

}  // namespace wv
