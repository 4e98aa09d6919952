// Releasing items while they play: the output thread reads the item (and,
// for a clip list, the list's sources) until the player is destroyed, so the
// release must stop the player before it frees anything the player reads;
// and a play control must not find an item that another thread is freeing.
// Races here show as reports under ThreadSanitizer and AddressSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <wavoryx/platform.h>

#include "PlayTestSupport.h"

namespace {

using namespace wv;

constexpr int kRate = 8000;

class RemoveWhilePlayingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("WAVORYX_DEVICE_PACE", "20", 1); }
    void SetUp() override {
        wavoryx_set_audio_output("null");
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override {
        engine.stopThreadLoop();
        wavoryx_set_audio_output(nullptr);
    }
    static void pause(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

    wvtest::EventRecorder events;
    wvtest::TempDir dir;
    WavoryxPriv engine;
};

TEST_F(RemoveWhilePlayingTest, AnItemRemovedMidPlayStopsAndGoes) {
    for (int round = 0; round < 10; ++round) {
        SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4 * kRate);
        const pcm_id_t id = item->id;
        const std::string pcm = item->pcmPath.get();
        ASSERT_EQ(engine.playStart(id), 0);
        ASSERT_EQ(engine.playResume(0), 0);
        pause(5 + round * 3);
        EXPECT_EQ(engine.playSeekTo(1000), 0);
        EXPECT_EQ(engine.removePcm(id), id);
        EXPECT_FALSE(wvtest::fileExists(pcm));
        // The current item is gone: controls report it, nothing plays on.
        EXPECT_EQ(engine.playResume(0), -1);
        EXPECT_EQ(engine.playStop(0), -1);
    }
}

TEST_F(RemoveWhilePlayingTest, AListAndItsSourcesRemovedMidPlay) {
    for (int round = 0; round < 10; ++round) {
        SPcmInfo* a = wvtest::addMarkedItem(engine, dir, kRate, 2 * kRate);
        SPcmInfo* b = wvtest::addMarkedItem(engine, dir, kRate, 2 * kRate);
        const pcm_id_t list = engine.newClipList();
        ASSERT_EQ(engine.addClip(list, a->id, 0, 2 * kRate), 1);
        ASSERT_EQ(engine.addClip(list, b->id, 0, 2 * kRate), 2);
        // Played from its clips: the list's frames count as rendered, and its
        // path names audio of the same format for the player to open.
        SPcmInfo* item = engine.getPcmInfo(list, REF_NONE);
        ASSERT_NE(item, nullptr);
        item->sampleRate = kRate;
        item->channelCount = 2;
        item->frames = 4 * kRate;
        item->totalFrames = 4 * kRate;
        item->path.set(a->path.get());
        ASSERT_EQ(engine.playStart(list), 0);
        ASSERT_EQ(engine.playResume(0), 0);
        pause(5 + round * 3);
        EXPECT_EQ(engine.removePcm(a->id), a->id);
        EXPECT_EQ(engine.removePcm(b->id), b->id);  // the list still holds both
        pause(5);
        EXPECT_EQ(engine.removePcm(list), list);  // and now lets them go
        EXPECT_EQ(engine.infoList().size(), 0u);
        EXPECT_EQ(engine.playStop(0), -1);
    }
}

TEST_F(RemoveWhilePlayingTest, AJobLetsGoOfARemovedItemWhileItsPlayIsControlled) {
    // The client removed the item it plays while a load still keeps it; the
    // load's last release, on its own thread, meets the client's controls.
    for (int round = 0; round < 20; ++round) {
        SPcmInfo* item = wvtest::addMarkedItem(engine, dir, kRate, 4 * kRate);
        const pcm_id_t id = item->id;
        const std::string pcm = item->pcmPath.get();
        ASSERT_NE(engine.getPcmInfo(id, REF_DECODER), nullptr);
        ASSERT_EQ(engine.playStart(id), 0);
        ASSERT_EQ(engine.playResume(0), 0);
        EXPECT_EQ(engine.removePcm(id), id);
        std::atomic<bool> released{false};
        std::thread job([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
            engine.releasePcm(id, REF_DECODER, false);
            released = true;
        });
        // Each control finds the item whole or not at all.
        for (int call = 0; !released || call % 5 != 0; ++call) {
            int32_t r = 0;
            switch (call % 5) {
                case 0: r = engine.setPlaySpeed(2); break;
                case 1: r = engine.playSeekTo(500); break;
                case 2: r = engine.getPlayPositionMs() < 0 ? -1 : 0; break;
                case 3: r = engine.playPause(0); break;
                default: r = engine.playResume(0); break;
            }
            EXPECT_TRUE(r == 0 || r == -1) << r;
        }
        job.join();
        EXPECT_EQ(engine.getPcmInfo(id, REF_NONE), nullptr);
        EXPECT_FALSE(wvtest::fileExists(pcm));
        EXPECT_EQ(engine.playStop(0), -1);
    }
}

}  // namespace
