// The engine's log: a tag and a priority per message, and the fatal checks
// that end the process when an internal invariant is broken.
//
// A source file defines WV_LOG_TAG before including this header:
//     #define WV_LOG_TAG "WavoryxPriv"
//     #include "base/Log.h"
#pragma once

#include <cstdarg>
#include <cstdint>

#include <wavoryx/platform.h>

namespace wv {

// Formats and delivers one message if `priority` passes the level.
void logPrint(int priority, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
void logPrintV(int priority, const char* tag, const char* fmt, va_list args);
// Whether a message of `priority` would be delivered; lets callers skip
// expensive formatting.
bool logEnabled(int priority);

// Logs "frameworks/av/tools/libwavoryx/<file>:<line> " followed by the
// formatted text at fatal priority, then aborts. `file` is the name of the
// unit that owns the invariant, without extension.
[[noreturn]] void fatalCheck(const char* tag, const char* file, int line, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace wv

#define WV_LOGV(...) ::wv::logPrint(WAVORYX_LOG_VERBOSE, WV_LOG_TAG, __VA_ARGS__)
#define WV_LOGD(...) ::wv::logPrint(WAVORYX_LOG_DEBUG, WV_LOG_TAG, __VA_ARGS__)
#define WV_LOGI(...) ::wv::logPrint(WAVORYX_LOG_INFO, WV_LOG_TAG, __VA_ARGS__)
#define WV_LOGW(...) ::wv::logPrint(WAVORYX_LOG_WARN, WV_LOG_TAG, __VA_ARGS__)
#define WV_LOGE(...) ::wv::logPrint(WAVORYX_LOG_ERROR, WV_LOG_TAG, __VA_ARGS__)

// CHECK(cond) at a fixed unit and line: "<unit>:<line> CHECK(<text>) failed."
#define WV_CHECK(unit, line, cond)                                                         \
    do {                                                                                   \
        if (!(cond)) ::wv::fatalCheck(WV_LOG_TAG, unit, line, "CHECK(%s) failed.", #cond); \
    } while (0)

// Comparison checks log both values: "CHECK_EQ( <a>,<b>) failed: <a> vs. <b>".
// `text` is the condition as it should read in the message.
#define WV_CHECK_OP(unit, line, name, op, text, a, b)                                          \
    do {                                                                                       \
        const long long wv_a_ = static_cast<long long>(a);                                     \
        const long long wv_b_ = static_cast<long long>(b);                                     \
        if (!(wv_a_ op wv_b_))                                                                 \
            ::wv::fatalCheck(WV_LOG_TAG, unit, line, name "( %s) failed: %lld vs. %lld", text, \
                             wv_a_, wv_b_);                                                    \
    } while (0)
#define WV_CHECK_EQ(unit, line, text, a, b) WV_CHECK_OP(unit, line, "CHECK_EQ", ==, text, a, b)
#define WV_CHECK_NE(unit, line, text, a, b) WV_CHECK_OP(unit, line, "CHECK_NE", !=, text, a, b)
