// The manual page wavoryx(1) in the man macros. The commands and options
// come from the definitions; exit status, environment and files are the
// command's conventions, kept here beside the page's other prose.
#include <cctype>
#include <string>

#include "CommandDocs.h"

namespace wvcli {
namespace {

// Text as roff prints it: backslashes and minus signs escaped, and no line
// starting with a control character.
std::string roff(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
        if (c == '\n') out += "\\&";
    }
    if (!out.empty() && (out[0] == '.' || out[0] == '\'')) out = "\\&" + out;
    return out;
}

std::string bold(const std::string& text) { return "\\fB" + roff(text) + "\\fR"; }
std::string italic(const std::string& text) { return "\\fI" + roff(text) + "\\fR"; }

std::string sentence(std::string text) {
    if (!text.empty() && text.back() != '.') text += '.';
    return text;
}

std::string optionTag(const OptionDoc& option) {
    std::string tag;
    for (const std::string& name : option.names) tag += (tag.empty() ? "" : ", ") + bold(name);
    if (!option.valueName.empty()) tag += " " + italic(option.valueName);
    return tag;
}

std::string optionEntry(const OptionDoc& option, bool positional) {
    std::string text = ".TP\n" +
                       (positional ? italic(option.names.front()) + (option.repeats ? "..." : "") : optionTag(option)) +
                       "\n" + roff(sentence(option.description));
    if (!option.choices.empty()) {
        std::string listed;
        for (const std::string& choice : option.choices) listed += (listed.empty() ? "" : ", ") + bold(choice);
        text += "\n" + italic(option.valueName) + " is one of " + listed + ".";
    }
    if (option.required && !positional) text += "\nRequired.";
    return text + "\n";
}

// "wavoryx edit [OPTIONS] -o OUT SOURCE...", as the synopsis writes it.
std::string synopsis(const CommandDoc& command) {
    std::string text = ".PP\n\\fBwavoryx " + roff(command.name) + "\\fR [" + italic("OPTIONS") + "]";
    for (const OptionDoc& option : command.options) {
        if (option.required) text += " " + bold(option.names.front()) + " " + italic(option.valueName);
    }
    for (const OptionDoc& positional : command.positionals) {
        const std::string word = italic(positional.valueName) + (positional.repeats ? "..." : "");
        text += " " + (positional.required ? word : "[" + word + "]");
    }
    return text + "\n";
}

std::string lines(const std::vector<std::string>& prose) {
    std::string text;
    for (const std::string& line : prose) text += roff(line) + "\n";
    return text;
}

std::string examples(const std::vector<std::string>& commandLines) {
    if (commandLines.empty()) return std::string();
    std::string text = ".PP\n.RS\n.nf\n";
    for (const std::string& line : commandLines) text += roff(line) + "\n";
    return text + ".fi\n.RE\n";
}

std::string upper(std::string text) {
    for (char& c : text) c = char(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string lowerFirst(std::string text) {
    if (!text.empty()) text[0] = char(std::tolower(static_cast<unsigned char>(text[0])));
    if (!text.empty() && text.back() == '.') text.pop_back();
    return text;
}

// The global options by name, for each command's section: they may
// follow the command as well.
std::string globalOptionNames(const CommandDoc& program) {
    std::string text;
    for (const OptionDoc& option : program.options) {
        if (option.names.back() == "--help") continue;
        for (const std::string& name : option.names) text += (text.empty() ? "" : ", ") + ("\\%" + bold(name));
    }
    return ".PP\nThe global options apply too: " + text + " (see \\fBOPTIONS\\fR).\n";
}

const char kExitStatus[] =
    ".SH EXIT STATUS\n"
    ".TP\n.B 0\nSuccess. A recording stopped with \\fBq\\fR or \\fB\\-\\-duration\\fR is a success too.\n"
    ".TP\n.B 1\nA file could not be read, used or written; one line \\(lqwavoryx: FILE: reason\\(rq says why.\n"
    "Nothing is left of an output that was not finished, and an existing file of its name is unchanged.\n"
    ".TP\n.B 2\nThe command line could not be used: one line names the mistake (with the name that\n"
    "was probably meant, or the values accepted), one more the usage and where the help is.\n"
    ".TP\n.B 128 + N\nEnded by signal N: 130 for Ctrl\\-C (SIGINT), 129 SIGHUP, 131 SIGQUIT, 143 SIGTERM.\n"
    "A recording is kept; any other output is not written.\n";

const char kEnvironment[] =
    ".SH ENVIRONMENT\n"
    ".TP\n.B TMPDIR\nWhere the working folder is made when \\fB\\-\\-work\\-dir\\fR is not given "
    "(default \\fI/tmp\\fR).\n"
    ".TP\n.B WAVORYX_AUDIO_OUT\nWhere \\fBplay\\fR sends its audio: \\fBauto\\fR (the default: the sound "
    "device when one opens, else no sound), \\fBdevice\\fR, \\fBnull\\fR (no sound, at the pace of a clock) "
    "or \\fBfile:\\fR\\fIPATH\\fR (as \\fBnull\\fR, and every frame played is written to a WAV file).\n"
    ".TP\n.B WAVORYX_AUDIO_IN\nWhat \\fBrecord\\fR captures: \\fBauto\\fR (the default), \\fBdevice\\fR, "
    "\\fBsilence\\fR, \\fBtone:\\fR\\fIHZ\\fR (a sine wave) or \\fBfile:\\fR\\fIPATH\\fR (an audio file, "
    "as if it were being played into the input).\n"
    ".TP\n.B WAVORYX_DEVICE_PACE\nA positive number N: the \\fBnull\\fR, \\fBfile:\\fR, \\fBsilence\\fR and "
    "\\fBtone:\\fR devices run N times faster than real time (default 1).\n"
    ".TP\n.B WAVORYX_LOG\nWith \\fB\\-v\\fR, the least priority of the engine's log shown: \\fBverbose\\fR, "
    "\\fBdebug\\fR, \\fBinfo\\fR (the default with \\fB\\-v\\fR), \\fBwarn\\fR, \\fBerror\\fR or \\fBoff\\fR.\n"
    ".TP\n.B WAVORYX_PROPERTIES\nA file of \\fIkey\\fR=\\fIvalue\\fR lines (\\fB#\\fR starts a comment) for "
    "the engine's settings, such as \\fBaf.resampler.quality\\fR.\n"
    ".TP\n.B COLUMNS\nThe width of a text waveform when standard output is not a terminal (default 80; at most "
    "20000, as \\fB\\-\\-width\\fR).\n";

const char kFiles[] =
    ".SH FILES\n"
    ".TP\n\\fIDIR\\fR/wavoryx\\-\\fIPID\\fR\\-\\fISTART\\fR\\-\\fIXXXXXX\\fR\n"
    "The private working folder of one run, in the folder named by \\fB\\-\\-work\\-dir\\fR, "
    "\\fBTMPDIR\\fR or \\fI/tmp\\fR. It holds the decoded audio and is removed when the run ends, also on Ctrl\\-C. A folder left by a run that was killed outright is "
    "removed by the next run that uses the same parent folder.\n";

}  // namespace

std::string manPage(const ProgramDoc& doc) {
    const CommandDoc& program = doc.program;
    std::string page = ".\\\" The wavoryx command's manual, written by `wavoryx --write-docs` from its own options.\n";
    page += ".TH WAVORYX 1 \"\" \"wavoryx " + roff(doc.version) + "\" \"User Commands\"\n";
    page += ".SH NAME\nwavoryx \\- " + roff(lowerFirst(program.description)) + "\n";
    page += ".SH SYNOPSIS\n\\fBwavoryx\\fR [" + italic("OPTIONS") + "] " + italic("COMMAND") + " [" +
            italic("ARGUMENTS") + "]\n";
    for (const CommandDoc& command : doc.commands) page += synopsis(command);
    page += ".SH DESCRIPTION\n" + roff(sentence(program.description)) + "\nIts commands:\n";
    for (const CommandDoc& command : doc.commands) {
        page += ".TP\n" + bold(command.name) + "\n" + roff(sentence(command.description)) + "\n";
    }
    page += ".PP\n" + lines(program.prose);
    page += ".SH OPTIONS\nThese options may come before or after the command.\n";
    for (const OptionDoc& option : program.options) page += optionEntry(option, false);
    for (const CommandDoc& command : doc.commands) {
        page += ".SH \"WAVORYX " + roff(upper(command.name)) + "\"\n";
        page += synopsis(command) + ".PP\n" + roff(sentence(command.description)) + "\n";
        for (const OptionDoc& positional : command.positionals) page += optionEntry(positional, true);
        for (const OptionDoc& option : command.options) page += optionEntry(option, false);
        page += globalOptionNames(program);
        if (!command.prose.empty()) page += ".PP\n" + lines(command.prose);
        if (!command.examples.empty()) page += ".PP\nExamples:\n" + examples(command.examples);
    }
    page += kExitStatus;
    page += kEnvironment;
    page += ".SH EXAMPLES\n";
    page += examples(program.examples);
    for (const CommandDoc& command : doc.commands) page += examples(command.examples);
    page += kFiles;
    return page;
}

}  // namespace wvcli
