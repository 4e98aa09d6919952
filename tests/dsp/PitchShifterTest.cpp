#include <wavoryx/dsp.h>
#include <wavoryx/platform.h>

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "TestSupport.h"
#include "dsp/PhaseVocoder.h"

namespace {

constexpr float kRate = 44100.0f;

using Samples = std::vector<int16_t>;

Samples tone(double hz, size_t count) {
    Samples out(count);
    for (size_t n = 0; n < count; ++n) out[n] = int16_t(8000.0 * std::sin(2.0 * M_PI * hz * n / kRate));
    return out;
}

Samples noise(size_t count, unsigned seed) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> dist(-6000, 6000);
    Samples out(count);
    for (auto& s : out) s = int16_t(dist(gen));
    return out;
}

// The exported shifter's state is process-wide; a call with other frame
// parameters is what starts a fresh stream, so switch away and back.
void restartExportedStream() { smbPitchShift(1.0f, 0, 2, 1, kRate, nullptr, nullptr); }

Samples shiftExported(float ratio, const Samples& in, long frameSize, long osamp) {
    Samples out(in.size());
    smbPitchShift(ratio, long(in.size()), frameSize, osamp, kRate, const_cast<int16_t*>(in.data()), out.data());
    return out;
}

Samples shiftFresh(float ratio, const Samples& in, long frameSize, long osamp) {
    auto vocoder = std::make_unique<wv::PhaseVocoder>();
    Samples out(in.size());
    vocoder->process(ratio, long(in.size()), frameSize, osamp, kRate, in.data(), out.data());
    return out;
}

// Frequency (1 Hz steps, 40 ... 4000 Hz) with the most energy in `count`
// Hann-windowed samples of `x` from `from`.
double dominantFrequency(const Samples& x, size_t from, size_t count) {
    std::vector<double> windowed(count);
    for (size_t n = 0; n < count; ++n) {
        windowed[n] = (0.5 - 0.5 * std::cos(2.0 * M_PI * double(n) / double(count))) * x[from + n];
    }
    double bestHz = 0.0;
    double bestPower = -1.0;
    for (double hz = 40.0; hz <= 4000.0; hz += 1.0) {
        const std::complex<double> step = std::polar(1.0, -2.0 * M_PI * hz / kRate);
        std::complex<double> rotor = 1.0;
        std::complex<double> sum = 0.0;
        for (size_t n = 0; n < count; ++n, rotor *= step) sum += windowed[n] * rotor;
        if (std::norm(sum) > bestPower) {
            bestPower = std::norm(sum);
            bestHz = hz;
        }
    }
    return bestHz;
}

double rms(const Samples& x, size_t from, size_t count) {
    double sum = 0.0;
    for (size_t n = from; n < from + count; ++n) sum += double(x[n]) * x[n];
    return std::sqrt(sum / double(count));
}

TEST(PitchShifter, FreshStreamIsSilentForOneHopAndLagsAWholeFrame) {
    restartExportedStream();
    const Samples in = noise(16384, 11);
    const Samples out = shiftExported(1.0f, in, 1024, 4);
    for (size_t n = 0; n < 256; ++n) ASSERT_EQ(out[n], 0) << n;

    size_t bestLag = 0;
    double bestCorr = 0.0;
    for (size_t lag = 0; lag < 2048; ++lag) {
        double corr = 0.0;
        for (size_t n = 4096; n < 12288; ++n) corr += double(out[n]) * in[n - lag];
        if (corr > bestCorr) {
            bestCorr = corr;
            bestLag = lag;
        }
    }
    EXPECT_EQ(bestLag, 1024u);
    // At unit shift the output is the input a frame later, with the Hann
    // overlap-add gain of 1.5 at overlap 4.
    double err = 0.0;
    for (size_t n = 4096; n < 12288; ++n) err = std::max(err, std::fabs(out[n] - 1.5 * in[n - 1024]));
    EXPECT_LT(err, 1000.0);
}

TEST(PitchShifter, ShiftsAToneByTheRatioWithinOneBin) {
    const Samples in = tone(440.0, 16384);
    for (float ratio : {2.0f, 0.5f, 1.0f}) {
        const Samples out = shiftFresh(ratio, in, 1024, 4);
        EXPECT_NEAR(dominantFrequency(out, 4096, 8192), 440.0 * ratio, kRate / 1024.0) << ratio;
    }
    const Samples wide = shiftFresh(2.0f, in, 2048, 4);
    EXPECT_NEAR(dominantFrequency(wide, 4096, 8192), 880.0, kRate / 2048.0);
}

TEST(PitchShifter, ComponentsShiftedAboveNyquistAreDropped) {
    const Samples in = tone(15000.0, 8192);
    const Samples out = shiftFresh(2.0f, in, 1024, 4);
    EXPECT_LT(rms(out, 2048, 6144), 0.01 * rms(in, 2048, 6144));
}

TEST(PitchShifter, FullScaleEntersAsMinusOneAndOverflowClampsAt32767) {
    auto vocoder = std::make_unique<wv::PhaseVocoder>();
    int16_t in = -32768;
    int16_t out = 1;
    vocoder->process(1.0f, 1, 1024, 4, kRate, &in, &out);
    EXPECT_EQ(vocoder->inputFifo()[768], -1.0f);
    EXPECT_EQ(vocoder->rover(), 769);

    // A slow full-scale square wave comes out 1.5 times too loud.
    Samples square(12000);
    for (size_t n = 0; n < square.size(); ++n) square[n] = (n / 1500) % 2 ? -32768 : 32767;
    const Samples shifted = shiftFresh(1.0f, square, 1024, 4);
    for (size_t n = 2048; n < square.size(); ++n) {
        const size_t phase = (n - 1024) % 1500;
        if (phase < 300 || phase > 1200) continue;  // away from the edges' ringing
        ASSERT_EQ(shifted[n], square[n - 1024] > 0 ? 32767 : -32767) << n;
    }
}

TEST(PitchShifter, CallSizesAndInPlaceUseDoNotChangeTheStream) {
    const Samples in = noise(10000, 5);
    const Samples whole = shiftFresh(0.75f, in, 512, 8);

    auto vocoder = std::make_unique<wv::PhaseVocoder>();
    Samples pieces = in;  // processed in place
    const long sizes[] = {1, 63, 64, 65, 0, 700, 3};
    size_t done = 0;
    for (size_t i = 0; done < in.size(); ++i) {
        const long n = std::min<long>(sizes[i % 7], long(in.size() - done));
        vocoder->process(0.75f, n, 512, 8, kRate, pieces.data() + done, pieces.data() + done);
        done += size_t(n);
    }
    EXPECT_EQ(pieces, whole);

    restartExportedStream();
    EXPECT_EQ(shiftExported(0.75f, in, 512, 8), whole);
}

TEST(PitchShifter, UnusableArgumentsWriteSilenceAndLeaveTheStreamAlone) {
    wvtest::LogCapture log;
    Samples in = noise(6000, 9);
    const Samples expected = shiftFresh(1.5f, in, 1024, 4);
    restartExportedStream();
    Samples out(in.size());
    smbPitchShift(1.5f, 2500, 1024, 4, kRate, in.data(), out.data());

    auto writesSilence = [&](long frameSize, long osamp, float rate, float ratio) {
        Samples junk(300, 0x5555);
        smbPitchShift(ratio, 300, frameSize, osamp, rate, in.data(), junk.data());
        return junk == Samples(300, 0);
    };
    for (long size : {1000L, 16384L, 1L, 0L, -1024L}) EXPECT_TRUE(writesSilence(size, 1, kRate, 1.5f));
    for (long osamp : {3L, 0L, -4L, 2048L}) EXPECT_TRUE(writesSilence(1024, osamp, kRate, 1.5f));
    EXPECT_TRUE(writesSilence(1024, 4, 0.0f, 1.5f));
    EXPECT_TRUE(writesSilence(1024, 4, NAN, 1.5f));
    EXPECT_TRUE(writesSilence(1024, 4, kRate, NAN));
    size_t errors = 0;
    for (const auto& line : log.lines()) {
        errors += line.priority == WAVORYX_LOG_ERROR && line.message.rfind("smbPitchShift: unusable arguments", 0) == 0;
    }
    EXPECT_EQ(errors, 12u);

    smbPitchShift(1.5f, 3500, 1024, 4, kRate, in.data() + 2500, out.data() + 2500);
    EXPECT_EQ(out, expected);
}

TEST(PitchShifter, NewFrameParametersStartANewStream) {
    const Samples first = noise(3000, 21);
    const Samples second = noise(5000, 22);

    restartExportedStream();
    shiftExported(1.0f, first, 1024, 4);
    EXPECT_EQ(shiftExported(2.0f, second, 2048, 4), shiftFresh(2.0f, second, 2048, 4));
    EXPECT_EQ(shiftExported(2.0f, second, 2048, 8), shiftFresh(2.0f, second, 2048, 8));
    EXPECT_EQ(shiftExported(0.5f, first, 1024, 4), shiftFresh(0.5f, first, 1024, 4));
    // Same parameters continue the stream instead.
    EXPECT_NE(shiftExported(0.5f, first, 1024, 4), shiftFresh(0.5f, first, 1024, 4));
}

TEST(PitchShifter, ConcurrentCallersAreSerialised) {
    // Run under the thread sanitizer: the shared state must never be touched
    // by two calls at once, even when the results are meaningless.
    const Samples in = noise(4096, 31);
    auto worker = [&in] {
        for (int i = 0; i < 4; ++i) shiftExported(1.25f, in, 256, 4);
    };
    std::thread a(worker);
    std::thread b(worker);
    a.join();
    b.join();
}

}  // namespace
