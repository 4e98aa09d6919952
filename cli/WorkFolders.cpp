#include "WorkFolders.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace wvcli {
namespace {

const char kPrefix[] = "wavoryx-";
constexpr size_t kPrefixLength = sizeof kPrefix - 1;
constexpr size_t kRandomLength = 6;  // mkdtemp's XXXXXX
// How old a folder without a lock file must be to be taken as stale: far
// longer than a run takes between making its folder and locking it.
constexpr time_t kUnlockedGraceSeconds = 24 * 60 * 60;
constexpr int kMakeTries = 100;
// Field 22 of /proc/PID/stat, counted from the first field after the
// command name (field 3).
constexpr int kStartField = 22 - 3;

// Digits from `at` up to the next '-': false when empty or not digits.
bool takeNumber(const std::string& text, size_t& at, uint64_t& value) {
    const size_t dash = text.find('-', at);
    if (dash == std::string::npos || dash == at || dash - at > 20) return false;
    value = 0;
    for (size_t i = at; i < dash; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
        value = value * 10 + uint64_t(text[i] - '0');
    }
    at = dash + 1;
    return true;
}

bool sameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

// Whether the folder `name` in `dir` is stale; when it is, `held` keeps its
// lock (taken here) until it is removed, so that no run can take it back.
bool isStale(int dir, const std::string& name, const struct stat& folder, int& held) {
    const int fd = ::openat(dir, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    struct stat opened;
    bool stale = false;
    if (::fstat(fd, &opened) == 0 && sameFile(opened, folder)) {
        held = ::openat(fd, kWorkFolderLock, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        if (held >= 0) {
            struct stat lock;
            stale = ::fstat(held, &lock) == 0 && S_ISREG(lock.st_mode) && ::flock(held, LOCK_EX | LOCK_NB) == 0;
        } else if (errno == ENOENT) {
            stale = folder.st_mtime + kUnlockedGraceSeconds < std::time(nullptr);
        }
    }
    ::close(fd);
    return stale;
}

}  // namespace

const char kWorkFolderLock[] = "lock";

uint64_t processStartTime(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) return 0;
    // The command name, in parentheses, may hold spaces and parentheses.
    const size_t close = line.rfind(')');
    if (close == std::string::npos) return 0;
    std::istringstream fields(line.substr(close + 1));
    std::string field;
    for (int i = 0; i <= kStartField; ++i) {
        if (!(fields >> field)) return 0;
    }
    return std::strtoull(field.c_str(), nullptr, 10);
}

std::string workFolderPrefix() {
    const pid_t pid = ::getpid();
    return kPrefix + std::to_string(pid) + "-" + std::to_string(processStartTime(pid)) + "-";
}

bool parseWorkFolderName(const std::string& name, pid_t& pid, uint64_t& start) {
    if (name.compare(0, kPrefixLength, kPrefix) != 0) return false;
    size_t at = kPrefixLength;
    uint64_t id = 0;
    if (!takeNumber(name, at, id) || !takeNumber(name, at, start)) return false;
    if (id == 0 || id > uint64_t(INT32_MAX) || name.size() - at != kRandomLength) return false;
    for (size_t i = at; i < name.size(); ++i) {
        if (!std::isalnum(static_cast<unsigned char>(name[i]))) return false;
    }
    pid = pid_t(id);
    return true;
}

int removeStaleWorkFolders(const std::string& parent) {
    DIR* dir = ::opendir(parent.c_str());
    if (dir == nullptr) return 0;
    const uid_t me = ::getuid();
    int removed = 0;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        pid_t pid = 0;
        uint64_t start = 0;
        if (!parseWorkFolderName(name, pid, start)) continue;
        struct stat st;
        if (::fstatat(::dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (!S_ISDIR(st.st_mode) || st.st_uid != me) continue;
        int held = -1;
        if (isStale(::dirfd(dir), name, st, held)) {
            // remove_all removes links themselves, never what they point to.
            std::error_code ignored;
            if (std::filesystem::remove_all(parent + "/" + name, ignored) > 0) ++removed;
        }
        if (held >= 0) ::close(held);
    }
    ::closedir(dir);
    return removed;
}

int makeWorkFolder(const std::string& parent, std::string& path) {
    for (int attempt = 0; attempt < kMakeTries; ++attempt) {
        const std::string name = parent + "/" + workFolderPrefix() + "XXXXXX";
        std::vector<char> pattern(name.begin(), name.end());
        pattern.push_back('\0');
        path.clear();
        if (::mkdtemp(pattern.data()) == nullptr) return -1;
        path = pattern.data();
        const std::string lockPath = path + "/" + kWorkFolderLock;
        const int fd = ::open(lockPath.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            // Taken by another run's clean-up in the moment before the lock
            // existed (a day-old clock, say): another folder is made.
            if (errno == ENOENT) continue;
            return -1;
        }
        // Another run's clean-up may hold the lock, or have removed the
        // folder already: the folder is then theirs, and another is made.
        struct stat mine;
        struct stat named;
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &mine) == 0 &&
            ::lstat(lockPath.c_str(), &named) == 0 && sameFile(mine, named)) {
            return fd;
        }
        ::close(fd);
    }
    errno = EAGAIN;
    return -1;
}

}  // namespace wvcli
