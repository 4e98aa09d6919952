// Helpers shared by the test programs: private temporary directories, a
// capture of the engine's log, and a recorder of client events.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

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

struct Event {
    int code;
    int id;
    int value;
    bool operator==(const Event& o) const { return code == o.code && id == o.id && value == o.value; }
};

// Collects the events of a client callback. Only one recorder can be active
// at a time, because the callback is a plain function pointer.
class EventRecorder {
public:
    EventRecorder();
    ~EventRecorder();
    static void callback(int code, int id, int value, char* text, void* user);
    std::vector<Event> events() const;
    // Waits until `pred` holds for the events seen so far, up to `timeout`.
    bool waitFor(const std::function<bool(const std::vector<Event>&)>& pred,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    // Waits for an event with this code (and id when id >= 0).
    bool waitForCode(int code, int id = -1,
                     std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    // Thread ids of the calls, in order.
    std::vector<std::thread::id> threads() const;
    void clear();

private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Event> mEvents;
    std::vector<std::thread::id> mThreads;
};

}  // namespace wvtest
