#define WV_LOG_TAG "PcmFileSource"
#include "items/PcmFileSource.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/Log.h"
#include "items/SPcmInfo.h"

namespace wv {

PcmFileSource::~PcmFileSource() {
    if (mFd > 0) ::close(mFd);
}

int PcmFileSource::openFile() {
    const std::string pcmPath = mInfo->pcmPath.get();
    if (mInfo->status.load() == PCM_READY && pcmPath.empty()) {
        // A raw source is read in place, behind its 44-byte header.
        mFd = ::open(mInfo->path.get().c_str(), O_RDONLY | O_CLOEXEC);
        if (mFd < 0) return -1;
        mHasHeader = true;
        ::lseek(mFd, kWavHeaderBytes, SEEK_SET);
        return mFd;
    }
    mHasHeader = false;
    mFd = ::open(pcmPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    return mFd;
}

off_t PcmFileSource::seekFile(uint64_t byteOffset) {
    return ::lseek(mFd, static_cast<off_t>(byteOffset + (mHasHeader ? kWavHeaderBytes : 0)),
                   SEEK_SET);
}

bool PcmFileSource::open() {
    if (mFd != 0) return true;
    if (openFile() < 0) {
        WV_LOGE("file open failed error %d", errno);
        return false;
    }
    return true;
}

void PcmFileSource::readAtPosition(char* into, uint64_t bytes) {
    if (mNeedSeek) {
        seekFile(uint64_t(mPosition) * mInfo->frameSize());
        mNeedSeek = false;
    }
    uint64_t done = 0;
    while (done < bytes && mFd > 0) {
        const ssize_t got = ::read(mFd, into + done, bytes - done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<uint64_t>(got);
    }
    if (done < bytes) std::memset(into + done, 0, bytes - done);
}

int32_t PcmFileSource::rate() const { return mInfo->sampleRate.load(); }

int32_t PcmFileSource::channels() const { return mInfo->channelCount.load(); }

uint32_t PcmFileSource::read(char* buffer, uint32_t frames) {
    uint32_t count = 0;
    const int32_t more = mInfo->availableFrames(count, mPosition, mEndFrame, false);
    uint32_t n = frames;
    if (frames >= count) {
        n = count;
        mEndState = more ? PcmSource::WAIT : PcmSource::END;
    }
    readAtPosition(buffer, uint64_t(n) * mInfo->frameSize());
    mPosition += n;
    return n;
}

int32_t PcmFileSource::readBefore(char* buffer, uint32_t frames) {
    const uint32_t frameBytes = mInfo->frameSize();
    if (mInfo->frames.load() < mPosition) return static_cast<int32_t>(frames);
    const uint32_t skip = mPosition < frames ? frames - mPosition : 0;
    mPosition = mPosition < frames ? 0 : mPosition - frames;
    if (mFd == 0 && !open()) return -1;
    mNeedSeek = true;
    readAtPosition(buffer + uint64_t(skip) * frameBytes, uint64_t(frames - skip) * frameBytes);
    // The file offset now sits after the frames read; the next forward read
    // must seek.
    mNeedSeek = true;
    return static_cast<int32_t>(frames);
}

uint32_t PcmFileSource::framesLeft() const {
    uint32_t left = 0;
    mInfo->availableFrames(left, mPosition, mEndFrame, false);
    return left;
}

int32_t PcmFileSource::getNextBuffer(Buffer* buffer, int64_t) {
    uint32_t count = 0;
    const int32_t more = mInfo->availableFrames(count, mPosition, mEndFrame, false);
    const uint32_t frameBytes = mInfo->frameSize();
    uint32_t n = buffer->frameCount == 0 ? 1 : buffer->frameCount;
    if (n > count) n = count;
    if (n > kProviderBytes / frameBytes) n = kProviderBytes / frameBytes;
    if (n == count) mEndState = more ? PcmSource::WAIT : PcmSource::END;
    if (count == 0) {
        buffer->raw = nullptr;
        buffer->frameCount = 0;
        return 0;
    }
    buffer->frameCount = n;
    buffer->raw = mProviderBuffer;
    mLending = true;
    readAtPosition(mProviderBuffer, uint64_t(n) * frameBytes);
    mPosition += n;
    return 0;
}

void PcmFileSource::releaseBuffer(Buffer* buffer) {
    buffer->frameCount = 0;
    mLending = false;
}

}  // namespace wv
