// A recording's output file: playable on disk while the recording runs
// (even when the process dies), an existing file kept until the recording
// is complete, and nothing created or changed by a recording that never
// starts.
#include <gtest/gtest.h>

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "AudioFiles.h"
#include "AudioFixtures.h"
#include "RecordTestHelpers.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"

namespace {

using wvtest::namesIn;

constexpr int kRate = 8000;

uint32_t le32(const std::vector<char>& b, size_t at) {
    return uint32_t(uint8_t(b[at])) | uint32_t(uint8_t(b[at + 1])) << 8 | uint32_t(uint8_t(b[at + 2])) << 16 |
           uint32_t(uint8_t(b[at + 3])) << 24;
}

// A tone recorded eight times faster than real time, for the life of the
// object.
struct ToneInput {
    explicit ToneInput(const char* input = "tone:440") {
        setenv("WAVORYX_DEVICE_PACE", "8", 1);
        wavoryx_set_audio_input(input);
        wavoryx_set_audio_output("null");
    }
    ~ToneInput() {
        wavoryx_set_audio_input(nullptr);
        wavoryx_set_audio_output(nullptr);
        unsetenv("WAVORYX_DEVICE_PACE");
    }
};

// Records in a child process that is killed with SIGKILL once about 2.5 s of
// audio are on disk: the file left behind is a WAV that says how much it
// holds, all but the last second.
TEST(RecordOutput, ARecordingKilledMidWayLeavesAPlayableWav) {
    wvtest::TempDir dir;
    const std::string out = dir.file("killed.wav");
    const long long wanted = 44 + 25 * kRate * 2 / 10;  // 2.5 s of 16-bit mono
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ToneInput tone;
        Wavoryx engine;
        engine.setWorkingDir((dir.path() + "/").c_str());
        engine.recordStart(out.c_str(), ENCODE_WAV, kRate, 1, 0, 0, 0);
        for (;;) pause();
    }
    const bool grew = rectest::waitUntil([&] { return wvtest::fileSize(out) >= wanted; });
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(grew) << "the child recorded " << wvtest::fileSize(out) << " bytes";

    const auto file = wvtest::readFile(out);
    const uint32_t stated = le32(file, 40);
    EXPECT_GE(stated, uint32_t(kRate * 2)) << "at least one second stated in the header";
    EXPECT_LE(stated, file.size() - 44);
    EXPECT_EQ(le32(file, 4), stated + 36);
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg command missing";
    std::vector<int16_t> decoded;
    ASSERT_TRUE(wvtest::decodeToPcm16(out, dir.path(), &decoded));
    EXPECT_GE(decoded.size(), size_t(kRate));
}

TEST(RecordOutput, RecordingOverAnExistingFileKeepsItUntilTheStopAndPlaysMeanwhile) {
    ToneInput tone;
    wvtest::TempDir work;
    wvtest::TempDir outputs;
    const std::string out = outputs.file("take.wav");
    wvtest::writeFile(out, "no audio here", 13);  // a player that opened it would fail
    ASSERT_EQ(::chmod(out.c_str(), 0640), 0);
    const auto old = wvtest::readFile(out);
    rectest::RecordingEngine r(work.prefix());
    const int32_t id = r.engine.recordStart(out.c_str(), ENCODE_WAV, kRate, 1, 0, 0, 0);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), kRate));

    // In progress: the old file is whole, and the recording is read from
    // the new one.
    EXPECT_EQ(wvtest::readFile(out), old);
    EXPECT_EQ(r.engine.playStart(uint32_t(id)), 0);
    std::vector<uint8_t> points(50);
    EXPECT_EQ(r.engine.getWaveformSamples(id, 0, 500, 50, points.data()), 50);
    const int32_t frames = r.engine.getPcmFrameLength(uint32_t(id));
    EXPECT_TRUE(r.waitForFrames(uint32_t(id), frames + kRate / 2)) << "still growing";
    EXPECT_EQ(r.engine.playStop(0), 0);

    ASSERT_EQ(r.engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    std::vector<int16_t> samples;
    ASSERT_TRUE(wvtest::readWavSamples(out, &samples));
    EXPECT_EQ(samples.size(), size_t(r.engine.getPcmFrameLength(uint32_t(id))));
    struct stat st;
    ASSERT_EQ(::stat(out.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_EQ(namesIn(outputs.path()), (std::set<std::string>{"take.wav", "take.wav.wave"}));
    // Played again after the end, it plays the finished file.
    EXPECT_EQ(r.engine.playStart(uint32_t(id)), 0);
    EXPECT_EQ(r.engine.playStop(0), 0);
}

TEST(RecordOutput, ARecordingIntoAMissingFolderCreatesAndChangesNothing) {
    wvtest::TempDir work;
    wvtest::TempDir outputs;
    const std::string out = outputs.file("keep.wav");
    wvtest::writeFile(out, "keep me", 7);
    const auto old = wvtest::readFile(out);
    {
        // The folder does not exist.
        ToneInput tone;
        rectest::RecordingEngine r(work.prefix());
        const int32_t id = r.engine.recordStart(outputs.file("nowhere/x.wav").c_str(), ENCODE_WAV, kRate, 1, 0, 0, 0);
        ASSERT_TRUE(r.waitForCode(63, id));
    }
    EXPECT_EQ(wvtest::readFile(out), old);
    EXPECT_EQ(namesIn(outputs.path()), std::set<std::string>{"keep.wav"});
}

TEST(RecordOutput, NoSpaceForTheHeaderLeavesAnExistingFileAsItWas) {
    wvtest::SmallFilesystem fs(256 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    ToneInput tone;
    wvtest::TempDir work;
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const std::string out = fs.file(type == ENCODE_WAV ? "keep.wav" : "keep.mp3");
        wvtest::writeFile(out, "keep me", 7);
        ASSERT_GT(fs.fill("ballast"), 0);
        rectest::RecordingEngine r(work.prefix());
        const int32_t id = r.engine.recordStart(out.c_str(), type, kRate, 1, 0, 0, 0);
        ASSERT_GT(id, 0);
        if (type == ENCODE_WAV) {
            ASSERT_TRUE(r.waitForCode(63, id));  // the WAV header did not fit
        } else {
            // MP3 writes nothing at the start; it pauses at the first frames.
            ASSERT_TRUE(r.waitForCode(64, id));
            ASSERT_EQ(r.engine.recordStop(), 0);
            ASSERT_TRUE(r.waitForCode(63, id));
        }
        EXPECT_EQ(wvtest::fileSize(out), 7);
        ASSERT_EQ(::unlink(fs.file("ballast").c_str()), 0);
    }
    EXPECT_EQ(namesIn(fs.path()), (std::set<std::string>{"keep.wav", "keep.mp3"}));
}

}  // namespace
