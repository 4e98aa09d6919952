// The true-peak limiter: its output's true peak, as libebur128 measures it,
// stays under the ceiling on material that stresses a limiter (transients,
// full-scale squares and impulses whose inter-sample peaks exceed full
// scale); its output has the input's length and timing; what is under the
// ceiling passes untouched; its gain moves in ramps, not steps.
#include "dsp/TruePeakLimiter.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "ProgrammeSignals.h"
#include "TestSupport.h"

namespace {

using Samples = std::vector<float>;

double toDb(double linear) { return 20.0 * std::log10(linear); }

Samples scaled(Samples s, double gainDb) {
    const float gain = float(std::pow(10.0, gainDb / 20.0));
    for (float& v : s) v *= gain;
    return s;
}

// Runs the whole signal through a new limiter in blocks of the given sizes
// (cycled), then flushes it.
Samples limit(const Samples& in, int rate, int channels, const wv::LimiterSettings& settings,
              const std::vector<size_t>& blocks = {4096}) {
    wv::TruePeakLimiter limiter(uint32_t(rate), uint32_t(channels), settings);
    const size_t frames = in.size() / size_t(channels);
    Samples out(in.size() + size_t(limiter.latencyFrames()) * channels);
    size_t done = 0, written = 0;
    for (size_t b = 0; done < frames; ++b) {
        const size_t n = std::min(blocks[b % blocks.size()], frames - done);
        written += limiter.process(in.data() + done * channels, n, out.data() + written * channels);
        done += n;
    }
    written += limiter.flush(out.data() + written * channels);
    out.resize(written * channels);
    return out;
}

// libebur128's true peak (dBTP) of float samples, the largest channel.
double meteredTruePeakDb(const Samples& s, int rate, int channels) {
    ebur128_state* st = ebur128_init(unsigned(channels), unsigned(rate), EBUR128_MODE_TRUE_PEAK);
    ebur128_add_frames_float(st, s.data(), s.size() / size_t(channels));
    double peak = 0.0;
    for (int c = 0; c < channels; ++c) {
        double p = 0.0;
        ebur128_true_peak(st, unsigned(c), &p);
        peak = std::max(peak, p);
    }
    ebur128_destroy(&st);
    return toDb(peak);
}

// A little headroom for float rounding only: a ceiling is a ceiling.
constexpr double kSlackDb = 0.001;

struct Material {
    std::string name;
    Samples samples;
    int rate;
    int channels;
};

std::vector<Material> hardMaterial() {
    std::vector<Material> m;
    m.push_back({"music +12 dB", scaled(wvtest::musicLike(48000, 2, 6.0), 12.0), 48000, 2});
    m.push_back({"speech +15 dB", scaled(wvtest::speechLike(44100, 1, 6.0), 15.0), 44100, 1});
    m.push_back({"square 1 kHz full scale", wvtest::squareWave(44100, 2, 2.0, 1000.0), 44100, 2});
    m.push_back({"square 5 kHz full scale", wvtest::squareWave(48000, 1, 2.0, 5000.0), 48000, 1});
    // Lone full-scale impulses and +1 -1 pairs: the pairs' interpolated peak
    // lies well above full scale, between the two samples.
    Samples impulses(48000 * 2, 0.0f);
    for (size_t k = 1000; k + 1 < 48000; k += 4000) {
        impulses[k * 2] = 1.0f;
        impulses[k * 2 + 1] = -1.0f;
        impulses[(k + 1) * 2] = -1.0f;
        impulses[(k + 1) * 2 + 1] = 1.0f;
        impulses[(k + 2000) * 2] = 1.0f;
    }
    m.push_back({"impulses", impulses, 48000, 2});
    return m;
}

TEST(TruePeakLimiterTest, OutputTruePeakStaysUnderTheCeiling) {
    for (double ceiling : wvtest::sampled<double>({-1.0, -2.0, -0.1}, 2)) {
        wv::LimiterSettings settings;
        settings.ceilingDbtp = ceiling;
        for (const Material& m : hardMaterial()) {
            const double before = meteredTruePeakDb(m.samples, m.rate, m.channels);
            ASSERT_GT(before, ceiling + 0.3) << m.name << ": the material must need limiting";
            const Samples out = limit(m.samples, m.rate, m.channels, settings, {4096, 333, 1});
            EXPECT_LE(meteredTruePeakDb(out, m.rate, m.channels), ceiling + kSlackDb) << m.name << " at " << ceiling;
            EXPECT_LE(toDb(wv::TruePeakLimiter::truePeak(out.data(), out.size() / m.channels, m.channels)),
                      ceiling + kSlackDb)
                << m.name;
        }
    }
}

TEST(TruePeakLimiterTest, OwnEstimateIsNeverBelowTheMeters) {
    // The limiter's interpolator is sharper than libebur128's: it may see
    // more near the Nyquist frequency, never less.
    for (const Material& m : hardMaterial()) {
        const double ours =
            toDb(wv::TruePeakLimiter::truePeak(m.samples.data(), m.samples.size() / m.channels, m.channels));
        const double meter = meteredTruePeakDb(m.samples, m.rate, m.channels);
        EXPECT_GE(ours, meter - 0.02) << m.name;
        EXPECT_LE(ours, meter + 1.0) << m.name;
    }
}

TEST(TruePeakLimiterTest, AudioUnderTheCeilingComesOutUnchangedAndAligned) {
    wv::LimiterSettings settings;
    settings.ceilingDbtp = -1.0;
    const Samples quiet = scaled(wvtest::musicLike(44100, 2, 3.0), -3.0);
    ASSERT_LT(meteredTruePeakDb(quiet, 44100, 2), -1.0);
    for (const std::vector<size_t>& blocks : std::vector<std::vector<size_t>>{{4096}, {1}, {7, 1000, 64}}) {
        const Samples out = limit(quiet, 44100, 2, settings, blocks);
        ASSERT_EQ(out.size(), quiet.size());
        EXPECT_TRUE(out == quiet) << "block sizes starting " << blocks[0];
    }
    // Streams shorter than the latency come out whole on flush.
    const Samples tiny(10 * 2, 0.25f);
    EXPECT_EQ(limit(tiny, 44100, 2, settings), tiny);
    EXPECT_TRUE(limit(Samples(), 44100, 2, settings).empty());
}

TEST(TruePeakLimiterTest, LimitedAudioKeepsLengthTimingAndBlockIndependence) {
    wv::LimiterSettings settings;
    settings.ceilingDbtp = -6.0;
    const Samples loud = scaled(wvtest::musicLike(48000, 2, 4.0), 3.0);
    const Samples whole = limit(loud, 48000, 2, settings, {100000});
    ASSERT_EQ(whole.size(), loud.size());
    EXPECT_EQ(limit(loud, 48000, 2, settings, {1, 17, 4096, 3}), whole);
    // Each output sample is the input sample at the same time times a gain
    // in (0, 1]: same sign, never larger. A shift of even one frame breaks
    // that on this material.
    size_t checked = 0;
    for (size_t n = 0; n < loud.size(); ++n) {
        if (std::fabs(loud[n]) < 1e-3f) continue;
        ASSERT_GE(whole[n] / loud[n], 0.0f) << "sample " << n;
        ASSERT_LE(whole[n] / loud[n], 1.0f + 1e-6f) << "sample " << n;
        ++checked;
    }
    EXPECT_GT(checked, loud.size() / 2);
}

TEST(TruePeakLimiterTest, GainRampsDownBeforeAPeakAndReleasesSmoothly) {
    // A steady level under the ceiling, one burst above it: the gain is
    // out / in on every frame.
    const int rate = 48000;
    wv::LimiterSettings settings;
    settings.ceilingDbtp = -6.0;
    settings.lookaheadMs = 5.0;
    settings.releaseMs = 100.0;
    Samples in(size_t(rate), 0.25f);
    const size_t burst = 24000;
    for (size_t k = burst; k < burst + 48; ++k) in[k] = 0.9f;
    const Samples out = limit(in, rate, 1, settings);
    ASSERT_EQ(out.size(), in.size());
    std::vector<double> gain(in.size());
    for (size_t k = 0; k < in.size(); ++k) gain[k] = out[k] / in[k];

    const size_t lookahead = 240;
    EXPECT_EQ(gain[burst - lookahead - 40], 1.0) << "untouched before the ramp";
    EXPECT_LT(gain[burst - 40], 1.0) << "ramping down ahead of the burst";
    EXPECT_LE(gain[burst] * 0.9, std::pow(10.0, -6.0 / 20.0) * 1.0001) << "down by the peak";
    // No step: a ramp over the look-ahead changes by at most depth / length
    // per frame, and so does the release.
    const double depth = 1.0 - *std::min_element(gain.begin(), gain.end());
    double largestStep = 0.0;
    for (size_t k = 1; k < gain.size(); ++k) largestStep = std::max(largestStep, std::fabs(gain[k] - gain[k - 1]));
    EXPECT_LE(largestStep, depth / double(lookahead) * 1.01);
    // Release: about 63 % recovered one time constant after the hold, fully
    // back after 1 s minus a few.
    const double after = gain[burst + 48 + 20 + 4800];
    EXPECT_GT(after, 1.0 - depth * 0.45);
    EXPECT_LT(after, 1.0 - depth * 0.2);
    EXPECT_NEAR(gain.back(), 1.0, 0.01);
}

TEST(TruePeakLimiterTest, SteadyLoudToneGetsASteadyGain) {
    // A sine 6 dB over the ceiling: after the first attack, one gain for
    // every period (no pumping at the rate of the waveform).
    const int rate = 44100;
    Samples tone(size_t(rate) * 2);
    for (size_t k = 0; k < tone.size(); ++k) tone[k] = float(std::sin(2.0 * 3.14159265358979 * 100.0 * k / rate));
    wv::LimiterSettings settings;
    settings.ceilingDbtp = -6.0;
    const Samples out = limit(tone, rate, 1, settings);
    float lowest = 1.0f, highest = 0.0f;
    for (size_t k = size_t(rate) / 2; k < tone.size(); ++k) {
        if (std::fabs(tone[k]) < 0.5f) continue;
        const float g = out[k] / tone[k];
        lowest = std::min(lowest, g);
        highest = std::max(highest, g);
    }
    EXPECT_LT(toDb(highest) - toDb(lowest), 0.1);
    EXPECT_NEAR(toDb(highest), -6.0, 0.2);
}

}  // namespace
