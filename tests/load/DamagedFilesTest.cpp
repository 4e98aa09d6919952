// Loads of damaged files: real encodes cut mid-frame, overwritten in their
// first frames or with packets zeroed. The load goes on past what the codec
// refuses, as ffmpeg does, and gives what `ffmpeg -i FILE -f s16le` gives,
// frame for frame; event 8 and getLoadDamage say how much was skipped and
// where.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>

#include "AudioFiles.h"
#include "AudioFixtures.h"
#include "LoadTestHelpers.h"
#include "TestSupport.h"

namespace {

using loadtest::LoadRig;
using wvtest::Event;

constexpr int kRate = 44100;
constexpr double kSeconds = 3.0;

// What ffmpeg decodes from the file, as interleaved 16-bit samples.
std::vector<int16_t> ffmpegSamples(const std::string& path, const std::string& scratchDir) {
    std::vector<int16_t> pcm;
    if (!wvtest::decodeToPcm16(path, scratchDir, &pcm)) pcm.clear();
    return pcm;
}

std::vector<int16_t> itemSamples(const std::string& pcmPath) {
    const std::vector<char> bytes = wvtest::readFile(pcmPath);
    std::vector<int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// Where FLAC's first frame starts: its sync code after the metadata blocks.
size_t firstFlacFrame(const std::vector<char>& bytes) {
    for (size_t i = 42; i + 1 < bytes.size(); ++i) {
        if (uint8_t(bytes[i]) == 0xFF && uint8_t(bytes[i + 1]) == 0xF8) return i;
    }
    return 0;
}

struct Damage {
    const char* name;
    const char* ffmpegArgs;
    const char* ext;
    // Turns the intact encode into the damaged file.
    std::function<void(std::vector<char>&)> damage;
    // Where the first skipped packet lies, ms.
    uint32_t fromMs;
    uint32_t toMs;
};

class DamagedFilesTest : public ::testing::TestWithParam<Damage> {
protected:
    void SetUp() override {
        if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    }
    // The damaged file, made from a fresh encode of a tone.
    std::string damaged(const Damage& d) {
        const std::string wav = rig.scratch("tone.wav");
        const std::string encoded = rig.scratch(std::string("tone") + d.ext);
        const std::string path = rig.scratch(std::string("damaged") + d.ext);
        EXPECT_TRUE(wvtest::writeToneWav(wav, kRate, 2, kSeconds, 440.0));
        EXPECT_TRUE(wvtest::encodeWithFfmpeg(wav, encoded, d.ffmpegArgs));
        std::vector<char> bytes = wvtest::readFile(encoded);
        d.damage(bytes);
        wvtest::writeFile(path, bytes.data(), bytes.size());
        return path;
    }
    int countOf(int id, int code) const {
        int n = 0;
        for (const Event& e : rig.eventsOf(id)) n += e.code == code;
        return n;
    }

    LoadRig rig;
};

TEST_P(DamagedFilesTest, TheLoadGoesOnPastTheDamageAndGetsWhatFfmpegGets) {
    const Damage& d = GetParam();
    const std::string path = damaged(d);
    const std::vector<int16_t> expected = ffmpegSamples(path, rig.scratch("."));
    ASSERT_FALSE(expected.empty());
    ASSERT_LT(expected.size(), size_t(kSeconds * kRate) * 2) << "the damage cost ffmpeg nothing";

    const int id = rig.engine().loadFile(path.c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    ASSERT_EQ(rig.eventsOf(id).back().code, 4);
    const std::vector<int16_t> got = itemSamples(rig.pcmPath(id));
    EXPECT_EQ(got.size() / 2, expected.size() / 2) << "frames differ from ffmpeg's";
    EXPECT_TRUE(got == expected) << "samples differ from ffmpeg's";

    // Told: event 8 carries the count so far, the getter the final count
    // and where the first skipped packet lay.
    uint32_t firstMs = 0;
    const int32_t packets = rig.engine().getLoadDamage(uint32_t(id), &firstMs);
    EXPECT_GT(packets, 0);
    EXPECT_GE(countOf(id, 8), 1);
    int32_t lastTold = 0;
    for (const Event& e : rig.eventsOf(id)) {
        if (e.code == 8) lastTold = e.value;
    }
    EXPECT_EQ(lastTold, packets);
    EXPECT_GE(firstMs, d.fromMs);
    EXPECT_LE(firstMs, d.toMs);
    // The damage is told before the load's end.
    const std::vector<Event> events = rig.eventsOf(id);
    EXPECT_NE(events[events.size() - 2].code, 4);
}

const Damage kDamages[] = {
    // Garbage over the first frames: the "decodes 0 frames".
    {"FlacFirstFramesOverwritten", "-c:a flac", ".flac",
     [](std::vector<char>& b) {
         const size_t first = firstFlacFrame(b);
         for (size_t k = first + 10; k < first + 3000 && k < b.size(); ++k) b[k] = char(uint8_t(b[k]) * 7 + 13);
     },
     0, 200},
    // Cut inside a frame: the partial last frame is skipped.
    {"FlacCutMidFrame", "-c:a flac", ".flac", [](std::vector<char>& b) { b.resize(b.size() * 2 / 3); }, 1000,
     3000},
    // Cut inside a packet: the last, short packet is refused.
    {"WmaCutMidPacket", "-c:a wmav2", ".wma", [](std::vector<char>& b) { b.resize(b.size() - 5000); }, 2000,
     3000},
    // Zeroed bytes in the middle: the frames there are refused, the rest plays.
    {"Mp3ZeroedPackets", "-c:a libmp3lame", ".mp3",
     [](std::vector<char>& b) {
         for (size_t k = b.size() / 2; k < b.size() / 2 + 2000; ++k) b[k] = 0;
     },
     1000, 2000},
};

INSTANTIATE_TEST_SUITE_P(Damages, DamagedFilesTest, ::testing::ValuesIn(kDamages),
                         [](const ::testing::TestParamInfo<Damage>& info) { return std::string(info.param.name); });

// An intact file tells no damage.
TEST(DamagedFiles, AnIntactFileTellsNone) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    const std::string wav = rig.scratch("tone.wav");
    const std::string flac = rig.scratch("tone.flac");
    ASSERT_TRUE(wvtest::writeToneWav(wav, kRate, 2, 1.0, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, flac, "-c:a flac"));
    const int id = rig.engine().loadFile(flac.c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    uint32_t firstMs = 7;
    EXPECT_EQ(rig.engine().getLoadDamage(uint32_t(id), &firstMs), 0);
    EXPECT_EQ(firstMs, 0u);
    for (const Event& e : rig.eventsOf(id)) EXPECT_NE(e.code, 8);
    EXPECT_EQ(rig.engine().getLoadDamage(9999, nullptr), -1);
}

// A part of a file whose first frames are damaged: what the whole load
// gives there, not an empty item.
TEST(DamagedFiles, APartOfAFileDamagedAtItsStartHoldsTheWholeLoadsFrames) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    const std::string wav = rig.scratch("tone.wav");
    const std::string flac = rig.scratch("tone.flac");
    ASSERT_TRUE(wvtest::writeToneWav(wav, kRate, 2, kSeconds, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, flac, "-c:a flac"));
    std::vector<char> bytes = wvtest::readFile(flac);
    kDamages[0].damage(bytes);
    const std::string path = rig.scratch("damaged.flac");
    wvtest::writeFile(path, bytes.data(), bytes.size());

    const int whole = rig.engine().loadFile(path.c_str());
    ASSERT_TRUE(rig.waitForEnd(whole));
    const int part = rig.engine().loadFileRange(path.c_str(), 0, 1000);
    ASSERT_TRUE(rig.waitForEnd(part));
    ASSERT_EQ(rig.eventsOf(part).back().code, 4);
    const std::vector<int16_t> all = itemSamples(rig.pcmPath(whole));
    const std::vector<int16_t> got = itemSamples(rig.pcmPath(part));
    ASSERT_EQ(got.size(), size_t(kRate) * 2);
    EXPECT_TRUE(std::equal(got.begin(), got.end(), all.begin()));
}

// Damage inside a part is told as a whole load tells it, its time counted
// from the part's start (the item's time).
TEST(DamagedFiles, DamageInsideAPartIsToldInTheItemsTime) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    const std::string wav = rig.scratch("tone.wav");
    const std::string mp3 = rig.scratch("tone.mp3");
    ASSERT_TRUE(wvtest::writeToneWav(wav, kRate, 2, kSeconds, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, mp3, "-c:a libmp3lame"));
    std::vector<char> bytes = wvtest::readFile(mp3);
    kDamages[3].damage(bytes);
    const std::string path = rig.scratch("damaged.mp3");
    wvtest::writeFile(path, bytes.data(), bytes.size());

    const int whole = rig.engine().loadFile(path.c_str());
    ASSERT_TRUE(rig.waitForEnd(whole));
    uint32_t wholeMs = 0;
    ASSERT_GT(rig.engine().getLoadDamage(uint32_t(whole), &wholeMs), 0);
    ASSERT_GT(wholeMs, 1000u);
    const int part = rig.engine().loadFileRange(path.c_str(), 1000, 2800);
    ASSERT_TRUE(rig.waitForEnd(part));
    ASSERT_EQ(rig.eventsOf(part).back().code, 4);
    uint32_t partMs = 0;
    EXPECT_GT(rig.engine().getLoadDamage(uint32_t(part), &partMs), 0);
    EXPECT_NEAR(double(partMs), double(wholeMs) - 1000.0, 60.0);
}

}  // namespace
