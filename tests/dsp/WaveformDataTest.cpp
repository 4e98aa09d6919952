#include "dsp/WaveformData.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include <wavoryx/dsp.h>

#include "TestSupport.h"
#include "engine/WavoryxPriv.h"
#include "items/PcmInfoReader.h"

namespace {

using namespace wv;

std::vector<uint8_t> points(WaveformState& state, const std::vector<int16_t>& samples, uint32_t chunk) {
    std::vector<uint8_t> out;
    for (size_t at = 0; at < samples.size(); at += chunk) {
        const int16_t* data = samples.data() + at;
        uint32_t bytes = static_cast<uint32_t>(std::min<size_t>(chunk, samples.size() - at) * 2);
        uint8_t point;
        while (bytes > 0) {
            if (addWaveformSamples(&state, &data, &bytes, &point) == 1) out.push_back(point);
        }
    }
    return out;
}

TEST(WaveformState, PointEvery20MsWithDecayAndFlickerWrittenToTheFile) {
    wvtest::TempDir dir;
    WaveformState state(44100, 2);
    openWaveformFile(&state, dir.file("out.wav.wave").c_str());
    // Full scale for 3 points, then silence: 255, flicker, flicker, then
    // falling by 15 % per point.
    std::vector<int16_t> samples(1764 * 3, 0);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = (i % 2) ? 32767 : -32768;
    samples.resize(1764 * 7, 0);
    const auto out = points(state, samples, 1000);  // blocks that split points
    ASSERT_EQ(out.size(), 7u);
    EXPECT_EQ(out[0], 255);
    for (int i = 1; i < 3; ++i) {
        EXPECT_GE(out[i], 246);
        EXPECT_LE(out[i], 255);
    }
    EXPECT_EQ(std::vector<uint8_t>(out.begin() + 3, out.end()), (std::vector<uint8_t>{216, 183, 155, 131}));
    EXPECT_EQ(state.samplesSeen, 1764u * 7);

    WaveformState quiet(44100, 2);
    std::vector<int16_t> one(1763, 100);
    EXPECT_TRUE(points(quiet, one, 2000).empty());  // not quite a point yet
    EXPECT_EQ(points(quiet, {-16384}, 1), (std::vector<uint8_t>{127}));

    const auto file = wvtest::readFile(dir.file("out.wav.wave"));
    ASSERT_EQ(file.size(), 7u);
    EXPECT_EQ(static_cast<uint8_t>(file[3]), 216);

    wvtest::LogCapture log;
    WaveformState broken(8000, 1);
    openWaveformFile(&broken, dir.file("missing/x.wave").c_str());
    EXPECT_LT(broken.fd, 0);
    EXPECT_EQ(points(broken, std::vector<int16_t>(160, 8000), 160).size(), 1u);  // computed, not stored
    EXPECT_EQ(log.lines().size(), 1u);
}

// The reduction written out plainly, as a reference.
std::vector<uint8_t> naiveReduce(const std::vector<int16_t>& s, uint32_t count) {
    std::vector<uint8_t> out(count, 0);
    const uint64_t n = s.size();
    uint64_t acc = count, j = 0;
    uint32_t peak = 0;
    for (uint64_t i = 0; i < n; ++i) {
        peak = std::max<uint32_t>(peak, static_cast<uint32_t>(std::abs(int32_t(s[i]))));
        bool wrote = false;
        while (acc >= (j + 1) * n) {
            out[j++] = static_cast<uint8_t>(std::min<uint32_t>(peak >> 6, 255));
            wrote = true;
        }
        if (wrote) peak = 0;
        acc += count;
    }
    return out;
}

TEST(WaveformReducer, MatchesThePlainReductionInAnyPieces) {
    std::vector<int16_t> s(1000);
    for (size_t i = 0; i < s.size(); ++i) s[i] = static_cast<int16_t>((i * 7919) % 65536 - 32768);
    for (uint32_t count : {1u, 7u, 100u, 999u, 1000u, 2500u}) {
        std::vector<uint8_t> whole(count);
        Pcm16toWaveform8(s.data(), static_cast<uint32_t>(s.size() * 2), whole.data(), count);
        EXPECT_EQ(whole, naiveReduce(s, count)) << count;
        std::vector<uint8_t> pieces(count);
        WaveformReducer reducer(pieces.data(), count, s.size());
        reducer.feed(s.data(), 333);
        reducer.feed(s.data() + 333, 1);
        reducer.feed(s.data() + 334, 666);
        EXPECT_EQ(pieces, whole) << count;
    }
    int16_t loud[4] = {-32768, 20000, 16383, 64};
    uint8_t out[4];
    Pcm16toWaveform8(loud, sizeof loud, out, 4);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 4), (std::vector<uint8_t>{255, 255, 255, 1}));
}

class WaveformSamplesTest : public ::testing::Test {
protected:
    SPcmInfo* pcmItem(int rate, int channels, uint32_t frames) {
        std::vector<int16_t> samples(size_t(frames) * channels);
        for (size_t i = 0; i < samples.size(); ++i)
            samples[i] = static_cast<int16_t>((i * 37) % 30000 - 15000 + i / 50);
        const int list = engine.newClipList();  // an id to borrow; made a file item below
        SPcmInfo* item = engine.getPcmInfo(list, REF_NONE);
        item->clipList.reset();
        item->status = PCM_READY;
        item->sampleRate = rate;
        item->channelCount = channels;
        item->frames = frames;
        item->totalFrames = frames;
        const std::string path = dir.file(std::to_string(list) + ".pcm");
        wvtest::writeFile(path, samples.data(), samples.size() * 2);
        item->pcmPath.set(path);
        return item;
    }
    // What one read of the whole range into one buffer gives.
    std::vector<uint8_t> oneBlock(SPcmInfo* item, uint32_t start, uint32_t end, uint32_t count) {
        PcmInfoReader reader(item);
        reader.setOutputFormat(item->sampleRate, 2);
        reader.setPosition(start, end);
        std::vector<char> block(size_t(end - start) * 4);
        reader.read(block.data(), static_cast<uint32_t>(block.size()));
        std::vector<uint8_t> out(count);
        Pcm16toWaveform8(reinterpret_cast<int16_t*>(block.data()), static_cast<uint32_t>(block.size()), out.data(),
                         count);
        return out;
    }
    wvtest::TempDir dir;
    WavoryxPriv engine;
};

TEST_F(WaveformSamplesTest, ItemsAndListsGiveTheOneBlockPoints) {
    SPcmInfo* mono = pcmItem(44100, 1, 100000);
    std::vector<uint8_t> out(100);
    EXPECT_EQ(engine.getWaveformSamples(mono->id, 0, 1000, 100, out.data()), 100);
    EXPECT_EQ(out, oneBlock(mono, 0, 44100, 100));
    // Past the end: cut at the length, its last partial millisecond
    // (frames 99960 to 99999) included.
    EXPECT_EQ(engine.getWaveformSamples(mono->id, 500, 5000, 100, out.data()), 100);
    EXPECT_EQ(out, oneBlock(mono, 22050, 100000, 100));

    // Three clips of a list, longer than one block: the one-block read
    // stops fetching clips once half its buffer is filled.
    SPcmInfo* stereo = pcmItem(8000, 2, 40000);
    const int list = engine.newClipList();
    engine.addClip(list, stereo->id, 0, 9000);
    engine.addClip(list, mono->id, 0, 16000);  // 44100 Hz: resampled
    engine.addClip(list, stereo->id, 20000, 30000);
    engine.setEncodePara(list, 16000, 0, 2, 0);
    SPcmInfo* clips = engine.getPcmInfo(list, REF_NONE);
    uint32_t ms = 4000;
    const uint32_t end = clips->duration2frame(ms, 0, 0);
    std::vector<uint8_t> listPoints(300);
    EXPECT_EQ(engine.getWaveformSamples(list, 0, 4000, 300, listPoints.data()), 300);
    const auto expected = oneBlock(clips, 0, end, 300);
    EXPECT_EQ(listPoints, expected);
    EXPECT_EQ(expected.back(), 0);  // the single read stopped fetching clips past half its buffer
}

TEST_F(WaveformSamplesTest, Refusals) {
    wvtest::LogCapture log;
    uint8_t out[4];
    EXPECT_EQ(engine.getWaveformSamples(99, 0, 10, 4, out), -1);
    EXPECT_TRUE(log.contains(
        "line 568 in int32_t WavoryxPriv::getWaveformSamples(pcm_id_t, duration_t, duration_t, uint32_t, void*):"));
    EXPECT_TRUE(log.contains("error: pcm 99 doesn't exist"));
    SPcmInfo* item = pcmItem(8000, 1, 800);
    EXPECT_EQ(engine.getWaveformSamples(item->id, 50, 50, 4, out), -4);
    EXPECT_EQ(engine.getWaveformSamples(item->id, 0, 50, 0, out), -4);
    EXPECT_EQ(engine.getWaveformSamples(item->id, 60, 50, 4, out), -4);
}

}  // namespace
