// The "file:PATH" audio input that recordings are tested with.
#include "platform/audio/FileInputDevice.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <mutex>
#include <vector>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "RecordTestHelpers.h"
#include "SteppedClock.h"
#include "TestSupport.h"
#include "platform/audio/AudioInput.h"

namespace {

using wv::FileInputDevice;

// Everything the device produces, when driven without its thread.
std::vector<int16_t> drain(FileInputDevice& device, uint32_t channels, size_t frames) {
    std::vector<int16_t> out;
    while (out.size() < frames * channels) {
        const size_t n = std::min<size_t>(FileInputDevice::kMaxPieceFrames, frames - out.size() / channels);
        const int16_t* block = device.produce(n);
        out.insert(out.end(), block, block + n * channels);
    }
    return out;
}

struct NullClient : wv::AudioInputClient {
    void onCaptured(const int16_t*, size_t) override {}
};

TEST(FileInput, SameFormatPassesTheSamplesThroughThenSilence) {
    wvtest::TempDir dir;
    const std::string path = dir.file("in.wav");
    const std::vector<int16_t> tone = wvtest::makeTone(16000, 2, 0.5, 300.0);
    ASSERT_TRUE(wvtest::writeWav(path, tone, 16000, 2));
    NullClient client;
    FileInputDevice device(path, 1.0);
    ASSERT_EQ(device.open(16000, 2, &client), 0);
    EXPECT_STREQ(device.name(), "file");
    const std::vector<int16_t> out = drain(device, 2, 9000);
    EXPECT_EQ(std::vector<int16_t>(out.begin(), out.begin() + long(tone.size())), tone);
    EXPECT_TRUE(device.ended());
    for (size_t i = tone.size(); i < out.size(); ++i) ASSERT_EQ(out[i], 0) << i;
}

TEST(FileInput, ConvertsRateAndChannelsOfACompressedFile) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg not installed";
    wvtest::TempDir dir;
    const std::string wav = dir.file("in.wav");
    const std::string mp3 = dir.file("in.mp3");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 48000, 2, 1.0, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, mp3));
    NullClient client;
    for (uint32_t channels : {1u, 2u, 6u}) {
        FileInputDevice device(mp3, 1.0);
        ASSERT_EQ(device.open(22050, channels, &client), 0);
        const std::vector<int16_t> out = drain(device, channels, 22050 + 22050 / 2);
        const size_t frames = out.size() / channels;
        // The tone keeps its pitch at the new rate, on every channel.
        for (uint32_t c = 0; c < channels; ++c) {
            EXPECT_NEAR(wvtest::estimateFrequency(out.data() + 2000 * channels, 18000, int(channels), int(c), 22050),
                        440.0, 1.0)
                << channels << " channels, channel " << c;
        }
        // One second of sound, then silence (codec padding aside).
        size_t lastLoud = 0;
        for (size_t f = 0; f < frames; ++f) {
            if (std::abs(out[f * channels]) > 1000) lastLoud = f;
        }
        EXPECT_NEAR(double(lastLoud), 22050.0, 22050.0 * 0.03) << channels;
        if (channels == 6) {
            // Left and right alternate over the channels; the right side of
            // the fixture is a little quieter.
            const double left = wvtest::channelRms(out.data(), 20000, 6, 0);
            const double right = wvtest::channelRms(out.data(), 20000, 6, 1);
            EXPECT_NEAR(wvtest::channelRms(out.data(), 20000, 6, 4), left, 1e-9);
            EXPECT_NEAR(wvtest::channelRms(out.data(), 20000, 6, 5), right, 1e-9);
            EXPECT_LT(right, left);
        }
    }
}

// The clock decides how many frames each tick hands over, so the pieces
// differ from run to run; what the device makes of the file may not.
TEST(FileInput, PiecesOfAnySizeMakeTheSameFrames) {
    wvtest::TempDir dir;
    const std::string path = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(path, 44100, 2, 0.5, 440.0));
    NullClient client;
    // The file ends inside the 0.6 s made: its last frames, which the
    // resampler may still hold then, come before the silence.
    for (uint32_t rate : {44100u, 16000u, 48000u, 96000u}) {
        FileInputDevice whole(path, 1.0);
        ASSERT_EQ(whole.open(rate, 1, &client), 0);
        const size_t frames = rate * 6 / 10;
        const std::vector<int16_t> expected = drain(whole, 1, frames);
        FileInputDevice pieces(path, 1.0);
        ASSERT_EQ(pieces.open(rate, 1, &client), 0);
        std::vector<int16_t> got;
        const size_t sizes[] = {1, 7, 512, 441, 160, 2, 511, 300, 3};
        for (size_t i = 0; got.size() < frames; ++i) {
            const size_t n = std::min(sizes[i % 9], frames - got.size());
            const int16_t* block = pieces.produce(n);
            got.insert(got.end(), block, block + n);
        }
        EXPECT_EQ(got, expected) << rate << " Hz";
    }
}

TEST(FileInput, SelectionNeedsAReadableFileAndAnOpenableTrack) {
    wvtest::TempDir dir;
    EXPECT_EQ(wavoryx_set_audio_input(("file:" + dir.file("missing.wav")).c_str()), -1);
    EXPECT_EQ(wavoryx_set_audio_input("file:"), -1);
    const std::string junk = dir.file("junk.wav");
    wvtest::writeFile(junk, "not audio at all", 16);
    ASSERT_EQ(wavoryx_set_audio_input(("file:" + junk).c_str()), 0);
    EXPECT_EQ(wv::selectedAudioInput(), "file:" + junk);

    struct Sink {
        static void callback(int, void*, void*) {}
    };
    {
        wvtest::LogCapture log;
        wv::AudioInput input(1, 8000, 1, 0x10, 0, Sink::callback, nullptr);
        EXPECT_EQ(input.initCheck(), FileInputDevice::kCannotOpen);
    }
    const std::string good = dir.file("good.wav");
    ASSERT_TRUE(wvtest::writeToneWav(good, 8000, 1, 0.2, 500.0));
    ASSERT_EQ(wavoryx_set_audio_input(("file:" + good).c_str()), 0);
    {
        wv::AudioInput input(1, 8000, 1, 0x10, 0, Sink::callback, nullptr);
        EXPECT_EQ(input.initCheck(), 0);
        EXPECT_STREQ(input.deviceName(), "file");
    }
    wavoryx_set_audio_input(nullptr);
}

TEST(FileInput, DeliversAtTheRequestedPace) {
    wvtest::TempDir dir;
    const std::string path = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(path, 8000, 1, 1.0, 500.0));
    struct Counter : wv::AudioInputClient {
        void onCaptured(const int16_t*, size_t count) override {
            std::lock_guard<std::mutex> guard(lock);
            frames += count;
        }
        size_t get() {
            std::lock_guard<std::mutex> guard(lock);
            return frames;
        }
        std::mutex lock;
        size_t frames = 0;
    } counter;
    FileInputDevice device(path, 20.0);
    ASSERT_EQ(device.open(8000, 1, &counter), 0);
    ASSERT_EQ(device.start(), 0);
    // 20 times real time: two seconds of capture in about 100 ms; the
    // device goes on with silence after the file's one second.
    ASSERT_TRUE(rectest::waitUntil([&] { return counter.get() >= 16000; }, std::chrono::seconds(10)));
    device.stop();
    const size_t after = counter.get();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_EQ(counter.get(), after);  // nothing once stopped
}

TEST(FileInput, HandsOverTheFileAndThenSilenceAsTheSteppedClockGoes) {
    wvtest::TempDir dir;
    const std::string path = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(path, 8000, 1, 1.0, 500.0));
    std::vector<int16_t> file;
    ASSERT_TRUE(wvtest::readWavSamples(path, &file));
    ASSERT_EQ(file.size(), 8000u);
    struct Collector : wv::AudioInputClient {
        void onCaptured(const int16_t* frames, size_t count) override {
            std::lock_guard<std::mutex> guard(lock);
            samples.insert(samples.end(), frames, frames + count);
        }
        std::vector<int16_t> get() {
            std::lock_guard<std::mutex> guard(lock);
            return samples;
        }
        std::mutex lock;
        std::vector<int16_t> samples;
    } collector;
    wvtest::SteppedClock clock;
    FileInputDevice device(path, 1.0, clock);
    ASSERT_EQ(device.open(8000, 1, &collector), 0);
    ASSERT_EQ(device.start(), 0);
    clock.step(250000);
    ASSERT_TRUE(rectest::waitUntil([&] { return collector.get().size() >= 2000; }, std::chrono::seconds(10)));
    EXPECT_EQ(collector.get(), std::vector<int16_t>(file.begin(), file.begin() + 2000));
    clock.step(1000000);  // past the file's end by a quarter second
    ASSERT_TRUE(rectest::waitUntil([&] { return collector.get().size() >= 10000; }, std::chrono::seconds(10)));
    device.stop();
    std::vector<int16_t> expected = file;
    expected.resize(10000, 0);
    EXPECT_EQ(collector.get(), expected);
}

}  // namespace
