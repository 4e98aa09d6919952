// The words of the command line as the parser is given them: in reverse
// order (as CLI11 takes them), with the dash of a word that is a name, not
// an option, hidden behind kHiddenDash (see StandardInput.h):
//   - a range of standard input ("-@1-2");
//   - after "--", which ends the options, every word that begins with '-'
//     and is none of the command's options ("--" itself is dropped), so
//     that `wavoryx edit -- -take.wav -o out.wav` reads -take.wav.
// revealNames() takes the mark off again wherever a value arrives.
#ifndef WAVORYX_CLI_COMMANDWORDS_H
#define WAVORYX_CLI_COMMANDWORDS_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace wvcli {

std::vector<std::string> parserWords(const CLI::App& app, const std::vector<std::string>& given);

// Makes every option and argument of `app` and its commands take a hidden
// dash off the words they receive.
void revealNames(CLI::App& app);

}  // namespace wvcli

#endif
