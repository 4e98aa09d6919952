// FLAC, Opus, AAC and Vorbis output: ffmpeg decodes each file to exactly the
// frames encoded (FLAC to the very samples), starting at frame 0, at the
// rate and channels the encoder reports; full storage fails the output and
// leaves nothing behind, and a retry after space came back completes it.
#include "codec/FfmpegEncoder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "EncoderFeed.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"

namespace {

using wv::AudioEncoder;
using wv::EncodeFormat;
using wv::FfmpegEncoder;
using wv::FileWriter;

struct Format {
    EncodeFormat format;
    const char* name;   // also the file extension
    const char* codec;  // as ffprobe names it
    uint32_t kbps;      // the engine's default
};

const Format kFormats[] = {{EncodeFormat::Flac, "flac", "flac", 0},
                           {EncodeFormat::Opus, "opus", "opus", 128},
                           {EncodeFormat::Aac, "m4a", "aac", 192},
                           {EncodeFormat::Vorbis, "ogg", "vorbis", 192}};

std::unique_ptr<AudioEncoder> encodeFile(const Format& f, const std::string& path, uint32_t rate, uint32_t channels,
                                         const std::vector<int16_t>& pcm, size_t blockFrames) {
    std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(f.format, path.c_str()));
    if (!encoder || encoder->initEncoder(rate, channels, f.kbps, AudioEncoder::FORMAT_PCM_16) != 0) return nullptr;
    if (wvtest::feed(encoder.get(), pcm, channels, blockFrames) != 0) return nullptr;
    if (encoder->finishEncoding() != 0) return nullptr;
    return encoder;
}

// `pcm` converted to `toRate` by the ffmpeg command (libswresample's
// defaults), as the reference for a file the encoder had to convert.
bool resampleWithFfmpeg(const std::vector<int16_t>& pcm, uint32_t rate, uint32_t channels, uint32_t toRate,
                        const std::string& dir, std::vector<int16_t>* out) {
    const std::string in = dir + "/in.s16le", wav = dir + "/resampled.wav";
    wvtest::writeFile(in, pcm.data(), pcm.size() * 2);
    const std::string command = "ffmpeg -v error -nostdin -y -f s16le -ar " + std::to_string(rate) + " -ac " +
                                std::to_string(channels) + " -i '" + in + "' -ar " + std::to_string(toRate) + " '" +
                                wav + "'";
    const bool ok = std::system(command.c_str()) == 0 && wvtest::decodeToPcm16(wav, dir, out);
    std::remove(in.c_str());
    std::remove(wav.c_str());
    return ok;
}

// The first line a command prints, without its end; empty on failure.
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

class FfmpegOutput : public ::testing::Test {
protected:
    void SetUp() override {
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    }
    wvtest::TempDir mDir;
};

TEST_F(FfmpegOutput, EveryFormatDecodesToTheFramesEncodedFromFrameZero) {
    size_t blockFrames = 997;  // odd sizes that never match a codec frame
    for (const Format& f : kFormats) {
        for (const uint32_t rate : wvtest::sampled<uint32_t>({8000, 16000, 22050, 44100, 48000}, 2)) {
            for (const uint32_t channels : {1u, 2u}) {
                SCOPED_TRACE(std::string(f.name) + ", " + std::to_string(rate) + " Hz, " + std::to_string(channels) +
                             " ch, blocks of " + std::to_string(blockFrames));
                const uint32_t frames = rate * 3 / 4 + 777;
                const auto pcm = wvtest::makeNoise(frames, channels);
                const std::string path = mDir.file(std::string("out.") + f.name);
                auto encoder = encodeFile(f, path, rate, channels, pcm, blockFrames);
                blockFrames += 1234;
                ASSERT_NE(encoder, nullptr);
                const uint32_t outRate = f.format == EncodeFormat::Opus ? 48000 : rate;
                EXPECT_EQ(encoder->outputSampleRate(), outRate);
                EXPECT_EQ(encoder->outputChannels(), channels);
                encoder.reset();

                wvtest::StreamInfo info;
                ASSERT_TRUE(wvtest::probeAudio(path, &info));
                EXPECT_EQ(info.codec, f.codec);
                EXPECT_EQ(info.sampleRate, static_cast<int>(outRate));
                EXPECT_EQ(info.channels, static_cast<int>(channels));

                std::vector<int16_t> decoded;
                ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
                if (f.format == EncodeFormat::Flac) {
                    EXPECT_TRUE(decoded == pcm) << "not lossless";
                    continue;
                }
                std::vector<int16_t> reference = pcm;
                if (outRate != rate) {
                    ASSERT_TRUE(resampleWithFfmpeg(pcm, rate, channels, outRate, mDir.path(), &reference));
                }
                const size_t expected = (uint64_t(frames) * outRate + rate / 2) / rate;
                // ffmpeg may round the converted length up where the encoder rounds to the nearest.
                ASSERT_NEAR(double(reference.size() / channels), double(expected), 1.0);
                if (f.format == EncodeFormat::Opus) {
                    EXPECT_EQ(decoded.size() / channels, expected);
                } else {
                    // The container holds the exact end, but ffmpeg's demuxers cut only
                    // within the last packet: a codec block may remain.
                    EXPECT_EQ(wvtest::probeStreamFrames(path), static_cast<long>(expected));
                    EXPECT_GE(decoded.size() / channels, expected);
                    EXPECT_LT(decoded.size() / channels, expected + 1024);
                }
                EXPECT_EQ(wvtest::bestLag(reference, decoded, channels, 1500), 0);
            }
        }
    }
}

TEST_F(FfmpegOutput, FlacStatesItsLengthAndTheMd5OfItsSamples) {
    // Odd blocks and a short last FLAC frame: the header is rewritten at the
    // end with what only the end knows.
    for (const uint32_t channels : {1u, 2u}) {
        SCOPED_TRACE(std::to_string(channels) + " ch");
        const uint32_t frames = 44100 + 1234;
        const auto pcm = wvtest::makeNoise(frames, channels);
        const std::string path = mDir.file("stated.flac");
        ASSERT_NE(encodeFile(kFormats[0], path, 44100, channels, pcm, 997), nullptr);
        EXPECT_EQ(wvtest::probeStreamFrames(path), static_cast<long>(frames));
        EXPECT_EQ(firstLine("ffprobe -v error -show_entries format=duration -of default=nw=1:nk=1 '" + path + "'"),
                  "1.027982");
        if (std::system("metaflac --version >/dev/null 2>&1") != 0) continue;
        EXPECT_EQ(firstLine("metaflac --show-total-samples '" + path + "'"), std::to_string(frames));
        const std::string raw = mDir.file("samples.s16le");
        wvtest::writeFile(raw, pcm.data(), pcm.size() * 2);
        const std::string md5 = firstLine("md5sum '" + raw + "'").substr(0, 32);
        ASSERT_EQ(md5.size(), 32u);
        EXPECT_EQ(firstLine("metaflac --show-md5sum '" + path + "'"), md5);
        // flac verifies the decoded samples against the stored MD5.
        EXPECT_EQ(std::system(("flac -t -s '" + path + "' 2>/dev/null").c_str()), 0);
        std::remove(raw.c_str());
        std::remove(path.c_str());
    }
}

TEST_F(FfmpegOutput, VorbisLowersABitRateLibvorbisCannotReach) {
    // libvorbis takes at most 32 kbit/s at 8 kHz mono; the engine asks 192.
    const Format vorbis = kFormats[3];
    const std::string path = mDir.file("low.ogg");
    const auto pcm = wvtest::makeNoise(8000, 1);
    auto encoder = encodeFile(vorbis, path, 8000, 1, pcm, 4096);
    ASSERT_NE(encoder, nullptr);
    const int64_t bitRate = static_cast<FfmpegEncoder*>(encoder.get())->bitRate();
    EXPECT_LT(bitRate, 192000);
    EXPECT_GT(bitRate, 16000);
    std::vector<int16_t> decoded;
    ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
    EXPECT_EQ(decoded.size(), pcm.size());
}

TEST_F(FfmpegOutput, VorbisTakesRatesAndBitRatesItsBitRateModesCannotInQualityMode) {
    // libvorbis has bit rate modes up to 50 kHz and from about 22 kbit/s a
    // channel; its quality mode encodes the rest, as ffmpeg's default does.
    struct Case {
        uint32_t rate, channels, kbps;
    };
    for (const Case& c : {Case{96000, 2, 192}, Case{88200, 1, 192}, Case{192000, 2, 320}, Case{44100, 2, 32},
                          Case{44100, 1, 8}}) {
        SCOPED_TRACE(std::to_string(c.rate) + " Hz, " + std::to_string(c.channels) + " ch, " +
                     std::to_string(c.kbps) + " kbit/s");
        const Format vorbis{EncodeFormat::Vorbis, "ogg", "vorbis", c.kbps};
        const std::string path = mDir.file("quality.ogg");
        const uint32_t frames = c.rate / 2 + 321;
        const auto pcm = wvtest::makeNoise(frames, c.channels);
        auto encoder = encodeFile(vorbis, path, c.rate, c.channels, pcm, 4000);
        ASSERT_NE(encoder, nullptr);
        EXPECT_EQ(encoder->outputBitRate(), 0u);
        EXPECT_EQ(encoder->outputSampleRate(), c.rate);
        encoder.reset();
        wvtest::StreamInfo info;
        ASSERT_TRUE(wvtest::probeAudio(path, &info));
        EXPECT_EQ(info.codec, "vorbis");
        EXPECT_EQ(info.sampleRate, static_cast<int>(c.rate));
        EXPECT_EQ(info.channels, static_cast<int>(c.channels));
        EXPECT_EQ(wvtest::probeStreamFrames(path), static_cast<long>(frames));
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
        EXPECT_EQ(wvtest::bestLag(pcm, decoded, c.channels, 1500), 0);
        std::remove(path.c_str());
    }
    // A bit rate a mode takes stays one.
    const std::string path = mDir.file("managed.ogg");
    auto encoder = encodeFile(kFormats[3], path, 48000, 2, wvtest::makeNoise(4800, 2), 4000);
    ASSERT_NE(encoder, nullptr);
    EXPECT_EQ(encoder->outputBitRate(), 192u);
}

TEST_F(FfmpegOutput, NoInputGivesHeadersOnly) {
    // Only FLAC has an empty stream ffmpeg opens; Ogg and MP4 files without a
    // packet are the bare headers.
    const char* const kMagic[] = {"fLaC", "OggS", "ftyp", "OggS"};
    for (size_t i = 0; i < 4; ++i) {
        const Format& f = kFormats[i];
        SCOPED_TRACE(f.name);
        const std::string path = mDir.file(std::string("empty.") + f.name);
        ASSERT_NE(encodeFile(f, path, 44100, 2, {}, 1024), nullptr);
        const auto file = wvtest::readFile(path);
        ASSERT_GT(file.size(), 8u);
        EXPECT_EQ(std::string(file.data() + (f.format == EncodeFormat::Aac ? 4 : 0), 4), kMagic[i]);
    }
    std::vector<int16_t> decoded;
    ASSERT_TRUE(wvtest::decodeToPcm16(mDir.file("empty.flac"), mDir.path(), &decoded));
    EXPECT_TRUE(decoded.empty());
}

TEST(FfmpegEncoder, RejectsSettingsItCannotEncode) {
    wvtest::TempDir dir;
    FfmpegEncoder encoder(EncodeFormat::Opus);
    ASSERT_EQ(encoder.openFile(dir.file("bad.opus").c_str()), 0);
    EXPECT_EQ(encoder.encoding(nullptr, 0), FileWriter::WRITE_ERROR);  // not set up
    EXPECT_EQ(encoder.initEncoder(48000, 3, 128, 1), AudioEncoder::INIT_FAILED);
    EXPECT_EQ(encoder.initEncoder(48000, 0, 128, 1), AudioEncoder::INIT_FAILED);
    EXPECT_EQ(encoder.initEncoder(48000, 2, 128, AudioEncoder::FORMAT_PCM_32), AudioEncoder::INIT_FAILED);
    EXPECT_EQ(encoder.initEncoder(48000, 2, 0, 1), AudioEncoder::INIT_FAILED);
    EXPECT_EQ(encoder.initEncoder(0, 2, 128, 1), AudioEncoder::INIT_FAILED);
    // A failed start does not spoil a correct one.
    EXPECT_EQ(encoder.initEncoder(44100, 2, 128, 1), 0);
    EXPECT_EQ(encoder.outputSampleRate(), 48000u);
    EXPECT_EQ(encoder.encoding(nullptr, 0), FileWriter::WRITE_OK);
    EXPECT_EQ(encoder.flushEncoding(), 0);
    // Nothing goes after the end of the stream.
    const auto pcm = wvtest::makeNoise(100, 2);
    EXPECT_EQ(encoder.encoding(pcm.data(), 400), FileWriter::WRITE_ERROR);
}

TEST(FfmpegEncoder, DeletedBeforeFinishingLeavesNoFileAndTheTargetAsItWas) {
    wvtest::TempDir dir;
    const auto pcm = wvtest::makeNoise(20000, 2);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.name);
        const std::string fresh = dir.file(std::string("fresh.") + f.name);
        const std::string existing = dir.file(std::string("existing.") + f.name);
        wvtest::writeFile(existing, "old", 3);
        for (const std::string& path : {fresh, existing}) {
            std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(f.format, path.c_str()));
            ASSERT_NE(encoder, nullptr);
            ASSERT_EQ(encoder->initEncoder(44100, 2, f.kbps, 1), 0);
            ASSERT_EQ(wvtest::feed(encoder.get(), pcm, 2, 5000), 0);
        }
        EXPECT_FALSE(wvtest::fileExists(fresh));
        EXPECT_EQ(wvtest::readFile(existing), std::vector<char>({'o', 'l', 'd'}));
    }
    EXPECT_EQ(wvtest::namesIn(dir.path()).size(), 4u);  // the four "existing" files only
}

// Real storage exhaustion on a tiny tmpfs.
class FfmpegOnSmallStorage : public ::testing::Test {
protected:
    void SetUp() override {
        if (!mFs.mounted()) GTEST_SKIP() << mFs.skipReason();
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    }
    // Leaves exactly `bytes` (a multiple of the page size) free.
    void leaveFree(long long bytes) { ASSERT_TRUE(mFs.leaveFree(bytes)) << bytes << " bytes free asked"; }
    // A little more than the format's leading bytes (FLAC's include 8 KiB of
    // padding for tags), far less than its second of audio.
    static long long roomAfterHeader(const Format& f) { return f.format == EncodeFormat::Flac ? 16384 : 4096; }
    wvtest::SmallFilesystem mFs{256 * 1024};
    wvtest::TempDir mScratch;  // for decoding, off the small storage
};

TEST_F(FfmpegOnSmallStorage, FullStorageFailsTheOutputAndLeavesNoFile) {
    const auto pcm = wvtest::makeNoise(44100, 2);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.name);
        const std::string path = mFs.file(std::string("full.") + f.name);
        leaveFree(roomAfterHeader(f));
        std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(f.format, path.c_str()));
        ASSERT_NE(encoder, nullptr);
        ASSERT_EQ(encoder->initEncoder(44100, 2, f.kbps, 1), 0);
        int status = wvtest::feed(encoder.get(), pcm, 2, 4096);
        if (status == 0) status = encoder->finishEncoding();
        EXPECT_EQ(status, FileWriter::WRITE_STORAGE_FULL);
        EXPECT_EQ(encoder->checkStatus(), FileWriter::WRITE_STORAGE_FULL);
        encoder.reset();
        EXPECT_FALSE(wvtest::fileExists(path));
    }
}

TEST_F(FfmpegOnSmallStorage, ARetryAfterSpaceCameBackCompletesTheFile) {
    const auto pcm = wvtest::makeNoise(44100, 2);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.name);
        const std::string path = mFs.file(std::string("retry.") + f.name);
        leaveFree(roomAfterHeader(f));
        std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(f.format, path.c_str()));
        ASSERT_NE(encoder, nullptr);
        ASSERT_EQ(encoder->initEncoder(44100, 2, f.kbps, 1), 0);
        size_t fed = 0;
        if (wvtest::feed(encoder.get(), pcm, 2, 4096, &fed) == FileWriter::WRITE_STORAGE_FULL) {
            ::remove(mFs.file("filler").c_str());
            // The held remainder goes first, then the rest of the input.
            ASSERT_EQ(wvtest::feed(encoder.get(), pcm, 2, 4096, &fed), 0);
            ASSERT_EQ(encoder->finishEncoding(), 0);
        } else {
            // Ogg gathers a second of pages: they meet the full storage at the end.
            ASSERT_EQ(encoder->finishEncoding(), FileWriter::WRITE_STORAGE_FULL);
            ::remove(mFs.file("filler").c_str());
            ASSERT_EQ(encoder->finishEncoding(), 0);
        }
        encoder.reset();
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(path, mScratch.path(), &decoded));
        if (f.format == EncodeFormat::Flac) {
            EXPECT_TRUE(decoded == pcm);
        } else if (f.format == EncodeFormat::Opus) {
            EXPECT_EQ(decoded.size(), 48000u * 2);
        } else {
            EXPECT_EQ(wvtest::probeStreamFrames(path), 44100);
            EXPECT_GE(decoded.size(), pcm.size());
            EXPECT_EQ(wvtest::bestLag(pcm, decoded, 2, 1500), 0);
        }
        ::remove(path.c_str());
    }
}

}  // namespace
