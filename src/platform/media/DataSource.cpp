#define WV_LOG_TAG "MediaLayer"
#include "platform/media/DataSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

DataSource::~DataSource() { ::close(mFd); }

ssize_t DataSource::readAt(int64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
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
    struct stat st;
    if (::fstat(mFd, &st) != 0) return ERROR_IO;
    *size = static_cast<int64_t>(st.st_size);
    return OK;
}

}  // namespace wv
