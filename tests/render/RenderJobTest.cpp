// How a render starts, waits, fails, is cancelled and is cut short by the
// engine's end: one ending event each, the output kept only when complete,
// the ".wave" file likewise, the render's reference always given back.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "RenderFixture.h"
#include "SmallFilesystem.h"

namespace {

using namespace rendertest;
using wv::SPcmInfo;

using RenderJob = RenderTest;

TEST_F(RenderJob, UnknownTypeRendersAsWavNamedInTheWorkingDir) {
    const auto src = patternSamples(1000, 1, 1);
    SPcmInfo* item = addPcmItem(src, 8000, 1);
    const uint32_t list = newList({{item, 0, 1000}});
    ASSERT_EQ(engine->setOutputPara(list, "", static_cast<encode_type>(7)), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    const std::string out = dir.prefix() + std::to_string(list) + ".wav";
    const auto bytes = wvtest::readFile(out);
    ASSERT_EQ(bytes.size(), 44u + 2000u);
    EXPECT_EQ(std::string(bytes.data(), 4), "RIFF");
    EXPECT_EQ(asSamples(bytes, 44), src);
    EXPECT_FALSE(wvtest::fileExists(dir.file("next.mp3")));
    EXPECT_TRUE(wvtest::fileExists(out + ".wave"));
}

TEST_F(RenderJob, UncreatableOutputFailsWithMinusOneAndReleases) {
    wvtest::LogCapture log;
    SPcmInfo* item = addPcmItem(patternSamples(1000, 2, 2), 8000, 2);
    const uint32_t list = newList({{item, 0, 1000}});
    const std::string out = dir.file("missing/dir/out.mp3");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_MP3), 0);
    EXPECT_EQ(render(list), (Event{wv::EVT_RENDER_FAILED, static_cast<int>(list), -1}));
    EXPECT_EQ(eventsOf(list).size(), 1u);
    EXPECT_TRUE(log.contains("createAudioEncoder error!"));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
    EXPECT_FALSE(wvtest::fileExists(out + ".wave"));

    // The client's reference is the last one: removing the list destroys it.
    EXPECT_EQ(engine->removePcm(list), static_cast<int32_t>(list));
    EXPECT_EQ(engine->getPcmSampleRate(list), -1);
}

TEST_F(RenderJob, EmptyListGivesAHeaderOnlyFile) {
    const uint32_t list = newList({});
    const std::string out = dir.file("empty.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    EXPECT_EQ(render(list).code, wv::EVT_RENDER_DONE);
    // An empty list suggests 8000 Hz mono.
    const auto bytes = wvtest::readFile(out);
    const std::vector<uint8_t> header(bytes.begin(), bytes.end());
    EXPECT_EQ(header, wvtest::canonicalWavHeader(8000, 1, 0));
    EXPECT_EQ(wvtest::fileSize(out + ".wave"), 0);
    EXPECT_EQ(engine->getPcmDuration(list), -3);  // no length to tell
}

TEST_F(RenderJob, StorageFullStopsWith25RemovingOutputAndWaveform) {
    wvtest::SmallFilesystem fs(256 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    wvtest::LogCapture log;
    SPcmInfo* item = addPcmItem(patternSamples(4 * 44100, 2, 3), 44100, 2);  // 705600 bytes
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const uint32_t list = newList({{item, 0, 4 * 44100}});
        const std::string out = fs.file(type == ENCODE_WAV ? "full.wav" : "full.mp3");
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
        ASSERT_EQ(engine->setEncodePara(list, 0, 320, 0, 0), 0);
        // MP3 at 320 kbit/s is about 40 kB a second: leave it 64 kB.
        if (type == ENCODE_MP3) {
            const long long filled = fs.fill("ballast");
            ASSERT_GT(filled, 96 * 1024);
            ASSERT_EQ(truncate(fs.file("ballast").c_str(), filled - 64 * 1024), 0);
        }
        EXPECT_EQ(render(list), (Event{wv::EVT_RENDER_STOPPED, static_cast<int>(list), -1})) << type;
        EXPECT_FALSE(wvtest::fileExists(out));
        EXPECT_FALSE(wvtest::fileExists(out + ".wave"));
        EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
    }
    EXPECT_TRUE(log.contains("Cancel file encode due to low space"));
    EXPECT_FALSE(log.contains("Init encoder error!"));  // both stopped mid-render
}

TEST_F(RenderJob, WaitsForSourcesToBeginLoadingThenConvertsMillisecondClips) {
    const auto src = patternSamples(44100, 2, 4);
    SPcmInfo* pending = registerItem(new SPcmInfo(wv::ENCODED_FILE));
    const uint32_t list = static_cast<uint32_t>(engine->newClipList());
    ASSERT_GT(engine->addClipMs(list, pending->id, 100, 600), 0);
    ASSERT_EQ(engine->setOutputPara(list, dir.file("late.wav").c_str(), ENCODE_WAV), 0);

    wvtest::LogCapture log;
    testing::internal::CaptureStdout();
    ASSERT_EQ(engine->process(list), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(eventsOf(list).empty());

    // The load begins (by hand): format, data, then the status.
    const std::string pcm = dir.file("late.pcm");
    wvtest::writeFile(pcm, src.data(), src.size() * 2);
    pending->pcmPath.set(pcm);
    pending->sampleRate = 44100;
    pending->channelCount = 2;
    pending->totalFrames = 44100;
    pending->frames = 44100;
    pending->status = wv::PCM_READY;
    const Event ending = waitForEnding(list);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(ending.code, wv::EVT_RENDER_DONE);
    // The wait is told to the log at debug level, never to standard output.
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(log.contains("wait some time till the list clips " + std::to_string(list) + " are ready"));

    const auto bytes = wvtest::readFile(dir.file("late.wav"));
    const std::vector<int16_t> expected(src.begin() + 4410 * 2, src.begin() + 26460 * 2);
    EXPECT_EQ(asSamples(bytes, 44), expected);
}

TEST_F(RenderJob, ARenderKeepsTheSettingsOfItsProcessCall) {
    const auto src = patternSamples(8000, 1, 5);
    SPcmInfo* pending = registerItem(new SPcmInfo(wv::ENCODED_FILE));
    const uint32_t list = static_cast<uint32_t>(engine->newClipList());
    ASSERT_GT(engine->addClipMs(list, pending->id, 0, 1000), 0);
    const std::string out = dir.file("kept.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setEncodePara(list, 8000, 0, 1, 0), 0);
    // The render waits for its source; meanwhile every setting changes.
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_EQ(engine->setOutputPara(list, dir.file("next.mp3").c_str(), ENCODE_MP3), 0);
    ASSERT_EQ(engine->setEncodePara(list, 16000, 64, 2, 1), 0);
    ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
    ASSERT_EQ(engine->setResampleQuality(list, 2), 0);

    const std::string pcm = dir.file("kept.pcm");
    wvtest::writeFile(pcm, src.data(), src.size() * 2);
    pending->pcmPath.set(pcm);
    pending->sampleRate = 8000;
    pending->channelCount = 1;
    pending->totalFrames = 8000;
    pending->frames = 8000;
    pending->status = wv::PCM_READY;
    ASSERT_EQ(waitForEnding(list).code, wv::EVT_RENDER_DONE);
    // Plain WAV, 8000 Hz mono: the source's samples, nothing normalised.
    const auto bytes = wvtest::readFile(out);
    ASSERT_EQ(bytes.size(), 44u + 8000u * 2u);
    EXPECT_EQ(std::string(bytes.data(), 4), "RIFF");
    EXPECT_EQ(asSamples(bytes, 44), src);
    EXPECT_FALSE(wvtest::fileExists(dir.file("next.mp3")));
    EXPECT_EQ(engine->getListLoudnessResult(list, nullptr), -4);
    int32_t reached = 0;
    EXPECT_EQ(engine->getListLoudnessResult(list, &reached), -3);
}

TEST_F(RenderJob, GrowingSourceRendersAheadThenWaitsForMoreData) {
    const auto src = patternSamples(30000, 2, 5);
    SPcmInfo* loading = addPcmItem(src, 44100, 2, wv::DECODING);
    loading->frames = 10000;
    const uint32_t list = newList({{loading, 0, 30000}});
    const std::string out = dir.file("grow.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);

    wvtest::LogCapture log;
    testing::internal::CaptureStdout();
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) == 10000; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(engine->getPcmFrameLength(list), 10000);  // nothing past the data
    loading->frames = 30000;
    loading->status = wv::PCM_READY;
    const Event ending = waitForEnding(list);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(ending.code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(log.contains("pcm " + std::to_string(list) + " not available, delayed encode"));
    EXPECT_EQ(asSamples(wvtest::readFile(out), 44), src);
}

TEST_F(RenderJob, WaitingForASourceWhoseLoadThenFailsEndsWithTwentyMinusOne) {
    const auto src = patternSamples(30000, 2, 6);
    SPcmInfo* loading = addPcmItem(src, 44100, 2, wv::DECODING);
    loading->frames = 10000;
    const uint32_t list = newList({{loading, 0, 30000}});
    const std::string out = dir.file("never.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) == 10000; }));
    // What the decoder does when a load fails or is cancelled.
    loading->loadFailed = true;
    EXPECT_EQ(waitForEnding(list), (Event{wv::EVT_RENDER_FAILED, static_cast<int>(list), -1}));
    EXPECT_FALSE(wvtest::fileExists(out));
}

TEST_F(RenderJob, CancelBeforeAndDuringRenderLeavesNoOutput) {
    // Before: the start command waits for a source that has not begun.
    SPcmInfo* pending = registerItem(new SPcmInfo(wv::ENCODED_FILE));
    const uint32_t waiting = newList({{pending, 0, 100}});
    ASSERT_EQ(engine->setOutputPara(waiting, dir.file("never.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(waiting), 0);
    ASSERT_EQ(engine->cancelProcess(waiting), 0);
    EXPECT_EQ(waitForEnding(waiting), (Event{wv::EVT_RENDER_CANCELLED, static_cast<int>(waiting), -1}));
    EXPECT_FALSE(wvtest::fileExists(dir.file("never.wav")));
    EXPECT_FALSE(wvtest::fileExists(dir.file("never.wav.wave")));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(waiting); }));

    // During: the render has written part of the output and waits for data.
    const auto src = patternSamples(30000, 2, 6);
    SPcmInfo* loading = addPcmItem(src, 44100, 2, wv::DECODING);
    loading->frames = 12000;
    const uint32_t list = newList({{loading, 0, 30000}});
    const std::string out = dir.file("cancelled.mp3");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_MP3), 0);
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) == 12000; }));
    EXPECT_TRUE(wvtest::fileExists(out));
    ASSERT_EQ(engine->cancelProcess(list), 0);
    EXPECT_EQ(waitForEnding(list), (Event{wv::EVT_RENDER_CANCELLED, static_cast<int>(list), -1}));
    EXPECT_FALSE(wvtest::fileExists(out));
    EXPECT_FALSE(wvtest::fileExists(out + ".wave"));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));

    // A cancel with nothing to cancel reports nothing.
    const size_t before = eventsOf(list).size();
    ASSERT_EQ(engine->cancelProcess(list), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(eventsOf(list).size(), before);
}

TEST_F(RenderJob, EngineDestroyedMidRenderRemovesUnfinishedOutputs) {
    const auto src = patternSamples(30000, 2, 7);
    SPcmInfo* loading = addPcmItem(src, 44100, 2, wv::DECODING);
    loading->frames = 9000;
    std::vector<std::string> outputs;
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const uint32_t list = newList({{loading, 0, 30000}});
        outputs.push_back(dir.file(type == ENCODE_WAV ? "cut.wav" : "cut.mp3"));
        ASSERT_EQ(engine->setOutputPara(list, outputs.back().c_str(), type), 0);
        ASSERT_EQ(engine->process(list), 0);
        ASSERT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) == 9000; }));
    }
    // A third render still waits for its source to begin loading.
    SPcmInfo* pending = registerItem(new SPcmInfo(wv::ENCODED_FILE));
    const uint32_t queued = newList({{pending, 0, 30000}});
    ASSERT_EQ(engine->setOutputPara(queued, dir.file("queued.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(queued), 0);

    stopEngine();
    for (const std::string& out : outputs) {
        EXPECT_FALSE(wvtest::fileExists(out)) << out;
        EXPECT_FALSE(wvtest::fileExists(out + ".wave")) << out;
    }
    for (const Event& e : recorder.events()) EXPECT_FALSE(isEnding(e.code)) << e.code;
}

TEST_F(RenderJob, LowThreadPriorityPacesStepsWithoutChangingOutput) {
    engine->setThreadPriority(WV_PRIORITY_LOW);
    const auto src = patternSamples(60000, 2, 8);
    SPcmInfo* item = addPcmItem(src, 44100, 2);
    const uint32_t first = newList({{item, 0, 60000}});
    const uint32_t second = newList({{item, 30000, 60000}});
    ASSERT_EQ(engine->setOutputPara(first, dir.file("a.mp3").c_str(), ENCODE_MP3), 0);
    ASSERT_EQ(engine->setOutputPara(second, dir.file("b.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->process(first), 0);
    ASSERT_EQ(engine->process(second), 0);
    EXPECT_EQ(waitForEnding(first).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(waitForEnding(second).code, wv::EVT_RENDER_DONE);
    EXPECT_EQ(asSamples(wvtest::readFile(dir.file("b.wav")), 44), std::vector<int16_t>(src.begin() + 60000, src.end()));
}

}  // namespace
