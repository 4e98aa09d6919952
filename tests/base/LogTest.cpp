#define WV_LOG_TAG "LogTest"
#include "base/Log.h"

#include "base/CheckSites.h"

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace {

TEST(Log, LevelFiltersAndSinkReceivesTagAndText) {
    wvtest::LogCapture capture;
    wavoryx_set_log_level(WAVORYX_LOG_WARN);
    WV_LOGI("dropped %d", 1);
    WV_LOGW("kept %d", 2);
    WV_LOGE("kept %s", "too");
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].priority, WAVORYX_LOG_WARN);
    EXPECT_EQ(lines[0].tag, "LogTest");
    EXPECT_EQ(lines[0].message, "kept 2");
    EXPECT_EQ(lines[1].message, "kept too");
}

TEST(LogDeathTest, CheckNamesUnitLineAndCondition) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const int started = 0;
    EXPECT_DEATH(WV_CHECK("AudioPlayer", 739, started),
                 "F/LogTest: frameworks/av/tools/libwavoryx/AudioPlayer:739 CHECK\\(started\\) failed\\.");
    EXPECT_DEATH(WV_CHECK_EQ("WavoryxPriv", 460, "mClient.connect(),(status_t)OK", -5, 0),
                 "frameworks/av/tools/libwavoryx/WavoryxPriv:460 CHECK_EQ\\( "
                 "mClient.connect\\(\\),\\(status_t\\)OK\\) failed: -5 vs\\. 0");
}

// The checks that name a site of the table report it as the literal ones did.
TEST(LogDeathTest, ChecksAtTableSitesNameTheirUnitAndLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const int started = 0;
    EXPECT_DEATH(WV_CHECK_AT(wv::Check::kPlayerFillStarted, started),
                 "F/LogTest: frameworks/av/tools/libwavoryx/AudioPlayer:739 CHECK\\(started\\) failed\\.");
    EXPECT_DEATH(WV_CHECK_EQ_AT(wv::Check::kEngineConnect, "mClient.connect(),(status_t)OK", -5, 0),
                 "frameworks/av/tools/libwavoryx/WavoryxPriv:460 CHECK_EQ\\( "
                 "mClient.connect\\(\\),\\(status_t\\)OK\\) failed: -5 vs\\. 0");
    EXPECT_DEATH(WV_FATAL_AT(wv::Check::kDecoderJobItem, "CHECK(%s) failed.", "info != NULL"),
                 "WavoryxPriv:24 CHECK\\(info != NULL\\) failed\\.");
}

TEST(LogDeathTest, FatalIsWrittenEvenWhenLoggingIsOff) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            wavoryx_set_log_level(WAVORYX_LOG_FATAL + 1);
            WV_CHECK_NE("AudioPlayer", 740, "mSampleRate,0", 0, 0);
        },
        "AudioPlayer:740 CHECK_NE\\( mSampleRate,0\\) failed: 0 vs\\. 0");
}

}  // namespace
