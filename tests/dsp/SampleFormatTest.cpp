#include <wavoryx/dsp.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::vector<float> floatsOf(const std::vector<int16_t>& buf, size_t count) {
    std::vector<float> out(count);
    std::memcpy(out.data(), buf.data(), count * sizeof(float));
    return out;
}

TEST(SampleFormat, Stereo2MonoKeepsLeftInPlaceAndLeavesTheTail) {
    std::vector<int16_t> buf = {1, 2, 3, 4, -5, 6};
    Stereo2Mono(buf.data(), 3);
    EXPECT_EQ(buf, (std::vector<int16_t>{1, 3, -5, 4, -5, 6}));

    std::vector<int16_t> untouched = {7, 8};
    Stereo2Mono(untouched.data(), 0);
    EXPECT_EQ(untouched, (std::vector<int16_t>{7, 8}));
}

TEST(SampleFormat, Mono2StereoDuplicatesWithoutOverwritingUnreadSamples) {
    std::vector<int16_t> buf = {5, 6, -32768, 32767, 99, 99, 99, 99};
    Mono2Stereo(buf.data(), 4);
    EXPECT_EQ(buf, (std::vector<int16_t>{5, 5, 6, 6, -32768, -32768, 32767, 32767}));

    std::vector<int16_t> untouched = {1, 2};
    Mono2Stereo(untouched.data(), 0);
    EXPECT_EQ(untouched, (std::vector<int16_t>{1, 2}));
}

TEST(SampleFormat, Stereo2FloatScalesLeftByOneOver32768) {
    std::vector<int16_t> buf = {-32768, 111, 16384, -1, 0, 5, 32767, 0};
    Stereo2Float(buf.data(), 4);
    const auto f = floatsOf(buf, 4);
    EXPECT_EQ(f[0], -1.0f);
    EXPECT_EQ(f[1], 0.5f);
    EXPECT_EQ(f[2], 0.0f);
    EXPECT_EQ(f[3], 32767.0f / 32768.0f);
}

TEST(SampleFormat, Float2StereoClampsScalesTruncatesAndDuplicates) {
    const std::vector<float> in = {1.5f, -1.0f, 0.99999f, -0.99999f, 0.5f, -7.0f, 0.0f};
    std::vector<int16_t> buf(2 * in.size());
    std::memcpy(buf.data(), in.data(), in.size() * sizeof(float));
    Float2Stereo(buf.data(), unsigned(in.size()));
    // 0.5 * 32767 = 16383.5 truncates toward zero, as does the negative side.
    EXPECT_EQ(buf, (std::vector<int16_t>{32767, 32767, -32767, -32767, 32766, 32766, -32766,
                                         -32766, 16383, 16383, -32767, -32767, 0, 0}));
}

TEST(SampleFormat, FloatRoundTripGivesDualMonoOfLeftScaledDown) {
    std::vector<int16_t> buf = {-32768, 1, 32767, 2, 1000, 3, -1000, 4};
    Stereo2Float(buf.data(), 4);
    Float2Stereo(buf.data(), 4);
    // x * 32767 / 32768 truncated: full scale loses one step, small values
    // drop just below their magnitude.
    EXPECT_EQ(buf, (std::vector<int16_t>{-32767, -32767, 32766, 32766, 999, 999, -999, -999}));
}

TEST(SampleFormat, MemCopyCopiesWhatFitsAndAdvancesBothPositions) {
    const char src[] = "0123456789ABCDEF";
    char dst[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    unsigned int srcPos = 6;  // 10 bytes left in a source of 16
    unsigned int dstPos = 4;  // room for 4
    EXPECT_EQ(mem_copy(dst, 8, dstPos, const_cast<char*>(src), 16, srcPos), 8u);
    EXPECT_EQ(dstPos, 8u);
    EXPECT_EQ(srcPos, 10u);
    EXPECT_EQ(std::string(dst, 8), "xxxx6789");

    // Source is the limit now.
    unsigned int dst2Pos = 0;
    char dst2[8] = {};
    srcPos = 14;
    EXPECT_EQ(mem_copy(dst2, 8, dst2Pos, const_cast<char*>(src), 16, srcPos), 2u);
    EXPECT_EQ(std::string(dst2, 2), "EF");
    EXPECT_EQ(srcPos, 16u);

    // Nothing left on either side copies nothing.
    EXPECT_EQ(mem_copy(dst2, 8, dst2Pos, const_cast<char*>(src), 16, srcPos), 2u);
    EXPECT_EQ(srcPos, 16u);
    unsigned int fullPos = 8;
    srcPos = 0;
    EXPECT_EQ(mem_copy(dst2, 8, fullPos, const_cast<char*>(src), 16, srcPos), 8u);
    EXPECT_EQ(srcPos, 0u);
}

TEST(SampleFormat, ZeroCountsAndRampUpChangeNothing) {
    std::vector<int16_t> buf = {1, 2, 3, 4};
    const auto before = buf;
    Stereo2Float(buf.data(), 0);
    Float2Stereo(buf.data(), 0);
    ramp_up(buf.data(), 2);
    EXPECT_EQ(buf, before);
}

}  // namespace
