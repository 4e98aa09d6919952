// Silence scans (scanSilence, getSilences): exact intervals on signals sox
// builds with known gaps, agreement with ffmpeg's silencedetect on tones
// and speech, the edge cases of the rule, lists, and the job's waits,
// failures and cancel. The finder alone is checked fed in pieces.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "RenderFixture.h"
#include "dsp/SilenceFinder.h"

namespace rendertest {
namespace {

using Intervals = std::vector<std::pair<uint32_t, uint32_t>>;

bool run(const std::string& command) { return std::system(command.c_str()) == 0; }
bool haveSox() { return run("sox --version >/dev/null 2>&1"); }

// A constant level of `dbfs` (a square wave never passes through zero, so
// its every frame is loud), or digital silence for dbfs <= -200.
std::vector<int16_t> level(uint32_t frames, int channels, double dbfs) {
    const int16_t v = dbfs <= -200 ? 0 : int16_t(std::lround(32767.0 * std::pow(10.0, dbfs / 20.0)));
    std::vector<int16_t> out(size_t(frames) * channels);
    for (size_t k = 0; k < out.size(); ++k) out[k] = (k / channels) % 2 ? v : int16_t(-v);
    return out;
}

void append(std::vector<int16_t>& to, const std::vector<int16_t>& more) {
    to.insert(to.end(), more.begin(), more.end());
}

Intervals find(const std::vector<int16_t>& samples, int channels, double db, uint32_t minFrames, size_t piece) {
    wv::SilenceFinder finder(db, minFrames);
    const size_t frames = samples.size() / channels;
    for (size_t at = 0; at < frames; at += piece) {
        const size_t n = std::min(piece, frames - at);
        finder.feed(samples.data() + at * channels, uint32_t(n), uint32_t(channels));
    }
    finder.finish();
    return finder.silences();
}

// ffmpeg's silencedetect of `path`, as seconds; false when it cannot run.
bool ffmpegSilences(const std::string& path, const std::string& scratch, const std::string& args,
                    std::vector<std::pair<double, double>>* out) {
    const std::string log = scratch + "/silencedetect.log";
    if (!run("ffmpeg -nostdin -hide_banner -nostats -i " + wvtest::shellQuote(path) + " -af silencedetect=" + args +
             " -f null - 2>" + wvtest::shellQuote(log))) {
        return false;
    }
    const std::vector<char> bytes = wvtest::readFile(log);
    const std::string text(bytes.begin(), bytes.end());
    size_t at = 0;
    double start = -1;
    while ((at = text.find("silence_", at)) != std::string::npos) {
        double value = 0;
        if (text.compare(at, 15, "silence_start: ") == 0 && std::sscanf(text.c_str() + at + 15, "%lf", &value) == 1) {
            start = value;
        } else if (text.compare(at, 13, "silence_end: ") == 0 &&
                   std::sscanf(text.c_str() + at + 13, "%lf", &value) == 1 && start >= 0) {
            out->emplace_back(start, value);
            start = -1;
        }
        at += 8;
    }
    // Older versions leave a silence that reaches the end open.
    if (start >= 0) out->emplace_back(start, -1.0);
    return true;
}

class SilenceScanTest : public RenderTest {
protected:
    // Scans the item and returns its silences, checking the ending event.
    Intervals scan(uint32_t id, int tenthsDb, unsigned minMs) {
        EXPECT_EQ(engine->scanSilence(int(id), tenthsDb, minMs), 0);
        recorder.waitFor(
            [id](const std::vector<Event>& events) {
                for (const Event& e : events) {
                    if (e.id == int(id) && (e.code == wv::EVT_SILENCES || isEnding(e.code))) return true;
                }
                return false;
            },
            std::chrono::seconds(60));
        EXPECT_EQ(engine->waitForJob(int(id), WV_JOB_RENDER, 30000, nullptr), int(wv::EVT_SILENCES));
        const int32_t count = engine->getSilences(id, nullptr, 0);
        EXPECT_GE(count, 0);
        std::vector<uint32_t> pairs(size_t(std::max(count, 0)) * 2 + 2);
        EXPECT_EQ(engine->getSilences(id, pairs.data(), uint32_t(count)), count);
        Intervals out;
        for (int32_t i = 0; i < count; ++i) out.emplace_back(pairs[2 * i], pairs[2 * i + 1]);
        for (const Event& e : eventsOf(id)) {
            if (e.code == wv::EVT_SILENCES) {
                EXPECT_EQ(e.value, count);
            }
        }
        recorder.clear();
        return out;
    }
    uint32_t load(const std::string& path) {
        const int32_t id = engine->loadFile(path.c_str());
        EXPECT_GT(id, 0);
        return uint32_t(id);
    }
    // Our intervals (frames at `rate`) and ffmpeg's agree within 10 ms each.
    void expectLikeFfmpeg(const std::string& path, const Intervals& ours, int rate, const std::string& args) {
        std::vector<std::pair<double, double>> theirs;
        ASSERT_TRUE(ffmpegSilences(path, dir.path(), args, &theirs)) << path;
        ASSERT_EQ(ours.size(), theirs.size()) << path;
        for (size_t i = 0; i < ours.size(); ++i) {
            EXPECT_NEAR(double(ours[i].first) / rate, theirs[i].first, 0.010) << path << " silence " << i;
            if (theirs[i].second >= 0) {
                EXPECT_NEAR(double(ours[i].second) / rate, theirs[i].second, 0.010) << path << " silence " << i;
            }
        }
    }
};

TEST(SilenceFinderTest, RunsAreExactWhateverThePiecesAndChannels) {
    // loud 1000, quiet 3000, loud 10, quiet 999 (too short at 1000), loud 5, quiet 2000 to the end
    for (int channels : {1, 2}) {
        std::vector<int16_t> s = level(1000, channels, -6);
        append(s, level(3000, channels, -70));
        append(s, level(10, channels, -20));
        append(s, level(999, channels, -200));
        append(s, level(5, channels, -20));
        append(s, level(2000, channels, -51));
        const Intervals expected = {{1000, 4000}, {5014, 7014}};
        for (size_t piece : {size_t(1), size_t(7), size_t(4096), size_t(100000)}) {
            EXPECT_EQ(find(s, channels, -50, 1000, piece), expected) << channels << " channels, pieces " << piece;
        }
        // The shortest run is inclusive: 999 frames are a silence at 999.
        EXPECT_EQ(find(s, channels, -50, 999, 512).size(), 3u);
    }
}

TEST(SilenceFinderTest, EdgeCasesOfTheRule) {
    // All silence: one interval over everything; none: nothing.
    EXPECT_EQ(find(level(5000, 2, -200), 2, -50, 100, 333), (Intervals{{0, 5000}}));
    EXPECT_EQ(find(level(5000, 2, -10), 2, -50, 1, 333), Intervals{});
    // Empty input.
    EXPECT_EQ(find({}, 2, -50, 1, 10), Intervals{});
    // A frame is loud when any channel is: the left channel quiet alone is no silence.
    std::vector<int16_t> oneSide = level(3000, 2, -80);
    for (size_t k = 1000; k < 2000; ++k) oneSide[2 * k + 1] = 5000;
    EXPECT_EQ(find(oneSide, 2, -50, 500, 256), (Intervals{{0, 1000}, {2000, 3000}}));
    // The threshold is strict: |s| = 32768 x 10^(-50/20) = 103.6, 103 quiet, 104 loud.
    EXPECT_EQ(find(std::vector<int16_t>(100, 103), 1, -50, 1, 9), (Intervals{{0, 100}}));
    EXPECT_EQ(find(std::vector<int16_t>(100, -104), 1, -50, 1, 9), Intervals{});
    // 0 dBFS: everything but -32768 is quiet.
    std::vector<int16_t> full(100, 32767);
    full[40] = -32768;
    EXPECT_EQ(find(full, 1, 0, 1, 13), (Intervals{{0, 40}, {41, 100}}));
    // Very low thresholds: only digital zero is quiet.
    EXPECT_EQ(find(std::vector<int16_t>(50, 1), 1, -120, 1, 7), Intervals{});
    EXPECT_EQ(find(std::vector<int16_t>(50, 0), 1, -120, 1, 7), (Intervals{{0, 50}}));
}

TEST_F(SilenceScanTest, SoxTonesWithKnownGapsGiveExactIntervals) {
    if (!haveSox()) GTEST_SKIP() << "sox missing";
    // 1.5 s square, 2 s silence, 1 s square, 0.5 s silence (under the
    // minimum), 1 s square at -40 dB, 1.25 s silence to the end.
    const std::string path = dir.file("gaps.wav");
    const std::string tone = "sox -V1 -n -r 44100 -c 2 -b 16 -p synth ";
    ASSERT_TRUE(run("sox -R \"|" + tone + "1.5 square 300 gain -6\" \"|" + tone + "2 sine 300 gain -200\" \"|" + tone +
                    "1 square 300 gain -6\" \"|" + tone + "0.5 sine 300 gain -200\" \"|" + tone +
                    "1 square 300 gain -40\" \"|" + tone + "1.25 sine 300 gain -200\" " + wvtest::shellQuote(path)));
    const uint32_t id = load(path);
    const Intervals silences = scan(id, -500, 1000);
    const Intervals expected = {{66150, 154350}, {264600, 319725}};
    EXPECT_EQ(silences, expected);
    expectLikeFfmpeg(path, silences, 44100, "n=-50dB:d=1");
    // At -30 dBFS the -40 dB tone is quiet too, and joins the gaps around it.
    EXPECT_EQ(scan(id, -300, 1000), (Intervals{{66150, 154350}, {198450, 319725}}));
    // A shorter minimum finds the half second.
    EXPECT_EQ(scan(id, -500, 400).size(), 3u);
    // Silence shorter than the minimum: nothing at 3 s.
    EXPECT_EQ(scan(id, -500, 3000), Intervals{});
    // 0 dBFS: all of it.
    EXPECT_EQ(scan(id, 0, 1000), (Intervals{{0, 319725}}));
}

TEST_F(SilenceScanTest, AFileScanFindsTheSameSilencesAndKeepsNoAudio) {
    if (!haveSox()) GTEST_SKIP() << "sox missing";
    const std::string path = dir.file("gaps.flac");
    const std::string tone = "sox -V1 -n -r 44100 -c 2 -b 16 -p synth ";
    ASSERT_TRUE(run("sox -R \"|" + tone + "0.7 sine 300 gain -200\" \"|" + tone + "1.5 square 300 gain -6\" \"|" +
                    tone + "2 sine 300 gain -200\" \"|" + tone + "1 square 300 gain -6\" " + wvtest::shellQuote(path)));
    const int32_t id = engine->scanFileSilence(path.c_str(), -500, 500);
    ASSERT_GT(id, 0);
    EXPECT_EQ(engine->waitForJob(id, WV_JOB_LOAD, 30000, nullptr), int(wv::EVT_LOAD_DONE));
    std::vector<uint32_t> pairs(4);
    ASSERT_EQ(engine->getSilences(id, pairs.data(), 2), 2);
    EXPECT_EQ(pairs, (std::vector<uint32_t>{0, 30870, 97020, 185220}));
    uint32_t frames = 0;
    EXPECT_EQ(engine->getSilenceScanFrames(id, &frames), 44100);
    EXPECT_EQ(frames, 229320u);
    EXPECT_EQ(wvtest::namesIn(dir.path()).count(std::to_string(id) + ".pcm"), 0u) << "a scan writes no audio";
    // The same as a silence scan of the loaded file.
    const uint32_t loaded = load(path);
    EXPECT_EQ(scan(loaded, -500, 500), (Intervals{{0, 30870}, {97020, 185220}}));
    // Arguments out of range register nothing.
    EXPECT_EQ(engine->scanFileSilence(path.c_str(), 10, 500), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->scanFileSilence(path.c_str(), -500, 86400001u), WV_ERR_OUT_OF_RANGE);
    // A file that is not audio: event 0, and nothing to read.
    const std::string text = dir.file("notes.txt");
    wvtest::writeFile(text, "hello", 5);
    const int32_t bad = engine->scanFileSilence(text.c_str(), -500, 500);
    EXPECT_EQ(engine->waitForJob(bad, WV_JOB_LOAD, 30000, nullptr), int(wv::EVT_LOAD_FAILED));
    EXPECT_EQ(engine->getSilences(bad, nullptr, 0), WV_ERR_DURATION_UNKNOWN);
}

TEST_F(SilenceScanTest, AgreesWithFfmpegOnSpeechAndOnAnMp3) {
    if (!haveSox() || !wvtest::ffmpegAvailable() || !run("espeak-ng --version >/dev/null 2>&1")) {
        GTEST_SKIP() << "sox, ffmpeg or espeak-ng missing";
    }
    const std::string words = dir.file("words.wav");
    const std::string speech = dir.file("speech.wav");
    ASSERT_TRUE(run("espeak-ng -w " + wvtest::shellQuote(words) +
                    " 'One small step. [[_:_:_:]] Then a pause, and then the rest of the sentence.' 2>/dev/null"));
    // Pauses of known length between the phrases, at 44.1 kHz stereo.
    ASSERT_TRUE(run("sox " + wvtest::shellQuote(words) + " -r 44100 -c 2 -b 16 " + wvtest::shellQuote(speech) +
                    " pad 0.7 1.6 repeat 1"));
    const uint32_t id = load(speech);
    const Intervals at50 = scan(id, -500, 500);
    EXPECT_GE(at50.size(), 3u);
    expectLikeFfmpeg(speech, at50, 44100, "n=-50dB:d=0.5");
    expectLikeFfmpeg(speech, scan(id, -350, 200), 44100, "n=-35dB:d=0.2");

    const std::string mp3 = dir.file("speech.mp3");
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(speech, mp3, "-c:a libmp3lame -b:a 128k"));
    const uint32_t mp3Id = load(mp3);
    expectLikeFfmpeg(mp3, scan(mp3Id, -500, 1000), 44100, "n=-50dB:d=1");
}

TEST_F(SilenceScanTest, ListsAreScannedAsTheirJoinedFramesAndLoadsAreFollowed) {
    std::vector<int16_t> a = level(48000, 2, -10);
    append(a, level(24000, 2, -200));
    std::vector<int16_t> b = level(12000, 2, -200);
    append(b, level(48000, 2, -10));
    wv::SPcmInfo* first = addPcmItem(a, 48000, 2);
    wv::SPcmInfo* second = addWavItem(b, 48000, 2);
    // The two quiet ends join into one silence of 36000 frames at 48000.
    const uint32_t list = newList({{first, 0, 72000}, {second, 0, 60000}});
    EXPECT_EQ(scan(list, -500, 700), (Intervals{{48000, 84000}}));
    EXPECT_EQ(scan(list, -500, 800), Intervals{});
    uint32_t scanned = 0;
    EXPECT_EQ(engine->getSilenceScanFrames(int(list), &scanned), 48000);
    EXPECT_EQ(scanned, 132000u) << "the list's whole length, at its rate";
    EXPECT_EQ(engine->getSilenceScanFrames(int(list), nullptr), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(first->frames.load(), 72000u) << "a scan writes nothing";

    // Half of an item present while it loads: the scan waits for the rest.
    wv::SPcmInfo* loading = addPcmItem(a, 48000, 2, wv::DECODING);
    loading->frames = 30000;
    ASSERT_EQ(engine->scanSilence(int(loading->id), -500, 100), 0);
    EXPECT_EQ(engine->getSilences(int(loading->id), nullptr, 0), WV_ERR_DURATION_UNKNOWN);
    loading->frames = 72000;
    loading->status = wv::PCM_READY;
    engine->jobContext()->dataArrived();
    EXPECT_EQ(engine->waitForJob(int(loading->id), WV_JOB_RENDER, 30000, nullptr), int(wv::EVT_SILENCES));
    uint32_t pair[2] = {};
    EXPECT_EQ(engine->getSilences(int(loading->id), pair, 1), 1);
    EXPECT_EQ(pair[0], 48000u);
    EXPECT_EQ(pair[1], 72000u);
}

TEST_F(SilenceScanTest, ArgumentsFailuresAndCancel) {
    wv::SPcmInfo* item = addPcmItem(level(48000, 1, -200), 48000, 1);
    const int id = int(item->id);
    EXPECT_EQ(engine->scanSilence(id, 1, 1000), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->scanSilence(id, -1201, 1000), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->scanSilence(id, -500, 86400001u), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine->scanSilence(999, -500, 1000), WV_ERR_NO_ITEM);
    EXPECT_EQ(engine->getSilences(999, nullptr, 0), WV_ERR_NO_ITEM);
    EXPECT_EQ(engine->getSilences(id, nullptr, 0), WV_ERR_DURATION_UNKNOWN) << "no scan yet";
    EXPECT_EQ(engine->getSilences(id, nullptr, 1), WV_ERR_OUT_OF_RANGE);
    // Fewer pairs asked than found: the count is the whole.
    EXPECT_EQ(scan(item->id, -500, 0).size(), 1u);
    uint32_t none[2] = {7, 7};
    EXPECT_EQ(engine->getSilences(id, none, 0), 1);
    EXPECT_EQ(none[0], 7u);

    // A source whose load failed: 20 (-1), and nothing to read.
    wv::SPcmInfo* failed = addPcmItem(level(4800, 1, -10), 48000, 1, wv::DECODING);
    failed->frames = 0;
    failed->loadFailed = true;
    ASSERT_EQ(engine->scanSilence(int(failed->id), -500, 100), 0);
    int32_t value = 0;
    EXPECT_EQ(engine->waitForJob(int(failed->id), WV_JOB_RENDER, 30000, &value), int(wv::EVT_RENDER_FAILED));
    EXPECT_EQ(value, -1);
    EXPECT_EQ(engine->getSilences(int(failed->id), nullptr, 0), WV_ERR_DURATION_UNKNOWN);
    uint32_t none2 = 0;
    EXPECT_EQ(engine->getSilenceScanFrames(int(failed->id), &none2), WV_ERR_DURATION_UNKNOWN);

    // Cancelled while it waits for data: 23.
    wv::SPcmInfo* waiting = addPcmItem(level(4800, 1, -10), 48000, 1, wv::DECODING);
    waiting->frames = 100;
    ASSERT_EQ(engine->scanSilence(int(waiting->id), -500, 100), 0);
    EXPECT_EQ(engine->cancelProcess(int(waiting->id)), 0);
    EXPECT_EQ(engine->waitForJob(int(waiting->id), WV_JOB_RENDER, 30000, nullptr), int(wv::EVT_RENDER_CANCELLED));
    EXPECT_TRUE(waitUntil([&] { return encoderReleased(waiting->id); }));
}

}  // namespace
}  // namespace rendertest
