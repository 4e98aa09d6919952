#include "WorkFolders.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
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

}  // namespace

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
    // Without /proc no process can be told alive: remove nothing.
    if (processStartTime(::getpid()) == 0) return 0;
    DIR* dir = ::opendir(parent.c_str());
    if (dir == nullptr) return 0;
    std::vector<std::string> stale;
    const uid_t me = ::getuid();
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        pid_t pid = 0;
        uint64_t start = 0;
        if (!parseWorkFolderName(name, pid, start)) continue;
        struct stat st;
        if (::fstatat(::dirfd(dir), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (!S_ISDIR(st.st_mode) || st.st_uid != me) continue;
        const uint64_t running = processStartTime(pid);
        if (running != 0 && running == start) continue;
        stale.push_back(parent + "/" + name);
    }
    ::closedir(dir);
    int removed = 0;
    for (const std::string& path : stale) {
        // remove_all removes links themselves, never what they point to.
        std::error_code ignored;
        if (std::filesystem::remove_all(path, ignored) > 0) ++removed;
    }
    return removed;
}

}  // namespace wvcli
