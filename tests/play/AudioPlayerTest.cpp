// The audio player on an output whose time the test moves by hand: what it
// hands out, where its clock says it is, and how its inputs end.
#include "play/AudioPlayer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "PlayTestSupport.h"

namespace {

using namespace wv;
using wvtest::HandDevice;

constexpr int kRate = 8000;
constexpr size_t kQueueFrames = 1024;

class AudioPlayerTest : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override { engine.stopThreadLoop(); }

    // A started (paused) player on the item, its output on a HandDevice.
    AudioPlayer* playerFor(SPcmInfo* item) {
        auto* player = new AudioPlayer(engine.events());
        item->player.reset(player);
        player->setOutputFactory(wvtest::handOutput(&device, kQueueFrames));
        EXPECT_EQ(player->setDataSource(item->path.get().c_str()), 0);
        player->setReader(item, std::unique_ptr<PcmInfoReader>(new PcmInfoReader(item)));
        EXPECT_EQ(player->start(true), 0);
        return player;
    }
    // Lets `us` of device time pass, then waits until the output has
    // refilled its queue (or the player has nothing more to give).
    void play(AudioPlayer* player, int64_t us) {
        device->advance(us);
        AudioOutput* out = player->output();
        if (player->flags() != AudioPlayer::PLAYING) return;
        wvtest::waitUntil(
            [&] { return out->stopped() || out->framesQueued() + out->notificationFrames() > out->frameCount(); },
            std::chrono::milliseconds(500));
    }
    // The media time of the next frame the device takes, in ms.
    double truthMs(AudioPlayer* player) {
        const std::vector<int16_t> handed = device->handed();
        const uint64_t next = player->output()->framesPresented();
        if (next * 2 + 1 >= handed.size()) return -1;
        return double(wvtest::markOf(&handed[next * 2])) * 1000.0 / kRate;
    }
    static int endEvents(const std::vector<wvtest::Event>& seen, pcm_id_t id) {
        int count = 0;
        for (const auto& e : seen) count += e.code == 42 && e.id == int(id);
        return count;
    }
    int endEvents(pcm_id_t id) const { return endEvents(events.events(), id); }
    int count(int code, pcm_id_t id) const {
        int n = 0;
        for (const auto& e : events.events()) n += e.code == code && e.id == int(id);
        return n;
    }

    wvtest::EventRecorder events;
    wvtest::TempDir dir;
    WavoryxPriv engine;
    HandDevice* device = nullptr;
};

TEST_F(AudioPlayerTest, ControlCallsOutsideTheirStatesAreRefused) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 800);
    AudioPlayer bare(engine.events());
    wvtest::LogCapture log;
    EXPECT_EQ(bare.start(true), -1);
    EXPECT_TRUE(log.contains("start, no media source when start()"));
    EXPECT_EQ(bare.resume(), -1);
    EXPECT_EQ(bare.setPlaybackRatePermille(2000), AudioOutput::NO_INIT);
    EXPECT_EQ(bare.setDataSource(dir.file("missing.wav").c_str()), -1);
    EXPECT_TRUE(log.contains("could not create datasource for " + dir.file("missing.wav")));

    AudioPlayer prepared(engine.events());
    ASSERT_EQ(prepared.setDataSource(item->path.get().c_str()), 0);
    EXPECT_EQ(prepared.setDataSource(item->path.get().c_str()), -1);  // one source per life
    EXPECT_EQ(prepared.pause(false), 0);                              // Prepared counts as paused

    AudioPlayer* player = playerFor(item);
    EXPECT_EQ(player->pause(false), 0);
    player->resume();
    EXPECT_EQ(player->start(true), 0) << "start on a playing player";
    player->pause(false);
    EXPECT_EQ(player->setPlaybackRatePermille(0), AudioOutput::BAD_VALUE);
    EXPECT_EQ(player->setPlaybackRatePermille(5000), AudioOutput::BAD_VALUE);
    EXPECT_EQ(player->setPlaybackRatePermille(4000), 0);
    EXPECT_EQ(player->setPlaybackRatePermille(-4000), 0);
    EXPECT_EQ(player->output()->getSampleRate(), uint32_t(4 * kRate));
}

TEST_F(AudioPlayerTest, PositionIsTheSeekTargetUntilTheFirstFill) {
    AudioPlayer* player = playerFor(wvtest::addMarkedItem(engine, dir, kRate, 16000));
    EXPECT_EQ(player->getMediaTimeUs(), 0);
    player->seekTo(1234000);
    EXPECT_TRUE(player->isSeeking());
    EXPECT_EQ(player->getMediaTimeUs(), 1234000);
    int64_t outputUs, mediaUs;
    EXPECT_FALSE(player->getMediaTimeMapping(&outputUs, &mediaUs));
    player->resume();
    play(player, 0);
    EXPECT_FALSE(player->isSeeking());
    EXPECT_EQ(player->getMediaTimeUs(), 1234000);  // nothing presented yet
    play(player, 100000);
    EXPECT_NEAR(player->getMediaTimeUs(), 1334000, 1000);
    const std::vector<int64_t> marks = wvtest::marksOf(device->handed());
    ASSERT_FALSE(marks.empty());
    EXPECT_EQ(marks.front(), 1234 * kRate / 1000);
}

// The position against the frame the device takes next, at every speed,
// after a change of speed in the middle of playback has played out.
TEST_F(AudioPlayerTest, PositionFollowsThePresentedFramesAtEverySpeed) {
    for (int speed : {-4, -3, -2, -1, 1, 2, 3, 4}) {
        SCOPED_TRACE(speed);
        AudioPlayer* player = playerFor(wvtest::addMarkedItem(engine, dir, kRate, 30 * kRate));
        player->seekTo(12000000);
        player->resume();
        play(player, 0);
        for (int i = 0; i < 10; ++i) play(player, 10000);
        player->setPlaybackRatePermille(speed * 1000);
        // The frames queued before the change play out first.
        for (int i = 0; i < 30; ++i) play(player, 10000);
        double worst = 0;
        for (int i = 0; i < 30; ++i) {
            play(player, 10000);
            const double truth = truthMs(player);
            ASSERT_GE(truth, 0);
            worst = std::max(worst, std::abs(player->getMediaTimeUs() / 1000.0 - truth));
        }
        EXPECT_LT(worst, 50.0);
        player->pause(false);
    }
}

TEST_F(AudioPlayerTest, PauseFreezesThePositionAndResumeGoesOn) {
    AudioPlayer* player = playerFor(wvtest::addMarkedItem(engine, dir, kRate, 8 * kRate));
    player->resume();
    play(player, 0);
    for (int i = 0; i < 4; ++i) play(player, 50000);
    player->pause(false);
    const int64_t paused = player->getMediaTimeUs();
    EXPECT_NEAR(paused, 200000, 1000);
    play(player, 300000);
    EXPECT_EQ(player->getMediaTimeUs(), paused);
    EXPECT_EQ(player->pause(false), 0);
    player->resume();
    for (int i = 0; i < 2; ++i) play(player, 50000);
    EXPECT_NEAR(player->getMediaTimeUs(), 300000, 1000);
    // The stream handed out has no gap and no repeat.
    const std::vector<int64_t> marks = wvtest::marksOf(device->handed());
    EXPECT_EQ(marks, wvtest::range(0, int64_t(marks.size())));
}

TEST_F(AudioPlayerTest, EndOfTheReaderPinsThePositionPostsOneEventThenSilence) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4000);
    AudioPlayer* player = playerFor(item);
    EXPECT_TRUE(player->usingReader());
    player->resume();
    play(player, 0);
    for (int i = 0; i < 12; ++i) play(player, 100000);
    int32_t status = 1;
    EXPECT_TRUE(player->reachedEOS(&status));
    EXPECT_EQ(status, 0);
    ASSERT_TRUE(events.waitForCode(42, int(item->id)));
    EXPECT_EQ(player->getMediaTimeUs(), 500000);  // the last frame's end
    EXPECT_EQ(wvtest::marksOf(device->handed()), wvtest::range(0, 4000));
    // The engine stopped the player on the event; a resume plays silence.
    player->resume();
    for (int i = 0; i < 5; ++i) play(player, 100000);
    EXPECT_EQ(wvtest::marksOf(device->handed()).size(), 4000u);
    EXPECT_EQ(endEvents(item->id), 1);
    // A seek makes it play again.
    player->seekTo(250000);
    for (int i = 0; i < 5; ++i) play(player, 100000);
    const std::vector<int64_t> marks = wvtest::marksOf(device->handed());
    EXPECT_EQ(std::vector<int64_t>(marks.begin() + 4000, marks.end()), wvtest::range(2000, 4000));
    ASSERT_TRUE(events.waitFor([&](const std::vector<wvtest::Event>& seen) { return endEvents(seen, item->id) == 2; }));
}

TEST_F(AudioPlayerTest, BackwardsPlayEndsAtTheFirstFrame) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 8000);
    AudioPlayer* player = playerFor(item);
    ASSERT_TRUE(player->canPlayBackwards());
    player->setPlaybackRatePermille(-1000);
    player->seekTo(375000);
    player->resume();
    play(player, 0);
    for (int i = 0; i < 6; ++i) play(player, 100000);
    ASSERT_TRUE(events.waitForCode(42, int(item->id)));
    std::vector<int64_t> expected = wvtest::range(0, 3000);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(wvtest::marksOf(device->handed()), expected);
    EXPECT_EQ(player->getMediaTimeUs(), 0);
}

// Caught up with the load, the player holds: nothing but the item's frames
// reaches the output (the device plays its own silence), the position stays
// at the last frame handed, and events 43 and 44 bracket the wait.
TEST_F(AudioPlayerTest, AGrowingItemIsWaitedForHoldingThePositionAndPlayedToItsEnd) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 8000, DECODING, 2000);
    AudioPlayer* player = playerFor(item);
    EXPECT_TRUE(player->usingReader());
    wvtest::LogCapture log;
    player->resume();
    play(player, 0);
    for (int i = 0; i < 10 && count(43, item->id) == 0; ++i) play(player, 100000);
    ASSERT_TRUE(events.waitForCode(43, int(item->id)));
    for (int i = 0; i < 5; ++i) device->advance(100000);
    EXPECT_TRUE(log.contains("pcm play need more data!"));
    EXPECT_EQ(device->handed().size(), 2u * 2000) << "silence was handed while waiting";
    EXPECT_EQ(wvtest::marksOf(device->handed()), wvtest::range(0, 2000));
    EXPECT_EQ(player->getMediaTimeUs(), 250000) << "the position moved on while waiting";
    item->frames = 5000;
    ASSERT_TRUE(events.waitForCode(44, int(item->id)));
    for (int i = 0; i < 5; ++i) play(player, 100000);
    item->frames = 8000;
    item->status = PCM_READY;
    for (int i = 0; i < 10 && endEvents(item->id) == 0; ++i) play(player, 100000);
    ASSERT_TRUE(events.waitForCode(42, int(item->id)));
    for (int i = 0; i < 3; ++i) device->advance(100000);
    const std::vector<int16_t> handed = device->handed();
    EXPECT_EQ(handed.size(), 2u * 8000);
    EXPECT_EQ(wvtest::marksOf(handed), wvtest::range(0, 8000));
    EXPECT_EQ(endEvents(item->id), 1);
    // Each wait has its resumption; the first wait has its value, the
    // position in ms where the data ran out.
    int waits = 0, resumes = 0;
    for (const auto& e : events.events()) {
        if (e.id != int(item->id)) continue;
        if (e.code == 43 && waits++ == 0) {
            EXPECT_EQ(e.value, 250);
        }
        resumes += e.code == 44;
    }
    EXPECT_GE(waits, 2);
    EXPECT_EQ(resumes, waits);
}

// Whatever records the output (a "file:" WAV) gets exactly the frames
// played: nothing past the end, however long the output runs on before it
// is stopped, at any speed and in either direction.
TEST_F(AudioPlayerTest, NothingIsHandedPastTheEndAtAnySpeed) {
    for (int speed : {1, 2, 4, -1, -3}) {
        SCOPED_TRACE(speed);
        SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 3000);
        AudioPlayer* player = playerFor(item);
        player->setPlaybackRatePermille(speed * 1000);
        if (speed < 0) player->seekTo(300000);  // backwards from 0.3 s
        player->resume();
        play(player, 0);
        for (int i = 0; i < 10 && endEvents(item->id) == 0; ++i) play(player, 100000);
        ASSERT_TRUE(events.waitForCode(42, int(item->id)));
        // The engine's stop on the event comes later; the output runs on.
        for (int i = 0; i < 5; ++i) device->advance(100000);
        std::vector<int64_t> expected = wvtest::range(0, speed > 0 ? 3000 : 2400);
        if (speed < 0) std::reverse(expected.begin(), expected.end());
        const std::vector<int16_t> handed = device->handed();
        EXPECT_EQ(handed.size(), expected.size() * 2) << "silence was handed after the end";
        EXPECT_EQ(wvtest::marksOf(handed), expected);
    }
}

// A seek into the loaded part of an item still loading plays from there on
// and follows the item as it grows, to its real end, not to where the data
// ended when playback began.
TEST_F(AudioPlayerTest, ASeekIntoAGrowingItemPlaysOnToItsRealEnd) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 16000, DECODING, 5000);
    AudioPlayer* player = playerFor(item);
    player->seekTo(500000);
    player->resume();
    play(player, 0);
    EXPECT_TRUE(player->usingReader());
    for (int i = 0; i < 3; ++i) play(player, 100000);
    item->frames = 12000;
    for (int i = 0; i < 5; ++i) play(player, 100000);
    EXPECT_EQ(endEvents(item->id), 0) << "ended where the data ended for a while";
    item->frames = 16000;
    item->status = PCM_READY;
    for (int i = 0; i < 10 && endEvents(item->id) == 0; ++i) play(player, 100000);
    ASSERT_TRUE(events.waitForCode(42, int(item->id)));
    for (int i = 0; i < 3; ++i) device->advance(100000);
    EXPECT_EQ(wvtest::marksOf(device->handed()), wvtest::range(4000, 16000));
    EXPECT_EQ(player->getMediaTimeUs(), 2000000);
}

TEST_F(AudioPlayerTest, MediaFileServesWhatThePcmDataDoesNotReachYet) {
    // Nothing decoded yet: the file plays from the start to its end.
    SPcmInfo* loading = wvtest::addMarkedItem(engine, dir, kRate, 6000, ENCODED_FILE, 0);
    AudioPlayer* player = playerFor(loading);
    EXPECT_FALSE(player->usingReader());
    player->resume();
    play(player, 0);
    for (int i = 0; i < 10; ++i) play(player, 100000);
    ASSERT_TRUE(events.waitForCode(42, int(loading->id)));
    EXPECT_EQ(wvtest::marksOf(device->handed()), wvtest::range(0, 6000));
    int32_t status = 0;
    EXPECT_TRUE(player->reachedEOS(&status));
    EXPECT_EQ(status, ERROR_END_OF_STREAM);

    // A seek past the decoded part goes to the file, one before it to the
    // PCM data.
    SPcmInfo* partial = wvtest::addMarkedItem(engine, dir, kRate, 8000, DECODING, 1000);
    player = playerFor(partial);
    EXPECT_TRUE(player->usingReader());
    player->seekTo(500000);
    player->resume();
    play(player, 0);
    EXPECT_FALSE(player->usingReader());
    play(player, 50000);
    std::vector<int64_t> marks = wvtest::marksOf(device->handed());
    ASSERT_FALSE(marks.empty());
    EXPECT_EQ(marks.front(), 4000);
    EXPECT_EQ(marks, wvtest::range(4000, 4000 + int64_t(marks.size())));
    player->seekTo(50000);
    play(player, 0);
    EXPECT_TRUE(player->usingReader());
}

TEST_F(AudioPlayerTest, FormatsThatDisagreePlayThePcmDataOnly) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4000);
    item->sampleRate = 2 * kRate;  // the PCM data says 16 kHz, the file 8 kHz
    AudioPlayer* player = playerFor(item);
    EXPECT_EQ(player->output()->getSampleRate(), uint32_t(2 * kRate));
    player->seekTo(100000000);  // far past the data: still the PCM data
    player->resume();
    play(player, 0);
    EXPECT_TRUE(player->usingReader());
}

TEST_F(AudioPlayerTest, ARecordingWhoseFileDisagreesPlaysTheFileToItsEnd) {
    // A low-bit-rate MP3 recording is resampled by its encoder: the item
    // says 16 kHz, the file holds 8 kHz, and there is no PCM data to fall
    // back on. The file must play, and end.
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4000, RECORDING);
    item->sampleRate = 2 * kRate;
    AudioPlayer* player = playerFor(item);
    EXPECT_EQ(player->output()->getSampleRate(), uint32_t(kRate));
    player->seekTo(250000);
    player->resume();
    play(player, 0);
    for (int i = 0; i < 6; ++i) play(player, 100000);
    EXPECT_FALSE(player->usingReader());
    ASSERT_TRUE(events.waitForCode(42, int(item->id)));
    EXPECT_EQ(wvtest::marksOf(device->handed()), wvtest::range(2000, 4000));
    EXPECT_EQ(endEvents(item->id), 1);
}

TEST_F(AudioPlayerTest, AnUnreadablePcmFileEndsTheInput) {
    SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4000);
    item->pcmPath.set(dir.file("gone.pcm"));
    AudioPlayer* player = playerFor(item);
    player->resume();
    play(player, 0);
    ASSERT_TRUE(events.waitForCode(42, int(item->id)));
    for (int i = 0; i < 3; ++i) play(player, 100000);
    EXPECT_TRUE(wvtest::marksOf(device->handed()).empty());
    EXPECT_EQ(endEvents(item->id), 1);
}

}  // namespace
