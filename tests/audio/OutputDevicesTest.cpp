#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <wavoryx/platform.h>

#include "OutputTestHelpers.h"
#include "TestSupport.h"
#include "platform/audio/ClockOutputDevice.h"

namespace {

using wv::AudioOutput;
using wvtest::CountingClient;
using wvtest::waitUntil;
using namespace std::chrono_literals;

uint32_t le32(const std::vector<char>& b, size_t at) {
    return uint32_t(uint8_t(b[at])) | uint32_t(uint8_t(b[at + 1])) << 8 | uint32_t(uint8_t(b[at + 2])) << 16 |
           uint32_t(uint8_t(b[at + 3])) << 24;
}

// Restores the process-wide selection after each case.
class OutputDevices : public ::testing::Test {
protected:
    void TearDown() override {
        wavoryx_set_audio_output(nullptr);
        unsetenv("WAVORYX_AUDIO_OUT");
        unsetenv("WAVORYX_DEVICE_PACE");
    }
};

TEST_F(OutputDevices, SelectionAcceptsOnlyKnownDevices) {
    for (const char* bad : {"", "file:", "speaker", "NULL", "auto "}) {
        EXPECT_EQ(wavoryx_set_audio_output(bad), -1) << bad;
    }
    EXPECT_EQ(wv::selectedAudioOutput(), "auto");
    setenv("WAVORYX_AUDIO_OUT", "null", 1);
    EXPECT_EQ(wv::selectedAudioOutput(), "null");
    EXPECT_EQ(wavoryx_set_audio_output("file:/x/y.wav"), 0);
    EXPECT_EQ(wv::selectedAudioOutput(), "file:/x/y.wav");
    EXPECT_EQ(wavoryx_set_audio_output(nullptr), 0);
    EXPECT_EQ(wv::selectedAudioOutput(), "null");
    setenv("WAVORYX_AUDIO_OUT", "loud", 1);
    EXPECT_EQ(wv::selectedAudioOutput(), "auto");
}

TEST_F(OutputDevices, PaceComesFromTheEnvironment) {
    EXPECT_EQ(wv::devicePaceFromEnvironment(), 1.0);
    setenv("WAVORYX_DEVICE_PACE", "8", 1);
    EXPECT_EQ(wv::devicePaceFromEnvironment(), 8.0);
    for (const char* bad : {"0", "-2", "fast", "3x"}) {
        setenv("WAVORYX_DEVICE_PACE", bad, 1);
        EXPECT_EQ(wv::devicePaceFromEnvironment(), 1.0) << bad;
    }
}

TEST_F(OutputDevices, FileDeviceRecordsEveryFrameHandedOut) {
    wvtest::TempDir dir;
    const std::string path = dir.file("out.wav");
    ASSERT_EQ(wavoryx_set_audio_output(("file:" + path).c_str()), 0);
    setenv("WAVORYX_DEVICE_PACE", "50", 1);
    CountingClient client(2);
    uint64_t handed = 0;
    {
        AudioOutput output(22050, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, 0x3, 0, CountingClient::callback, &client);
        ASSERT_EQ(output.initCheck(), 0);
        EXPECT_STREQ(output.deviceName(), "file");
        output.start();
        ASSERT_TRUE(waitUntil([&] { return output.framesPlayed() > 30000; }, 10s));
        // A rate change does not change what the file says.
        EXPECT_EQ(output.setSampleRate(44100), 0);
        ASSERT_TRUE(waitUntil([&] { return output.framesPlayed() > 60000; }, 10s));
        output.pause();
        handed = output.framesHandedOut();
    }
    const std::vector<char> wav = wvtest::readFile(path);
    ASSERT_GE(wav.size(), 44u);
    EXPECT_EQ(std::string(wav.data(), 4), "RIFF");
    EXPECT_EQ(std::string(wav.data() + 8, 8), "WAVEfmt ");
    EXPECT_EQ(le32(wav, 24), 22050u);
    EXPECT_EQ(le32(wav, 40), handed * 4);
    EXPECT_EQ(le32(wav, 4), 36 + handed * 4);
    ASSERT_EQ(wav.size(), 44 + handed * 4);
    for (size_t i = 0; i < handed * 2; ++i) {
        int16_t sample;
        std::memcpy(&sample, wav.data() + 44 + 2 * i, 2);
        ASSERT_EQ(sample, static_cast<int16_t>(i)) << "sample " << i;
    }
}

TEST_F(OutputDevices, FileDeviceThatCannotCreateItsFileFails) {
    wvtest::TempDir dir;
    ASSERT_EQ(wavoryx_set_audio_output(("file:" + dir.file("no/such/dir.wav")).c_str()), 0);
    CountingClient client(1);
    AudioOutput output(8000, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, 0x1, 0, CountingClient::callback, &client);
    EXPECT_NE(output.initCheck(), 0);
    EXPECT_EQ(output.start(), AudioOutput::NO_INIT);
}

// The clock device takes frames at about its paced rate: never faster than
// the time allows, and not grossly slower (bounds are loose for busy hosts).
TEST_F(OutputDevices, NullDeviceIsPacedByItsClock) {
    CountingClient client(2);
    const double pace = 10;
    AudioOutput output(std::make_unique<wv::ClockOutputDevice>(pace), 44100, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, 0x3,
                       0, CountingClient::callback, &client);
    ASSERT_EQ(output.initCheck(), 0);
    EXPECT_STREQ(output.deviceName(), "null");
    const int64_t begin = wv::monotonicUs();
    output.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const uint64_t played = output.framesPlayed();
    const int64_t elapsedUs = wv::monotonicUs() - begin;
    const double allowed = double(elapsedUs) * 1e-6 * pace * 44100;
    EXPECT_LE(double(played), allowed * 1.02 + 1000);
    EXPECT_GE(double(played), allowed * 0.25);
    EXPECT_LE(output.framesPlayed() + output.framesQueued(), output.framesHandedOut());
}

TEST_F(OutputDevices, DeviceFailsCleanlyOrPlays) {
    wvtest::LogCapture log;
    CountingClient client(2);
    ASSERT_EQ(wavoryx_set_audio_output("device"), 0);
    testing::internal::CaptureStderr();
    {
        AudioOutput output(44100, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, 0x3, 0, CountingClient::callback, &client);
        if (output.initCheck() == 0) {
            EXPECT_STREQ(output.deviceName(), "device");
        } else {
            EXPECT_EQ(output.initCheck(), AudioOutput::NO_INIT);
        }
    }
    // The sound system's own diagnostics never reach standard error.
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(OutputDevices, AutoFallsBackToNullWithoutAnError) {
    wvtest::LogCapture log;
    CountingClient client(2);
    setenv("WAVORYX_DEVICE_PACE", "20", 1);
    testing::internal::CaptureStderr();
    {
        AudioOutput output(44100, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, 0x3, 0, CountingClient::callback, &client);
        ASSERT_EQ(output.initCheck(), 0);
        if (std::string(output.deviceName()) == "null") {
            for (const auto& line : log.lines()) {
                EXPECT_LT(line.priority, WAVORYX_LOG_WARN) << line.tag << ": " << line.message;
            }
        }
        output.start();
        ASSERT_TRUE(waitUntil([&] { return output.framesPlayed() > 1000; }, 10s));
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
