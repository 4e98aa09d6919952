#define WV_LOG_TAG "OutputFile"
#include "platform/OutputFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace {

// Names can change between a look and an open; a few fresh looks settle it
// unless someone keeps swapping them, which is then refused.
constexpr int kAttempts = 4;

std::atomic<unsigned> gPartCounter{0};

bool isSeekable(int fd) { return ::lseek(fd, 0, SEEK_CUR) >= 0; }

// "<name>.<digits>.<digits>.part": the shape of the part files of `name`.
bool isPartOf(const std::string& entry, const std::string& name) {
    const std::string suffix = ".part";
    if (entry.size() <= name.size() + 1 + suffix.size() ||
        entry.compare(0, name.size(), name) != 0 || entry[name.size()] != '.' ||
        entry.compare(entry.size() - suffix.size(), suffix.size(), suffix) != 0) {
        return false;
    }
    const std::string middle =
        entry.substr(name.size() + 1, entry.size() - name.size() - 1 - suffix.size());
    const size_t dot = middle.find('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == middle.size()) return false;
    return middle.find_first_not_of("0123456789.") == std::string::npos &&
           middle.find('.', dot + 1) == std::string::npos;
}

// Removes the part files of `file` that no live writer holds.
void removeStaleParts(const std::string& file) {
    const size_t slash = file.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : file.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? file : file.substr(slash + 1);
    const int dirFd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0) return;
    DIR* dir = ::fdopendir(dirFd);
    if (dir == nullptr) {
        ::close(dirFd);
        return;
    }
    while (const dirent* entry = ::readdir(dir)) {
        const std::string entryName = entry->d_name;
        if (!isPartOf(entryName, name)) continue;
        const int fd =
            ::openat(dirFd, entryName.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        if (fd < 0) continue;
        struct stat opened, named;
        if (::fstat(fd, &opened) == 0 && S_ISREG(opened.st_mode) && opened.st_uid == ::geteuid() &&
            opened.st_nlink == 1 && ::flock(fd, LOCK_EX | LOCK_NB) == 0 &&
            ::fstatat(dirFd, entryName.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
            named.st_dev == opened.st_dev && named.st_ino == opened.st_ino) {
            WV_LOGW("removing %s%s, left by a run that ended before finishing it", folder.c_str(),
                    entryName.c_str());
            ::unlinkat(dirFd, entryName.c_str(), 0);
        }
        ::close(fd);
    }
    ::closedir(dir);
}

}  // namespace

OutputFile::~OutputFile() { discard(); }

int OutputFile::open(const std::string& target, int flags) {
    discard();
    mTarget = target;
    mFlags = flags;
    int result = -EAGAIN;
    for (int attempt = 0; attempt < kAttempts && result == -EAGAIN; ++attempt) {
        struct stat st;
        if (::lstat(target.c_str(), &st) != 0) {
            if (errno != ENOENT) {
                result = -errno;
            } else {
                result = (flags & kCompleteOnly) != 0 ? openPart(target, nullptr) : openNew(target);
            }
        } else if (S_ISLNK(st.st_mode) || S_ISREG(st.st_mode)) {
            result = openExisting(target);
        } else if (S_ISDIR(st.st_mode)) {
            result = -EISDIR;
        } else {
            result = openExisting(target);
        }
    }
    // The caller logs a failure in its own words.
    if (result != 0) mKind = Kind::None;
    return result;
}

int OutputFile::openNew(const std::string& target) {
    const int fd =
        ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0666);
    if (fd < 0) return errno == EEXIST ? -EAGAIN : -errno;
    struct stat st;
    ::fstat(fd, &st);
    mFd = fd;
    mDev = st.st_dev;
    mIno = st.st_ino;
    mKind = Kind::Created;
    mWriting = target;
    mSeekable = true;
    return 0;
}

int OutputFile::openExisting(const std::string& target) {
    struct stat st;
    if (::stat(target.c_str(), &st) != 0) {
        // A link to nothing: creating through it would write wherever the
        // link points, so it is refused.
        const int error = errno;
        struct stat link;
        if (error == ENOENT && ::lstat(target.c_str(), &link) != 0)
            return -EAGAIN;  // gone meanwhile
        return -error;
    }
    if (S_ISREG(st.st_mode)) {
        char* resolved = ::realpath(target.c_str(), nullptr);
        if (resolved == nullptr) return -errno;
        const std::string file = resolved;
        std::free(resolved);
        // Replacing is writing: a file this process may not write stays as it is.
        if (::faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) != 0) return -errno;
        return openPart(file, &st);
    }
    if (S_ISDIR(st.st_mode)) return -EISDIR;
    // Written as it is. O_NONBLOCK keeps a FIFO without a reader from
    // hanging the worker (ENXIO); the descriptor blocks again for writing.
    const int fd = ::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return -errno;
    struct stat opened;
    if (::fstat(fd, &opened) != 0 || S_ISREG(opened.st_mode) || S_ISDIR(opened.st_mode)) {
        ::close(fd);
        return -EAGAIN;  // replaced by a regular file meanwhile: look again
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    mFd = fd;
    mKind = Kind::Direct;
    mWriting = target;
    mSeekable = isSeekable(fd);
    return 0;
}

int OutputFile::openPart(const std::string& file, const struct stat* old) {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        const std::string part = file + "." + std::to_string(::getpid()) + "." +
                                 std::to_string(gPartCounter.fetch_add(1)) + ".part";
        // A new document's mode comes from the umask, as for openNew().
        const int fd = ::open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                              old != nullptr ? 0600 : 0666);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            return -errno;
        }
        // Locked before anything else can look at it: an unlocked part file
        // is a dead run's.
        ::flock(fd, LOCK_EX);
        struct stat st;
        ::fstat(fd, &st);
        // The new file is this process's own: it takes the old one's
        // permissions (never more than those) before any data reach it.
        if (old != nullptr && ::fchmod(fd, old->st_mode & 0777) != 0) {
            const int error = errno;
            ::close(fd);
            ::unlink(part.c_str());
            return -error;
        }
        mFd = fd;
        mDev = st.st_dev;
        mIno = st.st_ino;
        mKind = Kind::Temporary;
        mWriting = part;
        mReplace = file;
        mSeekable = true;
        removeStaleParts(file);
        return 0;
    }
    return -EEXIST;
}

int OutputFile::commit() {
    if (mKind == Kind::None) return 0;
    // The lock must outlive the close, which reports a late write error, up
    // to the rename: a duplicate descriptor shares it.
    if (mKind == Kind::Temporary) mLockFd = ::fcntl(mFd, F_DUPFD_CLOEXEC, 0);
    // Where nothing may be lost, the bytes reach the storage before the
    // name leads to them.
    if (mKind == Kind::Temporary && (mFlags & kCompleteOnly) != 0 && ::fsync(mFd) != 0 &&
        errno != EINVAL) {
        const int error = errno;
        WV_LOGE("output %s did not reach the storage: %s", mWriting.c_str(), std::strerror(error));
        ::close(mFd);
        mFd = -1;
        removeMade();
        closeLock();
        mKind = Kind::None;
        return -error;
    }
    const int closed = ::close(mFd);
    const int closeError = errno;
    mFd = -1;
    if (closed != 0 && closeError != EINTR) {
        // Data may not have reached the storage (a network file system
        // reports it here): the output is not complete.
        WV_LOGE("output %s did not close: %s", mWriting.c_str(), std::strerror(closeError));
        removeMade();
        closeLock();
        mKind = Kind::None;
        return -closeError;
    }
    const int placed = mKind == Kind::Temporary ? place() : 0;
    if (placed != 0) {
        const int error = -placed;
        WV_LOGE("output %s cannot replace %s: %s", mWriting.c_str(), mReplace.c_str(),
                std::strerror(error));
        removeMade();
        closeLock();
        mKind = Kind::None;
        return -error;
    }
    closeLock();
    mKind = Kind::None;
    return 0;
}

int OutputFile::place() {
    const char* from = mWriting.c_str();
    const char* to = mReplace.c_str();
    if ((mFlags & kNoReplace) == 0) return ::rename(from, to) == 0 ? 0 : -errno;
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return -errno;
    // No such rename here: a hard link takes only a free name, and the
    // ".part" name then goes.
    if (::link(from, to) == 0) {
        ::unlink(from);
        return 0;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return -errno;
    // Neither: a look just before the rename is the best left.
    struct stat st;
    if (::lstat(to, &st) == 0) return -EEXIST;
    return ::rename(from, to) == 0 ? 0 : -errno;
}

int writeWholeOutput(const std::string& path, const void* data, size_t size, int flags) {
    OutputFile out;
    const int opened = out.open(path, flags);
    if (opened != 0) return opened;
    const char* at = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t n = ::write(out.fd(), at, size);
        if (n < 0 && errno == EINTR) continue;
        // No progress without an error: the storage is full.
        if (n <= 0) return n < 0 ? -errno : -ENOSPC;
        at += n;
        size -= static_cast<size_t>(n);
    }
    return out.commit();
}

void OutputFile::closeLock() {
    if (mLockFd >= 0) ::close(mLockFd);
    mLockFd = -1;
}

void OutputFile::discard() {
    if (mFd >= 0) ::close(mFd);
    mFd = -1;
    if (mKind == Kind::Created || mKind == Kind::Temporary) removeMade();
    mKind = Kind::None;
}

void OutputFile::removeMade() {
    if (mKind != Kind::Created && mKind != Kind::Temporary) return;
    struct stat st;
    if (::lstat(mWriting.c_str(), &st) == 0 && st.st_dev == mDev && st.st_ino == mIno) {
        ::unlink(mWriting.c_str());
    }
}

}  // namespace wv
