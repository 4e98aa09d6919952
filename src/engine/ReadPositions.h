// The readers readPcm leaves where their last read ended, so that reads that
// continue one another go on with the same rate converters and hand out a
// render's bytes. Each kept reader holds its item (a REF_PLAYER reference
// taken by the engine); what leaves the store goes back to the engine, which
// drops that reference.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include "items/PcmInfoReader.h"
#include "items/PcmTypes.h"

namespace wv {

class ReadPositions {
public:
    struct Entry {
        pcm_id_t id = 0;
        std::unique_ptr<PcmInfoReader> reader;
        uint32_t next = 0;  // the output frame the reader stands at
    };
    using Entries = std::vector<std::unique_ptr<Entry>>;

    // Few: one per list a client streams at a time is what they are for.
    static constexpr size_t kKept = 8;

    // Takes out the reader of `id` that stands at `next`; null when none.
    std::unique_ptr<Entry> take(pcm_id_t id, uint32_t next);
    // Takes out the reader of `id` that stands nearest before `frame` (or
    // at it); null when none.
    std::unique_ptr<Entry> takeBefore(pcm_id_t id, uint32_t frame);
    // Keeps `entry`; returns those it pushed out (the oldest).
    Entries keep(std::unique_ptr<Entry> entry);
    // Takes out every reader of `id` (0: every reader).
    Entries drop(pcm_id_t id);

private:
    std::mutex mLock;
    std::deque<std::unique_ptr<Entry>> mEntries;  // oldest first
};

}  // namespace wv
