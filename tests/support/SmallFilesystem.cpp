#include "SmallFilesystem.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

namespace wvtest {

SmallFilesystem::SmallFilesystem(size_t bytes) {
    if (::geteuid() != 0) {
        mSkipReason = "mounting a small tmpfs needs root; storage-full test skipped";
        return;
    }
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
    if (::mount("tmpfs", mDir.path().c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        mSkipReason = std::string("cannot mount a tmpfs (") + std::strerror(errno) + "); storage-full test skipped";
        return;
    }
    mMounted = true;
}

SmallFilesystem::~SmallFilesystem() {
    // Lazy unmount: a descriptor a failed test left open must not keep the
    // mount alive. TempDir then removes the empty directory.
    if (mMounted) ::umount2(mDir.path().c_str(), MNT_DETACH);
}

long long SmallFilesystem::fill(const std::string& name) {
    const int fd = ::open(file(name).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return -1;
    std::vector<char> zeros(4096, 0);
    long long total = 0;
    for (;;) {
        const ssize_t n = ::write(fd, zeros.data(), zeros.size());
        if (n <= 0) break;
        total += n;
    }
    ::close(fd);
    return total;
}

bool SmallFilesystem::leaveFree(long long bytes) {
    const std::string filler = file("filler");
    ::remove(filler.c_str());
    const long long total = fill("filler");
    return total > bytes && ::truncate(filler.c_str(), total - bytes) == 0 && freeBytes() == bytes;
}

long long SmallFilesystem::freeBytes() const {
    struct statvfs st;
    if (::statvfs(path().c_str(), &st) != 0) return -1;
    return static_cast<long long>(st.f_bavail) * static_cast<long long>(st.f_frsize);
}

}  // namespace wvtest
