#include <gtest/gtest.h>

#include <fstream>

#include "TestSupport.h"
#include "TimeSpec.h"

using wvcli::parseSourceRange;
using wvcli::parseTimeMs;
using wvcli::SourceRange;

namespace {

uint32_t parsed(const std::string& text) {
    uint32_t ms = 12345;
    std::string why;
    EXPECT_TRUE(parseTimeMs(text, ms, why)) << text << ": " << why;
    return ms;
}

bool rejected(const std::string& text) {
    uint32_t ms = 777;
    std::string why;
    const bool ok = parseTimeMs(text, ms, why);
    EXPECT_EQ(ms, 777u) << "a rejected time must not change the value";
    return !ok && !why.empty();
}

}  // namespace

TEST(TimeSpecTest, ReadsSecondsUnitsAndClockForms) {
    EXPECT_EQ(parsed("0"), 0u);
    // A bare number is seconds, as in other audio tools.
    EXPECT_EQ(parsed("90"), 90000u);
    EXPECT_EQ(parsed("2.5s"), 2500u);
    EXPECT_EQ(parsed("1500ms"), 1500u);
    EXPECT_EQ(parsed("0ms"), 0u);
    EXPECT_EQ(parsed("1.5"), 1500u);
    EXPECT_EQ(parsed("1.05"), 1050u);
    EXPECT_EQ(parsed("1.005"), 1005u);
    EXPECT_EQ(parsed("2."), 2000u);
    EXPECT_EQ(parsed(".25"), 250u);
    EXPECT_EQ(parsed("1:02.5"), 62500u);
    EXPECT_EQ(parsed("0:59.999"), 59999u);
    EXPECT_EQ(parsed("90:00"), 5400000u);
    EXPECT_EQ(parsed("1:00:02.001"), 3602001u);
    EXPECT_EQ(parsed("4294967294ms"), 4294967294u);
    EXPECT_EQ(parsed("4294967.294"), 4294967294u);
}

TEST(TimeSpecTest, RejectsWhatIsNotATime) {
    for (const char* text : {"",   ".",  "-5",           "+5",      "1.23x5",        "1,5", "5 s", "5sec",    "1.5ms",
                             "ms", "s",  "1:30s",        "1:60",    "1:60.0",        "1:",  ":5",  "1:2:3:4", "1:60:00",
                             "a",  " 5", "4294967295ms", "4294968", "99999999999999", "1.2.3", "1.0005x"}) {
        EXPECT_TRUE(rejected(text)) << text;
    }
}

TEST(TimeSpecTest, RoundsDecimalsPastTheMillisecond) {
    // As other audio tools take them: to the nearest millisecond, a half up.
    EXPECT_EQ(parsed("1.2345"), 1235u);
    EXPECT_EQ(parsed("1.2344999"), 1234u);
    EXPECT_EQ(parsed("0.0004"), 0u);
    EXPECT_EQ(parsed("0.0005"), 1u);
    EXPECT_EQ(parsed("0.123456789012345678901234567890"), 123u);
    EXPECT_EQ(parsed(".9996s"), 1000u);
    EXPECT_EQ(parsed("1:02.50049"), 62500u);
    // The seconds of a clock form are below 60 as written, even when they
    // round up to it.
    EXPECT_EQ(parsed("0:59.9996"), 60000u);
    EXPECT_EQ(parsed("1:00:59.99951"), 3660000u);
    EXPECT_TRUE(rejected("1:60.0001"));
    EXPECT_TRUE(rejected("4294967.2945")) << "rounds past the largest time";
    EXPECT_EQ(parsed("4294967.2944"), 4294967294u);
    SourceRange range;
    std::string why;
    ASSERT_TRUE(parseSourceRange("a.wav@0.0015-1.99951", range, why)) << why;
    EXPECT_EQ(range.fromMs, 2u);
    EXPECT_EQ(range.toMs, 2000u);
}

TEST(TimeSpecTest, NamesAnUnknownEffectOfARange) {
    SourceRange range;
    std::string why;
    for (const char* text : {"a.mp3@1-2:foo=1", "a.mp3@1-2:fade=1:foo=1", "a.mp3@1-2:foo=1:fade=1",
                             "a.mp3@1-2:gain=-3:foo=1"}) {
        ASSERT_FALSE(parseSourceRange(text, range, why)) << text;
        EXPECT_NE(why.find("unknown effect foo"), std::string::npos) << text << ": " << why;
        EXPECT_EQ(why.find("not a time"), std::string::npos) << text << ": " << why;
    }
    // A time that is wrong is still said to be one.
    ASSERT_FALSE(parseSourceRange("a.mp3@1-2x", range, why));
    EXPECT_NE(why.find("'2x' is not a time"), std::string::npos) << why;
}

TEST(TimeSpecTest, FormatsAsMinutesOrHours) {
    EXPECT_EQ(wvcli::formatTimeMs(0), "0:00.000");
    EXPECT_EQ(wvcli::formatTimeMs(62500), "1:02.500");
    EXPECT_EQ(wvcli::formatTimeMs(3599999), "59:59.999");
    EXPECT_EQ(wvcli::formatTimeMs(3602001), "1:00:02.001");
    // What is printed parses back to the same time.
    EXPECT_EQ(parsed(wvcli::formatTimeMs(754321)), 754321u);
}

TEST(TimeSpecTest, SplitsSourceRanges) {
    SourceRange range;
    std::string why;
    ASSERT_TRUE(parseSourceRange("a.wav", range, why));
    EXPECT_EQ(range.path, "a.wav");
    EXPECT_EQ(range.fromMs, 0u);
    EXPECT_FALSE(range.hasEnd);

    ASSERT_TRUE(parseSourceRange("dir/a@b.mp3@0:01.5-20", range, why));
    EXPECT_EQ(range.path, "dir/a@b.mp3");
    EXPECT_EQ(range.fromMs, 1500u);
    EXPECT_TRUE(range.hasEnd);
    EXPECT_EQ(range.toMs, 20000u);
    ASSERT_TRUE(parseSourceRange("a.wav@250ms-1", range, why));
    EXPECT_EQ(range.fromMs, 250u);
    EXPECT_EQ(range.toMs, 1000u);

    ASSERT_TRUE(parseSourceRange("a.wav@-1.0", range, why));
    EXPECT_EQ(range.fromMs, 0u);
    EXPECT_EQ(range.toMs, 1000u);
    ASSERT_TRUE(parseSourceRange("a.wav@3.5-", range, why));
    EXPECT_EQ(range.fromMs, 3500u);
    EXPECT_FALSE(range.hasEnd);

    for (const char* bad : {"a.wav@", "a.wav@5", "@1-2", "a.wav@2-1", "a.wav@1.0-1000ms", "a.wav@x-2"}) {
        EXPECT_FALSE(parseSourceRange(bad, range, why)) << bad;
        EXPECT_FALSE(why.empty()) << bad;
    }
}

TEST(TimeSpecTest, AnExistingFileNameWithAtSignIsNotARange) {
    wvtest::TempDir dir;
    const std::string path = dir.path() + "/take@1-2";
    std::ofstream(path) << "x";
    SourceRange range;
    std::string why;
    ASSERT_TRUE(parseSourceRange(path, range, why));
    EXPECT_EQ(range.path, path);
    EXPECT_FALSE(range.hasEnd);
}

TEST(TimeSpecTest, ReadsEffectSuffixesAfterARangeOrAName) {
    SourceRange range;
    std::string why;
    ASSERT_TRUE(parseSourceRange("song.mp3@1:00-2:00:gain=-3:fade=0.5", range, why)) << why;
    EXPECT_EQ(range.path, "song.mp3");
    EXPECT_EQ(range.fromMs, 60000u);
    EXPECT_EQ(range.toMs, 120000u);
    EXPECT_EQ(range.gainMillibels, -300);
    EXPECT_EQ(range.fadeInMs, 500u);
    EXPECT_EQ(range.fadeOutMs, 500u);

    // Without a range; a fade's time may itself hold ':'.
    ASSERT_TRUE(parseSourceRange("song.mp3:fade-out=0:01.5:gain=+1.25", range, why)) << why;
    EXPECT_EQ(range.path, "song.mp3");
    EXPECT_FALSE(range.hasEnd);
    EXPECT_EQ(range.gainMillibels, 125);
    EXPECT_FALSE(range.fadeInMs.has_value());
    EXPECT_EQ(range.fadeOutMs, 1500u);

    ASSERT_TRUE(parseSourceRange("a.wav@2-:fade-in=250ms", range, why)) << why;
    EXPECT_EQ(range.fromMs, 2000u);
    EXPECT_EQ(range.fadeInMs, 250u);
    EXPECT_FALSE(range.fadeOutMs.has_value());
    EXPECT_FALSE(range.gainMillibels.has_value());

    // Nothing given stays absent, so that no effect is set at all.
    ASSERT_TRUE(parseSourceRange("a.wav@1-2", range, why));
    EXPECT_FALSE(range.gainMillibels || range.fadeInMs || range.fadeOutMs);

    // Gains round to the nearest millibel; the limits are inclusive.
    ASSERT_TRUE(parseSourceRange("a.wav:gain=-96", range, why));
    EXPECT_EQ(range.gainMillibels, -9600);
    ASSERT_TRUE(parseSourceRange("a.wav:gain=24.0", range, why));
    EXPECT_EQ(range.gainMillibels, 2400);
    ASSERT_TRUE(parseSourceRange("a.wav:gain=-0.005", range, why));
    EXPECT_EQ(range.gainMillibels, -1);
}

TEST(TimeSpecTest, RefusesBadEffectValues) {
    SourceRange range;
    std::string why;
    for (const char* bad : {"a.wav:gain=x", "a.wav:gain=30", "a.wav:gain=-96.01", "a.wav:gain=", "a.wav:gain=1e1",
                            "a.wav:gain=nan", "a.wav:fade=x", "a.wav@1-2:fade-in=-1", "a.wav:gain=1:gain=2",
                            "a.wav:fade=1:fade-out=2", "a.wav:fade-in=1:fade=1", "@1-2:gain=3", "a.wav@2-1:gain=1"}) {
        EXPECT_FALSE(parseSourceRange(bad, range, why)) << bad;
        EXPECT_FALSE(why.empty()) << bad;
    }
    ASSERT_FALSE(parseSourceRange("a.wav:gain=30", range, why));
    EXPECT_NE(why.find("30 is out of range: use -96 to 24 dB"), std::string::npos) << why;
    ASSERT_FALSE(parseSourceRange("a.wav:gain=loud", range, why));
    EXPECT_NE(why.find("'loud' is not a number of dB"), std::string::npos) << why;
}

TEST(TimeSpecTest, ColonsOfExistingNamesAreNoSuffixes) {
    wvtest::TempDir dir;
    SourceRange range;
    std::string why;
    // An unknown key is part of the name.
    ASSERT_TRUE(parseSourceRange(dir.path() + "/take:mix=2", range, why));
    EXPECT_EQ(range.path, dir.path() + "/take:mix=2");
    // A whole name that exists wins over a suffix that would parse...
    const std::string named = dir.path() + "/take:gain=2";
    std::ofstream(named) << "x";
    ASSERT_TRUE(parseSourceRange(named, range, why));
    EXPECT_EQ(range.path, named);
    EXPECT_FALSE(range.gainMillibels.has_value());
    // ...and stops the suffixes coming off once what is left exists.
    ASSERT_TRUE(parseSourceRange(named + ":fade=1", range, why)) << why;
    EXPECT_EQ(range.path, named);
    EXPECT_EQ(range.fadeInMs, 1000u);
    EXPECT_FALSE(range.gainMillibels.has_value());
}

TEST(TimeSpecTest, ReadsDecimalsStrictly) {
    double value = 0;
    ASSERT_TRUE(wvcli::parseDecimal("-3.5", value));
    EXPECT_DOUBLE_EQ(value, -3.5);
    ASSERT_TRUE(wvcli::parseDecimal("+.25", value));
    EXPECT_DOUBLE_EQ(value, 0.25);
    ASSERT_TRUE(wvcli::parseDecimal("16", value));
    EXPECT_DOUBLE_EQ(value, 16);
    for (const char* bad : {"", "-", ".", "1.2.3", "1e3", " 1", "1 ", "--1", "inf", "0x10", "1,5"}) {
        EXPECT_FALSE(wvcli::parseDecimal(bad, value)) << bad;
    }
}
