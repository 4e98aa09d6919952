#include "LiveLine.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "TimeSpec.h"

namespace wvcli {
namespace {

constexpr int kFullScaleLevel = 255;
constexpr int kSilentDecibels = -99;
constexpr int kMeterFloorDb = -48;
constexpr int kMeterWidth = 30;

}  // namespace

LiveLine::LiveLine(bool quiet) : mLive(!quiet && isatty(STDERR_FILENO) == 1) {}

LiveLine::~LiveLine() { clear(); }

void LiveLine::show(const std::string& text) {
    if (!mLive) return;
    std::string line = text;
    if (!mNote.empty()) {
        if (std::chrono::steady_clock::now() < mNoteUntil) {
            line += "  (" + mNote + ")";
        } else {
            mNote.clear();
        }
    }
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
    mDrawn = true;
}

void LiveLine::note(const std::string& message) {
    mNote = message;
    mNoteUntil = std::chrono::steady_clock::now() + std::chrono::milliseconds(kNoteMs);
}

void LiveLine::clear() {
    if (!mDrawn) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    mDrawn = false;
}

std::string playStatusText(const PlayView& view) {
    char text[160];
    std::snprintf(text, sizeof text, "%s / %s  %dx %s  %s", formatTimeMs(view.positionMs).c_str(),
                  formatTimeMs(view.durationMs).c_str(), std::abs(view.speed),
                  view.speed < 0 ? "backwards" : "forwards",
                  view.paused ? "paused" : view.buffering ? "buffering" : "playing");
    return text;
}

int levelDecibels(int level) {
    if (level <= 0) return kSilentDecibels;
    if (level >= kFullScaleLevel) return 0;
    return int(std::lround(20.0 * std::log10(double(level) / kFullScaleLevel)));
}

std::string levelBar(int level, int width) {
    if (width < 1) return "[]";
    const int db = levelDecibels(level);
    int filled = 0;
    if (db > kMeterFloorDb) filled = (db - kMeterFloorDb) * width / -kMeterFloorDb;
    // Any sound at all shows; only silence leaves the bar empty.
    if (filled == 0 && level > 0) filled = 1;
    std::string bar = "[";
    bar.append(size_t(filled), '#');
    bar.append(size_t(width - filled), '.');
    return bar + "]";
}

std::string recordStatusText(const RecordView& view) {
    std::string text = "REC " + formatTimeMs(view.recordedMs) + "  ";
    if (view.paused) return text + "paused (space resumes)";
    const int db = levelDecibels(view.level);
    char level[16];
    if (db == kSilentDecibels) {
        std::snprintf(level, sizeof level, "  silent");
    } else {
        std::snprintf(level, sizeof level, "%4d dB", db);
    }
    return text + levelBar(view.level, kMeterWidth) + "  " + level;
}

std::string lostAudioWarning(const std::string& output, uint64_t lostMs, uint64_t atMs) {
    return output + ": the input lost " + std::to_string(lostMs) + " ms of audio at " + formatTimeMs(atMs) +
           " (recorded as silence)";
}

std::string lostAudioSummary(uint64_t lostMs) {
    if (lostMs == 0) return "";
    return "; the input lost " + std::to_string(lostMs) + " ms in all (recorded as silence)";
}

}  // namespace wvcli
