#include "Progress.h"

#include <unistd.h>

#include <cstdio>

namespace wvcli {
namespace {
constexpr int kBarWidth = 30;
constexpr int kPlainStep = 25;
}  // namespace

Progress::Progress(std::string label, bool quiet)
    : mLabel(std::move(label)), mQuiet(quiet), mTerminal(isatty(STDERR_FILENO) == 1),
      mStart(std::chrono::steady_clock::now()) {}

Progress::~Progress() {
    if (!mFinished) finish(false);
}

std::string Progress::elapsedText() const {
    const auto elapsed = std::chrono::steady_clock::now() - mStart;
    const long seconds = long(std::chrono::duration_cast<std::chrono::seconds>(elapsed).count());
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", seconds / 60, seconds % 60);
    return text;
}

void Progress::update(int percent) {
    if (mQuiet || mFinished) return;
    if (percent < 0) percent = 0;
    if (percent > 100) percent = 100;
    if (percent == mPercent) return;
    // Plain lines only every quarter, so that logs stay short.
    if (!mTerminal && percent < 100 && mPercent >= 0 && percent / kPlainStep == mPercent / kPlainStep) return;
    mPercent = percent;
    draw();
}

void Progress::draw() {
    if (mTerminal) {
        char bar[kBarWidth + 1];
        const int filled = mPercent * kBarWidth / 100;
        for (int i = 0; i < kBarWidth; ++i) bar[i] = i < filled ? '#' : '.';
        bar[kBarWidth] = '\0';
        std::fprintf(stderr, "\r%s  [%s] %3d%%  %s\033[K", mLabel.c_str(), bar, mPercent, elapsedText().c_str());
    } else {
        std::fprintf(stderr, "%s: %d%% (%s)\n", mLabel.c_str(), mPercent, elapsedText().c_str());
    }
    std::fflush(stderr);
}

void Progress::interject(const std::string& line) {
    const bool barShown = !mQuiet && mTerminal && !mFinished && mPercent >= 0;
    if (barShown) std::fprintf(stderr, "\r\033[K");
    std::fwrite(line.data(), 1, line.size(), stderr);
    if (barShown) {
        draw();
    } else {
        std::fflush(stderr);
    }
}

void Progress::finish(bool ok) {
    if (mFinished) return;
    if (ok) update(100);
    mFinished = true;
    if (mQuiet || !mTerminal || mPercent < 0) return;
    // The bar goes away: the command's own result line follows.
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
}

}  // namespace wvcli
