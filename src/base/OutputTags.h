// Tags, chapters and a cover picture: what a source states about itself
// and what an output is to carry. Plain values, shared by the reader of
// sources, the items' render settings and the encoders.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace wv {

// A chapter of a source, in frames of its item (at the item's rate, after
// a ranged load's start): [startFrame, endFrame).
struct SourceChapter {
    int64_t startFrame = 0;
    int64_t endFrame = 0;
    std::string title;
};

// A chapter of an output: where it starts in the output, in microseconds
// (finer than a frame at every rate up to 192 kHz, so a frame position
// survives the round trip); it lasts until the next chapter or the end.
struct OutputChapter {
    int64_t startUs = 0;
    std::string title;
};

// What an output carries besides its audio. Empty: the output is written
// as it always was, with no tag at all.
struct OutputTags {
    // Lower-case names ("title", "artist", "album", "date", "track",
    // "comment") and UTF-8 values, in the order set.
    std::vector<std::pair<std::string, std::string>> tags;
    // Sorted by start.
    std::vector<OutputChapter> chapters;
    // A JPEG or PNG picture and its MIME type; null for none.
    std::shared_ptr<const std::vector<uint8_t>> cover;
    std::string coverMime;
    // The output's length as expected when it starts, in ms: the last
    // chapter's end in a tag written before the real length is known
    // (and kept, where the file cannot be written again: a pipe).
    int64_t expectedMs = 0;

    bool empty() const { return tags.empty() && chapters.empty() && !cover; }
};

// A chapter's end in ms: the next chapter's start, the last one's
// `totalMs` (never before its own start).
inline int64_t chapterEndMs(const std::vector<OutputChapter>& chapters, size_t index,
                            int64_t totalMs) {
    const int64_t start = (chapters[index].startUs + 500) / 1000;
    const int64_t end =
        index + 1 < chapters.size() ? (chapters[index + 1].startUs + 500) / 1000 : totalMs;
    return end > start ? end : start;
}

}  // namespace wv
