// Deterministic programme material for loudness and limiter checks: float
// audio (full scale = 1.0) shaped like music and like speech, with the
// transients and peak-to-loudness ratios of the real thing, and its
// conversion to 16-bit at a chosen level.
//
// Free of GoogleTest so that benchmarks can use it too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wvtest {

// Chords that change every 2 s under a kick (a falling 60 Hz thump with a
// click) every 0.5 s and hi-hat noise bursts between them, panned a little
// differently in each channel. Interleaved, peak exactly 1.0.
std::vector<float> musicLike(int rate, int channels, double seconds, uint32_t seed = 1);

// Syllables of 120-320 ms (a glottal pulse train at a wandering 100-220 Hz
// through two formant resonators, under a rise-and-fall envelope, some
// opened by a noise burst) with short gaps between them and longer pauses
// between phrases; the same in every channel. Interleaved, peak exactly 1.0.
std::vector<float> speechLike(int rate, int channels, double seconds, uint32_t seed = 1);

// `samples` x 10^(gainDb / 20), rounded to 16-bit and clipped to full scale.
std::vector<int16_t> toInt16(const std::vector<float>& samples, double gainDb);

// Square wave of `freq` Hz at full scale (every sample +-1).
std::vector<float> squareWave(int rate, int channels, double seconds, double freq);

}  // namespace wvtest
