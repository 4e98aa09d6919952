#include "platform/audio/AudioInput.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <vector>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "OutputTestHelpers.h"
#include "TestSupport.h"
#include "platform/audio/FileInputDevice.h"
#include "platform/audio/GeneratedInputDevice.h"

namespace {

using wv::AudioInput;
using wvtest::waitUntil;
using namespace std::chrono_literals;

constexpr uint32_t kInMono = 0x10;
constexpr uint32_t kInStereo = 0xC;

// Collects what an input delivers.
struct Collector {
    static void callback(int event, void* user, void* info) {
        auto* self = static_cast<Collector*>(user);
        std::unique_lock<std::mutex> guard(self->lock);
        self->threads.insert(std::this_thread::get_id());
        self->events.push_back(event);
        if (event == AudioInput::EVENT_MORE_DATA) {
            auto* buffer = static_cast<AudioInput::Buffer*>(info);
            self->blockFrames.push_back(buffer->frameCount);
            self->samples.insert(self->samples.end(), buffer->i16, buffer->i16 + buffer->size / 2);
        }
        self->changed.wait(guard, [self] { return !self->hold; });
    }
    size_t sampleCount() {
        std::lock_guard<std::mutex> guard(lock);
        return samples.size();
    }
    void release() {
        std::lock_guard<std::mutex> guard(lock);
        hold = false;
        changed.notify_all();
    }

    std::mutex lock;
    std::condition_variable changed;
    bool hold = false;  // keeps the callback from returning
    std::vector<int16_t> samples;
    std::vector<size_t> blockFrames;
    std::vector<int> events;
    std::set<std::thread::id> threads;
};

// An input whose frames the test hands over itself.
class ManualInputDevice : public wv::AudioInputDevice {
public:
    int32_t open(uint32_t, uint32_t, wv::AudioInputClient* client) override {
        mClient = client;
        return 0;
    }
    int32_t start() override { return 0; }
    void stop() override {}
    uint32_t latencyMs() const override { return 7; }
    const char* name() const override { return "manual"; }
    void push(const std::vector<int16_t>& frames, uint32_t channels) {
        mClient->onCaptured(frames.data(), frames.size() / channels);
    }

private:
    wv::AudioInputClient* mClient = nullptr;
};

std::vector<int16_t> counting(int first, size_t count) {
    std::vector<int16_t> out(count);
    for (size_t i = 0; i < count; ++i) out[i] = int16_t(first + int(i));
    return out;
}

class AudioInputs : public ::testing::Test {
protected:
    void TearDown() override {
        wavoryx_set_audio_input(nullptr);
        unsetenv("WAVORYX_AUDIO_IN");
        unsetenv("WAVORYX_DEVICE_PACE");
    }
};

TEST_F(AudioInputs, MinimumFrameCountAndRefusedFormats) {
    size_t frames = 0;
    EXPECT_EQ(AudioInput::getMinFrameCount(&frames, 44100, 1, kInStereo), 0);
    EXPECT_EQ(frames, 882u);
    EXPECT_EQ(AudioInput::getMinFrameCount(&frames, 8000, 1, kInMono), 0);
    EXPECT_EQ(frames, 256u);
    EXPECT_EQ(AudioInput::getMinFrameCount(&frames, 0, 1, kInMono), AudioInput::BAD_VALUE);
    EXPECT_EQ(AudioInput::getMinFrameCount(&frames, 8000, 2, kInMono), AudioInput::BAD_VALUE);
    EXPECT_EQ(AudioInput::getMinFrameCount(&frames, 8000, 1, 0), AudioInput::BAD_VALUE);

    Collector collector;
    AudioInput input(std::make_unique<ManualInputDevice>(), 8000, 1, 0x1FF0, 0, Collector::callback, &collector);
    EXPECT_EQ(input.initCheck(), AudioInput::BAD_VALUE);
    EXPECT_EQ(input.start(), AudioInput::NO_INIT);
}

TEST_F(AudioInputs, ToneArrivesInWholeBlocksOnTheInputsThread) {
    // The generated input waits for a slow callback, so the sine is whole
    // whatever the load of the machine.
    Collector collector;
    AudioInput input(std::make_unique<wv::GeneratedInputDevice>(1000, 1), 8000, 1, kInMono, 8000, Collector::callback,
                     &collector, 256);
    ASSERT_EQ(input.initCheck(), 0);
    EXPECT_STREQ(input.deviceName(), "tone");
    EXPECT_EQ(input.latency(), 10u + 1000u);
    ASSERT_EQ(input.start(), 0);
    ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() >= 2048; }, 10s));
    input.stop();

    std::lock_guard<std::mutex> guard(collector.lock);
    for (size_t frames : collector.blockFrames) EXPECT_EQ(frames, 256u);
    ASSERT_EQ(collector.threads.size(), 1u);
    EXPECT_EQ(*collector.threads.begin(), input.callbackThreadId());
    for (size_t n = 0; n < 2048; ++n) {
        const long want = std::lround(16383.0 * std::sin(6.283185307179586 * 1000.0 * n / 8000.0));
        ASSERT_NEAR(collector.samples[n], want, 1) << "sample " << n;
    }
}

TEST_F(AudioInputs, SilenceFillsEveryChannel) {
    Collector collector;
    AudioInput input(std::make_unique<wv::GeneratedInputDevice>(0, 20), 16000, 1, kInStereo, 0, Collector::callback,
                     &collector);
    ASSERT_EQ(input.initCheck(), 0);
    EXPECT_EQ(input.channelCount(), 2u);
    EXPECT_EQ(input.frameSize(), 4u);
    input.start();
    ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() >= 4000; }, 10s));
    input.stop();
    std::lock_guard<std::mutex> guard(collector.lock);
    EXPECT_EQ(collector.samples.size() % 2, 0u);
    for (int16_t s : collector.samples) ASSERT_EQ(s, 0);
}

TEST_F(AudioInputs, FullRingLosesFramesAndReportsOneOverrun) {
    auto owned = std::make_unique<ManualInputDevice>();
    ManualInputDevice* device = owned.get();
    Collector collector;
    collector.hold = true;
    AudioInput input(std::move(owned), 8000, 1, kInMono, 300, Collector::callback, &collector, 100);
    ASSERT_EQ(input.initCheck(), 0);
    EXPECT_EQ(input.frameCount(), 300u);
    input.start();
    device->push(counting(0, 100), 1);
    // The first block is out and its callback is held; the ring has 300.
    ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() == 100; }, 10s));
    device->push(counting(100, 350), 1);
    EXPECT_EQ(input.getInputFramesLost(), 50u);
    EXPECT_EQ(input.getInputFramesLost(), 0u);
    collector.release();
    ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() == 400; }, 10s));
    std::lock_guard<std::mutex> guard(collector.lock);
    EXPECT_EQ(collector.events,
              (std::vector<int>{AudioInput::EVENT_MORE_DATA, AudioInput::EVENT_OVERRUN, AudioInput::EVENT_MORE_DATA,
                                AudioInput::EVENT_MORE_DATA, AudioInput::EVENT_MORE_DATA}));
    EXPECT_EQ(collector.samples, counting(0, 400));
}

// The generated and file inputs wait for a stalled callback instead of
// overrunning the ring: run 64 times faster than real time into a ring of
// 300 frames, with the callback held for a while (long enough for the clock
// to owe thousands of frames), every frame still arrives, in order.
TEST_F(AudioInputs, InputsThatMakeTheirOwnFramesWaitForAStalledCallback) {
    wvtest::TempDir dir;
    const std::string path = dir.file("noise.wav");
    std::vector<int16_t> noise(16000);
    uint32_t seed = 12345;
    for (int16_t& s : noise) {
        seed = seed * 1103515245u + 12345u;
        s = int16_t(seed >> 16);
    }
    ASSERT_TRUE(wvtest::writeWav(path, noise, 8000, 1));
    std::vector<int16_t> sine(12000);
    for (size_t n = 0; n < sine.size(); ++n) {
        sine[n] = int16_t(std::lround(16383.0 * std::sin(6.283185307179586 * 1000.0 * double(n) / 8000.0)));
    }
    struct Case {
        const char* what;
        std::function<std::unique_ptr<wv::AudioInputDevice>()> make;
        const std::vector<int16_t>& expected;
        int tolerance;  // the sine's phase is summed in steps
    };
    const Case cases[] = {
        {"tone", [] { return std::make_unique<wv::GeneratedInputDevice>(1000, 64); }, sine, 1},
        {"file", [&] { return std::make_unique<wv::FileInputDevice>(path, 64); }, noise, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Collector collector;
        collector.hold = true;
        AudioInput input(c.make(), 8000, 1, kInMono, 300, Collector::callback, &collector, 100);
        ASSERT_EQ(input.initCheck(), 0);
        ASSERT_EQ(input.start(), 0);
        ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() == 100; }, 10s));
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
        collector.release();
        ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() >= c.expected.size(); }, 10s));
        // Held again, then stopped: the waiting device lets go.
        {
            std::lock_guard<std::mutex> guard(collector.lock);
            collector.hold = true;
        }
        input.stop();
        collector.release();
        EXPECT_EQ(input.getInputFramesLost(), 0u);
        std::lock_guard<std::mutex> guard(collector.lock);
        for (int event : collector.events) ASSERT_EQ(event, AudioInput::EVENT_MORE_DATA);
        for (size_t n = 0; n < c.expected.size(); ++n) {
            ASSERT_NEAR(collector.samples[n], c.expected[n], c.tolerance) << "sample " << n;
        }
    }
}

TEST_F(AudioInputs, StopDropsLateFramesAndStartBeginsAfresh) {
    auto owned = std::make_unique<ManualInputDevice>();
    ManualInputDevice* device = owned.get();
    Collector collector;
    AudioInput input(std::move(owned), 8000, 1, kInMono, 300, Collector::callback, &collector, 100);
    input.start();
    device->push(counting(0, 150), 1);
    ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() == 100; }, 10s));
    input.stop();
    EXPECT_TRUE(input.stopped());
    device->push(counting(150, 400), 1);
    EXPECT_EQ(input.getInputFramesLost(), 0u);
    input.start();
    // The 50 frames left from before are gone.
    device->push(counting(1000, 100), 1);
    ASSERT_TRUE(waitUntil([&] { return collector.sampleCount() == 200; }, 10s));
    std::lock_guard<std::mutex> guard(collector.lock);
    EXPECT_EQ(std::vector<int16_t>(collector.samples.begin() + 100, collector.samples.end()), counting(1000, 100));
}

TEST_F(AudioInputs, SelectionAndFallback) {
    for (const char* bad : {"", "tone:", "tone:0", "tone:-5", "tone:1k", "file:/a.wav", "mic"}) {
        EXPECT_EQ(wavoryx_set_audio_input(bad), -1) << bad;
    }
    EXPECT_EQ(wv::selectedAudioInput(), "auto");
    setenv("WAVORYX_AUDIO_IN", "tone:440", 1);
    EXPECT_EQ(wv::selectedAudioInput(), "tone:440");
    ASSERT_EQ(wavoryx_set_audio_input("silence"), 0);
    EXPECT_EQ(wv::selectedAudioInput(), "silence");
    ASSERT_EQ(wavoryx_set_audio_input(nullptr), 0);

    Collector collector;
    {
        AudioInput tone(1, 8000, 1, kInMono, 0, Collector::callback, &collector);
        ASSERT_EQ(tone.initCheck(), 0);
        EXPECT_STREQ(tone.deviceName(), "tone");
    }
    wvtest::LogCapture log;
    testing::internal::CaptureStderr();
    ASSERT_EQ(wavoryx_set_audio_input("device"), 0);
    {
        AudioInput device(1, 8000, 1, kInMono, 0, Collector::callback, &collector);
        if (device.initCheck() != 0) {
            EXPECT_EQ(device.initCheck(), AudioInput::NO_INIT);
        }
    }
    ASSERT_EQ(wavoryx_set_audio_input("auto"), 0);
    {
        AudioInput any(1, 8000, 1, kInMono, 0, Collector::callback, &collector);
        ASSERT_EQ(any.initCheck(), 0);
        const std::string name = any.deviceName();
        EXPECT_TRUE(name == "device" || name == "silence") << name;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
