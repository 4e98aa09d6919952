// The registry of PCM items of one engine: hands out ids, finds items, and
// counts references per holder. An item is destroyed, and its PCM file
// deleted, by whichever thread drops its last reference.
//
// mLock guards the id counter, the map and every item's counters; it is
// never held while an item's resources are released, so a release may
// cascade into more releases (a clip list releasing its sources).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>

#include "items/PcmTypes.h"
#include "items/SPcmInfo.h"

namespace wv {

class InfoList {
public:
    InfoList() = default;
    // Items still registered are freed from memory without being released:
    // their PCM files stay on the disk.
    ~InfoList();
    InfoList(const InfoList&) = delete;
    InfoList& operator=(const InfoList&) = delete;

    // Registers the item (its counters already set) under the next id.
    pcm_id_t add(SPcmInfo* item);
    // The item with this id, taking a reference of `ref` unless REF_NONE;
    // null when there is none. A caller that takes no reference relies on
    // another holder keeping the item.
    SPcmInfo* get(pcm_id_t id, pcm_ref_t ref);
    // Drops one reference of `ref` (all of them with `all`), destroying the
    // item when no holder is left. Returns id when the item was found,
    // 0 otherwise.
    pcm_id_t release(pcm_id_t id, pcm_ref_t ref, bool all);

    pcm_id_t lastId() const;
    size_t size() const;
    // The counter of one holder, 0 for an unknown id.
    uint32_t refCount(pcm_id_t id, pcm_ref_t ref) const;
    // Visits every item under the lock (no output).
    void dump() const;

private:
    mutable std::mutex mLock;
    std::map<pcm_id_t, SPcmInfo*> mItems;  // ids grow, so this is registration order
    pcm_id_t mLastId = 0;
};

}  // namespace wv
