#include <dirent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "TestSupport.h"
#include "Wait.h"
#include "engine/WavoryxPriv.h"
#include "platform/MediaService.h"

namespace {

using wvtest::Event;

int threadCount() {
    int count = 0;
    if (DIR* dir = opendir("/proc/self/task")) {
        while (dirent* entry = readdir(dir)) count += entry->d_name[0] != '.';
        closedir(dir);
    }
    return count;
}

TEST(Engine, LifecycleLeavesNoThreadBehindAndConnectsPerEngine) {
    // A sanitizer runtime may start a helper thread of its own with the
    // first threads of the process: count after one engine has lived.
    { Wavoryx warmUp; }
    const int before = threadCount();
    {
        Wavoryx first;
        Wavoryx second;
        EXPECT_EQ(wv::MediaService::connections(), 2);
        EXPECT_EQ(first.startThreadLoop(0), 0);
        EXPECT_EQ(first.stopThreadLoop(), 0);
        EXPECT_EQ(first.startThreadLoop(0), 0);  // the loop can run again
        EXPECT_EQ(first.stopThreadLoop(), 0);
    }
    EXPECT_EQ(wv::MediaService::connections(), 0);
    EXPECT_EQ(threadCount(), before);
}

TEST(Engine, EventsQueuedBeforeTheLoopArriveInOrderOnTheLoopThread) {
    wvtest::EventRecorder recorder;
    WavoryxPriv engine;
    engine.setCallback(wvtest::EventRecorder::callback);
    engine.notifyClient(wv::WVThreadCmd(6, 1, -1), 0);
    engine.notifyClient(wv::WVThreadCmd(80, 1, 30), 0);  // a level with no loop: lost
    engine.notifyClient(wv::WVThreadCmd(3, 1, 20), 0);
    engine.notifyClient(wv::WVThreadCmd(4, 1, -1), 10);
    EXPECT_TRUE(recorder.events().empty());
    engine.startThreadLoop(0);
    ASSERT_TRUE(recorder.waitForCode(4));
    engine.stopThreadLoop();
    EXPECT_EQ(recorder.events(), (std::vector<Event>{{6, 1, -1}, {3, 1, 20}, {4, 1, -1}}));
    for (const auto& id : recorder.threads()) EXPECT_NE(id, std::this_thread::get_id());

    // After the stop, events wait for the next start.
    engine.notifyClient(wv::WVThreadCmd(22, 2, -1), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(recorder.events().size(), 3u);
    engine.startThreadLoop(0);
    EXPECT_TRUE(recorder.waitForCode(22));
    engine.stopThreadLoop();
}

TEST(Engine, LentThreadStaysInTheLoopUntilStopped) {
    wvtest::EventRecorder recorder;
    Wavoryx engine;
    engine.setCallback(wvtest::EventRecorder::callback);
    std::atomic<bool> returned{false};
    int32_t result = -1;
    std::thread lent([&] {
        result = engine.startThreadLoop(1);
        returned = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(returned.load());
    EXPECT_EQ(engine.playStart(12345), -1);  // any call works from another thread meanwhile
    engine.stopThreadLoop();
    lent.join();
    EXPECT_TRUE(returned.load());
    EXPECT_EQ(result, 0);
}

TEST(Engine, SettingsAndOperationsThatDoNothing) {
    wvtest::LogCapture log;
    WavoryxPriv engine;
    EXPECT_EQ(engine.workingDir(), "/mnt/sdcard/");
    engine.setWorkingDir("/data/tmp");
    EXPECT_EQ(engine.workingDir(), "/data/tmp");
    engine.setWorkingDir(nullptr);
    EXPECT_EQ(engine.workingDir(), "");

    engine.setThreadPriority(0);
    engine.setThreadPriority(WV_PRIORITY_LOW);
    EXPECT_TRUE(log.contains("int32_t WavoryxPriv::setThreadPriority(thread_priority_t): 0 to 1", "WavoryxPriv"));
    EXPECT_EQ(engine.threadPriority(), 1);

    Wavoryx facade;
    // The deprecated no-ops still answer as before.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    EXPECT_EQ(facade.enableWaveformCallback(1, 2, 3, 4), 0);
    EXPECT_EQ(facade.dump(), 0);
    EXPECT_EQ(insertClip(1, 2, 3, 4, 5), 0);
    EXPECT_EQ(insertClipMs(1, 2, 3, 4, 5), 0);
    EXPECT_EQ(removeClip(1, 2), 0);
#pragma GCC diagnostic pop
}

TEST(Engine, UnknownIdsAndWrongStatusesGiveTheExactReports) {
    wvtest::LogCapture log;
    Wavoryx engine;
    engine.setWorkingDir("/nonexistent-dir/");
    EXPECT_EQ(engine.getPcmSampleRate(999), -1);
    EXPECT_TRUE(log.contains("line 331 in int32_t WavoryxPriv::getPcmSampleRate(uint32_t):", "WavoryxPriv"));
    EXPECT_TRUE(log.contains("error: pcm 999 doesn't exist", "WavoryxPriv"));
    EXPECT_EQ(log.lines().back().priority, WAVORYX_LOG_ERROR);

    struct Case {
        int32_t result;
        const char* line;
    };
    const int file = engine.loadFile("/nonexistent-dir/a.mp3");
    const Case cases[] = {
        {engine.getPcmChannelCount(998), "line 338 in int32_t WavoryxPriv::getPcmChannelCount(uint32_t):"},
        {engine.getPcmFrameLength(998), "line 345 in int32_t WavoryxPriv::getPcmFrameLength(uint32_t):"},
        {engine.getPcmDuration(998), "line 352 in int32_t WavoryxPriv::getPcmDuration(pcm_id_t):"},
        {engine.setOutputPara(998, "x", ENCODE_WAV),
         "line 433 in int32_t WavoryxPriv::setOutputPara(uint32_t, const char*, encode_type):"},
        {engine.setEncodePara(998, 1, 1, 1, 0),
         "line 446 in int32_t WavoryxPriv::setEncodePara(uint32_t, int32_t, int32_t, int32_t, int32_t):"},
        {engine.cancelLoadFile(998), "line 532 in int32_t WavoryxPriv::cancelLoadFile(pcm_id_t):"},
        {engine.process(998), "line 544 in int32_t WavoryxPriv::process(uint32_t):"},
        {engine.cancelProcess(998), "line 556 in int32_t WavoryxPriv::cancelProcess(uint32_t):"},
        {engine.addClip(998, file, 0, 1),
         "line 395 in int32_t WavoryxPriv::addClip(uint32_t, uint32_t, uint32_t, uint32_t):"},
        {engine.addClipMs(998, file, 0, 1),
         "line 411 in int32_t WavoryxPriv::addClipMs(uint32_t, uint32_t, duration_t, duration_t):"},
        {engine.playPause(), "line 651 in int32_t WavoryxPriv::playPause(pcm_id_t):"},
        {engine.playStop(), "line 677 in int32_t WavoryxPriv::playStop(pcm_id_t):"},
        {engine.getPlayPositionMs(), "line 709 in int32_t WavoryxPriv::getPlayPositionMs():"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.result, -1) << c.line;
        EXPECT_TRUE(log.contains(c.line)) << c.line;
    }
    EXPECT_TRUE(log.contains("error: pcm 0 doesn't exist"));

    log.clear();
    const std::string wrong = "error: pcm " + std::to_string(file) + " has status ENCODED_FILE but not CLIP_LIST";
    EXPECT_EQ(engine.process(file), -2);
    EXPECT_TRUE(log.contains("line 546 in int32_t WavoryxPriv::process(uint32_t):"));
    EXPECT_TRUE(log.contains(wrong));
    EXPECT_EQ(engine.setOutputPara(file, "x", ENCODE_MP3), -2);
    EXPECT_TRUE(log.contains("line 435 in int32_t WavoryxPriv::setOutputPara(uint32_t, const char*, encode_type):"));
    EXPECT_EQ(engine.setEncodePara(file, 1, 1, 1, 1), -2);
    EXPECT_TRUE(
        log.contains("line 448 in int32_t WavoryxPriv::setEncodePara(uint32_t, int32_t, int32_t, int32_t, int32_t):"));
    EXPECT_EQ(engine.addClip(file, file, 0, 1), -2);
    EXPECT_TRUE(log.contains("line 397 in int32_t WavoryxPriv::addClip(uint32_t, uint32_t, uint32_t, uint32_t):"));
    const int list = engine.newClipList();
    EXPECT_EQ(engine.addClipMs(list, 997, 0, 1), -1);
    EXPECT_TRUE(
        log.contains("line 415 in int32_t WavoryxPriv::addClipMs(uint32_t, uint32_t, duration_t, duration_t):"));
    EXPECT_TRUE(log.contains("error: pcm 997 doesn't exist"));
}

// The reports the case above leaves out, so that every entry of the report
// table is pinned by some test.
TEST(Engine, PlayAndClipSourceReportsKeepTheirLines) {
    wvtest::LogCapture log;
    Wavoryx engine;
    engine.setWorkingDir("/nonexistent-dir/");
    const int file = engine.loadFile("/nonexistent-dir/a.mp3");
    const int list = engine.newClipList();
    struct Case {
        int32_t result;
        int32_t expected;
        const char* line;
    };
    const Case cases[] = {
        {engine.playStart(998), -1, "line 604 in int32_t WavoryxPriv::playStart(pcm_id_t):"},
        {engine.playSeekTo(10), -1, "line 689 in int32_t WavoryxPriv::playSeekTo(int32_t):"},
        {engine.setPlaySpeed(2), -1, "line 700 in int32_t WavoryxPriv::setPlaySpeed(int32_t):"},
        {engine.addClip(list, 997, 0, 1), -1,
         "line 399 in int32_t WavoryxPriv::addClip(uint32_t, uint32_t, uint32_t, uint32_t):"},
        {engine.addClipMs(file, file, 0, 1), -2,
         "line 413 in int32_t WavoryxPriv::addClipMs(uint32_t, uint32_t, duration_t, duration_t):"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(c.result, c.expected) << c.line;
        EXPECT_TRUE(log.contains(c.line, "WavoryxPriv")) << c.line;
    }
}

TEST(Engine, ClipListsThroughThePublicOperations) {
    wvtest::LogCapture log;
    WavoryxPriv engine;
    engine.setWorkingDir("/nonexistent-dir/");
    const int list = engine.newClipList();
    const int file = engine.loadFile("/nonexistent-dir/a.wav");
    const int other = engine.newClipList();
    EXPECT_EQ(list, 1);
    EXPECT_EQ(file, 2);
    EXPECT_EQ(other, 3);
    EXPECT_EQ(engine.addClip(list, file, 0, 0xFFFFFFFF), 1);
    EXPECT_EQ(engine.addClipMs(list, file, 1000, 5000), 2);
    EXPECT_EQ(engine.addClip(list, 77, 0, 1), -1);
    EXPECT_EQ(engine.getPcmInfo(list, wv::REF_NONE)->clipList->lastClipId(), 2u);
    EXPECT_EQ(engine.infoList().refCount(file, wv::REF_LIST), 2u);

    // Lists inside lists, but never inside themselves.
    EXPECT_EQ(engine.addClip(other, list, 0, 10), 1);
    log.clear();
    EXPECT_EQ(engine.addClip(list, other, 0, 10), -4);
    EXPECT_EQ(engine.addClip(list, list, 0, 10), -4);
    EXPECT_TRUE(log.contains("error: pcm 3 cannot be a clip of list 1: the list would contain itself"));
    EXPECT_EQ(engine.infoList().refCount(other, wv::REF_LIST), 0u);
    EXPECT_EQ(engine.infoList().refCount(list, wv::REF_LIST), 1u);

    EXPECT_EQ(engine.getPcmDuration(list), -3);
    EXPECT_EQ(engine.setEncodePara(list, 44100, 128, 1, 1), 0);
    EXPECT_EQ(engine.getPcmChannelCount(list), 2);
    EXPECT_EQ(engine.getPcmSampleRate(list), 44100);
    EXPECT_EQ(engine.setEncodePara(list, 22050, 0, 1, 0), 0);
    EXPECT_EQ(engine.getPcmChannelCount(list), 1);
    EXPECT_EQ(engine.setOutputPara(list, nullptr, ENCODE_MP3), 0);
    EXPECT_EQ(engine.getPcmInfo(list, wv::REF_NONE)->renderSettings().type, ENCODE_MP3);
    EXPECT_EQ(engine.getPcmFrameLength(list), 0);

    EXPECT_EQ(engine.cancelLoadFile(file), 0);

    // Destroying the outer list releases the inner one; the others go once
    // the client and the cancelled jobs have let go.
    EXPECT_EQ(engine.removePcm(other), other);
    EXPECT_EQ(engine.removePcm(other), 0);
    EXPECT_NE(engine.getPcmInfo(list, wv::REF_NONE), nullptr);
    EXPECT_EQ(engine.removePcm(list), list);
    EXPECT_EQ(engine.removePcm(file), file);
    wvtest::waitUntil([&] { return engine.infoList().size() == 0; }, std::chrono::seconds(5));
    EXPECT_EQ(engine.infoList().size(), 0u);
    EXPECT_EQ(engine.newClipList(), 4);
}

TEST(Engine, DurationFromExpectedLength) {
    WavoryxPriv engine;
    const int list = engine.newClipList();
    wv::SPcmInfo* item = engine.getPcmInfo(list, wv::REF_NONE);
    item->sampleRate = 44100;
    item->totalFrames = 441000;
    EXPECT_EQ(engine.getPcmDuration(list), 10000);
    item->totalFrames = 0xFFFFFFFF;
    EXPECT_EQ(engine.getPcmDuration(list), 97391548);
}

}  // namespace
