#include <gtest/gtest.h>

#include "LiveLine.h"
#include "PlayKeys.h"

using namespace wvcli;

TEST(PlayKeysTest, SpeedKeysStayWithinWhatThePlayerPlays) {
    // + and - change the magnitude, in either direction.
    EXPECT_EQ(stepSpeed(1, Key::Plus).speed, 2);
    EXPECT_EQ(stepSpeed(-2, Key::Plus).speed, -3);
    EXPECT_EQ(stepSpeed(-2, Key::Minus).speed, -1);
    EXPECT_EQ(stepSpeed(3, Key::Reverse).speed, -3);
    EXPECT_EQ(stepSpeed(-1, Key::Reverse).speed, 1);
    // Past the bounds the speed stays and the refusal says why.
    for (int speed : {1, -1}) {
        const SpeedStep slower = stepSpeed(speed, Key::Minus);
        EXPECT_EQ(slower.speed, speed);
        EXPECT_NE(slower.refusal.find("slowest"), std::string::npos);
    }
    for (int speed : {kMaxPlaySpeed, -kMaxPlaySpeed}) {
        const SpeedStep faster = stepSpeed(speed, Key::Plus);
        EXPECT_EQ(faster.speed, speed);
        EXPECT_NE(faster.refusal.find("fastest"), std::string::npos);
    }
    EXPECT_TRUE(stepSpeed(2, Key::Reverse).refusal.empty());
    EXPECT_FALSE(isPlayableSpeed(0));
    EXPECT_FALSE(isPlayableSpeed(kMaxPlaySpeed + 1));
    EXPECT_FALSE(isPlayableSpeed(-kMaxPlaySpeed - 1));
    EXPECT_TRUE(isPlayableSpeed(-kMaxPlaySpeed));
}

TEST(PlayKeysTest, SeeksStayWithinTheItem) {
    EXPECT_EQ(seekTargetMs(12000, kSeekStepMs, 60000), 17000u);
    EXPECT_EQ(seekTargetMs(3000, -kSeekStepMs, 60000), 0u);
    EXPECT_EQ(seekTargetMs(58000, kSeekStepMs, 60000), 60000u);
    // Beyond 2^31 ms the arithmetic must not wrap.
    EXPECT_EQ(seekTargetMs(int64_t(3000000000), kSeekStepMs, 4000000000u), 3000005000u);
}

TEST(LiveTextTest, PlayLineShowsPositionSpeedDirectionAndState) {
    PlayView view;
    view.positionMs = 1250;
    view.durationMs = 65000;
    EXPECT_EQ(playStatusText(view), "0:01.250 / 1:05.000  1x forwards  playing");
    view.speed = -3;
    view.paused = true;
    EXPECT_EQ(playStatusText(view), "0:01.250 / 1:05.000  3x backwards  paused");
    // Waiting for the load: said unless paused, which the user chose.
    view.buffering = true;
    EXPECT_EQ(playStatusText(view), "0:01.250 / 1:05.000  3x backwards  paused");
    view.paused = false;
    view.speed = 1;
    EXPECT_EQ(playStatusText(view), "0:01.250 / 1:05.000  1x forwards  buffering");
}

TEST(LiveTextTest, LevelsMapToDecibelsAndAMeter) {
    EXPECT_EQ(levelDecibels(255), 0);
    EXPECT_EQ(levelDecibels(128), -6);
    EXPECT_EQ(levelDecibels(26), -20);
    EXPECT_EQ(levelDecibels(0), -99);
    EXPECT_EQ(levelBar(255, 8), "[########]");
    EXPECT_EQ(levelBar(0, 8), "[........]");
    // -24 dB is half way up the 48 dB scale.
    EXPECT_EQ(levelBar(16, 8), "[####....]");
    // The quietest sound still shows, unlike silence.
    EXPECT_EQ(levelBar(1, 8), "[#.......]");
}

TEST(LiveTextTest, RecordLineShowsTimeAndLevelOrPause) {
    RecordView view;
    view.recordedMs = 2500;
    view.level = 128;
    const std::string text = recordStatusText(view);
    EXPECT_EQ(text.rfind("REC 0:02.500  [", 0), 0u) << text;
    EXPECT_NE(text.find("-6 dB"), std::string::npos) << text;
    view.level = 0;
    EXPECT_NE(recordStatusText(view).find("silent"), std::string::npos);
    view.paused = true;
    EXPECT_EQ(recordStatusText(view), "REC 0:02.500  paused (space resumes)");
}

TEST(RecordTextTest, LostAudioIsReportedWithItsTimeAndInTotal) {
    EXPECT_EQ(lostAudioWarning("take.wav", 120, 3250),
              "take.wav: the input lost 120 ms of audio at 0:03.250 (recorded as silence)");
    // Nothing lost: the result line stays as it always was.
    EXPECT_EQ(lostAudioSummary(0), "");
    EXPECT_EQ(lostAudioSummary(1500), "; the input lost 1500 ms in all (recorded as silence)");
}
