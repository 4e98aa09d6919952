#define WV_LOG_TAG "MediaLayer"
#include "platform/media/DataSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/Log.h"
#include "platform/media/MediaSource.h"

static_assert(sizeof(off_t) == 8, "large files need 64-bit file offsets");

namespace wv {

void DataSource::RegisterDefaultSniffers() {}

std::shared_ptr<DataSource> DataSource::CreateFromURI(const char* uri, const void*) {
    if (uri == nullptr || *uri == '\0') return nullptr;
    static const char kFileScheme[] = "file://";
    if (std::strncmp(uri, kFileScheme, sizeof kFileScheme - 1) == 0) uri += sizeof kFileScheme - 1;
    // O_NONBLOCK: opening a FIFO with no writer would block forever; only
    // regular files are read, the rest is refused before any read.
    const int fd = ::open(uri, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        WV_LOGD("cannot open %s: %s", uri, std::strerror(errno));
        return nullptr;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        WV_LOGD("cannot read %s: not a regular file", uri);
        ::close(fd);
        return nullptr;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return std::shared_ptr<DataSource>(new DataSource(fd, uri));
}

std::shared_ptr<DataSource> DataSource::CreateFromStream(int fd) {
    if (fd < 0) return nullptr;
    return std::shared_ptr<DataSource>(new DataSource(fd, "", true));
}

DataSource::~DataSource() { ::close(mFd); }

ssize_t DataSource::pull(char* data, size_t size) {
    for (;;) {
        const ssize_t n = ::read(mFd, data, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return n < 0 ? static_cast<ssize_t>(ERROR_IO) : 0;
        const size_t room = kStreamHeadBytes - std::min(mHead.size(), kStreamHeadBytes);
        mHead.insert(mHead.end(), data, data + std::min(room, static_cast<size_t>(n)));
        mStreamRead += n;
        return n;
    }
}

ssize_t DataSource::readSomeAt(int64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
    return mStream ? readStreamAt(offset, data, size, true) : readAt(offset, data, size);
}

ssize_t DataSource::readStreamAt(int64_t offset, void* data, size_t size, bool some) {
    std::lock_guard<std::mutex> guard(mStreamLock);
    char* out = static_cast<char*>(data);
    size_t done = 0;
    // From the head kept in memory, when the read starts inside it.
    if (offset < mStreamRead) {
        if (offset >= static_cast<int64_t>(mHead.size())) return ERROR_IO;
        const size_t from = static_cast<size_t>(offset);
        done = std::min(size, std::min(mHead.size(), static_cast<size_t>(mStreamRead)) - from);
        std::memcpy(out, mHead.data() + from, done);
        if (some || offset + static_cast<int64_t>(done) < mStreamRead) return static_cast<ssize_t>(done);
    }
    // Bytes between the furthest read and the offset are passed over.
    char skip[4096];
    while (mStreamRead < offset) {
        const size_t want = static_cast<size_t>(
            std::min<int64_t>(offset - mStreamRead, static_cast<int64_t>(sizeof skip)));
        const ssize_t n = pull(skip, want);
        if (n <= 0) return n;
    }
    while (done < size) {
        const ssize_t n = pull(out + done, size - done);
        if (n < 0) return done > 0 ? static_cast<ssize_t>(done) : n;
        if (n == 0) break;
        done += static_cast<size_t>(n);
        if (some) break;
    }
    return static_cast<ssize_t>(done);
}

ssize_t DataSource::readAt(int64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
    if (mStream) return readStreamAt(offset, data, size, false);
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::pread(mFd, static_cast<char*>(data) + done, size - done,
                                  static_cast<off_t>(offset + static_cast<int64_t>(done)));
        if (n < 0) {
            if (errno == EINTR) continue;
            return done > 0 ? static_cast<ssize_t>(done) : static_cast<ssize_t>(ERROR_IO);
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

status_t DataSource::getSize(int64_t* size) {
    if (mStream) return ERROR_UNSUPPORTED;
    struct stat st;
    if (::fstat(mFd, &st) != 0) return ERROR_IO;
    *size = static_cast<int64_t>(st.st_size);
    return OK;
}

}  // namespace wv
