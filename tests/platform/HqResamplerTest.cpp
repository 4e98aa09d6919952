#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include <wavoryx/platform.h>

#include "TestSupport.h"
#include "platform/resample/AudioResampler.h"

namespace {

using wv::AudioBufferProvider;
using wv::AudioResampler;

constexpr double kPi = 3.14159265358979323846;

// Lends a fixed signal in pieces of at most `piece` frames; with `pauseAt`
// it runs dry once there (as a source still being decoded does) until
// resume() is called.
class SignalProvider : public AudioBufferProvider {
public:
    SignalProvider(std::vector<int16_t> samples, int channels, uint32_t piece, size_t pauseAt = SIZE_MAX)
        : mSamples(std::move(samples)), mChannels(channels), mPiece(piece), mPauseAt(pauseAt) {}

    int32_t getNextBuffer(Buffer* buffer, int64_t) override {
        const size_t total = mSamples.size() / size_t(mChannels);
        const size_t limit = std::min(total, mPauseAt);
        const size_t count = std::min<size_t>({buffer->frameCount, mPiece, limit - mPosition});
        if (count == 0) {
            buffer->raw = nullptr;
            buffer->frameCount = 0;
            return -1;
        }
        buffer->i16 = mSamples.data() + mPosition * size_t(mChannels);
        buffer->frameCount = uint32_t(count);
        return 0;
    }
    void releaseBuffer(Buffer* buffer) override {
        mPosition += buffer->frameCount;
        buffer->raw = nullptr;
        buffer->frameCount = 0;
    }
    void resume() { mPauseAt = SIZE_MAX; }

private:
    std::vector<int16_t> mSamples;
    int mChannels;
    uint32_t mPiece;
    size_t mPauseAt;
    size_t mPosition = 0;
};

std::vector<int16_t> sine(double frequency, int32_t rate, size_t frames, double amplitude, int channels = 1) {
    std::vector<int16_t> out;
    for (size_t n = 0; n < frames; ++n) {
        const double value = amplitude * 32767.0 * std::sin(2 * kPi * frequency * double(n) / rate);
        for (int c = 0; c < channels; ++c) out.push_back(int16_t(std::lround(value)));
    }
    return out;
}

std::unique_ptr<AudioResampler> makeHq(int channels, int32_t inRate, int32_t outRate,
                                       AudioResampler::src_quality quality = AudioResampler::SRC_HQ_HIGH) {
    std::unique_ptr<AudioResampler> r(AudioResampler::create(16, channels, outRate, quality));
    r->init();
    r->setVolume(1, 1);
    r->setSampleRate(inRate);
    return r;
}

// Converts the whole provider, asking for `request` frames per call, then
// drains the tail: the stereo output of a complete conversion.
std::vector<int16_t> convertAll(AudioResampler& r, AudioBufferProvider& provider, size_t request = 1000) {
    std::vector<int16_t> out;
    for (;;) {
        std::vector<int16_t> block(request * 2, 0);
        r.resample(block.data(), request, &provider);
        const size_t made = r.getOutputFrames();
        out.insert(out.end(), block.begin(), block.begin() + ptrdiff_t(made * 2));
        if (made == request) continue;
        if (r.outputPending()) continue;
        r.endInput();
        if (!r.outputPending()) break;
    }
    return out;
}

std::vector<int16_t> channel(const std::vector<int16_t>& stereo, int which, size_t skip = 0, size_t keep = SIZE_MAX) {
    std::vector<int16_t> out;
    for (size_t i = skip; i < stereo.size() / 2 && out.size() < keep; ++i) out.push_back(stereo[2 * i + size_t(which)]);
    return out;
}

double rms(const std::vector<int16_t>& samples) {
    double sum = 0;
    for (int16_t s : samples) sum += double(s) * s;
    return std::sqrt(sum / double(samples.size())) / 32768.0;
}

// Least-squares fit of a sin + b cos + c at the known frequency; returns the
// fitted amplitude and puts the RMS of what is left in *residual.
double fitSine(const std::vector<int16_t>& x, double frequency, int32_t rate, double* residual) {
    double m[3][4] = {};
    for (size_t n = 0; n < x.size(); ++n) {
        const double w = 2 * kPi * frequency * double(n) / rate;
        const double basis[3] = {std::sin(w), std::cos(w), 1.0};
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) m[i][j] += basis[i] * basis[j];
            m[i][3] += basis[i] * x[n];
        }
    }
    for (int i = 0; i < 3; ++i) {
        for (int k = i + 1; k < 3; ++k) {
            const double f = m[k][i] / m[i][i];
            for (int j = i; j < 4; ++j) m[k][j] -= f * m[i][j];
        }
    }
    double coef[3];
    for (int i = 2; i >= 0; --i) {
        double v = m[i][3];
        for (int j = i + 1; j < 3; ++j) v -= m[i][j] * coef[j];
        coef[i] = v / m[i][i];
    }
    double sum = 0;
    for (size_t n = 0; n < x.size(); ++n) {
        const double w = 2 * kPi * frequency * double(n) / rate;
        const double e = x[n] - (coef[0] * std::sin(w) + coef[1] * std::cos(w) + coef[2]);
        sum += e * e;
    }
    *residual = std::sqrt(sum / double(x.size()));
    return std::hypot(coef[0], coef[1]);
}

TEST(HqResampler, DownsamplingRemovesWhatLiesAboveTheNewNyquist) {
    // 10 kHz cannot exist at 16 kHz: the linear kind folds it to 6 kHz.
    for (auto quality : {AudioResampler::SRC_HQ_HIGH, AudioResampler::SRC_HQ_VERY_HIGH}) {
        SignalProvider provider(sine(10000, 44100, 44100, 0.99), 1, 1280);
        auto r = makeHq(1, 44100, 16000, quality);
        const auto out = convertAll(*r, provider);
        ASSERT_EQ(out.size(), 2u * 16000);
        EXPECT_LT(rms(channel(out, 0, 1000, 14000)), 0.003) << quality;
        EXPECT_LT(rms(channel(out, 1, 1000, 14000)), 0.003) << quality;
    }
}

TEST(HqResampler, UpsamplingASineAddsNoiseAndDistortionBelowMinus90Db) {
    for (auto quality : {AudioResampler::SRC_HQ_HIGH, AudioResampler::SRC_HQ_VERY_HIGH}) {
        for (double frequency : {997.0, 6001.0, 15013.0}) {
            SignalProvider provider(sine(frequency, 44100, 44100, 0.9, 2), 2, 777);
            auto r = makeHq(2, 44100, 48000, quality);
            const auto out = convertAll(*r, provider, 4096);
            ASSERT_EQ(out.size(), 2u * 48000);
            for (int c = 0; c < 2; ++c) {
                double residual = 0;
                const double amplitude = fitSine(channel(out, c, 2000, 44000), frequency, 48000, &residual);
                const double thdN = 20 * std::log10(residual / (amplitude / std::sqrt(2.0)));
                EXPECT_LT(thdN, -90.0) << "quality " << quality << ", " << frequency << " Hz";
            }
        }
    }
}

TEST(HqResampler, PassbandIsFlatTo90PercentOfTheLowerNyquist) {
    struct Pair {
        int32_t in, out;
    };
    for (const Pair pair : {Pair{44100, 48000}, Pair{48000, 44100}, Pair{44100, 16000}, Pair{8000, 192000}}) {
        const double nyquist = std::min(pair.in, pair.out) / 2.0;
        for (double share : {0.05, 0.3, 0.6, 0.8, 0.9}) {
            const double frequency = share * nyquist;
            SignalProvider provider(sine(frequency, pair.in, size_t(pair.in), 0.5), 1, 1280);
            auto r = makeHq(1, pair.in, pair.out);
            const auto out = convertAll(*r, provider, 4096);
            double inResidual = 0;
            const double inAmplitude =
                fitSine(sine(frequency, pair.in, size_t(pair.in), 0.5), frequency, pair.in, &inResidual);
            double residual = 0;
            const size_t margin = size_t(pair.out) / 10;
            const double amplitude =
                fitSine(channel(out, 0, margin, size_t(pair.out) - 2 * margin), frequency, pair.out, &residual);
            EXPECT_LT(std::fabs(20 * std::log10(amplitude / inAmplitude)), 0.1)
                << pair.in << " -> " << pair.out << " at " << frequency << " Hz";
        }
    }
}

TEST(HqResampler, OutputIsNotDelayed) {
    // Output frame k is the input signal at k / outRate.
    SignalProvider provider(sine(1000, 44100, 22050, 0.5), 1, 1280);
    auto r = makeHq(1, 44100, 48000);
    const auto out = convertAll(*r, provider);
    const auto ideal = sine(1000, 48000, 24000, 0.5);
    double worst = 0;
    for (size_t k = 1000; k < 23000; ++k) worst = std::max(worst, std::fabs(double(out[2 * k]) - ideal[k]));
    EXPECT_LT(worst, 3.0);
}

TEST(HqResampler, EndedInputGivesExactlyTheRoundedLength) {
    const int32_t rates[] = {8000, 11025, 16000, 22050, 44100, 48000, 96000, 192000};
    for (int32_t in : rates) {
        for (int32_t out : rates) {
            for (size_t frames : {size_t(1), size_t(1001), size_t(7919)}) {
                SignalProvider provider(sine(300, in, frames, 0.3, 2), 2, 1280);
                auto r = makeHq(2, in, out);
                const auto made = convertAll(*r, provider, 512);
                const uint64_t expected = (uint64_t(frames) * out * 2 + uint64_t(in)) / (2 * uint64_t(in));
                EXPECT_EQ(made.size() / 2, expected) << frames << " frames, " << in << " -> " << out;
            }
        }
    }
}

TEST(HqResampler, PiecesAndPausesDoNotChangeTheResult) {
    const auto signal = sine(440, 22050, 20000, 0.7, 2);
    SignalProvider whole(signal, 2, 20000);
    auto a = makeHq(2, 22050, 44100);
    const auto reference = convertAll(*a, whole, 50000);

    // A provider that runs dry part way (no end told) and odd request sizes.
    SignalProvider paused(signal, 2, 333, 12345);
    auto b = makeHq(2, 22050, 44100);
    std::vector<int16_t> out;
    for (int i = 0; i < 200; ++i) {
        std::vector<int16_t> block(2 * 517, 0);
        b->resample(block.data(), 517, &paused);
        out.insert(out.end(), block.begin(), block.begin() + ptrdiff_t(2 * b->getOutputFrames()));
    }
    EXPECT_FALSE(b->outputPending());
    EXPECT_LT(out.size(), reference.size());
    paused.resume();
    const auto rest = convertAll(*b, paused, 517);
    out.insert(out.end(), rest.begin(), rest.end());
    EXPECT_EQ(out, reference);
}

TEST(HqResampler, MonoFeedsBothChannelsAndGainsAddWithSaturation) {
    const auto signal = sine(1000, 48000, 4800, 0.9);
    SignalProvider plainProvider(signal, 1, 1280);
    auto plain = makeHq(1, 48000, 44100);
    const auto reference = convertAll(*plain, plainProvider);
    ASSERT_EQ(reference.size(), 2u * 4410);
    EXPECT_EQ(channel(reference, 0), channel(reference, 1));

    SignalProvider provider(signal, 1, 1280);
    auto r = makeHq(1, 48000, 44100);
    r->setVolume(2, -1);
    std::vector<int16_t> out(2 * 4410, 100);
    r->resample(out.data(), 4410, &provider);
    r->endInput();
    if (r->outputPending()) r->resample(out.data() + 2 * r->getOutputFrames(), 4410 - r->getOutputFrames(), &provider);
    for (size_t k = 0; k < 4410; ++k) {
        const int32_t s = reference[2 * k];
        EXPECT_EQ(out[2 * k], std::clamp(100 + 2 * s, -32768, 32767)) << k;
        EXPECT_EQ(out[2 * k + 1], std::clamp(100 - s, -32768, 32767)) << k;
    }
}

TEST(HqResampler, KindQualityAndCharge) {
    const uint32_t base = AudioResampler::loadMHz();
    {
        auto high = makeHq(2, 44100, 48000, AudioResampler::SRC_HQ_HIGH);
        auto best = makeHq(2, 44100, 48000, AudioResampler::SRC_HQ_VERY_HIGH);
        EXPECT_EQ(high->quality(), AudioResampler::SRC_HQ_HIGH);
        EXPECT_EQ(best->quality(), AudioResampler::SRC_HQ_VERY_HIGH);
        EXPECT_EQ(high->phaseIncrement(), 0u);
        EXPECT_EQ(AudioResampler::loadMHz(), base + AudioResampler::qualityMHz(AudioResampler::SRC_HQ_HIGH) +
                                                 AudioResampler::qualityMHz(AudioResampler::SRC_HQ_VERY_HIGH));
    }
    EXPECT_EQ(AudioResampler::loadMHz(), base);
    EXPECT_TRUE(AudioResampler::qualityIsSupported(AudioResampler::SRC_HQ_VERY_HIGH));
    EXPECT_FALSE(AudioResampler::qualityIsSupported(AudioResampler::src_quality(7)));
}

TEST(HqResampler, PropertyValues5And6MakeItTheProcessDefault) {
    const char* values[] = {"5", "6", "4"};
    const AudioResampler::src_quality kinds[] = {AudioResampler::SRC_HQ_HIGH, AudioResampler::SRC_HQ_VERY_HIGH,
                                                 AudioResampler::SRC_LOW};
    for (int i = 0; i < 3; ++i) {
        wavoryx_set_property("af.resampler.quality", values[i]);
        AudioResampler::resetDefaultQualityForTesting();
        std::unique_ptr<AudioResampler> r(AudioResampler::create(16, 2, 48000, AudioResampler::SRC_DEFAULT));
        EXPECT_EQ(r->quality(), kinds[i]) << values[i];
    }
    wavoryx_set_property("af.resampler.quality", nullptr);
    AudioResampler::resetDefaultQualityForTesting();
}

TEST(HqResampler, ResetStartsAFreshSignal) {
    const auto signal = sine(700, 32000, 3000, 0.5, 2);
    SignalProvider first(signal, 2, 1280);
    auto r = makeHq(2, 32000, 44100);
    const auto reference = convertAll(*r, first);
    r->reset();
    SignalProvider second(signal, 2, 1280);
    EXPECT_EQ(convertAll(*r, second), reference);
}

}  // namespace
