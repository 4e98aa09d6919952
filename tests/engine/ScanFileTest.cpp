// scanFile against the item-based operations on a loadFile of the same
// file: the same frames, the same peaks bin for bin (all channels, one
// channel, the channels' mean), the same loudness; nothing in the working
// directory; cancel, refusals and errors.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "EventRecorder.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"

namespace {

using namespace wvtest;

class ScanFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(work.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override { engine.stopThreadLoop(); }

    // Waits for the item's load or scan to end; its ending event's code.
    int ending(int id) {
        int code = -1;
        recorder.waitFor([&](const std::vector<wvtest::Event>& events) {
            for (const wvtest::Event& e : events) {
                if (e.id == id && (e.code == 4 || e.code == 0 || e.code == 5 || e.code == 7)) code = e.code;
            }
            return code >= 0;
        });
        return code;
    }
    // Waits for a measurement's last event (28, or 20/23).
    bool measured(int id) {
        return recorder.waitFor([&](const std::vector<wvtest::Event>& events) {
            for (const wvtest::Event& e : events) {
                if (e.id == id && (e.code == 28 || e.code == 20 || e.code == 23)) return true;
            }
            return false;
        });
    }
    int32_t eventValue(int id, int code) {
        for (const wvtest::Event& e : recorder.events()) {
            if (e.id == id && e.code == code) return e.value;
        }
        return -1;
    }

    wvtest::EventRecorder recorder;
    wvtest::TempDir files;
    wvtest::TempDir work;
    Wavoryx engine;
};

// A stereo file whose channels differ, as an MP3 when ffmpeg is there
// (decoded, so its frames are the codec's), else as a 16-bit WAV.
std::string makeSource(const wvtest::TempDir& dir) {
    std::vector<int16_t> samples;
    const std::vector<int16_t> left = makeTone(44100, 1, 3.3, 440, 0.7);
    const std::vector<int16_t> right = makeTone(44100, 1, 3.3, 97, 0.2);
    for (size_t i = 0; i < left.size(); ++i) {
        samples.push_back(left[i]);
        samples.push_back(int16_t(right[i] + (i / 1000 % 3) * 300));
    }
    const std::string wav = dir.file("a.wav");
    writeWav(wav, samples, 44100, 2);
    if (!ffmpegAvailable()) return wav;
    const std::string mp3 = dir.file("a.mp3");
    return encodeWithFfmpeg(wav, mp3) ? mp3 : wav;
}

TEST_F(ScanFileTest, GivesTheLoadsFramesPeaksAndLoudnessAndWritesNothing) {
    const std::string path = makeSource(files);
    const int loaded = engine.loadFile(path.c_str());
    ASSERT_EQ(ending(loaded), 4);
    const int32_t frames = engine.getPcmFrameLength(loaded);
    const int32_t rate = engine.getPcmSampleRate(loaded);
    ASSERT_GT(frames, 10000);
    // Bins as getWaveformPeaks makes them for ms ranges of the same frames.
    const uint32_t from = uint32_t(500) * uint32_t(rate) / 1000;
    const WvPeakSet sets[] = {{0, uint32_t(frames), 333, WV_PEAKS_ALL_CHANNELS},
                              {from, uint32_t(frames) - from, 77, WV_PEAKS_ALL_CHANNELS},
                              {0, uint32_t(frames), 1000, 0},
                              {0, uint32_t(frames), 1000, 1},
                              {0, uint32_t(frames), 1000, WV_PEAKS_CHANNEL_MEAN},
                              {0, 100, 500, WV_PEAKS_ALL_CHANNELS}};
    const int scanned = engine.scanFile(path.c_str(), sets, 6, 1);
    ASSERT_GT(scanned, 0);
    int16_t early[2];
    EXPECT_EQ(engine.getScanPeaks(scanned, 0, early, 1), -4);  // not the set's count
    ASSERT_EQ(ending(scanned), 4);
    EXPECT_EQ(engine.getPcmFrameLength(scanned), frames);
    EXPECT_EQ(engine.getPcmSampleRate(scanned), rate);
    EXPECT_EQ(eventValue(scanned, 6), -1);
    EXPECT_EQ(namesIn(work.path()).count(std::to_string(scanned) + ".pcm"), 0u);

    std::vector<int16_t> got(2 * 1000), want(2 * 1000);
    ASSERT_EQ(engine.getScanPeaks(scanned, 0, got.data(), 333), 333);
    ASSERT_EQ(engine.getWaveformPeaks(loaded, 0, UINT_MAX, 333, want.data()), 333);
    EXPECT_EQ(std::vector<int16_t>(got.begin(), got.begin() + 666), std::vector<int16_t>(want.begin(), want.begin() + 666));
    ASSERT_EQ(engine.getScanPeaks(scanned, 1, got.data(), 77), 77);
    ASSERT_EQ(engine.getWaveformPeaks(loaded, 500, UINT_MAX, 77, want.data()), 77);
    EXPECT_EQ(std::vector<int16_t>(got.begin(), got.begin() + 154), std::vector<int16_t>(want.begin(), want.begin() + 154));

    // One channel, and the mean, against the frames the load holds,
    // rendered to a WAV through a list (which reads byte for byte as its clip).
    const int list = engine.newClipList();
    engine.addClip(list, loaded, 0, uint32_t(frames));
    const std::string out = files.file("out.wav");
    engine.setOutputPara(list, out.c_str(), ENCODE_WAV);
    engine.process(list);
    ASSERT_TRUE(recorder.waitForCode(22, list));
    std::vector<int16_t> pcm;
    ASSERT_TRUE(readWavSamples(out, &pcm));
    ASSERT_EQ(pcm.size(), size_t(frames) * 2);
    for (int set = 2; set < 5; ++set) {
        ASSERT_EQ(engine.getScanPeaks(scanned, unsigned(set), got.data(), 1000), 1000);
        for (uint64_t bin = 0; bin < 1000; ++bin) {
            int lowest = INT_MAX, highest = INT_MIN;
            for (uint64_t f = bin * uint64_t(frames) / 1000; f < (bin + 1) * uint64_t(frames) / 1000; ++f) {
                const int v = set == 4 ? (pcm[2 * f] + pcm[2 * f + 1]) / 2 : pcm[2 * f + size_t(set - 2)];
                lowest = std::min(lowest, v);
                highest = std::max(highest, v);
            }
            ASSERT_EQ(got[2 * bin], lowest) << "set " << set << " bin " << bin;
            ASSERT_EQ(got[2 * bin + 1], highest) << "set " << set << " bin " << bin;
        }
    }
    // 100 frames in 500 bins: the bins without a frame are (0, 0).
    ASSERT_EQ(engine.getScanPeaks(scanned, 5, got.data(), 500), 500);
    int empty = 0;
    for (int bin = 0; bin < 500; ++bin) empty += got[2 * bin] == 0 && got[2 * bin + 1] == 0;
    EXPECT_EQ(empty, 400);

    ASSERT_EQ(engine.measureLoudness(loaded), 0);
    ASSERT_TRUE(measured(loaded));
    int32_t integrated = 0, range = 0, peak = 0;
    ASSERT_EQ(engine.getScanLoudness(scanned, &integrated, &range, &peak), 0);
    EXPECT_EQ(integrated, eventValue(loaded, 26));
    EXPECT_EQ(peak, eventValue(loaded, 27));
    EXPECT_EQ(range, eventValue(loaded, 28));

    // The scan's item holds no audio: nothing reads it (its playback
    // decodes the file: DirectPlayTest).
    int16_t pair[2];
    EXPECT_EQ(engine.getWaveformPeaks(scanned, 0, 100, 1, pair), -2);
    EXPECT_EQ(engine.addClip(list, scanned, 0, 10), -2);
    EXPECT_EQ(engine.measureLoudness(scanned), -2);
    EXPECT_EQ(engine.getScanPeaks(loaded, 0, pair, 1), -2);
    EXPECT_EQ(engine.getScanLoudness(loaded, &integrated, &range, &peak), -2);
    EXPECT_EQ(engine.getScanPeaks(scanned, 6, pair, 1), -4);
    EXPECT_EQ(engine.getScanPeaks(999, 0, pair, 1), -1);
}

TEST_F(ScanFileTest, MeasuresAFileOfSixChannelsOnItsOwnChannels) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg to make a 5.1 file";
    const std::string path = files.file("six.flac");
    ASSERT_TRUE(runFfmpeg("-f lavfi -i " + shellQuote("sine=f=300:d=3") + " -af " +
                          shellQuote("pan=5.1|FL=c0|FR=0.5*c0|FC=0.3*c0|LFE=c0|BL=0.7*c0|BR=0.2*c0") + " " +
                          shellQuote(path)));
    const int loaded = engine.loadFile(path.c_str());
    ASSERT_EQ(ending(loaded), 4);
    ASSERT_EQ(engine.measureLoudness(loaded), 0);
    ASSERT_TRUE(measured(loaded));
    const int scanned = engine.scanFile(path.c_str(), nullptr, 0, 1);
    ASSERT_EQ(ending(scanned), 4);
    int32_t integrated = 0, range = 0, peak = 0;
    ASSERT_EQ(engine.getScanLoudness(scanned, &integrated, &range, &peak), 0);
    EXPECT_EQ(integrated, eventValue(loaded, 26));
    EXPECT_EQ(peak, eventValue(loaded, 27));
    EXPECT_EQ(range, eventValue(loaded, 28));
}

TEST_F(ScanFileTest, NeedsNoRoomInTheWorkingDirectory) {
    wvtest::SmallFilesystem small(64 * 1024);
    if (!small.mounted()) GTEST_SKIP() << small.skipReason();
    const std::string path = makeSource(files);
    engine.setWorkingDir(small.prefix().c_str());
    const int loaded = engine.loadFile(path.c_str());
    EXPECT_NE(ending(loaded), 4);  // 1.1 MB decoded does not fit in 64 KB
    const WvPeakSet set{0, 1000, 10, WV_PEAKS_ALL_CHANNELS};
    const int scanned = engine.scanFile(path.c_str(), &set, 1, 1);
    ASSERT_EQ(ending(scanned), 4);
    EXPECT_GT(engine.getPcmFrameLength(scanned), 100000);
    int32_t integrated = 0, range = 0, peak = 0;
    EXPECT_EQ(engine.getScanLoudness(scanned, &integrated, &range, &peak), 0);
    EXPECT_TRUE(namesIn(small.path()).empty());
}

TEST_F(ScanFileTest, CancelsRefusesAndFails) {
    const std::string path = makeSource(files);
    WvPeakSet bad{0, 0, 10, WV_PEAKS_ALL_CHANNELS};
    EXPECT_EQ(engine.scanFile(path.c_str(), &bad, 1, 0), -4);
    bad = {0, 10, 0, WV_PEAKS_ALL_CHANNELS};
    EXPECT_EQ(engine.scanFile(path.c_str(), &bad, 1, 0), -4);
    bad = {0, 10, 10, 2};
    EXPECT_EQ(engine.scanFile(path.c_str(), &bad, 1, 0), -4);
    bad = {UINT32_MAX - 5, 10, 10, 0};
    EXPECT_EQ(engine.scanFile(path.c_str(), &bad, 1, 0), -4);
    EXPECT_EQ(engine.scanFile(path.c_str(), nullptr, 1, 0), -4);

    const int missing = engine.scanFile(files.file("none.mp3").c_str(), nullptr, 0, 1);
    ASSERT_EQ(ending(missing), 0);
    EXPECT_EQ(eventValue(missing, 0), 2);
    int32_t integrated = 0, range = 0, peak = 0;
    EXPECT_EQ(engine.getScanLoudness(missing, &integrated, &range, &peak), -3);

    // Cancelled before it starts: event 5, and no results.
    engine.setThreadPriority(WV_PRIORITY_LOW);
    const int blocker = engine.loadFile(path.c_str());
    const int cancelled = engine.scanFile(path.c_str(), nullptr, 0, 1);
    EXPECT_EQ(engine.cancelLoadFile(cancelled), 0);
    ASSERT_EQ(ending(cancelled), 5);
    EXPECT_EQ(engine.getScanLoudness(cancelled, &integrated, &range, &peak), -3);
    EXPECT_EQ(engine.getScanLoudness(cancelled, nullptr, &range, &peak), -4);
    ending(blocker);
    EXPECT_EQ(engine.removePcm(cancelled), cancelled);
}

}  // namespace
