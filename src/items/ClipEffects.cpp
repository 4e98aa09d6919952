#include "items/ClipEffects.h"

#include <cmath>

#include "dsp/TempoStretcher.h"

namespace wv {

double gainOfMillibels(int32_t millibels) {
    return std::pow(10.0, static_cast<double>(millibels) / 2000.0);
}

double fadeShapeGain(int32_t shape, double x) {
    if (x <= 0.0) return 0.0;
    if (x >= 1.0) return 1.0;
    switch (shape) {
        case kFadeEqualPower:
            return std::sin(x * M_PI / 2.0);
        case kFadeLog:
            return std::pow(10.0, -3.0 * (1.0 - x));
        default:
            return x;
    }
}

uint32_t framesOfMs(uint32_t ms, int32_t rate) {
    if (rate < 1) return 0;
    const uint64_t frames = uint64_t(ms) * static_cast<uint32_t>(rate) / 1000;
    return frames > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(frames);
}

uint64_t tempoLength(uint64_t frames, int32_t tempoPercent) {
    if (tempoPercent == 100 || tempoPercent < 1) return frames;
    return TempoStretcher::stretchedLength(frames, tempoPercent);
}

double clipEnvelope(const ClipPlacement& place, uint32_t j) {
    const uint32_t length = place.length;
    double g = place.gain;
    if (j < place.fadeIn) g *= fadeShapeGain(place.fadeShape, double(j) / place.fadeIn);
    if (place.fadeOut > 0 && j >= length - place.fadeOut) {
        g *= fadeShapeGain(place.fadeShape, double(length - 1 - j) / place.fadeOut);
    }
    if (j < place.overlapIn) {
        g *= fadeShapeGain(place.crossfadeShape, (double(j) + 0.5) / place.overlapIn);
    }
    if (place.overlapOut > 0 && j >= length - place.overlapOut) {
        const uint32_t k = j - (length - place.overlapOut);
        g *= fadeShapeGain(place.crossfadeShape, 1.0 - (double(k) + 0.5) / place.overlapOut);
    }
    return g;
}

}  // namespace wv
