#include "OptionChecks.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "TimeSpec.h"

namespace wvcli {
namespace {

std::string lowered(std::string text) {
    for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string joined(const std::vector<std::string>& names, const char* between) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : between) + name;
    return text;
}

// The index of `given` among `names` (case ignored), or -1.
int findName(const std::vector<std::string>& names, const std::string& given) {
    const std::string wanted = lowered(given);
    for (size_t i = 0; i < names.size(); ++i) {
        if (lowered(names[i]) == wanted) return int(i);
    }
    return -1;
}

std::string notOneOf(const std::string& given, const std::vector<std::string>& names) {
    return "'" + given + "' is not one of " + joined(names, ", ");
}

}  // namespace

std::string describeRanges(const std::vector<WholeRange>& ranges) {
    std::string text;
    for (const WholeRange& range : ranges) {
        if (!text.empty()) text += " or ";
        text += std::to_string(range.first) + " to " + std::to_string(range.second);
    }
    return text;
}

CLI::Validator wholeNumberIn(std::vector<WholeRange> ranges) {
    const std::string accepted = describeRanges(ranges);
    return CLI::Validator(
        [ranges, accepted](std::string& input) -> std::string {
            const char* text = input.c_str();
            char* end = nullptr;
            errno = 0;
            const long value = std::strtol(text, &end, 10);
            if (end == text || *end != '\0' || std::isspace(static_cast<unsigned char>(text[0])) || errno != 0) {
                return "'" + input + "' is not a whole number: use " + accepted;
            }
            for (const WholeRange& range : ranges) {
                if (value >= range.first && value <= range.second) return std::string();
            }
            return input + " is out of range: use " + accepted;
        },
        "[" + accepted + "]");
}

CLI::Validator oneOf(std::vector<std::string> names) {
    return CLI::Validator(
        [names](std::string& input) -> std::string {
            const int index = findName(names, input);
            if (index < 0) return notOneOf(input, names);
            input = names[size_t(index)];
            return std::string();
        },
        "{" + joined(names, ",") + "}");
}

CLI::Validator timeText() {
    return CLI::Validator(
        [](std::string& input) -> std::string {
            uint32_t ms = 0;
            std::string why;
            return parseTimeMs(input, ms, why) ? std::string() : why;
        },
        "");
}

CLI::Validator indexOf(std::vector<std::string> names) {
    return CLI::Validator(
        [names](std::string& input) -> std::string {
            const int index = findName(names, input);
            if (index < 0) return notOneOf(input, names);
            input = std::to_string(index);
            return std::string();
        },
        "{" + joined(names, ",") + "}");
}

std::vector<std::string> choicesInDescription(const std::string& description) {
    std::vector<std::string> choices;
    const size_t open = description.find('{');
    const size_t close = description.find('}', open);
    if (open == std::string::npos || close == std::string::npos) return choices;
    const std::string inside = description.substr(open + 1, close - open - 1);
    size_t start = 0;
    while (start <= inside.size()) {
        size_t comma = inside.find(',', start);
        if (comma == std::string::npos) comma = inside.size();
        std::string word = inside.substr(start, comma - start);
        word = word.substr(0, word.find("->"));
        while (!word.empty() && word.front() == ' ') word.erase(0, 1);
        while (!word.empty() && word.back() == ' ') word.pop_back();
        if (!word.empty()) choices.push_back(word);
        start = comma + 1;
    }
    return choices;
}

}  // namespace wvcli
