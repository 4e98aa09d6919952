// The PNG picture of a waveform, drawn with Cairo (antialiased): one column
// per (min, max) pair, a centre line, and under the wave a time axis with
// labelled ticks when the picture is at least kAxisMinHeight pixels high.
#ifndef WAVORYX_CLI_WAVEFORMPNG_H
#define WAVORYX_CLI_WAVEFORMPNG_H

#include <cstdint>
#include <string>
#include <vector>

#include "WaveformPicture.h"

namespace wvcli {

constexpr int kAxisMinHeight = 64;
constexpr int kAxisHeight = 18;  // pixels under the wave for ticks and labels

// A 32-bit RGBA PNG, minMax.size() / 2 pixels wide and `height` high, of the
// pairs over [fromMs, toMs), in `png`. The background is painted as it is
// (alpha included: alpha 0 gives a transparent picture). Returns false with
// `why` set when Cairo cannot make it.
bool drawWaveformPng(const std::vector<int16_t>& minMax, int height, uint64_t fromMs, uint64_t toMs,
                     const PictureStyle& style, std::string& png, std::string& why);

// The same PNG into a new file at `path` (an existing one is refused; see
// writeNewFile). Returns false with `why` set when the file cannot be
// written; a partial file is removed.
bool writeWaveformPng(const std::string& path, const std::vector<int16_t>& minMax, int height, uint64_t fromMs,
                      uint64_t toMs, const PictureStyle& style, std::string& why);

}  // namespace wvcli

#endif
