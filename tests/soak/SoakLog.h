// The soak's record of client events and its checks of how each job ended.
// Events are kept per item id until the driver retires the id; an event that
// arrives for a retired id (other than a late waveform level) is a fault of
// the engine and is kept as a violation text. The one exception is an end of
// playback (42) that the player posted, 30 ms ahead, just before the client
// stopped it and let the item go: it is delivered all the same, so one 42
// within a short grace after the retirement is taken.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

namespace soak {

// The four kinds of job whose events the callback carries.
enum class Kind { Load, Render, Play, Record, Unknown };

Kind kindOfCode(int code);
// Codes that end a job of their kind: load 0/4/5/7, render 20/22/23/25,
// record 63. Playback has no ending of its own: 42 and 40 are counted apart.
bool isFinalCode(int code);
const char* kindName(Kind kind);

struct Event {
    int code;
    int value;
    double seconds;  // since the log was created, on the monotonic clock
};

class EventLog {
public:
    // `endGraceSeconds`: how long after its retirement an item's last end
    // of playback may still come in.
    explicit EventLog(double endGraceSeconds);
    // The client callback; forwards to the one live log.
    static void callback(int code, int id, int value, char* text, void* user);

    void add(int code, int id, int value);
    std::vector<Event> events(int id) const;
    int count(int id, int code) const;
    // The ending of `kind` for `id`, or -1 while there is none.
    int finalCode(int id, Kind kind) const;
    double now() const;
    // Drops the events of `id`; later events for it are violations.
    void retire(int id);
    std::vector<std::string> takeLateEvents();
    long levelEvents() const;
    long lateEnds() const;  // ends of playback taken within the grace

    // Checks that `id` has exactly one ending of `kind`, nothing of that kind
    // after it, and progress that never goes back. Returns the problems.
    std::vector<std::string> checkEnding(int id, Kind kind) const;

private:
    mutable std::mutex mLock;
    std::unordered_map<int, std::vector<Event>> mById;
    struct Retired {
        double at;
        bool lateEnd;
    };
    std::unordered_map<int, Retired> mRetired;
    std::vector<std::string> mLate;
    long mLevels = 0;
    long mLateEnds = 0;
    const double mEndGrace;
    double mOrigin;
};

// Names of the entries of `dir` (no "." or ".."); empty when missing.
std::set<std::string> listDir(const std::string& dir);
long long fileSize(const std::string& path);  // -1 when missing
bool fileExists(const std::string& path);
// Resident set size of this process in KiB, from /proc/self/statm.
long rssKb();

}  // namespace soak
