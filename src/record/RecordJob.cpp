#include "record/RecordJob.h"

namespace wv {

RecordJob::~RecordJob() { dropRecorder(); }

void RecordJob::dropRecorder() {
    if (!recorder) return;
    recorder->stop();
    recorder.reset();
}

void fadeIn(int16_t* data, uint32_t frames, uint32_t channels, int32_t* fadeCount,
            int32_t fadeLength) {
    const float length = float(fadeLength);
    for (uint32_t f = 0; f < frames && *fadeCount < fadeLength; ++f) {
        const float c = float(*fadeCount);
        for (uint32_t ch = 0; ch < channels; ++ch) {
            int16_t& sample = data[size_t(f) * channels + ch];
            sample = static_cast<int16_t>(float(sample) * c * c / length / length);
        }
        ++*fadeCount;
    }
}

}  // namespace wv
