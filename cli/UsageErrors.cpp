#include "UsageErrors.h"

#include <algorithm>
#include <cstdio>

namespace wvcli {
namespace {

constexpr int kUsageStatus = 2;
constexpr size_t kMostEdits = 2;
constexpr size_t kShortName = 3;  // names this long or shorter allow one edit

// The innermost subcommand the command line reached.
const CLI::App* chosenCommand(const CLI::App& app) {
    const CLI::App* chosen = &app;
    for (const CLI::App* sub = &app; sub != nullptr;) {
        const std::vector<CLI::App*> parsed = sub->get_subcommands();
        sub = parsed.empty() ? nullptr : parsed.back();
        if (sub != nullptr) chosen = sub;
    }
    return chosen;
}

// "wavoryx edit" for edit, "wavoryx" for the command itself.
std::string fullName(const CLI::App& command) {
    std::string name = command.get_name();
    for (const CLI::App* up = command.get_parent(); up != nullptr; up = up->get_parent()) {
        name = up->get_name() + " " + name;
    }
    return name;
}

// The option names a command line reaching `command` may hold: its own
// and, as options fall through to them, its parents'.
std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* level = &command; level != nullptr; level = level->get_parent()) {
        for (const CLI::Option* option : level->get_options()) {
            if (option->get_group().empty()) continue;  // hidden
            for (const std::string& s : option->get_snames()) names.push_back("-" + s);
            for (const std::string& l : option->get_lnames()) names.push_back("--" + l);
        }
    }
    return names;
}

std::vector<std::string> commandNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(sub->get_name());
    }
    return names;
}

std::string listed(const std::vector<std::string>& names) {
    std::string text;
    for (size_t i = 0; i < names.size(); ++i) {
        text += (i == 0 ? "" : i + 1 == names.size() ? " or " : ", ") + names[i];
    }
    return text;
}

std::string withSuggestion(const std::string& what, const std::string& given, const std::vector<std::string>& known) {
    const std::string meant = closestName(given, known);
    std::string text = "unknown " + what + " '" + given + "'";
    if (!meant.empty()) text += "; did you mean '" + meant + "'?";
    return text;
}

// The first word the parse left over, options first (a stray word is often
// the value of a mistyped option).
bool firstLeftOver(const CLI::App& app, std::string& word) {
    const std::vector<std::string> left = app.remaining(true);
    for (const std::string& candidate : left) {
        if (candidate.size() > 1 && candidate[0] == '-') {
            word = candidate.substr(0, candidate.find('='));
            return true;
        }
    }
    if (left.empty()) return false;
    word = left.front();
    return true;
}

// CLI11's own texts, reworded where they do not say which value is meant.
std::string reworded(const CLI::ParseError& error) {
    const std::string text = error.what();
    const std::string kind = error.get_name();
    if (kind == "ConversionError") {
        const std::string prefix = "Could not convert: ";
        const size_t equals = text.find(" = ");
        if (text.compare(0, prefix.size(), prefix) == 0 && equals != std::string::npos) {
            return text.substr(prefix.size(), equals - prefix.size()) + ": '" + text.substr(equals + 3) +
                   "' is not a value it takes";
        }
    }
    if (kind == "ArgumentMismatch") {
        const size_t colon = text.find(": 1 required ");
        const size_t missing = text.rfind(" missing");
        if (colon != std::string::npos && missing != std::string::npos && missing > colon) {
            const size_t type = colon + std::string(": 1 required ").size();
            return text.substr(0, colon) + " needs a value (" + text.substr(type, missing - type) + ")";
        }
    }
    return text;
}

// The problem with the command line, as the first line says it.
std::string describeProblem(const CLI::App& app, const CLI::App& chosen, const CLI::ParseError& error) {
    std::string word;
    if (firstLeftOver(app, word)) {
        if (word.size() > 1 && word[0] == '-') return withSuggestion("option", word, optionNames(chosen));
        if (&chosen == &app) {
            const std::vector<std::string> commands = commandNames(app);
            const std::string meant = closestName(word, commands);
            if (!meant.empty()) return withSuggestion("command", word, commands);
            return "unknown command '" + word + "': use " + listed(commands);
        }
        return "unexpected argument '" + word + "'";
    }
    if (&chosen == &app && error.get_name() == "RequiredError" && !commandNames(app).empty() &&
        std::string(error.what()).find("subcommand") != std::string::npos) {
        return "no command given: use " + listed(commandNames(app));
    }
    return reworded(error);
}

std::string usageLine(const CLI::App& command) {
    const std::string help = command.help();
    const size_t start = help.find("Usage: ");
    if (start == std::string::npos) return "Usage: " + fullName(command);
    const size_t end = help.find('\n', start);
    std::string line = help.substr(start, end == std::string::npos ? std::string::npos : end - start);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

}  // namespace

size_t editDistance(const std::string& a, const std::string& b) {
    // Rows i-2, i-1 and i of the table of distances between prefixes.
    std::vector<size_t> before(b.size() + 1), previous(b.size() + 1), current(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t substitution = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, substitution});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                current[j] = std::min(current[j], before[j - 2] + 1);
            }
        }
        before.swap(previous);
        previous.swap(current);
    }
    return previous[b.size()];
}

std::string closestName(const std::string& given, const std::vector<std::string>& known) {
    const size_t letters = given.size() - std::min(given.find_first_not_of('-'), given.size());
    const size_t allowed = letters <= kShortName ? 1 : kMostEdits;
    std::string best;
    if (letters < 2) return best;  // one letter is too little to guess from
    size_t bestDistance = allowed + 1;
    for (const std::string& name : known) {
        size_t distance = editDistance(given, name);
        // A beginning of a longer name counts as a near miss.
        if (letters >= 2 && name.size() > given.size() && name.compare(0, given.size(), given) == 0) {
            distance = std::min(distance, allowed);
        }
        if (distance < bestDistance) {
            best = name;
            bestDistance = distance;
        }
    }
    return best;
}

int reportUsageError(const CLI::App& app, const CLI::ParseError& error) {
    const CLI::App& chosen = *chosenCommand(app);
    const std::string name = fullName(chosen);
    const std::string report =
        name + ": " + describeProblem(app, chosen, error) + "\n" + usageLine(chosen) + "; see '" + name + " --help'\n";
    std::fwrite(report.data(), 1, report.size(), stderr);
    return kUsageStatus;
}

}  // namespace wvcli
