// Single keys from a terminal, without Enter, for the live commands.
//
// KeyDecoder turns the bytes a terminal sends into keys. Cursor keys come
// as escape sequences (ESC [ C, or ESC O C in application mode, possibly
// with parameters such as ESC [ 1 ; 5 C); a sequence split across reads is
// completed by the next feed. Bytes of other sequences and keys that mean
// nothing here are dropped.
//
// RawKeyboard puts standard input into non-canonical, no-echo mode while it
// lives, when standard input is a terminal; otherwise it does nothing and
// never reads standard input. Ctrl-C still raises SIGINT (ISIG stays on).
// The saved mode comes back in the destructor, and also on a crash (SIGSEGV,
// SIGABRT, SIGBUS, SIGFPE, SIGILL: restored, then the default action), on
// Ctrl-Z (restored while stopped, raw again after SIGCONT) and at exit().
// One RawKeyboard at a time; its methods are for one thread.
#ifndef WAVORYX_CLI_KEYBOARD_H
#define WAVORYX_CLI_KEYBOARD_H

#include <string>
#include <vector>

namespace wvcli {

enum class Key { Space, Left, Right, Up, Down, Plus, Minus, Reverse, Quit };

class KeyDecoder {
public:
    // The keys completed by `bytes`, in order.
    std::vector<Key> feed(const std::string& bytes);

private:
    std::string mPending;  // an escape sequence not complete yet
};

class RawKeyboard {
public:
    RawKeyboard();
    ~RawKeyboard();
    RawKeyboard(const RawKeyboard&) = delete;
    RawKeyboard& operator=(const RawKeyboard&) = delete;

    // True when standard input is a terminal now in raw mode.
    bool active() const { return mActive; }
    // Waits up to timeoutMs for input and returns the keys it completes;
    // when not active, just waits. Stops waiting early for a signal.
    std::vector<Key> poll(int timeoutMs);

private:
    bool mActive = false;
    KeyDecoder mDecoder;
};

}  // namespace wvcli

#endif
