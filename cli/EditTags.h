// The tags, chapters and cover of `wavoryx edit`: its options, their
// checks, and what they set on the list.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

namespace wvcli {

struct TagOptions {
    std::vector<std::string> tagTexts;      // KEY=VALUE, as given
    std::vector<std::string> chapterTexts;  // TIME=TITLE, as given
    std::string chaptersFile;
    std::string cover;
    bool noTags = false;
    // Parsed by checkTagOptions.
    std::vector<std::pair<std::string, std::string>> tags;
    std::vector<std::pair<uint32_t, std::string>> chapters;  // output ms, title
};

void addTagOptions(CLI::App* edit, TagOptions& options);
// Parses the texts and reads the chapters file; throws CLI::ValidationError.
void checkTagOptions(TagOptions& options);
// Sets on `list`: the tags of the source item `firstSource` (unless
// --no-tags) under those of --tag, the cover, the chapters given, and the
// carrying of the sources' chapters. False after reporting a refusal.
bool applyTagOptions(Wavoryx& engine, int list, int firstSource, const TagOptions& options);

}  // namespace wvcli
