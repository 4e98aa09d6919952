// Files taken away under running jobs: the working directory removed while a
// load and a recording write into it, and a source file truncated or
// replaced while it is decoded or read in place. Every job ends exactly
// once; an output that could not be finished is not left behind.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "FaultRig.h"
#include "TestSupport.h"

namespace {

using faulttest::Event;
using faulttest::FaultEngine;

class VanishingFiles : public ::testing::Test {
protected:
    void SetUp() override {
        if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
        // A minute of stereo: its decoding outlasts the test's reaction.
        ASSERT_TRUE(wvtest::writeToneWav(dir.file("long.wav"), 44100, 2, 60.0, 440));
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir.file("long.wav"), dir.file("long.flac")));
        ASSERT_TRUE(wvtest::writeToneWav(dir.file("other.wav"), 8000, 1, 0.5, 300));
    }

    // A render of all of item `source` into `out` ends once; a finished
    // output is a whole WAV file, an unfinished one is gone.
    static void expectRenderEndsOnce(FaultEngine& engine, int source, const std::string& out) {
        const int list = engine.renderAll(source, out, ENCODE_WAV);
        ASSERT_GT(list, 0);
        const std::vector<Event> ends = engine.endingsOf(list, faulttest::kRenderEndings);
        ASSERT_EQ(ends.size(), 1u);
        if (ends[0].code == 22) {
            std::vector<int16_t> samples;
            ASSERT_TRUE(wvtest::readWavSamples(out, &samples));
            EXPECT_EQ(samples.size(), size_t(engine.api.getPcmFrameLength(list)) * 2);
        } else {
            EXPECT_FALSE(wvtest::fileExists(out)) << "render ended with " << ends[0].code;
        }
    }

    wvtest::TempDir dir;
};

TEST_F(VanishingFiles, WorkingDirectoryRemovedUnderALoadAndARecording) {
    const std::string work = dir.file("work");
    ASSERT_EQ(mkdir(work.c_str(), 0700), 0);
    FaultEngine engine(work + "/");
    engine.api.setThreadPriority(WV_PRIORITY_LOW);
    const int load = engine.api.loadFile(dir.file("long.flac").c_str());
    const int recording = engine.api.recordStart("", ENCODE_WAV, 8000, 1, 0, 0, 0);
    ASSERT_GT(load, 0);
    ASSERT_GT(recording, 0);
    ASSERT_TRUE(engine.events.waitForCode(6, load));
    ASSERT_TRUE(engine.events.waitForCode(61, recording));
    ASSERT_EQ(std::system(("rm -rf " + wvtest::shellQuote(work)).c_str()), 0);

    EXPECT_EQ(engine.endingsOf(load, faulttest::kLoadEndings).size(), 1u);
    ASSERT_EQ(engine.api.recordStop(), 0);
    EXPECT_EQ(engine.endingsOf(recording, faulttest::kRecordEndings).size(), 1u);
    // Outputs named after the working directory cannot be made any more.
    const int list = engine.renderAll(recording, "", ENCODE_WAV);
    ASSERT_GT(list, 0);
    const std::vector<Event> ends = engine.endingsOf(list, faulttest::kRenderEndings);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0], (Event{20, list, -1}));
    for (int id : {list, recording, load}) EXPECT_EQ(engine.api.removePcm(id), id);
    EXPECT_FALSE(wvtest::fileExists(work));
}

TEST_F(VanishingFiles, SourceTruncatedWhileItIsDecoded) {
    FaultEngine engine(dir.prefix());
    engine.api.setThreadPriority(WV_PRIORITY_LOW);
    const std::string source = dir.file("long.flac");
    const long long size = wvtest::fileSize(source);
    const int id = engine.api.loadFile(source.c_str());
    ASSERT_TRUE(engine.events.waitForCode(6, id));
    ASSERT_EQ(truncate(source.c_str(), size / 3), 0);
    const std::vector<Event> ends = engine.endingsOf(id, faulttest::kLoadEndings);
    ASSERT_EQ(ends.size(), 1u);
    if (ends[0].code != 4) return;  // refused outright: nothing more to check
    EXPECT_LE(engine.api.getPcmFrameLength(id), 60 * 44100);
    expectRenderEndsOnce(engine, id, dir.file("out.wav"));
}

TEST_F(VanishingFiles, SourceReplacedWhileItIsDecodedKeepsTheFirstContent) {
    FaultEngine engine(dir.prefix());
    engine.api.setThreadPriority(WV_PRIORITY_LOW);
    const std::string source = dir.file("long.flac");
    const int id = engine.api.loadFile(source.c_str());
    ASSERT_TRUE(engine.events.waitForCode(6, id));
    ASSERT_EQ(std::rename(dir.file("other.wav").c_str(), source.c_str()), 0);
    const std::vector<Event> ends = engine.endingsOf(id, faulttest::kLoadEndings);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].code, 4);
    EXPECT_EQ(engine.api.getPcmFrameLength(id), 60 * 44100);
    EXPECT_EQ(engine.api.getPcmSampleRate(id), 44100);
}

// A canonical WAV is read in place long after its load: cut short or
// swapped for another file, its reads come up short or read other bytes.
TEST_F(VanishingFiles, InPlaceSourceCutShortOrSwappedAfterItsLoad) {
    for (bool swap : {false, true}) {
        SCOPED_TRACE(swap ? "swapped" : "cut short");
        FaultEngine engine(dir.prefix());
        const std::string source = dir.file("inplace.wav");
        ASSERT_TRUE(wvtest::writeToneWav(source, 8000, 2, 4.0, 440));
        const int id = engine.loaded(source);
        ASSERT_GT(id, 0);
        if (swap) {
            ASSERT_TRUE(wvtest::writeToneWav(dir.file("swap.wav"), 44100, 1, 0.2, 300));
            ASSERT_EQ(std::rename(dir.file("swap.wav").c_str(), source.c_str()), 0);
        } else {
            ASSERT_EQ(truncate(source.c_str(), 44 + 8000), 0);
        }
        std::vector<uint8_t> peaks(400);
        EXPECT_EQ(engine.api.getWaveformSamples(id, 0, 4000, 400, peaks.data()), 400);
        expectRenderEndsOnce(engine, id, dir.file(swap ? "swapped.wav" : "short.wav"));
        ASSERT_EQ(engine.api.playStart(id), 0);
        ASSERT_EQ(engine.api.playResume(), 0);
        EXPECT_EQ(engine.endingsOf(id, {40, 42}).size(), 1u);
        engine.api.playStop();
    }
}

}  // namespace
