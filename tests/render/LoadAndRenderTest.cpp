// Files loaded through loadFile and rendered: compressed and WAV sources at
// mixed rates, lists rendered while their sources still load, and lists
// whose sources never load.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "AudioFiles.h"
#include "MediaDecode.h"
#include "RenderFixture.h"
#include "render/EncoderThread.h"

namespace {

using namespace rendertest;

class LoadAndRender : public RenderTest {
protected:
    void SetUp() override {
        if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
        RenderTest::SetUp();
    }
    // A tone file: made as WAV, then encoded by ffmpeg with `args` unless
    // the name ends in ".wav".
    std::string toneFile(const std::string& name, int rate, int channels, double seconds, double hz,
                         const std::string& args) {
        const std::string wav = dir.file(name + ".src.wav");
        EXPECT_TRUE(wvtest::writeToneWav(wav, rate, channels, seconds, hz));
        if (args.empty()) return wav;
        const std::string out = dir.file(name);
        EXPECT_TRUE(wvtest::encodeWithFfmpeg(wav, out, args));
        return out;
    }
    // The tone of `channel` over [fromMs, toMs) of interleaved stereo at `rate`.
    static double toneAt(const std::vector<int16_t>& pcm, int rate, int channel, int fromMs, int toMs) {
        const size_t first = size_t(fromMs) * rate / 1000;
        const size_t frames = size_t(toMs - fromMs) * rate / 1000;
        return wvtest::estimateFrequency(pcm.data() + first * 2, frames, 2, channel, rate);
    }
};

// Clips of 1000 ms from an MP3 (44.1 kHz stereo, 1 kHz), a FLAC (22.05 kHz
// mono, 1.5 kHz) and a WAV read in place (48 kHz stereo, 700 Hz), rendered
// at 44.1 kHz stereo while the sources load, to both formats.
TEST_F(LoadAndRender, MixedSourcesRenderToBothFormatsWhileTheyLoad) {
    const std::string mp3 = toneFile("a.mp3", 44100, 2, 4.0, 1000.0, "-c:a libmp3lame -b:a 192k");
    const std::string flac = toneFile("b.flac", 22050, 1, 20.0, 1500.0, "-c:a flac");
    const std::string wav = toneFile("c", 48000, 2, 3.0, 700.0, "");
    const int a = engine->loadFile(mp3.c_str());
    const int b = engine->loadFile(flac.c_str());
    const int c = engine->loadFile(wav.c_str());

    std::vector<uint32_t> lists;
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const int list = engine->newClipList();
        ASSERT_GT(engine->addClipMs(list, a, 1000, 2000), 0);
        ASSERT_GT(engine->addClipMs(list, b, 18000, 19000), 0);  // far into a file still loading
        ASSERT_GT(engine->addClipMs(list, c, 500, 1500), 0);
        ASSERT_EQ(engine->setEncodePara(list, 44100, 192, 2, 0), 0);
        ASSERT_EQ(engine->setOutputPara(list, dir.file(type == ENCODE_WAV ? "mix.wav" : "mix.mp3").c_str(), type), 0);
        ASSERT_EQ(engine->process(list), 0);
        lists.push_back(static_cast<uint32_t>(list));
    }
    for (uint32_t list : lists) EXPECT_EQ(waitForEnding(list).code, wv::EVT_RENDER_DONE) << list;
    for (int id : {a, b, c}) EXPECT_TRUE(recorder.waitForCode(wv::EVT_LOAD_DONE, id));
    EXPECT_EQ(engine->getPcmDuration(lists[0]), 3000);

    std::vector<int16_t> rendered;
    int rate = 0, channels = 0;
    ASSERT_TRUE(wvtest::readWavSamples(dir.file("mix.wav"), &rendered, &rate, &channels));
    EXPECT_EQ(rate, 44100);
    ASSERT_EQ(channels, 2);
    EXPECT_NEAR(rendered.size() / 2.0, 3 * 44100.0, 12.0);
    // Each second is its own tone, the mono FLAC on both channels.
    EXPECT_NEAR(toneAt(rendered, 44100, 0, 100, 900), 1000.0, 3.0);
    EXPECT_NEAR(toneAt(rendered, 44100, 0, 1100, 1900), 1500.0, 3.0);
    EXPECT_NEAR(toneAt(rendered, 44100, 1, 1100, 1900), 1500.0, 3.0);
    EXPECT_NEAR(toneAt(rendered, 44100, 0, 2100, 2900), 700.0, 3.0);
    EXPECT_EQ(wvtest::fileSize(dir.file("mix.wav.wave")), 150);

    wvtest::DecodedAudio decoded;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(dir.file("mix.mp3"), &decoded));
    EXPECT_EQ(decoded.rate, 44100);
    ASSERT_EQ(decoded.channels, 2);
    // The same frames as the WAV render of the same list.
    EXPECT_EQ(decoded.frames(), rendered.size() / 2);
    EXPECT_NEAR(toneAt(decoded.samples, 44100, 0, 200, 900), 1000.0, 5.0);
    EXPECT_NEAR(toneAt(decoded.samples, 44100, 1, 1200, 1900), 1500.0, 5.0);
    EXPECT_NEAR(toneAt(decoded.samples, 44100, 0, 2200, 2900), 700.0, 5.0);
}

// A render that caught up with its source's load goes on as the decoder
// writes and ends with the load, woken by the decoder rather than by a
// look of its own: here it would not look again for ten minutes. It equals
// the same list rendered after the load.
TEST_F(LoadAndRender, ARenderWaitingOnALoadIsWokenByTheDecoder) {
    engine->encoderThread().setRetryDelayMs(600000);
    const std::string mp3 = toneFile("long.mp3", 44100, 2, 20.0, 440.0, "-c:a libmp3lame -b:a 128k");
    const int source = engine->loadFile(mp3.c_str());
    const int list = engine->newClipList();
    ASSERT_GT(engine->addClipMs(list, source, 0, 20000), 0);
    ASSERT_EQ(engine->setOutputPara(list, dir.file("while.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_EQ(waitForEnding(list).code, wv::EVT_RENDER_DONE);
    ASSERT_TRUE(recorder.waitForCode(wv::EVT_LOAD_DONE, source));
    const int after = engine->newClipList();
    ASSERT_GT(engine->addClipMs(after, source, 0, 20000), 0);
    ASSERT_EQ(engine->setOutputPara(after, dir.file("after.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(after), 0);
    ASSERT_EQ(waitForEnding(after).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(wvtest::readFile(dir.file("while.wav")), wvtest::readFile(dir.file("after.wav")));
}

// A source whose load failed, was cancelled or ran out of storage will
// never produce its data: the render ends with 20 (-1) instead of waiting,
// whether the failure came before the render started or while it waited,
// and whether the source sits in the list or in a nested list.
TEST_F(LoadAndRender, ListWhoseSourceWillNeverLoadFailsAtOnce) {
    const std::string good = toneFile("ok.wav", 8000, 1, 1.0, 400.0, "");
    const int loaded = engine->loadFile(good.c_str());
    const int missing = engine->loadFile(dir.file("no-such-file.mp3").c_str());
    ASSERT_TRUE(recorder.waitForCode(wv::EVT_LOAD_FAILED, missing));
    const uint32_t inner = newList({});
    ASSERT_GT(engine->addClip(inner, missing, 0, 4000), 0);
    const uint32_t direct = newList({});
    ASSERT_GT(engine->addClip(direct, loaded, 0, 4000), 0);
    ASSERT_GT(engine->addClip(direct, missing, 0, 4000), 0);
    const uint32_t nested = newList({});
    ASSERT_GT(engine->addClip(nested, loaded, 0, 4000), 0);
    ASSERT_GT(engine->addClip(nested, inner, 0, 4000), 0);
    for (uint32_t list : {direct, nested}) {
        const std::string out = dir.file("never" + std::to_string(list) + ".mp3");
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_MP3), 0);
        ASSERT_EQ(engine->process(list), 0);
        EXPECT_EQ(waitForEnding(list), (Event{wv::EVT_RENDER_FAILED, static_cast<int>(list), -1}));
        EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
        EXPECT_FALSE(wvtest::fileExists(out));
        EXPECT_EQ(eventsOf(list).size(), 1u);
    }
}

TEST_F(LoadAndRender, RenderWaitingForALoadThatIsCancelledFails) {
    const std::string flac = toneFile("long.flac", 44100, 2, 180.0, 440.0, "-c:a flac");
    // A slow load: the render catches up with it and waits for more data.
    engine->setThreadPriority(WV_PRIORITY_LOW);
    const int loading = engine->loadFile(flac.c_str());
    ASSERT_TRUE(recorder.waitForCode(wv::EVT_LOAD_STARTED, loading));
    const uint32_t list = newList({});
    ASSERT_GT(engine->addClipMs(list, loading, 0, 180000), 0);
    const std::string out = dir.file("cut.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) > 0; }));
    ASSERT_EQ(engine->cancelLoadFile(loading), 0);
    ASSERT_TRUE(recorder.waitFor(
        [&](const std::vector<Event>& events) {
            for (const Event& e : events) {
                if (e.id == loading && (e.code == wv::EVT_LOAD_CANCELLED || e.code == wv::EVT_LOAD_DONE)) return true;
            }
            return false;
        },
        std::chrono::seconds(60)));
    // A starved test thread may let the whole load finish before its cancel.
    if (recorder.waitForCode(wv::EVT_LOAD_DONE, loading, std::chrono::milliseconds(0))) {
        GTEST_SKIP() << "the load finished before it could be cancelled";
    }
    EXPECT_EQ(waitForEnding(list), (Event{wv::EVT_RENDER_FAILED, static_cast<int>(list), -1}));
    EXPECT_FALSE(wvtest::fileExists(out));
}

}  // namespace
