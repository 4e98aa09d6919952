// Range loads: the frames a loadFileRange gives are the same frames of a
// whole load, bit for bit, for every format and at every kind of position
// (the start, the middle, inside the first MP3 frame, the last second, the
// very end, past the end); and a range load reports and cancels like a
// whole one.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"

namespace {

using loadtest::LoadRig;
using wvtest::Event;

constexpr int kRate = 44100;
constexpr int kSeconds = 12;

struct Encoding {
    const char* name;
    // Shell command from "IN" to "OUT"; empty for the canonical WAV itself.
    const char* command;
    const char* ext;
};

void PrintTo(const Encoding& e, std::ostream* os) { *os << e.name; }

// A tone under noise, so that lossy coders spend bits unevenly (VBR frames
// of varying size, a bit reservoir in use) and every frame differs.
std::vector<int16_t> noisyTone(int channels, int rate, int seconds) {
    std::vector<int16_t> samples = wvtest::makeTone(rate, channels, seconds, 330.0, 0.3);
    uint32_t state = 12345;
    for (int16_t& s : samples) {
        state = state * 1664525u + 1013904223u;
        s = static_cast<int16_t>(s + static_cast<int16_t>((state >> 16) % 8001) - 4000);
    }
    return samples;
}

class Sources {
public:
    static Sources& get() {
        static Sources sources;
        return sources;
    }
    // The encoded file, made once; empty when the encoder failed.
    std::string file(const Encoding& e, int channels = 2, int rate = kRate) {
        const std::string key = std::string(e.name) + std::to_string(channels) + std::to_string(rate);
        auto found = mMade.find(key);
        if (found != mMade.end()) return found->second;
        const std::string wav = mDir.file(key + "-in.wav");
        std::string made;
        if (wvtest::writeWav(wav, noisyTone(channels, rate, kSeconds), rate, channels)) {
            if (std::strlen(e.command) == 0) {
                made = wav;
            } else {
                const std::string out = mDir.file(key + e.ext);
                std::string command = e.command;
                command.replace(command.find("IN"), 2, wvtest::shellQuote(wav));
                command.replace(command.find("OUT"), 3, wvtest::shellQuote(out));
                if (std::system((command + " >/dev/null 2>&1").c_str()) == 0) made = out;
            }
        }
        mMade[key] = made;
        return made;
    }

private:
    wvtest::TempDir mDir;
    std::map<std::string, std::string> mMade;
};

std::vector<int16_t> samplesOf(const std::string& pcmPath) {
    const std::vector<char> bytes = wvtest::readFile(pcmPath);
    std::vector<int16_t> samples(bytes.size() / 2);
    if (!samples.empty()) std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

// Loads `path` whole (no range) or a range of it to its end; the PCM file's
// data (none for a WAV read in place). `rate` gets the item's rate.
std::vector<int16_t> load(LoadRig& rig, const std::string& path, bool ranged, uint32_t startMs = 0, uint32_t endMs = 0,
                          int* rate = nullptr) {
    const int id =
        ranged ? rig.engine().loadFileRange(path.c_str(), startMs, endMs) : rig.engine().loadFile(path.c_str());
    EXPECT_GT(id, 0);
    EXPECT_TRUE(rig.waitForEnd(id));
    const std::vector<Event> events = rig.eventsOf(id);
    EXPECT_FALSE(events.empty());
    if (events.empty() || events.back().code != 4) {
        ADD_FAILURE() << "load of " << path << " did not complete";
        return {};
    }
    if (rate != nullptr) *rate = rig.engine().getPcmSampleRate(id);
    const std::vector<int16_t> samples = samplesOf(rig.pcmPath(id));
    if (ranged) {
        EXPECT_EQ(rig.engine().getPcmFrameLength(id) * rig.engine().getPcmChannelCount(id),
                  static_cast<int32_t>(samples.size()));
    }
    return samples;
}

class RangeExactness : public ::testing::TestWithParam<Encoding> {};

TEST_P(RangeExactness, EveryRangeEqualsTheSameFramesOfTheWholeLoad) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const std::string path = Sources::get().file(GetParam());
    ASSERT_FALSE(path.empty()) << "encoder failed";
    LoadRig rig;
    int rate = 0;
    std::vector<int16_t> whole = load(rig, path, false, 0, 0, &rate);
    // A WAV read in place has no PCM file: its samples are the reference.
    if (whole.empty()) {
        ASSERT_TRUE(wvtest::readWavSamples(path, &whole));
    }
    const int channels = 2;
    const int64_t wholeFrames = static_cast<int64_t>(whole.size()) / channels;
    ASSERT_GT(wholeFrames, (kSeconds - 1) * rate);
    const uint32_t endMs = static_cast<uint32_t>(wholeFrames * 1000 / rate);

    struct Range {
        uint32_t startMs, endMs;
    };
    const Range ranges[] = {
        {0, 1000},                     // from the start
        {0, 10},                       // inside the first MP3 frame
        {7, 20},                       // likewise, not from its start
        {5000, 7013},                  // mid-file
        {6001, 6002},                  // one millisecond
        {endMs - 1000, endMs},         // the last second
        {endMs - 300, endMs + 60000},  // reaching past the end: cut there
        {endMs + 5, endMs + 1000},     // past the end: empty
    };
    for (const Range& r : ranges) {
        SCOPED_TRACE(std::to_string(r.startMs) + ".." + std::to_string(r.endMs) + " ms");
        const std::vector<int16_t> part = load(rig, path, true, r.startMs, r.endMs);
        const int64_t first = std::min<int64_t>(int64_t(r.startMs) * rate / 1000, wholeFrames);
        const int64_t last = std::min<int64_t>(int64_t(r.endMs) * rate / 1000, wholeFrames);
        ASSERT_EQ(static_cast<int64_t>(part.size()), (last - first) * channels);
        const std::vector<int16_t> expected(whole.begin() + first * channels, whole.begin() + last * channels);
        // A plain comparison, not EXPECT_EQ of vectors: the report of a
        // mismatch names the first differing frame rather than dumping both.
        size_t differ = 0;
        while (differ < part.size() && part[differ] == expected[differ]) ++differ;
        EXPECT_EQ(differ, part.size()) << "first difference at frame " << differ / channels << " of the range";
    }
}

const Encoding kEncodings[] = {
    {"Wav", "", ".wav"},
    {"WavFloatThroughFfmpeg", "ffmpeg -y -i IN -c:a pcm_f32le OUT", ".wav"},
    {"Flac", "ffmpeg -y -i IN -c:a flac OUT", ".flac"},
    {"Mp3LameCbr", "lame --quiet -b 128 IN OUT", ".mp3"},
    {"Mp3LameVbrLowRate", "lame --quiet -V 9 --resample 44.1 IN OUT", ".mp3"},
    {"Mp3FfmpegVbr", "ffmpeg -y -i IN -c:a libmp3lame -q:a 4 OUT", ".mp3"},
    {"Mp3WithoutTag", "ffmpeg -y -i IN -c:a libmp3lame -b:a 64k -write_xing 0 OUT", ".mp3"},
    {"AacM4a", "ffmpeg -y -i IN -c:a aac -b:a 128k OUT", ".m4a"},
    {"Vorbis", "ffmpeg -y -i IN -c:a libvorbis -q:a 3 OUT", ".ogg"},
    {"Opus", "ffmpeg -y -i IN -c:a libopus -b:a 96k OUT", ".opus"},
};

INSTANTIATE_TEST_SUITE_P(Formats, RangeExactness, ::testing::ValuesIn(kEncodings),
                         [](const ::testing::TestParamInfo<Encoding>& info) { return std::string(info.param.name); });

const Encoding& flac() { return kEncodings[2]; }
const Encoding& mp3() { return kEncodings[3]; }

TEST(RangeLoad, ReportsTheRangesLengthAndTheEventsOfAWholeLoad) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const std::string path = Sources::get().file(flac());
    LoadRig rig;
    const int id = rig.engine().loadFileRange(path.c_str(), 2000, 7500);
    ASSERT_TRUE(rig.waitForEnd(id));
    loadtest::expectCompleteLoad(rig.eventsOf(id), id);
    EXPECT_EQ(rig.engine().getPcmDuration(id), 5500);
    EXPECT_EQ(rig.engine().getPcmFrameLength(id), 7500 * kRate / 1000 - 2000 * kRate / 1000);
    EXPECT_EQ(rig.engine().getPcmSampleRate(id), kRate);
    EXPECT_EQ(rig.status(id), wv::PCM_READY);

    // The expected length stops at the file's stated end.
    const int tail = rig.engine().loadFileRange(path.c_str(), 10000, 90000);
    ASSERT_TRUE(rig.waitForEnd(tail));
    loadtest::expectCompleteLoad(rig.eventsOf(tail), tail);
    EXPECT_EQ(rig.engine().getPcmDuration(tail), 2000);
}

TEST(RangeLoad, PastTheEndGivesAnEmptyReadyItem) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const std::string path = Sources::get().file(mp3());
    LoadRig rig;
    const int id = rig.engine().loadFileRange(path.c_str(), 60000, 61000);
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{6, id, -1}, {4, id, -1}}));
    EXPECT_EQ(rig.engine().getPcmFrameLength(id), 0);
    EXPECT_EQ(rig.engine().getPcmDuration(id), -3);  // no expected length
    EXPECT_EQ(rig.status(id), wv::PCM_READY);
    EXPECT_TRUE(wvtest::fileExists(rig.pcmPath(id)));
}

TEST(RangeLoad, AnEmptyOrReversedRangeIsRefusedWithoutAnItem) {
    LoadRig rig;
    EXPECT_EQ(rig.engine().loadFileRange("any.mp3", 1000, 1000), -4);
    EXPECT_EQ(rig.engine().loadFileRange("any.mp3", 2000, 1000), -4);
    // A range load of a missing file fails as a whole load does.
    const int id = rig.engine().loadFileRange("", 0, 1000);
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{0, id, 2}}));
}

TEST(RangeLoad, CancelledMidwayRemovesItsFileAndSendsFive) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const std::string path = Sources::get().file(mp3());
    LoadRig rig;
    // Steps wait as long as they took, so the load is still going on.
    rig.engine().setThreadPriority(WV_PRIORITY_LOW);
    const int id = rig.engine().loadFileRange(path.c_str(), 1000, 11000);
    ASSERT_TRUE(rig.recorder().waitForCode(6, id));
    {
        loadtest::DecoderGate gate(rig);
        EXPECT_EQ(rig.engine().cancelLoadFile(id), 0);
    }
    ASSERT_TRUE(rig.waitForEnd(id));
    const std::vector<Event> events = rig.eventsOf(id);
    EXPECT_EQ(events.front(), (Event{6, id, -1}));
    EXPECT_EQ(events.back(), (Event{5, id, -1}));
    ASSERT_TRUE(rig.waitForDecoderRelease(id));
    EXPECT_FALSE(wvtest::fileExists(rig.pcmPath(id)));
}

}  // namespace
