// The command's manual page and its bash and zsh completion, made from the
// CLI11 definitions of its options (`wavoryx --write-docs DIR`, run by the
// build), so that they list exactly the options the command takes.
//
// What a definition says is read as follows: an option group of "" hides
// an option; a value named FILE, OUT, PATH or SOURCE is a file name and DIR
// a folder; a check made by oneOf, indexOf or CLI::IsMember gives its
// choices (see OptionChecks.h); a footer's lines after "Examples:" are
// example command lines, the lines before it prose.
#ifndef WAVORYX_CLI_COMMANDDOCS_H
#define WAVORYX_CLI_COMMANDDOCS_H

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace wvcli {

enum class ValueKind { None, File, Folder, Other };

struct OptionDoc {
    std::vector<std::string> names;  // "-o", "--output"; a positional's name alone
    std::string valueName;           // "OUT"; empty for a flag
    ValueKind value = ValueKind::None;
    std::vector<std::string> choices;
    std::string description;
    bool required = false;
    bool repeats = false;  // a positional that takes any number of words
};

struct CommandDoc {
    std::string name;  // "wavoryx", "edit"
    std::string description;
    std::vector<std::string> prose;     // the footer's lines before "Examples:"
    std::vector<std::string> examples;  // its example command lines
    std::vector<OptionDoc> options;
    std::vector<OptionDoc> positionals;
};

struct ProgramDoc {
    std::string version;
    CommandDoc program;  // the global options, the main description and footer
    std::vector<CommandDoc> commands;
};

ProgramDoc describeProgram(const CLI::App& app, const std::string& version);

// The roff source of the manual page wavoryx(1).
std::string manPage(const ProgramDoc& doc);
// A bash script defining the completion of `wavoryx` (complete -F).
std::string bashCompletion(const ProgramDoc& doc);
// A zsh completion function file (#compdef wavoryx).
std::string zshCompletion(const ProgramDoc& doc);

// Writes wavoryx.1, wavoryx.bash and _wavoryx into `folder`, each whole or
// not at all; false with the failing file in `failed` and `why`.
bool writeDocs(const ProgramDoc& doc, const std::string& folder, std::string& failed, std::string& why);

}  // namespace wvcli

#endif
