// Items whose PCM data reaches past 4 GiB, read at positions beyond the
// 32-bit byte range. The files are sparse (a hole with recognisable frames
// written at a few places), so they take no real disk space.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "TestSupport.h"
#include "codec/WaveEncoder.h"
#include "dsp/WaveformData.h"
#include "items/PcmInfoReader.h"

namespace {

using namespace wv;

constexpr uint32_t kRate = 44100;
constexpr uint32_t kFourGiBFrame = 1u << 30;              // stereo frame at byte 4 GiB
constexpr uint32_t kFrames = kFourGiBFrame + (1u << 28);  // 5 GiB of stereo frames
constexpr uint32_t kLateFrame = 1200000000;               // about 7 h 33 min in

// Frame n of the test files: left the low 16 bits of n, right the next 16.
int16_t leftOf(uint32_t n) { return static_cast<int16_t>(n & 0xFFFF); }
int16_t rightOf(uint32_t n) { return static_cast<int16_t>(n >> 16); }

class LargeFileTest : public ::testing::Test {
protected:
    // A sparse file of `header` bytes then kFrames stereo frames, with the
    // marked frames written around each of `marks` (4096 before, 4096 after).
    bool makeSparse(const std::string& path, uint32_t header, const std::vector<uint32_t>& marks) {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0) return false;
        bool ok = ::ftruncate(fd, off_t(header) + off_t(kFrames) * 4) == 0;
        for (uint32_t mark : marks) {
            const uint32_t first = mark - 4096;
            std::vector<int16_t> run(8192 * 2);
            for (uint32_t k = 0; k < 8192; ++k) {
                run[k * 2] = leftOf(first + k);
                run[k * 2 + 1] = rightOf(first + k);
            }
            const off_t at = off_t(header) + off_t(first) * 4;
            ok = ok && ::pwrite(fd, run.data(), run.size() * 2, at) == ssize_t(run.size() * 2);
        }
        ::close(fd);
        return ok;
    }
    SPcmInfo* item(pcm_status_t status) {
        items.emplace_back(new SPcmInfo(status));
        SPcmInfo* info = items.back().get();
        info->id = static_cast<pcm_id_t>(items.size());
        info->sampleRate = int32_t(kRate);
        info->channelCount = 2;
        info->frames = kFrames;
        info->totalFrames = kFrames;
        return info;
    }
    // A decoded item over a sparse .pcm file with the usual marks.
    SPcmInfo* largePcmItem() {
        const std::string path = dir.file("large.pcm");
        if (!makeSparse(path, 0, {kFourGiBFrame, kLateFrame, kFrames - 4096})) return nullptr;
        SPcmInfo* info = item(PCM_READY);
        info->pcmPath.set(path);
        return info;
    }
    // Checks that `count` frames of `buffer` are frames first, first+step, ...
    static void expectFrames(const std::vector<char>& buffer, uint32_t first, uint32_t count, int step = 1) {
        std::vector<int16_t> s(count * 2);
        std::memcpy(s.data(), buffer.data(), s.size() * 2);
        for (uint32_t k = 0; k < count; ++k) {
            const uint32_t n = first + uint32_t(int64_t(k) * step);
            ASSERT_EQ(s[k * 2], leftOf(n)) << "frame " << k << " should be " << n;
            ASSERT_EQ(s[k * 2 + 1], rightOf(n)) << "frame " << k << " should be " << n;
        }
    }
    wvtest::TempDir dir;
    std::vector<std::unique_ptr<SPcmInfo>> items;
};

TEST_F(LargeFileTest, ForwardReadsAcrossAndBeyondFourGiB) {
    SPcmInfo* info = largePcmItem();
    if (info == nullptr) GTEST_SKIP() << "no sparse files here";
    PcmInfoReader reader(info);
    std::vector<char> buffer(4096 * 4);

    // Across the 4 GiB boundary, then on from there.
    reader.setPosition(kFourGiBFrame - 1000, PcmInfoReader::kToEnd);
    ASSERT_EQ(reader.read(buffer.data(), 2000 * 4), 2000);
    expectFrames(buffer, kFourGiBFrame - 1000, 2000);
    ASSERT_EQ(reader.read(buffer.data(), 1000 * 4), 1000);
    expectFrames(buffer, kFourGiBFrame + 1000, 1000);

    // A seek in milliseconds to 7 h 33 min lands on the frame it names.
    const uint32_t ms = uint32_t(uint64_t(kLateFrame) * 1000 / kRate);
    reader.seekMs(ms);
    const uint32_t at = reader.position();
    EXPECT_EQ(at, uint32_t(uint64_t(ms) * kRate / 1000));
    ASSERT_EQ(reader.read(buffer.data(), 1024 * 4), 1024);
    expectFrames(buffer, at, 1024);

    // The last frames, then the end.
    reader.setPosition(kFrames - 100, PcmInfoReader::kToEnd);
    ASSERT_EQ(reader.read(buffer.data(), 4096 * 4), 100);
    expectFrames(buffer, kFrames - 100, 100);
    EXPECT_EQ(reader.endState(), PcmInfoReader::END);
}

TEST_F(LargeFileTest, BackwardAndMonoReadsBeyondFourGiB) {
    SPcmInfo* info = largePcmItem();
    if (info == nullptr) GTEST_SKIP() << "no sparse files here";
    PcmInfoReader reader(info);
    std::vector<char> buffer(256 * 4);
    reader.setPosition(kLateFrame + 100, PcmInfoReader::kToEnd);
    ASSERT_EQ(reader.reverseFill(buffer.data(), 256 * 4), 256);
    expectFrames(buffer, kLateFrame + 99, 256, -1);
    EXPECT_EQ(reader.position(), kLateFrame + 100 - 256);

    // Down-mixed to mono (the left channel is kept) at the same place.
    PcmInfoReader mono(info);
    mono.setOutputFormat(0, 1);
    mono.setPosition(kFourGiBFrame + 7, PcmInfoReader::kToEnd);
    // Converted in place: a buffer takes as many frames as it holds stereo.
    ASSERT_EQ(mono.read(buffer.data(), 1024), 256);
    std::vector<int16_t> s(256);
    std::memcpy(s.data(), buffer.data(), 512);
    for (uint32_t k = 0; k < 256; ++k) ASSERT_EQ(s[k], leftOf(kFourGiBFrame + 7 + k));
}

TEST_F(LargeFileTest, ClipOfALargeItemStartsBeyondFourGiB) {
    SPcmInfo* source = largePcmItem();
    if (source == nullptr) GTEST_SKIP() << "no sparse files here";
    SPcmInfo* list = item(CLIP_LIST);
    list->clipList.reset(new PcmClipList());
    PcmClip clip;
    clip.source = source;
    clip.start = kLateFrame - 50;
    clip.end = kLateFrame + 50;
    list->clipList->add(clip);
    clip.start = kFourGiBFrame + 3;
    clip.end = kFourGiBFrame + 13;
    list->clipList->add(clip);
    PcmInfoReader reader(list);
    std::vector<char> buffer(1024 * 4);
    ASSERT_EQ(reader.read(buffer.data(), 1024 * 4), 110);
    expectFrames(buffer, kLateFrame - 50, 100);
    std::vector<char> tail(buffer.begin() + 400, buffer.end());
    expectFrames(tail, kFourGiBFrame + 3, 10);
}

TEST_F(LargeFileTest, WavReadInPlaceBeyondFourGiB) {
    const std::string path = dir.file("large.wav");
    if (!makeSparse(path, PcmInfoReader::kWavHeaderBytes, {kFourGiBFrame, kLateFrame})) {
        GTEST_SKIP() << "no sparse files here";
    }
    SPcmInfo* info = item(PCM_READY);
    info->path.set(path);  // no working file: read behind the 44-byte header
    PcmInfoReader reader(info);
    std::vector<char> buffer(512 * 4);
    reader.setPosition(kFourGiBFrame - 256, PcmInfoReader::kToEnd);
    ASSERT_EQ(reader.read(buffer.data(), 512 * 4), 512);
    expectFrames(buffer, kFourGiBFrame - 256, 512);
    reader.setPosition(kLateFrame, PcmInfoReader::kToEnd);
    ASSERT_EQ(reader.reverseFill(buffer.data(), 512 * 4), 512);
    expectFrames(buffer, kLateFrame - 1, 512, -1);
}

// Waveform points go on past 2^32 samples (13.5 hours of stereo 44.1 kHz):
// the count of samples seen must not wrap, or no point would complete again.
TEST(LargeWaveform, PointsCompleteBeyondTwoToThe32Samples) {
    WaveformState state(44100, 2);  // a point per 1764 samples
    state.nextPoint = 2500000;
    state.samplesSeen = uint64_t(2499999) * 1764;  // 4,409,998,236
    std::vector<int16_t> samples(1764, 16384);
    const int16_t* data = samples.data();
    uint32_t bytes = uint32_t(samples.size() * 2);
    uint8_t point = 0;
    ASSERT_EQ(addWaveformSamples(&state, &data, &bytes, &point), 1);
    EXPECT_EQ(point, 127);
    EXPECT_EQ(bytes, 0u);
    EXPECT_EQ(state.samplesSeen, uint64_t(2500000) * 1764);
}

// A WAV output of more than 4 GiB keeps all its data and marks both sizes
// 0xFFFFFFFF instead of wrapping them. The data is written over and over
// the same 16 MiB of the file, so the disk holds no more than that.
TEST(LargeWaveOutput, SizesBeyondFourGiBAreMarkedNotWrapped) {
    wvtest::TempDir dir;
    std::unique_ptr<AudioEncoder> encoder(
        AudioEncoder::createAudioEncoder(wv::EncodeFormat::Wav, dir.file("big.wav").c_str()));
    ASSERT_NE(encoder, nullptr);
    ASSERT_EQ(encoder->initEncoder(44100, 2, 0, 1), 0);
    const int chunk = 16 << 20;
    std::vector<int16_t> silence(chunk / 2);
    for (int k = 0; k < 257; ++k) {  // 4112 MiB
        ASSERT_EQ(encoder->seek(WaveEncoder::HEADER_BYTES), int64_t(WaveEncoder::HEADER_BYTES));
        ASSERT_EQ(encoder->encoding(silence.data(), chunk), FileWriter::WRITE_OK);
    }
    ASSERT_EQ(encoder->finishEncoding(), 0);
    const uint8_t* header = static_cast<WaveEncoder*>(encoder.get())->header();
    auto le32 = [&](int at) {
        return uint32_t(header[at]) | uint32_t(header[at + 1]) << 8 | uint32_t(header[at + 2]) << 16 |
               uint32_t(header[at + 3]) << 24;
    };
    EXPECT_EQ(le32(4), 0xFFFFFFFFu);
    EXPECT_EQ(le32(40), 0xFFFFFFFFu);
    EXPECT_EQ(le32(24), 44100u);

    // Just below the limit the sizes are exact.
    std::unique_ptr<AudioEncoder> small(
        AudioEncoder::createAudioEncoder(wv::EncodeFormat::Wav, dir.file("s.wav").c_str()));
    ASSERT_EQ(small->initEncoder(8000, 1, 0, 1), 0);
    for (int k = 0; k < 255; ++k) {  // 4080 MiB
        ASSERT_EQ(small->seek(WaveEncoder::HEADER_BYTES), int64_t(WaveEncoder::HEADER_BYTES));
        ASSERT_EQ(small->encoding(silence.data(), chunk), FileWriter::WRITE_OK);
    }
    ASSERT_EQ(small->finishEncoding(), 0);
    header = static_cast<WaveEncoder*>(small.get())->header();
    EXPECT_EQ(le32(40), 255u * uint32_t(chunk));
    EXPECT_EQ(le32(4), 255u * uint32_t(chunk) + 36);
}

}  // namespace
