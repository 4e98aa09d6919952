// Shell completion of `wavoryx` for bash and zsh. Both offer the commands,
// then a command's options (the global ones too, as they may follow the
// command), an option's choices, file names where a file is named and
// folder names for a folder; numbers and times get nothing.
#include <algorithm>
#include <string>

#include "CommandDocs.h"

namespace wvcli {
namespace {

std::string joinedNames(const std::vector<std::string>& names, const char* between) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : between) + name;
    return text;
}

// The options a command line reaching `command` may hold: its own, then
// the program's, which may follow it.
std::vector<const OptionDoc*> optionsOf(const CommandDoc& command, const CommandDoc& program) {
    std::vector<const OptionDoc*> options;
    for (const OptionDoc& option : command.options) options.push_back(&option);
    if (&command == &program) return options;
    for (const OptionDoc& option : program.options) options.push_back(&option);
    return options;
}

std::vector<std::string> allOptionNames(const CommandDoc& command, const CommandDoc& program) {
    std::vector<std::string> names;
    for (const OptionDoc* option : optionsOf(command, program)) {
        for (const std::string& name : option->names) {
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
        }
    }
    return names;
}

// Single quotes for the shell: ' becomes '\''.
std::string shellQuoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// bash: the `case "$prev"` arms of the options that take a value.
std::string bashValueArms(const CommandDoc& command, const CommandDoc& program) {
    std::string arms;
    for (const OptionDoc* option : optionsOf(command, program)) {
        if (option->value == ValueKind::None) continue;
        arms += "        " + joinedNames(option->names, "|") + ") ";
        if (!option->choices.empty()) {
            arms += "_wavoryx_words " + shellQuoted(joinedNames(option->choices, " "));
        } else if (option->value == ValueKind::File) {
            arms += "_wavoryx_files";
        } else if (option->value == ValueKind::Folder) {
            arms += "_wavoryx_folders";
        } else {
            arms += "COMPREPLY=()";
        }
        arms += "; return ;;\n";
    }
    return arms;
}

// bash: what a word not starting with '-' completes to.
std::string bashWordAction(const CommandDoc& command) {
    for (const OptionDoc& positional : command.positionals) {
        if (positional.value == ValueKind::File) return "_wavoryx_files";
        if (positional.value == ValueKind::Folder) return "_wavoryx_folders";
        if (!positional.choices.empty()) return "_wavoryx_words " + shellQuoted(joinedNames(positional.choices, " "));
    }
    return command.positionals.empty() ? "_wavoryx_words \"$options\"" : "COMPREPLY=()";
}

std::string bashCommandBody(const CommandDoc& command, const CommandDoc& program, const std::string& words) {
    std::string body = "    local options=" + shellQuoted(joinedNames(allOptionNames(command, program), " ")) + "\n";
    body += "    case $prev in\n" + bashValueArms(command, program) + "    esac\n";
    body +=
        "    if [[ $cur == -* ]]; then\n        _wavoryx_words \"$options\"\n    else\n        " + words + "\n    fi\n";
    return body;
}

// zsh: the explanation inside [...]. Brackets become parentheses, as a
// bracket would end it early; the rest is shown as written.
std::string zshExplanation(const std::string& text) {
    std::string out = text;
    for (char& c : out) {
        if (c == '[') c = '(';
        if (c == ']') c = ')';
    }
    return out;
}

std::string zshAction(const OptionDoc& option) {
    if (!option.choices.empty()) return "(" + joinedNames(option.choices, " ") + ")";
    if (option.value == ValueKind::File) return "_files";
    if (option.value == ValueKind::Folder) return "_files -/";
    return " ";
}

bool hasName(const CommandDoc& command, const std::string& name) {
    for (const OptionDoc& option : command.options) {
        if (std::find(option.names.begin(), option.names.end(), name) != option.names.end()) return true;
    }
    return false;
}

// One _arguments entry per name of every option, each quoted for zsh; those
// `given` already has are left out, as _arguments refuses an option twice.
std::string zshOptionSpecs(const CommandDoc& command, const CommandDoc* given, const char* indent) {
    std::string entries;
    for (const OptionDoc& option : command.options) {
        if (given != nullptr && hasName(*given, option.names.front())) continue;
        const std::string exclusions = "(" + joinedNames(option.names, " ") + ")";
        for (const std::string& name : option.names) {
            std::string entry = exclusions + name;
            if (option.value != ValueKind::None) entry += name.compare(0, 2, "--") == 0 ? "=" : "+";
            entry += "[" + zshExplanation(option.description) + "]";
            if (option.value != ValueKind::None) entry += ":" + option.valueName + ":" + zshAction(option);
            entries += indent + shellQuoted(entry) + " \\\n";
        }
    }
    for (const OptionDoc& positional : command.positionals) {
        const std::string entry =
            std::string(positional.repeats ? "*" : "") + ":" + positional.valueName + ":" + zshAction(positional);
        entries += indent + shellQuoted(entry) + " \\\n";
    }
    return entries;
}

}  // namespace

std::string bashCompletion(const ProgramDoc& doc) {
    const CommandDoc& program = doc.program;
    std::vector<std::string> commandNames;
    for (const CommandDoc& command : doc.commands) commandNames.push_back(command.name);
    std::string script =
        "# bash completion for wavoryx, written by `wavoryx --write-docs` from its own options.\n"
        "_wavoryx_words() {\n"
        "    local IFS=$' \\t\\n'\n"
        "    COMPREPLY=($(compgen -W \"$1\" -- \"$cur\"))\n"
        "}\n"
        "_wavoryx_files() {\n"
        "    compopt -o filenames 2>/dev/null\n"
        "    local IFS=$'\\n'\n"
        "    COMPREPLY=($(compgen -f -- \"$cur\"))\n"
        "}\n"
        "_wavoryx_folders() {\n"
        "    compopt -o filenames 2>/dev/null\n"
        "    local IFS=$'\\n'\n"
        "    COMPREPLY=($(compgen -d -- \"$cur\"))\n"
        "}\n";
    for (const CommandDoc& command : doc.commands) {
        script +=
            "_wavoryx_" + command.name + "() {\n" + bashCommandBody(command, program, bashWordAction(command)) + "}\n";
    }
    script += "_wavoryx_main() {\n" +
              bashCommandBody(program, program, "_wavoryx_words " + shellQuoted(joinedNames(commandNames, " "))) +
              "}\n";
    // The command is the first word that is neither an option nor the
    // value of one; bash splits "--opt=value" into three words.
    std::string skipValue;
    for (const OptionDoc& option : program.options) {
        if (option.value != ValueKind::None)
            skipValue += (skipValue.empty() ? "" : "|") + joinedNames(option.names, "|");
    }
    script +=
        "_wavoryx() {\n"
        "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
        "    if [[ $cur == = ]]; then\n"
        "        cur=\n"
        "    elif [[ $prev == = ]] && ((COMP_CWORD > 1)); then\n"
        "        prev=${COMP_WORDS[COMP_CWORD-2]}\n"
        "    fi\n"
        "    local command= i\n"
        "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
        "        case ${COMP_WORDS[i]} in\n";
    if (!skipValue.empty()) {
        script += "            " + skipValue + ") ((i++)); [[ ${COMP_WORDS[i]} == = ]] && ((i++)) ;;\n";
    }
    script +=
        "            -*|=) ;;\n"
        "            *) command=${COMP_WORDS[i]}; break ;;\n"
        "        esac\n"
        "    done\n"
        "    case $command in\n";
    for (const CommandDoc& command : doc.commands) {
        script += "        " + command.name + ") _wavoryx_" + command.name + " ;;\n";
    }
    script +=
        "        '') _wavoryx_main ;;\n"
        "        *) COMPREPLY=() ;;\n"
        "    esac\n"
        "}\n"
        "complete -F _wavoryx wavoryx\n";
    return script;
}

std::string zshCompletion(const ProgramDoc& doc) {
    std::string script =
        "#compdef wavoryx\n"
        "# zsh completion for wavoryx, written by `wavoryx --write-docs` from its own options.\n"
        "\n"
        "_wavoryx() {\n"
        "    local curcontext=\"$curcontext\" state state_descr line\n"
        "    typeset -A opt_args\n"
        "    local -a globals\n"
        "    globals=(\n" +
        zshOptionSpecs(doc.program, nullptr, "        ") +
        "    )\n"
        "    _arguments -C $globals \\\n"
        "        ':command:->command' \\\n"
        "        '*::argument:->argument' && return 0\n"
        "    case $state in\n"
        "    command)\n"
        "        local -a commands\n"
        "        commands=(\n";
    for (const CommandDoc& command : doc.commands) {
        script += "            " + shellQuoted(command.name + ":" + command.description) + "\n";
    }
    script +=
        "        )\n"
        "        _describe -t commands 'wavoryx command' commands\n"
        "        ;;\n"
        "    argument)\n"
        "        curcontext=\"${curcontext%:*:*}:wavoryx-$words[1]:\"\n"
        "        case $words[1] in\n";
    for (const CommandDoc& command : doc.commands) {
        script += "        " + command.name + ")\n            _arguments $globals \\\n" +
                  zshOptionSpecs(command, &doc.program, "                ") +
                  "                && return 0\n            ;;\n";
    }
    script +=
        "        esac\n"
        "        ;;\n"
        "    esac\n"
        "    return 1\n"
        "}\n"
        "\n"
        "_wavoryx \"$@\"\n";
    return script;
}

}  // namespace wvcli
