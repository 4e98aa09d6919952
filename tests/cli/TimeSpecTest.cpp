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
    for (const char* text : {"",   ".",  "-5",           "+5",      "1.2345",        "1,5", "5 s", "5sec",    "1.5ms",
                             "ms", "s",  "1:30s",        "1:60",    "1:60.0",        "1:",  ":5",  "1:2:3:4", "1:60:00",
                             "a",  " 5", "4294967295ms", "4294968", "99999999999999"}) {
        EXPECT_TRUE(rejected(text)) << text;
    }
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
