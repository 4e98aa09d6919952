// Checks for option values whose refusals name the value given and the
// values accepted, so that a mistake can be fixed from the message alone:
//   --speed: 5 is out of range: use -4 to -1 or 1 to 4
//   --width: 'wide' is not a whole number: use 1 to 20000
//   --format: 'wavx' is not one of wav, mp3, flac, opus, m4a, ogg
// CLI11 puts the option's name in front. The descriptions ("{a,b,c}" for
// choices) appear in --help and are read back by the manual and completion
// generator, which is how it knows an option's choices.
#ifndef WAVORYX_CLI_OPTIONCHECKS_H
#define WAVORYX_CLI_OPTIONCHECKS_H

#include <CLI/CLI.hpp>

#include <string>
#include <utility>
#include <vector>

namespace wvcli {

using WholeRange = std::pair<long, long>;

// "1 to 4", "-4 to -1 or 1 to 4".
std::string describeRanges(const std::vector<WholeRange>& ranges);

// A whole number within one of `ranges` (each inclusive).
CLI::Validator wholeNumberIn(std::vector<WholeRange> ranges);
inline CLI::Validator wholeNumberIn(long lowest, long highest) { return wholeNumberIn({{lowest, highest}}); }

// A time as the command writes them everywhere (TimeSpec.h).
CLI::Validator timeText();

// One of `names`, compared without regard to case and passed on as
// written in `names`.
CLI::Validator oneOf(std::vector<std::string> names);

// One of `names`, without regard to case, passed on as its index: for
// options stored as numbers but chosen by name.
CLI::Validator indexOf(std::vector<std::string> names);

// The choices a description made by oneOf, indexOf or CLI::IsMember lists:
// the words of its first "{...}" (without any "->" mapping); empty when
// it lists none.
std::vector<std::string> choicesInDescription(const std::string& description);

}  // namespace wvcli

#endif
