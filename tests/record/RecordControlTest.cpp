// Record control: argument checks, failures, storage running full, stops at
// awkward moments, and jobs left over at shutdown.
#include <gtest/gtest.h>

#include <cstdio>
#include <vector>

#include "AudioFixtures.h"
#include "RecordTestHelpers.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"
#include "codec/AudioEncoder.h"
#include "engine/WavoryxPriv.h"
#include "record/RecordJob.h"
#include "record/RecorderThread.h"

namespace {

using rectest::controlCodes;
using wvtest::Event;

struct ToneInput {
    ToneInput() : path(dir.file("in.wav")) { ok = wvtest::writeToneWav(path, 8000, 1, 2.0, 500.0); }
    wvtest::TempDir dir;
    std::string path;
    bool ok = false;
};

TEST(RecordControl, RefusesBadRequestsAndAppliesDefaults) {
    ToneInput tone;
    ASSERT_TRUE(tone.ok);
    rectest::FileInput source(tone.path, "4");
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    WavoryxPriv& engine = r.engine;
    EXPECT_EQ(engine.recordPause(), -5);
    EXPECT_EQ(engine.recordResume(), -5);
    EXPECT_EQ(engine.recordStop(), -5);
    EXPECT_EQ(engine.recordStart("", encode_type(6), 8000, 1, 0, 1, 0), -4);
    EXPECT_EQ(engine.recordStart("", encode_type(-1), 8000, 1, 0, 1, 0), -4);
    EXPECT_EQ(engine.recordStart("", ENCODE_WAV, 8000, 3, 0, 1, 0), -4);
    EXPECT_EQ(engine.recordStart("", ENCODE_WAV, 8000, 6, 0, 1, 0), -4);
    EXPECT_EQ(engine.infoList().size(), 0u);  // nothing registered

    const int32_t id = engine.recordStart("", ENCODE_MP3, 0, 0, 0, 1, 0);
    ASSERT_GT(id, 0);
    EXPECT_EQ(engine.recordStart("", ENCODE_WAV, 8000, 1, 0, 1, 0), -5);
    const wv::SPcmInfo* item = engine.getPcmInfo(uint32_t(id), wv::REF_NONE);
    EXPECT_EQ(item->sampleRate.load(), 8000);
    EXPECT_EQ(item->channelCount.load(), 1);
    EXPECT_EQ(item->renderSettings().bitRate, 320);
    EXPECT_EQ(item->status.load(), wv::RECORDING);
    const std::string expected = work.prefix() + std::to_string(id) + ".mp3";
    EXPECT_EQ(item->path.get(), expected);
    ASSERT_TRUE(r.waitForCode(61, id));
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), 4000));
    EXPECT_EQ(engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    EXPECT_GT(wvtest::fileSize(expected), 0);
    EXPECT_GT(wvtest::fileSize(expected + ".wave"), 0);
    // The item stays the client's; the recorder let go of it.
    EXPECT_EQ(engine.infoList().refCount(uint32_t(id), wv::REF_CLIENT), 1u);
    EXPECT_EQ(engine.infoList().refCount(uint32_t(id), wv::REF_RECORDER), 0u);
    EXPECT_EQ(engine.recordStop(), -5);
}

TEST(RecordControl, EncoderThatCannotStartReleasesTheItemAndTheRecording) {
    ToneInput tone;
    rectest::FileInput source(tone.path, "4");
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    wvtest::LogCapture log;
    const std::string path = work.file("missing/dir/out.wav");
    const int32_t id = r.engine.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 1, 0);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    EXPECT_EQ(r.events.events(), (std::vector<Event>{{60, id, 5}, {63, id, -1}}));
    EXPECT_TRUE(log.contains("createAudioEncoder failed.", "WavoryxPriv"));
    EXPECT_EQ(r.engine.getPcmSampleRate(uint32_t(id)), -1);  // gone
    // No longer current: a new recording may start.
    const int32_t next = r.engine.recordStart("", ENCODE_WAV, 8000, 1, 0, 1, 0);
    EXPECT_GT(next, id);
    EXPECT_EQ(r.engine.recordStop(), 0);
    EXPECT_TRUE(r.waitForCode(63, next));
}

TEST(RecordControl, StopRightAfterStartEndsTheRecordingEitherWay) {
    ToneInput tone;
    rectest::FileInput source(tone.path, "4");
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    for (int round = 0; round < 5; ++round) {
        const int32_t id = r.engine.recordStart("", ENCODE_WAV, 8000, 1, 0, 1, 0);
        ASSERT_GT(id, 0);
        ASSERT_EQ(r.engine.recordStop(), 0);
        ASSERT_TRUE(r.waitForCode(63, id));
        EXPECT_TRUE(
            rectest::waitUntil([&] { return r.engine.infoList().refCount(uint32_t(id), wv::REF_RECORDER) == 0; }));
        for (const Event& e : r.events.events()) {
            if (e.id == id && e.code == 63) {
                EXPECT_EQ(e.value, 0);
            }
        }
        // A file left behind is a finished one.
        const std::string file = work.prefix() + std::to_string(id) + ".wav";
        if (wvtest::fileExists(file)) {
            std::vector<int16_t> samples;
            EXPECT_TRUE(wvtest::readWavSamples(file, &samples));
        }
    }
}

wv::pcm_id_t addRecordingItem(WavoryxPriv& engine, const std::string& path) {
    auto* item = new wv::SPcmInfo(wv::RECORDING);
    item->refs[wv::REF_CLIENT] = 1;
    item->refs[wv::REF_RECORDER] = 1;
    item->sampleRate = 8000;
    item->channelCount = 1;
    item->changeRenderSettings([](wv::RenderSettings& s) {
        s.sampleRate = 8000;
        s.channels = 1;
        s.bitRate = 320;
    });
    item->path.set(path);
    return engine.infoList().add(item);
}

TEST(RecordControl, StopBeforeTheFirstCommandRanOpensNothing) {
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    const std::string path = work.file("never.wav");
    const wv::pcm_id_t id = addRecordingItem(r.engine, path);
    // A worker of its own, so that commands can be queued before it runs.
    wv::RecorderThread recorder(r.engine.jobContext());
    recorder.sendCmd(wv::WVThreadCmd(wv::RecorderThread::kCmdStart, id, -1), 7);
    recorder.cancelCmd(wv::WVThreadCmd(wv::RecorderThread::kCmdStart, id, -1));
    recorder.launch();
    ASSERT_TRUE(r.waitForCode(63, int(id)));
    recorder.exit();
    EXPECT_EQ(r.events.events(), (std::vector<Event>{{63, int(id), 0}}));
    EXPECT_EQ(r.engine.infoList().refCount(id, wv::REF_RECORDER), 0u);
    EXPECT_EQ(r.engine.infoList().refCount(id, wv::REF_CLIENT), 1u);
    EXPECT_FALSE(wvtest::fileExists(path));
    EXPECT_FALSE(wvtest::fileExists(path + ".wave"));
}

TEST(RecordControl, CommandsOfAVanishedItemAreDroppedAndTheirJobFreed) {
    wvtest::TempDir work;
    wvtest::LogCapture log;
    rectest::RecordingEngine r(work.prefix());
    const std::string path = work.file("orphan.wav");
    auto* job = new wv::RecordJob();
    job->encoder.reset(wv::AudioEncoder::createAudioEncoder(wv::EncodeFormat::Wav, path.c_str()));
    ASSERT_TRUE(job->encoder);
    ASSERT_EQ(job->encoder->initEncoder(8000, 1, 320, wv::AudioEncoder::FORMAT_PCM_16), 0);
    job->waveform.reset(new wv::WaveformState(8000, 1));
    job->pacer.reset(new wv::PacingTimer(20));
    // A worker of its own, so that commands can be queued before it runs.
    wv::RecorderThread recorder(r.engine.jobContext());
    recorder.sendCmd(wv::WVThreadCmd(wv::RecorderThread::kCmdStart, 999, -1), 7);
    recorder.sendCmd(wv::WVThreadCmd(wv::RecorderThread::kCmdRecord, 998, -1, job), 1);
    recorder.launch();
    ASSERT_TRUE(rectest::waitUntil([&] {
        size_t n = 0;
        for (const auto& line : log.lines()) n += line.message.find("doesn't exist") != std::string::npos;
        return n >= 2;
    }));
    recorder.exit();
    for (const auto& line : log.lines()) {
        if (line.message.find("doesn't exist") != std::string::npos) {
            EXPECT_EQ(line.priority, WAVORYX_LOG_ERROR);
        }
    }
    // Finished, so kept: a valid empty WAV file.
    std::vector<int16_t> samples;
    EXPECT_TRUE(wvtest::readWavSamples(path, &samples));
    EXPECT_TRUE(samples.empty());
    EXPECT_TRUE(r.events.events().empty());
}

TEST(RecordControl, DestroyingTheEngineMidRecordingFinishesTheFile) {
    ToneInput tone;
    rectest::FileInput source(tone.path, "4");
    wvtest::TempDir work;
    for (bool pause : {false, true}) {
        SCOPED_TRACE(pause);
        const std::string path = work.file(pause ? "parked.wav" : "running.wav");
        int32_t frames = 0;
        {
            rectest::RecordingEngine r(work.prefix());
            const int32_t id = r.engine.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 1, 0);
            ASSERT_TRUE(r.waitForFrames(uint32_t(id), 8000));
            if (pause) {
                // A parked job is freed too.
                ASSERT_EQ(r.engine.recordPause(), 0);
                ASSERT_TRUE(r.waitForCode(66, id));
            }
            frames = r.engine.getPcmFrameLength(uint32_t(id));
        }
        std::vector<int16_t> samples;
        ASSERT_TRUE(wvtest::readWavSamples(path, &samples));
        if (pause) {
            EXPECT_EQ(samples.size(), size_t(frames));
        } else {
            EXPECT_GE(samples.size(), size_t(frames));
        }
    }
}

TEST(RecordControl, FullStoragePausesAndFreedSpaceLetsItResume) {
    wvtest::SmallFilesystem fs(320 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    ToneInput tone;
    rectest::FileInput source(tone.path, "4");
    // Leave roughly 60 KiB: under four seconds of 8000 Hz mono.
    const std::string ballast = fs.file("ballast");
    const long long free = fs.freeBytes();
    ASSERT_GT(free, 100 * 1024);
    std::vector<char> zeros(size_t(free - 60 * 1024), 0);
    wvtest::writeFile(ballast, zeros.data(), zeros.size());

    wvtest::LogCapture log;
    rectest::RecordingEngine r(fs.prefix());
    const std::string path = fs.file("full.wav");
    const int32_t id = r.engine.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 1, 0);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(r.waitForCode(66, id));
    EXPECT_EQ(controlCodes(r.events.events()), (std::vector<int>{61, 64, 66}));
    ASSERT_EQ(std::remove(ballast.c_str()), 0);
    const int32_t paused = r.engine.getPcmFrameLength(uint32_t(id));
    ASSERT_EQ(r.engine.recordResume(), 0);
    ASSERT_TRUE(r.waitForCode(65, id));
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), paused + 8000));
    ASSERT_EQ(r.engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    EXPECT_EQ(controlCodes(r.events.events()), (std::vector<int>{61, 64, 66, 65, 63}));
    for (const Event& e : r.events.events()) {
        if (e.code == 63) {
            EXPECT_EQ(e.value, 0);
        }
    }
    // Every recorded frame reached the file, the held remainder included.
    std::vector<int16_t> samples;
    ASSERT_TRUE(wvtest::readWavSamples(path, &samples));
    EXPECT_EQ(samples.size(), size_t(r.engine.getPcmFrameLength(uint32_t(id))));
}

}  // namespace
