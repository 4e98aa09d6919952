#include "dsp/Dither.h"

#include <cmath>

namespace wv {

uint32_t TpdfDither::nextRandom() {
    mState += 0x9E3779B9u;
    uint32_t z = mState;
    z = (z ^ (z >> 16)) * 0x85EBCA6Bu;
    z = (z ^ (z >> 13)) * 0xC2B2AE35u;
    return z ^ (z >> 16);
}

void TpdfDither::toInt16(const float* in, int16_t* out, size_t samples) {
    // Each half of one 32-bit value gives one uniform value in [0, 1) LSB;
    // their difference is triangular over (-1, 1) LSB.
    constexpr float kHalfScale = 1.0f / 65536.0f;
    for (size_t i = 0; i < samples; ++i) {
        const uint32_t r = nextRandom();
        const float noise =
            static_cast<float>(r & 0xFFFFu) * kHalfScale - static_cast<float>(r >> 16) * kHalfScale;
        const float value = in[i] * 32768.0f + noise;
        if (!(value == value)) {
            out[i] = 0;
        } else if (value >= 32767.0f) {
            out[i] = 32767;
        } else if (value <= -32768.0f) {
            out[i] = -32768;
        } else {
            out[i] = static_cast<int16_t>(std::lrintf(value));
        }
    }
}

}  // namespace wv
