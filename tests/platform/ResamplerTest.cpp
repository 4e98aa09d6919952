#include "platform/resample/AudioResampler.h"
#include "platform/resample/AudioResamplerOrder1.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include <wavoryx/platform.h>

#include "TestSupport.h"

namespace {

using wv::AudioBufferProvider;
using wv::AudioResampler;

// Lends frames of a fixed signal in pieces whose sizes cycle through a
// pattern (never more than asked), and checks the borrowing discipline.
class ChunkedProvider : public AudioBufferProvider {
public:
    ChunkedProvider(std::vector<int16_t> samples, int channels, std::vector<uint32_t> pattern)
        : mSamples(std::move(samples)), mChannels(channels), mPattern(std::move(pattern)) {}

    int32_t getNextBuffer(Buffer* buffer, int64_t pts) override {
        EXPECT_FALSE(mLent) << "a second buffer was asked for before the first came back";
        requests.push_back(buffer->frameCount);
        timestamps.push_back(pts);
        const uint32_t total = uint32_t(mSamples.size() / mChannels);
        uint32_t count = std::min(buffer->frameCount, mPattern[mNext++ % mPattern.size()]);
        count = std::min(count, total - mPosition);
        if (count == 0) {
            buffer->raw = nullptr;
            buffer->frameCount = 0;
            return -1;
        }
        buffer->i16 = mSamples.data() + size_t(mPosition) * mChannels;
        buffer->frameCount = count;
        mLent = true;
        return 0;
    }

    void releaseBuffer(Buffer* buffer) override {
        EXPECT_TRUE(mLent);
        mPosition += buffer->frameCount;
        buffer->raw = nullptr;
        buffer->frameCount = 0;
        mLent = false;
    }

    bool lent() const { return mLent; }
    std::vector<uint32_t> requests;
    std::vector<int64_t> timestamps;

private:
    std::vector<int16_t> mSamples;
    int mChannels;
    std::vector<uint32_t> mPattern;
    size_t mNext = 0;
    uint32_t mPosition = 0;
    bool mLent = false;
};

// A deterministic signal that uses the whole 16-bit range, signs included.
std::vector<int16_t> makeSignal(size_t samples, uint32_t seed) {
    std::vector<int16_t> out(samples);
    uint32_t state = seed;
    for (auto& s : out) {
        state = state * 1664525u + 1013904223u;
        s = static_cast<int16_t>(state >> 16);
    }
    return out;
}

// The conversion as the output positions define it: output n sits at
// n x increment on the input's 2.30 time line and interpolates between the
// frames on both sides (frame -1 being silence).
std::vector<int16_t> expectedStereo(const std::vector<int16_t>& in, int channels, uint32_t increment, size_t frames,
                                    int32_t vl, int32_t vr) {
    std::vector<int16_t> out;
    const size_t inFrames = in.size() / channels;
    for (size_t n = 0; n < frames; ++n) {
        const uint64_t position = uint64_t(n) * increment;
        const size_t index = size_t(position >> 30);
        const int32_t fraction = int32_t((position & 0x3FFFFFFF) >> 15);
        if (index >= inFrames) break;
        for (int c = 0; c < 2; ++c) {
            const int ch = channels == 2 ? c : 0;
            const int32_t x0 = index == 0 ? 0 : in[(index - 1) * channels + ch];
            const int32_t x1 = in[index * channels + ch];
            const int32_t sample = x0 + (((x1 - x0) * fraction) >> 15);
            out.push_back(static_cast<int16_t>(sample * (c == 0 ? vl : vr)));
        }
    }
    return out;
}

std::unique_ptr<AudioResampler> makeResampler(int channels, int32_t inRate, int32_t outRate, int16_t vl = 1,
                                              int16_t vr = 1) {
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels, outRate, AudioResampler::SRC_LOW));
    r->init();
    r->setVolume(vl, vr);
    r->setSampleRate(inRate);
    return r;
}

// Runs the whole signal through calls of the given output sizes (cycled)
// until the provider is dry; returns every frame made.
std::vector<int16_t> runAll(AudioResampler& r, AudioBufferProvider& provider, const std::vector<size_t>& callSizes) {
    std::vector<int16_t> all;
    for (size_t call = 0;; ++call) {
        const size_t want = callSizes[call % callSizes.size()];
        std::vector<int16_t> out(want * 2, 0);
        r.resample(out.data(), want, &provider);
        const size_t got = r.getOutputFrames();
        all.insert(all.end(), out.begin(), out.begin() + got * 2);
        if (got < want) break;
    }
    return all;
}

TEST(AudioResampler, PhaseIncrementIsTheTruncated230Ratio) {
    EXPECT_EQ(makeResampler(2, 44100, 44100)->phaseIncrement(), 1u << 30);
    EXPECT_EQ(makeResampler(2, 22050, 44100)->phaseIncrement(), 536870912u);
    EXPECT_EQ(makeResampler(2, 48000, 44100)->phaseIncrement(), 1168698583u);
    EXPECT_EQ(makeResampler(1, 8000, 44100)->phaseIncrement(), 194783097u);
}

TEST(AudioResampler, SameRateDelaysByOneFrame) {
    const std::vector<int16_t> in = {100, -100, 200, -200, 300, -300, 400, -400};
    ChunkedProvider provider(in, 2, {3});
    auto r = makeResampler(2, 8000, 8000);
    std::vector<int16_t> out(8, 0);
    r->resample(out.data(), 4, &provider);
    EXPECT_EQ(r->getOutputFrames(), 4u);
    EXPECT_EQ(out, (std::vector<int16_t>{0, 0, 100, -100, 200, -200, 300, -300}));
}

TEST(AudioResampler, DoublingRateInsertsMidpoints) {
    const std::vector<int16_t> in = {1000, -999, 3001, 7};
    ChunkedProvider provider(in, 2, {64});
    auto r = makeResampler(2, 22050, 44100);
    std::vector<int16_t> out(8, 0);
    r->resample(out.data(), 4, &provider);
    // Odd outputs are 15-bit midpoints with an arithmetic shift:
    // 0 + ((1000 * 16384) >> 15) = 500, 0 + ((-999 * 16384) >> 15) = -500.
    EXPECT_EQ(out, (std::vector<int16_t>{0, 0, 500, -500, 1000, -999, 2000, -496}));
}

struct Conversion {
    int channels;
    int32_t inRate;
    int32_t outRate;
    std::vector<uint32_t> chunks;
    std::vector<size_t> calls;
};

class ResamplerConversion : public ::testing::TestWithParam<Conversion> {};

// Sample by sample against the position rule, whatever the sizes of the
// provider's pieces and of the calls: a piece that ends inside an interval,
// a piece skipped whole, a call that ends in the boundary interval.
TEST_P(ResamplerConversion, FollowsTheInterpolationRule) {
    const Conversion& c = GetParam();
    const std::vector<int16_t> in = makeSignal(size_t(997) * c.channels, 7);
    ChunkedProvider provider(in, c.channels, c.chunks);
    auto r = makeResampler(c.channels, c.inRate, c.outRate, 3, -2);
    const std::vector<int16_t> got = runAll(*r, provider, c.calls);
    const std::vector<int16_t> want = expectedStereo(in, c.channels, r->phaseIncrement(), got.size() / 2 + 4, 3, -2);
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_EQ(got[i], want[i]) << "sample " << i;
    }
    EXPECT_FALSE(provider.lent());
}

INSTANTIATE_TEST_SUITE_P(
    Rates, ResamplerConversion,
    ::testing::Values(Conversion{2, 22050, 44100, {1, 3, 7, 64}, {5, 1, 17}},
                      Conversion{1, 22050, 44100, {5, 2}, {3, 101}}, Conversion{2, 48000, 44100, {13, 1, 1}, {7, 256}},
                      Conversion{1, 8000, 44100, {11}, {1, 2, 3}}, Conversion{2, 44100, 16000, {1, 1, 2}, {9}},
                      Conversion{1, 44100, 12000, {1}, {4, 33}}, Conversion{2, 44100, 44100, {9, 4}, {6, 10}}));

TEST(AudioResampler, MonoFeedsBothChannelsWithTheirGains) {
    const std::vector<int16_t> in = {400, 800, -1200};
    ChunkedProvider provider(in, 1, {8});
    auto r = makeResampler(1, 16000, 16000, 2, -1);
    std::vector<int16_t> out(6, 0);
    r->resample(out.data(), 3, &provider);
    EXPECT_EQ(out, (std::vector<int16_t>{0, 0, 800, -400, 1600, -800}));
}

TEST(AudioResampler, AddsToTheOutputAndWrapsInsteadOfSaturating) {
    const std::vector<int16_t> in = {0, 0, 20000, -20000, 0, 0};
    ChunkedProvider provider(in, 2, {8});
    auto r = makeResampler(2, 8000, 8000, 2, 2);
    std::vector<int16_t> out = {5, -5, 30000, -30000, 1, 1};
    r->resample(out.data(), 3, &provider);
    EXPECT_EQ(out[0], 5);
    EXPECT_EQ(out[1], -5);
    EXPECT_EQ(out[2], 30000);
    EXPECT_EQ(out[3], -30000);
    // 1 + 40000 and 1 - 40000 keep their low 16 bits.
    EXPECT_EQ(out[4], static_cast<int16_t>(40001 - 65536));
    EXPECT_EQ(out[5], static_cast<int16_t>(-39999 + 65536));
}

TEST(AudioResampler, DefaultGainsAreSilent) {
    const std::vector<int16_t> in = makeSignal(64, 3);
    ChunkedProvider provider(in, 2, {32});
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, 2, 44100, AudioResampler::SRC_DEFAULT));
    r->setSampleRate(44100);
    std::vector<int16_t> out(40, 0);
    r->resample(out.data(), 20, &provider);
    EXPECT_EQ(r->getOutputFrames(), 20u);
    EXPECT_EQ(out, std::vector<int16_t>(40, 0));
}

TEST(AudioResampler, DryProviderStopsEarlyAndLaterCallsGoOn) {
    const std::vector<int16_t> in = makeSignal(20, 11);
    ChunkedProvider provider(in, 2, {4});
    auto r = makeResampler(2, 22050, 44100);
    std::vector<int16_t> out(200, 77);
    r->resample(out.data(), 100, &provider);
    // 10 input frames: positions 0, 0.5, ... 9.5 have a right-hand frame.
    EXPECT_EQ(r->getOutputFrames(), 20u);
    EXPECT_NE(out[39], 77);
    EXPECT_EQ(out[40], 77);
    EXPECT_EQ(out[199], 77);

    std::vector<int16_t> again(8, 0);
    r->resample(again.data(), 4, &provider);
    EXPECT_EQ(r->getOutputFrames(), 0u);
}

TEST(AudioResampler, ZeroFramesFetchNothing) {
    ChunkedProvider provider(makeSignal(8, 1), 2, {4});
    auto r = makeResampler(2, 22050, 44100);
    r->resample(nullptr, 0, &provider);
    EXPECT_EQ(r->getOutputFrames(), 0u);
    EXPECT_TRUE(provider.requests.empty());
}

TEST(AudioResampler, RequestsMatchTheRateRatioAndAtLeastOneFrame) {
    ChunkedProvider provider(makeSignal(4000, 5), 2, {1000});
    auto r = makeResampler(2, 22050, 44100);
    std::vector<int16_t> out(1000, 0);
    r->resample(out.data(), 500, &provider);
    ASSERT_FALSE(provider.requests.empty());
    EXPECT_EQ(provider.requests[0], 250u);

    ChunkedProvider tiny(makeSignal(40, 5), 2, {1000});
    auto down = makeResampler(2, 11025, 44100);
    down->resample(out.data(), 1, &tiny);
    ASSERT_EQ(tiny.requests.size(), 1u);
    EXPECT_EQ(tiny.requests[0], 1u);
    EXPECT_EQ(down->getOutputFrames(), 1u);
}

TEST(AudioResampler, TimestampsFollowTheOutputFrameOfEachFetch) {
    ChunkedProvider provider(makeSignal(200, 2), 2, {10});
    auto r = makeResampler(2, 22050, 44100);
    std::vector<int16_t> out(400, 0);
    r->resample(out.data(), 30, &provider);
    EXPECT_EQ(provider.timestamps[0], AudioBufferProvider::kInvalidPts);

    ChunkedProvider timed(makeSignal(200, 2), 2, {10});
    auto t = makeResampler(2, 22050, 44100);
    t->setLocalTimeFreq(1000000);
    t->setPTS(5000);
    t->resample(out.data(), 30, &timed);
    // A piece of 10 frames lasts 20 output frames, so the second fetch
    // happens for output frame 20: 5000 + 20 * 10^6 / 44100.
    ASSERT_EQ(timed.timestamps.size(), 2u);
    EXPECT_EQ(timed.timestamps[0], 5000);
    EXPECT_EQ(timed.timestamps[1], 5000 + 20 * 1000000 / 44100);
}

TEST(AudioResampler, ResetRewindsButKeepsTheSavedFrame) {
    const std::vector<int16_t> in = {10, 20, 30, 40, 50, 60};
    ChunkedProvider provider(in, 2, {1});
    auto r = makeResampler(2, 8000, 8000);
    std::vector<int16_t> out(4, 0);
    r->resample(out.data(), 2, &provider);
    EXPECT_EQ(out, (std::vector<int16_t>{0, 0, 10, 20}));
    auto* linear = static_cast<wv::AudioResamplerOrder1*>(r.get());
    EXPECT_EQ(linear->x0Left(), 30);
    EXPECT_EQ(linear->x0Right(), 40);
    r->reset();
    EXPECT_EQ(r->getInputIndex(), 0u);
    EXPECT_EQ(r->getOutputFrames(), 0u);
    // The first interval after a reset still starts at the kept frame.
    std::vector<int16_t> next(2, 0);
    r->resample(next.data(), 1, &provider);
    EXPECT_EQ(next, (std::vector<int16_t>{30, 40}));
}

TEST(AudioResampler, UnsupportedFormatsAreLoggedAndProduceNothing) {
    wvtest::LogCapture log;
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, 3, 44100, AudioResampler::SRC_LOW));
    EXPECT_TRUE(log.contains("Unsupported sample format, 16 bits, 3 channels", "AudioResampler"));
    r->setVolume(1, 1);
    r->setSampleRate(44100);
    ChunkedProvider provider(makeSignal(30, 1), 3, {10});
    std::vector<int16_t> out(8, 9);
    r->resample(out.data(), 4, &provider);
    EXPECT_EQ(out, std::vector<int16_t>(8, 9));
    EXPECT_TRUE(provider.requests.empty());

    std::unique_ptr<AudioResampler> zero(AudioResampler::create(16, 2, 0, AudioResampler::SRC_LOW));
    EXPECT_TRUE(log.contains("Unsupported sample rate 0 Hz", "AudioResampler"));
    zero->setSampleRate(44100);
    EXPECT_EQ(zero->phaseIncrement(), 0u);
}

TEST(AudioResamplerLoad, ExplicitQualitiesAreChargedAndRefunded) {
    const uint32_t base = AudioResampler::loadMHz();
    {
        std::vector<std::unique_ptr<AudioResampler>> all;
        for (auto q : {AudioResampler::SRC_LOW, AudioResampler::SRC_MEDIUM, AudioResampler::SRC_HIGH,
                       AudioResampler::SRC_VERY_HIGH, AudioResampler::SRC_VERY_HIGH, AudioResampler::SRC_VERY_HIGH,
                       AudioResampler::SRC_VERY_HIGH}) {
            all.emplace_back(AudioResampler::create(16, 2, 44100, q));
            EXPECT_EQ(all.back()->quality(), AudioResampler::SRC_LOW);
        }
        // Explicit requests are charged even beyond the 130 MHz budget.
        EXPECT_EQ(AudioResampler::loadMHz(), base + 3 + 6 + 20 + 4 * 34);
    }
    EXPECT_EQ(AudioResampler::loadMHz(), base);
}

class QualityProperty : public ::testing::Test {
protected:
    void set(const char* value) {
        wavoryx_set_property("af.resampler.quality", value);
        AudioResampler::resetDefaultQualityForTesting();
    }
    uint32_t defaultCharge() {
        std::unique_ptr<AudioResampler> r(AudioResampler::create(16, 1, 8000, AudioResampler::SRC_DEFAULT));
        return r->chargedMHz();
    }
    void TearDown() override { set(nullptr); }
};

TEST_F(QualityProperty, SelectsTheDefaultCharge) {
    set("3");
    EXPECT_EQ(defaultCharge(), 20u);
    set("0x4");
    EXPECT_EQ(defaultCharge(), 34u);
    set("02");
    EXPECT_EQ(defaultCharge(), 6u);
    set("7");
    EXPECT_EQ(defaultCharge(), 3u);
    set("x");
    EXPECT_EQ(defaultCharge(), 3u);
    set("3 ");
    EXPECT_EQ(defaultCharge(), 3u);
    set(nullptr);
    EXPECT_EQ(defaultCharge(), 3u);
}

TEST_F(QualityProperty, IsReadOncePerProcess) {
    set("3");
    EXPECT_EQ(defaultCharge(), 20u);
    wavoryx_set_property("af.resampler.quality", "4");
    EXPECT_EQ(defaultCharge(), 20u);
}

TEST_F(QualityProperty, DefaultStepsDownToFitTheBudget) {
    set("4");
    const uint32_t base = AudioResampler::loadMHz();
    std::vector<std::unique_ptr<AudioResampler>> all;
    for (int i = 0; i < 3; ++i) all.emplace_back(AudioResampler::create(16, 2, 44100, AudioResampler::SRC_VERY_HIGH));
    ASSERT_EQ(AudioResampler::loadMHz(), base + 102);
    std::vector<uint32_t> charges;
    for (int i = 0; i < 3; ++i) {
        all.emplace_back(AudioResampler::create(16, 2, 44100, AudioResampler::SRC_DEFAULT));
        charges.push_back(all.back()->chargedMHz());
    }
    if (base == 0) {
        // 102 + 34 > 130, so 20 (122); then 6 (128); then only 3 fits no
        // more, and quality 1 is taken anyway (131).
        EXPECT_EQ(charges, (std::vector<uint32_t>{20, 6, 3}));
    }
    all.clear();
    EXPECT_EQ(AudioResampler::loadMHz(), base);
}

TEST(AudioResamplerLoad, ConcurrentCreationKeepsTheTotal) {
    const uint32_t base = AudioResampler::loadMHz();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) {
                std::unique_ptr<AudioResampler> r(
                    AudioResampler::create(16, 2, 44100, AudioResampler::src_quality(i % 5)));
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(AudioResampler::loadMHz(), base);
}

TEST(AudioResamplerOrder1, UnrolledLoopsInterpolateAt16BitsAndAccumulate) {
    const std::vector<int16_t> in = {0, 0, 1000, -1000, 2000, -2000, 3000, -3000};
    std::vector<int32_t> out(8, 10);
    size_t outputIndex = 0;
    size_t inputIndex = 1;
    uint32_t fraction = 0;
    wv::AudioResamplerOrder1::AsmStereo16Loop(in.data(), out.data(), out.data() + 8, 3, outputIndex, inputIndex,
                                              fraction, 2, 1, 1u << 29);
    // Steps of one half from frame 0: 0, 500, 1000, 1500 on the left.
    EXPECT_EQ(out, (std::vector<int32_t>{10, 10, 1010, -490, 2010, -990, 3010, -1490}));
    EXPECT_EQ(outputIndex, 8u);
    EXPECT_EQ(inputIndex, 3u);
    EXPECT_EQ(fraction, 0u);

    const std::vector<int16_t> mono = {0, 400, 800, 1200, 1600};
    std::vector<int32_t> monoOut(8, 0);
    outputIndex = 0;
    inputIndex = 1;
    fraction = 0;
    // The input limit is tested after each pair: the pass that reaches index
    // 3 is the last even though output room remains.
    wv::AudioResamplerOrder1::AsmMono16Loop(mono.data(), monoOut.data(), monoOut.data() + 8, 3, outputIndex, inputIndex,
                                            fraction, 1, 3, 1u << 30);
    EXPECT_EQ(outputIndex, 4u);
    EXPECT_EQ(inputIndex, 3u);
    EXPECT_EQ(monoOut, (std::vector<int32_t>{0, 0, 400, 1200, 0, 0, 0, 0}));
}

}  // namespace
