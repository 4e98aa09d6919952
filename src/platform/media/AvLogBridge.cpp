#define WV_LOG_TAG "MediaLayer"
#include "platform/media/AvLogBridge.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <mutex>
#include <string>

#include "base/Log.h"

namespace wv {
namespace {

// FFmpeg may build one line from several calls; keep the pieces per thread.
thread_local std::string tPending;
thread_local int tPrintPrefix = 1;

void bridge(void* avcl, int level, const char* fmt, va_list args) {
    const int priority = logPriorityForAvLevel(level);
    if (priority == 0 || !logEnabled(priority)) return;
    char line[1024];
    av_log_format_line2(avcl, level, fmt, args, line, sizeof line, &tPrintPrefix);
    tPending += line;
    size_t end;
    while ((end = tPending.find('\n')) != std::string::npos) {
        if (end > 0) logPrint(priority, WV_LOG_TAG, "%s", tPending.substr(0, end).c_str());
        tPending.erase(0, end + 1);
    }
}

}  // namespace

int logPriorityForAvLevel(int avLevel) {
    if (avLevel <= AV_LOG_FATAL) return WAVORYX_LOG_ERROR;
    if (avLevel <= AV_LOG_ERROR) return WAVORYX_LOG_INFO;
    if (avLevel <= AV_LOG_WARNING) return WAVORYX_LOG_DEBUG;
    if (avLevel <= AV_LOG_INFO) return WAVORYX_LOG_VERBOSE;
    return 0;
}

void installAvLogBridge() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(AV_LOG_INFO);
        av_log_set_callback(bridge);
    });
}

}  // namespace wv
