// A recording given a length ends by itself with exactly that many frames,
// whenever the client looks; pauses do not count towards it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "RecordTestHelpers.h"
#include "TestSupport.h"
#include "engine/WavoryxPriv.h"

namespace {

// Frames of a finished WAV file with `channels` channels; 0 for another count.
size_t wavFrames(const std::string& file, int channels) {
    std::vector<int16_t> samples;
    int rate = 0, got = 0;
    if (!wvtest::readWavSamples(file, &samples, &rate, &got) || got != channels) return 0;
    return samples.size() / size_t(channels);
}

int endValue(const std::vector<wvtest::Event>& events, int id) {
    for (const auto& e : events) {
        if (e.id == id && e.code == 63) return e.value;
    }
    return -100;
}

TEST(RecordDuration, EndsByItselfWithExactlyTheFramesAsked) {
    rectest::FileInput input("tone:440", "4");
    ASSERT_TRUE(input.selected());
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    struct Take {
        int rate;
        int channels;
        int ms;
        size_t frames;
    };
    // Lengths that end inside a captured buffer, on odd rates, in mono and
    // stereo (whose buffers hold half the frames).
    const Take takes[] = {{44100, 1, 250, 11025}, {22050, 2, 1337, 29481}, {8000, 1, 2000, 16000}};
    for (const Take& take : takes) {
        SCOPED_TRACE(take.ms);
        const std::string file = work.file("take" + std::to_string(take.ms) + ".wav");
        const int32_t id = r.engine.recordStart(file.c_str(), ENCODE_WAV, take.rate, take.channels, 0, 1, 0);
        ASSERT_GT(id, 0);
        ASSERT_EQ(r.engine.setRecordDuration(take.ms), 0);
        // No stop is asked: the recording ends on its own.
        ASSERT_TRUE(r.waitForCode(63, id));
        EXPECT_EQ(endValue(r.events.events(), id), 0);
        EXPECT_EQ(r.engine.getPcmFrameLength(uint32_t(id)), int32_t(take.frames));
        EXPECT_EQ(r.engine.recordStop(), 0);
        EXPECT_EQ(wavFrames(file, take.channels), take.frames);
        r.engine.removePcm(uint32_t(id));
    }
}

TEST(RecordDuration, PausesDoNotCountAndTheLengthCanBeCleared) {
    rectest::FileInput input("tone:440", "4");
    ASSERT_TRUE(input.selected());
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    const std::string file = work.file("paused.wav");
    const int32_t id = r.engine.recordStart(file.c_str(), ENCODE_WAV, 8000, 1, 0, 1, 0);
    ASSERT_GT(id, 0);
    ASSERT_EQ(r.engine.setRecordDuration(5000), 0);
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), 4000));
    ASSERT_EQ(r.engine.recordPause(), 0);
    ASSERT_TRUE(r.waitForCode(66, id));
    // Time passes while paused; the length still counts recorded audio.
    const int32_t atPause = r.engine.getPcmFrameLength(uint32_t(id));
    ASSERT_LT(atPause, 40000);
    ASSERT_EQ(r.engine.recordResume(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    EXPECT_EQ(r.engine.getPcmFrameLength(uint32_t(id)), 40000);
    EXPECT_EQ(r.engine.recordStop(), 0);
    EXPECT_EQ(wavFrames(file, 1), 40000u);

    // Cleared, the length ends nothing: only the stop does.
    const std::string open = work.file("open.wav");
    const int32_t second = r.engine.recordStart(open.c_str(), ENCODE_WAV, 8000, 1, 0, 1, 0);
    ASSERT_GT(second, 0);
    ASSERT_EQ(r.engine.setRecordDuration(200), 0);
    ASSERT_EQ(r.engine.setRecordDuration(0), 0);
    ASSERT_TRUE(r.waitForFrames(uint32_t(second), 4000));
    EXPECT_EQ(endValue(r.events.events(), second), -100) << "ended without a stop";
    EXPECT_EQ(r.engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, second));
    EXPECT_GE(wavFrames(open, 1), 4000u);
}

TEST(RecordDuration, RefusedWithoutARecordingOrForANegativeLength) {
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    EXPECT_EQ(r.engine.setRecordDuration(1000), -5);
    EXPECT_EQ(r.engine.setRecordDuration(-1), -4);
}

}  // namespace
