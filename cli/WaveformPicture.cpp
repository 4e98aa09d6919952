#include "WaveformPicture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace wvcli {
namespace {

const char* const kLowerEighths[9] = {" ",      "\u2581", "\u2582", "\u2583", "\u2584",
                                      "\u2585", "\u2586", "\u2587", "\u2588"};
const char* const kUpperEighth = "\u2594";
const char* const kUpperHalf = "\u2580";
const char* const kFull = "\u2588";

// A cell whose lower part is empty and whose upper `eighths` are filled:
// only the upper eighth and upper half exist as characters.
const char* upperFill(int eighths) {
    if (eighths <= 2) return kUpperEighth;
    if (eighths <= 5) return kUpperHalf;
    return kFull;
}

// The character of the cell [low, low + 8) for a bar covering [bottom, top)
// (eighths from the bottom of the drawing).
const char* cellOf(int low, int bottom, int top) {
    const int from = std::max(bottom, low);
    const int to = std::min(top, low + 8);
    if (from >= to) return " ";
    if (from == low) return kLowerEighths[to - low];
    if (to == low + 8) return upperFill(low + 8 - from);
    // A bar within the cell: shown from whichever edge it lies nearer.
    return (from - low) + (to - low) <= 8 ? kLowerEighths[to - low] : upperFill(low + 8 - from);
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string tickLabel(uint64_t ms, uint64_t stepMs, bool hours) {
    const uint64_t seconds = ms / 1000;
    char text[48];
    int used = hours ? std::snprintf(text, sizeof text, "%llu:%02llu:%02llu", (unsigned long long)(seconds / 3600),
                                     (unsigned long long)(seconds / 60 % 60), (unsigned long long)(seconds % 60))
                     : std::snprintf(text, sizeof text, "%llu:%02llu", (unsigned long long)(seconds / 60),
                                     (unsigned long long)(seconds % 60));
    // Steps below a second need their fraction: as many digits as the step has.
    if (stepMs < 1000) {
        const int digits = stepMs < 10 ? 3 : stepMs < 100 ? 2 : 1;
        const unsigned fraction = unsigned(ms % 1000) / (digits == 3 ? 1 : digits == 2 ? 10 : 100);
        std::snprintf(text + used, sizeof text - size_t(used), ".%0*u", digits, fraction);
    }
    return text;
}

}  // namespace

double heightOf(int16_t sample, Scale scale) {
    const double linear = sample / 32768.0;
    if (scale == Scale::Linear || sample == 0) return linear;
    const double level = (20 * std::log10(std::fabs(linear)) - kDecibelFloor) / -kDecibelFloor;
    const double height = std::clamp(level, 0.0, 1.0);
    return sample < 0 ? -height : height;
}

std::vector<std::string> drawTextWaveform(const std::vector<int16_t>& minMax, int rows, Scale scale) {
    std::vector<std::string> lines(size_t(std::max(rows, 0)));
    const int eighths = rows * 8;
    const double centre = eighths / 2.0;
    for (size_t i = 0; i + 1 < minMax.size(); i += 2) {
        const int16_t lowest = minMax[i], highest = minMax[i + 1];
        int bottom = int(std::lround(centre + heightOf(lowest, scale) * centre));
        int top = int(std::lround(centre + heightOf(highest, scale) * centre));
        bottom = std::clamp(bottom, 0, eighths);
        top = std::clamp(top, 0, eighths);
        // Quiet sound stays visible; only true silence leaves the column empty.
        if (top <= bottom && (lowest != 0 || highest != 0)) {
            if (bottom < eighths) {
                top = bottom + 1;
            } else {
                bottom = top - 1;
            }
        }
        for (int line = 0; line < rows; ++line) lines[size_t(line)] += cellOf(8 * (rows - 1 - line), bottom, top);
    }
    return lines;
}

bool parseColour(const std::string& text, Colour& colour) {
    if ((text.size() != 7 && text.size() != 9) || text[0] != '#') return false;
    double channels[4] = {0, 0, 0, 1};
    for (size_t i = 1; i < text.size(); i += 2) {
        const int high = hexDigit(text[i]), low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0) return false;
        channels[i / 2] = (high * 16 + low) / 255.0;
    }
    colour = {channels[0], channels[1], channels[2], channels[3]};
    return true;
}

bool parseColourList(const std::string& list, PictureStyle& style, std::string& why) {
    Colour* const targets[3] = {&style.wave, &style.background, &style.axis};
    const char* const names[3] = {"wave", "background", "axis"};
    size_t start = 0;
    for (int field = 0;; ++field) {
        const size_t comma = list.find(',', start);
        const std::string text = list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        if (field == 3) {
            why = "at most three colours: WAVE,BACKGROUND,AXIS";
            return false;
        }
        if (!text.empty() && !parseColour(text, *targets[field])) {
            why = std::string("the ") + names[field] + " colour '" + text + "' is not #rrggbb or #rrggbbaa";
            return false;
        }
        if (comma == std::string::npos) return true;
        start = comma + 1;
    }
}

std::vector<TimeTick> timeTicks(uint64_t fromMs, uint64_t toMs, int width, int minSpacing) {
    static const uint64_t kSteps[] = {1,       2,       5,        10,       20,       50,      100,
                                      200,     500,     1000,     2000,     5000,     10000,   15000,
                                      30000,   60000,   120000,   300000,   600000,   900000,  1800000,
                                      3600000, 7200000, 10800000, 21600000, 43200000, 86400000};
    std::vector<TimeTick> ticks;
    if (toMs <= fromMs || width <= 0) return ticks;
    const double span = double(toMs - fromMs);
    uint64_t step = 0;
    for (uint64_t candidate : kSteps) {
        step = candidate;
        if (double(candidate) * width / span >= minSpacing) break;
    }
    // Past the last step (days over a few pixels): whole multiples of it.
    while (double(step) * width / span < minSpacing) step *= 2;
    const bool hours = toMs >= 3600000;
    for (uint64_t t = (fromMs + step - 1) / step * step; t <= toMs; t += step) {
        ticks.push_back({double(t - fromMs) * width / span, tickLabel(t, step, hours)});
    }
    return ticks;
}

}  // namespace wvcli
