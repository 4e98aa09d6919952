#include "base/Log.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace wv {
namespace {

// Above fatal: nothing but the last words before an abort.
constexpr int kLevelOff = WAVORYX_LOG_FATAL + 1;

void stderrSink(int priority, const char* tag, const char* message) {
    static const char kLetters[] = "??VDIWEF";
    const char letter = (priority >= 0 && priority <= WAVORYX_LOG_FATAL) ? kLetters[priority] : '?';
    std::string line;
    line.reserve(std::strlen(message) + 32);
    line += letter;
    line += '/';
    line += tag ? tag : "";
    line += ": ";
    line += message;
    line += '\n';
    // One write per line keeps lines from different threads whole.
    ssize_t unused = ::write(STDERR_FILENO, line.data(), line.size());
    (void)unused;
}

int levelFromEnvironment() {
    const char* text = std::getenv("WAVORYX_LOG");
    if (text == nullptr) return WAVORYX_LOG_WARN;
    static const struct {
        const char* name;
        int level;
    } kNames[] = {
        {"verbose", WAVORYX_LOG_VERBOSE}, {"debug", WAVORYX_LOG_DEBUG}, {"info", WAVORYX_LOG_INFO},
        {"warn", WAVORYX_LOG_WARN},       {"error", WAVORYX_LOG_ERROR}, {"off", kLevelOff},
    };
    for (const auto& entry : kNames) {
        if (std::strcmp(text, entry.name) == 0) return entry.level;
    }
    return WAVORYX_LOG_WARN;
}

std::atomic<wavoryx_log_sink> gSink{nullptr};
// -1 until the environment has been read or the application set a level.
std::atomic<int> gLevel{-1};

int currentLevel() {
    int level = gLevel.load(std::memory_order_relaxed);
    if (level < 0) {
        int expected = -1;
        level = levelFromEnvironment();
        if (!gLevel.compare_exchange_strong(expected, level)) level = expected;
    }
    return level;
}

void deliver(int priority, const char* tag, const char* message) {
    wavoryx_log_sink sink = gSink.load(std::memory_order_acquire);
    (sink ? sink : stderrSink)(priority, tag, message);
}

}  // namespace

bool logEnabled(int priority) { return priority >= currentLevel(); }

void logPrintV(int priority, const char* tag, const char* fmt, va_list args) {
    if (!logEnabled(priority)) return;
    char buffer[1024];
    std::vsnprintf(buffer, sizeof buffer, fmt, args);
    deliver(priority, tag, buffer);
}

void logPrint(int priority, const char* tag, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    logPrintV(priority, tag, fmt, args);
    va_end(args);
}

void fatalCheck(const char* tag, const char* file, int line, const char* fmt, ...) {
    char detail[768];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(detail, sizeof detail, fmt, args);
    va_end(args);
    char message[1024];
    std::snprintf(message, sizeof message, "frameworks/av/tools/libwavoryx/%s:%d %s", file, line,
                  detail);
    // The reason for an abort is always written, whatever the level.
    deliver(WAVORYX_LOG_FATAL, tag, message);
    std::abort();
}

}  // namespace wv

extern "C" {

void wavoryx_set_log_sink(wavoryx_log_sink sink) {
    wv::gSink.store(sink, std::memory_order_release);
}

void wavoryx_set_log_level(int priority) {
    wv::gLevel.store(priority < 0 ? 0 : priority, std::memory_order_relaxed);
}

}  // extern "C"
