#include "OutputFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>

#include <wavoryx/Wavoryx.h>

#include "Interrupt.h"

namespace wvcli {
namespace {

constexpr size_t kCopyBlock = 1 << 16;

// Whether a signal stops the copy under way: not for a recording, which is
// moved into place even after the Ctrl-C that ended it.
struct Watch {
    bool interruptible;
    bool interrupted() const { return interruptible && interruptSignal() != 0; }
};

std::string errorText(int error) {
    if (error == ENOSPC || error == EDQUOT) return "storage full";
    return "write error (" + std::string(std::strerror(error)) + ")";
}

// The process's file-creation mask, read without changing it (umask()
// would, for a moment, for the engine's threads too).
mode_t currentUmask() {
    FILE* status = std::fopen("/proc/self/status", "re");
    unsigned mask = 022;
    if (status != nullptr) {
        char line[128];
        while (std::fgets(line, sizeof line, status) != nullptr) {
            if (std::sscanf(line, "Umask: %o", &mask) == 1) break;
        }
        std::fclose(status);
    }
    return mode_t(mask);
}

// Writes all of `size` bytes; false with errno set (EINTR after an
// interrupt, which the caller reports as such).
bool writeAll(const Watch& watch, int fd, const char* data, size_t size) {
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR && !watch.interrupted()) continue;
            return false;
        }
        data += n;
        size -= size_t(n);
    }
    return true;
}

// A WAV's RIFF and data sizes as a stream of unknown length has them;
// other data is left alone. `head` is the file's first block.
void giveStreamingSizes(char* head, size_t size) {
    if (size < 12 || std::memcmp(head, "RIFF", 4) != 0 || std::memcmp(head + 8, "WAVE", 4) != 0) return;
    std::memset(head + 4, 0xFF, 4);
    for (size_t at = 12; at + 8 <= size;) {
        if (std::memcmp(head + at, "data", 4) == 0) {
            std::memset(head + at + 4, 0xFF, 4);
            return;
        }
        const uint32_t chunk = uint32_t(uint8_t(head[at + 4])) | uint32_t(uint8_t(head[at + 5])) << 8 |
                               uint32_t(uint8_t(head[at + 6])) << 16 | uint32_t(uint8_t(head[at + 7])) << 24;
        at += 8 + size_t(chunk) + (chunk & 1);
    }
}

// Copies the file `from` into the open `to`; false with `why` set.
bool copyInto(const Watch& watch, const std::string& from, int to, std::string& why, bool streaming = false) {
    const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
        why = "cannot read the finished file (" + std::string(std::strerror(errno)) + ")";
        return false;
    }
    std::vector<char> block(kCopyBlock);
    bool ok = true;
    while (ok) {
        if (watch.interrupted()) {
            why.clear();
            ok = false;
            break;
        }
        const ssize_t n = ::read(in, block.data(), block.size());
        if (n == 0) break;
        if (streaming && n > 0) {
            giveStreamingSizes(block.data(), size_t(n));
            streaming = false;
        }
        if (n < 0) {
            if (errno == EINTR) continue;
            why = "cannot read the finished file (" + std::string(std::strerror(errno)) + ")";
            ok = false;
        } else if (!writeAll(watch, to, block.data(), size_t(n))) {
            why = watch.interrupted() ? "" : errorText(errno);
            ok = false;
        }
    }
    ::close(in);
    return ok;
}

bool flushFile(const std::string& path, std::string& why) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0 || ::fsync(fd) != 0) {
        why = errorText(errno);
        if (fd >= 0) ::close(fd);
        return false;
    }
    ::close(fd);
    return true;
}

std::string cannotWrite(int error) { return "cannot write (" + std::string(std::strerror(error)) + ")"; }

// What a run says when a file took the free name while it worked.
const char kAppeared[] = "appeared while the output was made; not overwritten";

// Puts the finished `from` at `to`: over whatever is there when `replace`,
// else only while nothing is (the kernel's no-replace rename; a hard link
// where the file system has no such rename; a look and a rename where it
// has no hard links either). 0, or errno (EEXIST: something is there).
int placeFile(const std::string& from, const std::string& to, bool replace) {
    if (replace) return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP) return errno;
    if (::link(from.c_str(), to.c_str()) == 0) {
        ::unlink(from.c_str());
        return 0;
    }
    if (errno != EPERM && errno != EOPNOTSUPP && errno != EMLINK) return errno;
    struct stat st;
    if (::lstat(to.c_str(), &st) == 0) return EEXIST;
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

std::string placeError(int error) { return error == EEXIST ? kAppeared : cannotWrite(error); }

// Into a device or FIFO: the bytes only (of the file `done`, else
// `bytes`); it keeps its node and mode.
bool writeInto(const Watch& watch, const std::string* done, const std::string& bytes, const std::string& path,
               std::string& why) {
    int fd;
    do {
        fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    } while (fd < 0 && errno == EINTR && !watch.interrupted());
    if (fd < 0) {
        why = watch.interrupted() ? "" : "cannot write (" + std::string(std::strerror(errno)) + ")";
        return false;
    }
    bool ok = done != nullptr ? copyInto(watch, *done, fd, why) : writeAll(watch, fd, bytes.data(), bytes.size());
    if (!ok && done == nullptr) why = watch.interrupted() ? "" : errorText(errno);
    if (::close(fd) != 0 && ok && errno != EINTR) {
        why = errorText(errno);
        ok = false;
    }
    return ok;
}

}  // namespace

void giveDocumentMode(const std::string& path) { ::chmod(path.c_str(), 0666 & ~currentUmask()); }

bool isSameFile(const std::string& a, const std::string& b) {
    struct stat sa;
    struct stat sb;
    if (::stat(a.c_str(), &sa) != 0 || ::stat(b.c_str(), &sb) != 0) return false;
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

const std::string* sameFileAmong(const std::string& output, const std::vector<std::string>& inputs) {
    for (const std::string& input : inputs) {
        if (isSameFile(output, input)) return &input;
    }
    return nullptr;
}

std::string sameFileReason(const std::string& input) { return "is the same file as " + input; }

bool examineOutput(const std::string& path, OutputTarget& target, std::string& why) {
    target = OutputTarget();
    target.path = path;
    target.filePath = path;
    if (path == "-") {
        target.kind = TargetKind::Special;
        target.standardOutput = true;
        if (::isatty(STDOUT_FILENO) == 0) return true;
        why = "standard output is a terminal; redirect it or name a file";
        return false;
    }
    struct stat link;
    if (::lstat(path.c_str(), &link) != 0) {
        if (errno != ENOENT) {
            why = "cannot write (" + std::string(std::strerror(errno)) + ")";
            return false;
        }
        target.kind = TargetKind::Absent;
    } else {
        struct stat st;
        if (::stat(path.c_str(), &st) != 0) {
            why = "is a broken link";
            return false;
        }
        if (S_ISDIR(st.st_mode)) {
            why = "is a folder";
            return false;
        }
        if (::access(path.c_str(), W_OK) != 0) {
            why = "cannot write (" + std::string(std::strerror(errno)) + ")";
            return false;
        }
        if (!S_ISREG(st.st_mode)) {
            target.kind = TargetKind::Special;
            return true;
        }
        target.kind = TargetKind::Regular;
        if (S_ISLNK(link.st_mode)) {
            char* real = ::realpath(path.c_str(), nullptr);
            if (real == nullptr) {
                why = "cannot write (" + std::string(std::strerror(errno)) + ")";
                return false;
            }
            target.filePath = real;
            std::free(real);
        }
    }
    const std::string folder = folderOf(target.filePath);
    if (::access(folder.c_str(), W_OK) != 0) {
        why = "cannot write (" + std::string(std::strerror(errno)) + ")";
        return false;
    }
    return true;
}

bool commitOutput(const std::string& done, const OutputTarget& target, bool interruptible, std::string& why) {
    const Watch watch{interruptible};
    why.clear();
    if (watch.interrupted()) return false;
    if (target.standardOutput) {
        std::fflush(stdout);
        return copyInto(watch, done, STDOUT_FILENO, why, true);
    }
    if (target.kind == TargetKind::Special) return writeInto(watch, &done, {}, target.path, why);
    // A file that is replaced keeps its permissions (a private file stays
    // private); a new one gets a document's.
    mode_t mode = 0666 & ~currentUmask();
    struct stat old;
    if (target.kind == TargetKind::Regular && ::stat(target.filePath.c_str(), &old) == 0) mode = old.st_mode & 07777;
    ::chmod(done.c_str(), mode);
    if (!flushFile(done, why)) return false;
    // Replacing was decided when the target was examined: a file there then
    // (asked about), or -y.
    const bool replace = target.lastWriterWins || target.kind == TargetKind::Regular;
    const int error = placeFile(done, target.filePath, replace);
    if (error == 0) return true;
    why = placeError(error);
    return false;
}

bool writeOutput(const std::string& bytes, const OutputTarget& target, std::string& why) {
    const Watch watch{true};
    why.clear();
    if (watch.interrupted()) return false;
    if (target.standardOutput) {
        std::fflush(stdout);
        if (writeAll(watch, STDOUT_FILENO, bytes.data(), bytes.size())) return true;
        why = watch.interrupted() ? "" : errorText(errno);
        return false;
    }
    if (target.kind == TargetKind::Special) return writeInto(watch, nullptr, bytes, target.path, why);
    // Replacing was decided when the target was examined, as for commitOutput.
    const bool replace = target.lastWriterWins || target.kind == TargetKind::Regular;
    const int error =
        Wavoryx::writeOutputFile(target.filePath.c_str(), bytes.data(), bytes.size(),
                                 replace ? WV_OUTPUT_WHOLE : WV_OUTPUT_WHOLE | WV_OUTPUT_NO_REPLACE);
    if (error == 0) return true;
    // Creating the file fails with what a rename would; writing, with a
    // write's error.
    const bool placing = error == -EEXIST || error == -EACCES || error == -EPERM || error == -EROFS ||
                         error == -ENOENT || error == -ENOTDIR || error == -EISDIR;
    why = placing ? placeError(-error) : errorText(-error);
    return false;
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string freshNameBeside(const std::string& path, const std::string& tag) {
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::random_device seed;
    std::mt19937 pick(seed());
    std::uniform_int_distribution<size_t> letter(0, sizeof kLetters - 2);
    const size_t slash = path.find_last_of('/');
    const size_t nameAt = slash == std::string::npos ? 0 : slash + 1;
    size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || dot <= nameAt) dot = path.size();
    for (;;) {
        std::string suffix = "." + tag + "-";
        for (int i = 0; i < 6; ++i) suffix += kLetters[letter(pick)];
        const std::string name = path.substr(0, dot) + suffix + path.substr(dot);
        struct stat st;
        if (::lstat(name.c_str(), &st) != 0) return name;
    }
}

}  // namespace wvcli
