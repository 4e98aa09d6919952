#include "threads/ProgressNotifier.h"

namespace wv {

void ProgressNotifier::update(float progress, float* last) {
    float* record = last != nullptr ? last : &mLast;
    const float previous = *record;
    const bool advanced = (progress > previous + mStep || progress >= 1.0f) && previous < 1.0f;
    const bool first = progress > 0.0f && previous == 0.0f;
    if (!advanced && !first) return;
    *record = progress;
    onProgress(progress);
}

void ProgressNotifier::onProgress(float) {}

}  // namespace wv
