// The measuring pass of a normalised render in parts on several threads
// (MeasureParts): the loudness and sample peak of the parts together against
// one meter fed the list from its start, on music- and speech-like lists and
// on lists of crossfaded clips with gains and fades, with several thread
// counts; every frame measured once; and the lists that are measured in one
// piece instead (other rates, noise reduction and tempo, nested lists,
// sources still loading, lists shorter than two parts, one thread).
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ProgrammeSignals.h"
#include "RenderFixture.h"
#include "dsp/LoudnessMeter.h"
#include "items/PcmInfoReader.h"
#include "render/MeasureParts.h"

namespace {

using rendertest::RenderTest;

struct Measure {
    double lufs = 0.0;
    float peak = 0.0f;
    uint64_t frames = 0;
    size_t parts = 0;  // 0: measured in one piece
};

constexpr uint32_t kBlockFrames = 4096;

class MeasureInParts : public RenderTest {
protected:
    wv::SPcmInfo* listItem(uint32_t list) { return engine->infoList().get(list, wv::REF_NONE); }
    wv::MeasureParts::Format format(int rate, int channels) const {
        return {rate, channels, wv::AudioResampler::resolve(wv::AudioResampler::SRC_DEFAULT)};
    }
    std::unique_ptr<wv::MeasureParts> partsOf(uint32_t list, int rate, int channels, int threads) {
        return wv::MeasureParts::create(listItem(list), format(rate, channels), threads, kBlockFrames, [] {});
    }

    // What the render's one-thread pass measures: the float stage read from
    // the start into one meter.
    Measure whole(uint32_t list, int rate, int channels) {
        wv::PcmInfoReader reader(listItem(list));
        reader.setOutputFormat(rate, channels);
        wv::LoudnessMeter meter(uint32_t(rate), uint32_t(channels), wv::MeterScope::kIntegrated);
        std::vector<float> block(size_t(kBlockFrames) * channels);
        Measure out;
        for (;;) {
            const int32_t n = reader.readFloat(block.data(), kBlockFrames);
            EXPECT_GE(n, 0);
            if (n <= 0 && reader.endState() != wv::PcmSource::MORE) break;
            for (size_t k = 0; k < size_t(n) * channels; ++k) out.peak = std::max(out.peak, std::fabs(block[k]));
            EXPECT_TRUE(meter.add(block.data(), size_t(n)));
            out.frames += uint64_t(n);
            if (reader.endState() == wv::PcmSource::END) break;
        }
        EXPECT_TRUE(meter.integrated(&out.lufs));
        return out;
    }

    // The same list in parts, this thread stepping as the render's does.
    Measure parted(uint32_t list, int rate, int channels, int threads) {
        std::unique_ptr<wv::MeasureParts> parts = partsOf(list, rate, channels, threads);
        Measure out;
        if (!parts) return out;
        std::vector<float> block(size_t(kBlockFrames) * channels);
        for (;;) {
            const wv::MeasureParts::State state = parts->step(block.data());
            if (state == wv::MeasureParts::kDone) break;
            EXPECT_TRUE(state == wv::MeasureParts::kMore || state == wv::MeasureParts::kWaiting) << state;
            if (state != wv::MeasureParts::kMore && state != wv::MeasureParts::kWaiting) return out;
            if (state == wv::MeasureParts::kWaiting) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_TRUE(parts->integrated(&out.lufs));
        out.peak = parts->samplePeak();
        out.frames = parts->framesMeasured();
        out.parts = parts->partCount();
        return out;
    }

    wv::SPcmInfo* source(const std::vector<float>& unit, double gainDb, int rate, int channels) {
        return addWavItem(wvtest::toInt16(unit, gainDb), rate, channels);
    }
};

TEST_F(MeasureInParts, PartsTogetherMeasureWhatOneMeterMeasuresOfTheWholeList) {
    struct Case {
        const char* name;
        uint32_t list;
        int rate;
        int channels;
    };
    std::vector<Case> cases;

    const std::vector<float> music = wvtest::musicLike(48000, 2, 61.3, 5);
    wv::SPcmInfo* musicItem = source(music, -14.0, 48000, 2);
    const uint32_t musicFrames = uint32_t(music.size() / 2);
    cases.push_back({"music, 48 kHz stereo", newList({{musicItem, 0, musicFrames}}), 48000, 2});

    // Pauses between phrases: the relative gate matters.
    const std::vector<float> speech = wvtest::speechLike(44100, 1, 47.7, 2);
    wv::SPcmInfo* speechItem = source(speech, -20.0, 44100, 1);
    cases.push_back({"speech, 44.1 kHz mono", newList({{speechItem, 0, uint32_t(speech.size())}}), 44100, 1});

    // Clips of a quiet and a loud source crossfaded, with clip gains, fades
    // and a list gain; a mono clip in a stereo list.
    const std::vector<float> speech2 = wvtest::speechLike(48000, 2, 20.0, 7);
    wv::SPcmInfo* speechStereo = source(speech2, -30.0, 48000, 2);
    wv::SPcmInfo* speechMono = source(wvtest::speechLike(48000, 1, 9.0, 8), -18.0, 48000, 1);
    const uint32_t mixed = newList({{musicItem, 48000 * 3, 48000 * 19},
                                    {speechStereo, 0, uint32_t(speech2.size() / 2)},
                                    {speechMono, 12345, 48000 * 9},
                                    {musicItem, 48000 * 30, musicFrames}});
    ASSERT_EQ(engine->setListCrossfade(int(mixed), 750, WV_FADE_EQUAL_POWER), 0);
    ASSERT_EQ(engine->setClipGain(int(mixed), 1, -600), 0);
    ASSERT_EQ(engine->setClipGain(int(mixed), 3, 450), 0);
    ASSERT_EQ(engine->setClipFade(int(mixed), 2, 1500, 300, WV_FADE_LOG), 0);
    ASSERT_EQ(engine->setListGain(int(mixed), -250), 0);
    cases.push_back({"crossfaded clips with gains and fades", mixed, 48000, 2});

    for (const Case& c : cases) {
        const Measure one = whole(c.list, c.rate, c.channels);
        ASSERT_TRUE(std::isfinite(one.lufs)) << c.name;
        for (int threads : {2, 3, 8}) {
            SCOPED_TRACE(std::string(c.name) + ", threads " + std::to_string(threads));
            const Measure many = parted(c.list, c.rate, c.channels, threads);
            ASSERT_GE(many.parts, 2u);
            EXPECT_LE(many.parts, size_t(threads) * wv::MeasureParts::kPartsPerThread);
            EXPECT_NEAR(many.lufs, one.lufs, 0.01);
            EXPECT_EQ(many.peak, one.peak);
            // Every frame once, the priming not counted.
            EXPECT_EQ(many.frames, one.frames);
        }
    }
}

TEST_F(MeasureInParts, ListsThatReadOtherwiseFromTheMiddleAreMeasuredInOnePiece) {
    const std::vector<float> music = wvtest::musicLike(44100, 2, 12.0, 3);
    wv::SPcmInfo* item = source(music, -20.0, 44100, 2);
    const uint32_t frames = uint32_t(music.size() / 2);
    const uint32_t plain = newList({{item, 0, frames}});
    EXPECT_TRUE(partsOf(plain, 44100, 2, 2)) << "a control: this one is cut";
    EXPECT_FALSE(partsOf(plain, 44100, 2, 1)) << "one thread";
    EXPECT_FALSE(partsOf(plain, 48000, 2, 2)) << "converted to another rate";

    const uint32_t denoised = newList({{item, 0, frames}});
    ASSERT_EQ(engine->setListDenoise(int(denoised), 12), 0);
    EXPECT_FALSE(partsOf(denoised, 44100, 2, 2)) << "noise reduction";
    const uint32_t faster = newList({{item, 0, frames}});
    ASSERT_EQ(engine->setListTempo(int(faster), 125), 0);
    EXPECT_FALSE(partsOf(faster, 44100, 2, 2)) << "tempo";

    const uint32_t inner = newList({{item, 0, frames}});
    const int32_t outer = engine->newClipList();
    ASSERT_GT(engine->addClip(outer, int(inner), 0, frames), 0);
    EXPECT_FALSE(partsOf(uint32_t(outer), 44100, 2, 2)) << "a list inside";

    wv::SPcmInfo* loading = addPcmItem(wvtest::toInt16(music, -20.0), 44100, 2, wv::DECODING);
    const uint32_t waits = newList({{loading, 0, frames}});
    EXPECT_FALSE(partsOf(waits, 44100, 2, 2)) << "a source still loading";

    // Two parts need two seconds.
    const uint32_t shortList = newList({{item, 0, 44100 * 2 - 1}});
    EXPECT_FALSE(partsOf(shortList, 44100, 2, 8)) << "shorter than two parts";
    const uint32_t twoParts = newList({{item, 0, 44100 * 2}});
    std::unique_ptr<wv::MeasureParts> two = partsOf(twoParts, 44100, 2, 8);
    ASSERT_TRUE(two);
    EXPECT_EQ(two->partCount(), 2u);
}

}  // namespace
