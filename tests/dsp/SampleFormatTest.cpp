#include <wavoryx/dsp.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Samples = std::vector<int16_t>;

TEST(SampleFormat, ChannelLayoutsConvertInPlace) {
    Samples stereo = {1, 2, 3, 4, -5, 6};
    Stereo2Mono(stereo.data(), 3);
    EXPECT_EQ(stereo, (Samples{1, 3, -5, 4, -5, 6}));  // the tail keeps its old contents

    // Backward, or the second sample would be overwritten before it is read.
    Samples mono = {5, 6, -32768, 32767, 9, 9, 9, 9};
    Mono2Stereo(mono.data(), 4);
    EXPECT_EQ(mono, (Samples{5, 5, 6, 6, -32768, -32768, 32767, 32767}));

    Samples untouched = {7, 8, 9, 10};
    Stereo2Mono(untouched.data(), 0);
    Mono2Stereo(untouched.data(), 0);
    Stereo2Float(untouched.data(), 0);
    Float2Stereo(untouched.data(), 0);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    ramp_up(untouched.data(), 2);
#pragma GCC diagnostic pop
    EXPECT_EQ(untouched, (Samples{7, 8, 9, 10}));
}

TEST(SampleFormat, FloatConversionsScaleClampAndTruncate) {
    Samples buf = {-32768, 111, 16384, -1, 32767, 0};
    Stereo2Float(buf.data(), 3);
    float f[3];
    std::memcpy(f, buf.data(), sizeof f);
    EXPECT_EQ(f[0], -1.0f);
    EXPECT_EQ(f[1], 0.5f);
    EXPECT_EQ(f[2], 32767.0f / 32768.0f);

    const float in[] = {1.5f, -1.0f, 0.99999f, -0.99999f, 0.5f, -7.0f};
    Samples out(12);
    std::memcpy(out.data(), in, sizeof in);
    Float2Stereo(out.data(), 6);
    EXPECT_EQ(out, (Samples{32767, 32767, -32767, -32767, 32766, 32766, -32766, -32766, 16383, 16383, -32767, -32767}));

    // Round trip: dual mono of the left channel, scaled by 32767/32768.
    Samples trip = {-32768, 1, 32767, 2, 1000, 3};
    Stereo2Float(trip.data(), 3);
    Float2Stereo(trip.data(), 3);
    EXPECT_EQ(trip, (Samples{-32767, -32767, 32766, 32766, 999, 999}));
}

TEST(SampleFormat, MemCopyCopiesWhatFitsAndAdvancesBothPositions) {
    char src[] = "0123456789ABCDEF";
    char dst[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    unsigned int srcPos = 6;  // 10 bytes left
    unsigned int dstPos = 4;  // room for 4
    EXPECT_EQ(mem_copy(dst, 8, dstPos, src, 16, srcPos), 8u);
    EXPECT_EQ(srcPos, 10u);
    EXPECT_EQ(std::string(dst, 8), "xxxx6789");

    dstPos = 0;
    srcPos = 14;  // the source is the limit now
    EXPECT_EQ(mem_copy(dst, 8, dstPos, src, 16, srcPos), 2u);
    EXPECT_EQ(std::string(dst, 3), "EFx");
    EXPECT_EQ(mem_copy(dst, 8, dstPos, src, 16, srcPos), 2u);  // nothing left
    EXPECT_EQ(srcPos, 16u);
}

}  // namespace
