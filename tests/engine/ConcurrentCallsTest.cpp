// Public calls racing each other on one item: a call must hold what it uses
// for its whole length, and the call that loses the race gets its documented
// result (or, for a queued job, its one ending event). Each case runs many
// rounds of two threads released at the same instant; a fault shows as an
// abort, a failed expectation, or a ThreadSanitizer / AddressSanitizer report.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "Wait.h"
#include "engine/WavoryxPriv.h"

namespace {

using namespace wv;

constexpr int kRate = 8000;

// Runs a and b on two threads that start together.
void race(const std::function<void()>& a, const std::function<void()>& b) {
    std::atomic<int> ready{0};
    auto run = [&ready](const std::function<void()>& f) {
        ++ready;
        while (ready.load() < 2) std::this_thread::yield();
        f();
    };
    std::thread first(run, a);
    std::thread second(run, b);
    first.join();
    second.join();
}

// Runs a(round) and b(round) on two threads for `rounds` rounds; the two
// calls of a round start together (a spinning barrier, no thread start in
// between).
void raceRounds(int rounds, const std::function<void(int)>& a, const std::function<void(int)>& b) {
    std::atomic<int> arrived{0};
    auto run = [&](const std::function<void(int)>& f) {
        for (int round = 0; round < rounds; ++round) {
            ++arrived;
            while (arrived.load() < 2 * (round + 1)) std::this_thread::yield();
            f(round);
        }
    };
    std::thread first(run, a);
    std::thread second(run, b);
    first.join();
    second.join();
}

bool isRenderEnd(int code) { return code == 20 || code == 22 || code == 23 || code == 25; }

class ConcurrentCallsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("WAVORYX_DEVICE_PACE", "20", 1); }
    static void TearDownTestSuite() { unsetenv("WAVORYX_DEVICE_PACE"); }
    void SetUp() override {
        wavoryx_set_audio_output("null");
        wavoryx_set_audio_input("silence");
        ASSERT_TRUE(wvtest::writeToneWav(dir.file("tone.wav"), kRate, 1, 1.0, 440.0));
        engine.setWorkingDir(dir.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override {
        engine.stopThreadLoop();
        wavoryx_set_audio_output(nullptr);
        wavoryx_set_audio_input(nullptr);
    }

    // `count` loads of the tone, all finished.
    std::vector<pcm_id_t> loaded(int count) {
        std::vector<pcm_id_t> ids;
        for (int i = 0; i < count; ++i) {
            ids.push_back(static_cast<pcm_id_t>(engine.loadFile(dir.file("tone.wav").c_str())));
        }
        for (pcm_id_t id : ids) EXPECT_TRUE(events.waitForCode(4, static_cast<int>(id)));
        return ids;
    }

    wvtest::EventRecorder events;
    wvtest::TempDir dir;
    WavoryxPriv engine;
};

TEST_F(ConcurrentCallsTest, RenderQueuedWhileItsListIsRemovedEndsOnce) {
    const pcm_id_t song = loaded(1)[0];
    constexpr int kRounds = 300;
    std::vector<pcm_id_t> lists;
    for (int round = 0; round < kRounds; ++round) {
        const pcm_id_t list = static_cast<pcm_id_t>(engine.newClipList());
        ASSERT_EQ(engine.addClip(list, song, 0, 100), 1);
        lists.push_back(list);
    }
    std::vector<int> queued(kRounds, 0);
    raceRounds(
        kRounds, [&](int round) { engine.removePcm(lists[round]); },
        [&](int round) {
            // Each render queued before the list went must end once.
            for (int i = 0; i < 3; ++i) {
                const int32_t result = engine.process(lists[round]);
                ASSERT_TRUE(result == 0 || result == -1) << result;
                if (result == -1) break;
                ++queued[round];
            }
        });
    size_t total = 0;
    for (int count : queued) total += static_cast<size_t>(count);
    ASSERT_TRUE(events.waitFor([&](const std::vector<wvtest::Event>& seen) {
        size_t ends = 0;
        for (const auto& e : seen) ends += isRenderEnd(e.code) ? 1 : 0;
        return ends >= total;
    }));
    std::map<int, int> ends;
    for (const auto& e : events.events()) {
        if (isRenderEnd(e.code)) ++ends[e.id];
    }
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(ends[static_cast<int>(lists[round])], queued[round]) << "list " << lists[round];
    }
    // Every list went with its renders; only the song is left.
    // The registry changes without an event: poll.
    EXPECT_TRUE(wvtest::waitUntil([&] { return engine.infoList().size() == 1; }));
    EXPECT_EQ(engine.infoList().refCount(song, REF_LIST), 0u);
}

TEST_F(ConcurrentCallsTest, ItemCallsRacingRemovePcmSeeTheItemOrMinusOne) {
    const pcm_id_t song = loaded(1)[0];
    std::vector<uint8_t> peaks(16);
    for (int round = 0; round < 200; ++round) {
        const pcm_id_t list = static_cast<pcm_id_t>(engine.newClipList());
        const std::string out = dir.file("never.wav");
        race([&] { engine.removePcm(list); },
             [&] {
                 // Until the list is gone: every call finds it whole or not at all.
                 for (int i = 0; i < 1000; ++i) {
                     const int32_t set = engine.setOutputPara(list, out.c_str(), ENCODE_MP3);
                     const int32_t para = engine.setEncodePara(list, kRate, 64, 1, 0);
                     const int32_t clip = engine.addClip(list, song, 0, 100);
                     const int32_t clipMs = engine.addClipMs(list, song, 0, 10);
                     const int32_t duration = engine.getPcmDuration(list);
                     engine.getWaveformSamples(list, 0, 10, 16, peaks.data());
                     EXPECT_TRUE(set == 0 || set == -1);
                     EXPECT_TRUE(para == 0 || para == -1);
                     EXPECT_TRUE(clip > 0 || clip == -1);
                     EXPECT_TRUE(clipMs > 0 || clipMs == -1);
                     EXPECT_TRUE(duration >= 0 || duration == -3 || duration == -1);
                     if (set == -1) break;
                 }
             });
        // Clips added while the list went were released with it.
        ASSERT_EQ(engine.infoList().refCount(song, REF_LIST), 0u) << "round " << round;
    }
    for (pcm_id_t id : loaded(40)) {
        race([&] { engine.removePcm(id); },
             [&] {
                 for (int i = 0; i < 1000; ++i) {
                     const int32_t duration = engine.getPcmDuration(id);
                     const int32_t rate = engine.getPcmSampleRate(id);
                     const int32_t channels = engine.getPcmChannelCount(id);
                     const int32_t frames = engine.getPcmFrameLength(id);
                     EXPECT_TRUE(duration == 1000 || duration == -1) << duration;
                     EXPECT_TRUE(rate == kRate || rate == -1);
                     EXPECT_TRUE(channels == 1 || channels == -1);
                     EXPECT_TRUE(frames == kRate || frames == -1);
                     if (duration == -1) break;
                 }
             });
        EXPECT_EQ(engine.getPcmDuration(id), -1);
    }
    EXPECT_EQ(engine.infoList().size(), 1u);
}

TEST_F(ConcurrentCallsTest, ListsAddedToEachOtherAtOnceNeverFormACycle) {
    // Every b reaches a long list, so that the check of a into b walks for
    // milliseconds: the other thread's b into a falls inside that walk even
    // when the two share one core.
    const pcm_id_t empty = static_cast<pcm_id_t>(engine.newClipList());
    const pcm_id_t wide = static_cast<pcm_id_t>(engine.newClipList());
    for (int i = 0; i < 200000; ++i) ASSERT_EQ(engine.addClip(wide, empty, 0, 1), i + 1);
    constexpr int kRounds = 40;
    std::vector<pcm_id_t> a;
    std::vector<pcm_id_t> b;
    for (int round = 0; round < kRounds; ++round) {
        a.push_back(static_cast<pcm_id_t>(engine.newClipList()));
        b.push_back(static_cast<pcm_id_t>(engine.newClipList()));
        ASSERT_EQ(engine.addClip(b.back(), wide, 0, 1), 1);
    }
    std::vector<int32_t> intoA(kRounds, 0);
    std::vector<int32_t> intoB(kRounds, 0);
    raceRounds(
        kRounds, [&](int round) { intoA[round] = engine.addClip(a[round], b[round], 0, 10); },
        [&](int round) { intoB[round] = engine.addClip(b[round], a[round], 0, 10); });
    for (int round = 0; round < kRounds; ++round) {
        // One of them closes the loop and is refused.
        EXPECT_TRUE((intoA[round] == 1 && intoB[round] == -4) || (intoA[round] == -4 && intoB[round] == 2))
            << intoA[round] << " " << intoB[round] << " round " << round;
        engine.removePcm(a[round]);
        engine.removePcm(b[round]);
    }
    engine.removePcm(wide);
    engine.removePcm(empty);
    EXPECT_EQ(engine.infoList().size(), 0u);
}

TEST_F(ConcurrentCallsTest, PlayControlsRacingTheFirstPlayStartOfAnItem) {
    for (pcm_id_t id : loaded(30)) {
        std::atomic<bool> started{false};
        int32_t startResult = 1;
        race(
            [&] {
                startResult = engine.playStart(id);
                started = true;
            },
            [&] {
                // Keeps asking while the player is being made.
                while (!started.load()) {
                    const int32_t r = engine.playResume(0);
                    EXPECT_TRUE(r == 0 || r == -1 || r == -5) << r;
                    engine.getPlayPositionMs();
                    engine.setPlaySpeed(2);
                    engine.playSeekTo(100);
                    engine.playPause(0);
                }
            });
        EXPECT_EQ(startResult, 0);
        EXPECT_EQ(engine.playResume(0), 0);
        EXPECT_EQ(engine.playStop(0), 0);
        engine.removePcm(id);
    }
    for (pcm_id_t id : loaded(30)) {
        int32_t first = 1;
        int32_t second = 1;
        race([&] { first = engine.playStart(id); }, [&] { second = engine.playStart(id); });
        EXPECT_EQ(first, 0);
        EXPECT_EQ(second, 0);
        EXPECT_EQ(engine.playResume(0), 0);
        engine.removePcm(id);
    }
    EXPECT_EQ(engine.infoList().size(), 0u);
}

TEST_F(ConcurrentCallsTest, TwoRecordingsStartedAtOnceMakeOne) {
    for (int round = 0; round < 20; ++round) {
        const std::string a = dir.file("a" + std::to_string(round) + ".wav");
        const std::string b = dir.file("b" + std::to_string(round) + ".wav");
        int32_t first = 0;
        int32_t second = 0;
        race([&] { first = engine.recordStart(a.c_str(), ENCODE_WAV, kRate, 1, 0, 0, 0); },
             [&] { second = engine.recordStart(b.c_str(), ENCODE_WAV, kRate, 1, 0, 0, 0); });
        ASSERT_TRUE((first > 0 && second == -5) || (first == -5 && second > 0))
            << first << " " << second << " round " << round;
        const int id = first > 0 ? first : second;
        race([&] { engine.recordPause(); }, [&] { engine.recordResume(); });
        EXPECT_EQ(engine.recordStop(), 0);
        EXPECT_EQ(engine.recordStop(), -5);
        ASSERT_TRUE(events.waitForCode(63, id));
        engine.removePcm(static_cast<pcm_id_t>(id));
    }
}

TEST_F(ConcurrentCallsTest, CallbackLoopStartedAndStoppedFromSeveralThreads) {
    engine.stopThreadLoop();
    for (int round = 0; round < 20; ++round) {
        auto toggle = [&] {
            for (int i = 0; i < 10; ++i) {
                engine.startThreadLoop(0);
                engine.stopThreadLoop();
            }
        };
        race(toggle, toggle);
    }
    // An exit request may be left queued by a stop that found its loop gone
    // already; each start then serves until it takes one. The event waits
    // for the start that stays.
    engine.notifyClient(WVThreadCmd(3, 77, 1), 0);
    bool delivered = false;
    for (int i = 0; i < 50 && !delivered; ++i) {
        engine.startThreadLoop(0);
        delivered = events.waitForCode(3, 77, std::chrono::milliseconds(200));
    }
    EXPECT_TRUE(delivered);
}

}  // namespace
