#include "SoakLog.h"

#include <dirent.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>

namespace soak {

namespace {

EventLog* gLog = nullptr;

double monotonicSeconds() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

bool isProgress(int code) { return code == 3 || code == 21; }

}  // namespace

Kind kindOfCode(int code) {
    switch (code) {
        case 0:
        case 3:
        case 4:
        case 5:
        case 6:
        case 7:
        case 8: return Kind::Load;
        case 20:
        case 21:
        case 22:
        case 23:
        case 25: return Kind::Render;
        case 40:
        case 42:
        case 43:
        case 44: return Kind::Play;
        case 60:
        case 61:
        case 63:
        case 64:
        case 65:
        case 66:
        case 67:
        case 80: return Kind::Record;
        default: return Kind::Unknown;
    }
}

bool isFinalCode(int code) {
    switch (code) {
        case 0:
        case 4:
        case 5:
        case 7:
        case 20:
        case 22:
        case 23:
        case 25:
        case 63: return true;
        default: return false;
    }
}

const char* kindName(Kind kind) {
    switch (kind) {
        case Kind::Load: return "load";
        case Kind::Render: return "render";
        case Kind::Play: return "play";
        case Kind::Record: return "record";
        default: return "unknown";
    }
}

EventLog::EventLog(double endGraceSeconds) : mEndGrace(endGraceSeconds), mOrigin(monotonicSeconds()) { gLog = this; }

void EventLog::callback(int code, int id, int value, char*, void*) {
    if (gLog != nullptr) gLog->add(code, id, value);
}

double EventLog::now() const { return monotonicSeconds() - mOrigin; }

void EventLog::add(int code, int id, int value) {
    std::lock_guard<std::mutex> guard(mLock);
    if (code == 80) {
        // Levels are many and carry nothing to check beyond their range.
        ++mLevels;
        if (value < 0 || value > 255) mLate.push_back("level event out of range: " + std::to_string(value));
        return;
    }
    auto retired = mRetired.find(id);
    if (retired != mRetired.end()) {
        const double after = monotonicSeconds() - mOrigin - retired->second.at;
        if (code == 42 && !retired->second.lateEnd && after <= mEndGrace) {
            retired->second.lateEnd = true;
            ++mLateEnds;
            return;
        }
        char when[32];
        std::snprintf(when, sizeof when, "%.3f", after);
        mLate.push_back("event " + std::to_string(code) + " (" + std::to_string(value) + ") for item " +
                        std::to_string(id) + " " + when + " s after its jobs ended");
        return;
    }
    if (kindOfCode(code) == Kind::Unknown) {
        mLate.push_back("unknown event code " + std::to_string(code) + " for item " + std::to_string(id));
    }
    mById[id].push_back(Event{code, value, monotonicSeconds() - mOrigin});
}

std::vector<Event> EventLog::events(int id) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mById.find(id);
    return it == mById.end() ? std::vector<Event>() : it->second;
}

int EventLog::count(int id, int code) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mById.find(id);
    if (it == mById.end()) return 0;
    int n = 0;
    for (const Event& e : it->second) n += e.code == code;
    return n;
}

int EventLog::finalCode(int id, Kind kind) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto it = mById.find(id);
    if (it == mById.end()) return -1;
    for (const Event& e : it->second) {
        if (kindOfCode(e.code) == kind && isFinalCode(e.code)) return e.code;
    }
    return -1;
}

void EventLog::retire(int id) {
    std::lock_guard<std::mutex> guard(mLock);
    mById.erase(id);
    mRetired.emplace(id, Retired{monotonicSeconds() - mOrigin, false});
}

std::vector<std::string> EventLog::takeLateEvents() {
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<std::string> out;
    out.swap(mLate);
    return out;
}

long EventLog::levelEvents() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLevels;
}

long EventLog::lateEnds() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLateEnds;
}

std::vector<std::string> EventLog::checkEnding(int id, Kind kind) const {
    std::vector<std::string> problems;
    const std::string who = std::string(kindName(kind)) + " of item " + std::to_string(id);
    int finals = 0;
    int lastProgress = -1;
    for (const Event& e : events(id)) {
        if (kindOfCode(e.code) != kind) continue;
        if (finals > 0) {
            problems.push_back(who + ": event " + std::to_string(e.code) + " after its ending");
        }
        if (isFinalCode(e.code)) ++finals;
        if (isProgress(e.code)) {
            // Progress is measured against the expected length, which the
            // real one may pass, so it can end above 100.
            if (e.value < lastProgress || e.value < 0) {
                problems.push_back(who + ": progress " + std::to_string(e.value) + " after " +
                                   std::to_string(lastProgress));
            }
            lastProgress = e.value;
        }
    }
    if (finals != 1) problems.push_back(who + ": " + std::to_string(finals) + " ending events");
    return problems;
}

std::set<std::string> listDir(const std::string& dir) {
    std::set<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return names;
    while (dirent* entry = readdir(d)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.insert(name);
    }
    closedir(d);
    return names;
}

long long fileSize(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

bool fileExists(const std::string& path) { return fileSize(path) >= 0; }

long rssKb() {
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (f == nullptr) return -1;
    long size = 0, resident = 0;
    const int got = std::fscanf(f, "%ld %ld", &size, &resident);
    std::fclose(f);
    if (got != 2) return -1;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace soak
