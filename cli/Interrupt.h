// The signals that end the command (SIGINT from Ctrl-C, SIGTERM, SIGHUP
// when the terminal goes away, SIGQUIT from Ctrl-\) as a flag that
// long-running commands poll between waits (at least every 100 ms), so
// that they can cancel the engine's work, clean up and exit with 128 + the
// signal's number. SIGPIPE is ignored: a write to a closed pipe fails like
// any other write error instead of killing the command mid-job.
#ifndef WAVORYX_CLI_INTERRUPT_H
#define WAVORYX_CLI_INTERRUPT_H

namespace wvcli {

// Installs the handlers; idempotent. The handler only records the signal.
void installInterruptHandlers();
// The signal received since the handlers were installed, or 0.
int interruptSignal();
// 128 + the signal: 130 for SIGINT, 143 for SIGTERM, 129 for SIGHUP.
int interruptExitStatus();

}  // namespace wvcli

#endif
