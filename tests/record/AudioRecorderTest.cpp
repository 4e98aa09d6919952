#include "record/AudioRecorder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "base/Clock.h"

namespace {

using wv::AudioRecorder;
using wv::MediaBuffer;

// An input whose frames the test hands over itself, in any amounts. One
// that `waits` is held in push() until the input's ring takes every frame,
// as the inputs that make their own frames are.
class ManualInputDevice : public wv::AudioInputDevice {
public:
    explicit ManualInputDevice(bool waits = false) : mWaits(waits) {}
    int32_t open(uint32_t, uint32_t channels, wv::AudioInputClient* client) override {
        mClient = client;
        mChannels = channels;
        return 0;
    }
    int32_t start() override { return 0; }
    void stop() override {}
    uint32_t latencyMs() const override { return 7; }
    const char* name() const override { return "manual"; }
    bool canWait() const override { return mWaits; }
    void push(const std::vector<int16_t>& samples) { mClient->onCaptured(samples.data(), samples.size() / mChannels); }

private:
    const bool mWaits;
    wv::AudioInputClient* mClient = nullptr;
    uint32_t mChannels = 1;
};

struct Capture {
    explicit Capture(uint32_t rate, uint32_t channels = 1, bool waits = false) {
        auto owned = std::make_unique<ManualInputDevice>(waits);
        device = owned.get();
        recorder.reset(new AudioRecorder(std::move(owned), rate, channels));
    }
    ManualInputDevice* device = nullptr;
    std::unique_ptr<AudioRecorder> recorder;
};

struct ReadBuffer {
    std::vector<int16_t> samples;
    int64_t timeUs = -1;
    int64_t anchorUs = -1;
    int32_t filled = 0;  // frames of silence standing for lost ones
};

ReadBuffer readOne(AudioRecorder& recorder) {
    ReadBuffer out;
    MediaBuffer* buffer = nullptr;
    EXPECT_EQ(recorder.read(&buffer), 0);
    if (buffer == nullptr) return out;
    const auto* data =
        reinterpret_cast<const int16_t*>(static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset());
    out.samples.assign(data, data + buffer->range_length() / 2);
    buffer->meta_data()->findInt64(wv::kKeyTime, &out.timeUs);
    buffer->meta_data()->findInt64(wv::kKeyAnchorTime, &out.anchorUs);
    buffer->meta_data()->findInt32(wv::kKeyFilledFrames, &out.filled);
    buffer->release();
    return out;
}

std::vector<int16_t> constant(size_t count, int16_t value) { return std::vector<int16_t>(count, value); }

TEST(AudioRecorder, RefusesChannelCountsWithoutAMaskAndReportsItsFormat) {
    for (uint32_t channels : {0u, 3u, 4u, 8u}) {
        Capture bad(8000, channels);
        EXPECT_NE(bad.recorder->initCheck(), 0) << channels;
        EXPECT_EQ(bad.recorder->start(), wv::NO_INIT);
        EXPECT_EQ(bad.recorder->stop(), wv::NO_INIT);
        EXPECT_EQ(bad.recorder->getFormat(), nullptr);
        MediaBuffer* buffer = reinterpret_cast<MediaBuffer*>(0x1);
        EXPECT_EQ(bad.recorder->read(&buffer), wv::NO_INIT);
        EXPECT_EQ(buffer, nullptr);
    }
    Capture six(48000, 6);
    ASSERT_EQ(six.recorder->initCheck(), 0);
    auto format = six.recorder->getFormat();
    ASSERT_NE(format, nullptr);
    int32_t rate = 0, channels = 0, maxInput = 0;
    const char* mime = nullptr;
    EXPECT_TRUE(format->findCString(wv::kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, "audio/raw");
    EXPECT_TRUE(format->findInt32(wv::kKeySampleRate, &rate));
    EXPECT_TRUE(format->findInt32(wv::kKeyChannelCount, &channels));
    EXPECT_TRUE(format->findInt32(wv::kKeyMaxInputSize, &maxInput));
    EXPECT_EQ(rate, 48000);
    EXPECT_EQ(channels, 6);
    EXPECT_EQ(maxInput, 2048);

    EXPECT_EQ(six.recorder->stop(), AudioRecorder::INVALID_STATE);
    EXPECT_EQ(six.recorder->start(), 0);
    EXPECT_EQ(six.recorder->start(), AudioRecorder::INVALID_STATE);
    EXPECT_EQ(six.recorder->stop(), 0);
    // A stopped source answers a read at once, with no buffer.
    MediaBuffer* buffer = nullptr;
    EXPECT_EQ(six.recorder->read(&buffer), 0);
    EXPECT_EQ(buffer, nullptr);
}

TEST(AudioRecorder, BlocksAre2048BytesAndTheFirstTimeIsTheInputLatency) {
    Capture stereo(44100, 2);
    ASSERT_EQ(stereo.recorder->start(), 0);
    stereo.device->push(constant(2 * 1024, 1000));
    const ReadBuffer first = readOne(*stereo.recorder);
    const ReadBuffer second = readOne(*stereo.recorder);
    EXPECT_EQ(first.samples.size(), 1024u);  // 512 frames
    EXPECT_EQ(second.samples.size(), 1024u);
    // Device latency 7 ms plus the ring: two 512-frame blocks, which is
    // above the 20 ms minimum (882 frames), so 1024 frames, 23 ms.
    EXPECT_EQ(first.timeUs, (7 + 1024 * 1000 / 44100) * 1000);
    EXPECT_EQ(first.anchorUs, first.timeUs);
    EXPECT_EQ(second.anchorUs, -1);
    EXPECT_EQ(second.timeUs - first.timeUs, (512 * 1000000 + 22050) / 44100);
    EXPECT_EQ(stereo.recorder->stop(), 0);

    Capture mono(8000, 1);
    ASSERT_EQ(mono.recorder->start(), 0);
    mono.device->push(constant(1024, 1000));
    EXPECT_EQ(readOne(*mono.recorder).samples.size(), 1024u);  // 1024 frames
}

// 8000 Hz mono, one block (1024 frames, 128 ms) read per block pushed: the
// first buffer begins inside the muted 10 ms, the second inside the ramp
// (2400 frames from frame 80), the fourth after it.
TEST(AudioRecorder, MutesTheLeadAndRampsFromTheFramesRead) {
    Capture capture(8000, 1);
    ASSERT_EQ(capture.recorder->start(), 0);
    std::vector<ReadBuffer> buffers;
    for (int i = 0; i < 4; ++i) {
        capture.device->push(constant(1024, 10000));
        buffers.push_back(readOne(*capture.recorder));
    }
    EXPECT_EQ(buffers[0].samples, constant(1024, 0));
    // Frames read to the end of the second buffer: 2048, so the ramp stands
    // at frame 2048 - 80 = 1968 of 2400 and the gain steps every 4 frames.
    const std::vector<int16_t>& ramped = buffers[1].samples;
    EXPECT_EQ(ramped[0], (10000 * (1968 * 16384 / 2400)) >> 14);  // 8199
    EXPECT_EQ(ramped[3], ramped[0]);
    EXPECT_EQ(ramped[4], (10000 * (1972 * 16384 / 2400)) >> 14);
    EXPECT_EQ(ramped[431], (10000 * (2396 * 16384 / 2400)) >> 14);
    for (size_t i = 432; i < ramped.size(); ++i) ASSERT_EQ(ramped[i], 10000) << i;
    // Third buffer: 3072 frames read, past the ramp's end already.
    EXPECT_EQ(buffers[2].samples, constant(1024, 10000));
    EXPECT_EQ(buffers[3].samples, constant(1024, 10000));
    EXPECT_EQ(capture.recorder->stop(), 0);
}

// The same blocks give the same buffers whether each is read as it comes
// or the reader lags behind and finds several queued: a recording from an
// input that waits for the recorder must not depend on which thread runs
// first.
TEST(AudioRecorder, ARampedBufferDoesNotDependOnWhatIsQueuedBehindIt) {
    constexpr int kBlocks = 6;
    std::vector<int16_t> block(1024);
    for (size_t i = 0; i < block.size(); ++i) block[i] = int16_t(int(i % 200) * 150 - 15000);
    Capture keepingUp(8000, 1);
    ASSERT_EQ(keepingUp.recorder->start(), 0);
    std::vector<std::vector<int16_t>> expected;
    for (int i = 0; i < kBlocks; ++i) {
        keepingUp.device->push(block);
        expected.push_back(readOne(*keepingUp.recorder).samples);
    }
    keepingUp.recorder->stop();
    // The second buffer (frames 1024 to 2047) is inside the ramp.
    ASSERT_NE(expected[1], block);

    // The ring holds two blocks: once the sixth is in it, the input's
    // thread has taken four and handed at least three to the recorder, so
    // the second buffer is read with at least one queued behind it.
    Capture lagging(8000, 1, true);
    ASSERT_EQ(lagging.recorder->start(), 0);
    for (int i = 0; i < kBlocks; ++i) lagging.device->push(block);
    for (int i = 0; i < kBlocks; ++i) {
        EXPECT_EQ(readOne(*lagging.recorder).samples, expected[size_t(i)]) << "buffer " << i;
    }
    lagging.recorder->stop();
}

TEST(AudioRecorder, RampScalesEveryChannelOfAFrame) {
    Capture capture(8000, 2);
    ASSERT_EQ(capture.recorder->start(), 0);
    std::vector<int16_t> block(1024);
    for (size_t i = 0; i < block.size(); i += 2) {
        block[i] = 10000;
        block[i + 1] = -20000;
    }
    // 512 frames a block (64 ms): block 0 is muted, block 1 begins at 64 ms.
    capture.device->push(block);
    readOne(*capture.recorder);
    capture.device->push(block);
    const ReadBuffer ramped = readOne(*capture.recorder);
    // 1024 frames read: the ramp stands at frame 944 of 2400.
    const int gain = 944 * 16384 / 2400;
    EXPECT_EQ(ramped.samples[0], (10000 * gain) >> 14);
    EXPECT_EQ(ramped.samples[1], (-20000 * gain) >> 14);
    for (size_t f = 0; f < 512; ++f) {
        const int g = int((944 + (f & ~size_t(3))) * 16384 / 2400);
        ASSERT_EQ(ramped.samples[2 * f], (10000 * g) >> 14) << f;
        ASSERT_EQ(ramped.samples[2 * f + 1], (-20000 * g) >> 14) << f;
    }
    capture.recorder->stop();
}

TEST(AudioRecorder, LostFramesBecomeSilenceOfTheSameLength) {
    wvtest::LogCapture log;
    Capture capture(8000, 1);
    ASSERT_EQ(capture.recorder->start(), 0);
    // The ring holds 2048 frames: 2952 of these 5000 are lost. The loss is
    // counted at the second block (none is counted for the first one).
    std::vector<int16_t> burst(5000);
    for (size_t i = 0; i < burst.size(); ++i) burst[i] = int16_t(1 + i % 1000);
    capture.device->push(burst);
    std::vector<ReadBuffer> buffers;
    size_t frames = 0;
    while (frames < 5000) {
        buffers.push_back(readOne(*capture.recorder));
        ASSERT_FALSE(buffers.back().samples.empty());
        frames += buffers.back().samples.size();
    }
    EXPECT_EQ(frames, 5000u);
    ASSERT_EQ(buffers.size(), 5u);
    EXPECT_EQ(buffers[1].samples.size(), 1024u);  // 2048 bytes
    EXPECT_EQ(buffers[2].samples.size(), 1024u);
    EXPECT_EQ(buffers[3].samples.size(), 904u);  // 1808 bytes
    for (int i = 1; i <= 3; ++i) EXPECT_EQ(buffers[i].samples, constant(buffers[i].samples.size(), 0));
    // Each filler says how much of it stands for lost frames (what event 67
    // is made of); real blocks say nothing.
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(size_t(buffers[i].filled), i >= 1 && i <= 3 ? buffers[i].samples.size() : 0u) << i;
    }
    // The second block, 3976 frames (497 ms) in: past the ramp, untouched.
    EXPECT_EQ(buffers[4].samples, std::vector<int16_t>(burst.begin() + 1024, burst.begin() + 2048));
    // The time line has no gap: each buffer starts where the previous ended.
    for (size_t i = 1; i < buffers.size(); ++i) {
        const int64_t previousUs = (int64_t(buffers[i - 1].samples.size()) * 1000000 + 4000) / 8000;
        EXPECT_EQ(buffers[i].timeUs - buffers[i - 1].timeUs, previousUs) << i;
    }
    EXPECT_TRUE(log.contains("Lost audio record data: 5904 bytes", "AudioRecorder"));
    capture.recorder->stop();
}

TEST(AudioRecorder, BlocksBeforeARequestedStartTimeAreDropped) {
    Capture capture(8000, 1);
    wv::MetaData params;
    const int64_t startUs = wv::monotonicUs() + 300000;
    params.setInt64(wv::kKeyTime, startUs);
    ASSERT_EQ(capture.recorder->start(&params), 0);
    capture.device->push(constant(2048, 111));  // before the start: dropped
    while (wv::monotonicUs() < startUs + 1000) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::vector<ReadBuffer> buffers;
    for (int i = 0; i < 4; ++i) {
        capture.device->push(constant(1024, 222));
        buffers.push_back(readOne(*capture.recorder));
    }
    // The anchor is the delay from the requested start to the first block.
    EXPECT_GE(buffers[0].anchorUs, 0);
    EXPECT_LT(buffers[0].anchorUs, 5000000);
    EXPECT_EQ(buffers[0].timeUs, buffers[0].anchorUs);
    EXPECT_EQ(buffers[3].samples, constant(1024, 222));
    // Nothing else was queued.
    MediaBuffer* extra = nullptr;
    EXPECT_EQ(capture.recorder->read(&extra), AudioRecorder::TIMED_OUT);
    EXPECT_EQ(extra, nullptr);
    capture.recorder->stop();
}

TEST(AudioRecorder, TracksThePeakOnlyOnceAskedAndNeverCountsMinimum) {
    Capture capture(8000, 1);
    ASSERT_EQ(capture.recorder->start(), 0);
    // Three blocks take the time line past the ramp.
    for (int i = 0; i < 3; ++i) {
        capture.device->push(constant(1024, 30000));
        readOne(*capture.recorder);
    }
    EXPECT_EQ(capture.recorder->getMaxAmplitude(), 0);  // switches tracking on
    capture.device->push(constant(1024, -32768));
    readOne(*capture.recorder);
    EXPECT_EQ(capture.recorder->getMaxAmplitude(), 0);
    std::vector<int16_t> block = constant(1024, 5);
    block[17] = -12345;
    block[900] = 12000;
    capture.device->push(block);
    readOne(*capture.recorder);
    EXPECT_EQ(capture.recorder->getMaxAmplitude(), 12345);
    EXPECT_EQ(capture.recorder->getMaxAmplitude(), 0);
    capture.recorder->stop();
}

TEST(AudioRecorder, StopWaitsForTheBufferHandedOut) {
    Capture capture(8000, 1);
    ASSERT_EQ(capture.recorder->start(), 0);
    capture.device->push(constant(2048, 7));
    MediaBuffer* held = nullptr;
    ASSERT_EQ(capture.recorder->read(&held), 0);
    ASSERT_NE(held, nullptr);
    std::atomic<bool> stopped{false};
    std::thread stopper([&] {
        EXPECT_EQ(capture.recorder->stop(), 0);
        stopped = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(stopped.load());
    held->release();
    stopper.join();
    EXPECT_TRUE(stopped.load());
    // The queued block went with the stop; a late block is dropped.
    capture.device->push(constant(1024, 7));
    MediaBuffer* buffer = nullptr;
    EXPECT_EQ(capture.recorder->read(&buffer), 0);
    EXPECT_EQ(buffer, nullptr);
}

}  // namespace
