// WAV output: the 44-byte header describes exactly the data that follows it,
// including when the storage fills up.
#include "codec/WaveEncoder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFiles.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"

namespace {

using wv::AudioEncoder;
using wv::EncodeFormat;
using wv::FileWriter;
using wv::WaveEncoder;

uint32_t le32(const std::vector<char>& b, size_t at) {
    return uint32_t(uint8_t(b[at])) | uint32_t(uint8_t(b[at + 1])) << 8 | uint32_t(uint8_t(b[at + 2])) << 16 |
           uint32_t(uint8_t(b[at + 3])) << 24;
}
uint16_t le16(const std::vector<char>& b, size_t at) { return uint16_t(uint8_t(b[at]) | uint8_t(b[at + 1]) << 8); }

std::string tag(const std::vector<char>& b, size_t at) { return std::string(&b[at], 4); }

std::unique_ptr<AudioEncoder> create(encode_type type, const std::string& path) {
    return std::unique_ptr<AudioEncoder>(
        AudioEncoder::createAudioEncoder(static_cast<EncodeFormat>(type), path.c_str()));
}

TEST(WaveEncoder, HeaderAndDataOfStereoFile) {
    wvtest::TempDir dir;
    const std::string path = dir.file("out.wav");
    // 10 s of 44.1 kHz stereo: 1764000 bytes, fed in the render step's size.
    const auto pcm = wvtest::makeTones(441000, 44100, {440, 660});
    auto encoder = create(ENCODE_WAV, path);
    ASSERT_NE(encoder, nullptr);
    ASSERT_EQ(encoder->initEncoder(44100, 2, 320, 1), 0);
    const char* bytes = reinterpret_cast<const char*>(pcm.data());
    const int total = static_cast<int>(pcm.size() * 2);
    ASSERT_EQ(total, 1764000);
    for (int at = 0; at < total; at += 16384) {
        ASSERT_EQ(encoder->checkStatus(), FileWriter::WRITE_OK);
        const int n = std::min(16384, total - at);
        ASSERT_EQ(encoder->encoding(reinterpret_cast<const int16_t*>(bytes + at), n), FileWriter::WRITE_OK);
    }
    ASSERT_EQ(encoder->finishEncoding(), 0);
    encoder.reset();

    const auto file = wvtest::readFile(path);
    ASSERT_EQ(file.size(), 44u + 1764000u);
    EXPECT_EQ(tag(file, 0), "RIFF");
    EXPECT_EQ(le32(file, 4), 1764036u);
    EXPECT_EQ(tag(file, 8), "WAVE");
    EXPECT_EQ(tag(file, 12), "fmt ");
    EXPECT_EQ(le32(file, 16), 16u);
    EXPECT_EQ(le16(file, 20), 1);  // PCM
    EXPECT_EQ(le16(file, 22), 2);
    EXPECT_EQ(le32(file, 24), 44100u);
    EXPECT_EQ(le32(file, 28), 176400u);
    EXPECT_EQ(le16(file, 32), 4);
    EXPECT_EQ(le16(file, 34), 16);
    EXPECT_EQ(tag(file, 36), "data");
    EXPECT_EQ(le32(file, 40), 1764000u);
    EXPECT_EQ(std::memcmp(file.data() + 44, pcm.data(), 1764000), 0);
}

TEST(WaveEncoder, EmptyMonoFileHasZeroSizes) {
    wvtest::TempDir dir;
    const std::string path = dir.file("empty.wav");
    auto encoder = create(ENCODE_WAV, path);
    ASSERT_NE(encoder, nullptr);
    ASSERT_EQ(encoder->initEncoder(8000, 1, 0, 1), 0);
    // The provisional header is already on disk.
    EXPECT_EQ(wvtest::fileSize(path), 44);
    ASSERT_EQ(encoder->finishEncoding(), 0);
    encoder.reset();
    const auto file = wvtest::readFile(path);
    ASSERT_EQ(file.size(), 44u);
    EXPECT_EQ(le32(file, 4), 36u);
    EXPECT_EQ(le16(file, 22), 1);
    EXPECT_EQ(le32(file, 24), 8000u);
    EXPECT_EQ(le32(file, 28), 16000u);
    EXPECT_EQ(le16(file, 32), 2);
    EXPECT_EQ(le32(file, 40), 0u);
}

TEST(AudioEncoder, FactoryRejectsUnknownTypesAndUncreatableFiles) {
    wvtest::TempDir dir;
    wvtest::LogCapture log;
    EXPECT_EQ(create(static_cast<encode_type>(6), dir.file("x.wav")), nullptr);
    EXPECT_TRUE(log.contains("Unsupported type 6"));
    EXPECT_FALSE(wvtest::fileExists(dir.file("x.wav")));

    const std::string bad = dir.file("no/such/dir/x.mp3");
    EXPECT_EQ(create(ENCODE_MP3, bad), nullptr);
    EXPECT_EQ(create(ENCODE_WAV, bad), nullptr);
    EXPECT_TRUE(log.contains("file " + bad + " open failed error: No such file or directory"));
}

TEST(AudioEncoder, DeletedBeforeFinishingLeavesNoFile) {
    wvtest::TempDir dir;
    const auto pcm = wvtest::makeTones(4096, 44100, {440, 440});
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const std::string path = dir.file(type == ENCODE_WAV ? "cut.wav" : "cut.mp3");
        auto encoder = create(type, path);
        ASSERT_NE(encoder, nullptr);
        ASSERT_EQ(encoder->initEncoder(44100, 2, 128, 1), 0);
        ASSERT_EQ(encoder->encoding(pcm.data(), static_cast<int>(pcm.size() * 2)), 0);
        EXPECT_TRUE(wvtest::fileExists(path));
        encoder.reset();
        EXPECT_FALSE(wvtest::fileExists(path)) << type;
    }
}

// Encoding into a tmpfs until it is full, the way the render job does it.
class EncoderOnSmallStorage : public ::testing::TestWithParam<encode_type> {
protected:
    void SetUp() override {
        if (!mFs.mounted()) GTEST_SKIP() << mFs.skipReason();
    }
    // Feeds 16384-byte blocks until a status other than 0; returns it.
    int encodeUntilFull(AudioEncoder* encoder) {
        const auto pcm = wvtest::makeTones(4096, 44100, {300, 3000});
        for (int block = 0; block < 1000; ++block) {
            int status = encoder->checkStatus();
            if (status != 0) return status;
            status = encoder->encoding(pcm.data(), 16384);
            if (status != 0) return status;
        }
        return 0;
    }
    wvtest::SmallFilesystem mFs{192 * 1024};
};

TEST_P(EncoderOnSmallStorage, FullStorageStopsTheJobAndLeavesNoPartialFile) {
    const std::string path = mFs.file("render.out");
    auto encoder = create(GetParam(), path);
    ASSERT_NE(encoder, nullptr);
    ASSERT_EQ(encoder->initEncoder(44100, 2, 320, 1), 0);
    EXPECT_EQ(encodeUntilFull(encoder.get()), FileWriter::WRITE_STORAGE_FULL);
    EXPECT_GT(encoder->heldLength(), 0u);
    // The protocol's next check still finds no room.
    EXPECT_EQ(encoder->checkStatus(), FileWriter::WRITE_STORAGE_FULL);
    encoder.reset();
    EXPECT_FALSE(wvtest::fileExists(path));
    EXPECT_EQ(mFs.freeBytes(), 192 * 1024);
}

INSTANTIATE_TEST_SUITE_P(Types, EncoderOnSmallStorage, ::testing::Values(ENCODE_WAV, ENCODE_MP3),
                         [](const ::testing::TestParamInfo<encode_type>& info) {
                             return std::string(info.param == ENCODE_WAV ? "Wav" : "Mp3");
                         });

TEST(WaveEncoderOnSmallStorage, FinishingWhileFullFailsUnlessTheRemainderIsDropped) {
    wvtest::SmallFilesystem fs(64 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    const std::string path = fs.file("rec.wav");
    const auto pcm = wvtest::makeTones(8192, 22050, {1000});
    auto fill = [&](WaveEncoder* encoder) {
        ASSERT_EQ(encoder->initEncoder(22050, 1, 0, 1), 0);
        int status = 0;
        while (status == 0) status = encoder->encoding(pcm.data(), 16384);
        ASSERT_EQ(status, FileWriter::WRITE_STORAGE_FULL);
    };
    // A render cannot leave samples out: finishing fails and nothing stays.
    auto render = create(ENCODE_WAV, path);
    fill(static_cast<WaveEncoder*>(render.get()));
    EXPECT_EQ(render->finishEncoding(), FileWriter::WRITE_STORAGE_FULL);
    render.reset();
    EXPECT_FALSE(wvtest::fileExists(path));

    // A recording stopped while the storage is full keeps what reached the
    // file: it drops the held remainder, which is neither written nor counted.
    auto recording = create(ENCODE_WAV, path);
    fill(static_cast<WaveEncoder*>(recording.get()));
    recording->dropHeld();
    EXPECT_EQ(recording->finishEncoding(), 0);
    recording.reset();
    const auto file = wvtest::readFile(path);
    ASSERT_EQ(file.size(), 64u * 1024u);
    EXPECT_EQ(le32(file, 40), file.size() - 44);
    EXPECT_EQ(le32(file, 4), file.size() - 8);
}

}  // namespace
