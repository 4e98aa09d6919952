#include "EditTags.h"

#include <fstream>

#include "Session.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

const char* const kTagNames[] = {"title", "artist", "album", "date", "track", "comment"};

bool knownTag(const std::string& name) {
    for (const char* known : kTagNames) {
        if (name == known) return true;
    }
    return false;
}

std::string lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    }
    return text;
}

std::string trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

// "TIME<sep>TITLE" into ms and title; the reason in `why` when it is not.
bool parseChapter(const std::string& text, char separator, std::pair<uint32_t, std::string>& chapter,
                  std::string& why) {
    const size_t at = text.find(separator);
    if (at == std::string::npos || at == 0) {
        why = "'" + text + "' is not TIME" + (separator == '=' ? "=" : " ") + "TITLE";
        return false;
    }
    uint32_t ms = 0;
    if (!parseTimeMs(text.substr(0, at), ms, why)) return false;
    chapter = {ms, trimmed(text.substr(at + 1))};
    return true;
}

}  // namespace

void addTagOptions(CLI::App* edit, TagOptions& options) {
    edit->add_option("--tag", options.tagTexts,
                     "Set a tag of the output, KEY=VALUE, KEY one of title, artist, album, date, track, comment "
                     "(repeatable; wins over the first source's)")
        ->type_name("KEY=VALUE");
    CLI::Option* noTags = edit->add_flag("--no-tags", options.noTags,
                                         "Write no tags (by default the first source's title, artist, album, "
                                         "date, track and comment are copied)");
    CLI::Option* cover = edit->add_option("--cover", options.cover, "Front cover picture of the output, a JPEG or PNG file")
                             ->check(CLI::ExistingFile)
                             ->type_name("FILE");
    noTags->excludes(edit->get_option("--tag"))->excludes(cover);
    edit->add_option("--chapter", options.chapterTexts,
                     "Add a chapter at TIME of the output, TIME=TITLE (repeatable); the sources' chapters come "
                     "along with the ranges that keep them")
        ->type_name("TIME=TITLE");
    edit->add_option("--chapters", options.chaptersFile,
                     "Add the chapters of a text file, one 'H:MM:SS.mmm Title' line each (times of the output)")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
}

void checkTagOptions(TagOptions& options) {
    options.tags.clear();
    options.chapters.clear();
    for (const std::string& text : options.tagTexts) {
        const size_t at = text.find('=');
        const std::string key = lower(text.substr(0, at));
        if (at == std::string::npos || !knownTag(key)) {
            throw CLI::ValidationError("--tag", "'" + text +
                                                    "' is not KEY=VALUE with KEY one of title, artist, album, "
                                                    "date, track, comment");
        }
        options.tags.emplace_back(key, text.substr(at + 1));
    }
    std::string why;
    for (const std::string& text : options.chapterTexts) {
        std::pair<uint32_t, std::string> chapter;
        if (!parseChapter(text, '=', chapter, why)) throw CLI::ValidationError("--chapter", why);
        options.chapters.push_back(chapter);
    }
    if (options.chaptersFile.empty()) return;
    std::ifstream file(options.chaptersFile);
    std::string line;
    int number = 0;
    while (std::getline(file, line)) {
        ++number;
        const std::string text = trimmed(line);
        if (text.empty() || text[0] == '#') continue;
        std::pair<uint32_t, std::string> chapter;
        if (!parseChapter(text, ' ', chapter, why)) {
            throw CLI::ValidationError("--chapters", options.chaptersFile + " line " + std::to_string(number) + ": " +
                                                         why);
        }
        options.chapters.push_back(chapter);
    }
    if (file.bad()) throw CLI::ValidationError("--chapters", options.chaptersFile + " could not be read");
}

bool applyTagOptions(Wavoryx& engine, int list, int firstSource, const TagOptions& options) {
    const auto refused = [](int32_t result, const std::string& what) {
        if (result == 0) return false;
        reportLine("the engine refused " + what + " (error " + std::to_string(result) + ")");
        return true;
    };
    if (!options.noTags) {
        for (const char* name : kTagNames) {
            std::vector<char> value(256);
            int32_t length = engine.getSourceTag(firstSource, name, value.data(), unsigned(value.size()));
            if (length >= int32_t(value.size())) {
                value.resize(size_t(length) + 1);
                length = engine.getSourceTag(firstSource, name, value.data(), unsigned(value.size()));
            }
            if (length > 0 && refused(engine.setListTag(list, name, value.data()), "the tags")) return false;
        }
    }
    for (const auto& tag : options.tags) {
        if (refused(engine.setListTag(list, tag.first.c_str(), tag.second.c_str()), "the tag " + tag.first)) {
            return false;
        }
    }
    if (!options.cover.empty()) {
        const int32_t result = engine.setListCover(list, options.cover.c_str());
        if (result != 0) {
            reportError(options.cover, "not a JPEG or PNG picture that can be read");
            return false;
        }
    }
    for (const auto& chapter : options.chapters) {
        if (refused(engine.addListChapter(list, chapter.first, chapter.second.c_str()), "a chapter")) return false;
    }
    return !refused(engine.setListChapterCarry(list, 1), "the chapters");
}

}  // namespace wvcli
