#include "Keyboard.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace wvcli {
namespace {

constexpr char kEscape = '\x1b';
// Longer "sequences" are garbage, not a key still arriving.
constexpr size_t kMaxSequence = 16;

bool isKnownSequenceFinal(char c, Key& key) {
    switch (c) {
        case 'A': key = Key::Up; return true;
        case 'B': key = Key::Down; return true;
        case 'C': key = Key::Right; return true;
        case 'D': key = Key::Left; return true;
        default: return false;
    }
}

bool plainKey(char c, Key& key) {
    switch (c) {
        case ' ': key = Key::Space; return true;
        case '+':
        case '=': key = Key::Plus; return true;  // '=' is '+' without Shift
        case '-':
        case '_': key = Key::Minus; return true;
        case 'r':
        case 'R': key = Key::Reverse; return true;
        case 'q':
        case 'Q': key = Key::Quit; return true;
        default: return false;
    }
}

// ---- the terminal's saved mode, shared with the signal handlers ----------

struct termios gSaved;
volatile std::sig_atomic_t gRaw = 0;
bool gAtExitRegistered = false;

constexpr int kCrashSignals[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGQUIT};
constexpr int kCrashCount = sizeof kCrashSignals / sizeof kCrashSignals[0];
struct sigaction gPreviousCrash[kCrashCount];
struct sigaction gPreviousStop;

// Async-signal-safe.
void restoreTerminal() {
    if (gRaw != 0) tcsetattr(STDIN_FILENO, TCSANOW, &gSaved);
}

void enterRaw() {
    struct termios raw = gSaved;
    raw.c_lflag &= tcflag_t(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSANOW, &raw);
}

extern "C" void onCrash(int signo) {
    restoreTerminal();
    gRaw = 0;
    // The handler that was there before (the default, or a sanitizer's)
    // deals with the signal once this one returns.
    for (int i = 0; i < kCrashCount; ++i) {
        if (kCrashSignals[i] == signo) sigaction(signo, &gPreviousCrash[i], nullptr);
    }
    raise(signo);
}

extern "C" void onStop(int) {
    const int savedErrno = errno;
    restoreTerminal();
    // Stop for real; SA_NODEFER lets the raise take effect at once, and
    // the job continues here after SIGCONT.
    struct sigaction mine;
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigemptyset(&standard.sa_mask);
    sigaction(SIGTSTP, &standard, &mine);
    raise(SIGTSTP);
    sigaction(SIGTSTP, &mine, nullptr);
    if (gRaw != 0) enterRaw();
    errno = savedErrno;
}

extern "C" void restoreAtExit() { restoreTerminal(); }

}  // namespace

std::vector<Key> KeyDecoder::feed(const std::string& bytes) {
    mPending += bytes;
    std::vector<Key> keys;
    size_t i = 0;
    while (i < mPending.size()) {
        const char c = mPending[i];
        Key key;
        if (c != kEscape) {
            if (plainKey(c, key)) keys.push_back(key);
            ++i;
            continue;
        }
        if (i + 1 >= mPending.size()) break;  // a lone ESC so far
        const char kind = mPending[i + 1];
        if (kind != '[' && kind != 'O') {
            ++i;  // ESC + key (Alt): the key counts
            continue;
        }
        // Parameters and intermediates, then one final byte.
        size_t end = i + 2;
        while (end < mPending.size() && mPending[end] >= 0x20 && mPending[end] <= 0x3f) ++end;
        if (end >= mPending.size()) {
            if (mPending.size() - i > kMaxSequence) i = mPending.size();
            break;
        }
        if (isKnownSequenceFinal(mPending[end], key)) keys.push_back(key);
        i = end + 1;
    }
    mPending.erase(0, i);
    return keys;
}

RawKeyboard::RawKeyboard() {
    if (isatty(STDIN_FILENO) != 1 || tcgetattr(STDIN_FILENO, &gSaved) != 0) return;
    if (!gAtExitRegistered) {
        gAtExitRegistered = true;
        std::atexit(restoreAtExit);
    }
    struct sigaction crash = {};
    crash.sa_handler = onCrash;
    sigemptyset(&crash.sa_mask);
    for (int i = 0; i < kCrashCount; ++i) sigaction(kCrashSignals[i], &crash, &gPreviousCrash[i]);
    struct sigaction stop = {};
    stop.sa_handler = onStop;
    stop.sa_flags = SA_NODEFER | SA_RESTART;
    sigemptyset(&stop.sa_mask);
    sigaction(SIGTSTP, &stop, &gPreviousStop);
    gRaw = 1;
    enterRaw();
    mActive = true;
}

RawKeyboard::~RawKeyboard() {
    if (!mActive) return;
    restoreTerminal();
    gRaw = 0;
    for (int i = 0; i < kCrashCount; ++i) sigaction(kCrashSignals[i], &gPreviousCrash[i], nullptr);
    sigaction(SIGTSTP, &gPreviousStop, nullptr);
}

std::vector<Key> RawKeyboard::poll(int timeoutMs) {
    if (!mActive) {
        ::poll(nullptr, 0, timeoutMs);
        return {};
    }
    struct pollfd input = {STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, timeoutMs) <= 0) return {};
    if ((input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0 && (input.revents & POLLIN) == 0) {
        // The terminal went away: no more keys, only waiting.
        ::poll(nullptr, 0, timeoutMs);
        return {};
    }
    char bytes[64];
    const ssize_t got = ::read(STDIN_FILENO, bytes, sizeof bytes);
    if (got <= 0) return {};
    return mDecoder.feed(std::string(bytes, size_t(got)));
}

}  // namespace wvcli
