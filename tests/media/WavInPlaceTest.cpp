// Which WAV files are read in place ("audio/raw") and how: the 44-byte rule,
// the data length, seeks, and files beyond 4 GiB.
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>

#include "AudioFixtures.h"
#include "MediaDecode.h"
#include "TestSupport.h"
#include "platform/media/DataSource.h"
#include "platform/media/MediaExtractor.h"

namespace {

using wvtest::DecodedAudio;

void put16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(uint8_t(v));
    out.push_back(uint8_t(v >> 8));
}
void put32(std::vector<uint8_t>& out, uint32_t v) {
    put16(out, uint16_t(v));
    put16(out, uint16_t(v >> 16));
}
void putTag(std::vector<uint8_t>& out, const char* tag) { out.insert(out.end(), tag, tag + 4); }

struct WavLayout {
    uint16_t formatTag = 1;
    uint16_t channels = 2;
    uint32_t rate = 8000;
    uint16_t bits = 16;
    bool extensible = false;
    bool chunkBeforeData = false;
    bool chunkAfterData = false;
    int64_t statedDataBytes = -1;  // -1: the real size
};

std::vector<uint8_t> buildWav(const WavLayout& w, const std::vector<uint8_t>& data) {
    std::vector<uint8_t> f;
    putTag(f, "RIFF");
    put32(f, 0);  // patched below
    putTag(f, "WAVE");
    putTag(f, "fmt ");
    put32(f, w.extensible ? 40 : 16);
    put16(f, w.extensible ? 0xFFFE : w.formatTag);
    put16(f, w.channels);
    put32(f, w.rate);
    put32(f, w.rate * w.channels * w.bits / 8);
    put16(f, uint16_t(w.channels * w.bits / 8));
    put16(f, w.bits);
    if (w.extensible) {
        put16(f, 22);
        put16(f, w.bits);
        put32(f, w.channels == 1 ? 0x4 : 0x3);
        static const uint8_t kPcmGuid[16] = {1, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xaa, 0, 0x38, 0x9b, 0x71};
        f.insert(f.end(), kPcmGuid, kPcmGuid + 16);
    }
    if (w.chunkBeforeData) {
        putTag(f, "LIST");
        put32(f, 4);
        putTag(f, "INFO");
    }
    putTag(f, "data");
    put32(f, w.statedDataBytes >= 0 ? uint32_t(w.statedDataBytes) : uint32_t(data.size()));
    f.insert(f.end(), data.begin(), data.end());
    if (w.chunkAfterData) {
        putTag(f, "LIST");
        put32(f, 8);
        putTag(f, "INFO");
        putTag(f, "abcd");
    }
    const uint32_t riff = uint32_t(f.size() - 8);
    std::memcpy(&f[4], &riff, 4);
    return f;
}

std::vector<uint8_t> bytesOf(const std::vector<int16_t>& samples) {
    std::vector<uint8_t> out;
    for (int16_t s : samples) put16(out, uint16_t(s));
    return out;
}

std::shared_ptr<wv::MetaData> firstTrackMeta(const std::string& path) {
    auto extractor = wv::MediaExtractor::Create(wv::DataSource::CreateFromURI(path.c_str()));
    return extractor ? extractor->getTrackMetaData(0) : nullptr;
}

std::string mimeOf(const std::shared_ptr<wv::MetaData>& meta) {
    const char* mime = "";
    if (meta) meta->findCString(wv::kKeyMIMEType, &mime);
    return mime;
}

class WavInPlace : public ::testing::Test {
protected:
    wvtest::TempDir dir;
    const std::vector<int16_t> tone = wvtest::makeTone(8000, 2, 1.0, 500.0);
    std::string write(const char* name, const WavLayout& layout, const std::vector<uint8_t>& data) {
        const auto bytes = buildWav(layout, data);
        wvtest::writeFile(dir.file(name), bytes.data(), bytes.size());
        return dir.file(name);
    }
};

TEST_F(WavInPlace, OnlyTheCanonicalFormIsRawAndOthersStillDecodeExactly) {
    const auto data = bytesOf(tone);
    const std::string canonical = write("canonical.wav", WavLayout{}, data);
    auto meta = firstTrackMeta(canonical);
    EXPECT_EQ(mimeOf(meta), "audio/raw");
    int32_t rate = 0, channels = 0;
    int64_t durationUs = 0;
    ASSERT_TRUE(meta->findInt32(wv::kKeySampleRate, &rate));
    ASSERT_TRUE(meta->findInt32(wv::kKeyChannelCount, &channels));
    ASSERT_TRUE(meta->findInt64(wv::kKeyDuration, &durationUs));
    EXPECT_EQ(rate, 8000);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(durationUs, 1000000);

    WavLayout extraChunk;
    extraChunk.chunkBeforeData = true;
    WavLayout extensible;
    extensible.extensible = true;
    for (auto* c : {&extraChunk, &extensible}) {
        const std::string path = write(c == &extraChunk ? "extra.wav" : "ext.wav", *c, data);
        SCOPED_TRACE(path);
        const std::string mime = mimeOf(firstTrackMeta(path));
        EXPECT_EQ(mime.find("raw"), std::string::npos) << mime;
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(path, &audio));
        EXPECT_EQ(audio.channels, 2);
        EXPECT_TRUE(audio.samples == tone);
    }
}

TEST_F(WavInPlace, OtherWidthsAndChannelCountsAreDecodedNotReadInPlace) {
    // 8-bit unsigned samples: 0x80 is silence, 0xC0 half scale up.
    WavLayout eight;
    eight.bits = 8;
    eight.channels = 1;
    std::vector<uint8_t> data8(8000);
    for (size_t i = 0; i < data8.size(); ++i) data8[i] = (i / 20) % 2 ? 0xC0 : 0x40;
    const std::string path8 = write("eight.wav", eight, data8);
    EXPECT_EQ(mimeOf(firstTrackMeta(path8)), "audio/x-wav");
    DecodedAudio audio8;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(path8, &audio8));
    ASSERT_EQ(audio8.channels, 1);
    ASSERT_EQ(audio8.frames(), 8000u);
    EXPECT_EQ(audio8.samples[0], -0x4000);
    EXPECT_EQ(audio8.samples[20], 0x4000);

    // Three 16-bit channels behind an otherwise canonical header: mixed to two.
    WavLayout three;
    three.channels = 3;
    const auto tone3 = wvtest::makeTone(8000, 3, 1.0, 500.0);
    const std::string path3 = write("three.wav", three, bytesOf(tone3));
    auto meta3 = firstTrackMeta(path3);
    EXPECT_EQ(mimeOf(meta3).find("raw"), std::string::npos);
    int32_t channels = 0, sourceChannels = 0;
    meta3->findInt32(wv::kKeyChannelCount, &channels);
    meta3->findInt32(wv::kKeySourceChannelCount, &sourceChannels);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(sourceChannels, 3);
    DecodedAudio audio3;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(path3, &audio3));
    EXPECT_EQ(audio3.channels, 2);
    EXPECT_EQ(audio3.frames(), 8000u);
}

TEST_F(WavInPlace, DataLengthComesFromTheHeaderWhenItFitsTheFile) {
    const auto data = bytesOf(tone);  // 32000 bytes, 8000 frames
    struct Case {
        const char* name;
        int64_t stated;
        bool trailer;
        size_t cut;  // bytes removed from the end of the file
        int64_t frames;
    } cases[] = {
        {"exact.wav", -1, false, 0, 8000},        {"streamed.wav", 0xFFFFFFFF, false, 0, 8000},  // size never filled in
        {"zero.wav", 0, false, 0, 8000},          {"short.wav", 16000, false, 0, 4000},  // header says less: believe it
        {"trailer.wav", -1, true, 0, 8000},                                              // chunk after the data
        {"truncated.wav", -1, false, 4002, 6999},                                        // cut mid-frame
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        WavLayout layout;
        layout.statedDataBytes = c.stated;
        layout.chunkAfterData = c.trailer;
        auto bytes = buildWav(layout, data);
        bytes.resize(bytes.size() - c.cut);
        wvtest::writeFile(dir.file(c.name), bytes.data(), bytes.size());
        auto meta = firstTrackMeta(dir.file(c.name));
        EXPECT_EQ(mimeOf(meta), "audio/raw");
        int64_t durationUs = 0;
        meta->findInt64(wv::kKeyDuration, &durationUs);
        EXPECT_EQ(durationUs, c.frames * 1000000 / 8000);
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(dir.file(c.name), &audio));
        EXPECT_EQ(int64_t(audio.frames()), c.frames);
    }
}

TEST_F(WavInPlace, SeeksAreExactToTheFrame) {
    const std::vector<int16_t> ramp = [] {
        std::vector<int16_t> v(2 * 8000);
        for (size_t i = 0; i < v.size(); ++i) v[i] = int16_t(i);
        return v;
    }();
    const std::string path = write("ramp.wav", WavLayout{}, bytesOf(ramp));
    auto source = wvtest::openPcmSource(path);
    ASSERT_TRUE(source);
    DecodedAudio tail;
    wvtest::readAll(*source, &tail, 250000);  // frame 2000
    ASSERT_EQ(tail.frames(), 6000u);
    EXPECT_EQ(tail.bufferTimesUs[0], 250000);
    EXPECT_EQ(tail.samples[0], int16_t(4000));
    EXPECT_EQ(tail.samples[1], int16_t(4001));
    // Buffers after the first are stamped where they start.
    for (size_t i = 1; i < tail.bufferTimesUs.size(); ++i) {
        EXPECT_GT(tail.bufferTimesUs[i], tail.bufferTimesUs[i - 1]);
    }
    DecodedAudio past;
    EXPECT_EQ(wvtest::readAll(*source, &past, 5000000), wv::ERROR_END_OF_STREAM);
    EXPECT_EQ(past.frames(), 0u);
    source->stop();
}

TEST_F(WavInPlace, FilesBeyondFourGigabytesUseSixtyFourBitOffsets) {
    const std::string path = dir.file("huge.wav");
    const int64_t frames = (int64_t(1) << 30) + 4096;  // 4 GiB of stereo data and a bit
    const int64_t marked = (int64_t(1) << 30) + 1000;
    {
        const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        const auto header = wvtest::canonicalWavHeader(44100, 2, uint32_t(frames * 4));  // wraps
        ASSERT_EQ(::pwrite(fd, header.data(), header.size(), 0), ssize_t(header.size()));
        const int16_t mark[4] = {1234, -1234, 5678, -5678};
        ASSERT_EQ(::pwrite(fd, mark, sizeof mark, off_t(44 + marked * 4)), ssize_t(sizeof mark));
        const bool sparse = ::ftruncate(fd, off_t(44 + frames * 4)) == 0;
        ::close(fd);
        if (!sparse) GTEST_SKIP() << "no room for a sparse 4 GiB file";
    }
    auto meta = firstTrackMeta(path);
    EXPECT_EQ(mimeOf(meta), "audio/raw");
    int64_t durationUs = 0;
    meta->findInt64(wv::kKeyDuration, &durationUs);
    EXPECT_EQ(durationUs, frames * 1000000 / 44100);

    auto source = wvtest::openPcmSource(path);
    ASSERT_TRUE(source);
    DecodedAudio at;
    wvtest::readAll(*source, &at, marked * 1000000 / 44100, 1);
    ASSERT_GE(at.samples.size(), 4u);
    EXPECT_EQ(at.samples[0], 1234);
    EXPECT_EQ(at.samples[3], -5678);
    source->stop();
}

}  // namespace
