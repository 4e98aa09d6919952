// The chapters of a list's sources that its clips keep, placed where the
// clips put them in the list's output.
//
// A chapter moves with a clip when the clip keeps any of it: one that
// starts inside the clip's range starts in the output exactly where that
// frame lands; one that began before the range (cut off at its start)
// starts where the range starts, unless the clip before kept the same
// chapter up to there. A chapter wholly cut away is dropped. Lists used as
// clips bring no chapters.
#pragma once

#include <cstdint>
#include <vector>

#include "base/OutputTags.h"

namespace wv {

class PcmClipList;

// Appends the carried chapters (in the list's order) to `out`, at the
// output rate `outRate` (Hz). False, with nothing appended, while a clip's
// source with chapters still loads: its length decides where the clips
// after it start. Sources without chapters never hold it back.
bool carriedChapters(const PcmClipList& list, int32_t outRate, std::vector<OutputChapter>* out);

// Puts `more` into `chapters` and sorts them by start; equal starts keep
// their order, those of `chapters` first.
void mergeChapters(std::vector<OutputChapter>& chapters, const std::vector<OutputChapter>& more);

}  // namespace wv
