// Conversion of float samples (full scale +-1.0) to 16-bit with triangular
// (TPDF) dither: the sum of two independent uniform values of one LSB each
// is added before rounding, so that the rounding error is noise that does
// not follow the signal (quiet fades do not turn into distortion).
//
// The noise is a pure function of the seed: the same seed and the same
// input give the same output bytes, which keeps renders reproducible. Its
// generator is the 32-bit "splitmix" mix of a counter stepped per sample.
// Values beyond full scale saturate at -32768 and 32767; NaN gives 0.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wv {

class TpdfDither {
public:
    static constexpr uint32_t kDefaultSeed = 0x57A7D17Eu;

    explicit TpdfDither(uint32_t seed = kDefaultSeed) : mState(seed) {}

    // Converts `samples` values (interleaved channels count as samples),
    // stepping the noise by one per sample.
    void toInt16(const float* in, int16_t* out, size_t samples);

private:
    uint32_t nextRandom();

    uint32_t mState;
};

}  // namespace wv
