// Eight threads call every public operation at random on a small set of ids:
// items being loaded, cancelled and removed, lists being edited, rendered and
// played, a recording being paused and stopped, and the callback loop being
// restarted. The calls and their arguments come from fixed seeds; which call
// meets which is up to the scheduler. Whatever the interleaving, every queued
// job must end with exactly one ending event, and once every item is removed
// the working folder must be empty. Run in the plain, ThreadSanitizer and
// AddressSanitizer suites, where a race or a freed item shows as a report.
#include <dirent.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "Wait.h"

namespace {

constexpr int kThreads = 8;
constexpr int kCallsPerThread = 500;
constexpr int kSlots = 3;

// The ending events of each kind of queued job.
bool endsLoad(int code) { return code == 0 || code == 4 || code == 5 || code == 7; }
bool endsRender(int code) { return code == 20 || code == 22 || code == 23 || code == 25; }
bool endsRecording(int code) { return code == 63; }

class PublicCallStressTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("WAVORYX_DEVICE_PACE", "32", 1); }
    static void TearDownTestSuite() { unsetenv("WAVORYX_DEVICE_PACE"); }
    void SetUp() override {
        wavoryx_set_audio_output("null");
        wavoryx_set_audio_input("tone:440");
        ASSERT_TRUE(wvtest::writeToneWav(inputs.file("mono.wav"), 8000, 1, 1.0, 440.0));
        ASSERT_TRUE(wvtest::writeToneWav(inputs.file("stereo.wav"), 22050, 2, 0.5, 330.0));
        sources = {inputs.file("mono.wav"), inputs.file("stereo.wav"), inputs.file("missing.wav")};
    }
    void TearDown() override {
        wavoryx_set_audio_output(nullptr);
        wavoryx_set_audio_input(nullptr);
    }

    void remember(int id, std::map<int, int>* expected) {
        std::lock_guard<std::mutex> guard(lock);
        created.insert(id);
        if (expected != nullptr) ++(*expected)[id];
    }

    // One random call. Clip sources are only the items loaded before the
    // threads start and lists: a render waits for its sources, and this test
    // is about calls meeting each other, not about loads that never finish.
    void randomCall(Wavoryx& engine, std::mt19937& random, uint8_t* peaks) {
        auto pick = [&](int n) { return static_cast<int>(random() % static_cast<uint32_t>(n)); };
        auto any = [&]() -> int {
            switch (pick(5)) {
                case 0: return stable[pick(kSlots)].load();
                case 1: return loading[pick(kSlots)].load();
                case 2: return lists[pick(kSlots)].load();
                case 3: return recording.load();
                default: return pick(2) == 0 ? 0 : 100000;
            }
        };
        auto source = [&]() { return pick(2) == 0 ? stable[pick(kSlots)].load() : lists[pick(kSlots)].load(); };
        const int call = pick(34);
        switch (call) {
            case 0: {
                const int id = engine.loadFile(sources[pick(3)].c_str());
                remember(id, &loads);
                loading[pick(kSlots)] = id;
                break;
            }
            case 1: engine.cancelLoadFile(loading[pick(kSlots)].load()); break;
            case 2:
            case 3: engine.removePcm(any()); break;
            case 4: {
                const int id = engine.newClipList();
                remember(id, nullptr);
                // Named before any other thread can see it: renders go to the
                // outputs folder, never into the working folder.
                const std::string out = outputs.file("list" + std::to_string(id) + ".wav");
                engine.setOutputPara(id, out.c_str(), ENCODE_WAV);
                lists[pick(kSlots)] = id;
                break;
            }
            case 5: engine.addClip(lists[pick(kSlots)].load(), source(), 0, 2000); break;
            case 6: engine.addClipMs(lists[pick(kSlots)].load(), source(), 100, 300); break;
            case 7: {
                const int id = lists[pick(kSlots)].load();
                const encode_type type = pick(2) == 0 ? ENCODE_WAV : ENCODE_MP3;
                const std::string out =
                    outputs.file("out" + std::to_string(++outputCount) + (type == ENCODE_MP3 ? ".mp3" : ".wav"));
                engine.setOutputPara(id, out.c_str(), type);
                break;
            }
            case 8: engine.setEncodePara(lists[pick(kSlots)].load(), pick(2) * 16000, 64, pick(3), pick(2)); break;
            case 9:
            case 10: {
                const int id = lists[pick(kSlots)].load();
                if (engine.process(id) == 0) remember(id, &renders);
                break;
            }
            case 11: engine.cancelProcess(lists[pick(kSlots)].load()); break;
            case 12: engine.getPcmSampleRate(any()); break;
            case 13: engine.getPcmChannelCount(any()); break;
            case 14: engine.getPcmFrameLength(any()); break;
            case 15: engine.getPcmDuration(any()); break;
            case 16: engine.getWaveformSamples(any(), 0, 400, 32, peaks); break;
            case 17:
            case 18: engine.playStart(any()); break;
            case 19: engine.playPause(); break;
            case 20: engine.playResume(); break;
            case 21: engine.playStop(); break;
            case 22: engine.playSeekTo(pick(800)); break;
            case 23: engine.setPlaySpeed(pick(9) - 4); break;
            case 24: engine.getPlayPositionMs(); break;
            case 25: {
                const std::string out = outputs.file("rec" + std::to_string(++outputCount) + ".wav");
                const int id = engine.recordStart(out.c_str(), ENCODE_WAV, 8000, 1 + pick(2), 64, 0, pick(5));
                if (id > 0) {
                    remember(id, &recordings);
                    recording = id;
                }
                break;
            }
            case 26: engine.recordPause(); break;
            case 27: engine.recordResume(); break;
            case 28:
            case 29: engine.recordStop(); break;
            case 30: engine.dump(); break;
            case 31: engine.setThreadPriority(pick(2) == 0 ? WV_PRIORITY_NORMAL : WV_PRIORITY_LOW); break;
            case 32:
                engine.setWorkingDir(work.prefix().c_str());
                engine.setCallback(wvtest::EventRecorder::callback);
                break;
            case 33: {
                // One restart at a time: each start needs its stop.
                std::lock_guard<std::mutex> guard(loopLock);
                engine.stopThreadLoop();
                engine.startThreadLoop(0);
                break;
            }
            default: break;
        }
    }

    wvtest::LogCapture log;  // the refused calls' reports stay off the test output
    wvtest::EventRecorder events;
    wvtest::TempDir inputs;
    wvtest::TempDir outputs;
    wvtest::TempDir work;
    std::vector<std::string> sources;

    std::atomic<int> stable[kSlots] = {};
    std::atomic<int> loading[kSlots] = {};
    std::atomic<int> lists[kSlots] = {};
    std::atomic<int> recording{0};
    std::atomic<int> outputCount{0};
    std::mutex loopLock;

    std::mutex lock;  // guards the records below
    std::set<int> created;
    std::map<int, int> loads;       // id -> loads queued (one each)
    std::map<int, int> renders;     // id -> renders queued
    std::map<int, int> recordings;  // id -> recordings started (one each)
};

TEST_F(PublicCallStressTest, EveryJobEndsOnceAndNothingIsLeftBehind) {
    {
        Wavoryx engine;
        engine.setWorkingDir(work.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
        for (int i = 0; i < kSlots; ++i) {
            const int id = engine.loadFile(sources[i % 2].c_str());
            remember(id, &loads);
            ASSERT_TRUE(events.waitForCode(4, id));
            stable[i] = id;
        }

        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([this, &engine, t] {
                std::mt19937 random(20261124u + static_cast<uint32_t>(t));
                uint8_t peaks[32];
                for (int i = 0; i < kCallsPerThread; ++i) randomCall(engine, random, peaks);
            });
        }
        for (std::thread& thread : threads) thread.join();

        engine.recordStop();
        engine.playStop();
        for (int id : created) engine.removePcm(id);

        // Every queued job ends, and with exactly one ending event.
        auto countEnds = [&](bool (*ends)(int), const std::vector<wvtest::Event>& seen) {
            std::map<int, int> count;
            for (const auto& e : seen) {
                if (ends(e.code)) ++count[e.id];
            }
            return count;
        };
        auto total = [](const std::map<int, int>& counts) {
            int sum = 0;
            for (const auto& entry : counts) sum += entry.second;
            return sum;
        };
        const bool allEnded = events.waitFor(
            [&](const std::vector<wvtest::Event>& seen) {
                return total(countEnds(endsLoad, seen)) >= total(loads) &&
                       total(countEnds(endsRender, seen)) >= total(renders) &&
                       total(countEnds(endsRecording, seen)) >= total(recordings);
            },
            std::chrono::seconds(120));
        EXPECT_TRUE(allEnded);
        const std::vector<wvtest::Event> seen = events.events();
        EXPECT_EQ(countEnds(endsLoad, seen), loads);
        EXPECT_EQ(countEnds(endsRender, seen), renders);
        EXPECT_EQ(countEnds(endsRecording, seen), recordings);
        EXPECT_FALSE(renders.empty());
        EXPECT_FALSE(recordings.empty());

        // The last holder of each item lets go when its job ends: poll.
        wvtest::waitUntil([&] { return wvtest::namesIn(work.path()).empty(); }, std::chrono::seconds(60));
        EXPECT_EQ(wvtest::namesIn(work.path()), std::set<std::string>());
        engine.stopThreadLoop();
    }
}

}  // namespace
