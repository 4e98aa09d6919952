// Playback of a scan's item (scanFile), which keeps no audio: its player
// decodes the file itself. The frames it hands a "file:" output are held
// against ffmpeg's decode of the file from the seek's frame on, at every
// speed, across a pause and a seek while playing, and with no room at all
// in the working directory.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "EventRecorder.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"

namespace {

using namespace wvtest;

constexpr int kRate = 44100;

class DirectPlayTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("WAVORYX_DEVICE_PACE", "20", 1); }
    void SetUp() override {
        engine.setWorkingDir(work.prefix().c_str());
        engine.setCallback(EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override {
        engine.stopThreadLoop();
        wavoryx_set_audio_output(nullptr);
    }

    // A stereo file whose every stretch differs (two tones, a stepped
    // offset), encoded by ffmpeg as `name`; its frames as ffmpeg decodes
    // them into `decoded`. Empty when ffmpeg cannot make it.
    std::string makeFile(const std::string& name, std::vector<int16_t>* decoded) {
        std::vector<int16_t> samples;
        const std::vector<int16_t> left = makeTone(kRate, 1, 3.3, 440, 0.6);
        const std::vector<int16_t> right = makeTone(kRate, 1, 3.3, 97, 0.2);
        for (size_t i = 0; i < left.size(); ++i) {
            samples.push_back(left[i]);
            samples.push_back(int16_t(right[i] + int(i / 1000 % 3) * 300));
        }
        const std::string wav = files.file(name + ".source.wav");
        writeWav(wav, samples, kRate, 2);
        const std::string path = files.file(name);
        const std::string back = files.file(name + ".decoded.wav");
        if (!encodeWithFfmpeg(wav, path) || !runFfmpeg("-i " + shellQuote(path) + " -c:a pcm_s16le " + shellQuote(back)) ||
            !readWavSamples(back, decoded)) {
            return "";
        }
        return path;
    }
    // Scans `path` and plays its item to the end after `setup`; the samples
    // the output got.
    std::vector<int16_t> playScan(const std::string& path, const std::function<void(int)>& setup) {
        const std::string out = files.file("heard" + std::to_string(++plays) + ".wav");
        EXPECT_EQ(wavoryx_set_audio_output(("file:" + out).c_str()), 0);
        const int id = engine.scanFile(path.c_str(), nullptr, 0, 0);
        EXPECT_GT(id, 0);
        EXPECT_EQ(engine.playStart(id), 0);
        setup(id);
        EXPECT_EQ(engine.playResume(), 0);
        EXPECT_TRUE(recorder.waitForCode(WV_EVENT_PLAY_END, id));
        EXPECT_EQ(engine.playStop(), 0);
        engine.removePcm(id);  // closes the output: its WAV is finished
        std::vector<int16_t> heard;
        EXPECT_TRUE(readWavSamples(out, &heard));
        return heard;
    }
    static std::vector<int16_t> from(const std::vector<int16_t>& samples, int64_t frame) {
        return std::vector<int16_t>(samples.begin() + std::min<int64_t>(2 * frame, int64_t(samples.size())),
                                    samples.end());
    }

    EventRecorder recorder;
    TempDir files;
    TempDir work;
    Wavoryx engine;
    int plays = 0;
};

TEST_F(DirectPlayTest, HandsOutTheFilesFramesFromEverySeekAtEverySpeed) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg to encode and decode the files";
    for (const char* name : {"a.mp3", "a.flac", "a.ogg", "a.wav"}) {
        SCOPED_TRACE(name);
        std::vector<int16_t> decoded;
        const std::string path = makeFile(name, &decoded);
        ASSERT_FALSE(path.empty());
        EXPECT_EQ(playScan(path, [](int) {}), decoded);
        // 1234 ms is frame 54,419 (1234 x 44,100 / 1000): no packet starts there.
        EXPECT_EQ(playScan(path, [&](int) { EXPECT_EQ(engine.playSeekTo(1234), 0); }), from(decoded, 54419));
        EXPECT_EQ(playScan(path,
                           [&](int) {
                               EXPECT_EQ(engine.setPlaySpeed(3), 0);
                               EXPECT_EQ(engine.playSeekTo(2001), 0);
                           }),
                  from(decoded, 88244));
        // Forwards only: there is no audio to read backwards.
        EXPECT_EQ(playScan(path, [&](int) { EXPECT_EQ(engine.setPlaySpeed(-1), -4); }), decoded);
    }
    EXPECT_TRUE(namesIn(work.path()).empty());
}

TEST_F(DirectPlayTest, PausesResumesAndSeeksWhilePlaying) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg to encode and decode the file";
    std::vector<int16_t> decoded;
    const std::string path = makeFile("b.mp3", &decoded);
    ASSERT_FALSE(path.empty());
    // A pause loses and repeats nothing.
    EXPECT_EQ(playScan(path,
                       [&](int) {
                           EXPECT_EQ(engine.playResume(), 0);
                           std::this_thread::sleep_for(std::chrono::milliseconds(40));
                           EXPECT_EQ(engine.playPause(), 0);
                           const int at = engine.getPlayPositionMs();
                           std::this_thread::sleep_for(std::chrono::milliseconds(60));
                           EXPECT_EQ(engine.getPlayPositionMs(), at);
                       }),
              decoded);
    // A seek while playing: what was played before it is a start of the
    // file, and what follows is the file from the target's frame, exactly.
    const std::vector<int16_t> heard = playScan(path, [&](int) {
        EXPECT_EQ(engine.playResume(), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(engine.playSeekTo(2500), 0);
    });
    const std::vector<int16_t> tail = from(decoded, 110250);
    ASSERT_GE(heard.size(), tail.size());
    const size_t before = heard.size() - tail.size();
    EXPECT_TRUE(std::equal(tail.begin(), tail.end(), heard.begin() + before));
    EXPECT_TRUE(std::equal(heard.begin(), heard.begin() + before, decoded.begin()));
}

TEST_F(DirectPlayTest, NeedsNoWorkingSpace) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg to encode and decode the file";
    SmallFilesystem small(64 * 1024);
    if (!small.mounted()) GTEST_SKIP() << small.skipReason();
    std::vector<int16_t> decoded;
    const std::string path = makeFile("c.mp3", &decoded);
    ASSERT_FALSE(path.empty());
    small.fill("ballast");
    engine.setWorkingDir(small.prefix().c_str());
    EXPECT_EQ(playScan(path, [&](int) { EXPECT_EQ(engine.playSeekTo(700), 0); }), from(decoded, 30870));
    EXPECT_EQ(namesIn(small.path()), std::set<std::string>{"ballast"});
}

}  // namespace
