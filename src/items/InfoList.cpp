#include "items/InfoList.h"

#include <vector>

namespace wv {

InfoList::~InfoList() {
    for (auto& entry : mItems) delete entry.second;
}

pcm_id_t InfoList::add(SPcmInfo* item) {
    std::lock_guard<std::mutex> guard(mLock);
    item->id = ++mLastId;
    mItems.emplace(item->id, item);
    return item->id;
}

SPcmInfo* InfoList::get(pcm_id_t id, pcm_ref_t ref) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mItems.find(id);
    if (found == mItems.end()) return nullptr;
    if (ref > REF_NONE && ref < kRefCount) ++found->second->refs[ref];
    return found->second;
}

pcm_id_t InfoList::release(pcm_id_t id, pcm_ref_t ref, bool all) {
    SPcmInfo* item;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto found = mItems.find(id);
        if (found == mItems.end()) return 0;
        item = found->second;
        if (ref >= 0 && ref < kRefCount) {
            uint32_t& counter = item->refs[ref];
            if (all) {
                counter = 0;
            } else {
                if (counter == 0) return id;
                if (--counter != 0) return id;
            }
        }
        for (uint32_t counter : item->refs) {
            if (counter != 0) return id;
        }
        mItems.erase(found);
    }
    // A list's player reads its clips' items: it stops before they may go.
    item->player.reset();
    if (item->status.load() == CLIP_LIST && item->clipList) {
        for (const PcmClip& clip : item->clipList->clips())
            release(clip.source->id, REF_LIST, false);
    }
    item->release();
    delete item;
    return id;
}

pcm_id_t InfoList::lastId() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLastId;
}

size_t InfoList::size() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mItems.size();
}

uint32_t InfoList::refCount(pcm_id_t id, pcm_ref_t ref) const {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mItems.find(id);
    if (found == mItems.end() || ref < 0 || ref >= kRefCount) return 0;
    return found->second->refs[ref];
}

void InfoList::dump() const {
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& entry : mItems) entry.second->dump();
}

}  // namespace wv
