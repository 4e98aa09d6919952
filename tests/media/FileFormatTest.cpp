// wavoryx_file_format and wavoryx_audio_device_file: what a file is by its
// bytes, whatever its name says, and the file a device text names.
#include <gtest/gtest.h>

#include <string>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "TestSupport.h"

namespace {

std::string format(const std::string& path, int* variable = nullptr) {
    char name[64];
    const int length = wavoryx_file_format(path.c_str(), name, sizeof name, variable);
    EXPECT_EQ(length, int(std::string(name).size()));
    return name;
}

TEST(FileFormat, NamesEachContainerByItsBytesNotItsName) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    wvtest::TempDir dir;
    const std::string wav = dir.file("tone.mp3");  // a WAV whose name lies
    ASSERT_TRUE(wvtest::writeToneWav(wav, 44100, 2, 1.0, 440.0));
    const struct {
        const char* name;
        const char* args;
        const char* expected;
        int variable;
    } kCases[] = {
        {"cbr.wav", "-f mp3 -c:a libmp3lame -b:a 128k", "MP3", 0},
        {"vbr.bin", "-f mp3 -c:a libmp3lame -q:a 4", "MP3", 1},
        {"bare.mp3", "-f mp3 -c:a libmp3lame -b:a 128k -write_xing 0 -id3v2_version 0", "MP3", 0},
        {"a.ogg", "-f flac", "FLAC", 0},
        {"b.flac", "-f ogg -c:a libvorbis", "Ogg Vorbis", 0},
        {"c.ogg", "-f ogg -c:a libopus", "Ogg Opus", 0},
        {"d.ogg", "-f ogg -c:a flac", "Ogg", 0},
        {"e.aac", "-f mp4 -c:a aac", "MP4", 0},
        {"f.mp4", "-f 3gp -c:a aac", "3GP", 0},
    };
    for (const auto& c : kCases) {
        const std::string out = dir.file(c.name);
        if (!wvtest::encodeWithFfmpeg(wav, out, c.args)) {
            ADD_FAILURE() << "ffmpeg could not make " << c.name << " (" << c.args << ")";
            continue;
        }
        int variable = -1;
        EXPECT_EQ(format(out, &variable), c.expected) << c.name;
        EXPECT_EQ(variable, c.variable) << c.name;
    }
    int variable = -1;
    EXPECT_EQ(format(wav, &variable), "WAV");
    EXPECT_EQ(variable, 0);
    ASSERT_TRUE(wvtest::writeAmrNb(dir.file("g.3gp"), 0.5));
    EXPECT_EQ(format(dir.file("g.3gp")), "AMR");

    // Bytes it does not know: the extension, upper-cased, else "unknown";
    // a file it cannot read counts the same.
    const std::string text = "plain text, no audio";
    wvtest::writeFile(dir.file("notes.aiff"), text.data(), text.size());
    wvtest::writeFile(dir.file("notes"), text.data(), text.size());
    EXPECT_EQ(format(dir.file("notes.aiff")), "AIFF");
    EXPECT_EQ(format(dir.file("notes")), "unknown");
    EXPECT_EQ(format(dir.file("missing.Flac")), "FLAC");
    EXPECT_EQ(format(dir.path() + "/dotted.dir/noext"), "unknown");

    // A name cut to the room given still tells its whole length.
    char small[4];
    EXPECT_EQ(wavoryx_file_format(dir.file("a.ogg").c_str(), small, sizeof small, nullptr), 4);
    EXPECT_STREQ(small, "FLA");
    EXPECT_EQ(wavoryx_file_format(nullptr, small, sizeof small, nullptr), -1);
    EXPECT_EQ(wavoryx_file_format(wav.c_str(), nullptr, 4, nullptr), -1);
    EXPECT_EQ(wavoryx_file_format(wav.c_str(), small, 0, nullptr), -1);
}

TEST(FileFormat, DeviceTextsNameTheirFileAsTheSelectionReadsThem) {
    char path[16];
    EXPECT_EQ(wavoryx_audio_device_file("file:/tmp/in.wav", path, sizeof path), 11);
    EXPECT_STREQ(path, "/tmp/in.wav");
    EXPECT_EQ(wavoryx_audio_device_file("file:a:b", path, sizeof path), 3);
    EXPECT_STREQ(path, "a:b");
    for (const char* none : {"auto", "device", "silence", "tone:440", "null", "file:", "file", "File:x", ""}) {
        EXPECT_EQ(wavoryx_audio_device_file(none, path, sizeof path), 0) << none;
        EXPECT_STREQ(path, "") << none;
    }
    EXPECT_EQ(wavoryx_audio_device_file("file:/a/long/path/to/a.wav", path, sizeof path), 21);
    EXPECT_STREQ(path, "/a/long/path/to");
    EXPECT_EQ(wavoryx_audio_device_file(nullptr, path, sizeof path), -1);
    EXPECT_EQ(wavoryx_audio_device_file("file:x", nullptr, 4), -1);
    EXPECT_EQ(wavoryx_audio_device_file("file:x", path, 0), -1);
}

}  // namespace
