// Helpers shared by the test programs: private temporary directories, a
// capture of the engine's log, the sample of a matrix a sanitized build
// runs, and (from EventRecorder.h) a recorder of client events.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "EventRecorder.h"

namespace wvtest {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return mPath; }
    // path() + "/" : the form the engine's working directory takes.
    std::string prefix() const { return mPath + "/"; }
    std::string file(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

bool fileExists(const std::string& path);
long long fileSize(const std::string& path);  // -1 when missing
std::vector<char> readFile(const std::string& path);
void writeFile(const std::string& path, const void* data, size_t size);
// The names in `dir`, without "." and "..".
std::set<std::string> namesIn(const std::string& dir);

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
};

// Routes the engine's log into memory for the lifetime of the object
// (verbose level and up), restoring the default sink and level after.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    std::vector<LogLine> lines() const;
    // Whether some line has exactly this message (and tag, when given).
    bool contains(const std::string& message, const char* tag = nullptr) const;
    void clear();
};

// Whether this build is instrumented by a sanitizer. There a matrix test
// runs a sample of its cases (sampled()): the sanitizers look for races and
// memory faults along code paths, which a few cases walk, while the plain
// build checks every value, 3 to 10 times faster.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// All of `cases`; in a sanitized build every `stride`-th one from the
// first, and the last.
template <typename T>
std::vector<T> sampled(const std::vector<T>& cases, size_t stride) {
    if (!kSanitized || stride <= 1) return cases;
    std::vector<T> kept;
    for (size_t i = 0; i < cases.size(); i += stride) kept.push_back(cases[i]);
    if (!cases.empty() && (cases.size() - 1) % stride != 0) kept.push_back(cases.back());
    return kept;
}

}  // namespace wvtest
