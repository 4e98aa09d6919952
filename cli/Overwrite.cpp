#include "Overwrite.h"

#include <unistd.h>

#include <cctype>
#include <string>

#include "Interrupt.h"
#include "Session.h"

namespace wvcli {

bool isYes(const char* line) {
    std::string word;
    for (const char* c = line; *c != '\0' && *c != '\n' && *c != '\r'; ++c) {
        if (!std::isspace(static_cast<unsigned char>(*c))) word += char(std::tolower(static_cast<unsigned char>(*c)));
    }
    return word == "y" || word == "yes";
}

bool mayReplace(OutputTarget& target, Overwrite policy, std::FILE* answers) {
    target.lastWriterWins = policy == Overwrite::kAlways;
    if (target.kind != TargetKind::Regular || policy == Overwrite::kAlways) return true;
    if (policy == Overwrite::kNever) {
        reportError(target.path, "exists; not overwritten (-n)");
        return false;
    }
    if (::isatty(::fileno(answers)) == 0) {
        reportError(target.path, "exists (use -y to overwrite it, -n never to)");
        return false;
    }
    std::fprintf(stderr, "%s exists. Overwrite? [y/N] ", target.path.c_str());
    std::fflush(stderr);
    char line[64] = {0};
    if (std::fgets(line, sizeof line, answers) != nullptr && isYes(line)) return true;
    // Ctrl-C is no answer: the caller exits as interrupted, and the
    // prompt's line is ended for the shell's next one.
    if (interruptSignal() != 0) {
        std::fputc('\n', stderr);
        return false;
    }
    reportError(target.path, "exists; not overwritten");
    return false;
}

}  // namespace wvcli
