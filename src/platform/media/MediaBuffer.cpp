#include "platform/media/MediaBuffer.h"

namespace wv {

MediaBuffer::MediaBuffer() : mMeta(std::make_shared<MetaData>()) {}

void MediaBuffer::set_range(size_t offset, size_t length) {
    if (offset > mBytes.size()) offset = mBytes.size();
    if (length > mBytes.size() - offset) length = mBytes.size() - offset;
    mRangeOffset = offset;
    mRangeLength = length;
}

void MediaBuffer::release() {
    if (mObserver != nullptr) {
        mObserver->signalBufferReturned(this);
        return;
    }
    // The group may die inside giveBack() once this last reference goes, so
    // hold it on the stack until giveBack() has returned.
    std::shared_ptr<MediaBufferGroup> owner = std::move(mOwner);
    if (owner) owner->giveBack(this);
}

std::shared_ptr<MediaBufferGroup> MediaBufferGroup::create() {
    return std::shared_ptr<MediaBufferGroup>(new MediaBufferGroup());
}

MediaBufferGroup::~MediaBufferGroup() {
    for (MediaBuffer* buffer : mFree) delete buffer;
}

MediaBuffer* MediaBufferGroup::acquire(size_t capacity) {
    MediaBuffer* buffer = nullptr;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mFree.empty()) {
            buffer = mFree.back();
            mFree.pop_back();
        }
        ++mLent;
    }
    if (buffer == nullptr) buffer = new MediaBuffer();
    if (buffer->mBytes.size() < capacity) buffer->mBytes.resize(capacity);
    buffer->mRangeOffset = 0;
    buffer->mRangeLength = 0;
    buffer->mMeta->clear();
    buffer->mObserver = nullptr;
    buffer->mOwner = shared_from_this();
    return buffer;
}

size_t MediaBufferGroup::lentCount() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLent;
}

void MediaBufferGroup::giveBack(MediaBuffer* buffer) {
    std::lock_guard<std::mutex> guard(mLock);
    mFree.push_back(buffer);
    --mLent;
}

}  // namespace wv
