// How the command reports a command line it cannot use: one line naming
// the mistake, then the command's usage line and where the full help is:
//   wavoryx: unknown command 'edt'; did you mean 'edit'?
//   Usage: wavoryx [OPTIONS] SUBCOMMAND; see 'wavoryx --help'
// A mistyped name is matched against the names that command knows (its
// own and its parents', which its command line may also hold).
#ifndef WAVORYX_CLI_USAGEERRORS_H
#define WAVORYX_CLI_USAGEERRORS_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace wvcli {

// The optimal string alignment distance: insertions, deletions,
// substitutions and swaps of two neighbours, each counting 1.
size_t editDistance(const std::string& a, const std::string& b);

// The one of `known` that `given` most likely meant: within 2 edits (1 for
// names of up to 3 characters, so "-x" does not suggest "-q"), or one that
// begins with `given`; the closest, the first on a tie. Empty when none,
// and for a single letter ("-x"), which is too little to guess from.
std::string closestName(const std::string& given, const std::vector<std::string>& known);

// Prints the report of `error` for `app` after its parse failed, to
// standard error, and returns the usage status, 2.
int reportUsageError(const CLI::App& app, const CLI::ParseError& error);

}  // namespace wvcli

#endif
