// Loudness measurements of items and clip lists: checked against
// libebur128's own figures for the same samples, and against ffmpeg's
// ebur128 filter on EBU-style test signals; the waits, failures and cancel
// a render has.
#include <ebur128.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "RenderFixture.h"
#include "items/JobContext.h"

namespace rendertest {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr int32_t kNoValue = INT32_MIN;

// A sine of `dbfs` peak level (0 dBFS: a peak of full scale), the same in
// every channel.
std::vector<int16_t> sine(int rate, int channels, double seconds, double freq, double dbfs) {
    const double amplitude = 32768.0 * std::pow(10.0, dbfs / 20.0);
    const size_t frames = size_t(seconds * rate);
    std::vector<int16_t> out(frames * channels);
    for (size_t k = 0; k < frames; ++k) {
        const double v = std::lround(amplitude * std::sin(2.0 * kPi * freq * double(k) / rate));
        for (int c = 0; c < channels; ++c) out[k * channels + c] = int16_t(std::min(v, 32767.0));
    }
    return out;
}

// Pink noise (-3 dB per octave), different in each channel, repeatable.
std::vector<int16_t> pinkNoise(int rate, int channels, double seconds) {
    const size_t frames = size_t(seconds * rate);
    std::vector<int16_t> out(frames * channels);
    uint32_t seed = 12345;
    for (int c = 0; c < channels; ++c) {
        double b0 = 0, b1 = 0, b2 = 0;
        for (size_t k = 0; k < frames; ++k) {
            seed = seed * 1664525u + 1013904223u;
            const double white = double(seed >> 8) / double(1u << 24) * 2.0 - 1.0;
            b0 = 0.99765 * b0 + white * 0.0990;
            b1 = 0.96300 * b1 + white * 0.2965;
            b2 = 0.57000 * b2 + white * 1.0526;
            const double pink = (b0 + b1 + b2 + white * 0.1848) * 0.08;
            out[k * channels + c] = int16_t(std::lround(std::max(-1.0, std::min(pink, 0.9999)) * 32767.0));
        }
    }
    return out;
}

// Figures in tenths, as the events carry them.
struct Tenths {
    int32_t integrated = kNoValue;
    int32_t peak = kNoValue;
    int32_t range = kNoValue;
};

int32_t toTenths(double value) { return std::isfinite(value) ? int32_t(std::lround(value * 10.0)) : kNoValue; }

// libebur128 run over the samples in one call.
Tenths libraryFigures(const std::vector<int16_t>& samples, int rate, int channels) {
    ebur128_state* state =
        ebur128_init(unsigned(channels), unsigned(rate), EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK);
    ebur128_add_frames_short(state, samples.data(), samples.size() / channels);
    double integrated = 0, range = 0, peak = 0;
    ebur128_loudness_global(state, &integrated);
    ebur128_loudness_range(state, &range);
    for (int c = 0; c < channels; ++c) {
        double p = 0;
        ebur128_true_peak(state, unsigned(c), &p);
        peak = std::max(peak, p);
    }
    ebur128_destroy(&state);
    Tenths out;
    out.integrated = toTenths(integrated);
    out.range = toTenths(range);
    out.peak = peak > 0 ? toTenths(20.0 * std::log10(peak)) : kNoValue;
    return out;
}

// ffmpeg's summary of `-af ebur128=peak=true`, in tenths; false when it
// could not be run or read.
bool ffmpegFigures(const std::string& path, const std::string& scratch, Tenths* out) {
    const std::string log = scratch + "/ebur128.log";
    const std::string command = "ffmpeg -nostdin -hide_banner -nostats -i " + wvtest::shellQuote(path) +
                                " -af ebur128=peak=true -f null - 2>" + wvtest::shellQuote(log);
    if (std::system(command.c_str()) != 0) return false;
    const std::vector<char> bytes = wvtest::readFile(log);
    const std::string text(bytes.begin(), bytes.end());
    const size_t summary = text.rfind("Summary:");
    if (summary == std::string::npos) return false;
    const auto figure = [&](const char* label, int32_t* into) {
        const size_t at = text.find(label, summary);
        if (at == std::string::npos) return false;
        double value = 0;
        if (std::sscanf(text.c_str() + at + std::strlen(label), "%lf", &value) != 1) return false;
        *into = toTenths(value);
        return true;
    };
    return figure("I:", &out->integrated) && figure("LRA:", &out->range) && figure("Peak:", &out->peak);
}

bool isMeasureEnding(int code) {
    return code == wv::EVT_LOUDNESS_RANGE || code == wv::EVT_RENDER_FAILED || code == wv::EVT_RENDER_CANCELLED;
}

class LoudnessTest : public RenderTest {
protected:
    // Waits for the measurement's ending and returns the item's events.
    std::vector<Event> waitForMeasure(uint32_t id, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
        recorder.waitFor(
            [id](const std::vector<Event>& events) {
                for (const Event& e : events) {
                    if (e.id == int(id) && isMeasureEnding(e.code)) return true;
                }
                return false;
            },
            timeout);
        return eventsOf(id);
    }
    // Measures the item and returns its figures, checking the order of the
    // result events on the way.
    Tenths measure(uint32_t id) {
        EXPECT_EQ(engine->measureLoudness(int(id)), 0);
        const std::vector<Event> events = waitForMeasure(id);
        std::vector<Event> results;
        for (const Event& e : events) {
            if (e.code != wv::EVT_RENDER_PROGRESS && e.code != wv::EVT_LOAD_PROGRESS &&
                e.code != wv::EVT_LOAD_STARTED && e.code != wv::EVT_LOAD_DONE) {
                results.push_back(e);
            }
        }
        Tenths out;
        if (results.size() != 3u) {
            ADD_FAILURE() << "expected the three result events, got " << results.size();
            return out;
        }
        EXPECT_EQ(results[0].code, int(wv::EVT_LOUDNESS_INTEGRATED));
        EXPECT_EQ(results[1].code, int(wv::EVT_LOUDNESS_TRUE_PEAK));
        EXPECT_EQ(results[2].code, int(wv::EVT_LOUDNESS_RANGE));
        out.integrated = results[0].value;
        out.peak = results[1].value;
        out.range = results[2].value;
        EXPECT_TRUE(waitUntil([&] { return encoderReleased(id); }));
        return out;
    }
    // Loads `path` through the decoder and measures it at once: the
    // measurement waits for the data.
    Tenths loadAndMeasure(const std::string& path) {
        const int32_t id = engine->loadFile(path.c_str());
        EXPECT_GT(id, 0);
        return measure(uint32_t(id));
    }
    std::string wavFile(const std::string& name, const std::vector<int16_t>& samples, int rate, int channels) {
        const std::string path = dir.file(name);
        EXPECT_TRUE(wvtest::writeWav(path, samples, rate, channels));
        return path;
    }
    // The engine and ffmpeg agree within 0.1 on every figure.
    void expectLikeFfmpeg(const std::string& path, const Tenths& ours) {
        Tenths theirs;
        ASSERT_TRUE(ffmpegFigures(path, dir.path(), &theirs)) << path;
        EXPECT_NEAR(ours.integrated, theirs.integrated, 1) << path;
        EXPECT_NEAR(ours.range, theirs.range, 1) << path;
        EXPECT_NEAR(ours.peak, theirs.peak, 1) << path;
    }
};

TEST_F(LoudnessTest, ItemsGiveTheLibrarysFiguresForTheirOwnSamples) {
    struct Case {
        const char* name;
        std::vector<int16_t> samples;
        int rate;
        int channels;
    };
    const std::vector<Case> cases = {
        {"stereo sine -23 dBFS", sine(48000, 2, 3.0, 1000.0, -23.0), 48000, 2},
        {"mono sine -20 dBFS", sine(44100, 1, 3.0, 1000.0, -20.0), 44100, 1},
        {"pink noise", pinkNoise(32000, 2, 4.0), 32000, 2},
    };
    for (const Case& c : cases) {
        const Tenths ours = measure(addWavItem(c.samples, c.rate, c.channels)->id);
        const Tenths reference = libraryFigures(c.samples, c.rate, c.channels);
        EXPECT_EQ(ours.integrated, reference.integrated) << c.name;
        EXPECT_EQ(ours.peak, reference.peak) << c.name;
        EXPECT_EQ(ours.range, reference.range) << c.name;
    }
}

TEST_F(LoudnessTest, EbuSignalsMeasureAsFfmpegMeasuresThem) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    // Four seconds at least: ffmpeg's range of a shorter programme, from
    // its few 3 s windows, is not comparable.
    // The EBU reference: a 1 kHz sine at -23 dBFS in both channels is
    // -23 LUFS; the same in one channel of a mono file is 3 dB lower.
    const std::string reference = wavFile("ref.wav", sine(48000, 2, 4.0, 1000.0, -23.0), 48000, 2);
    const Tenths atReference = loadAndMeasure(reference);
    EXPECT_NEAR(atReference.integrated, -230, 1);
    EXPECT_NEAR(atReference.peak, -230, 1);
    EXPECT_EQ(atReference.range, 0);
    expectLikeFfmpeg(reference, atReference);

    const std::string louder = wavFile("minus20.wav", sine(44100, 2, 5.0, 1000.0, -20.0), 44100, 2);
    const Tenths atMinus20 = loadAndMeasure(louder);
    EXPECT_NEAR(atMinus20.integrated, -200, 1);
    expectLikeFfmpeg(louder, atMinus20);

    const std::string mono = wavFile("mono.wav", sine(48000, 1, 5.0, 1000.0, -20.0), 48000, 1);
    const Tenths atMono = loadAndMeasure(mono);
    EXPECT_NEAR(atMono.integrated, -230, 1);
    expectLikeFfmpeg(mono, atMono);

    // Decoded, not read in place: the measurement follows the load.
    const std::string noiseWav = wavFile("pink.wav", pinkNoise(48000, 2, 5.0), 48000, 2);
    const std::string noise = dir.file("pink.flac");
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(noiseWav, noise));
    expectLikeFfmpeg(noise, loadAndMeasure(noise));
}

TEST_F(LoudnessTest, ListOfTwoClipsIsMeasuredAsTheirJoinedFrames) {
    const std::vector<int16_t> quiet = sine(48000, 2, 3.0, 440.0, -30.0);
    const std::vector<int16_t> noise = pinkNoise(48000, 2, 3.0);
    wv::SPcmInfo* a = addPcmItem(quiet, 48000, 2);
    wv::SPcmInfo* b = addWavItem(noise, 48000, 2);
    const uint32_t list = newList({{a, 24000, 120000}, {b, 0, 96000}});
    std::vector<int16_t> joined(quiet.begin() + 24000 * 2, quiet.begin() + 120000 * 2);
    joined.insert(joined.end(), noise.begin(), noise.begin() + 96000 * 2);
    const Tenths ours = measure(list);
    const Tenths reference = libraryFigures(joined, 48000, 2);
    EXPECT_EQ(ours.integrated, reference.integrated);
    EXPECT_EQ(ours.peak, reference.peak);
    EXPECT_EQ(ours.range, reference.range);
    EXPECT_GT(ours.range, 0) << "a quiet part then a loud one has a range";
    // A measurement writes nothing and leaves the list's figures alone.
    EXPECT_EQ(a->frames.load(), uint32_t(quiet.size() / 2));
    EXPECT_TRUE(wvtest::namesIn(dir.path()).count(std::to_string(list) + ".wav") == 0);
    bool progressed = false;
    for (const Event& e : eventsOf(list)) progressed |= e.code == wv::EVT_RENDER_PROGRESS;
    EXPECT_TRUE(progressed);
}

TEST_F(LoudnessTest, SilenceAndShortAudioHaveNoLoudness) {
    const Tenths silence = measure(addPcmItem(std::vector<int16_t>(48000 * 2 * 2, 0), 48000, 2)->id);
    EXPECT_EQ(silence.integrated, kNoValue);
    EXPECT_EQ(silence.peak, kNoValue);
    EXPECT_EQ(silence.range, 0);
    // 0.3 s: no 400 ms gating block, but a peak.
    const Tenths shortTone = measure(addPcmItem(sine(48000, 1, 0.3, 1000.0, -6.0), 48000, 1)->id);
    EXPECT_EQ(shortTone.integrated, kNoValue);
    EXPECT_NEAR(shortTone.peak, -60, 1);
}

TEST_F(LoudnessTest, WaitsForALoadingItemAndFailsWhenItsLoadFails) {
    // Half the frames present, the load going on.
    const std::vector<int16_t> tone = sine(48000, 2, 2.0, 1000.0, -23.0);
    wv::SPcmInfo* loading = addPcmItem(tone, 48000, 2, wv::DECODING);
    loading->frames = 48000;
    ASSERT_EQ(engine->measureLoudness(int(loading->id)), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    for (const Event& e : eventsOf(loading->id)) EXPECT_FALSE(isMeasureEnding(e.code)) << e.code;
    // The rest arrives: the measurement covers all of it.
    loading->frames = 96000;
    loading->status = wv::PCM_READY;
    engine->jobContext()->dataArrived();
    const std::vector<Event> done = waitForMeasure(loading->id, std::chrono::seconds(5));
    ASSERT_FALSE(done.empty());
    EXPECT_EQ(done.back().code, int(wv::EVT_LOUDNESS_RANGE));
    const Tenths reference = libraryFigures(tone, 48000, 2);
    for (const Event& e : done) {
        if (e.code == int(wv::EVT_LOUDNESS_INTEGRATED)) {
            EXPECT_EQ(e.value, reference.integrated);
        }
    }

    // A load that fails while the measurement waits ends it like a render.
    wv::SPcmInfo* failing = addPcmItem(tone, 48000, 2, wv::DECODING);
    failing->frames = 4800;
    const uint32_t list = newList({{failing, 0, 96000}});
    ASSERT_EQ(engine->measureLoudness(int(list)), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    failing->loadFailed = true;
    engine->jobContext()->dataArrived();
    std::vector<Event> failed = waitForMeasure(list, std::chrono::seconds(5));
    ASSERT_FALSE(failed.empty());
    EXPECT_EQ(failed.back(), (Event{int(wv::EVT_RENDER_FAILED), int(list), -1}));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));

    // A source that failed before the start: the same ending at once.
    failed = {};
    ASSERT_EQ(engine->measureLoudness(int(failing->id)), 0);
    failed = waitForMeasure(failing->id, std::chrono::seconds(5));
    ASSERT_FALSE(failed.empty());
    EXPECT_EQ(failed.back(), (Event{int(wv::EVT_RENDER_FAILED), int(failing->id), -1}));
}

TEST_F(LoudnessTest, CancelEndsAWaitingMeasurementWithTheRenderCancelEvent) {
    wv::SPcmInfo* loading = addPcmItem(sine(48000, 2, 2.0, 1000.0, -23.0), 48000, 2, wv::DECODING);
    loading->frames = 9600;
    ASSERT_EQ(engine->measureLoudness(int(loading->id)), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_EQ(engine->cancelProcess(int(loading->id)), 0);
    const std::vector<Event> events = waitForMeasure(loading->id, std::chrono::seconds(5));
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back(), (Event{int(wv::EVT_RENDER_CANCELLED), int(loading->id), -1}));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(loading->id); }));
    for (const Event& e : events) EXPECT_NE(e.code, int(wv::EVT_LOUDNESS_INTEGRATED));
}

TEST_F(LoudnessTest, RefusesUnknownItemsAndRecordings) {
    EXPECT_EQ(engine->measureLoudness(999), -1);
    wv::SPcmInfo* recording = registerItem(new wv::SPcmInfo(wv::RECORDING));
    EXPECT_EQ(engine->measureLoudness(int(recording->id)), -2);
    EXPECT_EQ(engine->infoList().refCount(recording->id, wv::REF_ENCODER), 0u);
}

}  // namespace
}  // namespace rendertest
