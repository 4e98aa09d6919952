#include "codec/Id3Tag.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace wv {
namespace {

constexpr uint8_t kUtf8 = 3;

void putSyncsafe(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 21; shift >= 0; shift -= 7) out.push_back(uint8_t((value >> shift) & 0x7F));
}

void putBigEndian(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(uint8_t(value >> shift));
}

void putText(std::vector<uint8_t>& out, const std::string& text) {
    out.insert(out.end(), text.begin(), text.end());
}

void putFrame(std::vector<uint8_t>& out, const char* id, const std::vector<uint8_t>& body) {
    out.insert(out.end(), id, id + 4);
    putSyncsafe(out, static_cast<uint32_t>(body.size()));
    out.push_back(0);
    out.push_back(0);
    out.insert(out.end(), body.begin(), body.end());
}

std::vector<uint8_t> textBody(const std::string& text) {
    std::vector<uint8_t> body{kUtf8};
    putText(body, text);
    return body;
}

// The frame of a tag name; null for a name ID3 has no text frame for.
const char* frameOf(const std::string& name) {
    if (name == "title") return "TIT2";
    if (name == "artist") return "TPE1";
    if (name == "album") return "TALB";
    if (name == "date") return "TDRC";
    if (name == "track") return "TRCK";
    if (name == "comment") return "COMM";
    return nullptr;
}

std::string elementId(size_t index) { return "chp" + std::to_string(index); }

}  // namespace

std::vector<uint8_t> id3v2Tag(const OutputTags& tags, int64_t totalMs) {
    std::vector<uint8_t> frames;
    if (tags.empty()) return frames;
    for (const auto& tag : tags.tags) {
        const char* id = frameOf(tag.first);
        if (id == nullptr) continue;
        if (std::strcmp(id, "COMM") == 0) {
            // Language, then an empty description before the text.
            std::vector<uint8_t> body{kUtf8, 'e', 'n', 'g', 0};
            putText(body, tag.second);
            putFrame(frames, id, body);
        } else {
            putFrame(frames, id, textBody(tag.second));
        }
    }
    if (tags.cover) {
        std::vector<uint8_t> body{kUtf8};
        putText(body, tags.coverMime);
        body.push_back(0);
        body.push_back(3);  // the front cover
        body.push_back(0);  // no description
        body.insert(body.end(), tags.cover->begin(), tags.cover->end());
        putFrame(frames, "APIC", body);
    }
    if (!tags.chapters.empty()) {
        std::vector<uint8_t> toc;
        putText(toc, "toc");
        toc.push_back(0);
        toc.push_back(0x03);  // top level, ordered
        toc.push_back(static_cast<uint8_t>(std::min<size_t>(tags.chapters.size(), 255)));
        for (size_t i = 0; i < tags.chapters.size() && i < 255; ++i) {
            putText(toc, elementId(i));
            toc.push_back(0);
        }
        putFrame(frames, "CTOC", toc);
        for (size_t i = 0; i < tags.chapters.size() && i < 255; ++i) {
            const auto ms = [](int64_t value) {
                return static_cast<uint32_t>(std::min<int64_t>(std::max<int64_t>(value, 0), 0xFFFFFFFE));
            };
            std::vector<uint8_t> chap;
            putText(chap, elementId(i));
            chap.push_back(0);
            putBigEndian(chap, ms((tags.chapters[i].startUs + 500) / 1000));
            putBigEndian(chap, ms(chapterEndMs(tags.chapters, i, totalMs)));
            // No byte offsets: players go by the times.
            putBigEndian(chap, 0xFFFFFFFFu);
            putBigEndian(chap, 0xFFFFFFFFu);
            putFrame(chap, "TIT2", textBody(tags.chapters[i].title));
            putFrame(frames, "CHAP", chap);
        }
    }
    std::vector<uint8_t> out{'I', 'D', '3', 4, 0, 0};
    putSyncsafe(out, static_cast<uint32_t>(frames.size()));
    out.insert(out.end(), frames.begin(), frames.end());
    return out;
}

}  // namespace wv
