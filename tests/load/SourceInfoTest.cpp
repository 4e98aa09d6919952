// What a loaded file states about itself, known at event 6 without waiting
// for the decode: each container's and codec's names and figures, more
// channels than the item keeps, and the refusals before and beside it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

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

namespace {

void put32(std::string& out, uint32_t v) {
    for (int i = 0; i < 4; ++i) out += char((v >> (8 * i)) & 0xFF);
}
void put16(std::string& out, uint16_t v) {
    out += char(v & 0xFF);
    out += char(v >> 8);
}
std::string chunk(const char* id, std::string body) {
    std::string out(id, 4);
    put32(out, uint32_t(body.size()));
    if (body.size() % 2 != 0) body += '\0';
    return out + body;
}
// A LIST/INFO chunk: title, artist, date, comment, track.
std::string infoChunk() {
    std::string body = "INFO";
    const char* const entries[][2] = {{"INAM", "Info Title"}, {"IART", "The Artist"}, {"ICRD", "2024"},
                                      {"ICMT", "A comment"},  {"IPRT", "7"}};
    for (const auto& e : entries) body += chunk(e[0], std::string(e[1]) + '\0');
    return chunk("LIST", body);
}
// An "id3 " chunk with an ID3v2.3 tag: title and album.
std::string id3Chunk() {
    std::string frames;
    for (const auto& f : {std::make_pair("TIT2", "Id3 Title"), std::make_pair("TALB", "The Album")}) {
        const std::string text = std::string(1, '\x03') + f.second;
        frames += f.first;
        for (int shift = 24; shift >= 0; shift -= 8) frames += char((text.size() >> shift) & 0xFF);
        frames += std::string(2, '\0') + text;
    }
    std::string tag = std::string("ID3\x03\x00\x00", 6);
    for (int shift = 21; shift >= 0; shift -= 7) tag += char((frames.size() >> shift) & 0x7F);
    return chunk("id3 ", tag + frames);
}
// A 1 s 8 kHz stereo WAV with `before` between its fmt and data chunks and
// `after` behind its data.
bool writeTaggedWav(const std::string& path, const std::string& before, const std::string& after) {
    std::string fmt;
    put16(fmt, 1);
    put16(fmt, 2);
    put32(fmt, 8000);
    put32(fmt, 32000);
    put16(fmt, 4);
    put16(fmt, 16);
    std::string samples;
    for (int k = 0; k < 8000; ++k) {
        put16(samples, uint16_t(k % 1000 + 1));
        put16(samples, uint16_t(k % 700 + 1));
    }
    const std::string body = "WAVE" + chunk("fmt ", fmt) + before + chunk("data", samples) + after;
    std::string file = "RIFF";
    put32(file, uint32_t(body.size()));
    file += body;
    wvtest::writeFile(path, file.data(), file.size());
    return wvtest::fileExists(path);
}
// What ffprobe says of one of the file's tags ("" for none).
std::string ffprobeTag(const std::string& path, const std::string& name) {
    const std::string command = "ffprobe -v error -show_entries format_tags=" + name +
                                " -of default=noprint_wrappers=1:nokey=1 " + wvtest::shellQuote(path);
    std::string out;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char buffer[256];
        while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) out += buffer;
        ::pclose(pipe);
    }
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    return out;
}

}  // namespace

// LIST/INFO and "id3 " chunks, before the samples or after them (where a
// plain 44-byte header lets the WAV be read in place): the tags ffprobe
// shows, under the same names.
TEST(SourceTags, WavTagChunksBeforeAndAfterTheDataAreStated) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    struct Case {
        const char* name;
        std::string before, after;
        bool inPlace;
    };
    const Case cases[] = {
        {"after.wav", "", infoChunk() + id3Chunk(), true},
        {"id3-after.wav", "", id3Chunk(), true},
        {"before.wav", infoChunk(), "", false},
        {"both.wav", id3Chunk(), infoChunk(), false},
    };
    LoadRig rig;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = sources.file(c.name);
        ASSERT_TRUE(writeTaggedWav(path, c.before, c.after));
        const int id = rig.engine().loadFile(path.c_str());
        ASSERT_TRUE(rig.waitForEnd(id));
        ASSERT_EQ(rig.eventsOf(id).back().code, 4);
        EXPECT_EQ(rig.engine().getPcmFrameLength(id), 8000);
        EXPECT_EQ(!wvtest::fileExists(rig.pcmPath(id)), c.inPlace) << "read in place or decoded";
        int stated = 0;
        for (const char* name : {"title", "artist", "album", "date", "track", "comment"}) {
            char value[64] = "?";
            const int32_t length = rig.engine().getSourceTag(id, name, value, sizeof value);
            const std::string probed = ffprobeTag(path, name);
            EXPECT_EQ(std::string(value), probed) << name;
            EXPECT_EQ(length, int32_t(probed.size())) << name;
            stated += !probed.empty();
        }
        EXPECT_GE(stated, 2) << "the file's tags were not written as meant";
    }
}
