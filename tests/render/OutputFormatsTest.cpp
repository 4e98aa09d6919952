// Lists render to FLAC, Opus, AAC and Vorbis as they do to WAV: the same
// events, a ".wave" file, default names and bit rates, and files that
// ffmpeg and the engine's own decoder read back at the list's length.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AudioFiles.h"
#include "MediaDecode.h"
#include "RenderFixture.h"

namespace {

using namespace rendertest;
using wv::SPcmInfo;

struct Format {
    encode_type type;
    const char* suffix;
    const char* codec;  // as ffprobe names it
};

const Format kFormats[] = {{ENCODE_FLAC, ".flac", "flac"},
                           {ENCODE_OPUS, ".opus", "opus"},
                           {ENCODE_AAC, ".m4a", "aac"},
                           {ENCODE_VORBIS, ".ogg", "vorbis"}};

// The containers hold the exact length, but ffmpeg 5.1 trims AAC and Vorbis
// only inside their last packet: up to one codec block of the encoder's
// padding may follow the audio there, and a Vorbis stream that ends on a
// short block loses half of it (128 frames) instead.
size_t trailingSlack(encode_type type) { return type == ENCODE_AAC || type == ENCODE_VORBIS ? 1024 : 0; }
size_t missingAtMost(encode_type type) { return type == ENCODE_VORBIS ? 128 : 0; }

class OutputFormats : public RenderTest {
protected:
    void SetUp() override {
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
        RenderTest::SetUp();
    }
};

TEST_F(OutputFormats, ListsOfSeveralClipsRenderToEveryFormatAtTheirLength) {
    // Two sources of different rates and channels, three clips.
    SPcmInfo* a = addPcmItem(patternSamples(30000, 2, 1), 44100, 2);
    SPcmInfo* b = addPcmItem(patternSamples(20000, 1, 2), 22050, 1);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.codec);
        const uint32_t list = newList({{a, 1000, 12000}, {b, 0, 5000}, {a, 20000, 29999}});
        const std::string out = dir.file(std::string("mix") + f.suffix);
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), f.type), 0);
        ASSERT_EQ(engine->setEncodePara(list, 44100, 0, 2, 0), 0);
        ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
        const uint32_t frames = uint32_t(engine->getPcmFrameLength(list));
        const int rate = engine->getPcmSampleRate(list);
        EXPECT_EQ(rate, f.type == ENCODE_OPUS ? 48000 : 44100);
        EXPECT_EQ(engine->getPcmChannelCount(list), 2);
        EXPECT_TRUE(wvtest::fileExists(out + ".wave"));

        wvtest::StreamInfo info;
        ASSERT_TRUE(wvtest::probeAudio(out, &info));
        EXPECT_EQ(info.codec, f.codec);
        EXPECT_EQ(info.sampleRate, rate);
        EXPECT_EQ(info.channels, 2);
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(out, dir.path(), &decoded));
        EXPECT_GE(decoded.size() / 2 + missingAtMost(f.type), frames);
        EXPECT_LE(decoded.size() / 2, frames + trailingSlack(f.type));

        // The engine's own decoder, as loadFile and playback use it.
        wvtest::DecodedAudio own;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(out, &own));
        EXPECT_EQ(own.rate, rate);
        EXPECT_GE(own.frames() + missingAtMost(f.type), frames);
        EXPECT_LE(own.frames(), frames + trailingSlack(f.type));
    }
}

TEST_F(OutputFormats, FlacHoldsExactlyTheFramesOfTheWavRender) {
    SPcmInfo* a = addPcmItem(patternSamples(30000, 2, 3), 44100, 2);
    const uint32_t wav = newList({{a, 100, 9000}, {a, 15000, 25000}});
    const uint32_t flac = newList({{a, 100, 9000}, {a, 15000, 25000}});
    ASSERT_EQ(engine->setOutputPara(wav, dir.file("same.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setOutputPara(flac, dir.file("same.flac").c_str(), ENCODE_FLAC), 0);
    ASSERT_EQ(render(wav).code, wv::EVT_RENDER_DONE);
    ASSERT_EQ(render(flac).code, wv::EVT_RENDER_DONE);
    std::vector<int16_t> fromWav, fromFlac;
    ASSERT_TRUE(wvtest::decodeToPcm16(dir.file("same.wav"), dir.path(), &fromWav));
    ASSERT_TRUE(wvtest::decodeToPcm16(dir.file("same.flac"), dir.path(), &fromFlac));
    EXPECT_EQ(fromWav.size(), size_t(18900) * 2);
    EXPECT_TRUE(fromWav == fromFlac);
}

TEST_F(OutputFormats, UnnamedOutputsGetTheFormatsNameInTheWorkingFolder) {
    SPcmInfo* a = addPcmItem(patternSamples(8000, 1, 4), 16000, 1);
    for (const Format& f : kFormats) {
        SCOPED_TRACE(f.codec);
        const uint32_t list = newList({{a, 0, 8000}});
        ASSERT_EQ(engine->setOutputPara(list, "", f.type), 0);
        ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
        const std::string out = dir.prefix() + std::to_string(list) + f.suffix;
        wvtest::StreamInfo info;
        ASSERT_TRUE(wvtest::probeAudio(out, &info));
        EXPECT_EQ(info.codec, f.codec);
        EXPECT_TRUE(wvtest::fileExists(out + ".wave"));
    }
}

}  // namespace
