#define WV_LOG_TAG "WorkingFile"
#include "codec/WorkingFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace working_file {
namespace {

constexpr int kOpenFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY;

bool sameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// O_NONBLOCK keeps a FIFO planted at the name from blocking the open; the
// checks below refuse it anyway.
int takeOverStale(const std::string& path) {
    const int fd = ::open(path.c_str(), kOpenFlags | O_NONBLOCK);
    if (fd < 0) return -1;
    struct stat st;
    const bool ours = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid() &&
                      st.st_nlink == 1;
    if (!ours || ::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return -1;
    }
    // The name may have been replaced between the open and the lock.
    struct stat named;
    if (::lstat(path.c_str(), &named) != 0 || !sameFile(st, named) || ::ftruncate(fd, 0) != 0 ||
        ::fchmod(fd, 0600) != 0) {
        ::close(fd);
        return -1;
    }
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
}

}  // namespace

int openLocked(const std::string& path) {
    int fd = ::open(path.c_str(), kOpenFlags | O_CREAT | O_EXCL, 0600);
    if (fd >= 0) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
        ::close(fd);
        return -1;
    }
    if (errno != EEXIST) {
        WV_LOGE("working file %s cannot be created: %s", path.c_str(), std::strerror(errno));
        return -1;
    }
    fd = takeOverStale(path);
    if (fd < 0) WV_LOGE("working file %s exists and is not a stale file of ours", path.c_str());
    return fd;
}

void removeAndClose(const std::string& path, int fd) {
    if (fd < 0) return;
    struct stat mine, named;
    if (::fstat(fd, &mine) == 0 && ::lstat(path.c_str(), &named) == 0 && sameFile(mine, named)) {
        ::unlink(path.c_str());
    }
    ::close(fd);
}

}  // namespace working_file
}  // namespace wv
