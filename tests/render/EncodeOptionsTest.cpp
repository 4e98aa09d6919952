// A list's MP3 choices (joint stereo, VBR, quality) reach the file, and the
// list reports the format its file holds, which at low bit rates is the
// encoder's own lower rate.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AudioFiles.h"
#include "RenderFixture.h"

namespace {

using namespace rendertest;

// Stereo noise with different channels, so joint stereo has work to do.
std::vector<int16_t> stereoNoise(uint32_t frames) {
    std::vector<int16_t> pcm(size_t(frames) * 2);
    uint32_t state = 99;
    for (size_t i = 0; i < pcm.size(); ++i) {
        state = state * 1664525u + 1013904223u;
        pcm[i] = static_cast<int16_t>(static_cast<int32_t>(state >> 16) / 4 - 8192);
    }
    return pcm;
}

class EncodeOptions : public RenderTest {
protected:
    void SetUp() override {
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
        RenderTest::SetUp();
    }
    // A list of one clip of `frames` frames of 44.1 kHz stereo noise, set
    // to render to `name` as MP3 at `kbps`.
    uint32_t mp3List(const std::string& name, uint32_t frames, int kbps) {
        const uint32_t list = newList({{addPcmItem(stereoNoise(frames), 44100, 2), 0, frames}});
        EXPECT_EQ(engine->setOutputPara(list, dir.file(name).c_str(), ENCODE_MP3), 0);
        EXPECT_EQ(engine->setEncodePara(list, 0, kbps, 0, 0), 0);
        return list;
    }
    size_t decodedFrames(const std::string& name, int channels) {
        std::vector<int16_t> decoded;
        EXPECT_TRUE(wvtest::decodeToPcm16(dir.file(name), dir.path(), &decoded));
        return decoded.size() / size_t(channels);
    }
};

TEST_F(EncodeOptions, AListReportsTheRateItsFileHoldsAndItsLengthAtThatRate) {
    const uint32_t frames = 44100 + 4321;
    const uint32_t low = mp3List("low.mp3", frames, 32);
    EXPECT_EQ(engine->getPcmSampleRate(low), 0);  // not chosen yet
    ASSERT_EQ(render(low).code, wv::EVT_RENDER_DONE);
    wvtest::StreamInfo info;
    ASSERT_TRUE(wvtest::probeAudio(dir.file("low.mp3"), &info));
    EXPECT_EQ(info.sampleRate, 16000);
    EXPECT_EQ(engine->getPcmSampleRate(low), 16000);
    EXPECT_EQ(engine->getPcmChannelCount(low), 2);
    EXPECT_NEAR(double(engine->getPcmFrameLength(low)), double(decodedFrames("low.mp3", 2)), 1.0);

    // Where the encoder keeps the rate, every figure stays the list's.
    const uint32_t same = mp3List("same.mp3", frames, 128);
    ASSERT_EQ(render(same).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(engine->getPcmSampleRate(same), 44100);
    EXPECT_EQ(engine->getPcmFrameLength(same), int32_t(frames));
    EXPECT_EQ(decodedFrames("same.mp3", 2), frames);
    // The duration does not depend on the file's rate.
    EXPECT_EQ(engine->getPcmDuration(low), engine->getPcmDuration(same));
}

TEST_F(EncodeOptions, JointStereoAndVbrReachTheFileAndKeepTheLengthExact) {
    const uint32_t frames = 2 * 44100 + 123;
    const uint32_t dual = mp3List("dual.mp3", frames, 128);
    const uint32_t joint = mp3List("joint.mp3", frames, 128);
    const uint32_t vbr = mp3List("vbr.mp3", frames, 128);
    const uint32_t plain = mp3List("plain.mp3", frames, 128);
    ASSERT_EQ(engine->setEncodeOptions(joint, 5, 0, 1), 0);
    ASSERT_EQ(engine->setEncodeOptions(plain, 5, 0, 2), 0);
    ASSERT_EQ(engine->setEncodeOptions(vbr, 2, 4, 1), 0);
    for (uint32_t list : {dual, joint, vbr, plain}) ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);

    const wvtest::Mp3Frames d = wvtest::walkMp3Frames(wvtest::readFile(dir.file("dual.mp3")));
    EXPECT_EQ(d.mode, 2);  // the default stays dual channel
    EXPECT_EQ(d.bitrateKbps, 128);
    const wvtest::Mp3Frames j = wvtest::walkMp3Frames(wvtest::readFile(dir.file("joint.mp3")));
    EXPECT_EQ(j.mode, 1);
    EXPECT_EQ(j.bitrateKbps, 128);
    const wvtest::Mp3Frames p = wvtest::walkMp3Frames(wvtest::readFile(dir.file("plain.mp3")));
    EXPECT_EQ(p.mode, 0);
    EXPECT_EQ(p.bitrateKbps, 128);
    const wvtest::Mp3Frames v = wvtest::walkMp3Frames(wvtest::readFile(dir.file("vbr.mp3")));
    EXPECT_GT(v.frames, 0) << "frames do not tile the file";
    EXPECT_TRUE(v.infoFrame);
    EXPECT_EQ(v.bitrateKbps, -1) << "a VBR stream changes its bit rate";
    for (const char* name : {"dual.mp3", "joint.mp3", "vbr.mp3", "plain.mp3"}) {
        EXPECT_EQ(decodedFrames(name, 2), frames) << name;
    }
}

TEST_F(EncodeOptions, TheBitRateReportedIsTheOneTheAudioFramesHold) {
    const uint32_t frames = 44100;
    const uint32_t odd = mp3List("odd.mp3", frames, 100);
    const uint32_t tiny = mp3List("tiny.mp3", frames, 8);  // too small a frame for the info frame
    const uint32_t vbr = mp3List("vbr.mp3", frames, 128);
    ASSERT_EQ(engine->setEncodeOptions(vbr, 5, 4, 1), 0);
    const uint32_t wav = newList({{addPcmItem(stereoNoise(frames), 44100, 2), 0, frames}});
    EXPECT_EQ(engine->getOutputBitRate(odd), 100) << "before the render, what was asked";
    EXPECT_EQ(engine->getOutputBitRate(vbr), 0);
    for (uint32_t list : {odd, tiny, vbr, wav}) ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(engine->getOutputBitRate(odd), 96);
    EXPECT_EQ(wvtest::walkMp3Frames(wvtest::readFile(dir.file("odd.mp3"))).bitrateKbps, 96);
    EXPECT_EQ(engine->getOutputBitRate(tiny), 8);
    EXPECT_EQ(wvtest::walkMp3Frames(wvtest::readFile(dir.file("tiny.mp3"))).bitrateKbps, 8);
    EXPECT_EQ(engine->getOutputBitRate(vbr), 0);
    EXPECT_EQ(engine->getOutputBitRate(wav), 0);
    EXPECT_EQ(engine->getOutputBitRate(wav + 1000), -1);
}

TEST_F(EncodeOptions, RefusesValuesOutOfRangeAndItemsThatAreNotLists) {
    wvtest::LogCapture log;  // the refusals' reports stay off the test output
    const uint32_t list = mp3List("x.mp3", 1000, 128);
    EXPECT_EQ(engine->setEncodeOptions(list, 10, 0, 0), -4);
    EXPECT_EQ(engine->setEncodeOptions(list, -1, 0, 0), -4);
    EXPECT_EQ(engine->setEncodeOptions(list, 5, 10, 0), -4);
    EXPECT_EQ(engine->setEncodeOptions(list, 5, 0, 3), -4);
    EXPECT_EQ(engine->setEncodeOptions(list + 1000, 5, 0, 0), -1);
    wv::SPcmInfo* item = addPcmItem(stereoNoise(10), 44100, 2);
    EXPECT_EQ(engine->setEncodeOptions(item->id, 5, 0, 0), -2);
    // 0 is the recordings' setting, always there.
    EXPECT_EQ(engine->setEncodeOptions(0, 9, 9, 1), 0);
    EXPECT_EQ(engine->setEncodeOptions(0, 5, 0, 0), 0);
}

}  // namespace
