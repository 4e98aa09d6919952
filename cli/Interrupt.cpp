#include "Interrupt.h"

#include <csignal>
#include <initializer_list>

namespace wvcli {
namespace {

volatile std::sig_atomic_t gSignal = 0;

// The first signal decides the exit status.
extern "C" void onInterrupt(int signo) {
    if (gSignal == 0) gSignal = signo;
}

}  // namespace

void installInterruptHandlers() {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a blocking open or write (a FIFO without a reader)
    // returns EINTR, and the command sees the flag.
    for (int signo : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(signo, &action, nullptr);
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    sigaction(SIGPIPE, &ignore, nullptr);
}

int interruptSignal() { return gSignal; }

int interruptExitStatus() { return 128 + gSignal; }

}  // namespace wvcli
