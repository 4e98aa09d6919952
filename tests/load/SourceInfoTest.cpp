// What a loaded file states about itself, known at event 6 without waiting
// for the decode: each container's and codec's names and figures, more
// channels than the item keeps, and the refusals before and beside it.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"

namespace {

using loadtest::LoadRig;

struct Expected {
    const char* name;
    const char* args;  // ffmpeg's, from a 2 s 44.1 kHz stereo WAV; null: the WAV itself
    const char* container;
    const char* codec;
    int bits;
    bool hasBitRate;
};

TEST(SourceInfo, EachFormatStatesItsContainerCodecAndFiguresAtTheStartOfItsLoad) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    const std::string wav = sources.file("a.wav");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 44100, 2, 2.0, 440));
    const Expected formats[] = {
        {"a.wav", nullptr, "wav", "pcm_s16le", 16, true},
        {"a.mp3", "-c:a libmp3lame -b:a 128k", "mp3", "mp3", 0, true},
        {"a.flac", "-c:a flac -sample_fmt s32", "flac", "flac", 24, false},
        {"a.m4a", "-c:a aac -b:a 96k", "mov,mp4,m4a,3gp,3g2,mj2", "aac", 0, true},
        {"a.ogg", "-c:a libvorbis", "ogg", "vorbis", 0, true},
    };
    LoadRig rig;
    for (const Expected& format : formats) {
        const std::string path = format.args == nullptr ? wav : sources.file(format.name);
        if (format.args != nullptr) {
            ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, path, format.args)) << format.name;
        }
        const int id = rig.engine().loadFile(path.c_str());
        ASSERT_TRUE(rig.recorder().waitForCode(6, id)) << format.name;
        WvSourceInfo info;
        ASSERT_EQ(rig.engine().getSourceInfo(id, &info), 0) << format.name;
        EXPECT_STREQ(info.container, format.container);
        EXPECT_STREQ(info.codec, format.codec);
        EXPECT_STREQ(info.channelLayout, "stereo");
        EXPECT_EQ(info.sampleRate, 44100) << format.name;
        EXPECT_EQ(info.channels, 2) << format.name;
        EXPECT_EQ(info.bitsPerSample, format.bits) << format.name;
        EXPECT_EQ(info.bitRate > 0, format.hasBitRate) << format.name << ": " << info.bitRate;
        EXPECT_NEAR(double(info.durationUs), 2e6, 60e3) << format.name;
        ASSERT_TRUE(rig.waitForEnd(id));
    }
}

TEST(SourceInfo, MoreChannelsThanTheItemKeepsAreStatedAsTheFileHasThem) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    const std::string wav = sources.file("mono.wav");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 48000, 1, 1.0, 440));
    const std::string six = sources.file("six.flac");
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, six, "-ac 6 -c:a flac"));
    LoadRig rig;
    const int id = rig.engine().loadFile(six.c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    WvSourceInfo info;
    ASSERT_EQ(rig.engine().getSourceInfo(id, &info), 0);
    EXPECT_EQ(info.channels, 6);
    EXPECT_STREQ(info.channelLayout, "5.1");
    EXPECT_EQ(rig.engine().getPcmChannelCount(id), 2);
}

TEST(SourceInfo, RefusesNullUnknownListsAndLoadsThatNeverOpened) {
    wvtest::LogCapture log;  // the refusals' reports stay off the test output
    wvtest::TempDir sources;
    LoadRig rig;
    WvSourceInfo info;
    std::memset(&info, 0x5a, sizeof info);
    EXPECT_EQ(rig.engine().getSourceInfo(999, &info), -1);
    const int list = rig.engine().newClipList();
    EXPECT_EQ(rig.engine().getSourceInfo(list, &info), -2);
    const int missing = rig.engine().loadFile(sources.file("none.mp3").c_str());
    ASSERT_TRUE(rig.waitForEnd(missing));
    EXPECT_EQ(rig.engine().getSourceInfo(missing, &info), -3);
    EXPECT_EQ(rig.engine().getSourceInfo(list, nullptr), -4);
    EXPECT_EQ(static_cast<unsigned char>(info.codec[0]), 0x5a) << "a refusal leaves the struct alone";
}

}  // namespace

TEST(SourceTags, EachContainerStatesItsTagsByTheSameNames) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    const std::string wav = sources.file("a.wav");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 44100, 2, 1.0, 440));
    // "Ünïcødé Sōng": multi-byte characters, to check a cut never splits one.
    const std::string tags =
        " -metadata title=\"\xC3\x9Cn\xC3\xAF\x63\xC3\xB8\x64\xC3\xA9 S\xC5\x8Dng\" -metadata artist=\"The Testers\""
        " -metadata album=Tones -metadata date=2026 -metadata track=7 -metadata comment=\"made in a test\"";
    LoadRig rig;
    for (const char* name : {"a.mp3", "a.flac", "a.ogg", "a.opus", "a.m4a"}) {
        const std::string path = sources.file(name);
        const std::string codec = std::strstr(name, ".opus")  ? "-c:a libopus"
                                  : std::strstr(name, ".ogg") ? "-c:a libvorbis"
                                                              : "";
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, path, codec + tags)) << name;
        const int id = rig.engine().loadFile(path.c_str());
        ASSERT_TRUE(rig.recorder().waitForCode(6, id)) << name;
        char value[64];
        const struct {
            const char* tag;
            const char* expected;
        } wanted[] = {{"title", "\xC3\x9Cn\xC3\xAF\x63\xC3\xB8\x64\xC3\xA9 S\xC5\x8Dng"},
                      {"ARTIST", "The Testers"},
                      {"album", "Tones"},
                      {"date", "2026"},
                      {"comment", "made in a test"}};
        for (const auto& w : wanted) {
            EXPECT_EQ(rig.engine().getSourceTag(id, w.tag, value, sizeof value), int32_t(std::strlen(w.expected)))
                << name << " " << w.tag;
            EXPECT_STREQ(value, w.expected) << name << " " << w.tag;
        }
        // MP4 states the track as "7" or "7/0" depending on the muxer.
        ASSERT_GT(rig.engine().getSourceTag(id, "track", value, sizeof value), 0) << name;
        EXPECT_EQ(value[0], '7') << name;
        // Cut to fit: at most size - 1 bytes, never inside a character.
        const int32_t whole = rig.engine().getSourceTag(id, "title", value, 3);
        EXPECT_EQ(whole, 17) << name;
        EXPECT_STREQ(value, "\xC3\x9C") << name;
        EXPECT_EQ(rig.engine().getSourceTag(id, "title", value, 2), 17) << name;
        EXPECT_STREQ(value, "") << name;
        ASSERT_TRUE(rig.waitForEnd(id));
    }
}

TEST(SourceTags, AbsentTagsAreEmptyAndOtherNamesAreRefused) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::LogCapture log;
    wvtest::TempDir sources;
    const std::string wav = sources.file("a.wav");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 44100, 1, 0.5, 440));
    const std::string flac = sources.file("bare.flac");
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, flac, "-map_metadata -1 -fflags +bitexact"));
    LoadRig rig;
    const int id = rig.engine().loadFile(flac.c_str());
    char value[16] = "untouched";
    EXPECT_EQ(rig.engine().getSourceTag(id, "title", value, sizeof value), -3) << "asked before event 6";
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.engine().getSourceTag(id, "title", value, sizeof value), 0);
    EXPECT_STREQ(value, "");
    for (const char* other : {"genre", "", "titles"}) {
        EXPECT_EQ(rig.engine().getSourceTag(id, other, value, sizeof value), -4) << other;
    }
    EXPECT_EQ(rig.engine().getSourceTag(id, nullptr, value, sizeof value), -4);
    EXPECT_EQ(rig.engine().getSourceTag(id, "title", nullptr, 8), -4);
    EXPECT_EQ(rig.engine().getSourceTag(id, "title", value, 0), -4);
    EXPECT_EQ(rig.engine().getSourceTag(id + 100, "title", value, sizeof value), -1);
    EXPECT_EQ(rig.engine().getSourceTag(rig.engine().newClipList(), "title", value, sizeof value), -2);
}
