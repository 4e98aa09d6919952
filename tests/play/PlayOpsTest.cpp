// The engine's play controls, playing to "file:" outputs at a fast pace:
// the recorded output is compared with the item's frames.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include <wavoryx/platform.h>

#include "PlayTestSupport.h"

namespace {

using namespace wv;

constexpr int kRate = 8000;

class PlayOpsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("WAVORYX_DEVICE_PACE", "20", 1); }
    void SetUp() override {
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override {
        engine.stopThreadLoop();
        wavoryx_set_audio_output(nullptr);
    }
    // Sends the next output to a WAV file of its own; returns its path.
    std::string recordOutput(const std::string& name) {
        const std::string path = dir.file(name + ".out.wav");
        EXPECT_EQ(wavoryx_set_audio_output(("file:" + path).c_str()), 0);
        return path;
    }
    // Releases the item (which finishes its output file) and returns the
    // marks of the frames that were played.
    std::vector<int64_t> playedMarks(pcm_id_t id, const std::string& wav) {
        engine.removePcm(id);
        std::vector<int16_t> samples;
        EXPECT_TRUE(wvtest::readWavSamples(wav, &samples));
        return wvtest::marksOf(samples);
    }
    int count(int code, pcm_id_t id) {
        int n = 0;
        for (const auto& e : events.events()) n += e.code == code && e.id == int(id);
        return n;
    }
    // Plays the item after `setup` to its end; the marks played.
    std::vector<int64_t> playToEnd(SPcmInfo* item, const std::function<void()>& setup) {
        const std::string wav = recordOutput(std::to_string(item->id));
        const pcm_id_t id = item->id;
        EXPECT_EQ(engine.playStart(id), 0);
        setup();
        EXPECT_EQ(engine.playResume(0), 0);
        EXPECT_TRUE(events.waitForCode(42, int(id)));
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        EXPECT_EQ(count(42, id), 1);
        return playedMarks(id, wav);
    }

    wvtest::EventRecorder events;
    wvtest::TempDir dir;
    WavoryxPriv engine;
};

TEST_F(PlayOpsTest, PlaysTheItemsFramesInOrderWholeSoughtFastAndBackwards) {
    const uint32_t frames = kRate;
    SPcmInfo* whole = wvtest::addMarkedItem(engine, dir, kRate, frames);
    EXPECT_EQ(playToEnd(whole, [&] { EXPECT_EQ(engine.getPlayPositionMs(), 0); }), wvtest::range(0, frames));

    SPcmInfo* sought = wvtest::addMarkedItem(engine, dir, kRate, frames);
    EXPECT_EQ(playToEnd(sought,
                        [&] {
                            EXPECT_EQ(engine.playSeekTo(250), 0);
                            EXPECT_EQ(engine.getPlayPositionMs(), 250);
                        }),
              wvtest::range(2000, frames));

    SPcmInfo* fast = wvtest::addMarkedItem(engine, dir, kRate, frames);
    EXPECT_EQ(playToEnd(fast, [&] { EXPECT_EQ(engine.setPlaySpeed(2), 0); }), wvtest::range(0, frames));

    SPcmInfo* backwards = wvtest::addMarkedItem(engine, dir, kRate, frames);
    std::vector<int64_t> reversed = wvtest::range(0, 4000);
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(playToEnd(backwards,
                        [&] {
                            EXPECT_EQ(engine.setPlaySpeed(-1), 0);
                            EXPECT_EQ(engine.playSeekTo(500), 0);
                        }),
              reversed);
}

TEST_F(PlayOpsTest, ControlsWithoutACurrentItemReportItAndChangeNothing) {
    wvtest::LogCapture log;
    EXPECT_EQ(engine.playPause(0), -1);
    EXPECT_EQ(engine.playResume(0), -1);
    EXPECT_EQ(engine.playSeekTo(10), -1);
    EXPECT_EQ(engine.setPlaySpeed(2), -1);
    EXPECT_EQ(engine.getPlayPositionMs(), -1);
    EXPECT_EQ(engine.playStop(0), -1);
    EXPECT_TRUE(log.contains("line 662 in int32_t WavoryxPriv::playResume(pcm_id_t):"));
    EXPECT_TRUE(log.contains("line 709 in int32_t WavoryxPriv::getPlayPositionMs():"));
    EXPECT_TRUE(log.contains("error: pcm 0 doesn't exist"));

    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, kRate);
    recordOutput("a");
    ASSERT_EQ(engine.playStart(item->id), 0);
    EXPECT_EQ(engine.playStart(999), -1);
    EXPECT_EQ(engine.mPlayingId.load(), item->id);  // unchanged by the failure
    EXPECT_EQ(engine.playStop(0), 0);
    EXPECT_EQ(engine.playStop(0), -1);
}

TEST_F(PlayOpsTest, AClipListWithoutOutputFailsToStartWithEvent40) {
    const int32_t list = engine.newClipList();
    ASSERT_GT(list, 0);
    wvtest::LogCapture log;
    EXPECT_EQ(engine.playStart(pcm_id_t(list)), -14);
    EXPECT_TRUE(log.contains("setDataSource error"));
    EXPECT_EQ(engine.mPlayingId.load(), 0u);
    ASSERT_TRUE(events.waitForCode(40, list));
    EXPECT_EQ(engine.playResume(0), -1);
}

TEST_F(PlayOpsTest, SpeedsThatWouldPlayOnlySilenceAreRefused) {
    SPcmInfo* recording = wvtest::addMarkedItem(engine, dir, kRate, kRate / 2, RECORDING);
    recording->pcmPath.set("");
    const std::string wav = recordOutput("rec");
    ASSERT_EQ(engine.playStart(recording->id), 0);
    EXPECT_EQ(engine.setPlaySpeed(0), -4);
    EXPECT_EQ(engine.setPlaySpeed(-1), -4);
    // A recording plays forwards from its file, to its end.
    EXPECT_EQ(engine.playResume(0), 0);
    ASSERT_TRUE(events.waitForCode(42, int(recording->id)));
    EXPECT_EQ(playedMarks(recording->id, wav), wvtest::range(0, kRate / 2));
}

TEST_F(PlayOpsTest, PauseFreezesThePositionAndRestartRewinds) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 20 * kRate);
    recordOutput("pause");
    ASSERT_EQ(engine.playStart(item->id), 0);
    ASSERT_EQ(engine.playResume(0), 0);
    ASSERT_TRUE(wvtest::waitUntil([&] { return engine.getPlayPositionMs() > 300; }, std::chrono::seconds(10)));
    EXPECT_EQ(engine.playPause(0), 0);
    const int32_t paused = engine.getPlayPositionMs();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(engine.getPlayPositionMs(), paused);
    // A new start rewinds to 0 at normal speed and keeps it paused.
    EXPECT_EQ(engine.setPlaySpeed(3), 0);
    EXPECT_EQ(engine.playStart(item->id), 0);
    EXPECT_EQ(engine.getPlayPositionMs(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(engine.getPlayPositionMs(), 0);
}

// Played the moment its load starts, a lossless file is heard whole and in
// order, whichever of the media file and the PCM data serves each part.
TEST_F(PlayOpsTest, AFileStillLoadingPlaysWholeAndInOrder) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg is not installed";
    const uint32_t frames = 3 * kRate;
    const std::string wav = dir.file("marked.wav");
    const std::string flac = dir.file("marked.flac");
    wvtest::writeWav(wav, wvtest::markedFrames(frames), kRate, 2);
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, flac, "-c:a flac"));
    ASSERT_EQ(engine.setWorkingDir(dir.path().c_str()), 0);

    const int32_t id = engine.loadFile(flac.c_str());
    ASSERT_GT(id, 0);
    const std::string out = recordOutput("loading");
    ASSERT_EQ(engine.playStart(pcm_id_t(id)), 0);
    ASSERT_EQ(engine.playResume(0), 0);
    ASSERT_TRUE(events.waitForCode(42, id));
    ASSERT_TRUE(events.waitForCode(4, id));
    EXPECT_EQ(playedMarks(pcm_id_t(id), out), wvtest::range(0, frames));
}

// A load slower than the output (the test grows the item only once the
// player has caught up): the player holds instead of playing silence, so
// the "file:" output holds every frame once, in order, and nothing else.
TEST_F(PlayOpsTest, CatchingUpWithASlowLoadHoldsAndTheOutputGetsExactlyTheFrames) {
    const uint32_t frames = 4 * kRate;
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, frames, DECODING, kRate / 2);
    const pcm_id_t id = item->id;
    const std::string out = recordOutput("slow");
    ASSERT_EQ(engine.playStart(id), 0);
    ASSERT_EQ(engine.playResume(0), 0);
    int waits = 0;
    for (uint32_t present : {kRate, 2 * kRate, 3 * kRate}) {
        ASSERT_TRUE(wvtest::waitUntil([&] { return count(43, id) > waits; }, std::chrono::seconds(20)));
        ++waits;
        item->frames = present;
    }
    ASSERT_TRUE(wvtest::waitUntil([&] { return count(43, id) > waits; }, std::chrono::seconds(20)));
    item->frames = frames;
    item->status = PCM_READY;
    ASSERT_TRUE(events.waitForCode(42, int(id)));
    EXPECT_EQ(count(44, id), count(43, id));
    engine.removePcm(id);
    std::vector<int16_t> samples;
    ASSERT_TRUE(wvtest::readWavSamples(out, &samples));
    EXPECT_EQ(samples.size(), size_t(frames) * 2) << "silence was played while waiting";
    EXPECT_TRUE(samples == wvtest::markedFrames(frames));
}

// Controls from one thread while the output's thread fills: no race, no
// deadlock, and the engine still answers afterwards.
TEST_F(PlayOpsTest, ControlsRaceTheOutputThreadSafely) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4 * kRate);
    SPcmInfo* other = wvtest::addMarkedItem(engine, dir, kRate, kRate);
    wavoryx_set_audio_output("null");
    wvtest::LogCapture quiet;
    std::mt19937 random(7);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    int operations = 0;
    while (std::chrono::steady_clock::now() < end) {
        const pcm_id_t id = random() % 4 == 0 ? other->id : item->id;
        switch (random() % 8) {
            case 0: engine.playStart(id); break;
            case 1: engine.playResume(0); break;
            case 2: engine.playPause(0); break;
            case 3: engine.playSeekTo(int32_t(random() % 5000)); break;
            case 4: engine.setPlaySpeed(int32_t(random() % 9) - 4); break;
            case 5: engine.getPlayPositionMs(); break;
            case 6: engine.playStop(random() % 2 ? 0 : id); break;
            default: std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        }
        ++operations;
    }
    EXPECT_GT(operations, 100);
    EXPECT_EQ(engine.playStart(item->id), 0);
    EXPECT_GE(engine.getPlayPositionMs(), 0);
}

}  // namespace
