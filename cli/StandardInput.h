// "-" as an input names standard input, as in other audio tools. The engine
// loads files by name and seeks in them, so what arrives is first copied
// whole into the private working folder, once per run, and every "-" of
// the command line loads that copy. Messages keep saying "-".
#ifndef WAVORYX_CLI_STANDARDINPUT_H
#define WAVORYX_CLI_STANDARDINPUT_H

#include <string>
#include <vector>

namespace wvcli {

// A range of standard input ("-@1-2"), or a name after "--" that begins
// with '-', would be taken for an option by the parser: its dash is hidden
// behind this prefix before parsing (parserWords, CommandWords.h) and taken
// off again where the word arrives.
constexpr char kHiddenDash[] = "\x1f-";

// Whether `paths` name standard input.
bool namesStandardInput(const std::vector<std::string>& paths);

// Copies standard input to a new file in `workDir` (which ends in '/').
// False with one "wavoryx: -: ..." line printed: standard input is a
// terminal, a read or write failed (storage full included), or an ending
// signal came (then nothing is printed; the caller returns its status).
bool spoolStandardInput(const std::string& workDir);

// The file the engine loads for `path`: the copy for "-", else `path`.
std::string inputFile(const std::string& path);

}  // namespace wvcli

#endif
