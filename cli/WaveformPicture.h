// Pictures of waveforms from the engine's true minimum and maximum pairs
// (getWaveformPeaks: one (min, max) pair of 16-bit samples per column):
// the scale of both drawings, the terminal's text drawing and the time
// axis and colours of the PNG (WaveformPng.h draws it).
#ifndef WAVORYX_CLI_WAVEFORMPICTURE_H
#define WAVORYX_CLI_WAVEFORMPICTURE_H

#include <cstdint>
#include <string>
#include <vector>

namespace wvcli {

// Linear: the sample's amplitude. Decibels: its level from kDecibelFloor
// (at the centre line) to 0 dBFS (at the edge), drawn on the side of its
// sign, so a (min, max) pair still covers every sample between them.
enum class Scale { Linear, Decibels };
constexpr double kDecibelFloor = -60.0;

// Where a sample lies, as a signed fraction of the half height: -1 (the
// bottom edge, -32768) to 1 (the top edge); 0 at the centre line.
double heightOf(int16_t sample, Scale scale);

// `rows` lines of UTF-8 text, one character per (min, max) pair of
// `minMax`: the centre line lies between the middle rows (in the middle of
// the middle row when `rows` is odd), and each column fills from its max
// down to its min in eighths of a line. A bar's top edge uses the lower
// eighth blocks (U+2581..U+2588); a bar's lower edge within a cell shows as
// the upper half or upper eighth block. Silence (0, 0) draws nothing; any
// other column shows at least one eighth.
std::vector<std::string> drawTextWaveform(const std::vector<int16_t>& minMax, int rows, Scale scale);

struct Colour {
    double red = 0, green = 0, blue = 0, alpha = 1;  // 0..1
};

// "#rrggbb" or "#rrggbbaa" (hex digits in either case); false when not.
bool parseColour(const std::string& text, Colour& colour);

struct PictureStyle {
    Colour wave{32 / 255.0, 96 / 255.0, 192 / 255.0, 1};
    Colour background{250 / 255.0, 250 / 255.0, 250 / 255.0, 1};
    Colour axis{96 / 255.0, 96 / 255.0, 96 / 255.0, 1};  // centre line, ticks and labels
    Scale scale = Scale::Linear;
};

// --colors WAVE[,BACKGROUND[,AXIS]]: each a colour as above; an empty
// field keeps the default. False with `why` naming the bad field.
bool parseColourList(const std::string& list, PictureStyle& style, std::string& why);

// A tick of the time axis: its x in pixels from the left edge and its label.
struct TimeTick {
    double x;
    std::string label;
};

// Ticks for [fromMs, toMs) drawn over `width` pixels: at round times (1, 2
// or 5 times a power of ten of ms up to 1 s, then 1, 2, 5, 10, 15, 30 s,
// 1, 2, 5, 10, 15, 30 min, 1, 2, 3, 6, 12 h...) with at least
// `minSpacing` pixels between them. Labels are m:ss (h:mm:ss from an hour
// on, with tenths or hundredths when the step is below a second).
std::vector<TimeTick> timeTicks(uint64_t fromMs, uint64_t toMs, int width, int minSpacing);

}  // namespace wvcli

#endif
