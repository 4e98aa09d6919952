// Chapters and tags: those a loaded file states, and those a list's
// renders write.
#define WV_LOG_TAG "WavoryxPriv"
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/Log.h"
#include "engine/WavoryxPriv.h"
#include "items/ListChapters.h"
#include "platform/media/MetaData.h"

using namespace wv;

namespace {

// The largest cover picture taken: ID3v2 sizes stop at 256 MB, and a
// cover is a few hundred KB.
constexpr off_t kMostCoverBytes = 16 << 20;

// Copies `text` into `out` (NUL-terminated, cut at a character's start
// within size - 1 bytes); returns its whole length.
int32_t copyCut(const std::string& text, char* out, uint32_t size) {
    size_t n = std::min<size_t>(text.size(), size - 1);
    if (n < text.size()) {
        while (n > 0 && (uint8_t(text[n]) & 0xC0) == 0x80) --n;
    }
    std::memcpy(out, text.data(), n);
    out[n] = '\0';
    return static_cast<int32_t>(std::min<size_t>(text.size(), INT32_MAX));
}

// The lower-case name of a tag kTagKeys knows, or empty.
std::string tagName(const char* name) {
    for (const TagKey& tag : kTagKeys) {
        if (strcasecmp(tag.name, name) == 0) return tag.name;
    }
    return {};
}

// A JPEG or PNG file's bytes and MIME type; false for anything else.
bool readPicture(const char* path, std::vector<uint8_t>* data, std::string* mime) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return false;
    struct stat st {};
    bool ok = ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 8 &&
              st.st_size <= kMostCoverBytes;
    if (ok) {
        data->resize(static_cast<size_t>(st.st_size));
        size_t got = 0;
        while (ok && got < data->size()) {
            const ssize_t n = ::read(fd, data->data() + got, data->size() - got);
            if (n <= 0) ok = false;
            else got += static_cast<size_t>(n);
        }
    }
    ::close(fd);
    if (!ok) return false;
    static const uint8_t kPng[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (std::memcmp(data->data(), kPng, sizeof kPng) == 0) {
        *mime = "image/png";
        return true;
    }
    if ((*data)[0] == 0xFF && (*data)[1] == 0xD8 && (*data)[2] == 0xFF) {
        *mime = "image/jpeg";
        return true;
    }
    return false;
}

}  // namespace

int32_t WavoryxPriv::getSourceChapterCount(uint32_t id) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSourceChapterCount);
    if (item == nullptr) return -1;
    const int32_t status = item->status.load();
    if (status == CLIP_LIST || status == RECORDING) return -2;
    SourceFacts facts;
    if (!item->sourceFacts(&facts)) return -3;
    return static_cast<int32_t>(std::min<size_t>(facts.chapters.size(), INT32_MAX));
}

int32_t WavoryxPriv::getSourceChapter(uint32_t id, uint32_t index, uint32_t* startFrame,
                                      uint32_t* endFrame, char* title, uint32_t size) {
    if (startFrame == nullptr || endFrame == nullptr || title == nullptr || size == 0) return -4;
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSourceChapter);
    if (item == nullptr) return -1;
    const int32_t status = item->status.load();
    if (status == CLIP_LIST || status == RECORDING) return -2;
    SourceFacts facts;
    if (!item->sourceFacts(&facts)) return -3;
    if (index >= facts.chapters.size()) return -4;
    const SourceChapter& chapter = facts.chapters[index];
    const auto frame = [](int64_t value) {
        return static_cast<uint32_t>(std::min<int64_t>(std::max<int64_t>(value, 0), UINT32_MAX));
    };
    *startFrame = frame(chapter.startFrame);
    *endFrame = frame(chapter.endFrame);
    return copyCut(chapter.title, title, size);
}

int32_t WavoryxPriv::setListTag(uint32_t listId, const char* name, const char* value) {
    const std::string key = name != nullptr ? tagName(name) : std::string();
    if (key.empty()) return -4;
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListTag, &result);
    if (list == nullptr) return result;
    const std::string text = value != nullptr ? value : "";
    list->changeRenderSettings([&](RenderSettings& s) {
        auto& tags = s.outputTags.tags;
        auto found = std::find_if(tags.begin(), tags.end(),
                                  [&](const std::pair<std::string, std::string>& tag) { return tag.first == key; });
        if (text.empty()) {
            if (found != tags.end()) tags.erase(found);
        } else if (found != tags.end()) {
            found->second = text;
        } else {
            tags.emplace_back(key, text);
        }
    });
    return 0;
}

int32_t WavoryxPriv::addListChapter(uint32_t listId, uint32_t startMs, const char* title) {
    if (title == nullptr) return -4;
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kAddListChapter, &result);
    if (list == nullptr) return result;
    std::string text = title;
    for (char& c : text) {
        if (c == '\n' || c == '\r') c = ' ';
    }
    list->changeRenderSettings([&](RenderSettings& s) {
        mergeChapters(s.outputTags.chapters, {{int64_t{startMs} * 1000, text}});
    });
    return 0;
}

int32_t WavoryxPriv::setListChapterCarry(uint32_t listId, int32_t carry) {
    if (carry != 0 && carry != 1) return -4;
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list =
        holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListChapterCarry, &result);
    if (list == nullptr) return result;
    list->changeRenderSettings([&](RenderSettings& s) { s.carryChapters = carry == 1; });
    return 0;
}

int32_t WavoryxPriv::setListCover(uint32_t listId, const char* path) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kSetListCover, &result);
    if (list == nullptr) return result;
    std::shared_ptr<std::vector<uint8_t>> data;
    std::string mime;
    if (path != nullptr && path[0] != '\0') {
        data = std::make_shared<std::vector<uint8_t>>();
        if (!readPicture(path, data.get(), &mime)) {
            WV_LOGE("setListCover: %s is no JPEG or PNG file this engine can read", path);
            return -4;
        }
    }
    list->changeRenderSettings([&](RenderSettings& s) {
        s.outputTags.cover = data;
        s.outputTags.coverMime = mime;
    });
    return 0;
}

int32_t WavoryxPriv::clearListTags(uint32_t listId) {
    int32_t result;
    ItemHold hold(this, listId);
    SPcmInfo* list = holdItemWithStatus(hold, listId, CLIP_LIST, Report::kClearListTags, &result);
    if (list == nullptr) return result;
    list->changeRenderSettings([](RenderSettings& s) {
        s.outputTags = OutputTags();
        s.carryChapters = false;
    });
    return 0;
}
