// The subcommands of `wavoryx`. Each add<Name>Command registers one
// subcommand with its options, help and examples on the application; when
// the command line chooses it, its parse callback stores in `line.run` the
// function that does the work, which main() calls after parsing succeeded
// and returns as the exit status:
//   0 success, 1 a file could not be used or written (one line
//   "wavoryx: FILE: reason"), 2 a usage error (thrown as a CLI11
//   ValidationError from the callback, reported with the usage),
//   128 + signal after Ctrl-C, SIGTERM, SIGHUP or SIGQUIT (see Interrupt.h).
// A new subcommand is one file defining its add function, and one line in
// main.cpp.
#ifndef WAVORYX_CLI_COMMANDS_H
#define WAVORYX_CLI_COMMANDS_H

#include <functional>

#include "Session.h"

namespace CLI {
class App;
}

namespace wvcli {

struct CommandLine {
    GlobalOptions global;
    std::function<int()> run;
};

void addInfoCommand(CLI::App& app, CommandLine& line);
void addEditCommand(CLI::App& app, CommandLine& line);
void addWaveformCommand(CLI::App& app, CommandLine& line);
void addPlayCommand(CLI::App& app, CommandLine& line);
void addRecordCommand(CLI::App& app, CommandLine& line);
void addStudioCommand(CLI::App& app, CommandLine& line);

}  // namespace wvcli

#endif
