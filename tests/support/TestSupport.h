// Helpers shared by the test programs: private temporary directories, a
// capture of the engine's log, and (from EventRecorder.h) a recorder of
// client events.
#pragma once

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

}  // namespace wvtest
