// Whole recordings through the engine, captured from generated files with the
// "file:PATH" input at twice real time, or far faster with the recorder
// starved. The file and generated inputs wait for the recorder, so every
// comparison is sample-exact whatever the load of the machine.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "AudioFiles.h"
#include "AudioFixtures.h"
#include "MediaDecode.h"
#include "RecordTestHelpers.h"
#include "TestSupport.h"
#include "base/Properties.h"
#include "engine/WavoryxPriv.h"
#include "platform/audio/AudioInputDevice.h"

namespace {

using rectest::controlCodes;
using rectest::countCode;
using wvtest::Event;

constexpr int kRate = 44100;
constexpr const char* kPace = "2";
constexpr int kFadeFrames = 13230;  // 0.3 s
// Buffers that begin within 310 ms of the start are muted or ramped by the
// capture source; from here on the output is the input.
constexpr size_t kUntouchedFrom = 14336;

struct Recorded {
    std::vector<int16_t> samples;
    int32_t frames = 0;  // what the engine counted
    std::vector<Event> events;
};

// Records `input` (a WAV file of `channels` channels at kRate, or an input
// such as "tone:440") into `out` until at least `frames` frames are in,
// then stops.
Recorded record(const std::string& input, const std::string& out, int channels, int32_t frames, int effect = 0,
                int rate = kRate, const char* pace = kPace) {
    Recorded result;
    rectest::FileInput source(input, pace);
    EXPECT_TRUE(source.selected());
    wvtest::TempDir work;
    rectest::RecordingEngine r(work.prefix());
    // Levels posted before the callback loop runs are dropped, and a fast
    // recording posts its first ones at once: let a failing load show that
    // the loop runs before counting them.
    const int32_t probe = r.engine.loadFile(work.file("missing.wav").c_str());
    EXPECT_TRUE(r.waitForCode(0, probe));
    r.engine.removePcm(uint32_t(probe));
    r.events.clear();
    const int32_t id = r.engine.recordStart(out.c_str(), ENCODE_WAV, rate, channels, 0, 1, effect);
    EXPECT_GT(id, 0);
    EXPECT_TRUE(r.waitForFrames(uint32_t(id), frames));
    EXPECT_EQ(r.engine.recordStop(), 0);
    EXPECT_TRUE(r.waitForCode(63, id));
    result.frames = r.engine.getPcmFrameLength(uint32_t(id));
    // Levels trail the end by their pacing; wait for all of them.
    const long long points = wvtest::fileSize(out + ".wave");
    EXPECT_TRUE(r.events.waitFor([&](const std::vector<Event>& e) { return (long long)countCode(e, 80) >= points; }));
    result.events = r.events.events();
    int wavRate = 0, wavChannels = 0;
    EXPECT_TRUE(wvtest::readWavSamples(out, &result.samples, &wavRate, &wavChannels));
    EXPECT_EQ(wavRate, rate);
    EXPECT_EQ(wavChannels, channels);
    return result;
}

void expectMutedRampedFadedThenEqual(const std::vector<int16_t>& in, const std::vector<int16_t>& out, size_t outStart,
                                     int channels, size_t firstBlockFrames) {
    const size_t inFrames = in.size() / size_t(channels);
    const size_t outFrames = out.size() / size_t(channels);
    for (size_t i = 0; i < firstBlockFrames * channels; ++i) ASSERT_EQ(out[outStart * channels + i], 0) << i;
    double energy = 0;
    for (size_t f = firstBlockFrames; f < kUntouchedFrom; ++f) {
        const double gain = f < size_t(kFadeFrames) ? double(f) * f / kFadeFrames / kFadeFrames : 1.0;
        for (int c = 0; c < channels; ++c) {
            const int o = out[(outStart + f) * channels + c];
            const int i = in[f * channels + c];
            ASSERT_LE(std::abs(o), (std::abs(i) + 1) * gain + 1) << "frame " << f;
            energy += std::abs(o);
        }
    }
    EXPECT_GT(energy, 0.0);
    for (size_t f = kUntouchedFrom; outStart + f < outFrames; ++f) {
        for (int c = 0; c < channels; ++c) {
            const int16_t expected = f < inFrames ? in[f * channels + c] : int16_t(0);
            ASSERT_EQ(out[(outStart + f) * channels + c], expected) << "frame " << f << " channel " << c;
        }
    }
}

TEST(Recording, WavHoldsTheInputAfterMuteRampAndFadeThenSilence) {
    wvtest::TempDir dir;
    for (int channels : {1, 2}) {
        SCOPED_TRACE(channels);
        const std::string input = dir.file("in" + std::to_string(channels) + ".wav");
        const std::vector<int16_t> tone = wvtest::makeTone(kRate, channels, 1.0, 441.0, 0.6);
        ASSERT_TRUE(wvtest::writeWav(input, tone, kRate, channels));
        const std::string out = dir.file("out" + std::to_string(channels) + ".wav");
        const Recorded rec = record(input, out, channels, kRate + kRate / 5, 0);
        ASSERT_EQ(rec.samples.size(), size_t(rec.frames) * channels);
        // Blocks are 2048 bytes: the first one lies wholly in the muted 10 ms.
        expectMutedRampedFadedThenEqual(tone, rec.samples, 0, channels, size_t(1024 / channels));

        // 61 first, levels, then 63 with 0; one level per 20 ms of audio.
        ASSERT_FALSE(rec.events.empty());
        EXPECT_EQ(rec.events.front(), (Event{61, rec.events.front().id, -1}));
        EXPECT_EQ(controlCodes(rec.events), (std::vector<int>{61, 63}));
        size_t levelsBefore63 = 0;
        for (const Event& e : rec.events) {
            if (e.code == 63) {
                EXPECT_EQ(e.value, 0);
                break;
            }
            levelsBefore63 += e.code == 80;
        }
        EXPECT_GT(levelsBefore63, 0u);
        EXPECT_EQ(long(countCode(rec.events, 80)), long(rec.frames) / (kRate / 50));
        EXPECT_EQ(wvtest::fileSize(out + ".wave"), long(rec.frames) / (kRate / 50));
        // The first 20 ms are muted; once faded in, the tone at 0.6 of full
        // scale gives 0.6 of the top level.
        std::vector<int> levels;
        for (const Event& e : rec.events) {
            if (e.code == 80) levels.push_back(e.value);
        }
        ASSERT_GT(levels.size(), 40u);
        EXPECT_EQ(levels[0], 0);
        EXPECT_NEAR(levels[30], 0.6 * 255, 3);
        // The input has ended: the level falls by 15 % a point.
        EXPECT_LT(levels.back(), levels[30] / 3);
    }
}

// While set, the input's thread pauses before every block it hands to the
// recorder: far slower than the input runs at a high pace, as a loaded
// machine makes it.
struct StarvedRecorder {
    StarvedRecorder() {
        wv::setAudioInputDeliveryHook([] { std::this_thread::sleep_for(std::chrono::milliseconds(1)); });
    }
    ~StarvedRecorder() { wv::setAudioInputDeliveryHook(nullptr); }
};

TEST(Recording, AStarvedRecorderLosesNothingFromAFileInput) {
    wvtest::TempDir dir;
    const std::string input = dir.file("noise.wav");
    std::vector<int16_t> noise(size_t(kRate) * 2);
    uint32_t seed = 99;
    for (int16_t& s : noise) {
        seed = seed * 1664525u + 1013904223u;
        s = int16_t(seed >> 16);
    }
    ASSERT_TRUE(wvtest::writeWav(input, noise, kRate, 2));
    StarvedRecorder starved;
    for (const char* pace : {"32", "64"}) {
        SCOPED_TRACE(pace);
        const std::string out = dir.file(std::string("out") + pace + ".wav");
        const Recorded rec = record(input, out, 2, kRate + kRate / 5, 0, kRate, pace);
        ASSERT_EQ(rec.samples.size(), size_t(rec.frames) * 2);
        expectMutedRampedFadedThenEqual(noise, rec.samples, 0, 2, 512);
        EXPECT_EQ(countCode(rec.events, 67), 0u);
    }
}

TEST(Recording, AStarvedRecorderLosesNothingFromAToneInput) {
    wvtest::TempDir dir;
    StarvedRecorder starved;
    const std::string out = dir.file("tone.wav");
    const Recorded rec = record("tone:441", out, 1, kRate, 0, kRate, "64");
    ASSERT_EQ(rec.samples.size(), size_t(rec.frames));
    ASSERT_GE(rec.samples.size(), size_t(kRate));
    // A sine of 100 samples a period never holds two zeros in a row: a run
    // of them is a hole filled with silence.
    for (size_t n = kUntouchedFrom; n + 1 < rec.samples.size(); ++n) {
        ASSERT_FALSE(rec.samples[n] == 0 && rec.samples[n + 1] == 0) << "frame " << n;
    }
    EXPECT_EQ(countCode(rec.events, 67), 0u);
}

TEST(Recording, Mp3DecodesToTheRecordedLength) {
    wvtest::TempDir dir;
    const std::string input = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(input, kRate, 2, 1.0, 330.0));
    const std::string out = dir.file("out.mp3");
    rectest::FileInput source(input, kPace);
    rectest::RecordingEngine r(dir.prefix());
    const int32_t id = r.engine.recordStart(out.c_str(), ENCODE_MP3, kRate, 2, 128, 1, 0);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), 30000));
    ASSERT_EQ(r.engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    const int32_t frames = r.engine.getPcmFrameLength(uint32_t(id));
    EXPECT_EQ(r.engine.getPcmDuration(uint32_t(id)), int32_t(int64_t(frames) * 1000 / kRate));
    wvtest::DecodedAudio decoded;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(out, &decoded));
    EXPECT_EQ(decoded.rate, kRate);
    EXPECT_EQ(decoded.channels, 2);
    // The info frame tells the decoder the encoder's delay and padding.
    EXPECT_EQ(decoded.frames(), size_t(frames));
}

TEST(Recording, TakesTheRecordingsEncodeOptionsAndReportsTheFileFormat) {
    wvtest::TempDir dir;
    const std::string input = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(input, kRate, 2, 1.0, 330.0));
    const std::string out = dir.file("out.mp3");
    rectest::FileInput source(input, kPace);
    rectest::RecordingEngine r(dir.prefix());
    // Set for every recording started afterwards.
    ASSERT_EQ(r.engine.setEncodeOptions(0, 5, 6, 1), 0);
    const int32_t id = r.engine.recordStart(out.c_str(), ENCODE_MP3, kRate, 2, 128, 1, 0);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), 20000));
    ASSERT_EQ(r.engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    const wvtest::Mp3Frames frames = wvtest::walkMp3Frames(wvtest::readFile(out));
    EXPECT_EQ(frames.mode, 1);
    EXPECT_TRUE(frames.infoFrame);
    EXPECT_EQ(r.engine.getPcmSampleRate(uint32_t(id)), frames.sampleRate);
    wvtest::DecodedAudio decoded;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(out, &decoded));
    EXPECT_EQ(decoded.rate, frames.sampleRate);
    EXPECT_EQ(decoded.frames(), size_t(r.engine.getPcmFrameLength(uint32_t(id))));
}

TEST(Recording, PauseAndResumeRestartTheFade) {
    wvtest::TempDir dir;
    const std::string input = dir.file("in.wav");
    const std::vector<int16_t> tone = wvtest::makeTone(kRate, 1, 1.0, 441.0, 0.6);
    ASSERT_TRUE(wvtest::writeWav(input, tone, kRate, 1));
    const std::string out = dir.file("out.wav");
    rectest::FileInput source(input, kPace);
    rectest::RecordingEngine r(dir.prefix());
    const int32_t id = r.engine.recordStart(out.c_str(), ENCODE_WAV, kRate, 1, 0, 1, 0);
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), 20000));
    ASSERT_EQ(r.engine.recordPause(), 0);
    ASSERT_TRUE(r.waitForCode(66, id));
    const int32_t paused = r.engine.getPcmFrameLength(uint32_t(id));
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(r.engine.getPcmFrameLength(uint32_t(id)), paused);  // nothing recorded while paused
    ASSERT_EQ(r.engine.recordResume(), 0);
    ASSERT_TRUE(r.waitForCode(65, id));
    ASSERT_TRUE(r.waitForFrames(uint32_t(id), paused + 20000));
    ASSERT_EQ(r.engine.recordStop(), 0);
    ASSERT_TRUE(r.waitForCode(63, id));
    EXPECT_EQ(controlCodes(r.events.events()), (std::vector<int>{61, 66, 65, 63}));

    std::vector<int16_t> samples;
    ASSERT_TRUE(wvtest::readWavSamples(out, &samples));
    ASSERT_EQ(samples.size(), size_t(r.engine.getPcmFrameLength(uint32_t(id))));
    // The new capture starts the file again and is muted, ramped and faded
    // from silence like the first one.
    expectMutedRampedFadedThenEqual(tone, samples, size_t(paused), 1, 1024);
}

TEST(Recording, EveryFormatRecordsThroughAPauseToTheLengthItReports) {
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    wvtest::TempDir dir;
    const std::string input = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(input, kRate, 2, 1.0, 330.0));
    rectest::FileInput source(input, kPace);
    const struct {
        encode_type type;
        const char* name;
        int rate;
        size_t slack;  // what ffmpeg 5.1 may decode beyond the end (see OutputFormatsTest)
    } formats[] = {{ENCODE_FLAC, "r.flac", kRate, 0},
                   {ENCODE_OPUS, "r.opus", 48000, 0},
                   {ENCODE_AAC, "r.m4a", kRate, 1024},
                   {ENCODE_VORBIS, "r.ogg", kRate, 1024}};
    for (const auto& f : formats) {
        SCOPED_TRACE(f.name);
        rectest::RecordingEngine r(dir.prefix());
        const std::string out = dir.file(f.name);
        const int32_t id = r.engine.recordStart(out.c_str(), f.type, kRate, 2, 0, 1, 0);
        ASSERT_GT(id, 0);
        ASSERT_TRUE(r.waitForFrames(uint32_t(id), 15000));
        ASSERT_EQ(r.engine.recordPause(), 0);
        ASSERT_TRUE(r.waitForCode(66, id));
        const int32_t paused = r.engine.getPcmFrameLength(uint32_t(id));
        ASSERT_EQ(r.engine.recordResume(), 0);
        ASSERT_TRUE(r.waitForFrames(uint32_t(id), paused + 15000));
        ASSERT_EQ(r.engine.recordStop(), 0);
        ASSERT_TRUE(r.waitForCode(63, id));
        EXPECT_EQ(controlCodes(r.events.events()), (std::vector<int>{61, 66, 65, 63}));
        EXPECT_EQ(r.engine.getPcmSampleRate(uint32_t(id)), f.rate);
        const size_t frames = size_t(r.engine.getPcmFrameLength(uint32_t(id)));
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(out, dir.path(), &decoded));
        EXPECT_GE(decoded.size() / 2 + (f.type == ENCODE_VORBIS ? 128 : 0), frames);
        EXPECT_LE(decoded.size() / 2, frames + f.slack);
        if (f.type == ENCODE_FLAC) {
            // The header states the length, rewritten when the recording ends.
            FILE* pipe = ::popen(("ffprobe -v error -select_streams a:0 -show_entries stream=duration_ts "
                                  "-of default=nw=1:nk=1 '" + out + "'").c_str(), "r");
            ASSERT_NE(pipe, nullptr);
            long stated = -1;
            if (std::fscanf(pipe, "%ld", &stated) != 1) stated = -1;
            ::pclose(pipe);
            EXPECT_EQ(stated, long(frames));
        }
    }
}

// The dominant frequency of the middle of a recording.
double recordedPitch(const std::string& input, const std::string& out, int effect) {
    const int rate = 22050;
    const Recorded rec = record(input, out, 1, rate * 3 / 2, effect, rate);
    if (rec.samples.size() < size_t(rate * 3 / 2)) return 0;
    return wvtest::estimateFrequency(rec.samples.data() + rate / 2, rate, 1, 0, rate);
}

TEST(Recording, VoiceEffectsMoveThePitchAndFollowTheProperties) {
    wvtest::TempDir dir;
    const std::string input = dir.file("in.wav");
    ASSERT_TRUE(wvtest::writeToneWav(input, 22050, 1, 2.0, 440.0));
    const struct {
        int effect;
        double semitones;
    } defaults[] = {{1, -4}, {2, 4}, {3, 9}};
    for (const auto& c : defaults) {
        const double hz = recordedPitch(input, dir.file("fx" + std::to_string(c.effect) + ".wav"), c.effect);
        EXPECT_NEAR(hz, 440.0 * std::pow(2.0, c.semitones / 12.0), 440.0 * 0.02) << c.effect;
    }
    // The robot voice echoes the input 10 ms later: no longer the plain tone.
    const std::string robot = dir.file("robot.wav");
    const Recorded echoed = record(input, robot, 1, 22050, 4, 22050);
    std::vector<int16_t> plain;
    ASSERT_TRUE(wvtest::readWavSamples(input, &plain));
    ASSERT_GT(echoed.samples.size(), 20000u);
    EXPECT_NE(std::vector<int16_t>(echoed.samples.begin() + 16000, echoed.samples.begin() + 20000),
              std::vector<int16_t>(plain.begin() + 16000, plain.begin() + 20000));

    const std::string props = dir.file("props");
    const char text[] = "persist.wavoryx.malepitch=7\npersist.wavoryx.femalepitch=2\n";
    wvtest::writeFile(props, text, sizeof text - 1);
    setenv("WAVORYX_PROPERTIES", props.c_str(), 1);
    wv::propertiesReloadForTesting();
    const double male7 = recordedPitch(input, dir.file("male7.wav"), 1);
    EXPECT_NEAR(male7, 440.0 * std::pow(2.0, -7 / 12.0), 440.0 * 0.02);
    {
        wvtest::TempDir work;
        rectest::FileInput source(input, "4");
        WavoryxPriv engine;
        engine.setWorkingDir(work.prefix().c_str());
        const struct {
            int effect;
            float pitch;
            int robot;
        } settings[] = {{1, -7.0f, 0}, {2, 2.0f, 0}, {3, 2.0f, 0}, {4, 0.0f, 1}, {0, 0.0f, 0}, {5, 0.0f, 0}};
        for (const auto& s : settings) {
            const int32_t id = engine.recordStart("", ENCODE_WAV, 22050, 1, 0, 1, s.effect);
            ASSERT_GT(id, 0);
            const wv::SPcmInfo* item = engine.getPcmInfo(uint32_t(id), wv::REF_NONE);
            EXPECT_EQ(item->renderSettings().pitch, s.pitch) << s.effect;
            EXPECT_EQ(item->renderSettings().robot, s.robot) << s.effect;
            EXPECT_EQ(engine.recordStop(), 0);
        }
    }
    unsetenv("WAVORYX_PROPERTIES");
    wv::propertiesReloadForTesting();
}

}  // namespace
