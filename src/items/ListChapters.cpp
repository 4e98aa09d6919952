#include "items/ListChapters.h"

#include <algorithm>

#include "items/PcmClipList.h"
#include "items/SPcmInfo.h"

namespace wv {

bool carriedChapters(const PcmClipList& list, int32_t outRate, std::vector<OutputChapter>* out) {
    if (outRate <= 0) return true;
    const std::vector<PcmClip> clips = list.clips();
    std::vector<SourceFacts> facts(clips.size());
    bool any = false;
    for (size_t i = 0; i < clips.size(); ++i) {
        if (clips[i].source->clipList || !clips[i].source->sourceFacts(&facts[i])) continue;
        any = any || !facts[i].chapters.empty();
    }
    if (!any) return true;
    std::vector<ClipPlacement> places;
    if (list.place(&places, true, outRate) != 0 || places.size() != clips.size()) return false;

    std::vector<OutputChapter> found;
    const SPcmInfo* lastSource = nullptr;
    size_t lastChapter = 0;
    for (size_t i = 0; i < clips.size(); ++i) {
        const PcmClip& clip = clips[i];
        uint32_t kept = 0;
        clip.source->availableFrames(kept, clip.start, clip.end, true);
        const int64_t from = clip.start;
        const int64_t to = from + kept;
        const int64_t rate = clip.source->sampleRate.load();
        if (rate <= 0) continue;
        for (size_t c = 0; c < facts[i].chapters.size(); ++c) {
            const SourceChapter& chapter = facts[i].chapters[c];
            if (chapter.endFrame <= from || chapter.startFrame >= to) continue;
            const bool continues = chapter.startFrame < from && lastSource == clip.source &&
                                   lastChapter == c;
            lastSource = clip.source;
            lastChapter = c;
            if (continues) continue;
            const int64_t offset = std::max(chapter.startFrame, from) - from;
            const int64_t frame = static_cast<int64_t>(places[i].listStart) +
                                  (offset * outRate * 2 + rate) / (2 * rate);
            found.push_back({(frame * 1000000 * 2 + outRate) / (2 * int64_t{outRate}), chapter.title});
        }
    }
    mergeChapters(*out, found);
    return true;
}

void mergeChapters(std::vector<OutputChapter>& chapters, const std::vector<OutputChapter>& more) {
    chapters.insert(chapters.end(), more.begin(), more.end());
    std::stable_sort(chapters.begin(), chapters.end(),
                     [](const OutputChapter& a, const OutputChapter& b) { return a.startUs < b.startUs; });
}

}  // namespace wv
