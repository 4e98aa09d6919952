// Waveform data files read back field by field as the published layout
// describes them: little-endian header, then (min, max) per pixel.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "SmallFilesystem.h"
#include "TestSupport.h"
#include "WaveformFiles.h"

using namespace wvcli;

namespace {

int32_t int32At(const std::string& bytes, size_t offset) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = (value << 8) | uint8_t(bytes[offset + size_t(i)]);
    return int32_t(value);
}

PeakData sample(int bits) {
    PeakData data;
    data.sampleRate = 44100;
    data.samplesPerPixel = 441;
    data.bits = bits;
    data.minMax = {-32768, 32767, -1, 255, 256, 300, -257, -256};
    return data;
}

}  // namespace

TEST(WaveformFilesTest, DatHeaderAndSixteenBitValuesFollowTheLayout) {
    const std::string bytes = datBytes(sample(16));
    ASSERT_EQ(bytes.size(), 24u + 8 * 2);
    EXPECT_EQ(int32At(bytes, 0), 2);  // version
    EXPECT_EQ(int32At(bytes, 4), 0);  // flags: 16-bit
    EXPECT_EQ(int32At(bytes, 8), 44100);
    EXPECT_EQ(int32At(bytes, 12), 441);
    EXPECT_EQ(int32At(bytes, 16), 4);  // pixels
    EXPECT_EQ(int32At(bytes, 20), 1);  // channels
    std::vector<int16_t> values;
    for (size_t at = 24; at < bytes.size(); at += 2) {
        values.push_back(int16_t(uint8_t(bytes[at]) | uint8_t(bytes[at + 1]) << 8));
    }
    EXPECT_EQ(values, sample(16).minMax);
    // The first value's bytes, spelled out: -32768 is 00 80.
    EXPECT_EQ(uint8_t(bytes[24]), 0x00);
    EXPECT_EQ(uint8_t(bytes[25]), 0x80);
}

TEST(WaveformFilesTest, EightBitValuesAreTheHighBytes) {
    const std::string bytes = datBytes(sample(8));
    ASSERT_EQ(bytes.size(), 24u + 8);
    EXPECT_EQ(int32At(bytes, 4), 1);  // flags: 8-bit
    std::vector<int> values;
    for (size_t at = 24; at < bytes.size(); ++at) values.push_back(int8_t(bytes[at]));
    EXPECT_EQ(values, (std::vector<int>{-128, 127, -1, 0, 1, 1, -2, -1}));
    EXPECT_EQ(jsonText(sample(8)),
              "{\"version\":2,\"channels\":1,\"sample_rate\":44100,\"samples_per_pixel\":441,\"bits\":8,"
              "\"length\":4,\"data\":[-128,127,-1,0,1,1,-2,-1]}\n");
}

TEST(WaveformFilesTest, JsonCarriesTheHeaderFieldsAndFlatPairs) {
    EXPECT_EQ(jsonText(sample(16)),
              "{\"version\":2,\"channels\":1,\"sample_rate\":44100,\"samples_per_pixel\":441,\"bits\":16,"
              "\"length\":4,\"data\":[-32768,32767,-1,255,256,300,-257,-256]}\n");
    PeakData empty;
    empty.sampleRate = 8000;
    empty.samplesPerPixel = 80;
    EXPECT_EQ(jsonText(empty),
              "{\"version\":2,\"channels\":1,\"sample_rate\":8000,\"samples_per_pixel\":80,\"bits\":16,"
              "\"length\":0,\"data\":[]}\n");
    EXPECT_EQ(datBytes(empty).size(), 24u);
}

TEST(WaveformFilesTest, TwoChannelsCountPixelsNotPairs) {
    PeakData data = sample(16);
    data.channels = 2;
    EXPECT_EQ(jsonText(data),
              "{\"version\":2,\"channels\":2,\"sample_rate\":44100,\"samples_per_pixel\":441,\"bits\":16,"
              "\"length\":2,\"data\":[-32768,32767,-1,255,256,300,-257,-256]}\n");
    const std::string dat = datBytes(data);
    ASSERT_EQ(dat.size(), 24u + 8u * 2u);
    EXPECT_EQ(dat.substr(16, 8), std::string("\x02\0\0\0\x02\0\0\0", 8));
}

TEST(WaveformFilesTest, FilesAreCreatedNewAndFailuresLeaveNothing) {
    wvtest::TempDir dir;
    std::string why;
    ASSERT_TRUE(writeNewFile(dir.file("a.dat"), "abc", why)) << why;
    EXPECT_EQ(wvtest::fileSize(dir.file("a.dat")), 3);
    EXPECT_FALSE(writeNewFile(dir.file("a.dat"), "longer", why));
    EXPECT_EQ(wvtest::fileSize(dir.file("a.dat")), 3) << "an existing file was touched";
    EXPECT_FALSE(writeNewFile(dir.file("missing/a.dat"), "abc", why));
    EXPECT_NE(why.find("No such file"), std::string::npos) << why;

    wvtest::SmallFilesystem small(64 * 1024);
    if (!small.mounted()) GTEST_SKIP() << small.skipReason();
    EXPECT_FALSE(writeNewFile(small.file("big.json"), std::string(1 << 20, 'x'), why));
    EXPECT_EQ(why, "storage full");
    EXPECT_FALSE(wvtest::fileExists(small.file("big.json")));
}
