// How loads end: the events each ending sends, what becomes of the item and
// its PCM file, and how loads meet cancel requests, each other, the client's
// release, a full storage and the engine's destruction.
#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"
#include "SmallFilesystem.h"

namespace {

using loadtest::DecoderGate;
using loadtest::LoadRig;
using wvtest::Event;

// A tone file for loads that have to last: FLAC, made once per program.
// The long one decodes in about half a second when the machine is idle, so
// that a test thread descheduled for a while on a busy machine still finds
// the load under way when it acts.
constexpr double kLongSeconds = 180.0;

class LongFlac {
public:
    static const std::string& path(double seconds) {
        static LongFlac madeLong(kLongSeconds);
        static LongFlac made10(10.0);
        return seconds > 10.0 ? madeLong.mPath : made10.mPath;
    }

private:
    explicit LongFlac(double seconds) {
        const std::string wav = mDir.file("long.wav");
        if (wvtest::writeToneWav(wav, 44100, 2, seconds, 440.0) &&
            wvtest::encodeWithFfmpeg(wav, mDir.file("long.flac"), "-c:a flac")) {
            mPath = mDir.file("long.flac");
        }
    }
    wvtest::TempDir mDir;
    std::string mPath;
};

size_t indexOf(const std::vector<Event>& events, int code, int id) {
    for (size_t i = 0; i < events.size(); ++i) {
        if (events[i].code == code && events[i].id == id) return i;
    }
    return events.size();
}

bool hasCode(const std::vector<Event>& events, int code) {
    return std::any_of(events.begin(), events.end(), [code](const Event& e) { return e.code == code; });
}

// Files in the directory, "." and ".." aside.
int entriesIn(const std::string& dir) {
    int count = 0;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d)) count += e->d_name[0] != '.';
        closedir(d);
    }
    return count;
}

TEST(LoadEvents, CanonicalWavIsReadInPlaceWithEveryFrameItsDataHolds) {
    wvtest::TempDir sources;
    const std::string wav = sources.file("canonical.wav");
    // 54441 frames: 1234.489 ms; the last, partial millisecond is kept.
    ASSERT_TRUE(wvtest::writeWav(wav, wvtest::makeTone(44100, 2, 54441 / 44100.0, 440.0), 44100, 2));
    LoadRig rig;
    const int id = rig.engine().loadFile(wav.c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{6, id, -1}, {4, id, -1}}));
    EXPECT_EQ(entriesIn(rig.workingDir()), 0) << "a raw item has no PCM file";
    wv::SPcmInfo* item = rig.engine().getPcmInfo(static_cast<wv::pcm_id_t>(id), wv::REF_NONE);
    ASSERT_NE(item, nullptr);
    EXPECT_TRUE(item->pcmPath.empty());
    EXPECT_EQ(item->status.load(), wv::PCM_READY);
    EXPECT_EQ(item->totalFrames.load(), 54441u);
    EXPECT_EQ(item->frames.load(), item->totalFrames.load());
    EXPECT_EQ(rig.engine().getPcmDuration(id), 1234);
    ASSERT_TRUE(rig.waitForDecoderRelease(id));
    EXPECT_EQ(rig.engine().removePcm(static_cast<wv::pcm_id_t>(id)), id);
    EXPECT_TRUE(wvtest::fileExists(wav)) << "the source of a raw item is not the item's to delete";
}

TEST(LoadEvents, UnloadableFilesEndWithOneErrorEventAndNoPcmFile) {
    wvtest::TempDir sources;
    const std::string text = sources.file("notes.mp3");
    const char words[] = "These are words, not audio. They go on for a while to fill a probe.\n";
    std::string lines;
    for (int i = 0; i < 200; ++i) lines += words;
    wvtest::writeFile(text, lines.data(), lines.size());
    const std::string empty = sources.file("empty.m4a");
    wvtest::writeFile(empty, "", 0);

    struct Case {
        std::string path;
        int reason;
    };
    // Nothing writes to the FIFO: opening it for reading would block for
    // ever. Devices and links to them are refused before any read.
    const std::string fifo = sources.file("pipe.mp3");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const std::string zeroLink = sources.file("zero.wav");
    ASSERT_EQ(::symlink("/dev/zero", zeroLink.c_str()), 0);
    const std::vector<Case> cases{{sources.file("missing.mp3"), 2},
                                  {sources.path(), 2},  // a directory
                                  {fifo, 2},
                                  {"/dev/zero", 2},
                                  {zeroLink, 2},
                                  {"", 2},
                                  {text, 1},
                                  {empty, 1}};
    LoadRig rig;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        const int id = rig.engine().loadFile(c.path.c_str());
        ASSERT_TRUE(rig.waitForEnd(id));
        EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{0, id, c.reason}}));
        EXPECT_EQ(rig.status(id), wv::ENCODED_FILE);
        ASSERT_TRUE(rig.waitForDecoderRelease(id));
        EXPECT_EQ(rig.refs(id, wv::REF_CLIENT), 1u);
        EXPECT_EQ(rig.engine().getPcmDuration(id), -3);
    }
    EXPECT_EQ(entriesIn(rig.workingDir()), 0);
}

TEST(LoadEvents, MissingWorkingDirectoryFailsWithReasonFour) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir place;
    LoadRig rig(place.file("not-there") + "/");
    const int id = rig.engine().loadFile(LongFlac::path(10.0).c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{0, id, 4}}));
    EXPECT_EQ(rig.status(id), wv::DECODING);
    ASSERT_TRUE(rig.waitForDecoderRelease(id));
    EXPECT_EQ(entriesIn(place.path()), 0);
}

TEST(LoadEvents, DamagedFilesEndEarlyAsCompleteItems) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir sources;
    const std::string wav = sources.file("tone.wav");
    const std::string mp3 = sources.file("tone.mp3");
    ASSERT_TRUE(wvtest::writeToneWav(wav, 44100, 2, 4.0, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(wav, mp3, "-c:a libmp3lame -b:a 128k"));
    const std::vector<char> whole = wvtest::readFile(mp3);
    ASSERT_GT(whole.size(), 20000u);

    const std::string truncated = sources.file("truncated.mp3");
    wvtest::writeFile(truncated, whole.data(), whole.size() * 2 / 5);
    std::vector<char> damaged = whole;
    for (size_t i = damaged.size() / 3; i < damaged.size() / 3 + 3000; ++i) {
        damaged[i] = static_cast<char>((i * 2654435761u) >> 13);
    }
    const std::string corrupt = sources.file("corrupt.mp3");
    wvtest::writeFile(corrupt, damaged.data(), damaged.size());
    std::vector<char> cutFlac = wvtest::readFile(LongFlac::path(10.0));
    const std::string flac = sources.file("cut.flac");
    wvtest::writeFile(flac, cutFlac.data(), cutFlac.size() / 3);

    LoadRig rig;
    for (const std::string& file : {truncated, corrupt, flac}) {
        SCOPED_TRACE(file);
        const int id = rig.engine().loadFile(file.c_str());
        ASSERT_TRUE(rig.waitForEnd(id));
        // The damaged packets are skipped and told (8) among the usual events.
        std::vector<Event> events;
        int damageEvents = 0;
        for (const Event& e : rig.eventsOf(id)) {
            if (e.code == 8) {
                ++damageEvents;
            } else {
                events.push_back(e);
            }
        }
        loadtest::expectCompleteLoad(events, id);
        EXPECT_EQ(damageEvents > 0, file != truncated);
        EXPECT_EQ(rig.engine().getLoadDamage(uint32_t(id), nullptr) > 0, file != truncated);
        const int frames = rig.engine().getPcmFrameLength(id);
        EXPECT_GT(frames, 0);
        EXPECT_EQ(wvtest::fileSize(rig.pcmPath(id)), 4LL * frames);
        EXPECT_EQ(rig.status(id), wv::PCM_READY);
    }
    const int truncatedFrames = rig.engine().getPcmFrameLength(1);
    EXPECT_LT(truncatedFrames, 44100 * 2);
    EXPECT_GT(truncatedFrames, 44100 * 1);
}

TEST(LoadCancel, BeforeTheFirstStepSendsOnlyFiveAndMakesNoFile) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    DecoderGate gate(rig);
    const int id = rig.engine().loadFile(LongFlac::path(10.0).c_str());
    EXPECT_EQ(rig.engine().cancelLoadFile(static_cast<wv::pcm_id_t>(id)), 0);
    gate.open();
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{5, id, -1}}));
    EXPECT_FALSE(wvtest::fileExists(rig.pcmPath(id)));
    EXPECT_EQ(rig.status(id), wv::ENCODED_FILE);
    ASSERT_TRUE(rig.waitForDecoderRelease(id));
    EXPECT_EQ(rig.refs(id, wv::REF_CLIENT), 1u);
    EXPECT_EQ(rig.engine().cancelLoadFile(9999), -1);
}

TEST(LoadCancel, OfAFinishedLoadDoesNothing) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    const int done = rig.engine().loadFile(LongFlac::path(10.0).c_str());
    ASSERT_TRUE(rig.waitForEnd(done));
    const size_t before = rig.eventsOf(done).size();
    EXPECT_EQ(rig.engine().cancelLoadFile(static_cast<wv::pcm_id_t>(done)), 0);
    // The cancel requests are served before this later load starts.
    const int next = rig.engine().loadFile("");
    ASSERT_TRUE(rig.waitForEnd(next));
    EXPECT_EQ(rig.eventsOf(done).size(), before);
    EXPECT_EQ(rig.status(done), wv::PCM_READY);
    EXPECT_TRUE(wvtest::fileExists(rig.pcmPath(done)));
}

class LoadCancelMidway : public ::testing::TestWithParam<thread_priority_t> {};

TEST_P(LoadCancelMidway, RemovesThePartialFileAndSendsFive) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    // At low priority the next step waits as a delayed command.
    rig.engine().setThreadPriority(GetParam());
    const int id = rig.engine().loadFile(LongFlac::path(kLongSeconds).c_str());
    ASSERT_TRUE(rig.recorder().waitForCode(6, id));
    {
        DecoderGate gate(rig);
        EXPECT_TRUE(wvtest::fileExists(rig.pcmPath(id)));
        EXPECT_EQ(rig.engine().cancelLoadFile(static_cast<wv::pcm_id_t>(id)), 0);
    }
    ASSERT_TRUE(rig.waitForEnd(id));
    const std::vector<Event> events = rig.eventsOf(id);
    EXPECT_EQ(events.front(), (Event{6, id, -1}));
    EXPECT_EQ(events.back(), (Event{5, id, -1}));
    EXPECT_FALSE(hasCode(events, 4));
    ASSERT_TRUE(rig.waitForDecoderRelease(id));
    EXPECT_FALSE(wvtest::fileExists(rig.pcmPath(id)));
    EXPECT_EQ(rig.status(id), wv::DECODING);
    EXPECT_LT(rig.engine().getPcmFrameLength(id), kLongSeconds * 44100);
}

INSTANTIATE_TEST_SUITE_P(Priorities, LoadCancelMidway, ::testing::Values(WV_PRIORITY_NORMAL, WV_PRIORITY_LOW),
                         [](const ::testing::TestParamInfo<thread_priority_t>& info) {
                             return info.param == WV_PRIORITY_LOW ? "Low" : "Normal";
                         });

TEST(LoadLifetime, ItemRemovedDuringItsLoadGoesWithItsFileWhenTheLoadEnds) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    const int id = rig.engine().loadFile(LongFlac::path(kLongSeconds).c_str());
    ASSERT_TRUE(rig.recorder().waitForCode(6, id));
    {
        DecoderGate gate(rig);
        EXPECT_EQ(rig.engine().removePcm(static_cast<wv::pcm_id_t>(id)), id);
        EXPECT_EQ(rig.status(id), wv::DECODING) << "the load still holds the item";
        EXPECT_TRUE(wvtest::fileExists(rig.pcmPath(id)));
    }
    ASSERT_TRUE(rig.recorder().waitForCode(4, id));
    // The registry unlists the item first, then frees its file.
    EXPECT_TRUE(wvtest::waitUntil([&] { return !rig.registered(id); }, std::chrono::seconds(10)));
    EXPECT_TRUE(wvtest::waitUntil([&] { return !wvtest::fileExists(rig.pcmPath(id)); }, std::chrono::seconds(10)));
}

TEST(LoadLifetime, TwoLoadsOfOneFileTakeTurnsAndBothFinish) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig rig;
    int first = 0, second = 0;
    {
        DecoderGate gate(rig);
        first = rig.engine().loadFile(LongFlac::path(10.0).c_str());
        second = rig.engine().loadFile(LongFlac::path(10.0).c_str());
    }
    ASSERT_NE(first, second);
    ASSERT_TRUE(rig.waitForEnd(first));
    ASSERT_TRUE(rig.waitForEnd(second));
    loadtest::expectCompleteLoad(rig.eventsOf(first), first);
    loadtest::expectCompleteLoad(rig.eventsOf(second), second);
    const std::vector<Event> all = rig.recorder().events();
    EXPECT_LT(indexOf(all, 6, second), indexOf(all, 3, first));
    EXPECT_LT(indexOf(all, 3, second), indexOf(all, 4, first)) << "the second load waited for the first";
    EXPECT_EQ(rig.engine().getPcmFrameLength(first), 10 * 44100);
    EXPECT_TRUE(wvtest::readFile(rig.pcmPath(first)) == wvtest::readFile(rig.pcmPath(second)));
}

TEST(LoadLifetime, EngineDestroyedMidLoadRemovesThePartialFile) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::LogCapture log;
    LoadRig rig;
    // A slow load of minutes of audio: its next step is still queued when the
    // destructor's exit request arrives, and is dropped rather than run.
    rig.engine().setThreadPriority(WV_PRIORITY_LOW);
    const int id = rig.engine().loadFile(LongFlac::path(kLongSeconds).c_str());
    ASSERT_TRUE(rig.recorder().waitForCode(6, id));
    const std::string pcm = rig.pcmPath(id);
    rig.destroyEngine();
    EXPECT_FALSE(hasCode(rig.recorder().events(), 4));
    EXPECT_FALSE(wvtest::fileExists(pcm));
    EXPECT_TRUE(log.contains("delete unfinished file " + pcm));
}

TEST(LoadStorage, SmallFilesystemFillsUpAndIsFreedAgain) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::SmallFilesystem fs(256 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    const long long freeBefore = fs.freeBytes();
    {
        wvtest::LogCapture log;
        LoadRig rig(fs.prefix());
        const int id = rig.engine().loadFile(LongFlac::path(10.0).c_str());
        ASSERT_TRUE(rig.waitForEnd(id));
        const std::vector<Event> events = rig.eventsOf(id);
        EXPECT_EQ(events.front(), (Event{6, id, -1}));
        EXPECT_EQ(events.back(), (Event{7, id, -1}));
        EXPECT_TRUE(log.contains("Cancel file decode due to low space", "WavoryxPriv"));
        ASSERT_TRUE(rig.waitForDecoderRelease(id));
        EXPECT_FALSE(wvtest::fileExists(rig.pcmPath(id)));
        EXPECT_GT(rig.engine().getPcmFrameLength(id), 0);
        EXPECT_LT(rig.engine().getPcmFrameLength(id), 256 * 1024 / 4 + 4608);
    }
    EXPECT_EQ(entriesIn(fs.path()), 0);
    EXPECT_EQ(fs.freeBytes(), freeBefore);
}

}  // namespace
