#include "ProgrammeSignals.h"

#include <algorithm>
#include <cmath>

namespace wvtest {
namespace {

constexpr double kPi = 3.14159265358979323846;

// A small repeatable generator: uniform in [-1, 1).
struct Noise {
    uint32_t state;
    double next() {
        state = state * 1664525u + 1013904223u;
        return double(state >> 8) / double(1u << 23) - 1.0;
    }
};

// Two-pole resonator at `freq` Hz with bandwidth `width` Hz, gain near 1 at
// its centre.
struct Resonator {
    double a1 = 0, a2 = 0, gain = 1, y1 = 0, y2 = 0;
    void tune(double freq, double width, int rate) {
        const double r = std::exp(-kPi * width / rate);
        a1 = 2.0 * r * std::cos(2.0 * kPi * freq / rate);
        a2 = -r * r;
        gain = 1.0 - r;
    }
    double run(double x) {
        const double y = gain * x + a1 * y1 + a2 * y2;
        y2 = y1;
        y1 = y;
        return y;
    }
};

void normalisePeak(std::vector<float>* samples) {
    float peak = 0.0f;
    for (float v : *samples) peak = std::max(peak, std::fabs(v));
    if (peak <= 0.0f) return;
    for (float& v : *samples) v /= peak;
}

}  // namespace

std::vector<float> musicLike(int rate, int channels, double seconds, uint32_t seed) {
    const size_t frames = size_t(seconds * rate);
    std::vector<float> out(frames * size_t(channels));
    Noise noise{seed * 2654435761u + 1};
    static const double kChords[4][3] = {
        {220.0, 277.2, 329.6}, {196.0, 246.9, 293.7}, {174.6, 220.0, 261.6}, {196.0, 246.9, 311.1}};
    for (size_t k = 0; k < frames; ++k) {
        const double t = double(k) / rate;
        const double* chord = kChords[size_t(t / 2.0) % 4];
        double pad = 0.0;
        for (int n = 0; n < 3; ++n) {
            // Three harmonics per note: a little brighter than sines.
            for (int h = 1; h <= 3; ++h) pad += std::sin(2.0 * kPi * chord[n] * h * t) / (h * h);
        }
        pad *= 0.12 * (0.8 + 0.2 * std::sin(2.0 * kPi * 0.3 * t));
        const double beat = std::fmod(t, 0.5);
        const double kickFreq = 60.0 + 90.0 * std::exp(-beat * 30.0);
        const double kick = 0.9 * std::exp(-beat * 9.0) * std::sin(2.0 * kPi * kickFreq * beat) +
                            (beat < 0.002 ? 0.5 * (1.0 - beat / 0.002) : 0.0);
        const double off = std::fmod(t + 0.25, 0.5);
        const double hat = 0.35 * std::exp(-off * 60.0) * noise.next();
        for (int c = 0; c < channels; ++c) {
            const double pan = channels == 1 ? 1.0 : (c == 0 ? 0.9 : 1.1);
            out[k * channels + c] = float(pad * pan + kick + hat * (2.0 - pan));
        }
    }
    normalisePeak(&out);
    return out;
}

std::vector<float> speechLike(int rate, int channels, double seconds, uint32_t seed) {
    const size_t frames = size_t(seconds * rate);
    std::vector<float> mono(frames, 0.0f);
    Noise noise{seed * 2246822519u + 7};
    Resonator f1, f2;
    size_t k = 0;
    int syllable = 0;
    while (k < frames) {
        const double length = 0.12 + 0.1 * (noise.next() + 1.0);  // 120-320 ms
        const size_t count = std::min(frames - k, size_t(length * rate));
        const double pitch = 160.0 + 60.0 * noise.next();
        f1.tune(500.0 + 250.0 * noise.next(), 90.0, rate);
        f2.tune(1500.0 + 600.0 * noise.next(), 120.0, rate);
        const bool plosive = noise.next() > 0.3;
        const double level = 0.6 + 0.4 * noise.next();
        double phase = 0.0;
        for (size_t n = 0; n < count; ++n) {
            const double t = double(n) / rate;
            const double f0 = pitch * (1.0 + 0.1 * std::sin(2.0 * kPi * 3.0 * t));
            phase += f0 / rate;
            // One sharp glottal pulse per period.
            double excitation = 0.0;
            if (phase >= 1.0) {
                phase -= 1.0;
                excitation = 1.0;
            }
            excitation += 0.02 * noise.next();
            const double envelope = std::sin(kPi * double(n) / double(count));
            double v = (f1.run(excitation) * 1.0 + f2.run(excitation) * 0.5) * envelope * level;
            if (plosive && t < 0.015) v += 0.4 * noise.next() * (1.0 - t / 0.015);
            mono[k + n] = float(v);
        }
        k += count;
        // Gaps: short between syllables, longer at the end of a phrase.
        const double gap = ++syllable % 6 == 0 ? 0.4 : 0.05 + 0.05 * (noise.next() + 1.0);
        k += size_t(gap * rate);
    }
    normalisePeak(&mono);
    std::vector<float> out(frames * size_t(channels));
    for (size_t n = 0; n < frames; ++n) {
        for (int c = 0; c < channels; ++c) out[n * channels + c] = mono[n];
    }
    return out;
}

std::vector<int16_t> toInt16(const std::vector<float>& samples, double gainDb) {
    const double gain = std::pow(10.0, gainDb / 20.0) * 32768.0;
    std::vector<int16_t> out(samples.size());
    for (size_t n = 0; n < samples.size(); ++n) {
        const double v = std::round(double(samples[n]) * gain);
        out[n] = int16_t(std::max(-32768.0, std::min(32767.0, v)));
    }
    return out;
}

std::vector<float> squareWave(int rate, int channels, double seconds, double freq) {
    const size_t frames = size_t(seconds * rate);
    std::vector<float> out(frames * size_t(channels));
    for (size_t k = 0; k < frames; ++k) {
        const float v = std::fmod(double(k) * freq / rate, 1.0) < 0.5 ? 1.0f : -1.0f;
        for (int c = 0; c < channels; ++c) out[k * channels + c] = v;
    }
    return out;
}

}  // namespace wvtest
