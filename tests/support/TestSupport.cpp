#include "TestSupport.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>

#include <wavoryx/platform.h>

namespace wvtest {

TempDir::TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string templ = std::string(base && *base ? base : "/tmp") + "/wavoryx-test-XXXXXX";
    std::vector<char> buffer(templ.begin(), templ.end());
    buffer.push_back('\0');
    if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    mPath = buffer.data();
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

bool fileExists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

long long fileSize(const std::string& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return -1;
    return st.st_size;
}

std::vector<char> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const void* data, size_t size) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
}

std::set<std::string> namesIn(const std::string& dir) {
    std::set<std::string> names;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.insert(name);
        }
        closedir(d);
    }
    return names;
}

namespace {
std::mutex gLogLock;
std::vector<LogLine> gLogLines;

void captureSink(int priority, const char* tag, const char* message) {
    std::lock_guard<std::mutex> guard(gLogLock);
    gLogLines.push_back({priority, tag ? tag : "", message ? message : ""});
}
}  // namespace

LogCapture::LogCapture() {
    clear();
    wavoryx_set_log_level(WAVORYX_LOG_VERBOSE);
    wavoryx_set_log_sink(captureSink);
}

LogCapture::~LogCapture() {
    wavoryx_set_log_sink(nullptr);
    wavoryx_set_log_level(WAVORYX_LOG_WARN);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> guard(gLogLock);
    return gLogLines;
}

bool LogCapture::contains(const std::string& message, const char* tag) const {
    std::lock_guard<std::mutex> guard(gLogLock);
    for (const auto& line : gLogLines) {
        if (line.message == message && (tag == nullptr || line.tag == tag)) return true;
    }
    return false;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> guard(gLogLock);
    gLogLines.clear();
}

}  // namespace wvtest
