#include <wavoryx/dsp.h>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <random>
#include <vector>

#include "TestSupport.h"

namespace {

std::vector<float> randomComplex(long n, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<float> out(2 * size_t(n));
    for (auto& v : out) v = dist(gen);
    return out;
}

TEST(SmbFft, ForwardMatchesTheDefinitionWithNegativeExponent) {
    const long n = 16;
    const auto input = randomComplex(n, 3);
    auto buf = input;
    smbFft(buf.data(), n, -1);
    for (long k = 0; k < n; ++k) {
        std::complex<double> sum = 0.0;
        for (long t = 0; t < n; ++t) {
            const std::complex<double> x(input[2 * t], input[2 * t + 1]);
            sum += x * std::polar(1.0, -2.0 * M_PI * double(k * t) / double(n));
        }
        EXPECT_NEAR(buf[2 * k], sum.real(), 1e-4) << "bin " << k;
        EXPECT_NEAR(buf[2 * k + 1], sum.imag(), 1e-4) << "bin " << k;
    }
}

TEST(SmbFft, ForwardThenInverseScalesByTheFrameSize) {
    for (long n : {2L, 8L, 1024L, 8192L}) {
        const auto input = randomComplex(n, unsigned(n));
        auto buf = input;
        smbFft(buf.data(), n, -1);
        smbFft(buf.data(), n, 1);
        double worst = 0.0;
        for (size_t i = 0; i < buf.size(); ++i) {
            worst = std::max(worst, std::fabs(buf[i] / double(n) - input[i]));
        }
        EXPECT_LT(worst, 1e-4) << "frame size " << n;
    }
}

TEST(SmbFft, RefusesFrameSizesThatAreNotPowersOfTwo) {
    wvtest::LogCapture log;
    auto buf = randomComplex(12, 1);
    const auto before = buf;
    smbFft(buf.data(), 12, -1);
    smbFft(buf.data(), 0, -1);
    smbFft(buf.data(), -8, -1);
    EXPECT_EQ(buf, before);
    EXPECT_TRUE(log.contains("smbFft: frame size 12 is not a power of two"));
}

TEST(SmbAtan2, SpecialCasesThenPlainArcTangent) {
    for (double y : {-3.0, -0.0, 0.0, 1.0}) EXPECT_EQ(smbAtan2(0.0, y), 0.0) << y;
    EXPECT_DOUBLE_EQ(smbAtan2(-5.0, 0.0), -M_PI / 2);
    EXPECT_DOUBLE_EQ(smbAtan2(1.0, 0.0), M_PI / 2);
    EXPECT_DOUBLE_EQ(smbAtan2(1.0, -1.0), 3 * M_PI / 4);  // first argument is the ordinate
    EXPECT_DOUBLE_EQ(smbAtan2(-2.0, -2.0), -3 * M_PI / 4);
}

}  // namespace
