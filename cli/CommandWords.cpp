#include "CommandWords.h"

#include <cctype>
#include <set>

#include "StandardInput.h"

namespace wvcli {
namespace {

void addOptionNames(const CLI::App& command, std::set<std::string>& names) {
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& s : option->get_snames()) names.insert("-" + s);
        for (const std::string& l : option->get_lnames()) names.insert("--" + l);
    }
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; })) {
        addOptionNames(*sub, names);
    }
}

std::string hidden(const std::string& word) { return kHiddenDash + word.substr(1); }

void reveal(CLI::App& command) {
    const CLI::Validator unmark(
        [](std::string& input) {
            if (input.rfind(kHiddenDash, 0) == 0) input.erase(0, 1);
            return std::string();
        },
        "");
    for (CLI::Option* option : command.get_options()) {
        if (option->get_items_expected_max() > 0) option->transform(unmark);
    }
    for (CLI::App* sub : command.get_subcommands([](const CLI::App*) { return true; })) reveal(*sub);
}

}  // namespace

std::vector<std::string> parserWords(const CLI::App& app, const std::vector<std::string>& given) {
    std::set<std::string> options;
    addOptionNames(app, options);
    std::vector<std::string> words;
    bool ended = false;
    for (const std::string& word : given) {
        if (!ended && word == "--") {
            ended = true;
            continue;
        }
        // A negative number is taken as a value already.
        const bool dashed = word.size() > 1 && word[0] == '-' && !std::isdigit(static_cast<unsigned char>(word[1])) &&
                            word[1] != '.';
        const bool option = options.count(word.substr(0, word.find('='))) > 0;
        if (word.rfind("-@", 0) == 0 || (ended && dashed && !option)) {
            words.push_back(hidden(word));
        } else {
            words.push_back(word);
        }
    }
    return std::vector<std::string>(words.rbegin(), words.rend());
}

void revealNames(CLI::App& app) { reveal(app); }

}  // namespace wvcli
