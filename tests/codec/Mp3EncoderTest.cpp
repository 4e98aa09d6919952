// MP3 output: real decoders get back exactly the frames that went in, at
// lag 0, with the channels, the rate and the tones, and every frame carries
// the chosen bit rate and channel mode.
#include "codec/Mp3Encoder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "TestSupport.h"

namespace {

using wv::AudioEncoder;
using wv::EncodeFormat;
using wv::Mp3Encoder;

std::unique_ptr<AudioEncoder> encodeFile(const std::string& path, uint32_t rate, uint32_t channels, uint32_t kbps,
                                         const std::vector<int16_t>& pcm, int blockBytes) {
    std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(EncodeFormat::Mp3, path.c_str()));
    if (!encoder || encoder->initEncoder(rate, channels, kbps, 1) != 0) return nullptr;
    const auto* bytes = reinterpret_cast<const char*>(pcm.data());
    const int total = static_cast<int>(pcm.size() * 2);
    for (int at = 0; at < total; at += blockBytes) {
        if (encoder->checkStatus() != 0) return nullptr;
        const int n = std::min(blockBytes, total - at);
        if (encoder->encoding(reinterpret_cast<const int16_t*>(bytes + at), n) != 0) return nullptr;
    }
    if (encoder->finishEncoding() != 0) return nullptr;
    return encoder;
}

class Mp3Output : public ::testing::Test {
protected:
    void SetUp() override {
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    }
    wvtest::TempDir mDir;
};

TEST_F(Mp3Output, StereoToneKeepsLengthChannelsAndPitch) {
    const std::string path = mDir.file("stereo.mp3");
    const uint32_t frames = 2 * 44100;
    const auto pcm = wvtest::makeTones(frames, 44100, {1000, 2500});
    auto encoder = encodeFile(path, 44100, 2, 128, pcm, 16384);
    ASSERT_NE(encoder, nullptr);
    EXPECT_EQ(static_cast<Mp3Encoder*>(encoder.get())->mode(), Mp3Encoder::MODE_DUAL_CHANNEL);
    encoder.reset();

    wvtest::StreamInfo info;
    ASSERT_TRUE(wvtest::probeAudio(path, &info));
    EXPECT_EQ(info.codec, "mp3");
    EXPECT_EQ(info.sampleRate, 44100);
    EXPECT_EQ(info.channels, 2);
    EXPECT_EQ(info.bitRate, 128000);

    std::vector<int16_t> decoded;
    ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
    EXPECT_EQ(decoded.size() / 2, frames);

    // Left stays at 1 kHz and right at 2.5 kHz: the channels are neither
    // swapped nor mixed.
    const size_t from = 22050, count = 44100;
    const double left1k = wvtest::tonePower(decoded, 2, 0, from, count, 44100, 1000);
    const double left25 = wvtest::tonePower(decoded, 2, 0, from, count, 44100, 2500);
    const double right1k = wvtest::tonePower(decoded, 2, 1, from, count, 44100, 1000);
    const double right25 = wvtest::tonePower(decoded, 2, 1, from, count, 44100, 2500);
    EXPECT_GT(left1k, 0.01);  // a 0.5 full-scale sine gives about 0.0625
    EXPECT_GT(right25, 0.01);
    EXPECT_GT(left1k, 1000 * left25);
    EXPECT_GT(right25, 1000 * right1k);
}

TEST_F(Mp3Output, EveryFrameCarriesTheBitRateAndChannelMode) {
    // Bit rates at which LAME keeps the input rate (below them it picks a
    // lower output rate of its own).
    struct Case {
        uint32_t rate, channels, kbps;
        int headerMode;  // 2 dual channel, 3 mono
    };
    for (const Case& c : {Case{44100, 2, 320, 2}, Case{44100, 2, 160, 2}, Case{44100, 1, 128, 3}, Case{22050, 1, 32, 3},
                          Case{48000, 2, 192, 2}}) {
        SCOPED_TRACE(std::to_string(c.rate) + " Hz, " + std::to_string(c.channels) + " ch, " + std::to_string(c.kbps) +
                     " kbit/s");
        const std::string path = mDir.file("cbr.mp3");
        const uint32_t frames = c.rate * 3 / 2;
        std::vector<double> tones(c.channels, 440.0);
        const auto pcm = wvtest::makeTones(frames, c.rate, tones);
        ASSERT_NE(encodeFile(path, c.rate, c.channels, c.kbps, pcm, 4096 * 2 * c.channels), nullptr);

        const auto file = wvtest::readFile(path);
        const wvtest::Mp3Frames s = wvtest::walkMp3Frames(file);
        EXPECT_GT(s.frames, 0) << "frames do not tile the file";
        EXPECT_TRUE(s.infoFrame);
        EXPECT_EQ(s.bitrateKbps, static_cast<int>(c.kbps));
        EXPECT_EQ(s.mode, c.headerMode);
        EXPECT_EQ(s.sampleRate, static_cast<int>(c.rate));

        wvtest::StreamInfo info;
        ASSERT_TRUE(wvtest::probeAudio(path, &info));
        EXPECT_EQ(info.channels, static_cast<int>(c.channels));
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
        EXPECT_EQ(decoded.size() / c.channels, frames);
    }
}

TEST_F(Mp3Output, OneHugeBlockEncodesLikeManySmallOnes) {
    // Far more than one pass of LAME may take into the fixed output buffer.
    const uint32_t frames = 200000;
    const auto pcm = wvtest::makeTones(frames, 44100, {700, 700});
    const std::string big = mDir.file("big.mp3"), small = mDir.file("small.mp3");
    ASSERT_NE(encodeFile(big, 44100, 2, 320, pcm, static_cast<int>(pcm.size() * 2)), nullptr);
    ASSERT_NE(encodeFile(small, 44100, 2, 320, pcm, 16384), nullptr);
    // Same input, same CBR stream.
    EXPECT_EQ(wvtest::readFile(big), wvtest::readFile(small));
    std::vector<int16_t> decoded;
    ASSERT_TRUE(wvtest::decodeToPcm16(big, mDir.path(), &decoded));
    EXPECT_EQ(decoded.size() / 2, frames);
}

TEST_F(Mp3Output, DecodersGetExactlyTheFramesEncodedStartingAtFrameZero) {
    const bool mpg123 = wvtest::haveMpg123();
    for (const uint32_t rate : {8000u, 16000u, 22050u, 44100u, 48000u}) {
        for (const uint32_t channels : {1u, 2u}) {
            SCOPED_TRACE(std::to_string(rate) + " Hz, " + std::to_string(channels) + " ch");
            // Not a whole number of MP3 frames, so that the padding matters.
            const uint32_t frames = rate + 777;
            const auto pcm = wvtest::makeNoise(frames, channels);
            const std::string path = mDir.file("exact.mp3");
            ASSERT_NE(encodeFile(path, rate, channels, rate < 32000 ? 64 : 128, pcm, 5000 * 2 * channels), nullptr);

            std::vector<int16_t> decoded;
            ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
            EXPECT_EQ(decoded.size() / channels, frames) << "ffmpeg";
            EXPECT_EQ(wvtest::bestLag(pcm, decoded, channels, 2500), 0) << "ffmpeg";
            if (!mpg123) continue;
            ASSERT_TRUE(wvtest::decodeWithMpg123(path, mDir.path(), &decoded));
            EXPECT_EQ(decoded.size() / channels, frames) << "mpg123";
            EXPECT_EQ(wvtest::bestLag(pcm, decoded, channels, 2500), 0) << "mpg123";
        }
    }
}

TEST_F(Mp3Output, LowBitRatesReportTheRateLameWrites) {
    // LAME lowers the output rate by itself at these bit rates.
    struct Case {
        uint32_t kbps, expectedRate;
    };
    for (const Case& c : {Case{32, 16000}, Case{96, 32000}, Case{128, 44100}}) {
        SCOPED_TRACE(std::to_string(c.kbps) + " kbit/s");
        const std::string path = mDir.file("low.mp3");
        const uint32_t frames = 44100 + 777;
        const auto pcm = wvtest::makeNoise(frames, 2);
        auto encoder = encodeFile(path, 44100, 2, c.kbps, pcm, 8192);
        ASSERT_NE(encoder, nullptr);
        EXPECT_EQ(encoder->outputSampleRate(), c.expectedRate);
        EXPECT_EQ(encoder->outputChannels(), 2u);
        wvtest::StreamInfo info;
        ASSERT_TRUE(wvtest::probeAudio(path, &info));
        EXPECT_EQ(info.sampleRate, static_cast<int>(c.expectedRate));
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
        EXPECT_NEAR(double(decoded.size() / 2), double(frames) * c.expectedRate / 44100, 1.0);
    }
}

TEST(Mp3Encoder, RejectsSettingsItCannotEncode) {
    wvtest::TempDir dir;
    Mp3Encoder encoder;
    ASSERT_EQ(encoder.openFile(dir.file("bad.mp3").c_str()), 0);
    EXPECT_EQ(encoder.initEncoder(44100, 3, 128, 1), AudioEncoder::INIT_FAILED);
    EXPECT_EQ(encoder.initEncoder(44100, 0, 128, 1), AudioEncoder::INIT_FAILED);
    EXPECT_EQ(encoder.initEncoder(44100, 2, 128, 9), AudioEncoder::INIT_FAILED);
    // Without a started LAME there is nothing to encode into.
    EXPECT_EQ(encoder.encoding(nullptr, 0), wv::FileWriter::WRITE_ERROR);
    // A failed start does not spoil a correct one.
    EXPECT_EQ(encoder.initEncoder(44100, 2, 128, 1), 0);
    EXPECT_EQ(encoder.encoding(nullptr, 0), wv::FileWriter::WRITE_OK);
}

}  // namespace
