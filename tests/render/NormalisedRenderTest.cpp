// Loudness-normalised renders: the output's integrated loudness and true
// peak as libebur128 (and once ffmpeg's ebur128 filter) measure them on the
// decoded file, for speech- and music-like lists that need a lot of gain
// and limiting or a cut; the output's length and timing; progress over the
// passes; cancel and suspend in the measuring pass; silence; switching the
// setting off again; the measuring pass in parts on several threads (the
// target reached as on one, lists measured in one piece rendering the bytes
// of one thread, a cancel stopping every worker).
#include <dirent.h>
#include <ebur128.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "AudioFiles.h"
#include "ProgrammeSignals.h"
#include "RenderFixture.h"
#include "render/EncoderThread.h"

namespace rendertest {
namespace {

struct Figures {
    double integrated = -HUGE_VAL;  // LUFS
    double truePeak = -HUGE_VAL;    // dBTP
};

Figures libraryFigures(const std::vector<int16_t>& samples, int rate, int channels) {
    ebur128_state* st = ebur128_init(unsigned(channels), unsigned(rate), EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK);
    ebur128_add_frames_short(st, samples.data(), samples.size() / size_t(channels));
    Figures f;
    ebur128_loudness_global(st, &f.integrated);
    double peak = 0.0;
    for (int c = 0; c < channels; ++c) {
        double p = 0.0;
        ebur128_true_peak(st, unsigned(c), &p);
        peak = std::max(peak, p);
    }
    ebur128_destroy(&st);
    if (peak > 0.0) f.truePeak = 20.0 * std::log10(peak);
    return f;
}

// ffmpeg's `ebur128=peak=true` summary of a file; false when unavailable.
bool ffmpegFigures(const std::string& path, const std::string& scratch, Figures* out) {
    const std::string log = scratch + "/ebur128.log";
    const std::string command = "ffmpeg -nostdin -hide_banner -nostats -i " + wvtest::shellQuote(path) +
                                " -af ebur128=peak=true -f null - 2>" + wvtest::shellQuote(log);
    if (std::system(command.c_str()) != 0) return false;
    const std::vector<char> bytes = wvtest::readFile(log);
    const std::string text(bytes.begin(), bytes.end());
    const size_t summary = text.rfind("Summary:");
    if (summary == std::string::npos) return false;
    const auto figure = [&](const char* label, double* into) {
        const size_t at = text.find(label, summary);
        return at != std::string::npos && std::sscanf(text.c_str() + at + std::strlen(label), "%lf", into) == 1;
    };
    return figure("I:", &out->integrated) && figure("Peak:", &out->truePeak);
}

enum class Kind { kSpeech, kMusic };

// A source of `kind` whose integrated loudness is `lufs` (before rounding
// to 16-bit and clipping), as 16-bit samples.
std::vector<int16_t> programme(Kind kind, double lufs, int rate, int channels, double seconds) {
    const std::vector<float> unit = kind == Kind::kSpeech ? wvtest::speechLike(rate, channels, seconds, 3)
                                                          : wvtest::musicLike(rate, channels, seconds, 3);
    const double atFullScale = libraryFigures(wvtest::toInt16(unit, 0.0), rate, channels).integrated;
    return wvtest::toInt16(unit, lufs - atFullScale);
}

class NormalisedRenderTest : public RenderTest {
protected:
    // Renders a list of the whole of `samples` normalised to (target,
    // ceiling) into `name` and returns the decoded output's samples.
    std::vector<int16_t> renderNormalised(const std::vector<int16_t>& samples, int rate, int channels, int target,
                                          int ceiling, const std::string& name = "out.wav",
                                          encode_type type = ENCODE_WAV) {
        wv::SPcmInfo* source = addWavItem(samples, rate, channels);
        const uint32_t list = newList({{source, 0, uint32_t(samples.size() / channels)}});
        const std::string out = dir.file(name);
        EXPECT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
        EXPECT_EQ(engine->setListLoudness(list, target, ceiling), 0);
        lastList = list;
        EXPECT_EQ(render(list).code, int(wv::EVT_RENDER_DONE)) << name;
        std::vector<int16_t> decoded;
        if (type == ENCODE_WAV) {
            EXPECT_TRUE(wvtest::readWavSamples(out, &decoded)) << name;
        } else {
            EXPECT_TRUE(wvtest::decodeToPcm16(out, dir.path(), &decoded)) << name;
        }
        return decoded;
    }
    uint32_t lastList = 0;
};

TEST_F(NormalisedRenderTest, SpeechAndMusicMeetTheTargetUnderTheCeiling) {
    struct Case {
        const char* name;
        Kind kind;
        double sourceLufs;
        int target;   // tenths of LUFS
        int ceiling;  // tenths of dBTP
        bool limits;  // the plain gain would push the true peak over the ceiling
    };
    const std::vector<Case> cases = {
        {"quiet speech +20 dB to -16", Kind::kSpeech, -36.0, -160, -10, true},
        {"quiet music +20 dB to -16, ceiling -3", Kind::kMusic, -36.0, -160, -30, true},
        {"quiet speech +20 dB to -23, ceiling -10", Kind::kSpeech, -43.0, -230, -100, true},
        {"loud music -10 dB to -23", Kind::kMusic, -13.0, -230, -10, false},
        {"loud speech -10 dB to -23", Kind::kSpeech, -13.0, -230, -10, false},
        {"speech to -16 under a -6 dBTP ceiling", Kind::kSpeech, -30.0, -160, -60, true},
    };
    for (const Case& c : wvtest::sampled(cases, 3)) {
        const std::vector<int16_t> source = programme(c.kind, c.sourceLufs, 48000, 2, 12.0);
        const Figures in = libraryFigures(source, 48000, 2);
        ASSERT_EQ(in.truePeak + (c.target / 10.0 - in.integrated) > c.ceiling / 10.0, c.limits) << c.name;
        const std::vector<int16_t> out = renderNormalised(source, 48000, 2, c.target, c.ceiling);
        ASSERT_EQ(out.size(), source.size()) << c.name;
        const Figures got = libraryFigures(out, 48000, 2);
        EXPECT_NEAR(got.integrated, c.target / 10.0, 0.5) << c.name;
        EXPECT_LE(got.truePeak, c.ceiling / 10.0) << c.name;
    }
}

TEST_F(NormalisedRenderTest, FfmpegMeasuresTheTargetAndTheCeilingToo) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
    const std::vector<int16_t> source = programme(Kind::kSpeech, -36.0, 44100, 2, 12.0);
    renderNormalised(source, 44100, 2, -160, -10, "speech.wav");
    Figures theirs;
    ASSERT_TRUE(ffmpegFigures(dir.file("speech.wav"), dir.path(), &theirs));
    EXPECT_NEAR(theirs.integrated, -16.0, 0.5);
    EXPECT_LE(theirs.truePeak, -1.0);
}

TEST_F(NormalisedRenderTest, OutputIsTheSourceTimesTheGainWhenNothingIsLimited) {
    // -10 dB on music whose peaks stay far under the ceiling: sample for
    // sample the source times 10^(-10/20) within rounding and dither, so
    // nothing was shifted, dropped or added.
    const std::vector<int16_t> source = programme(Kind::kMusic, -13.0, 44100, 2, 6.0);
    const double sourceLufs = libraryFigures(source, 44100, 2).integrated;
    const std::vector<int16_t> out = renderNormalised(source, 44100, 2, -230, -10);
    ASSERT_EQ(out.size(), source.size());
    const double gain = std::pow(10.0, (-23.0 - sourceLufs) / 20.0);
    int worst = 0;
    for (size_t n = 0; n < out.size(); ++n) {
        worst = std::max(worst, int(std::lround(std::fabs(out[n] - source[n] * gain))));
    }
    EXPECT_LE(worst, 2);
}

TEST_F(NormalisedRenderTest, LossyAndLosslessFormatsAreNormalised) {
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg command missing";
    const std::vector<int16_t> source = programme(Kind::kMusic, -30.0, 48000, 2, 8.0);
    const struct {
        encode_type type;
        const char* name;
    } formats[] = {{ENCODE_FLAC, "out.flac"},
                   {ENCODE_MP3, "out.mp3"},
                   {ENCODE_OPUS, "out.opus"},
                   {ENCODE_AAC, "out.m4a"},
                   {ENCODE_VORBIS, "out.ogg"}};
    for (const auto& f : formats) {
        const std::vector<int16_t> out = renderNormalised(source, 48000, 2, -160, -10, f.name, f.type);
        ASSERT_FALSE(out.empty()) << f.name;
        EXPECT_NEAR(libraryFigures(out, 48000, 2).integrated, -16.0, 0.5) << f.name;
        if (f.type == ENCODE_FLAC) {
            EXPECT_EQ(out.size(), source.size());
            EXPECT_LE(libraryFigures(out, 48000, 2).truePeak, -1.0);
        }
    }
}

TEST_F(NormalisedRenderTest, ProgressRisesThroughTheMeasuringAndTheEncodingHalves) {
    const std::vector<int16_t> source = programme(Kind::kSpeech, -36.0, 48000, 2, 40.0);
    renderNormalised(source, 48000, 2, -160, -10);
    std::vector<int> progress;
    for (const Event& e : eventsOf(lastList)) {
        if (e.code == int(wv::EVT_RENDER_PROGRESS)) progress.push_back(e.value);
    }
    ASSERT_GE(progress.size(), 6u);
    for (size_t k = 1; k < progress.size(); ++k) EXPECT_GE(progress[k], progress[k - 1]) << k;
    EXPECT_GE(progress.front(), 0);
    EXPECT_LT(progress.front(), 25) << "the first pass reports its own progress";
    int measuring = 0, encoding = 0;
    for (int p : progress) (p < 50 ? measuring : encoding)++;
    EXPECT_GE(measuring, 2);
    EXPECT_GE(encoding, 2);
    EXPECT_EQ(progress.back(), 100);
    EXPECT_EQ(eventsOf(lastList).back().code, int(wv::EVT_RENDER_DONE));
}

TEST_F(NormalisedRenderTest, CancelInTheMeasuringPassLeavesNothingBehind) {
    // The source is still loading: the measuring pass waits on it, and the
    // cancel finds it there.
    const std::vector<int16_t> source = programme(Kind::kMusic, -30.0, 48000, 2, 4.0);
    wv::SPcmInfo* loading = addPcmItem(source, 48000, 2, wv::DECODING);
    loading->frames = 48000;
    const uint32_t list = newList({{loading, 0, uint32_t(source.size() / 2)}});
    const std::string out = dir.file("cancelled.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
    const std::set<std::string> before = wvtest::namesIn(dir.path());
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_TRUE(waitUntil([&] {
        for (const Event& e : eventsOf(list)) {
            if (e.code == int(wv::EVT_RENDER_PROGRESS)) return true;
        }
        return false;
    }));
    ASSERT_EQ(engine->cancelProcess(list), 0);
    EXPECT_EQ(waitForEnding(list).code, int(wv::EVT_RENDER_CANCELLED));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
    EXPECT_EQ(wvtest::namesIn(dir.path()), before) << "no output, no .wave, no .part file";
    for (const Event& e : eventsOf(list)) {
        if (e.code == int(wv::EVT_RENDER_PROGRESS)) {
            EXPECT_LT(e.value, 25);
        }
    }
}

TEST_F(NormalisedRenderTest, SuspendAndResumeActInTheMeasuringPass) {
    const std::vector<int16_t> source = programme(Kind::kMusic, -30.0, 48000, 2, 60.0);
    wv::SPcmInfo* item = addWavItem(source, 48000, 2);
    const uint32_t list = newList({{item, 0, uint32_t(source.size() / 2)}});
    ASSERT_EQ(engine->setOutputPara(list, dir.file("suspended.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
    ASSERT_EQ(engine->process(list), 0);
    const wv::WVThreadCmd steps(wv::EncoderThread::kCmdContinue, list, int32_t(wv::WVCMD_ANY));
    // Suspended as soon as it has begun: no progress while parked.
    ASSERT_TRUE(waitUntil([&] { return !eventsOf(list).empty(); }));
    engine->encoderThread().suspendCmd(steps);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const size_t parked = eventsOf(list).size();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(eventsOf(list).size(), parked);
    for (const Event& e : eventsOf(list)) EXPECT_FALSE(isEnding(e.code));
    engine->encoderThread().resumeCmd(steps);
    EXPECT_EQ(waitForEnding(list).code, int(wv::EVT_RENDER_DONE));
}

TEST_F(NormalisedRenderTest, SilenceAndAudioWithoutLoudnessKeepTheirLevel) {
    const std::vector<int16_t> silence(48000 * 2 * 3, 0);
    const std::vector<int16_t> out = renderNormalised(silence, 48000, 2, -160, -10, "silence.wav");
    ASSERT_EQ(out.size(), silence.size());
    for (int16_t v : out) ASSERT_LE(std::abs(int(v)), 1) << "dither at most";

    // 0.3 s of tone: no 400 ms gating block, so no gain.
    const std::vector<int16_t> tone = wvtest::makeTone(48000, 1, 0.3, 440.0, 0.1);
    const std::vector<int16_t> toneOut = renderNormalised(tone, 48000, 1, -160, -10, "tone.wav");
    ASSERT_EQ(toneOut.size(), tone.size());
    for (size_t n = 0; n < tone.size(); ++n) ASSERT_LE(std::abs(int(toneOut[n]) - int(tone[n])), 1) << n;
}

TEST_F(NormalisedRenderTest, SwitchedOffItRendersByteForByteAsAPlainRender) {
    const std::vector<int16_t> source = programme(Kind::kMusic, -30.0, 44100, 2, 3.0);
    wv::SPcmInfo* item = addWavItem(source, 44100, 2);
    const uint32_t list = newList({{item, 0, uint32_t(source.size() / 2)}});
    const auto renderTo = [&](const std::string& name) {
        EXPECT_EQ(engine->setOutputPara(list, dir.file(name).c_str(), ENCODE_WAV), 0);
        EXPECT_EQ(render(list).code, int(wv::EVT_RENDER_DONE));
        EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
        recorder.clear();
        return wvtest::readFile(dir.file(name));
    };
    const std::vector<char> plain = renderTo("plain.wav");
    ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
    EXPECT_NE(renderTo("normalised.wav"), plain);
    ASSERT_EQ(engine->setListLoudness(list, 0, 12345), 0) << "off ignores the ceiling";
    EXPECT_EQ(renderTo("off.wav"), plain);
    EXPECT_EQ(wvtest::readFile(dir.file("off.wav.wave")), wvtest::readFile(dir.file("plain.wav.wave")));
}

TEST_F(NormalisedRenderTest, AResultSaysHowLoudTheRenderCameOutAndWhatHeldItBack) {
    struct Case {
        const char* name;
        Kind kind;
        double sourceLufs;
        int target, ceiling;  // tenths
        int32_t reason;
    };
    const Case cases[] = {
        {"met", Kind::kSpeech, -36.0, -160, -10, WV_LOUDNESS_MET},
        {"+49.5 dB asked, +40 allowed", Kind::kMusic, -58.5, -90, -10, WV_LOUDNESS_GAIN_LIMIT},
        {"-5 LUFS under a -12 dBTP ceiling", Kind::kMusic, -30.0, -50, -120, WV_LOUDNESS_PEAK_CEILING},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::vector<int16_t> source = programme(c.kind, c.sourceLufs, 44100, 2, 8.0);
        renderNormalised(source, 44100, 2, c.target, c.ceiling, "short.wav");
        int32_t reached = 0;
        EXPECT_EQ(engine->getListLoudnessResult(lastList, &reached), c.reason);
        // What another meter reads on the file.
        Figures theirs;
        if (!wvtest::ffmpegAvailable() || !ffmpegFigures(dir.file("short.wav"), dir.path(), &theirs)) {
            std::vector<int16_t> out;
            ASSERT_TRUE(wvtest::readWavSamples(dir.file("short.wav"), &out));
            theirs = libraryFigures(out, 44100, 2);
        }
        EXPECT_NEAR(reached / 10.0, theirs.integrated, 0.2);
        if (c.reason == WV_LOUDNESS_MET) {
            EXPECT_NEAR(theirs.integrated, c.target / 10.0, 0.5);
        } else {
            EXPECT_LT(theirs.integrated, c.target / 10.0 - 0.5);
        }
        if (c.reason == WV_LOUDNESS_GAIN_LIMIT) {
            EXPECT_NEAR(theirs.integrated, c.sourceLufs + 40.0, 0.3);
        }
    }

    const std::vector<int16_t> silence(44100 * 2 * 2, 0);
    renderNormalised(silence, 44100, 2, -160, -10, "silence.wav");
    int32_t reached = 0;
    EXPECT_EQ(engine->getListLoudnessResult(lastList, &reached), WV_LOUDNESS_NONE);
    EXPECT_EQ(reached, INT32_MIN);
    EXPECT_EQ(engine->getListLoudnessResult(lastList, nullptr), -4);

    // None before a normalised render has ended, none after a plain one.
    const uint32_t list = newList({{addWavItem(silence, 44100, 2), 0, 44100}});
    EXPECT_EQ(engine->getListLoudnessResult(list, &reached), -3);
    ASSERT_EQ(engine->setOutputPara(list, dir.file("plain.wav").c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(render(list).code, int(wv::EVT_RENDER_DONE));
    EXPECT_EQ(engine->getListLoudnessResult(list, &reached), -3);
    EXPECT_EQ(engine->getListLoudnessResult(9999, &reached), -1);
    wv::SPcmInfo* item = addPcmItem(std::vector<int16_t>(100, 0), 8000, 1);
    EXPECT_EQ(engine->getListLoudnessResult(item->id, &reached), -2);
}

TEST_F(NormalisedRenderTest, RefusesValuesOutOfRangeAndItemsThatAreNotLists) {
    const uint32_t list = newList({});
    for (int lufs : {-700, -50, -160}) EXPECT_EQ(engine->setListLoudness(list, lufs, -10), 0) << lufs;
    for (int peak : {-200, 0}) EXPECT_EQ(engine->setListLoudness(list, -230, peak), 0) << peak;
    for (int lufs : {-701, -49, 10, INT_MIN}) EXPECT_EQ(engine->setListLoudness(list, lufs, -10), -4) << lufs;
    for (int peak : {-201, 1, INT_MAX}) EXPECT_EQ(engine->setListLoudness(list, -160, peak), -4) << peak;
    EXPECT_EQ(engine->setListLoudness(9999, -160, -10), -1);
    wv::SPcmInfo* item = addPcmItem(std::vector<int16_t>(100, 0), 8000, 1);
    EXPECT_EQ(engine->setListLoudness(item->id, -160, -10), -2);
}

}  // namespace
}  // namespace rendertest

namespace rendertest {
namespace {

// The threads of this process.
int threadCount() {
    int count = 0;
    if (DIR* tasks = opendir("/proc/self/task")) {
        while (const dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.';
        closedir(tasks);
    }
    return count;
}

TEST_F(NormalisedRenderTest, MeasuredInPartsOnSeveralThreadsTheRenderComesOutAsOnOne) {
    // Music then speech, crossfaded, quiet enough that the limiter acts and
    // the check passes run too.
    const std::vector<int16_t> music = programme(Kind::kMusic, -34.0, 48000, 2, 24.0);
    const std::vector<int16_t> speech = programme(Kind::kSpeech, -40.0, 48000, 2, 18.0);
    wv::SPcmInfo* first = addWavItem(music, 48000, 2);
    wv::SPcmInfo* second = addWavItem(speech, 48000, 2);
    const uint32_t list = newList({{first, 0, uint32_t(music.size() / 2)}, {second, 0, uint32_t(speech.size() / 2)}});
    ASSERT_EQ(engine->setListCrossfade(int(list), 1000, WV_FADE_EQUAL_POWER), 0);
    ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
    std::vector<int16_t> outs[2];
    int32_t reached[2] = {0, 0};
    for (int threads : {1, 2}) {
        SCOPED_TRACE(threads);
        const std::string out = dir.file("threads" + std::to_string(threads) + ".wav");
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
        ASSERT_EQ(engine->setEncodeThreads(list, threads), 0);
        ASSERT_EQ(render(list).code, int(wv::EVT_RENDER_DONE));
        ASSERT_TRUE(waitUntil([&] { return encoderReleased(list); }));
        EXPECT_EQ(engine->getListLoudnessResult(list, &reached[threads - 1]), WV_LOUDNESS_MET);
        ASSERT_TRUE(wvtest::readWavSamples(out, &outs[threads - 1]));
        Figures theirs;
        if (wvtest::ffmpegAvailable()) {
            ASSERT_TRUE(ffmpegFigures(out, dir.path(), &theirs));
            EXPECT_NEAR(theirs.integrated, -16.0, 0.5);
            EXPECT_LE(theirs.truePeak, -1.0);
        }
        recorder.clear();
    }
    EXPECT_EQ(reached[1], reached[0]);
    // The gains found differ in their last digits at most: so do the samples.
    ASSERT_EQ(outs[1].size(), outs[0].size());
    int worst = 0;
    for (size_t n = 0; n < outs[0].size(); ++n) worst = std::max(worst, std::abs(outs[1][n] - outs[0][n]));
    EXPECT_LE(worst, 1);
}

TEST_F(NormalisedRenderTest, ListsMeasuredInOnePieceRenderTheBytesOfOneThreadOnAny) {
    const std::vector<int16_t> music = programme(Kind::kMusic, -30.0, 44100, 2, 12.0);
    wv::SPcmInfo* item = addWavItem(music, 44100, 2);
    const uint32_t converted = newList({{item, 0, uint32_t(music.size() / 2)}});
    ASSERT_EQ(engine->setEncodePara(int(converted), 48000, 0, 0, 0), 0);
    const uint32_t shortList = newList({{item, 44100, 44100 * 2}});
    for (uint32_t list : {converted, shortList}) {
        SCOPED_TRACE(list == converted ? "44.1 kHz rendered at 48 kHz" : "shorter than two parts");
        ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
        std::vector<char> bytes[2];
        for (int threads : {1, 2}) {
            const std::string out = dir.file("list" + std::to_string(list) + "-" + std::to_string(threads) + ".wav");
            ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
            ASSERT_EQ(engine->setEncodeThreads(list, threads), 0);
            ASSERT_EQ(render(list).code, int(wv::EVT_RENDER_DONE));
            ASSERT_TRUE(waitUntil([&] { return encoderReleased(list); }));
            bytes[threads - 1] = wvtest::readFile(out);
            recorder.clear();
        }
        ASSERT_GT(bytes[0].size(), 44u);
        EXPECT_TRUE(bytes[1] == bytes[0]);
    }

    // A source still loading when the render starts: measured in one piece
    // as its data comes.
    std::vector<char> loaded[2];
    for (int threads : {1, 2}) {
        SCOPED_TRACE("a source still loading");
        wv::SPcmInfo* loading = addPcmItem(music, 44100, 2, wv::DECODING);
        loading->frames = 44100 * 3;
        const uint32_t list = newList({{loading, 0, uint32_t(music.size() / 2)}});
        const std::string out = dir.file("loading-" + std::to_string(threads) + ".wav");
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
        ASSERT_EQ(engine->setEncodeThreads(list, threads), 0);
        ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
        ASSERT_EQ(engine->process(list), 0);
        ASSERT_TRUE(waitUntil([&] {
            for (const Event& e : eventsOf(list)) {
                if (e.code == int(wv::EVT_RENDER_PROGRESS)) return true;
            }
            return false;
        }));
        loading->frames = uint32_t(music.size() / 2);
        loading->status = wv::PCM_READY;
        engine->jobContext()->dataArrived();
        ASSERT_EQ(waitForEnding(list).code, int(wv::EVT_RENDER_DONE));
        ASSERT_TRUE(waitUntil([&] { return encoderReleased(list); }));
        loaded[threads - 1] = wvtest::readFile(out);
    }
    EXPECT_EQ(loaded[0].size(), music.size() * 2 + 44);
    EXPECT_TRUE(loaded[1] == loaded[0]);
}

TEST_F(NormalisedRenderTest, CancelInTheMeasuringPartsStopsEveryWorker) {
    // Long enough that the cancel finds the parts being read.
    const std::vector<int16_t> source = patternSamples(48000 * 240, 2, 3);
    wv::SPcmInfo* item = addWavItem(source, 48000, 2);
    const uint32_t list = newList({{item, 0, uint32_t(source.size() / 2)}});
    const std::string out = dir.file("cancelled.wav");
    ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_WAV), 0);
    ASSERT_EQ(engine->setListLoudness(list, -160, -10), 0);
    ASSERT_EQ(engine->setEncodeThreads(list, 4), 0);
    const std::set<std::string> before = wvtest::namesIn(dir.path());
    const int threads = threadCount();
    ASSERT_EQ(engine->process(list), 0);
    ASSERT_TRUE(waitUntil([&] {
        for (const Event& e : eventsOf(list)) {
            if (e.code == int(wv::EVT_RENDER_PROGRESS)) return true;
        }
        return false;
    }));
    EXPECT_GT(threadCount(), threads) << "the workers run";
    ASSERT_EQ(engine->cancelProcess(list), 0);
    EXPECT_EQ(waitForEnding(list).code, int(wv::EVT_RENDER_CANCELLED));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(list); }));
    EXPECT_EQ(threadCount(), threads) << "no worker outlives its render";
    EXPECT_EQ(wvtest::namesIn(dir.path()), before) << "no output, no .wave, no .part file";
    for (const Event& e : eventsOf(list)) {
        if (e.code == int(wv::EVT_RENDER_PROGRESS)) {
            EXPECT_LT(e.value, 25);
        }
    }
}

}  // namespace
}  // namespace rendertest
