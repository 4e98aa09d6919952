// Test audio made at test time: deterministic tones written as canonical
// 16-bit WAV files by hand, other formats encoded from them with the ffmpeg
// command, and helpers to read WAV samples back and to measure a tone.
//
// Free of GoogleTest so that benchmarks can use it too. Paths are plain
// file paths; every function returns false (or an empty result) on failure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wvtest {

// Interleaved 16-bit samples of a sine tone of `freq` Hz. Every channel
// carries the same tone; channel c has amplitude `amplitude` * (1 - c / 8)
// (full scale = 1.0), so a swap or mix of channels shows in the levels.
std::vector<int16_t> makeTone(int rate, int channels, double seconds, double freq, double amplitude = 0.5);

// A canonical WAV file: 44-byte header, then the samples little-endian.
bool writeWav(const std::string& path, const std::vector<int16_t>& samples, int rate, int channels);
bool writeToneWav(const std::string& path, int rate, int channels, double seconds, double freq);

// 16-bit PCM samples of a WAV file, canonical or not (chunks are walked);
// false for other sample formats.
bool readWavSamples(const std::string& path, std::vector<int16_t>* samples, int* rate = nullptr,
                    int* channels = nullptr);

// The 44 header bytes of a canonical WAV file for `dataBytes` of samples.
std::vector<uint8_t> canonicalWavHeader(int rate, int channels, uint32_t dataBytes);

// Runs `ffmpeg -i in <extraArgs> out` quietly, overwriting `out`.
// `extraArgs` is passed to the shell as is (e.g. "-c:a flac").
bool encodeWithFfmpeg(const std::string& inPath, const std::string& outPath, const std::string& extraArgs = "");
// Runs ffmpeg with arbitrary arguments (after -y), e.g. to mux several inputs.
bool runFfmpeg(const std::string& args);
bool ffmpegAvailable();
// A path quoted for the shell.
std::string shellQuote(const std::string& text);

// An AMR-NB file ("#!AMR\n" then 12.2 kbit/s frames of 20 ms) of
// deterministic noise-like content: 8000 Hz mono when decoded.
bool writeAmrNb(const std::string& path, double seconds);

// Frequency of the tone in one channel, from the spacing of its rising zero
// crossings (interpolated); 0 when there are fewer than two.
double estimateFrequency(const int16_t* samples, size_t frames, int channels, int channel, int rate);
// Root mean square of one channel, full scale = 32768.
double channelRms(const int16_t* samples, size_t frames, int channels, int channel);

}  // namespace wvtest
