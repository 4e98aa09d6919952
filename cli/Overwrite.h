// Whether an existing output may be replaced: the user's say, asked once
// before any work starts, as other audio tools ask.
//
// Only a regular file (or a link to one) is protected: writing into a
// device or a FIFO (/dev/null, a pipe) costs the user no file. The answer
// applies to the file as it is when asked; the finished output still
// replaces it whole (see OutputFile.h).
#ifndef WAVORYX_CLI_OVERWRITE_H
#define WAVORYX_CLI_OVERWRITE_H

#include <cstdio>

#include "OutputFile.h"

namespace wvcli {

enum class Overwrite {
    kAsk,     // ask on a terminal, refuse without one
    kAlways,  // -y, --overwrite
    kNever,   // -n, --no-overwrite
};

// True when `target` is not an existing regular file, or may be replaced
// under `policy`; sets target.lastWriterWins for -y. kAsk with a terminal on standard input writes
// "FILE exists. Overwrite? [y/N] " to standard error and reads one line
// from `answers` (standard input): y or yes (any case) replaces. Otherwise
// prints one "wavoryx: FILE: ..." line saying why not, and returns false;
// after an ending signal at the question it prints nothing and returns
// false (the caller exits with interruptExitStatus()).
bool mayReplace(OutputTarget& target, Overwrite policy, std::FILE* answers = stdin);

// Whether the answer line means yes.
bool isYes(const char* line);

}  // namespace wvcli

#endif
