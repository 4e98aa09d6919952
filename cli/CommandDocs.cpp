#include "CommandDocs.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "OptionChecks.h"
#include "OutputFile.h"

namespace wvcli {
namespace {

ValueKind kindOfValue(const std::string& name) {
    if (name == "FILE" || name == "OUT" || name == "PATH" || name == "SOURCE") return ValueKind::File;
    if (name == "DIR") return ValueKind::Folder;
    return ValueKind::Other;
}

OptionDoc describeOption(const CLI::Option& option) {
    OptionDoc doc;
    doc.description = option.get_description();
    doc.required = option.get_required();
    const std::string typeName = option.get_type_name();
    doc.choices = choicesInDescription(typeName.substr(std::min(typeName.find(':'), typeName.size())));
    if (option.get_positional()) {
        doc.names.push_back(option.get_name(true));
        doc.valueName = doc.names.back();
        doc.repeats = option.get_items_expected_max() > 1;
    } else {
        for (const std::string& s : option.get_snames()) doc.names.push_back("-" + s);
        for (const std::string& l : option.get_lnames()) doc.names.push_back("--" + l);
        if (option.get_items_expected_max() > 0) doc.valueName = typeName.substr(0, typeName.find(':'));
    }
    doc.value = doc.valueName.empty() ? ValueKind::None : kindOfValue(doc.valueName);
    return doc;
}

void splitFooter(const std::string& footer, CommandDoc& doc) {
    bool examples = false;
    size_t start = 0;
    while (start < footer.size()) {
        size_t end = footer.find('\n', start);
        if (end == std::string::npos) end = footer.size();
        const std::string line = footer.substr(start, end - start);
        start = end + 1;
        if (line == "Examples:") {
            examples = true;
        } else if (examples && line.compare(0, 2, "  ") == 0) {
            doc.examples.push_back(line.substr(2));
        } else if (!line.empty()) {
            examples = false;
            doc.prose.push_back(line);
        }
    }
}

CommandDoc describeCommand(const CLI::App& command) {
    CommandDoc doc;
    doc.name = command.get_name();
    doc.description = command.get_description();
    splitFooter(command.get_footer(), doc);
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_group().empty()) continue;
        OptionDoc described = describeOption(*option);
        (option->get_positional() ? doc.positionals : doc.options).push_back(described);
    }
    return doc;
}

// Writes `text` as `path`, which it replaces only once complete.
bool writeWhole(const std::string& path, const std::string& text, std::string& why) {
    OutputTarget target;
    if (!examineOutput(path, target, why)) return false;
    target.lastWriterWins = true;  // the build's own files, written anew each time
    return writeOutput(text, target, why);
}

}  // namespace

ProgramDoc describeProgram(const CLI::App& app, const std::string& version) {
    ProgramDoc doc;
    doc.version = version;
    doc.program = describeCommand(app);
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        doc.commands.push_back(describeCommand(*sub));
    }
    return doc;
}

bool writeDocs(const ProgramDoc& doc, const std::string& folder, std::string& failed, std::string& why) {
    const std::pair<std::string, std::string> files[] = {
        {"wavoryx.1", manPage(doc)}, {"wavoryx.bash", bashCompletion(doc)}, {"_wavoryx", zshCompletion(doc)}};
    for (const auto& file : files) {
        failed = folder + "/" + file.first;
        if (!writeWhole(failed, file.second, why)) return false;
    }
    failed.clear();
    return true;
}

}  // namespace wvcli
