// The length a file states, in frames, at event 6: exact to the last frame
// where the container counts it (and then what the load holds), an estimate
// where it only states a duration, unknown where it states none.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"

namespace {

using loadtest::LoadRig;

// 1.5 s and a fraction of a millisecond at 44.1 kHz.
constexpr int kFrames = 66167;

struct Stated {
    const char* name;
    const char* args;  // ffmpeg's, from the WAV; null: the WAV itself, read in place
    int32_t result;    // 1 exact, 0 estimate
};

TEST(SourceFrames, CountedLengthsAreExactToTheFrameAndTheLoadHoldsThem) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    const std::string wav = sources.file("a.wav");
    std::vector<int16_t> samples(size_t(kFrames) * 2);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = int16_t((i * 37) % 20000 - 10000);
    ASSERT_TRUE(wvtest::writeWav(wav, samples, 44100, 2));
    const Stated formats[] = {
        {"a.wav", nullptr, 1},
        {"b.wav", "-c:a pcm_s24le", 1},
        {"a.flac", "-c:a flac", 1},
        {"a.wv", "-c:a wavpack", 1},
        {"a.mp3", "-c:a libmp3lame -b:a 128k", 1},
        {"a.ogg", "-c:a libvorbis", 0},
    };
    LoadRig rig;
    for (const Stated& format : formats) {
        const std::string path = format.args == nullptr ? wav : sources.file(format.name);
        if (format.args != nullptr) {
            ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, path, format.args)) << format.name;
        }
        const int id = rig.engine().loadFile(path.c_str());
        ASSERT_TRUE(rig.recorder().waitForCode(6, id)) << format.name;
        uint32_t frames = 0;
        const int32_t result = rig.engine().getSourceFrames(id, &frames);
        ASSERT_TRUE(rig.waitForEnd(id)) << format.name;
        EXPECT_EQ(result, format.result) << format.name;
        if (result == 1) {
            // The MP3 decoder drops the delay and padding its info frame states.
            EXPECT_EQ(frames, uint32_t(kFrames)) << format.name;
            EXPECT_EQ(rig.engine().getPcmFrameLength(id), kFrames) << format.name;
        } else {
            EXPECT_NEAR(double(frames), double(kFrames), 4410.0) << format.name;
        }
        // The same answer once the load has ended.
        uint32_t again = 0;
        EXPECT_EQ(rig.engine().getSourceFrames(id, &again), result) << format.name;
        EXPECT_EQ(again, frames) << format.name;
    }
}

TEST(SourceFrames, ALengthNotStatedIsUnknownAndBadCallsAreRefused) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    const std::string wav = sources.file("a.wav");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 44100, 2, 1.0, 440));
    // Written to a pipe, a WavPack cannot go back to write its length.
    const std::string wv = sources.file("a.wv");
    const std::string command =
        "ffmpeg -v error -i " + wvtest::shellQuote(wav) + " -f wv - > " + wvtest::shellQuote(wv);
    ASSERT_EQ(std::system(command.c_str()), 0);
    LoadRig rig;
    const int id = rig.engine().loadFile(wv.c_str());
    ASSERT_TRUE(rig.recorder().waitForCode(6, id));
    uint32_t frames = 7;
    EXPECT_EQ(rig.engine().getSourceFrames(id, &frames), -3);
    EXPECT_EQ(frames, 0u);
    EXPECT_EQ(rig.engine().getSourceFrames(id, nullptr), -4);
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.engine().getPcmFrameLength(id), 44100);
    EXPECT_EQ(rig.engine().getSourceFrames(id + 100, &frames), -1);
    const int list = rig.engine().newClipList();
    EXPECT_EQ(rig.engine().getSourceFrames(list, &frames), -2);
}

TEST(SourceFrames, ARangeEndingInTheLastPartialMillisecondReachesTheLastFrame) {
    wvtest::TempDir sources;
    const std::string wav = sources.file("a.wav");
    std::vector<int16_t> samples(static_cast<size_t>(kFrames));
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = int16_t(i % 30000);
    ASSERT_TRUE(wvtest::writeWav(wav, samples, 44100, 1));
    const uint32_t lastMs = uint32_t(uint64_t(kFrames) * 1000 / 44100);
    LoadRig rig;
    struct Range {
        uint32_t endMs;
        int32_t frames;
    };
    for (const Range range : {Range{lastMs, kFrames - 22050}, Range{lastMs + 9, kFrames - 22050},
                              Range{lastMs - 1, int32_t(uint64_t(lastMs - 1) * 44100 / 1000) - 22050}}) {
        const int id = rig.engine().loadFileRange(wav.c_str(), 500, range.endMs);
        ASSERT_TRUE(rig.waitForEnd(id));
        EXPECT_EQ(rig.engine().getPcmFrameLength(id), range.frames) << range.endMs;
        uint32_t frames = 0;
        EXPECT_EQ(rig.engine().getSourceFrames(id, &frames), 1) << range.endMs;
        EXPECT_EQ(int32_t(frames), range.frames) << range.endMs;
    }
}

}  // namespace
