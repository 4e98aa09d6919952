// A measurement split into parts (LoudnessMeter::blockHop, kPrimingHops,
// integratedOf): the hop as the library rounds it, and parts cut at its
// multiples and primed with the hops before them measuring what one meter
// of the whole measures, against parts left unprimed.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "ProgrammeSignals.h"
#include "dsp/LoudnessMeter.h"

namespace {

using wv::LoudnessMeter;
using wv::MeterScope;

// The integrated loudness of `samples` cut at `cuts` (frames), each part
// but the first fed with `priming` frames before it.
double inParts(const std::vector<float>& samples, int rate, int channels, const std::vector<size_t>& cuts,
               size_t priming) {
    std::vector<std::unique_ptr<LoudnessMeter>> meters;
    std::vector<const LoudnessMeter*> views;
    const size_t frames = samples.size() / channels;
    for (size_t k = 0; k <= cuts.size(); ++k) {
        const size_t start = k == 0 ? 0 : cuts[k - 1];
        const size_t end = k == cuts.size() ? frames : cuts[k];
        const size_t from = start - std::min(start, priming);
        meters.emplace_back(new LoudnessMeter(uint32_t(rate), uint32_t(channels), MeterScope::kIntegrated));
        EXPECT_TRUE(meters.back()->add(samples.data() + from * channels, end - from));
        views.push_back(meters.back().get());
    }
    double lufs = 0.0;
    EXPECT_TRUE(LoudnessMeter::integratedOf(views.data(), views.size(), &lufs));
    return lufs;
}

TEST(LoudnessMeterParts, PrimedPartsAtBlockHopsMeasureTheWhole) {
    EXPECT_EQ(LoudnessMeter::blockHop(48000), 4800u);
    EXPECT_EQ(LoudnessMeter::blockHop(44100), 4410u);
    EXPECT_EQ(LoudnessMeter::blockHop(22050), 2205u);
    EXPECT_EQ(LoudnessMeter::blockHop(11025), 1103u);

    for (int kind = 0; kind < 2; ++kind) {
        SCOPED_TRACE(kind == 0 ? "music" : "speech");
        const int rate = 44100, channels = 2;
        const std::vector<float> samples = kind == 0 ? wvtest::musicLike(rate, channels, 20.0, 4)
                                                     : wvtest::speechLike(rate, channels, 20.0, 4);
        LoudnessMeter one(rate, channels, MeterScope::kIntegrated);
        ASSERT_TRUE(one.add(samples.data(), samples.size() / channels));
        double whole = 0.0;
        ASSERT_TRUE(one.integrated(&whole));
        ASSERT_TRUE(std::isfinite(whole));

        const size_t hop = LoudnessMeter::blockHop(rate);
        std::vector<size_t> cuts;
        for (size_t k = 1; k < 20; ++k) cuts.push_back(k * 10 * hop + (k % 3) * hop);
        const double primed = inParts(samples, rate, channels, cuts, LoudnessMeter::kPrimingHops * hop);
        EXPECT_NEAR(primed, whole, 0.01);
        // Unprimed, the blocks across every cut are missing.
        const double unprimed = inParts(samples, rate, channels, cuts, 0);
        EXPECT_GT(std::fabs(unprimed - whole), std::fabs(primed - whole));
    }
}

TEST(LoudnessMeterParts, NoPartsOrAMeterThatCannotMeasureGiveNoFigure) {
    double lufs = 0.0;
    EXPECT_FALSE(LoudnessMeter::integratedOf(nullptr, 0, &lufs));
    LoudnessMeter good(48000, 2, MeterScope::kIntegrated);
    LoudnessMeter refused(1, 2, MeterScope::kIntegrated);
    ASSERT_FALSE(refused.valid());
    const LoudnessMeter* meters[] = {&good, &refused};
    EXPECT_FALSE(LoudnessMeter::integratedOf(meters, 2, &lufs));
    const LoudnessMeter* silent[] = {&good};
    ASSERT_TRUE(LoudnessMeter::integratedOf(silent, 1, &lufs));
    EXPECT_EQ(lufs, -HUGE_VAL) << "nothing fed: no loudness";
}

}  // namespace
