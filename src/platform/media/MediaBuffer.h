// A block of media data lent by a source to its reader.
//
// A source hands out a buffer from its MediaBufferGroup on a successful
// read; the reader uses the bytes [data() + range_offset(), + range_length())
// and gives the buffer back with release(), on any thread. The bytes and the
// buffer's metadata (kKeyTime, the media time of the first frame in
// microseconds) stay valid until then. Buffers are reused: after warm-up a
// source reads without allocating.
//
// A group may be dropped while buffers are lent out; it then lives on until
// the last of them comes back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/media/MetaData.h"

namespace wv {

class MediaBuffer;
class MediaBufferGroup;

// Told when a reader releases a buffer that carries it as observer; it then
// owns the buffer again and, to give it back to its group for good, clears
// the observer and releases it once more.
class MediaBufferObserver {
public:
    virtual void signalBufferReturned(MediaBuffer* buffer) = 0;

protected:
    ~MediaBufferObserver() = default;
};

class MediaBuffer {
public:
    MediaBuffer(const MediaBuffer&) = delete;
    MediaBuffer& operator=(const MediaBuffer&) = delete;

    void* data() { return mBytes.data(); }
    size_t size() const { return mBytes.size(); }
    size_t range_offset() const { return mRangeOffset; }
    size_t range_length() const { return mRangeLength; }
    // Offset plus length must not exceed size(); out-of-range values are
    // clamped so that the valid range always lies inside the buffer.
    void set_range(size_t offset, size_t length);
    const std::shared_ptr<MetaData>& meta_data() const { return mMeta; }

    // Gives the buffer back to its group, or to its observer when it has
    // one. The caller must not touch it after.
    void release();
    // Null by default; cleared whenever the group lends the buffer again.
    void setObserver(MediaBufferObserver* observer) { mObserver = observer; }

private:
    friend class MediaBufferGroup;
    MediaBuffer();
    ~MediaBuffer() = default;

    std::vector<uint8_t> mBytes;
    size_t mRangeOffset = 0;
    size_t mRangeLength = 0;
    std::shared_ptr<MetaData> mMeta;
    MediaBufferObserver* mObserver = nullptr;
    // Set while lent out, so that the group outlives its lent buffers.
    std::shared_ptr<MediaBufferGroup> mOwner;
};

class MediaBufferGroup : public std::enable_shared_from_this<MediaBufferGroup> {
public:
    static std::shared_ptr<MediaBufferGroup> create();
    ~MediaBufferGroup();
    MediaBufferGroup(const MediaBufferGroup&) = delete;
    MediaBufferGroup& operator=(const MediaBufferGroup&) = delete;

    // A buffer of at least `capacity` bytes, empty range, cleared metadata.
    // Never blocks: when every buffer is lent out a new one is made.
    MediaBuffer* acquire(size_t capacity);
    // Buffers lent out now.
    size_t lentCount() const;

private:
    friend class MediaBuffer;
    MediaBufferGroup() = default;
    void giveBack(MediaBuffer* buffer);

    mutable std::mutex mLock;
    std::vector<MediaBuffer*> mFree;
    size_t mLent = 0;
};

}  // namespace wv
