#include "platform/audio/AudioOutput.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "OutputTestHelpers.h"

namespace {

using wv::AudioOutput;
using wvtest::CountingClient;
using wvtest::ManualDevice;
using wvtest::waitUntil;
using namespace std::chrono_literals;

constexpr uint32_t kMono = 0x1;
constexpr uint32_t kStereo = 0x3;

struct ManualOutput {
    ManualOutput(uint32_t rate, uint32_t mask, uint32_t deviceRate = 0, size_t frames = 64)
        : client(__builtin_popcount(mask)) {
        auto owned = std::make_unique<ManualDevice>(deviceRate);
        device = owned.get();
        output = std::make_unique<AudioOutput>(std::move(owned), rate, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, mask,
                                               frames, CountingClient::callback, &client);
    }
    bool waitFull() {
        return waitUntil([&] { return output->framesQueued() == output->frameCount(); }, 10s);
    }
    CountingClient client;
    ManualDevice* device;
    std::unique_ptr<AudioOutput> output;
};

TEST(AudioOutput, RefusesFormatsItCannotPlay) {
    CountingClient client(2);
    const struct {
        int32_t format;
        uint32_t mask;
        uint32_t rate;
    } bad[] = {{3, kStereo, 44100}, {1, 0, 44100}, {1, 0x1FF, 44100}, {1, kStereo, 0}};
    for (const auto& b : bad) {
        AudioOutput output(std::make_unique<ManualDevice>(), b.rate, b.format, b.mask, 0, CountingClient::callback,
                           &client);
        EXPECT_EQ(output.initCheck(), AudioOutput::BAD_VALUE);
        EXPECT_EQ(output.start(), AudioOutput::NO_INIT);
        EXPECT_EQ(output.setSampleRate(8000), AudioOutput::NO_INIT);
        output.pause();
        output.stop();
        output.flush();
        EXPECT_TRUE(output.stopped());
    }
    EXPECT_EQ(client.calls.load(), 0);
}

TEST(AudioOutput, AsksForDataOnlyWhileStartedAndOnItsOwnThread) {
    ManualOutput m(8000, kStereo);
    ASSERT_EQ(m.output->initCheck(), 0);
    EXPECT_EQ(m.output->frameSize(), 4u);
    EXPECT_EQ(m.output->notificationFrames(), 32u);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(m.client.calls.load(), 0);

    ASSERT_EQ(m.output->start(), 0);
    ASSERT_TRUE(m.waitFull());
    EXPECT_EQ(m.output->framesHandedOut(), 64u);
    const auto threads = m.client.callbackThreads();
    ASSERT_EQ(threads.size(), 1u);
    EXPECT_EQ(*threads.begin(), m.output->outputThreadId());
    EXPECT_NE(*threads.begin(), std::this_thread::get_id());

    // Playing 4 ms at 8000 Hz takes 32 frames, which makes room for one more
    // request of 32.
    m.device->advance(4000);
    EXPECT_EQ(m.output->framesPlayed(), 32u);
    ASSERT_TRUE(waitUntil([&] { return m.output->framesHandedOut() == 96u; }, 10s));
}

TEST(AudioOutput, PauseKeepsTheQueueAndStopsTakingFrames) {
    ManualOutput m(8000, kStereo);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    m.device->advance(1000);
    EXPECT_EQ(m.output->framesPlayed(), 8u);
    m.output->pause();
    m.device->advance(100000);
    EXPECT_EQ(m.output->framesPlayed(), 8u);
    EXPECT_EQ(m.output->framesQueued(), 56u);
    const int calls = m.client.calls.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(m.client.calls.load(), calls);

    m.output->start();
    m.device->advance(1000);
    EXPECT_EQ(m.output->framesPlayed(), 16u);
}

TEST(AudioOutput, StopPlaysTheQueueOutThenStops) {
    ManualOutput m(8000, kStereo);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    m.output->stop();
    EXPECT_FALSE(m.output->stopped());
    const uint64_t handed = m.output->framesHandedOut();
    m.device->advance(4000);
    EXPECT_FALSE(m.output->stopped());
    m.device->advance(100000);
    EXPECT_TRUE(m.output->stopped());
    EXPECT_EQ(m.output->framesPlayed(), handed);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(m.output->framesHandedOut(), handed);

    // Started again, it asks for data again.
    m.output->start();
    ASSERT_TRUE(waitUntil([&] { return m.output->framesHandedOut() > handed; }, 10s));
}

TEST(AudioOutput, StopWhilePausedDropsTheQueue) {
    ManualOutput m(8000, kStereo);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    m.output->pause();
    m.output->stop();
    EXPECT_TRUE(m.output->stopped());
    EXPECT_EQ(m.output->framesQueued(), 0u);
}

TEST(AudioOutput, FlushDropsQueuedFramesInAnyState) {
    ManualOutput m(8000, kStereo);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    m.output->pause();
    m.output->flush();
    EXPECT_EQ(m.output->framesQueued(), 0u);
    m.device->advance(100000);
    EXPECT_EQ(m.output->framesPlayed(), 0u);

    m.output->start();
    ASSERT_TRUE(m.waitFull());
    m.output->stop();
    m.output->flush();
    EXPECT_TRUE(m.output->stopped());
}

TEST(AudioOutput, SampleRateChangesHowFastFramesAreTaken) {
    ManualOutput m(8000, kStereo, 0, 4096);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    for (int32_t bad : {0, -1, -8000, 32001}) {
        EXPECT_EQ(m.output->setSampleRate(bad), AudioOutput::BAD_VALUE) << bad;
    }
    EXPECT_EQ(m.output->getSampleRate(), 8000u);
    m.device->advance(100000);
    EXPECT_EQ(m.output->framesPlayed(), 800u);
    ASSERT_EQ(m.output->setSampleRate(16000), 0);
    EXPECT_EQ(m.output->getSampleRate(), 16000u);
    m.device->advance(100000);
    EXPECT_EQ(m.output->framesPlayed(), 800u + 1600u);
    ASSERT_EQ(m.output->setSampleRate(24000), 0);
    // Time is counted in frame-microseconds, so short ticks lose nothing.
    for (int i = 0; i < 1000; ++i) m.device->advance(7);
    EXPECT_EQ(m.output->framesPlayed(), 2400u + 168u);
    EXPECT_EQ(m.output->setSampleRate(32000), 0);  // four times the opened rate
}

TEST(AudioOutput, PresentedFramesCountPlayedAndFlushedOnes) {
    ManualOutput m(8000, kStereo, 0, 4096);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    EXPECT_EQ(m.output->framesPresented(), 0u);
    m.device->advance(10000);
    EXPECT_EQ(m.output->framesPresented(), 80u);
    m.output->pause();
    m.output->flush();
    EXPECT_EQ(m.output->framesPresented(), m.output->framesHandedOut());
}

TEST(AudioOutput, WritesWholeFramesOnlyAndRetriesEmptyCallbacks) {
    ManualOutput m(8000, kStereo);
    m.client.bytesPerCall = 0;
    m.output->start();
    ASSERT_TRUE(waitUntil([&] { return m.client.calls.load() >= 3; }, 10s));
    EXPECT_EQ(m.output->framesHandedOut(), 0u);
    m.client.bytesPerCall = 10;  // two frames and half of one
    // Requests of 32 go on while 32 frames of room are left: 17 calls.
    ASSERT_TRUE(waitUntil([&] { return m.output->framesHandedOut() == 34u; }, 10s));
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(m.output->framesQueued(), 34u);
}

TEST(AudioOutput, FixedRateDeviceResamplesTheQueue) {
    // 8000 Hz mono played on a 16000 Hz device: every other output frame is
    // a midpoint, both channels alike, one input frame late.
    ManualOutput m(8000, kMono, 16000);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    std::vector<int16_t> out(16, -1);
    m.device->render(out.data(), 8);
    EXPECT_EQ(out, (std::vector<int16_t>{0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2}));
    // Four frames were lent and passed.
    EXPECT_EQ(m.output->framesPlayed(), 4u);

    ASSERT_EQ(m.output->setSampleRate(16000), 0);
    m.device->render(out.data(), 4);
    EXPECT_EQ((std::vector<int16_t>(out.begin(), out.begin() + 8)), (std::vector<int16_t>{3, 3, 4, 4, 5, 5, 6, 6}));

    m.output->pause();
    m.device->render(out.data(), 4);
    EXPECT_EQ((std::vector<int16_t>(out.begin(), out.begin() + 8)), std::vector<int16_t>(8, 0));
}

TEST(AudioOutput, FixedRateDeviceFillsUnderrunsWithSilence) {
    ManualOutput m(8000, kStereo, 8000);
    m.output->start();
    ASSERT_TRUE(m.waitFull());
    m.output->stop();
    std::vector<int16_t> out(2 * 100, 7);
    m.device->render(out.data(), 100);
    EXPECT_TRUE(m.output->stopped());
    EXPECT_EQ(m.output->framesPlayed(), 64u);
    // Heard one frame late, so the last frame queued is the right-hand end
    // of an interval that never comes; then silence.
    EXPECT_EQ(out[2], 0);
    EXPECT_EQ(out[3], 1);
    EXPECT_EQ(out[2 * 63 + 1], 125);
    EXPECT_EQ(out[2 * 64], 0);
    EXPECT_EQ(out[199], 0);
}

}  // namespace
