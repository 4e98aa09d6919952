// Output and input devices that fail to open or to start, fall silent part
// of the way through, or hand over more frames at once than the input can
// hold (which it reports as lost). Playback and recording end with exactly
// one ending event, leave no unfinished file, and the engine can play and
// record again afterwards.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "../record/RecordTestHelpers.h"
#include "AudioFixtures.h"
#include "FaultRig.h"
#include "TestSupport.h"
#include "platform/audio/AudioInputDevice.h"
#include "platform/audio/AudioOutputDevice.h"

namespace {

using faulttest::Event;
using faulttest::FaultEngine;

constexpr size_t kUnlimited = ~size_t(0);

// What a scripted device does: its open and start results, and when it
// falls silent: an input after `budget` frames, an output once the test
// sets `silent`.
struct Script {
    int32_t openResult = 0;
    int32_t startResult = 0;
    size_t budget = kUnlimited;
    size_t burstFrames = 0;  // input: one hand-over of this many frames first
    std::shared_ptr<std::atomic<bool>> silent = std::make_shared<std::atomic<bool>>(false);
};

// A clock output that runs ten times faster than real time until it is
// made silent, then stops calling its client (while still open).
class ScriptedOutput : public wv::AudioOutputDevice {
public:
    explicit ScriptedOutput(Script script) : mScript(script) {}
    ~ScriptedOutput() override { close(); }
    int32_t open(uint32_t, uint32_t, wv::AudioOutputClient* client) override {
        if (mScript.openResult != 0) return mScript.openResult;
        mThread = std::thread([this, client] {
            while (!mClosing.load()) {
                if (!mScript.silent->load()) client->advance(20000);
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        return 0;
    }
    void close() override {
        mClosing = true;
        if (mThread.joinable()) mThread.join();
    }
    uint32_t deviceRate() const override { return 0; }
    size_t defaultBufferFrames(uint32_t sampleRate) const override { return sampleRate / 10; }
    const char* name() const override { return "scripted"; }

private:
    const Script mScript;
    std::atomic<bool> mClosing{false};
    std::thread mThread;
};

// An input that hands over a 440 Hz tone in blocks of 5 ms, ten times
// faster than real time, until its budget of frames is spent.
class ScriptedInput : public wv::AudioInputDevice {
public:
    explicit ScriptedInput(Script script) : mScript(script) {}
    ~ScriptedInput() override { stop(); }
    int32_t open(uint32_t sampleRate, uint32_t channels, wv::AudioInputClient* client) override {
        mRate = sampleRate;
        mChannels = channels;
        mClient = client;
        return mScript.openResult;
    }
    int32_t start() override {
        if (mScript.startResult != 0) return mScript.startResult;
        mStopping = false;
        mThread = std::thread([this] { deliver(); });
        return 0;
    }
    void stop() override {
        mStopping = true;
        if (mThread.joinable()) mThread.join();
    }
    uint32_t latencyMs() const override { return 5; }
    const char* name() const override { return "scripted"; }

private:
    void deliver() {
        size_t sent = 0;
        if (mScript.burstFrames > 0) {
            handOver(sent, mScript.burstFrames);
            sent += mScript.burstFrames;
        }
        const size_t block = mRate / 200;
        while (!mStopping.load() && sent < mScript.budget) {
            handOver(sent, block);
            sent += block;
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    }
    void handOver(size_t first, size_t frames) {
        std::vector<int16_t> samples(frames * mChannels);
        for (size_t n = 0; n < frames; ++n) {
            const double phase = 6.283185307179586 * 440.0 * double(first + n) / mRate;
            for (uint32_t c = 0; c < mChannels; ++c) samples[n * mChannels + c] = int16_t(8000 * std::sin(phase));
        }
        mClient->onCaptured(samples.data(), frames);
    }

    const Script mScript;
    uint32_t mRate = 0;
    uint32_t mChannels = 0;
    wv::AudioInputClient* mClient = nullptr;
    std::atomic<bool> mStopping{false};
    std::thread mThread;
};

// An input that hands over bursts larger than the input's ring, each one
// only once the recording holds every frame handed over before (so the ring
// is empty and each burst loses exactly its excess over the ring).
class BurstingInput : public wv::AudioInputDevice {
public:
    using Drained = std::function<bool(size_t handedOver)>;
    BurstingInput(size_t bursts, size_t burstFrames, Drained drained)
        : mBursts(bursts), mBurstFrames(burstFrames), mDrained(std::move(drained)) {}
    ~BurstingInput() override { stop(); }
    int32_t open(uint32_t, uint32_t channels, wv::AudioInputClient* client) override {
        mChannels = channels;
        mClient = client;
        return 0;
    }
    int32_t start() override {
        mStopping = false;
        mThread = std::thread([this] {
            std::vector<int16_t> samples(mBurstFrames * mChannels, 5000);
            for (size_t n = 0; n < mBursts; ++n) {
                while (!mStopping.load() && !mDrained(n * mBurstFrames)) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
                if (mStopping.load()) return;
                mClient->onCaptured(samples.data(), mBurstFrames);
            }
        });
        return 0;
    }
    void stop() override {
        mStopping = true;
        if (mThread.joinable()) mThread.join();
    }
    uint32_t latencyMs() const override { return 5; }
    const char* name() const override { return "bursting"; }

private:
    const size_t mBursts;
    const size_t mBurstFrames;
    const Drained mDrained;
    uint32_t mChannels = 1;
    wv::AudioInputClient* mClient = nullptr;
    std::atomic<bool> mStopping{false};
    std::thread mThread;
};

class DeviceFaults : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(wvtest::writeToneWav(dir.file("tone.wav"), 8000, 1, 2.0, 440)); }
    void TearDown() override {
        wv::setAudioOutputDeviceMaker(nullptr);
        wv::setAudioInputDeviceMaker(nullptr);
    }
    static void scriptOutput(Script script) {
        wv::setAudioOutputDeviceMaker(
            [script] { return std::unique_ptr<wv::AudioOutputDevice>(new ScriptedOutput(script)); });
    }
    static void scriptInput(Script script) {
        wv::setAudioInputDeviceMaker(
            [script] { return std::unique_ptr<wv::AudioInputDevice>(new ScriptedInput(script)); });
    }
    // With the devices back to the selection, a play of a new item (an
    // item's player keeps its device) and a recording both run to their
    // normal ends.
    void expectTheEngineStillWorks(FaultEngine& engine) {
        wv::setAudioOutputDeviceMaker(nullptr);
        wv::setAudioInputDeviceMaker(nullptr);
        engine.events.clear();
        const int item = engine.loaded(dir.file("tone.wav"));
        ASSERT_GT(item, 0);
        ASSERT_EQ(engine.api.playStart(item), 0);
        ASSERT_EQ(engine.api.playResume(), 0);
        EXPECT_TRUE(engine.events.waitForCode(42, item));
        const int id = engine.api.recordStart(dir.file("again.wav").c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
        ASSERT_GT(id, 0);
        ASSERT_TRUE(engine.events.waitForCode(61, id));
        ASSERT_EQ(engine.api.recordStop(), 0);
        const std::vector<Event> ends = engine.endingsOf(id, faulttest::kRecordEndings);
        ASSERT_EQ(ends.size(), 1u);
        EXPECT_EQ(ends[0].value, 0);
        // The generated input waits for the recorder: nothing is lost.
        EXPECT_TRUE(codesOf(engine, id, {67}).empty());
    }
    std::vector<Event> codesOf(FaultEngine& engine, int id, std::vector<int> codes) {
        return faulttest::eventsOf(engine.events.events(), id, codes);
    }
    // The recording in `path` is a whole WAV file holding every frame the
    // engine counted for item `id`.
    static void expectWholeRecording(FaultEngine& engine, int id, const std::string& path) {
        std::vector<int16_t> samples;
        ASSERT_TRUE(wvtest::readWavSamples(path, &samples));
        EXPECT_GT(samples.size(), 0u);
        EXPECT_EQ(samples.size(), size_t(engine.api.getPcmFrameLength(id)));
    }

    wvtest::TempDir dir;
};

TEST_F(DeviceFaults, OutputThatCannotOpenFailsThePlayOnce) {
    FaultEngine engine(dir.prefix());
    const int item = engine.loaded(dir.file("tone.wav"));
    ASSERT_GT(item, 0);
    Script script;
    script.openResult = -19;
    scriptOutput(script);
    EXPECT_EQ(engine.api.playStart(item), -14);
    const std::vector<Event> ends = engine.endingsOf(item, {40, 42});
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].code, 40);
    EXPECT_EQ(engine.api.getPlayPositionMs(), -1);  // nothing plays
    expectTheEngineStillWorks(engine);
}

TEST_F(DeviceFaults, OutputFallingSilentMidwayNeverEndsThePlayButStops) {
    FaultEngine engine(dir.prefix());
    const int item = engine.loaded(dir.file("tone.wav"));
    ASSERT_GT(item, 0);
    Script script;
    scriptOutput(script);
    ASSERT_EQ(engine.api.playStart(item), 0);
    ASSERT_EQ(engine.api.playResume(), 0);
    ASSERT_TRUE(rectest::waitUntil([&] { return engine.api.getPlayPositionMs() >= 300; }));
    *script.silent = true;
    const int32_t position = engine.api.getPlayPositionMs();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(engine.api.getPlayPositionMs(), 2000);
    EXPECT_LE(engine.api.getPlayPositionMs(), position + 50);
    EXPECT_TRUE(codesOf(engine, item, {40, 42}).empty());
    EXPECT_EQ(engine.api.playStop(), 0);
    expectTheEngineStillWorks(engine);
}

// An input that cannot open fails the start with 60 alone (the client
// still stops the recording, which sends nothing more); one that opens but
// cannot start ends the recording too, with 63 -1, and stops it itself.
// Neither leaves a file nor changes one that was there.
TEST_F(DeviceFaults, InputThatCannotOpenOrStartFailsTheRecordingOnceWithoutAFile) {
    struct Case {
        const char* what;
        int32_t openResult;
        int32_t startResult;
        bool ended;  // 63 follows 60
    };
    for (const Case& c : {Case{"open", -19, 0, false}, Case{"start", 0, -9999, true}}) {
        // An existing file at the output stays as it was.
        for (bool existing : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (existing ? ", over an existing file" : ""));
            FaultEngine engine(dir.prefix());
            Script script;
            script.openResult = c.openResult;
            script.startResult = c.startResult;
            scriptInput(script);
            const std::string path = dir.file(existing ? "keep.wav" : "rec.wav");
            if (existing) wvtest::writeFile(path, "keep me", 7);
            const int id = engine.api.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
            ASSERT_GT(id, 0);
            std::vector<Event> want = {{60, id, 5}};
            if (c.ended) want.push_back({63, id, -1});
            EXPECT_EQ(engine.endingsOf(id, {60, 61, 63}), want);
            if (existing) {
                EXPECT_EQ(wvtest::fileSize(path), 7);
            } else {
                EXPECT_FALSE(wvtest::fileExists(path));
            }
            EXPECT_EQ(engine.api.recordStop(), c.ended ? -5 : 0);
            EXPECT_EQ(engine.endingsOf(id, {60, 61, 63}), want);
            expectTheEngineStillWorks(engine);
            ::unlink(path.c_str());
        }
    }
}

TEST_F(DeviceFaults, InputFallingSilentMidwayStillStopsIntoAWholeFile) {
    FaultEngine engine(dir.prefix());
    Script script;
    script.budget = 4000;  // half a second, then nothing
    scriptInput(script);
    const std::string path = dir.file("rec.wav");
    const int id = engine.api.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(rectest::waitUntil([&] { return engine.api.getPcmFrameLength(id) >= 3000; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_EQ(engine.api.recordStop(), 0);
    const std::vector<Event> ends = engine.endingsOf(id, faulttest::kRecordEndings);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].value, 0);
    EXPECT_LE(engine.api.getPcmFrameLength(id), 4000);
    expectWholeRecording(engine, id, path);
    expectTheEngineStillWorks(engine);
}

TEST_F(DeviceFaults, FramesTheInputLostBecomeSilenceInTheRecording) {
    FaultEngine engine(dir.prefix());
    Script script;
    script.burstFrames = 40000;  // five seconds at once: far beyond the input's ring
    script.budget = 48000;
    scriptInput(script);
    const std::string path = dir.file("rec.wav");
    const int id = engine.api.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
    ASSERT_GT(id, 0);
    // The lost part still counts: the length reaches what was handed over.
    ASSERT_TRUE(rectest::waitUntil([&] { return engine.api.getPcmFrameLength(id) >= 46000; }));
    ASSERT_EQ(engine.api.recordStop(), 0);
    const std::vector<Event> ends = engine.endingsOf(id, faulttest::kRecordEndings);
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends[0].value, 0);
    expectWholeRecording(engine, id, path);
}

}  // namespace

namespace {

// Every loss of a device is reported while recording as event 67, in
// milliseconds; the values add up to the frames lost, and come before the
// recording's end. 8000 Hz mono: the ring holds 2048 frames.
TEST_F(DeviceFaults, FramesTheInputLostAreReportedInMilliseconds) {
    struct Case {
        size_t bursts;
        size_t burstFrames;
    };
    for (const Case& c : {Case{1, 40000}, Case{12, 2048 + 333}}) {
        SCOPED_TRACE(c.burstFrames);
        FaultEngine engine(dir.prefix());
        std::atomic<int> recording{0};
        wv::setAudioInputDeviceMaker([&] {
            return std::unique_ptr<wv::AudioInputDevice>(new BurstingInput(c.bursts, c.burstFrames, [&](size_t handed) {
                const int id = recording.load();
                return id > 0 && size_t(engine.api.getPcmFrameLength(id)) >= handed;
            }));
        });
        const std::string path = dir.file("rec.wav");
        const int id = engine.api.recordStart(path.c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
        ASSERT_GT(id, 0);
        recording = id;
        const size_t total = c.bursts * c.burstFrames;
        ASSERT_TRUE(rectest::waitUntil([&] { return size_t(engine.api.getPcmFrameLength(id)) >= total; }));
        // Reported before the recording stops.
        ASSERT_TRUE(engine.events.waitForCode(67, id));
        ASSERT_EQ(engine.api.recordStop(), 0);
        ASSERT_EQ(engine.endingsOf(id, faulttest::kRecordEndings).size(), 1u);
        wv::setAudioInputDeviceMaker(nullptr);

        const std::vector<Event> all = engine.events.events();
        int64_t sum = 0;
        bool ended = false;
        for (const Event& e : all) {
            if (e.id != id) continue;
            if (e.code == 63) ended = true;
            if (e.code != 67) continue;
            EXPECT_FALSE(ended) << "event 67 after the end";
            EXPECT_GT(e.value, 0);
            sum += e.value;
        }
        const double lostMs = double(c.bursts * (c.burstFrames - 2048)) * 1000.0 / 8000.0;
        EXPECT_GE(double(sum), lostMs);
        EXPECT_LT(double(sum), lostMs + 1.0);
        EXPECT_EQ(size_t(engine.api.getPcmFrameLength(id)), total);
        expectWholeRecording(engine, id, path);
    }
}

}  // namespace
