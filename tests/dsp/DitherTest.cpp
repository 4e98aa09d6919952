#include "dsp/Dither.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

namespace {

using wv::TpdfDither;

std::vector<int16_t> convert(const std::vector<float>& in, uint32_t seed) {
    std::vector<int16_t> out(in.size());
    TpdfDither dither(seed);
    dither.toInt16(in.data(), out.data(), in.size());
    return out;
}

TEST(TpdfDither, StaysWithinOneLsbOfTheRoundedValue) {
    std::vector<float> in;
    for (int i = -20000; i < 20000; i += 7) in.push_back(static_cast<float>(i) / 32768.0f + 0.3e-5f);
    const std::vector<int16_t> out = convert(in, 1);
    int moved = 0;
    for (size_t i = 0; i < in.size(); ++i) {
        const long exact = std::lrint(in[i] * 32768.0f);
        ASSERT_LE(std::labs(out[i] - exact), 1) << "sample " << i;
        if (out[i] != exact) ++moved;
    }
    // Noise that is never there would be plain rounding.
    EXPECT_GT(moved, static_cast<int>(in.size()) / 10);
}

TEST(TpdfDither, NoiseIsTriangularAndCentred) {
    // A value exactly between two steps spreads its error over -1..+1 LSB
    // with the mean at zero: no offset is added to the signal.
    const std::vector<float> in(200000, 100.0f / 32768.0f);
    const std::vector<int16_t> out = convert(in, 7);
    double sum = 0;
    int counts[3] = {};
    for (int16_t v : out) {
        ASSERT_GE(v, 99);
        ASSERT_LE(v, 101);
        ++counts[v - 99];
        sum += v - 100;
    }
    EXPECT_NEAR(sum / static_cast<double>(out.size()), 0.0, 0.01);
    // Triangular: |noise| > 0.5 LSB a quarter of the time, split evenly.
    EXPECT_NEAR(counts[0] / 200000.0, 0.125, 0.01);
    EXPECT_NEAR(counts[2] / 200000.0, 0.125, 0.01);
}

TEST(TpdfDither, SaturatesInsteadOfWrapping) {
    const std::vector<float> in = {4.0f,
                                   -4.0f,
                                   1.0f,
                                   -1.0f,
                                   0.99999f,
                                   std::numeric_limits<float>::infinity(),
                                   std::numeric_limits<float>::quiet_NaN()};
    const std::vector<int16_t> out = convert(in, 3);
    EXPECT_EQ(out[0], 32767);
    EXPECT_EQ(out[1], -32768);
    EXPECT_EQ(out[2], 32767);
    EXPECT_GE(out[3], -32768);
    EXPECT_LE(out[3], -32767);
    EXPECT_GE(out[4], 32766);
    EXPECT_EQ(out[5], 32767);
    EXPECT_EQ(out[6], 0);
}

TEST(TpdfDither, SameSeedSameBytesInAnyPieces) {
    std::vector<float> in(1000);
    for (size_t i = 0; i < in.size(); ++i) in[i] = std::sin(static_cast<float>(i) * 0.01f) * 0.5f;
    const std::vector<int16_t> whole = convert(in, 42);
    EXPECT_EQ(whole, convert(in, 42));
    EXPECT_NE(whole, convert(in, 43));

    std::vector<int16_t> pieces(in.size());
    TpdfDither dither(42);
    dither.toInt16(in.data(), pieces.data(), 333);
    dither.toInt16(in.data() + 333, pieces.data() + 333, in.size() - 333);
    EXPECT_EQ(whole, pieces);
}

}  // namespace
