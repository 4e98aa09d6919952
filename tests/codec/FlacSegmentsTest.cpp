// FLAC encoded on several threads: the file is the one-thread file byte for
// byte (frames renumbered, STREAMINFO with the whole stream's frame sizes,
// length and MD5), at every rate and channel count and at every length
// around the segments' edges, tags and chapters included; ffmpeg decodes it
// to the very samples and flac checks its MD5. Deleted mid-way or on full
// storage, it leaves nothing and keeps an existing file.
#include "codec/FfmpegEncoder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "EncoderFeed.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"
#include "codec/FlacSegments.h"

namespace {

using wv::AudioEncoder;
using wv::EncodeFormat;
using wv::EncodeOptions;
using wv::FfmpegEncoder;
using wv::FileWriter;
using wv::FlacSegments;

// Tones over quiet noise, a stretch of digital silence (constant
// subframes) and, at the end, full-scale noise apart in each channel
// (frames no predictor shrinks): every kind of frame, the last short one
// included.
std::vector<int16_t> programme(uint32_t frames, uint32_t rate, uint32_t channels) {
    std::vector<int16_t> pcm(size_t(frames) * channels);
    uint32_t state = 99;
    const uint32_t loudFrom = frames > 6000 ? frames - 6000 : 0;
    for (uint32_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        const bool silent = std::fmod(t, 3.0) > 2.5;
        for (uint32_t c = 0; c < channels; ++c) {
            state = state * 1664525u + 1013904223u;
            const int noise = static_cast<int>(state >> 16) - 32768;
            int16_t v = 0;
            if (i >= loudFrom) {
                v = static_cast<int16_t>(noise);
            } else if (!silent) {
                v = static_cast<int16_t>(8000 * std::sin(2 * M_PI * (c == 0 ? 440.0 : 587.0) * t) + noise / 64);
            }
            pcm[size_t(i) * channels + c] = v;
        }
    }
    return pcm;
}

std::unique_ptr<FfmpegEncoder> startFlac(const std::string& path, uint32_t rate, uint32_t channels, int threads,
                                         const wv::OutputTags* tags = nullptr) {
    std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(EncodeFormat::Flac, path.c_str()));
    if (!encoder) return nullptr;
    EncodeOptions options;
    options.threads = threads;
    encoder->setOptions(options);
    if (tags != nullptr) encoder->setTags(*tags);
    if (encoder->initEncoder(rate, channels, 0, AudioEncoder::FORMAT_PCM_16) != 0) return nullptr;
    return std::unique_ptr<FfmpegEncoder>(static_cast<FfmpegEncoder*>(encoder.release()));
}

// Whether a whole file was written; the encoder's threading in `threaded`.
bool encodeFlac(const std::string& path, uint32_t rate, uint32_t channels, int threads,
                const std::vector<int16_t>& pcm, bool* threaded = nullptr, const wv::OutputTags* tags = nullptr) {
    std::unique_ptr<FfmpegEncoder> encoder = startFlac(path, rate, channels, threads, tags);
    if (!encoder) return false;
    if (threaded != nullptr) *threaded = encoder->threaded();
    // Blocks that never meet the codec's: every segment edge falls inside one.
    return wvtest::feed(encoder.get(), pcm, channels, 7001) == 0 && encoder->finishEncoding() == 0;
}

// The codec's block and a segment, in input frames.
struct Grid {
    uint32_t block = 0;
    uint32_t segment = 0;
};

Grid gridAt(uint32_t rate, uint32_t channels, const std::string& dir) {
    std::unique_ptr<FfmpegEncoder> encoder = startFlac(dir + "/grid.flac", rate, channels, 2);
    Grid grid;
    if (!encoder) return grid;
    grid.block = static_cast<uint32_t>(encoder->codecFrameSize());
    grid.segment = FlacSegments::segmentBlocks(rate, grid.block) * grid.block;
    return grid;
}

std::string firstLine(const std::string& command) {
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return {};
    char line[256] = {};
    const bool read = std::fgets(line, sizeof line, pipe) != nullptr;
    const bool ok = ::pclose(pipe) == 0 && read;
    std::string text = ok ? line : "";
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

bool haveFlacTools() { return std::system("flac --version >/dev/null 2>&1 && metaflac --version >/dev/null 2>&1") == 0; }

class FlacThreaded : public ::testing::Test {
protected:
    void SetUp() override {
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    }
    wvtest::TempDir mDir;
};

TEST_F(FlacThreaded, WritesTheOneThreadBytesAtEveryLengthAroundTheSegments) {
    for (const uint32_t channels : {1u, 2u}) {
        const uint32_t rate = channels == 2 ? 44100 : 8000;
        const Grid grid = gridAt(rate, channels, mDir.path());
        ASSERT_GT(grid.block, 0u);
        const uint32_t lengths[] = {
            0,                                   // headers only
            grid.block / 3,                      // shorter than one frame
            grid.segment / 2 + 17,               // shorter than one segment
            grid.segment,                        // exactly one
            grid.segment + 1,                    // one frame longer
            grid.segment + grid.block,           // one block past: a second segment of one block
            grid.segment + grid.block + 5,       // and a short block
            2 * grid.segment + grid.block - 1,   // two, the second with a short block
            3 * grid.segment + 1234,             // three and more
        };
        for (const uint32_t frames : lengths) {
            SCOPED_TRACE(std::to_string(channels) + " ch, " + std::to_string(frames) + " frames");
            const auto pcm = programme(frames, rate, channels);
            const std::string one = mDir.file("one.flac");
            ASSERT_TRUE(encodeFlac(one, rate, channels, 1, pcm));
            const std::vector<char> expected = wvtest::readFile(one);
            for (const int threads : wvtest::kSanitized ? std::vector<int>{3} : std::vector<int>{2, 3}) {
                const std::string path = mDir.file("threads.flac");
                bool threaded = false;
                ASSERT_TRUE(encodeFlac(path, rate, channels, threads, pcm, &threaded));
                EXPECT_TRUE(threaded);
                EXPECT_TRUE(wvtest::readFile(path) == expected) << threads << " threads";
                std::remove(path.c_str());
            }
            std::remove(one.c_str());
        }
    }
}

TEST_F(FlacThreaded, FramesWhoseNumbersTakeThreeBytesAreCodedAsByOneEncoder) {
    // Frame 2048 on, a number takes three bytes; the noise at the end
    // brings frames to the verbatim bound there.
    const Grid grid = gridAt(8000, 1, mDir.path());
    ASSERT_GT(grid.block, 0u);
    const uint32_t frames = 2100 * grid.block + 100;
    const auto pcm = programme(frames, 8000, 1);
    const std::string one = mDir.file("one.flac"), path = mDir.file("threads.flac");
    ASSERT_TRUE(encodeFlac(one, 8000, 1, 1, pcm));
    ASSERT_TRUE(encodeFlac(path, 8000, 1, 2, pcm));
    EXPECT_TRUE(wvtest::readFile(path) == wvtest::readFile(one));
}

TEST_F(FlacThreaded, EveryRateDecodesToTheVerySamplesWithTheRightLengthAndMd5) {
    const bool tools = haveFlacTools();
    for (const uint32_t rate : wvtest::sampled<uint32_t>({8000, 22050, 32000, 44100, 48000, 88200, 96000}, 3)) {
        for (const uint32_t channels : {1u, 2u}) {
            SCOPED_TRACE(std::to_string(rate) + " Hz, " + std::to_string(channels) + " ch");
            const Grid grid = gridAt(rate, channels, mDir.path());
            const uint32_t frames = 2 * grid.segment + grid.block + 321;
            const auto pcm = programme(frames, rate, channels);
            const std::string one = mDir.file("one.flac"), path = mDir.file("threads.flac");
            ASSERT_TRUE(encodeFlac(one, rate, channels, 1, pcm));
            ASSERT_TRUE(encodeFlac(path, rate, channels, 2, pcm));
            EXPECT_TRUE(wvtest::readFile(path) == wvtest::readFile(one));

            std::vector<int16_t> decoded;
            ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
            EXPECT_TRUE(decoded == pcm);
            if (tools) {
                EXPECT_EQ(firstLine("metaflac --show-total-samples '" + path + "'"), std::to_string(frames));
                // flac decodes every frame, checks both CRCs and the frame
                // numbers, and the samples against the stored MD5.
                EXPECT_EQ(std::system(("flac -t -s '" + path + "' 2>/dev/null").c_str()), 0);
            }
            std::remove(one.c_str());
            std::remove(path.c_str());
        }
    }
}

TEST_F(FlacThreaded, TagsAndChaptersAreWrittenAsByOneThread) {
    wv::OutputTags tags;
    tags.tags = {{"title", "Segments"}, {"artist", "Nobody"}};
    tags.chapters = {{0, "Start"}, {12500000, "Later"}};
    const uint32_t frames = 44100 * 25;
    const auto pcm = programme(frames, 44100, 2);
    const std::string one = mDir.file("one.flac"), path = mDir.file("threads.flac");
    ASSERT_TRUE(encodeFlac(one, 44100, 2, 1, pcm, nullptr, &tags));
    bool threaded = false;
    ASSERT_TRUE(encodeFlac(path, 44100, 2, 2, pcm, &threaded, &tags));
    EXPECT_TRUE(threaded);
    EXPECT_TRUE(wvtest::readFile(path) == wvtest::readFile(one));
    EXPECT_EQ(firstLine("ffprobe -v error -show_entries format_tags=title -of default=nw=1:nk=1 '" + path + "'"),
              "Segments");
    EXPECT_EQ(firstLine("ffprobe -v error -show_entries chapter_tags=title -of default=nw=1:nk=1 '" + path + "'"),
              "Start");
}

TEST_F(FlacThreaded, DeletedMidWayLeavesNoFileAndTheTargetAsItWas) {
    const auto pcm = programme(44100 * 35, 44100, 2);
    const std::string fresh = mDir.file("fresh.flac"), existing = mDir.file("existing.flac");
    wvtest::writeFile(existing, "old", 3);
    for (const std::string& path : {fresh, existing}) {
        std::unique_ptr<FfmpegEncoder> encoder = startFlac(path, 44100, 2, 3);
        ASSERT_NE(encoder, nullptr);
        ASSERT_TRUE(encoder->threaded());
        // Segments are in flight on the workers when the encoder goes.
        ASSERT_EQ(wvtest::feed(encoder.get(), pcm, 2, 4096), 0);
    }
    EXPECT_FALSE(wvtest::fileExists(fresh));
    EXPECT_EQ(wvtest::readFile(existing), std::vector<char>({'o', 'l', 'd'}));
    EXPECT_EQ(wvtest::namesIn(mDir.path()).size(), 1u);
}

// Real storage exhaustion on a tiny tmpfs.
class FlacThreadedOnSmallStorage : public ::testing::Test {
protected:
    void SetUp() override {
        if (!mFs.mounted()) GTEST_SKIP() << mFs.skipReason();
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    }
    // Leaves exactly `bytes` (a multiple of the page size) free.
    void leaveFree(long long bytes) { ASSERT_TRUE(mFs.leaveFree(bytes)) << bytes << " bytes free asked"; }
    // The header with its 8 KiB of padding fits; the first segment does not.
    static constexpr long long kRoom = 64 * 1024;
    wvtest::SmallFilesystem mFs{4 * 1024 * 1024};
    wvtest::TempDir mScratch;
};

TEST_F(FlacThreadedOnSmallStorage, FullStorageFailsTheOutputLeavesNoFileAndKeepsAnExistingOne) {
    const auto pcm = programme(44100 * 25, 44100, 2);
    const std::string fresh = mFs.file("fresh.flac"), existing = mFs.file("existing.flac");
    wvtest::writeFile(existing, "old", 3);
    for (const std::string& path : {fresh, existing}) {
        SCOPED_TRACE(path);
        leaveFree(kRoom);
        std::unique_ptr<FfmpegEncoder> encoder = startFlac(path, 44100, 2, 2);
        ASSERT_NE(encoder, nullptr);
        int status = wvtest::feed(encoder.get(), pcm, 2, 4096);
        if (status == 0) status = encoder->finishEncoding();
        EXPECT_EQ(status, FileWriter::WRITE_STORAGE_FULL);
        encoder.reset();
    }
    EXPECT_FALSE(wvtest::fileExists(fresh));
    EXPECT_EQ(wvtest::readFile(existing), std::vector<char>({'o', 'l', 'd'}));
}

TEST_F(FlacThreadedOnSmallStorage, ARetryAfterSpaceCameBackCompletesTheOneThreadFile) {
    const auto pcm = programme(44100 * 25, 44100, 2);
    const std::string one = mScratch.file("one.flac");
    ASSERT_TRUE(encodeFlac(one, 44100, 2, 1, pcm));
    const std::string path = mFs.file("retry.flac");
    leaveFree(kRoom);
    std::unique_ptr<FfmpegEncoder> encoder = startFlac(path, 44100, 2, 2);
    ASSERT_NE(encoder, nullptr);
    size_t fed = 0;
    if (wvtest::feed(encoder.get(), pcm, 2, 4096, &fed) == FileWriter::WRITE_STORAGE_FULL) {
        ::remove(mFs.file("filler").c_str());
        // The held remainder goes first, then the rest of the input.
        ASSERT_EQ(wvtest::feed(encoder.get(), pcm, 2, 4096, &fed), 0);
        ASSERT_EQ(encoder->finishEncoding(), 0);
    } else {
        // The workers were still at it when the input ended: the frames
        // meet the full storage at the end.
        ASSERT_EQ(encoder->finishEncoding(), FileWriter::WRITE_STORAGE_FULL);
        ::remove(mFs.file("filler").c_str());
        ASSERT_EQ(encoder->finishEncoding(), 0);
    }
    encoder.reset();
    EXPECT_TRUE(wvtest::readFile(path) == wvtest::readFile(one));
}

}  // namespace
