// Clip and list effects as the list's reader applies them, sample by
// sample against envelopes computed here from the source samples.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "TestSupport.h"
#include "items/PcmInfoReader.h"
#include "items/SPcmInfo.h"

namespace {

using namespace wv;
using Samples = std::vector<int16_t>;

constexpr int kRate = 8000;

double shapeAt(int shape, double x) {
    if (x <= 0) return 0;
    if (x >= 1) return 1;
    if (shape == kFadeEqualPower) return std::sin(x * M_PI / 2);
    if (shape == kFadeLog) return std::pow(10.0, -60.0 * (1 - x) / 20);
    return x;
}

// One read() of `buffer`'s size, its frames appended to `out`.
void readBlock(PcmInfoReader& reader, std::vector<char>& buffer, uint32_t channels, Samples& out) {
    const int32_t n = reader.read(buffer.data(), static_cast<uint32_t>(buffer.size()));
    const size_t at = out.size();
    out.resize(at + size_t(n > 0 ? n : 0) * channels);
    // An empty read may leave `out` without storage: no copy then.
    if (out.size() > at) std::memcpy(out.data() + at, buffer.data(), (out.size() - at) * 2);
}

class ClipEffectsTest : public ::testing::Test {
protected:
    // A mono or stereo source of a tone (channel 1 at half level), so every
    // frame differs from its neighbours and envelopes show.
    SPcmInfo* tone(uint32_t frames, double amplitude = 16000, int channels = 1, double step = 0.05) {
        Samples samples(size_t(frames) * channels);
        for (uint32_t k = 0; k < frames; ++k) {
            for (int c = 0; c < channels; ++c) {
                samples[k * channels + c] = static_cast<int16_t>(std::lrint(amplitude / (1 + c) * std::sin(k * step)));
            }
        }
        return pcmItem(samples, channels);
    }
    SPcmInfo* pcmItem(const Samples& samples, int channels) {
        const std::string path = dir.file(std::to_string(items.size() + 1) + ".pcm");
        wvtest::writeFile(path, samples.data(), samples.size() * 2);
        SPcmInfo* item = addItem(PCM_READY, kRate, channels, static_cast<uint32_t>(samples.size() / channels));
        item->pcmPath.set(path);
        sourceSamples[item] = samples;
        return item;
    }
    SPcmInfo* addItem(pcm_status_t status, int rate, int channels, uint32_t frames) {
        items.emplace_back(new SPcmInfo(status));
        SPcmInfo* item = items.back().get();
        item->id = static_cast<pcm_id_t>(items.size());
        item->sampleRate = rate;
        item->channelCount = channels;
        item->frames = frames;
        item->totalFrames = frames;
        return item;
    }
    SPcmInfo* list(int channels = 1) { return addItem(CLIP_LIST, kRate, channels, 0); }
    uint32_t add(SPcmInfo* to, SPcmInfo* from, uint32_t start, uint32_t end) {
        PcmClip clip;
        clip.source = from;
        clip.start = start;
        clip.end = end;
        return to->clipList->add(clip);
    }
    // The whole list through read() in blocks of `blockFrames`.
    static Samples readAll(SPcmInfo* item, uint32_t blockFrames = 1000) {
        PcmInfoReader reader(item);
        const uint32_t channels = static_cast<uint32_t>(item->channelCount.load());
        Samples out;
        std::vector<char> buffer(blockFrames * channels * 2);
        for (int guard = 0; guard < 100000; ++guard) {
            readBlock(reader, buffer, channels, out);
            if (reader.endState() != PcmInfoReader::MORE) break;
        }
        return out;
    }
    // Every sample within one step of round(reference): TPDF dither moves a
    // value by less than one step either way.
    static void expectNear(const Samples& got, const std::vector<double>& reference) {
        ASSERT_EQ(got.size(), reference.size());
        for (size_t i = 0; i < got.size(); ++i) {
            const double clamped = std::max(-32768.0, std::min(32767.0, reference[i]));
            ASSERT_LE(std::fabs(got[i] - clamped), 1.5) << "sample " << i;
        }
    }
    std::vector<double> scaled(SPcmInfo* source, uint32_t start, uint32_t end,
                               const std::function<double(uint32_t)>& envelope) {
        const Samples& s = sourceSamples[source];
        const uint32_t channels = static_cast<uint32_t>(source->channelCount.load());
        std::vector<double> out;
        for (uint32_t k = start; k < end; ++k) {
            for (uint32_t c = 0; c < channels; ++c) out.push_back(s[k * channels + c] * envelope(k - start));
        }
        return out;
    }

    wvtest::TempDir dir;
    std::vector<std::unique_ptr<SPcmInfo>> items;
    std::map<SPcmInfo*, Samples> sourceSamples;
};

TEST_F(ClipEffectsTest, FadesFollowEachShapeSampleBySample) {
    SPcmInfo* source = tone(3000, 16000, 2);
    for (int shape : {kFadeLinear, kFadeEqualPower, kFadeLog}) {
        SPcmInfo* fx = list(2);
        const uint32_t clip = add(fx, source, 500, 2500);
        ASSERT_TRUE(fx->clipList->setClipFade(clip, 50, 25, shape));  // 400 and 200 frames
        const auto reference = scaled(source, 500, 2500, [&](uint32_t j) {
            double g = 1;
            if (j < 400) g *= shapeAt(shape, j / 400.0);
            if (j >= 1800) g *= shapeAt(shape, (1999 - j) / 200.0);
            return g;
        });
        SCOPED_TRACE(shape);
        expectNear(readAll(fx), reference);
    }
}

TEST_F(ClipEffectsTest, FadesLongerThanTheClipShareItInProportion) {
    SPcmInfo* source = tone(1000);
    SPcmInfo* fx = list();
    const uint32_t clip = add(fx, source, 0, 600);
    // 300 ms in and 100 ms out of a 75 ms clip: 450 and 150 frames.
    ASSERT_TRUE(fx->clipList->setClipFade(clip, 300, 100, kFadeLinear));
    expectNear(readAll(fx), scaled(source, 0, 600, [](uint32_t j) {
                   if (j < 450) return j / 450.0;
                   return (599 - j) / 150.0;
               }));
    EXPECT_FALSE(fx->clipList->setClipFade(clip + 1, 1, 1, kFadeLinear));
}

TEST_F(ClipEffectsTest, GainsMultiplyAndSaturateWithoutWrapping) {
    SPcmInfo* source = tone(2000, 12000);
    SPcmInfo* fx = list();
    const uint32_t first = add(fx, source, 0, 1000);
    const uint32_t second = add(fx, source, 1000, 2000);
    ASSERT_TRUE(fx->clipList->setClipGain(first, 2400));  // x 15.85: far past full scale
    ASSERT_TRUE(fx->clipList->setClipGain(second, -1200));
    fx->clipList->setListGain(602);  // x 2
    const double list = std::pow(10.0, 602 / 2000.0);
    std::vector<double> reference = scaled(source, 0, 1000, [&](uint32_t) { return 15.8489 * list; });
    const auto tail = scaled(source, 1000, 2000, [&](uint32_t) { return std::pow(10.0, -0.6) * list; });
    reference.insert(reference.end(), tail.begin(), tail.end());
    const Samples got = readAll(fx);
    expectNear(got, reference);
    // Loud peaks pin at the rails and keep their sign.
    int pinned = 0;
    for (size_t i = 0; i < 1000; ++i) {
        if (std::fabs(reference[i]) > 33000) {
            ASSERT_EQ(got[i], reference[i] > 0 ? 32767 : -32768) << i;
            ++pinned;
        }
    }
    EXPECT_GT(pinned, 500);

    // -96 dB leaves nothing but the dither.
    fx->clipList->setListGain(0);
    fx->clipList->setClipGain(first, -9600);
    const Samples quiet = readAll(fx);
    for (size_t i = 0; i < 1000; ++i) ASSERT_LE(std::abs(quiet[i]), 1);
}

TEST_F(ClipEffectsTest, CrossfadesShortenTheListAndMixBothClips) {
    SPcmInfo* a = tone(1200, 16000, 1, 0.05);
    SPcmInfo* b = tone(1200, 12000, 1, 0.11);
    for (int shape : {kFadeLinear, kFadeEqualPower}) {
        SPcmInfo* fx = list();
        add(fx, a, 0, 1000);
        add(fx, b, 100, 1100);
        fx->clipList->setCrossfade(25, shape);  // 200 frames
        uint32_t frames = 0;
        EXPECT_EQ(fx->availableFrames(frames, 0, PcmInfoReader::kToEnd, false), 0);
        EXPECT_EQ(frames, 1800u);
        EXPECT_EQ(fx->frame2duration(0, PcmInfoReader::kToEnd), 225u);
        const Samples& sa = sourceSamples[a];
        const Samples& sb = sourceSamples[b];
        std::vector<double> reference(1800);
        for (uint32_t k = 0; k < 1800; ++k) {
            double v = 0;
            if (k < 1000) v += sa[k] * (k >= 800 ? shapeAt(shape, 1 - (k - 800 + 0.5) / 200) : 1.0);
            if (k >= 800) v += sb[k - 800 + 100] * (k < 1000 ? shapeAt(shape, (k - 800 + 0.5) / 200) : 1.0);
            reference[k] = v;
        }
        SCOPED_TRACE(shape);
        expectNear(readAll(fx, 333), reference);
    }
}

TEST_F(ClipEffectsTest, OverlapsClampToHalfTheShorterClip) {
    SPcmInfo* source = tone(4000);
    SPcmInfo* fx = list();
    add(fx, source, 0, 1000);
    add(fx, source, 1000, 1300);  // 300 frames: overlaps of at most 150
    add(fx, source, 1300, 2300);
    add(fx, source, 2300, 3300);
    fx->clipList->setCrossfade(50, kFadeEqualPower);  // 400 frames
    std::vector<ClipPlacement> places;
    EXPECT_EQ(fx->clipList->place(&places, false), 0u);
    ASSERT_EQ(places.size(), 4u);
    EXPECT_EQ(places[0].listStart, 0u);
    EXPECT_EQ(places[1].listStart, 850u);
    EXPECT_EQ(places[2].listStart, 1000u);
    EXPECT_EQ(places[3].listStart, 1600u);
    uint32_t frames = 0;
    fx->availableFrames(frames, 0, PcmInfoReader::kToEnd, false);
    EXPECT_EQ(frames, 3300u - 150 - 150 - 400);
    EXPECT_EQ(readAll(fx).size(), frames);
    // A range inside the list counts from its start.
    fx->availableFrames(frames, 2000, 2400, false);
    EXPECT_EQ(frames, 400u);
    fx->availableFrames(frames, 2500, 9000, false);
    EXPECT_EQ(frames, 100u);
    uint32_t ms = 1000;
    EXPECT_EQ(fx->duration2frame(ms, 0, PcmInfoReader::kToEnd), 2600u);
    EXPECT_EQ(ms, 675u);

    // Back to hard joins: the plain lengths again.
    fx->clipList->setCrossfade(0, kFadeEqualPower);
    fx->availableFrames(frames, 0, PcmInfoReader::kToEnd, false);
    EXPECT_EQ(frames, 3300u);
}

TEST_F(ClipEffectsTest, WithoutEffectsTheBytesAreTheSourcesOwn) {
    SPcmInfo* a = tone(3000, 16000, 2);
    SPcmInfo* b = tone(2000, 9000, 2, 0.2);
    SPcmInfo* fx = list(2);
    const uint32_t first = add(fx, a, 100, 2900);
    add(fx, b, 0, 1500);
    Samples expected(sourceSamples[a].begin() + 200, sourceSamples[a].begin() + 5800);
    expected.insert(expected.end(), sourceSamples[b].begin(), sourceSamples[b].begin() + 3000);
    EXPECT_EQ(readAll(fx, 777), expected);
    // Effects set and taken back leave nothing behind.
    fx->clipList->setClipGain(first, 300);
    fx->clipList->setCrossfade(20, kFadeLinear);
    EXPECT_NE(readAll(fx, 777), expected);
    fx->clipList->setClipGain(first, 0);
    fx->clipList->setCrossfade(0, kFadeLinear);
    EXPECT_FALSE(fx->clipList->hasEffects());
    EXPECT_EQ(readAll(fx, 777), expected);
}

TEST_F(ClipEffectsTest, BytesDependOnlyOnTheFrameNotOnBlocksSeeksOrDirection) {
    SPcmInfo* a = tone(2000);
    SPcmInfo* b = tone(2000, 10000, 1, 0.3);
    SPcmInfo* fx = list();
    const uint32_t clip = add(fx, a, 0, 1500);
    add(fx, b, 0, 1500);
    fx->clipList->setClipFade(clip, 100, 0, kFadeLog);
    fx->clipList->setCrossfade(30, kFadeEqualPower);
    fx->clipList->setListGain(-300);
    const Samples whole = readAll(fx, 4096);
    ASSERT_EQ(whole.size(), 3000u - 240);
    EXPECT_EQ(readAll(fx, 97), whole);

    // A seek into the fade gives the fade's value there.
    PcmInfoReader reader(fx);
    reader.setPosition(333, PcmInfoReader::kToEnd);
    std::vector<char> buffer(200);
    ASSERT_EQ(reader.read(buffer.data(), 200), 100);
    EXPECT_EQ(0, std::memcmp(buffer.data(), whole.data() + 333, 200));

    // Backwards from the end to frame 0: the forward bytes, last first.
    reader.setPosition(static_cast<uint32_t>(whole.size()), PcmInfoReader::kToEnd);
    Samples backwards;
    std::vector<char> block(512 * 2);
    while (reader.position() > 0) {
        const uint32_t before = reader.position();
        ASSERT_EQ(reader.reverseFill(block.data(), 1024), 512);
        const uint32_t moved = before - reader.position();
        const size_t at = backwards.size();
        backwards.resize(at + moved);
        std::memcpy(backwards.data() + at, block.data(), moved * 2);
    }
    ASSERT_EQ(backwards.size(), whole.size());
    EXPECT_TRUE(std::equal(backwards.begin(), backwards.end(), whole.rbegin()));
}

TEST_F(ClipEffectsTest, FloatStageIsTheSignalBeforeDither) {
    SPcmInfo* source = tone(1000);
    SPcmInfo* fx = list();
    const uint32_t clip = add(fx, source, 0, 1000);
    fx->clipList->setClipGain(clip, -600);
    PcmInfoReader reader(fx);
    std::vector<float> out(1200, 7.0f);
    ASSERT_EQ(reader.readFloat(out.data(), 1200), 1000);
    EXPECT_EQ(reader.endState(), PcmInfoReader::END);
    const double g = std::pow(10.0, -0.3);
    for (uint32_t k = 0; k < 1000; ++k) {
        ASSERT_NEAR(out[k], sourceSamples[source][k] * g / 32768.0, 1e-6) << k;
    }
    EXPECT_EQ(out[1000], 0.0f);
}

TEST_F(ClipEffectsTest, NestedListsBringTheirOwnEffects) {
    SPcmInfo* source = tone(2000);
    SPcmInfo* inner = list();
    const uint32_t innerClip = add(inner, source, 0, 1000);
    inner->clipList->setClipGain(innerClip, -600);
    SPcmInfo* outer = list();
    add(outer, inner, 0, 1000);
    add(outer, source, 1000, 1400);
    outer->clipList->setListGain(-600);
    const double g = std::pow(10.0, -0.3);
    // The inner list is rounded once on its own, so two steps of slack.
    const Samples got = readAll(outer);
    ASSERT_EQ(got.size(), 1400u);
    for (uint32_t k = 0; k < 1400; ++k) {
        const double want = sourceSamples[source][k] * (k < 1000 ? g * g : g);
        ASSERT_LE(std::fabs(got[k] - want), 2.5) << k;
    }
}

TEST_F(ClipEffectsTest, ASourceStillLoadingIsWaitedForWhereItsLengthDecides) {
    SPcmInfo* source = tone(2000);
    source->status = DECODING;
    source->frames = 1200;  // of 2000 expected
    SPcmInfo* other = tone(1000, 9000);
    SPcmInfo* fx = list();
    const uint32_t clip = add(fx, source, 0, 2000);
    add(fx, other, 0, 1000);
    fx->clipList->setClipFade(clip, 0, 100, kFadeLinear);  // 800 frames
    fx->clipList->setCrossfade(25, kFadeLinear);           // 200 frames
    PcmInfoReader reader(fx);
    std::vector<char> buffer(4000 * 2);
    // The fade out starts 800 frames before wherever the load ends: from
    // frame 400 on, nothing is known yet.
    EXPECT_EQ(reader.read(buffer.data(), static_cast<uint32_t>(buffer.size())), 400);
    EXPECT_EQ(reader.endState(), PcmInfoReader::WAIT);
    Samples got(size_t(400));
    std::memcpy(got.data(), buffer.data(), 400 * 2);
    EXPECT_EQ(reader.read(buffer.data(), static_cast<uint32_t>(buffer.size())), 0);
    EXPECT_EQ(reader.endState(), PcmInfoReader::WAIT);

    source->frames = 1900;
    EXPECT_EQ(reader.read(buffer.data(), static_cast<uint32_t>(buffer.size())), 700);
    EXPECT_EQ(reader.endState(), PcmInfoReader::WAIT);
    got.insert(got.end(), reinterpret_cast<int16_t*>(buffer.data()),
               reinterpret_cast<int16_t*>(buffer.data()) + 700);

    source->frames = 2000;
    source->status = PCM_READY;
    const int32_t rest = reader.read(buffer.data(), static_cast<uint32_t>(buffer.size()));
    EXPECT_EQ(rest, 2800 - 1100);
    EXPECT_EQ(reader.endState(), PcmInfoReader::END);
    got.insert(got.end(), reinterpret_cast<int16_t*>(buffer.data()),
               reinterpret_cast<int16_t*>(buffer.data()) + (rest > 0 ? rest : 0));
    // Read in one go, the same list gives the same frames.
    EXPECT_EQ(got, readAll(fx));
}

// The list read in blocks while `loading` grows by `step` frames after
// every read, from none to all of its `frames`, then ends as a load does;
// its expected length stays `expected` all along.
Samples readWhileLoading(SPcmInfo* fx, SPcmInfo* loading, uint32_t frames, uint32_t expected,
                         uint32_t step, uint32_t blockFrames) {
    loading->status = DECODING;
    loading->frames = 0;
    loading->totalFrames = expected;
    PcmInfoReader reader(fx);
    const uint32_t channels = static_cast<uint32_t>(fx->channelCount.load());
    Samples out;
    std::vector<char> buffer(blockFrames * channels * 2);
    for (int guard = 0; guard < 100000; ++guard) {
        readBlock(reader, buffer, channels, out);
        if (reader.endState() == PcmInfoReader::END) break;
        if (loading->status.load() == DECODING) {
            loading->frames = std::min(frames, loading->frames.load() + step);
            if (loading->frames.load() == frames) loading->status = PCM_READY;
        }
    }
    return out;
}

TEST_F(ClipEffectsTest, ConvertedClipsReadAlikeInAnyBlocks) {
    // 8 kHz mono clips in a 16 kHz list: each takes twice its frames, and
    // odd block sizes (a mono converter folds two frames at a time) change
    // nothing.
    SPcmInfo* source = tone(4000);
    SPcmInfo* fx = addItem(CLIP_LIST, 16000, 1, 0);
    const uint32_t clip = add(fx, source, 0, 2000);
    add(fx, source, 2000, 4000);
    fx->clipList->setClipFade(clip, 50, 50, kFadeEqualPower);
    fx->clipList->setCrossfade(20, kFadeLinear);  // 320 output frames
    const Samples whole = readAll(fx, 4096);
    EXPECT_EQ(whole.size(), 8000u - 320);
    EXPECT_EQ(readAll(fx, 97), whole);
    EXPECT_EQ(readAll(fx, 1), whole);
}

// A list that mixes while a source still loads hands out, whatever the
// load's pace, the bytes it gives once the source is complete: frames whose
// envelope or crossfade partner depends on the source's final length wait
// for it.
TEST_F(ClipEffectsTest, AListMixedWhileASourceLoadsGivesTheBytesOfTheLoadedList) {
    struct Case {
        const char* name;
        uint32_t frames;    // the loading source's final length
        uint32_t expected;  // its length as known while it loads
        uint32_t clipEnd;   // the end of its clip
        int listRate;
        uint32_t fadeOutMs = 40;
        uint32_t crossfadeMs = 30;
        bool loadingSecond = false;  // the loading source's clip follows a complete one
    };
    const Case cases[] = {
        {"a part loaded alone, crossfaded", 2000, 2000, PcmInfoReader::kToEnd, kRate},
        {"a range of a longer file", 3000, 3000, 2000, kRate},
        {"a load shorter than expected", 2000, 2600, PcmInfoReader::kToEnd, kRate},
        {"converted to twice the rate", 2000, 2000, PcmInfoReader::kToEnd, 2 * kRate},
        // Joins of 16 frames.
        {"converted, a short join", 2000, 2000, PcmInfoReader::kToEnd, 2 * kRate, 0, 1},
        {"converted, after a complete clip", 2000, 2000, PcmInfoReader::kToEnd, 2 * kRate, 0, 1, true},
        {"after a complete clip", 2000, 2000, PcmInfoReader::kToEnd, kRate, 40, 30, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SPcmInfo* loading = tone(c.frames, 16000, 2);
        SPcmInfo* other = tone(1500, 12000, 1, 0.11);
        SPcmInfo* fx = addItem(CLIP_LIST, c.listRate, 2, 0);
        const uint32_t before = c.loadingSecond ? add(fx, other, 200, 1500) : 0;
        const uint32_t first = add(fx, loading, 0, c.clipEnd);
        const uint32_t second = add(fx, other, 0, 1500);
        if (before != 0) fx->clipList->setClipGain(before, -100);
        add(fx, loading, 100, 900);
        fx->clipList->setClipGain(first, -300);
        fx->clipList->setClipFade(first, 0, c.fadeOutMs, kFadeLinear);
        fx->clipList->setClipFade(second, 60, 0, kFadeEqualPower);
        fx->clipList->setCrossfade(c.crossfadeMs, kFadeEqualPower);
        const Samples loaded = readAll(fx, 4096);
        ASSERT_FALSE(loaded.empty());
        for (uint32_t step : {37u, 250u, 1999u}) {
            for (uint32_t block : {64u, 1000u, 4096u}) {
                const Samples got = readWhileLoading(fx, loading, c.frames, c.expected, step, block);
                ASSERT_EQ(got.size(), loaded.size()) << "step " << step << " block " << block;
                ASSERT_TRUE(got == loaded) << "step " << step << " block " << block;
            }
        }
    }
}

// The same through a list used as a clip: the inner list holds back the
// frames its own fade out decides, and a converted clip before it in the
// outer list reads on from where it stopped rather than again.
TEST_F(ClipEffectsTest, AListOfListsMixedWhileASourceLoadsGivesTheBytesOfTheLoadedList) {
    SPcmInfo* loading = tone(2000, 16000, 2);
    SPcmInfo* other = tone(3000, 12000, 1, 0.11);
    other->sampleRate = 2 * kRate;  // converted, 1500 list frames
    SPcmInfo* inner = addItem(CLIP_LIST, kRate, 2, 0);
    const uint32_t clip = add(inner, loading, 0, PcmInfoReader::kToEnd);
    inner->clipList->setClipFade(clip, 0, 100, kFadeLinear);  // 800 frames
    SPcmInfo* outer = addItem(CLIP_LIST, kRate, 2, 0);
    add(outer, other, 0, 3000);
    add(outer, inner, 0, PcmInfoReader::kToEnd);
    add(outer, other, 400, 3000);
    outer->clipList->setCrossfade(30, kFadeEqualPower);  // 240 frames
    const Samples loaded = readAll(outer, 4096);
    ASSERT_FALSE(loaded.empty());
    for (uint32_t step : {37u, 250u, 1999u}) {
        for (uint32_t block : {64u, 1000u, 4096u}) {
            const Samples got = readWhileLoading(outer, loading, 2000, 2000, step, block);
            ASSERT_EQ(got.size(), loaded.size()) << "step " << step << " block " << block;
            ASSERT_TRUE(got == loaded) << "step " << step << " block " << block;
        }
    }
}

}  // namespace
