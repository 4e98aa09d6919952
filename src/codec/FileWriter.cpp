// Logs under the engine's tag, not its own: clients look for its removal of
// an unfinished file there.
#define WV_LOG_TAG "WavoryxPriv"
#include "codec/FileWriter.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/Log.h"
#include "codec/WorkingFile.h"
#include "platform/OutputFile.h"

static_assert(sizeof(off_t) == 8, "the library is built with 64-bit file offsets");

namespace wv {

FileWriter::FileWriter(const char* path) {
    if (path != nullptr) openFile(path);
}

FileWriter::~FileWriter() {
    if (mOutput) {
        if (mOutput->isOpen()) WV_LOGW("delete unfinished file %s", mPath.c_str());
        mOutput->discard();
        mFd = -1;
    }
    if (mFd >= 0) {
        WV_LOGW("delete unfinished file %s", mPath.c_str());
        if (mAdopted) {
            working_file::removeAndClose(mPath, mFd);
        } else {
            ::close(mFd);
            ::remove(mPath.c_str());
        }
        mFd = -1;
    }
    releaseHeld();
}

int FileWriter::openFile(const char* path) {
    closeCurrent();
    mPath = path != nullptr ? path : "";
    const int fd =
        ::open(mPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) {
        WV_LOGE("file %s open failed error: %s", mPath.c_str(), std::strerror(errno));
        return OPEN_FAILED;
    }
    mFd = fd;
    return 0;
}

void FileWriter::adopt(int fd, const char* path) {
    closeCurrent();
    mPath = path != nullptr ? path : "";
    mFd = fd;
    mAdopted = true;
}

void FileWriter::closeCurrent() {
    if (mOutput) {
        mOutput->discard();
        mOutput.reset();
    } else if (mFd >= 0) {
        ::close(mFd);
    }
    mFd = -1;
    mFinished = false;
    mAdopted = false;
    // A remainder belongs to the file it was cut from.
    releaseHeld();
}

int FileWriter::openOutput(const char* path, int flags) {
    closeCurrent();
    mPath = path != nullptr ? path : "";
    std::unique_ptr<OutputFile> output(new OutputFile());
    const int result = mPath.empty() ? -ENOENT : output->open(mPath, flags);
    if (result != 0) {
        WV_LOGE("file %s open failed error: %s", mPath.c_str(), std::strerror(-result));
        return OPEN_FAILED;
    }
    mFd = output->fd();
    mOutput = std::move(output);
    return 0;
}

int FileWriter::finishOutput() {
    if (!mOutput) {
        if (mFd < 0) return WRITE_ERROR;
        finishWrite();
        return WRITE_OK;
    }
    if (!mOutput->isOpen()) return mFinished ? WRITE_OK : WRITE_ERROR;
    mFd = -1;
    const int committed = mOutput->commit();
    if (committed == -EEXIST) return WRITE_NAME_TAKEN;
    if (committed != 0) return WRITE_ERROR;
    mFinished = true;
    return WRITE_OK;
}

std::unique_ptr<OutputFile> FileWriter::releaseOutput() {
    if (!mOutput || !mOutput->isOpen()) return nullptr;
    mFd = -1;
    mFinished = true;
    releaseHeld();
    return std::move(mOutput);
}

int FileWriter::writeAt(int64_t offset, const void* data, uint32_t length) {
    if (mFd < 0) return WRITE_ERROR;
    ssize_t result;
    do {
        result = ::pwrite(mFd, data, length, static_cast<off_t>(offset));
    } while (result < 0 && errno == EINTR);
    if (result == static_cast<ssize_t>(length)) return WRITE_OK;
    if (result >= 0 || errno == ENOSPC) return WRITE_STORAGE_FULL;
    WV_LOGE("write file %s failed with error %s", mPath.c_str(), std::strerror(errno));
    return WRITE_ERROR;
}

bool FileWriter::isSeekable() const {
    if (mOutput) return mOutput->seekable();
    return mFd >= 0 && ::lseek(mFd, 0, SEEK_CUR) >= 0;
}

std::string FileWriter::writingPath() const {
    return mOutput && mOutput->isOpen() ? mOutput->writingPath() : mPath;
}

int FileWriter::write(const void* data, uint32_t length) {
    return writeOnce(static_cast<const uint8_t*>(data), length, false);
}

int FileWriter::checkStatus() {
    if (mFd < 0) return WRITE_ERROR;
    if (mHeld == nullptr) return WRITE_OK;
    return writeOnce(mHeld, mHeldLength, true);
}

int64_t FileWriter::seek(int64_t offset) {
    return ::lseek(mFd, static_cast<off_t>(offset), SEEK_SET);
}

void FileWriter::finishWrite() {
    if (mOutput) {
        // An output is put in place by finishOutput(); this only ends it.
        if (finishOutput() != WRITE_OK) mFinished = false;
        return;
    }
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
    mFinished = true;
}

int FileWriter::writeOnce(const uint8_t* data, uint32_t length, bool retry) {
    ssize_t result;
    do {
        result = ::write(mFd, data, length);
    } while (result < 0 && errno == EINTR);
    if (result == static_cast<ssize_t>(length)) {
        if (retry) releaseHeld();
        return WRITE_OK;
    }
    const int error = errno;
    WV_LOGW("pcm should write %d but write return %d", static_cast<int>(length),
            static_cast<int>(result));

    uint32_t written = 0;
    if (result < 0) {
        if (error != ENOSPC) {
            WV_LOGE("write file %s failed with error %s", mPath.c_str(), std::strerror(error));
            return WRITE_ERROR;
        }
    } else {
        written = static_cast<uint32_t>(result);
    }
    // A retry that wrote nothing leaves the held block as it is.
    if (retry && written == 0) return WRITE_STORAGE_FULL;

    const uint32_t remainder = length - written;
    auto* block = static_cast<uint8_t*>(std::malloc(remainder));
    if (block == nullptr) {
        WV_LOGE("No memory!");
        return WRITE_ERROR;
    }
    // Copied before the old block goes: in a retry `data` is that block.
    std::memcpy(block, data + written, remainder);
    releaseHeld();
    mHeld = block;
    mHeldLength = remainder;
    return WRITE_STORAGE_FULL;
}

void FileWriter::releaseHeld() {
    std::free(mHeld);
    mHeld = nullptr;
    mHeldLength = 0;
}

}  // namespace wv
