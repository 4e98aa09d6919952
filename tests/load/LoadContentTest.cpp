// What a load puts into the PCM file: lossless sources come back sample for
// sample, lossy ones at their length and pitch; and the item's data can be
// read while the load is still growing it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"

namespace {

using loadtest::LoadRig;
using wvtest::Event;

constexpr double kSeconds = 2.0;
constexpr double kToneHz = 440.0;

// Test files made once for the whole program: a tone per (rate, channels)
// as canonical WAV, and encodings of it.
class SourceFiles {
public:
    static SourceFiles& get() {
        static SourceFiles files;
        return files;
    }
    std::vector<int16_t> tone(int rate, int channels, double seconds = kSeconds) const {
        return wvtest::makeTone(rate, channels, seconds, kToneHz);
    }
    // The tone encoded with `ffmpegArgs` into a file of extension `ext`;
    // empty on failure.
    std::string encoded(int rate, int channels, const std::string& ffmpegArgs, const std::string& ext,
                        double seconds = kSeconds) {
        const std::string key =
            std::to_string(rate) + "-" + std::to_string(channels) + "-" + std::to_string(seconds) + ffmpegArgs + ext;
        auto found = mMade.find(key);
        if (found != mMade.end()) return found->second;
        const std::string base = mDir.file("src" + std::to_string(mMade.size()));
        std::string made;
        if (wvtest::writeWav(base + ".wav", tone(rate, channels, seconds), rate, channels)) {
            if (ext == ".wav" && ffmpegArgs.empty()) {
                made = base + ".wav";
            } else if (wvtest::encodeWithFfmpeg(base + ".wav", base + "-out" + ext, ffmpegArgs)) {
                made = base + "-out" + ext;
            }
        }
        mMade[key] = made;
        return made;
    }
    std::string scratch(const std::string& name) const { return mDir.file(name); }

private:
    wvtest::TempDir mDir;
    std::map<std::string, std::string> mMade;
};

std::vector<int16_t> pcmFileSamples(const std::string& path) {
    const std::vector<char> bytes = wvtest::readFile(path);
    std::vector<int16_t> samples(bytes.size() / 2);
    if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

struct Format {
    const char* name;
    const char* ffmpegArgs;
    const char* ext;
    int rate;
    int channels;
    // Lossy only: how far the decoded length may be from the source's, in
    // frames (about one codec frame).
    int tolerance;
};

void PrintTo(const Format& f, std::ostream* os) { *os << f.name; }

class LosslessLoad : public ::testing::TestWithParam<Format> {};

TEST_P(LosslessLoad, PcmFileHoldsTheSourceSamplesExactly) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const Format f = GetParam();
    const std::string source = SourceFiles::get().encoded(f.rate, f.channels, f.ffmpegArgs, f.ext);
    ASSERT_FALSE(source.empty());
    const std::vector<int16_t> expected = SourceFiles::get().tone(f.rate, f.channels);

    LoadRig rig;
    const int id = rig.engine().loadFile(source.c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    loadtest::expectCompleteLoad(rig.eventsOf(id), id);
    EXPECT_EQ(rig.eventsOf(id).rbegin()[1], (Event{3, id, 100}));

    const std::vector<int16_t> pcm = pcmFileSamples(rig.pcmPath(id));
    ASSERT_EQ(pcm.size(), expected.size());
    EXPECT_TRUE(pcm == expected) << "decoded samples differ from the source";
    const int frames = static_cast<int>(expected.size()) / f.channels;
    EXPECT_EQ(rig.engine().getPcmFrameLength(id), frames);
    EXPECT_EQ(rig.engine().getPcmSampleRate(id), f.rate);
    EXPECT_EQ(rig.engine().getPcmChannelCount(id), f.channels);
    EXPECT_EQ(rig.engine().getPcmDuration(id), 2000);
    EXPECT_EQ(rig.status(id), wv::PCM_READY);
    ASSERT_TRUE(rig.waitForDecoderRelease(id));
    EXPECT_EQ(rig.refs(id, wv::REF_CLIENT), 1u);

    // The client's release is the last one: the item and its file go.
    EXPECT_EQ(rig.engine().removePcm(static_cast<wv::pcm_id_t>(id)), id);
    EXPECT_EQ(rig.status(id), -1);
    EXPECT_FALSE(wvtest::fileExists(rig.pcmPath(id)));
}

INSTANTIATE_TEST_SUITE_P(Formats, LosslessLoad,
                         ::testing::Values(Format{"FlacStereo44100", "-c:a flac", ".flac", 44100, 2, 0},
                                           Format{"FlacMono48000", "-c:a flac", ".flac", 48000, 1, 0},
                                           Format{"Wav24Bit", "-c:a pcm_s24le", ".wav", 44100, 2, 0},
                                           Format{"Wav32BitFloat", "-c:a pcm_f32le", ".wav", 22050, 1, 0},
                                           // A LIST chunk before the samples: not readable in place.
                                           Format{"Wav16BitWithExtraChunk", "-c:a pcm_s16le -metadata title=tone",
                                                  ".wav", 16000, 2, 0}),
                         [](const ::testing::TestParamInfo<Format>& info) { return std::string(info.param.name); });

class LossyLoad : public ::testing::TestWithParam<Format> {};

TEST_P(LossyLoad, DecodesToTheSourceLengthAndPitch) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const Format f = GetParam();
    const std::string source = SourceFiles::get().encoded(f.rate, f.channels, f.ffmpegArgs, f.ext);
    ASSERT_FALSE(source.empty());

    LoadRig rig;
    const int id = rig.engine().loadFile(source.c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    loadtest::expectCompleteLoad(rig.eventsOf(id), id);

    const std::vector<int16_t> pcm = pcmFileSamples(rig.pcmPath(id));
    const int frames = static_cast<int>(pcm.size()) / f.channels;
    EXPECT_EQ(rig.engine().getPcmFrameLength(id), frames);
    EXPECT_NEAR(frames, kSeconds * f.rate, f.tolerance);
    EXPECT_EQ(rig.engine().getPcmSampleRate(id), f.rate);
    EXPECT_EQ(rig.engine().getPcmChannelCount(id), f.channels);
    // The container's estimate, which may count the encoder's padding.
    EXPECT_NEAR(rig.engine().getPcmDuration(id), 2000, 100);

    // The middle half, away from codec start-up and the fade at the end.
    const size_t first = static_cast<size_t>(frames / 4);
    const size_t count = static_cast<size_t>(frames / 2);
    for (int c = 0; c < f.channels; ++c) {
        EXPECT_NEAR(wvtest::estimateFrequency(pcm.data() + first * f.channels, count, f.channels, c, f.rate), kToneHz,
                    2.0)
            << "channel " << c;
        // Channel c of the source has amplitude 0.5 * (1 - c / 8): the order holds.
        const double expectedRms = 0.5 * (1.0 - c / 8.0) / std::sqrt(2.0);
        EXPECT_NEAR(wvtest::channelRms(pcm.data() + first * f.channels, count, f.channels, c), expectedRms, 0.02)
            << "channel " << c;
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, LossyLoad,
                         ::testing::Values(Format{"Mp3Stereo44100", "-c:a libmp3lame -b:a 192k", ".mp3", 44100, 2,
                                                  1152},
                                           Format{"Mp3Mono22050", "-c:a libmp3lame -b:a 64k", ".mp3", 22050, 1, 576},
                                           Format{"AacInM4a", "-c:a aac -b:a 128k", ".m4a", 44100, 2, 1024},
                                           Format{"AacInMp4Mono", "-c:a aac -b:a 64k", ".mp4", 32000, 1, 1024},
                                           Format{"OggVorbis", "-c:a libvorbis -q:a 4", ".ogg", 44100, 2, 2048},
                                           Format{"Opus", "-c:a libopus -b:a 96k", ".opus", 48000, 2, 960}),
                         [](const ::testing::TestParamInfo<Format>& info) { return std::string(info.param.name); });

TEST(AmrLoad, RawAmrAndAmrIn3gpLoadAtEightKilohertzMono) {
    const std::string amr = SourceFiles::get().scratch("noise.amr");
    ASSERT_TRUE(wvtest::writeAmrNb(amr, 3.0));
    std::vector<std::string> files{amr};
    if (wvtest::ffmpegAvailable()) {
        const std::string threeGp = SourceFiles::get().scratch("noise.3gp");
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(amr, threeGp, "-c:a copy"));
        files.push_back(threeGp);
    }
    LoadRig rig;
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        const int id = rig.engine().loadFile(file.c_str());
        ASSERT_TRUE(rig.waitForEnd(id));
        loadtest::expectCompleteLoad(rig.eventsOf(id), id);
        EXPECT_EQ(rig.engine().getPcmSampleRate(id), 8000);
        EXPECT_EQ(rig.engine().getPcmChannelCount(id), 1);
        EXPECT_NEAR(rig.engine().getPcmFrameLength(id), 24000, 160);
        EXPECT_EQ(wvtest::fileSize(rig.pcmPath(id)), 2LL * rig.engine().getPcmFrameLength(id));
        const std::vector<int16_t> pcm = pcmFileSamples(rig.pcmPath(id));
        EXPECT_GT(wvtest::channelRms(pcm.data(), pcm.size(), 1, 0), 0.001) << "decoded to silence";
    }
}

TEST(GrowingItem, FramesOnlyGrowAndTheDataBelowThemIsAlreadyInTheFile) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const double seconds = 30.0;
    const std::string source = SourceFiles::get().encoded(44100, 2, "-c:a flac", ".flac", seconds);
    ASSERT_FALSE(source.empty());
    const std::vector<int16_t> expected = SourceFiles::get().tone(44100, 2, seconds);

    LoadRig rig;
    // Low priority stretches the load so that it is watched while it grows.
    rig.engine().setThreadPriority(WV_PRIORITY_LOW);
    const int id = rig.engine().loadFile(source.c_str());
    ASSERT_TRUE(rig.recorder().waitForCode(6, id));
    // Known from the start event on.
    EXPECT_EQ(rig.engine().getPcmDuration(id), 30000);

    int previous = 0, partialLooks = 0;
    std::vector<char> tail(4096);
    while (!rig.recorder().waitForCode(4, id, std::chrono::milliseconds(1))) {
        const int frames = rig.engine().getPcmFrameLength(id);
        ASSERT_GE(frames, previous);
        previous = frames;
        if (frames == 0) continue;
        // The last bytes below the counted frames are there and right.
        const long long end = 4LL * frames;
        const long long begin = std::max(0LL, end - static_cast<long long>(tail.size()));
        FILE* file = std::fopen(rig.pcmPath(id).c_str(), "rb");
        ASSERT_NE(file, nullptr);
        std::fseek(file, static_cast<long>(begin), SEEK_SET);
        const size_t got = std::fread(tail.data(), 1, static_cast<size_t>(end - begin), file);
        std::fclose(file);
        ASSERT_EQ(got, static_cast<size_t>(end - begin));
        ASSERT_EQ(std::memcmp(tail.data(), reinterpret_cast<const char*>(expected.data()) + begin, got), 0)
            << "at byte " << begin;
        if (frames < static_cast<int>(expected.size() / 2)) ++partialLooks;
    }
    EXPECT_GT(partialLooks, 0) << "the load was never seen part way";
    EXPECT_EQ(rig.engine().getPcmFrameLength(id), static_cast<int>(expected.size() / 2));
    loadtest::expectCompleteLoad(rig.eventsOf(id), id);
}

}  // namespace
