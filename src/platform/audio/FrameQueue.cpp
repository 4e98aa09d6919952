#include "platform/audio/FrameQueue.h"

#include <algorithm>
#include <cstring>

namespace wv {

FrameQueue::FrameQueue(size_t capacityFrames, uint32_t channels)
    : mSamples(capacityFrames * channels), mCapacity(capacityFrames), mChannels(channels) {}

size_t FrameQueue::write(const int16_t* frames, size_t count) {
    count = std::min(count, room());
    size_t writeAt = (mRead + mUsed) % mCapacity;
    size_t left = count;
    while (left > 0) {
        const size_t piece = std::min(left, mCapacity - writeAt);
        std::memcpy(&mSamples[writeAt * mChannels], frames, piece * mChannels * sizeof(int16_t));
        frames += piece * mChannels;
        left -= piece;
        writeAt = (writeAt + piece) % mCapacity;
    }
    mUsed += count;
    return count;
}

size_t FrameQueue::read(int16_t* frames, size_t count) {
    if (mLent > 0) return 0;
    count = std::min(count, mUsed);
    size_t readAt = mRead;
    size_t left = count;
    while (left > 0) {
        const size_t piece = std::min(left, mCapacity - readAt);
        std::memcpy(frames, &mSamples[readAt * mChannels], piece * mChannels * sizeof(int16_t));
        frames += piece * mChannels;
        left -= piece;
        readAt = (readAt + piece) % mCapacity;
    }
    return discard(count);
}

size_t FrameQueue::discard(size_t count) {
    if (mLent > 0) return 0;
    count = std::min(count, mUsed);
    mRead = mCapacity == 0 ? 0 : (mRead + count) % mCapacity;
    mUsed -= count;
    mConsumed += count;
    return count;
}

void FrameQueue::clear() {
    mRead = 0;
    mUsed = 0;
    mLent = 0;
}

int32_t FrameQueue::getNextBuffer(Buffer* buffer, int64_t) {
    const size_t contiguous = std::min(mUsed, mCapacity - mRead);
    const size_t count = std::min<size_t>(buffer->frameCount, contiguous);
    if (count == 0 || mLent > 0) {
        buffer->raw = nullptr;
        buffer->frameCount = 0;
        return -1;
    }
    buffer->i16 = &mSamples[mRead * mChannels];
    buffer->frameCount = static_cast<uint32_t>(count);
    mLent = count;
    return 0;
}

void FrameQueue::releaseBuffer(Buffer* buffer) {
    // A buffer lent before a clear() refers to frames that are gone.
    if (mLent > 0 && buffer->frameCount == mLent) {
        mLent = 0;
        discard(buffer->frameCount);
    }
    buffer->raw = nullptr;
    buffer->frameCount = 0;
}

}  // namespace wv
