#include "Interrupt.h"

#include <csignal>

namespace wvcli {
namespace {

volatile std::sig_atomic_t gSignal = 0;

extern "C" void onInterrupt(int signo) {
    gSignal = signo;
}

}  // namespace

void installInterruptHandlers() {
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

int interruptSignal() {
    return gSignal;
}

int interruptExitStatus() {
    return 128 + gSignal;
}

}  // namespace wvcli
