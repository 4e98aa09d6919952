#include <gtest/gtest.h>
#include <png.h>

#include <string>
#include <vector>

#include "TestSupport.h"
#include "WaveformPicture.h"
#include "WaveformPng.h"

using namespace wvcli;

namespace {

const std::string kFull = "\u2588";
const std::string kEighth = "\u2581";
const std::string kQuarter = "\u2582";
const std::string kUpperEighth = "\u2594";

// The `rows` lines of a drawing of one column.
std::vector<std::string> column(int16_t lowest, int16_t highest, int rows, Scale scale = Scale::Linear) {
    return drawTextWaveform({lowest, highest}, rows, scale);
}

struct Picture {
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    std::vector<png_byte> rgba;
    const png_byte* at(png_uint_32 x, png_uint_32 y) const { return &rgba[4 * (size_t(y) * width + x)]; }
    bool waveAt(png_uint_32 x, png_uint_32 y) const {
        const png_byte* p = at(x, y);
        return p[2] > 150 && p[0] < 100 && p[3] > 200;  // the default blue, opaque
    }
};

bool readPng(const std::string& path, Picture& picture) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return false;
    image.format = PNG_FORMAT_RGBA;
    picture.width = image.width;
    picture.height = image.height;
    picture.rgba.resize(PNG_IMAGE_SIZE(image));
    return png_image_finish_read(&image, nullptr, picture.rgba.data(), 0, nullptr) != 0;
}

}  // namespace

TEST(WaveformPictureTest, HeightsAreTrueAmplitudesOrDecibelsAboveTheFloor) {
    EXPECT_DOUBLE_EQ(heightOf(8192, Scale::Linear), 0.25);
    EXPECT_DOUBLE_EQ(heightOf(-8192, Scale::Linear), -0.25);
    EXPECT_DOUBLE_EQ(heightOf(-32768, Scale::Linear), -1.0);
    // Half scale is -6.02 dB: 0.8997 of the way from -60 dB to 0 dBFS.
    EXPECT_NEAR(heightOf(16384, Scale::Decibels), (60 - 6.0206) / 60, 1e-4);
    EXPECT_NEAR(heightOf(-16384, Scale::Decibels), -(60 - 6.0206) / 60, 1e-4);
    EXPECT_DOUBLE_EQ(heightOf(-32768, Scale::Decibels), -1.0);
    EXPECT_GT(heightOf(33, Scale::Decibels), 0.0);  // -59.9 dB: just above the floor
    EXPECT_EQ(heightOf(32, Scale::Decibels), 0.0);  // -60.2 dB: at the centre line
    EXPECT_EQ(heightOf(0, Scale::Decibels), 0.0);
}

TEST(WaveformPictureTest, TextColumnsSpanFromTheirMinimumToTheirMaximum) {
    // Eight rows: the centre line lies between lines 3 and 4; each line is
    // an eighth of full scale.
    std::vector<std::string> quarter(8, " ");
    quarter[3] = quarter[4] = kFull;
    EXPECT_EQ(column(-8192, 8192, 8), quarter);
    // Above zero only: from +1/4 to +1/2, nothing below the centre.
    std::vector<std::string> raised(8, " ");
    raised[2] = kFull;
    EXPECT_EQ(column(8192, 16384, 8), raised);
    EXPECT_EQ(column(-32768, 32767, 8), std::vector<std::string>(8, kFull));
    EXPECT_EQ(column(0, 0, 8), std::vector<std::string>(8, " ")) << "silence draws nothing";
    // The quietest sound shows as one eighth just above the centre.
    std::vector<std::string> quiet(8, " ");
    quiet[3] = kEighth;
    EXPECT_EQ(column(0, 10, 8), quiet);
    // Two rows: a bar's top edge in lower eighths, its lower edge in upper ones.
    EXPECT_EQ(column(-8192, 8192, 2), (std::vector<std::string>{kQuarter, kUpperEighth}));
    // One odd row: the centre is the middle of the row.
    EXPECT_EQ(column(-32768, 32767, 1), std::vector<std::string>{kFull});
}

TEST(WaveformPictureTest, TextInDecibelsLiftsQuietSound) {
    // -12 dB is 0.8 of the half height: 26 of 32 eighths each way.
    const std::vector<std::string> lines = column(-8192, 8192, 8, Scale::Decibels);
    EXPECT_EQ(lines[0], "\u2582");
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 1, lines.end() - 1), std::vector<std::string>(6, kFull));
    EXPECT_EQ(lines[7], kUpperEighth);
    // Linear, the same pair fills a quarter; several columns make one line each.
    const auto wide = drawTextWaveform({-8192, 8192, 0, 0, -8192, 8192}, 8, Scale::Linear);
    EXPECT_EQ(wide[3], kFull + " " + kFull);
}

TEST(WaveformPictureTest, ColoursAreHexWithOptionalAlpha) {
    Colour colour;
    ASSERT_TRUE(parseColour("#ff8000", colour));
    EXPECT_DOUBLE_EQ(colour.red, 1.0);
    EXPECT_DOUBLE_EQ(colour.green, 128 / 255.0);
    EXPECT_DOUBLE_EQ(colour.blue, 0.0);
    EXPECT_DOUBLE_EQ(colour.alpha, 1.0);
    ASSERT_TRUE(parseColour("#FF800040", colour));
    EXPECT_DOUBLE_EQ(colour.alpha, 64 / 255.0);
    for (const char* bad : {"ff8000", "#ff80", "#gg0000", "#ff80000", "#ff8000400", ""}) {
        EXPECT_FALSE(parseColour(bad, colour)) << bad;
    }

    PictureStyle style;
    const PictureStyle defaults;
    std::string why;
    ASSERT_TRUE(parseColourList(",#000000", style, why)) << why;
    EXPECT_DOUBLE_EQ(style.wave.blue, defaults.wave.blue) << "an empty field keeps the default";
    EXPECT_DOUBLE_EQ(style.background.red, 0.0);
    ASSERT_TRUE(parseColourList("#010203,#040506,#070809", style, why)) << why;
    EXPECT_DOUBLE_EQ(style.axis.blue, 9 / 255.0);
    EXPECT_FALSE(parseColourList("#000000,blue", style, why));
    EXPECT_NE(why.find("background"), std::string::npos) << why;
    EXPECT_FALSE(parseColourList("#000000,#000000,#000000,#000000", style, why));
}

TEST(WaveformPictureTest, TimeTicksFallOnRoundTimesForAnyLength) {
    // One second over 800 pixels: every 100 ms, with tenths.
    auto ticks = timeTicks(0, 1000, 800, 70);
    ASSERT_EQ(ticks.size(), 11u);
    EXPECT_EQ(ticks[0].label, "0:00.0");
    EXPECT_EQ(ticks[3].label, "0:00.3");
    EXPECT_DOUBLE_EQ(ticks[3].x, 240.0);
    EXPECT_EQ(ticks[10].label, "0:01.0");
    // A range not starting at 0: ticks at whole seconds, placed from its start.
    ticks = timeTicks(1500, 4500, 300, 70);
    ASSERT_EQ(ticks.size(), 3u);
    EXPECT_EQ(ticks[0].label, "0:02");
    EXPECT_DOUBLE_EQ(ticks[0].x, 50.0);
    EXPECT_EQ(ticks[2].label, "0:04");
    // Two minutes: 15 s apart; an hour: 10 minutes apart, with hours shown.
    ticks = timeTicks(0, 120000, 800, 70);
    ASSERT_EQ(ticks.size(), 9u);
    EXPECT_EQ(ticks[1].label, "0:15");
    ticks = timeTicks(0, 3600000, 800, 70);
    ASSERT_EQ(ticks.size(), 7u);
    EXPECT_EQ(ticks[1].label, "0:10:00");
    EXPECT_EQ(ticks[6].label, "1:00:00");
    // Ten hours on a narrow picture still keeps the ticks apart.
    ticks = timeTicks(0, 36000000, 200, 70);
    ASSERT_GE(ticks.size(), 2u);
    EXPECT_GE(ticks[1].x - ticks[0].x, 70.0);
    EXPECT_TRUE(timeTicks(5, 5, 100, 70).empty());
}

TEST(WaveformPictureTest, PngDrawsEachColumnFromItsMinimumToItsMaximum) {
    wvtest::TempDir dir;
    // Columns 0-9 silent, 10-19 a quarter each way, 20-29 between +1/4 and
    // +1/2 only, 30-39 full scale.
    std::vector<int16_t> minMax;
    for (int x = 0; x < 40; ++x) {
        const int16_t pairs[4][2] = {{0, 0}, {-8192, 8192}, {8192, 16384}, {-32768, 32767}};
        minMax.push_back(pairs[x / 10][0]);
        minMax.push_back(pairs[x / 10][1]);
    }
    std::string why;
    ASSERT_TRUE(writeWaveformPng(dir.file("w.png"), minMax, 100, 0, 4000, PictureStyle(), why)) << why;
    Picture picture;
    ASSERT_TRUE(readPng(dir.file("w.png"), picture));
    EXPECT_EQ(picture.width, 40u);
    EXPECT_EQ(picture.height, 100u);
    // The wave takes the 82 rows above the axis: its centre is at 41, its
    // half height 41 pixels.
    for (png_uint_32 y = 0; y < 82; ++y) {
        EXPECT_FALSE(picture.waveAt(5, y)) << "silence drawn at row " << y;
        EXPECT_TRUE(picture.waveAt(35, y)) << "full scale missing at row " << y;
        // Rows wholly inside a span are drawn; rows clear of its edges are not.
        if (y >= 31 && y <= 50) {  // 41 -/+ 10.25
            EXPECT_TRUE(picture.waveAt(15, y)) << "quarter missing at row " << y;
        } else if (y < 30 || y > 52) {
            EXPECT_FALSE(picture.waveAt(15, y)) << "quarter too tall at row " << y;
        }
        if (y >= 21 && y <= 30) {  // 41 - 20.5 to 41 - 10.25
            EXPECT_TRUE(picture.waveAt(25, y)) << "raised part missing at row " << y;
        } else if (y < 19 || y > 32) {
            EXPECT_FALSE(picture.waveAt(25, y)) << "raised part drawn at row " << y;
        }
    }
    // The axis: a line under the wave, and something (ticks, labels) below it.
    int axisPixels = 0;
    for (png_uint_32 y = 82; y < 100; ++y) {
        for (png_uint_32 x = 0; x < 40; ++x) axisPixels += picture.at(x, y)[0] < 200;
    }
    EXPECT_GE(axisPixels, 40);
}

TEST(WaveformPictureTest, PngColoursAndTransparency) {
    wvtest::TempDir dir;
    PictureStyle style;
    std::string why;
    ASSERT_TRUE(parseColourList("#ff0000,#00ff0080", style, why)) << why;
    const std::vector<int16_t> minMax = {0, 0, -32768, 32767};
    ASSERT_TRUE(writeWaveformPng(dir.file("c.png"), minMax, 20, 0, 10, style, why)) << why;
    Picture picture;
    ASSERT_TRUE(readPng(dir.file("c.png"), picture));
    const png_byte* wave = picture.at(1, 2);
    EXPECT_EQ(wave[0], 255);
    EXPECT_EQ(wave[1], 0);
    EXPECT_EQ(wave[3], 255);
    const png_byte* background = picture.at(0, 2);
    EXPECT_EQ(background[1], 255);
    EXPECT_NEAR(background[3], 128, 1) << "the background's own alpha";

    style.background.alpha = 0;
    ASSERT_TRUE(writeWaveformPng(dir.file("t.png"), minMax, 20, 0, 10, style, why)) << why;
    ASSERT_TRUE(readPng(dir.file("t.png"), picture));
    EXPECT_EQ(picture.at(0, 2)[3], 0);
    EXPECT_EQ(picture.at(1, 2)[3], 255);
}

TEST(WaveformPictureTest, PngIsWrittenNewOrNotAtAll) {
    wvtest::TempDir dir;
    std::string why;
    EXPECT_FALSE(writeWaveformPng(dir.file("missing/w.png"), {1, 2, 3, 4}, 10, 0, 10, PictureStyle(), why));
    EXPECT_NE(why.find("No such file"), std::string::npos) << why;
    EXPECT_FALSE(wvtest::fileExists(dir.file("missing/w.png")));
    wvtest::writeFile(dir.file("old.png"), "old", 3);
    EXPECT_FALSE(writeWaveformPng(dir.file("old.png"), {1, 2}, 10, 0, 10, PictureStyle(), why));
    EXPECT_EQ(wvtest::fileSize(dir.file("old.png")), 3);
}
