#include <gtest/gtest.h>
#include <png.h>

#include <vector>

#include "TestSupport.h"
#include "WaveformPicture.h"

using wvcli::drawTextWaveform;
using wvcli::writeWaveformPng;

namespace {

const std::string kFull = "\u2588";
const std::string kEighth = "\u2581";
const std::string kHalf = "\u2584";

struct Picture {
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    std::vector<png_byte> rgb;
    bool waveAt(png_uint_32 x, png_uint_32 y) const {
        const png_byte* p = &rgb[3 * (size_t(y) * width + x)];
        return p[2] > 150 && p[0] < 100;  // the blue of the bars
    }
};

bool readPng(const std::string& path, Picture& picture) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGB;
    picture.width = image.width;
    picture.height = image.height;
    picture.rgb.resize(PNG_IMAGE_SIZE(image));
    return png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr) != 0;
}

}  // namespace

TEST(WaveformPictureTest, TextBarsGrowInEighthsFromTheBottomLine) {
    // 0 silent, 1 the quietest sound, 63 a quarter of two lines, 255 full;
    // levels round up, so 128 just passes into the upper line.
    const std::vector<std::string> lines = drawTextWaveform({0, 1, 63, 128, 255}, 2);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], " " + std::string(" ") + " " + kEighth + kFull);
    EXPECT_EQ(lines[1], " " + kEighth + kHalf + kFull + kFull);
}

TEST(WaveformPictureTest, PngHasTheSizeAndBarsOfThePeaks) {
    wvtest::TempDir dir;
    std::vector<uint8_t> peaks(30, 0);
    for (size_t x = 20; x < 30; ++x) peaks[x] = 255;
    peaks[10] = 128;
    std::string why;
    ASSERT_TRUE(writeWaveformPng(dir.file("w.png"), peaks, 41, why)) << why;

    Picture picture;
    ASSERT_TRUE(readPng(dir.file("w.png"), picture));
    EXPECT_EQ(picture.width, 30u);
    EXPECT_EQ(picture.height, 41u);
    for (png_uint_32 y = 0; y < 41; ++y) {
        EXPECT_FALSE(picture.waveAt(0, y)) << "silence drawn at row " << y;
        EXPECT_TRUE(picture.waveAt(25, y)) << "full peak missing at row " << y;
    }
    // Half a peak reaches about half way from the middle line each way.
    EXPECT_TRUE(picture.waveAt(10, 20));
    EXPECT_TRUE(picture.waveAt(10, 10));
    EXPECT_FALSE(picture.waveAt(10, 5));
    EXPECT_FALSE(picture.waveAt(10, 35));
}

TEST(WaveformPictureTest, UnwritablePathFailsWithAReasonAndNoFile) {
    wvtest::TempDir dir;
    std::string why;
    EXPECT_FALSE(writeWaveformPng(dir.file("missing/w.png"), {1, 2, 3}, 10, why));
    EXPECT_NE(why.find("No such file"), std::string::npos) << why;
    EXPECT_FALSE(wvtest::fileExists(dir.file("missing/w.png")));
}
